#include "datasource/sourceconnection.h"

#include "odbcenvironment.h"
#include "pgtestserver.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QTest>

#include <memory>

// Every way the program reaches a source must leave the source as it was, whatever is
// sent through the connection.

static const QStringList WritingStatements = {
    "DELETE FROM Customers WHERE Name = 'SELECT'", "UPDATE Customers SET Email = 'changed'",
    "INSERT INTO Customers (Name) VALUES ('Intruder')", "CREATE TABLE Extra (X INTEGER)",
    "DROP TABLE \"Order Lines\""};
static const QStringList Names = {"Ann Smith", "SELECT", "Bob Jones"};
static const QStringList Emails = {"ann@example.com", "select@example.com", "bob@example.com"};

// Sends every statement through one connection (each may fail or succeed, depending on
// the driver); what matters is the state afterwards.
static void sendWrites(SourceConnection& connection, bool closeExplicitly)
{
    {
        QSqlDatabase db = connection.database();
        for (const QString& statement : WritingStatements) {
            QSqlQuery query(db);
            query.exec(statement);
        }
    }
    if (closeExplicitly)
        connection.close();
}

class TestSourceConnection : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_odbc = std::make_unique<OdbcEnvironment>();
        QVERIFY(m_odbc->isValid());
    }

    void sqliteSourcesStayUnchanged_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<bool>("closeExplicitly");
        QTest::newRow("QSQLITE, close") << "qsqlite" << true;
        QTest::newRow("QSQLITE, destructor") << "qsqlite" << false;
        QTest::newRow("ODBC driver string, close") << "odbc-driver" << true;
        QTest::newRow("ODBC driver string, destructor") << "odbc-driver" << false;
        QTest::newRow("ODBC DSN, close") << "odbc-dsn" << true;
    }

    void sqliteSourcesStayUnchanged()
    {
        QFETCH(QString, how);
        QFETCH(bool, closeExplicitly);
        TempFolder folder;
        const QString file = folder.filePath("source.db");
        QCOMPARE(BuildSqliteDatabase(file, SampleCustomerStatements()), QString());
        const QByteArray before = folder.readFile("source.db");

        QString conString;
        if (how == "qsqlite") {
            conString = "Provider=SQLite;Data Source=" + file;
        } else if (how == "odbc-driver") {
            conString = OdbcEnvironment::sqliteDriverString(file);
        } else {
            m_odbc->addSqliteDsn("SqliteSource", file);
            conString = "Provider=MSDASQL.1;Persist Security Info=False;Data Source=SqliteSource";
        }

        {
            SourceConnection connection;
            QString error;
            QVERIFY2(connection.open(conString, error), qPrintable(error));
            QVERIFY(connection.isOpen());
            {
                QSqlQuery query(connection.database()); // reading works inside the guard
                QVERIFY2(query.exec("SELECT COUNT(*) FROM Customers") && query.next(),
                         qPrintable(query.lastError().text()));
                QCOMPARE(query.value(0).toInt(), 3);
            }
            sendWrites(connection, closeExplicitly);
        }

        QCOMPARE(SqliteColumn(file, "SELECT Name FROM Customers ORDER BY ID"), Names);
        QCOMPARE(SqliteColumn(file, "SELECT DISTINCT Email FROM Customers ORDER BY ID"), Emails);
        QCOMPARE(folder.readFile("source.db"), before);
    }

    void postgresStaysUnchanged_data()
    {
        QTest::addColumn<bool>("closeExplicitly");
        QTest::newRow("close") << true;
        QTest::newRow("destructor") << false;
    }

    void postgresStaysUnchanged()
    {
        QFETCH(bool, closeExplicitly);
        PgTestServer server;
        DBIMPORT_REQUIRE_PG(server);
        PgTestDatabase db(server);
        QVERIFY2(db.error().isEmpty(), qPrintable(db.error()));
        QCOMPARE(db.run(PgSampleCustomerStatements()), QString());

        {
            SourceConnection connection;
            QString error;
            QVERIFY2(connection.open(server.driverString(db.name()), error), qPrintable(error));
            // Each statement on its own connection: PostgreSQL stops a transaction at its first
            // failing statement, and every one of these must be tried for real.
            sendWrites(connection, closeExplicitly);
        }
        for (const QString& statement : WritingStatements) {
            SourceConnection connection;
            QString error;
            QVERIFY2(connection.open(server.driverString(db.name()), error), qPrintable(error));
            {
                QSqlQuery query(connection.database());
                QVERIFY2(query.exec(statement), qPrintable(statement + query.lastError().text()));
            }
            if (closeExplicitly)
                connection.close();
        }

        QCOMPARE(db.column("SELECT name FROM customers ORDER BY id"), Names);
        QCOMPARE(db.column("SELECT email FROM customers ORDER BY id"), Emails);
        QCOMPARE(db.column("SELECT tablename FROM pg_tables WHERE schemaname = 'public' ORDER BY 1"),
                 QStringList({"Order Lines", "customers"}));
    }

    void missingSqliteFileIsNeverCreated()
    {
        TempFolder folder;
        const QString file = folder.filePath("missing.db");
        SourceConnection connection;
        QString error;
        QVERIFY(!connection.open("Provider=SQLite;Data Source=" + file, error));
        QVERIFY(!connection.isOpen());
        QVERIFY2(error.startsWith("3000 - "), qPrintable(error));
        QVERIFY2(error.contains(file), qPrintable(error));
        QVERIFY(!QFile::exists(file));
    }

    void connectionsAreSeparateAndRemoved()
    {
        TempFolder folder;
        const QString a = folder.filePath("a.db");
        const QString b = folder.filePath("b.db");
        for (const QString& f : {a, b})
            QCOMPARE(BuildSqliteDatabase(f, {"CREATE TABLE T (V TEXT)", "INSERT INTO T VALUES ('" +
                                                 f.right(4).left(1) + "')"}), QString());
        const QStringList namesBefore = QSqlDatabase::connectionNames();

        auto first = std::make_unique<SourceConnection>();
        SourceConnection second;
        QString error;
        QVERIFY2(first->open("Provider=SQLite;Data Source=" + a, error), qPrintable(error));
        QVERIFY2(second.open("Provider=SQLite;Data Source=" + b, error), qPrintable(error));
        QVERIFY(first->database().connectionName() != second.database().connectionName());
        QCOMPARE(QSqlDatabase::connectionNames().size(), namesBefore.size() + 2);

        auto valueOf = [](const SourceConnection& c) {
            QSqlQuery query(c.database());
            query.exec("SELECT V FROM T");
            return query.next() ? query.value(0).toString() : QString("<none>");
        };
        QCOMPARE(valueOf(*first), QString("a"));
        QCOMPARE(valueOf(second), QString("b"));

        first.reset();
        QCOMPARE(QSqlDatabase::connectionNames().size(), namesBefore.size() + 1);
        QCOMPARE(valueOf(second), QString("b"));

        // Re-opening the same object on another source closes the first one.
        QVERIFY2(second.open("Provider=SQLite;Data Source=" + a, error), qPrintable(error));
        QCOMPARE(valueOf(second), QString("a"));
        QCOMPARE(QSqlDatabase::connectionNames().size(), namesBefore.size() + 1);
        second.close();
        QVERIFY(!second.isOpen());
        QCOMPARE(QSqlDatabase::connectionNames(), namesBefore);
    }

    void refusedConnectionsReportNumberAndText_data()
    {
        QTest::addColumn<QString>("conString");
        QTest::addColumn<QString>("textPart");

        QTest::newRow("unknown DSN") << "Provider=MSDASQL.1;Data Source=NoSuchSource" << "NoSuchSource";
        QTest::newRow("unknown driver") << "Driver={No Such Driver};Database=x" << "No Such Driver";
        QTest::newRow("unsupported provider") << "Provider=Foo.Bar;Data Source=x" << "\"Foo.Bar\"";
    }

    void refusedConnectionsReportNumberAndText()
    {
        QFETCH(QString, conString);
        QFETCH(QString, textPart);
        const QStringList namesBefore = QSqlDatabase::connectionNames();
        SourceConnection connection;
        QString error;
        QVERIFY(!connection.open(conString, error));
        static const QRegularExpression form("^-?\\d+ - \\S");
        QVERIFY2(form.match(error).hasMatch(), qPrintable(error));
        // The driver manager's text names what it could not find, where it says so.
        if (!error.contains(textPart, Qt::CaseInsensitive))
            QVERIFY2(error.contains("not found", Qt::CaseInsensitive), qPrintable(error));
        QCOMPARE(QSqlDatabase::connectionNames(), namesBefore);
    }

private:
    std::unique_ptr<OdbcEnvironment> m_odbc;
};

QTEST_GUILESS_MAIN(TestSourceConnection)
#include "tst_sourceconnection.moc"
