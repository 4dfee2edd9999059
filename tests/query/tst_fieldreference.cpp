#include "query/fieldreference.h"

#include "datarow.h"

#include <QTest>

class TestFieldReference : public QObject
{
    Q_OBJECT

private slots:
    // "|" marks the caret before and after the field is picked.
    void insertAtCaret_data()
    {
        QTest::addColumn<QString>("table");
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("after");
        DataRow("empty box", "Customers", "City", "|", "Customers.City |");
        DataRow("bracketed field after a blank", "Customers", "Last Name", "select |",
                "select Customers.[Last Name]|");
        DataRow("comma only after a bracket", "Customers", "City", "select Customers.[Last Name]|",
                "select Customers.[Last Name], Customers.City |");
        DataRow("no comma after a plain name", "Customers", "City", "select Customers.City |",
                "select Customers.City Customers.City |");
        DataRow("blank added after plain text", "Customers", "City", "select|",
                "select Customers.City |");
        DataRow("table with a blank", "Order Details", "Unit Price", "select |",
                "select [Order Details].[Unit Price]|");
        DataRow("table with a blank, plain field", "Order Details", "Quantity", "select |",
                "select [Order Details].Quantity |");
        DataRow("no table chosen", "", "Total", "select |", "select .Total |");
        DataRow("text after the caret moved apart", "Customers", "Email", "select |from Customers",
                "select Customers.Email | from Customers");
        DataRow("text after a blank kept", "Customers", "Last Name", "select | from Customers",
                "select Customers.[Last Name]| from Customers");
        DataRow("caret at the start", "Customers", "City", "|select", "Customers.City | select");
        DataRow("names trimmed", " Customers ", " City ", "select |", "select Customers.City |");
        DataRow("over line breaks", "Customers", "City", "select\n|", "select\n Customers.City |");
    }

    void insertAtCaret()
    {
        QFETCH(QString, table);
        QFETCH(QString, field);
        QFETCH(QString, before);
        QFETCH(QString, after);
        const int caret = static_cast<int>(before.indexOf('|'));
        int newCaret = -1;
        QString text = InsertFieldReference(QString(before).remove('|'), caret,
                                            FieldReference(table, field), newCaret);
        QCOMPARE(text.insert(newCaret, '|'), after);
    }
};

QTEST_GUILESS_MAIN(TestFieldReference)
#include "tst_fieldreference.moc"
