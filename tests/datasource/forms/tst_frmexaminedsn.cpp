#include "datasource/forms/frmExamineDSN.h"

#include "datarow.h"
#include "mariadbtestserver.h"
#include "odbcenvironment.h"
#include "pgtestserver.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

#include "util/scriptedmessageboxes.h"

#include <QApplication>
#include <QComboBox>
#include <QTest>
#include <QTreeWidget>

#include <memory>

namespace {

QStringList items(const QComboBox* combo)
{
    QStringList texts;
    for (int i = 0; i < combo->count(); ++i)
        texts << combo->itemText(i);
    return texts;
}

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
    TempFolder folder;
    const QStringList statements = {
        "CREATE TABLE Customers (ID integer, Name varchar(40), Joined date)",
        "CREATE TABLE \"Order Lines\" (\"Line No\" integer, \"Item\" varchar(20))"};
    QString conString;
    std::unique_ptr<PgTestDatabase> pg;
    std::unique_ptr<MariaDbTestDatabase> maria;
    if (source == "sqlite") {
        const QString file = folder.filePath("shop.db");
        QCOMPARE(BuildSqliteDatabase(file, statements), QString());
        conString = "Provider=SQLite;Data Source=" + file;
    } else if (source == "postgresql") {
        PgTestServer server;
        DBIMPORT_REQUIRE_PG(server);
        pg = std::make_unique<PgTestDatabase>(server);
        QCOMPARE(pg->run(statements), QString());
        conString = server.driverString(pg->name());
    } else {
        MariaDbTestServer server;
        DBIMPORT_REQUIRE_MARIADB(server);
        maria = std::make_unique<MariaDbTestDatabase>(server);
        QCOMPARE(maria->run(QStringList("SET sql_mode = 'ANSI_QUOTES'") + statements), QString());
        conString = "Provider=MSDASQL;" + server.driverString(maria->name());
    }

    ScriptedMessageBoxes boxes;
    MessageBoxesGuard guard(&boxes);
    frmExamineDSN dialog;
    dialog.AddConnection("Gone", "Provider=SQLite;Data Source=" + folder.filePath("gone.db"),
                         false);
    dialog.AddConnection("Shop", conString, true);
    dialog.show();
    auto* tables = dialog.findChild<QComboBox*>("icmbTables");
    auto* fieldList = dialog.findChild<QTreeWidget*>("lstFields");
    auto* connections = dialog.findChild<QComboBox*>("icmbConnections");
    QVERIFY(tables && fieldList && connections);
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
