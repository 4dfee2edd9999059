#include "datasource/forms/frmExamineDSN.h"

#include "datarow.h"
#include "formhelpers.h"
#include "odbcenvironment.h"
#include "testsource.h"

#include "util/scriptedmessageboxes.h"

#include <QTreeWidget>

namespace {

QStringList fields(const QTreeWidget* list)
{
    QStringList rows;
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        rows << list->topLevelItem(i)->text(0) + ':' + list->topLevelItem(i)->text(1);
    return rows;
}

} // namespace

class tst_frmExamineDSN : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_odbc.isValid()); }
    void examinesEachSource_data();
    void examinesEachSource();

private:
    OdbcEnvironment m_odbc;
};

void tst_frmExamineDSN::examinesEachSource_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("customerFields");
    DataRow("sqlite", "sqlite", "ID:Number|Name:Text|Joined:Date");
    DataRow("postgresql", "postgresql", "id:Number|name:Text|joined:Date");
    DataRow("mariadb", "mariadb", "ID:Number|Name:Text|Joined:Date");
}

// The selected connection's tables and the first table's fields show at once; choosing a
// table shows its fields, a blank in its name and all; a connection that cannot be opened
// is reported and leaves both lists empty; choosing the good one again fills them again.
void tst_frmExamineDSN::examinesEachSource()
{
    QFETCH(QString, source);
    QFETCH(QString, customerFields);
    OPEN_TEST_SOURCE(
        shop, source,
        QStringList({"CREATE TABLE Customers (ID integer, Name varchar(40), Joined date)",
                     "CREATE TABLE \"Order Lines\" (\"Line No\" integer, \"Item\" "
                     "varchar(20))"}));
    ScriptedMessageBoxes boxes;
    MessageBoxesGuard guard(&boxes);
    frmExamineDSN dialog;
    dialog.AddConnection("Gone", "Provider=SQLite;Data Source=" + shop.file() + ".gone", false);
    dialog.AddConnection("Shop", shop.conString, true);
    dialog.show();
    auto* tables = control<QComboBox>(&dialog, "icmbTables");
    auto* fieldList = control<QTreeWidget>(&dialog, "lstFields");
    auto* connections = control<QComboBox>(&dialog, "icmbConnections");
    QCOMPARE(boxes.texts(), QStringList());
    // In the order the source lists them; PostgreSQL folds unquoted names to lower case.
    QStringList listed = items(tables);
    listed.sort(Qt::CaseInsensitive);
    QCOMPARE(listed,
             QStringList({source == "postgresql" ? "customers" : "Customers", "Order Lines"}));
    const int customers = tables->findText("customers", Qt::MatchFixedString);
    tables->setCurrentIndex(tables->findText("Order Lines"));
    QCOMPARE(fields(fieldList), QStringList({"Line No:Number", "Item:Text"}));
    tables->setCurrentIndex(customers);
    QCOMPARE(fields(fieldList).join('|'), customerFields);

    connections->setCurrentIndex(0);
    QCOMPARE(boxes.shown().size(), 1);
    QVERIFY2(boxes.texts().first().startsWith("modADO:GetTables Error "),
             qPrintable(boxes.texts().first()));
    QVERIFY(items(tables).isEmpty() && fields(fieldList).isEmpty());

    connections->setCurrentIndex(1);
    QCOMPARE(tables->count(), 2);
    QCOMPARE(fields(fieldList).size(), tables->currentIndex() == customers ? 3 : 2);
    dialog.close();
}

QTEST_MAIN(tst_frmExamineDSN)
#include "tst_frmexaminedsn.moc"
