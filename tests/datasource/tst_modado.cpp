#include "datasource/modADO.h"

#include "util/mousepointer.h"
#include "util/scriptedmessageboxes.h"

#include "datarow.h"
#include "odbcenvironment.h"
#include "sqlitefixture.h"
#include "testsource.h"

#include <QElapsedTimer>
#include <QSqlDatabase>
#include <QTcpServer>
#include <QTest>

#include <array>

class RecordingPointer final : public MousePointer
{
public:
    void setBusy(bool busy) override { changes << busy; }
    QList<bool> changes;
};

class TestModADO : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_odbc.isValid());
        QVERIFY(IsADOInstalled()); // scripts/setup.sh installs both drivers
        MousePointer::install(&m_pointer);
        MessageBoxes::setInstance(&m_boxes);
    }

    void cleanup()
    {
        // Every helper hands the default pointer back, whatever happened.
        QCOMPARE(m_pointer.changes.count(true), m_pointer.changes.count(false));
        QVERIFY(m_pointer.changes.isEmpty() || !m_pointer.changes.last());
        m_pointer.changes.clear();
        m_boxes.clear();
    }

    // Tables, fields and trial statements on one sample source, reached each way the
    // program can; nothing a trial statement writes may stay.
    void sampleSource_data()
    {
        QTest::addColumn<QString>("source");
        for (const char* kind : {"sqlite", "sqlite-odbc", "sqlite-dsn", "postgresql"})
            DataRow(kind, kind);
    }

    void sampleSource()
    {
        QFETCH(QString, source);
        const bool pg = source == "postgresql";
        const QStringList elsewhere = {"CREATE SCHEMA other", "CREATE TABLE other.t (x int)"};
        OPEN_TEST_SOURCE(db, source == "sqlite-dsn" ? "sqlite" : source,
                         pg ? PgSampleCustomerStatements() + elsewhere
                            : SampleCustomerStatements());
        QString conString = db.conString;
        if (source == "sqlite-dsn") {
            m_odbc.addSqliteDsn("Crm", db.file());
            conString = "Provider=MSDASQL.1;Persist Security Info=False;Data Source=Crm";
        }
        const auto bytes = [&db] {
            QFile file(db.file());
            return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        };
        const QByteArray before = bytes();
        const QStringList connections = QSqlDatabase::connectionNames();

        // Views, indexes, SQLite's own tables, the server's catalogues and other schemas are
        // not listed.
        QStringList tables{"stale"};
        QString message;
        QVERIFY2(GetTables(tables, conString, message), qPrintable(m_boxes.texts().join('\n')));
        tables.sort();
        QCOMPARE(tables.join(','), pg ? "Order Lines,customers" : "Customers,Order Lines");

        // {table or statement, names, types, names on PostgreSQL when not just lower case}
        const QList<std::array<QString, 4>> fieldCases = {
            {pg ? "customers" : "CUSTOMERS", "ID,Name,Email,Balance,Joined,LastSeen,Active,Photo",
             "Number,Text,Text,Number,Date,Time,Boolean,Binary"},
            {"Order Lines", "Line No,Item", "Number,Text", "Line No,item"},
            {"select Name, Balance, Joined, Active from Customers where Active",
             "Name,Balance,Joined,Active", "Text,Number,Date,Boolean"},
            {"SELECT COUNT(*) AS N FROM Customers", "N", "Number"},
            {"SELECT Email FROM Customers WHERE 1 = 0", "Email", "Text"}};
        QStringList gotNames, gotTypes;
        for (const auto& [from, names, types, pgNames] : fieldCases) {
            QVERIFY2(GetFields(conString, from, gotNames, gotTypes, message), qPrintable(message));
            QCOMPARE(gotNames.join(','),
                     pg ? (pgNames.isEmpty() ? names.toLower() : pgNames) : names);
            QCOMPARE(gotTypes.join(','), types);
        }

        // A statement that would write is refused before the source sees it.
        QVERIFY(!GetFields(conString, "SELECT * FROM Customers; DELETE FROM Customers", gotNames,
                           gotTypes, message));
        QVERIFY2(message.contains("second statement"), qPrintable(message));

        // Names are quoted as the source expects: brackets unless the driver says otherwise.
        QCOMPARE(IdentifierQuote(conString), QString(pg ? "\"" : ""));

        // How a trial run ends ("source error": an error as "<number> - <text>"). A statement
        // that would write is refused before it reaches the source ("refused"); the view would stop
        // PostgreSQL dropping Customers, so it goes.
        if (pg)
            QCOMPARE(db.run({"DROP VIEW ActiveCustomers"}), QString());
        const QList<QPair<QString, QStringList>> sqlCases = {
            {"valid",
             {"SELECT * FROM Customers", "select name from customers where name like 'A%'"}},
            {"The SQL must be a valid SELECT statement.", {"UPDATE Customers SET Name = 'x'", ""}},
            {"source error", {"SELECT * FROM NoSuchTable", "SELECT FROM WHERE"}},
            {"refused",
             {"DELETE FROM Customers WHERE Name = 'SELECT'",
              "UPDATE Customers SET Name = 'SELECT', Email = '' WHERE ID > 0",
              "INSERT INTO Customers (Name) SELECT 'Intruder'",
              "CREATE TABLE Extra AS SELECT 1 AS X", "DROP TABLE \"Order Lines\" -- SELECT",
              "DROP TABLE Customers -- SELECT"}}};
        for (const auto& [expected, statements] : sqlCases) {
            for (const QString& sql : statements) {
                long number = 0;
                message.clear();
                const bool valid = ValidateSQL(conString, sql, number, message);
                QString outcome = valid ? "valid" + message : message;
                const QString prefix = QString::number(number) + " - ";
                if (number && message.startsWith(prefix) && message != prefix)
                    outcome = message.contains("would change the data source") ? "refused"
                                                                               : "source error";
                QCOMPARE(sql + ": " + outcome, sql + ": " + expected);
            }
        }
        // Nothing written stays.
        const QString rows = "SELECT Name || ' ' || Email FROM Customers ORDER BY ID";
        QCOMPARE(db.column(rows),
                 QStringList({"Ann Smith ann@example.com", "SELECT select@example.com",
                              "Bob Jones bob@example.com"}));
        if (pg)
            QCOMPARE(db.column("SELECT string_agg(tablename, ',' ORDER BY tablename) "
                               "FROM pg_tables WHERE schemaname = 'public'"),
                     QStringList{"Order Lines,customers"});
        else
            QCOMPARE(bytes(), before);
        QCOMPARE(QSqlDatabase::connectionNames(), connections);
    }

    void declaredTypesAndOddNames()
    {
        const QString file = m_folder.filePath("odd.db");
        const QString source = "Provider=SQLite;Data Source=" + file;
        // SQLite takes any declared type; they are read the way its affinity rules read them.
        const QStringList statements = {
            QString::fromUtf8("CREATE TABLE \"Left¬Right\" (x)"),
            "CREATE TABLE Odd (a UNSIGNED BIG INT, b DOUBLE PRECISION, c NCHAR(20), d NATIONAL "
            "CHAR(2), e CLOB, f, g DATETIME, h VARBINARY(16), i MONEY, j GUID, k ODD TYPE, l BIT)"};
        QCOMPARE(BuildSqliteDatabase(file, statements), QString());
        QStringList names, types;
        QString message;
        QVERIFY2(GetFields(source, "Odd", names, types, message), qPrintable(message));
        QCOMPARE(types.join(','), "Number,Number,Text,Text,Text,Text,Time,Binary,Currency,"
                                  "DBTYPE_GUID,Number,Boolean");
        QCOMPARE(ADOTypeName(short(AdoTypeFromOdbcSqlType(999))), "Unknown - 12");
        // Lists travel joined by '¬', so a name holding one comes back in two pieces.
        QVERIFY(GetTables(names, source, message));
        QCOMPARE(names, QStringList({"Left", "Right", "Odd"}));
    }

    // Sources that give no tables or fields: an empty one says so, an unusable one shows the
    // data source's error; nothing is created, handed back or left open on the way.
    void noTablesOrFields()
    {
        const QString empty = m_folder.filePath("empty.db"), missing = m_folder.filePath("no.db");
        QCOMPARE(BuildSqliteDatabase(empty, {"CREATE VIEW V AS SELECT 1 AS X"}), QString());
        const QString none = "No tables could be found using the database connection specified, "
                             "modify the database connection and specify more information.";
        // A server that takes the connection and never answers: the login gives up.
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHost));
        const QString silentServer = QString("Server=127.0.0.1;Port=%1;Database=x;Uid=x;Pwd=x;"
                                             "Connect Timeout=1")
                                         .arg(silent.serverPort());
        const QList<QPair<QString, QString>> cases = {
            {"Driver={PostgreSQL Unicode};" + silentServer, "timeout expired"},
            {"Driver={MariaDB Unicode};" + silentServer, "handshake"},
            // connection, message or part of the box
            {"Provider=SQLite;Data Source=" + empty, none},
            {OdbcEnvironment::sqliteDriverString(empty), none},
            {"Provider=SQLite;Data Source=" + missing,
             "3000 - The SQLite database file \"" + missing + "\" does not exist."},
            {"Provider=MSDASQL.1;Data Source=NoSuchDsn", "not found"},
            {"Driver={No Such Driver};Database=x", "No Such Driver"},
            {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=x", "\"Microsoft.Jet.OLEDB.4.0\""}};
        const QStringList connections = QSqlDatabase::connectionNames();
        static const QRegularExpression form("^modADO:GetTables Error -?\\d+ - \\S");
        for (const auto& [conString, expected] : cases) {
            m_boxes.clear();
            QStringList names{"kept"}, types{"kept"};
            QString message;
            QElapsedTimer clock;
            clock.start();
            QVERIFY(!GetTables(names, conString, message));
            QVERIFY2(clock.elapsed() < 10000, qPrintable(conString));
            if (expected == none) {
                QCOMPARE(message, none);
                QCOMPARE(m_boxes.shown().size(), 0);
            } else {
                QCOMPARE(m_boxes.shown().size(), 1);
                const auto box = m_boxes.shown().at(0);
                QVERIFY2(box.icon == MessageBoxes::Icon::Critical &&
                             form.match(box.text).hasMatch() && box.text.contains(expected),
                         qPrintable(box.text));
            }
            message.clear();
            QVERIFY(!GetFields(conString, "NoSuchTable", names, types, message));
            QVERIFY2(!message.isEmpty(), qPrintable(conString));
            QCOMPARE(names + types, QStringList({"kept", "kept"}));
            QCOMPARE(QSqlDatabase::connectionNames(), connections);
        }
        QVERIFY(!QFile::exists(missing));
    }

private:
    OdbcEnvironment m_odbc;
    TempFolder m_folder;
    RecordingPointer m_pointer;
    ScriptedMessageBoxes m_boxes;
};

QTEST_GUILESS_MAIN(TestModADO)
#include "tst_modado.moc"
