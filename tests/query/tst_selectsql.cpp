#include "query/crules.h"
#include "query/selectsql.h"

#include <QTest>

namespace {

// Rules as "LogicalOp|FieldName|OpSQL|Value" strings; OpDisplay follows from OpSQL.
CRules rulesFrom(const QStringList& texts)
{
    CRules rules;
    for (const QString& text : texts) {
        const QStringList p = text.split(QLatin1Char('|'));
        rules.Add(p.at(1), QStringLiteral("display ") + p.at(2), p.at(2), p.at(3), p.at(0));
    }
    return rules;
}

} // namespace

class TestSelectSql : public QObject
{
    Q_OBJECT

private slots:
    void condition_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("op");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("expected");

        QTest::newRow("inner blank bracketed") << "First Name" << "=" << "'Bob'" << "[First Name] = 'Bob'";
        QTest::newRow("plain name") << "Age" << ">" << "30" << "Age > 30";
        QTest::newRow("leading blank only, written as is") << " Age" << "<" << "5" << " Age < 5";
        QTest::newRow("outer blanks kept in brackets") << " Post Code " << "like" << "'LS%'"
                                                       << "[ Post Code ] like 'LS%'";
        QTest::newRow("hyphen and dot not bracketed") << "e-mail.addr" << "!=" << "''" << "e-mail.addr != ''";
        QTest::newRow("tab is not a blank") << "A\tB" << "=" << "1" << "A\tB = 1";
        QTest::newRow("blank after a tab is inner") << "\t A" << "=" << "1" << "[\t A] = 1";
        QTest::newRow("quote not escaped") << "Name" << "=" << "'O'Neil'" << "Name = 'O'Neil'";
        QTest::newRow("all empty") << "" << "" << "" << "  ";
    }

    void condition()
    {
        QFETCH(QString, field);
        QFETCH(QString, op);
        QFETCH(QString, value);
        QFETCH(QString, expected);
        QCOMPARE(RuleCondition(field, op, value), expected);
        QCOMPARE(BuildTestSQL(" Customer List ", field, op, value),
                 "select * from [Customer List] WHERE " + expected);
    }

    void tablePart_data()
    {
        QTest::addColumn<QString>("table");
        QTest::addColumn<QString>("expected");

        QTest::newRow("plain") << "Customers" << "select * from Customers";
        QTest::newRow("outer blanks trimmed, no brackets") << "  Customers  " << "select * from Customers";
        QTest::newRow("inner and outer blanks") << "  Order Lines " << "select * from [Order Lines]";
        QTest::newRow("empty name") << "" << "select * from ";
        QTest::newRow("blanks only") << "   " << "select * from ";
        QTest::newRow("only blanks are trimmed") << "\tOrders " << "select * from \tOrders";
        QTest::newRow("blank after a tab is inner") << " \t Orders" << "select * from [\t Orders]";
    }

    void tablePart()
    {
        QFETCH(QString, table);
        QFETCH(QString, expected);
        QCOMPARE(SelectFromTable(table), expected);
        // Without rules both statement builders give the bare table part.
        QCOMPARE(BuildSelectSQL(table, CRules()), expected);
        QCOMPARE(BuildImportSQL(table, CRules()), expected);
        // The test statement has its WHERE even with nothing to test.
        QCOMPARE(BuildTestSQL(table, "", "", ""), expected + " WHERE   ");
    }

    void statements_data()
    {
        QTest::addColumn<QString>("table");
        QTest::addColumn<QStringList>("rules");
        QTest::addColumn<QString>("selectSql");
        QTest::addColumn<QString>("importSql");

        QTest::newRow("two rules") << "Customer List"
                                   << QStringList{"And|Town|=|'Leeds'", "Or|Age|>|30"}
                                   << "select * from [Customer List] WHERE Town = 'Leeds' Or Age > 30"
                                   << "select * from [Customer List] WHERE  Town = 'Leeds' Or Age > 30";
        QTest::newRow("first LogicalOp never written")
            << "T" << QStringList{"Or|A|=|1", "And|B|<|2", "Or|C Name|like|'x%'"}
            << "select * from T WHERE A = 1 And B < 2 Or [C Name] like 'x%'"
            << "select * from T WHERE  A = 1 And B < 2 Or [C Name] like 'x%'";
        QTest::newRow("leading blank field") << "T" << QStringList{"And| Age|>|3"}
            << "select * from T WHERE  Age > 3" << "select * from T WHERE   Age > 3";
        QTest::newRow("empty table with a rule") << "" << QStringList{"And|A|=|1"}
            << "select * from  WHERE A = 1" << "select * from  WHERE  A = 1";
        QTest::newRow("LogicalOp written as held") << "T" << QStringList{"|A|=|1", "oR|B|=|2"}
            << "select * from T WHERE A = 1 oR B = 2" << "select * from T WHERE  A = 1 oR B = 2";
    }

    void statements()
    {
        QFETCH(QString, table);
        QFETCH(QStringList, rules);
        QFETCH(QString, selectSql);
        QFETCH(QString, importSql);
        const CRules list = rulesFrom(rules);
        QCOMPARE(BuildSelectSQL(table, list), selectSql);
        QCOMPARE(BuildImportSQL(table, list), importSql);
    }
};

QTEST_GUILESS_MAIN(TestSelectSql)
#include "tst_selectsql.moc"
