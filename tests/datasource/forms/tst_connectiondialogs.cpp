// The two dialogs about a connection: the builder composing and testing one, and the
// examiner listing what a source holds.

#include "datasource/forms/frmConnectionBuilder.h"
#include "datasource/forms/frmExamineDSN.h"

#include "datarow.h"
#include "formhelpers.h"
#include "odbcenvironment.h"
#include "sqlitefixture.h"
#include "testsource.h"

#include "util/scriptedmessageboxes.h"

#include <QLabel>
#include <QLineEdit>
#include <QTcpServer>
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

class tst_ConnectionDialogs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_odbc.isValid());
        MessageBoxes::setInstance(&m_boxes);
        m_odbc.addSqliteDsn("Contacts EU", m_folder.filePath("eu.db"));
        m_odbc.addDsn("Members", "MariaDB Unicode", {{"Server", "127.0.0.1"}, {"Port", "1"}});
    }

    void cleanup()
    {
        m_boxes.clear();
        frmConnectionBuilder::setFileChooser(nullptr);
        verifyNothingOpen();
    }

    // The lists offer what unixODBC knows, each name once, and nothing of the machine's own
    // configuration; a string naming an unknown data source keeps it. A new connection to a
    // SQLite file, from the keyboard and the file chooser; a file that is not there is refused.
    void odbcListsAndNewSqliteConnection()
    {
        frmConnectionBuilder builder;
        QString message;
        QVERIFY(builder.setConnectionString("DSN=Elsewhere;UID=ann", message));
        QCOMPARE(items(control<QComboBox>(&builder, "cmbDataSource")),
                 QStringList({"Contacts EU", "Members", "Elsewhere"}));
        QCOMPARE(items(control<QComboBox>(&builder, "cmbDriver")),
                 QStringList({"SQLite3", "PostgreSQL Unicode", "MariaDB Unicode"}));
        QCOMPARE(builder.connectionString(), QString("DSN=Elsewhere;UID=ann;"));

        const QString file = m_folder.filePath("contacts.db");
        BuildSqliteDatabase(file, {"CREATE TABLE t (x)"});
        QString offered = "(not asked)";
        frmConnectionBuilder::setFileChooser([&](QWidget*, const QString& current) {
            offered = current;
            return file;
        });
        QVERIFY(builder.setConnectionString("", message));
        builder.show();
        QVERIFY(QTest::qWaitForWindowActive(&builder));
        auto* path = control<QLineEdit>(&builder, "txtFile");
        path->setFocus();
        QTest::keyClicks(path, m_folder.filePath("missing.db"));
        QTest::keyClick(path, Qt::Key_Return);
        QCOMPARE(m_boxes.texts(),
                 QStringList("The SQLite database file \"" + m_folder.filePath("missing.db") +
                             "\" does not exist."));
        QVERIFY(builder.isVisible());
        QTest::keyClick(&builder, Qt::Key_B, Qt::AltModifier);
        QTRY_COMPARE(offered, m_folder.filePath("missing.db"));
        QTest::keyClick(&builder, Qt::Key_Return);
        QCOMPARE(builder.result(), int(QDialog::Accepted));
        QCOMPARE(builder.connectionString(), "Provider=SQLite;Data Source=" + file + ";");
    }

    void testConnection_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("report");
        const QString two = "^Test connection succeeded: 2 table\\(s\\) found\\.$";
        DataRow("sqlite file", "sqlite", two);
        DataRow("postgresql", "postgresql", two);
        DataRow("mariadb", "mariadb", two);
        DataRow("closed port", "closed", "^Test connection failed: \\d+ - .*(connect|Connect)");
        DataRow("silent server", "silent",
                "^Test connection failed: the data source did not answer within 1\\.5 seconds\\.$");
        DataRow("silent server, Escape", "silent", "");
    }

    // The source is opened for real and the outcome reported in the dialog; the window keeps
    // handling events while the driver works, so Escape (empty report) closes it even then. On
    // two tables, one with a blank in its name; "closed": a port nobody listens on, the one a
    // server just gave up; "silent": a server that takes the connection and never answers.
    void testConnection()
    {
        QFETCH(QString, source);
        QFETCH(QString, report);
        const bool fake = source == "closed" || source == "silent";
        OPEN_TEST_SOURCE(open, fake ? "mariadb" : source,
                         QStringList({"CREATE TABLE a (x int)", "CREATE TABLE \"b c\" (y int)"}));
        QTcpServer probe; // the driver still waiting gives up once it is gone
        QString conString = open.conString;
        if (fake) {
            QVERIFY(probe.listen(QHostAddress::LocalHost));
            conString.replace(QRegularExpression("Port=\\d+"),
                              "Port=" + QString::number(probe.serverPort()));
            if (source == "closed")
                probe.close();
        }
        frmConnectionBuilder builder;
        QString message;
        QVERIFY2(builder.setConnectionString(conString, message), qPrintable(message));
        builder.setTestTimeout(source == "silent" ? 1500 : 10000);
        builder.show();
        QVERIFY(QTest::qWaitForWindowActive(&builder));
        auto* result = control<QLabel>(&builder, "lblTestResult");
        // A mnemonic presses its button a moment later, as a click would look.
        QTest::keyClick(&builder, Qt::Key_T, Qt::AltModifier);
        if (report.isEmpty()) {
            QTRY_VERIFY(QApplication::overrideCursor() != nullptr);
            QTest::keyClick(&builder, Qt::Key_Escape);
            QVERIFY(!builder.isVisible() && builder.result() == QDialog::Rejected);
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(result->text().startsWith("Test connection "), 15000);
            QVERIFY2(QRegularExpression(report).match(result->text()).hasMatch(),
                     qPrintable(result->text()));
            builder.reject();
        }
        QVERIFY(QApplication::overrideCursor() == nullptr);
    }

    void examinesEachSource_data()
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
    void examinesEachSource()
    {
        QFETCH(QString, source);
        QFETCH(QString, customerFields);
        OPEN_TEST_SOURCE(
            shop, source,
            QStringList({"CREATE TABLE Customers (ID integer, Name varchar(40), Joined date)",
                         "CREATE TABLE \"Order Lines\" (\"Line No\" integer, \"Item\" "
                         "varchar(20))"}));
        frmExamineDSN dialog;
        dialog.AddConnection("Gone", "Provider=SQLite;Data Source=" + shop.file() + ".gone", false);
        dialog.AddConnection("Shop", shop.conString, true);
        dialog.show();
        auto* tables = control<QComboBox>(&dialog, "icmbTables");
        auto* fieldList = control<QTreeWidget>(&dialog, "lstFields");
        auto* connections = control<QComboBox>(&dialog, "icmbConnections");
        QCOMPARE(m_boxes.texts(), QStringList());
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
        QVERIFY2(m_boxes.texts().size() == 1 &&
                     m_boxes.texts().first().startsWith("modADO:GetTables Error "),
                 qPrintable(m_boxes.texts().join('|')));
        QVERIFY(items(tables).isEmpty() && fields(fieldList).isEmpty());

        connections->setCurrentIndex(1);
        QCOMPARE(tables->count(), 2);
        QCOMPARE(fields(fieldList).size(), tables->currentIndex() == customers ? 3 : 2);
    }

private:
    OdbcEnvironment m_odbc;
    TempFolder m_folder;
    ScriptedMessageBoxes m_boxes;
};

QTEST_MAIN(tst_ConnectionDialogs)
#include "tst_connectiondialogs.moc"
