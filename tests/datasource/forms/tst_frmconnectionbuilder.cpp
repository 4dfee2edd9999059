#include "datasource/forms/frmConnectionBuilder.h"

#include "datarow.h"
#include "formhelpers.h"
#include "odbcenvironment.h"
#include "sqlitefixture.h"
#include "testsource.h"

#include "util/scriptedmessageboxes.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTcpServer>

class tst_frmConnectionBuilder : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void odbcListsComeFromTheDriverManager();
    void newSqliteConnection();
    void testConnection_data();
    void testConnection();
    void silentServerTimesOutAndCancels();

private:
    OdbcEnvironment m_odbc;
    TempFolder m_folder;
    ScriptedMessageBoxes m_boxes;
};

void tst_frmConnectionBuilder::initTestCase()
{
    QVERIFY(m_odbc.isValid());
    MessageBoxes::setInstance(&m_boxes);
    m_odbc.addSqliteDsn("Contacts EU", m_folder.filePath("eu.db"));
    m_odbc.addDsn("Members", "MariaDB Unicode", {{"Server", "127.0.0.1"}, {"Port", "1"}});
}

void tst_frmConnectionBuilder::cleanup()
{
    m_boxes.clear();
    frmConnectionBuilder::setFileChooser(nullptr);
    verifyNothingOpen();
}

// The lists offer what unixODBC knows, each name once, and nothing of the machine's own
// configuration; a string naming an unknown data source keeps it.
void tst_frmConnectionBuilder::odbcListsComeFromTheDriverManager()
{
    frmConnectionBuilder builder;
    QString message;
    QVERIFY(builder.setConnectionString("DSN=Elsewhere;UID=ann", message));
    QCOMPARE(items(control<QComboBox>(&builder, "cmbDataSource")),
             QStringList({"Contacts EU", "Members", "Elsewhere"}));
    QCOMPARE(items(control<QComboBox>(&builder, "cmbDriver")),
             QStringList({"SQLite3", "PostgreSQL Unicode", "MariaDB Unicode"}));
    QCOMPARE(builder.connectionString(), QString("DSN=Elsewhere;UID=ann;"));
}

// A new connection to a SQLite file, from the keyboard and the file chooser; a file that
// is not there is refused.
void tst_frmConnectionBuilder::newSqliteConnection()
{
    const QString file = m_folder.filePath("contacts.db");
    BuildSqliteDatabase(file, {"CREATE TABLE t (x)"});
    QString offered = "(not asked)";
    frmConnectionBuilder::setFileChooser([&](QWidget*, const QString& current) {
        offered = current;
        return file;
    });
    frmConnectionBuilder builder;
    QString message;
    QVERIFY(builder.setConnectionString("", message));
    builder.show();
    QVERIFY(QTest::qWaitForWindowActive(&builder));
    auto* path = control<QLineEdit>(&builder, "txtFile");
    path->setFocus();
    QTest::keyClicks(path, m_folder.filePath("missing.db"));
    QTest::keyClick(path, Qt::Key_Return);
    QCOMPARE(m_boxes.texts(), QStringList("The SQLite database file \"" +
                                          m_folder.filePath("missing.db") + "\" does not exist."));
    QVERIFY(builder.isVisible());
    QTest::keyClick(&builder, Qt::Key_B, Qt::AltModifier);
    QTRY_COMPARE(offered, m_folder.filePath("missing.db"));
    QTest::keyClick(&builder, Qt::Key_Return);
    QCOMPARE(builder.result(), int(QDialog::Accepted));
    QCOMPARE(builder.connectionString(), "Provider=SQLite;Data Source=" + file + ";");
}

void tst_frmConnectionBuilder::testConnection_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("report");
    const QString two = "^Test connection succeeded: 2 table\\(s\\) found\\.$";
    DataRow("sqlite file", "sqlite", two);
    DataRow("postgresql", "postgresql", two);
    DataRow("mariadb", "mariadb", two);
    DataRow("closed port", "closed", "^Test connection failed: \\d+ - .*(connect|Connect)");
}

// The source is opened for real and the outcome reported in the dialog; the window keeps
// handling events while the driver works.
void tst_frmConnectionBuilder::testConnection()
{
    QFETCH(QString, source);
    QFETCH(QString, report);
    // Two tables, one with a blank in its name; "closed": a port nobody listens on, the one
    // a server just gave up.
    OPEN_TEST_SOURCE(open, source == "closed" ? "mariadb" : source,
                     QStringList({"CREATE TABLE a (x int)", "CREATE TABLE \"b c\" (y int)"}));
    QString conString = open.conString;
    if (source == "closed") {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost);
        conString.replace(QRegularExpression("Port=\\d+"),
                          "Port=" + QString::number(probe.serverPort()));
    }
    frmConnectionBuilder builder;
    QString message;
    QVERIFY2(builder.setConnectionString(conString, message), qPrintable(message));
    builder.setTestTimeout(10000);
    builder.show();
    QVERIFY(QTest::qWaitForWindowActive(&builder));
    auto* result = control<QLabel>(&builder, "lblTestResult");
    QTest::keyClick(&builder, Qt::Key_T, Qt::AltModifier);
    // A mnemonic presses its button a moment later, as a click would look.
    QTRY_VERIFY_WITH_TIMEOUT(result->text().startsWith("Test connection "), 15000);
    QVERIFY2(QRegularExpression(report).match(result->text()).hasMatch(),
             qPrintable(result->text()));
    QVERIFY(QApplication::overrideCursor() == nullptr);
    builder.reject();
}

// A server that takes the connection and never answers: left alone, the dialog reports the
// wait as a failure; Escape closes it while the driver still waits. A probe that held the
// window up would hang here instead.
void tst_frmConnectionBuilder::silentServerTimesOutAndCancels()
{
    MariaDbTestServer server;
    QString skip;
    if (!MariaDbTestServer::fromEnvironment(server, skip))
        server = {"127.0.0.1", 0, "x", "u", "p"}; // only the driver is needed
    QTcpServer silent;
    QVERIFY(silent.listen(QHostAddress::LocalHost));
    server.port = silent.serverPort();
    for (const bool cancel : {false, true}) {
        frmConnectionBuilder builder;
        QString message;
        QVERIFY(builder.setConnectionString("Provider=MSDASQL;" + server.driverString(), message));
        builder.setTestTimeout(1500);
        builder.show();
        auto* result = control<QLabel>(&builder, "lblTestResult");
        QTest::mouseClick(control<QPushButton>(&builder, "cmdTest"), Qt::LeftButton);
        QVERIFY(QApplication::overrideCursor() != nullptr);
        if (cancel) {
            QTest::keyClick(&builder, Qt::Key_Escape);
            QVERIFY(!builder.isVisible());
            QCOMPARE(builder.result(), int(QDialog::Rejected));
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(result->text().startsWith("Test connection "), 10000);
            QCOMPARE(result->text(), QString("Test connection failed: the data source did not "
                                             "answer within 1.5 seconds."));
            builder.reject();
        }
        QVERIFY(QApplication::overrideCursor() == nullptr);
    }
    silent.close(); // the driver still waiting gives up once the server is gone
}

QTEST_MAIN(tst_frmConnectionBuilder)
#include "tst_frmconnectionbuilder.moc"
