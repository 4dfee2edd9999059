#include "datasource/modADO.h"

#include "util/mousepointer.h"
#include "util/scriptedmessageboxes.h"

#include "odbcenvironment.h"
#include "pgtestserver.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

#include <QTest>

#include <memory>

namespace {

// Records the pointer changes, to see that every helper gives the pointer back.
class RecordingPointer final : public MousePointer
{
public:
    void setBusy(bool busy) override { changes << busy; }
    QList<bool> changes;
};

// One source of the sample data, however it is reached.
struct Source
{
    QString conString;
    QString error; // why the source could not be prepared
    std::unique_ptr<TempFolder> folder;
    std::unique_ptr<PgTestDatabase> pg;
    QString file;

    // The rows of Customers as the source holds them now, looked at from outside.
    QStringList customerNames() const
    {
        return pg ? pg->column("SELECT name FROM customers ORDER BY id")
                  : SqliteColumn(file, "SELECT Name FROM Customers ORDER BY ID");
    }
};

} // namespace

#define PREPARE_SOURCE(source, extraPg)                                                            \
    Source source;                                                                                 \
    if (!prepare(source, extraPg))                                                                 \
        QSKIP("no PostgreSQL test server (DBIMPORT_TEST_PG_* not set)");                           \
    QVERIFY2(source.error.isEmpty(), qPrintable(source.error))

class TestModADO : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_odbc = std::make_unique<OdbcEnvironment>();
        QVERIFY(m_odbc->isValid());
        QVERIFY(IsADOInstalled()); // scripts/setup.sh installs both drivers
        MousePointer::install(&m_pointer);
        MessageBoxes::setInstance(&m_boxes);
    }

    void cleanup()
    {
        // Every helper hands the default pointer back, whatever happened.
        if (!m_pointer.changes.isEmpty())
            QCOMPARE(m_pointer.changes.last(), false);
        QCOMPARE(m_pointer.changes.count(true), m_pointer.changes.count(false));
        m_pointer.changes.clear();
    }

    void adoTypeName_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("name");
        // One or two codes of each name, and the ends of the unknown range.
        const QList<QPair<int, QString>> rows = {
            {131, "Number"}, {3, "Number"}, {17, "Number"}, {205, "Binary"}, {128, "Binary"},
            {11, "Boolean"}, {200, "Text"}, {130, "Text"}, {6, "Currency"}, {7, "Date"},
            {133, "Date"}, {135, "Time"}, {132, "User Defined"}, {9, "DBTYPE_IDISPATCH"},
            {72, "DBTYPE_GUID"}, {10, "DBTYPE_ERROR"}, {0, "DBTYPE_EMPTY"}, {12, "Unknown - 12"},
            {136, "Unknown - 136"}, {-7, "Unknown - -7"}, {32767, "Unknown - 32767"}};
        for (const auto& [code, name] : rows)
            QTest::addRow("%d", code) << code << name;
    }

    void adoTypeName()
    {
        QFETCH(int, code);
        QFETCH(QString, name);
        QCOMPARE(ADOTypeName(static_cast<short>(code)), name);
    }

    void sqliteDeclaredTypes_data()
    {
        QTest::addColumn<QString>("declared");
        QTest::addColumn<QString>("name");
        const QList<QPair<QString, QString>> rows = {
            {"int", "Number"}, {"UNSIGNED BIG INT", "Number"}, {"NUMERIC(10,2)", "Number"},
            {"DOUBLE PRECISION", "Number"}, {"FLOAT", "Number"}, {"NVARCHAR(20)", "Text"},
            {"NATIONAL CHAR(2)", "Text"}, {"CLOB", "Text"}, {"", "Text"}, {"DATE", "Date"},
            {"DATETIME", "Time"}, {"TIMESTAMP", "Time"}, {"bool", "Boolean"},
            {"VARBINARY(16)", "Binary"}, {"MONEY", "Currency"}, {"GUID", "DBTYPE_GUID"},
            {"SOMETHING ELSE", "Number"}};
        for (const auto& [declared, name] : rows)
            QTest::newRow(declared.isEmpty() ? "(none)" : qPrintable(declared)) << declared << name;
    }

    void sqliteDeclaredTypes()
    {
        QFETCH(QString, declared);
        QFETCH(QString, name);
        QCOMPARE(ADOTypeName(static_cast<short>(AdoTypeFromSqliteDeclaredType(declared))), name);
    }

    void odbcSqlTypes_data()
    {
        QTest::addColumn<int>("odbcType");
        QTest::addColumn<int>("adoType");
        const QList<QPair<int, int>> rows = {{-1, 201}, {-9, 202}, {3, 131}, {6, 5}, {7, 4},
            {-7, 11}, {-6, 17}, {-5, 20}, {-3, 204}, {9, 133}, {92, 134}, {93, 135}, {-11, 72},
            {999, 12}};
        for (const auto& [odbc, ado] : rows)
            QTest::addRow("%d", odbc) << odbc << ado;
    }

    void odbcSqlTypes()
    {
        QFETCH(int, odbcType);
        QFETCH(int, adoType);
        QCOMPARE(AdoTypeFromOdbcSqlType(odbcType), adoType);
    }

    void tables_data()
    {
        addSourceColumn();
        QTest::addColumn<QStringList>("expected");
        const QStringList sqlite = {"Customers", "Order Lines"};
        QTest::newRow("SQLite file") << "qsqlite" << sqlite;
        QTest::newRow("SQLite ODBC") << "sqlite-odbc" << sqlite;
        QTest::newRow("SQLite ODBC DSN") << "sqlite-dsn" << sqlite;
        QTest::newRow("PostgreSQL") << "postgres" << QStringList{"Order Lines", "customers"};
    }

    void tables()
    {
        QFETCH(QStringList, expected);
        PREPARE_SOURCE(source, QStringList({"CREATE SCHEMA elsewhere",
                                            "CREATE TABLE elsewhere.hidden (x int)"}));
        QStringList tables{"stale"};
        QString message;
        QVERIFY2(GetTables(tables, source.conString, message), qPrintable(m_boxes.texts().join('\n')));
        // Views, indexes, SQLite's own tables, the server's catalogues and other schemas are not listed.
        tables.sort();
        QCOMPARE(tables, expected);
        QCOMPARE(m_boxes.shown().size(), 0);
    }

    void fields_data()
    {
        addSourceColumn();
        QTest::addColumn<QString>("table"); // or a statement
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QStringList>("types");

        const QStringList types = {"Number", "Text", "Text", "Number", "Date", "Time", "Boolean", "Binary"};
        const QStringList names = {"ID", "Name", "Email", "Balance", "Joined", "LastSeen", "Active", "Photo"};
        const QStringList lines = {"Line No", "Item"}, lineTypes = {"Number", "Text"};
        QTest::newRow("SQLite file") << "qsqlite" << "Customers" << names << types;
        QTest::newRow("SQLite file, name case") << "qsqlite" << "CUSTOMERS" << names << types;
        QTest::newRow("SQLite file, blanks") << "qsqlite" << "Order Lines" << lines << lineTypes;
        QTest::newRow("SQLite ODBC") << "sqlite-odbc" << "Customers" << names << types;
        QTest::newRow("SQLite ODBC, blanks") << "sqlite-odbc" << "Order Lines" << lines << lineTypes;
        QTest::newRow("SQLite ODBC DSN") << "sqlite-dsn" << "Customers" << names << types;
        QTest::newRow("PostgreSQL")
            << "postgres" << "customers" << names.join(',').toLower().split(',') << types;
        QTest::newRow("PostgreSQL, blanks") << "postgres" << "Order Lines"
                                            << QStringList{"Line No", "item"} << lineTypes;
        // A statement instead of a table name.
        const QString sql = "select Name, Balance, Joined, Active from Customers where Active";
        for (const char* kind : {"qsqlite", "sqlite-odbc", "postgres"}) {
            const bool pg = QByteArray(kind) == "postgres";
            QTest::addRow("%s, columns", kind)
                << kind << sql
                << (pg ? QStringList{"name", "balance", "joined", "active"}
                       : QStringList{"Name", "Balance", "Joined", "Active"})
                << QStringList{"Text", "Number", "Date", "Boolean"};
            QTest::addRow("%s, a count", kind) << kind << "SELECT COUNT(*) AS N FROM Customers"
                                               << QStringList{pg ? "n" : "N"} << QStringList{"Number"};
            QTest::addRow("%s, no rows", kind) << kind << "SELECT Email FROM Customers WHERE 1 = 0"
                                               << QStringList{pg ? "email" : "Email"} << QStringList{"Text"};
        }
    }

    void fields()
    {
        QFETCH(QString, table);
        QFETCH(QStringList, names);
        QFETCH(QStringList, types);
        PREPARE_SOURCE(source, {});
        QStringList gotNames, gotTypes;
        QString message;
        QVERIFY2(GetFields(source.conString, table, gotNames, gotTypes, message), qPrintable(message));
        QCOMPARE(gotNames, names);
        QCOMPARE(gotTypes, types);
    }

    void validateSQL_data()
    {
        addSourceColumn();
        QTest::addColumn<QString>("sql");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("message"); // exact when the check needs no data source
        const QString notSelect = "The SQL must be a valid SELECT statement.";

        for (const char* kind : {"qsqlite", "sqlite-odbc", "postgres"}) {
            QTest::addRow("%s, select", kind) << kind << "SELECT * FROM Customers" << true << "";
            QTest::addRow("%s, lower-case", kind)
                << kind << "select name from customers where name like 'A%'" << true << "";
            QTest::addRow("%s, not a select", kind)
                << kind << "UPDATE Customers SET Name = 'x'" << false << notSelect;
            QTest::addRow("%s, empty", kind) << kind << "" << false << notSelect;
            QTest::addRow("%s, unknown table", kind) << kind << "SELECT * FROM NoSuchTable" << false << "";
            QTest::addRow("%s, syntax error", kind) << kind << "SELECT FROM WHERE" << false << "";
        }
    }

    void validateSQL()
    {
        QFETCH(QString, sql);
        QFETCH(bool, valid);
        QFETCH(QString, message);
        PREPARE_SOURCE(source, {});
        long number = 0;
        QString text;
        QCOMPARE(ValidateSQL(source.conString, sql, number, text), valid);
        if (valid) {
            QCOMPARE(text, QString());
        } else if (!message.isEmpty()) {
            QCOMPARE(text, message);
        } else {
            // The data source's own error, as "<number> - <description>".
            QVERIFY(number != 0);
            QVERIFY2(text.startsWith(QString::number(number) + " - "), qPrintable(text));
            QVERIFY2(text.size() > QString::number(number).size() + 3, qPrintable(text));
        }
    }

    void writingStatementsLeaveEveryRow_data()
    {
        addSourceColumn();
        QTest::addColumn<QString>("sql");
        for (const char* kind : {"qsqlite", "sqlite-odbc", "sqlite-dsn", "postgres"}) {
            QTest::addRow("%s, delete", kind) << kind << "DELETE FROM Customers WHERE Name = 'SELECT'";
            QTest::addRow("%s, update", kind) << kind << "UPDATE Customers SET Name = 'SELECT' WHERE ID > 0";
            QTest::addRow("%s, drop", kind) << kind << "DROP TABLE Customers -- SELECT";
        }
    }

    void writingStatementsLeaveEveryRow()
    {
        QFETCH(QString, sql);
        PREPARE_SOURCE(source, {QStringLiteral("DROP VIEW ActiveCustomers")});
        long number = 0;
        QString text;
        ValidateSQL(source.conString, sql, number, text); // may well call it valid
        QCOMPARE(source.customerNames(), QStringList({"Ann Smith", "SELECT", "Bob Jones"}));
    }

    // A database with a view and no table, through both SQLite routes.
    void noTablesAndMissingTableAreReported()
    {
        TempFolder folder;
        const QString file = folder.filePath("empty.db");
        QCOMPARE(BuildSqliteDatabase(file, {"CREATE VIEW V AS SELECT 1 AS X"}), QString());
        for (const QString& conString :
             {"Provider=SQLite;Data Source=" + file, OdbcEnvironment::sqliteDriverString(file)}) {
            QStringList tables{"kept"}, types{"kept"};
            QString message;
            QVERIFY(!GetTables(tables, conString, message));
            QCOMPARE(message, QString("No tables could be found using the database connection "
                                      "specified, modify the database connection and specify more "
                                      "information."));
            QCOMPARE(tables, QStringList{"kept"});
            message.clear();
            QVERIFY(!GetFields(conString, "NoSuchTable", tables, types, message));
            QVERIFY2(!message.isEmpty(), qPrintable(conString));
            QCOMPARE(tables + types, QStringList({"kept", "kept"}));
        }
        QCOMPARE(m_boxes.shown().size(), 0);
    }

    void unusableConnectionIsReportedByGetTables_data()
    {
        QTest::addColumn<QString>("conString");
        QTest::addColumn<QString>("textPart");
        QTest::newRow("missing SQLite file") << "Provider=SQLite;Data Source=/nonexistent/folder/x.db"
                                             << "/nonexistent/folder/x.db";
        QTest::newRow("unknown DSN") << "Provider=MSDASQL.1;Data Source=NoSuchDsn" << " - ";
        QTest::newRow("unsupported provider") << "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=x"
                                              << "Microsoft.Jet.OLEDB.4.0";
    }

    void unusableConnectionIsReportedByGetTables()
    {
        QFETCH(QString, conString);
        QFETCH(QString, textPart);
        m_boxes.clear();
        QStringList tables{"kept"};
        QString message;
        QVERIFY(!GetTables(tables, conString, message));
        QCOMPARE(tables, QStringList{"kept"});
        QCOMPARE(m_boxes.shown().size(), 1);
        const auto box = m_boxes.shown().at(0);
        QCOMPARE(box.icon, MessageBoxes::Icon::Critical);
        static const QRegularExpression form("^modADO:GetTables Error -?\\d+ - \\S");
        QVERIFY2(form.match(box.text).hasMatch(), qPrintable(box.text));
        QVERIFY2(box.text.contains(textPart), qPrintable(box.text));
        m_boxes.clear();
    }

    void tableNamesAreSplitAtTheSeparator()
    {
        TempFolder folder;
        const QString file = folder.filePath("odd.db");
        QCOMPARE(BuildSqliteDatabase(file, {QString::fromUtf8("CREATE TABLE \"Left¬Right\" (x)")}),
                 QString());
        QStringList tables;
        QString message;
        QVERIFY(GetTables(tables, "Provider=SQLite;Data Source=" + file, message));
        QCOMPARE(tables, QStringList({"Left", "Right"}));
    }

    void shortTableNames()
    {
        TempFolder folder;
        folder.writeFile("CUSTOMERS_2019.dbf", "x");
        for (const QString& f : {QString(), folder.hostPath(), folder.path()})
            QCOMPARE(ShortTableName(f, "CUSTOMERS_2019"), QString());
    }

private:
    void addSourceColumn() { QTest::addColumn<QString>("source"); }
    // Prepares the source named by the "source" column, or skips the row.
    bool prepare(Source& s, const QStringList& extraPg)
    {
        QFETCH(QString, source);
        const QString kind = source;
        if (kind == "postgres") {
            PgTestServer server;
            QString reason;
            if (!PgTestServer::fromEnvironment(server, reason))
                return false;
            auto db = std::make_unique<PgTestDatabase>(server);
            if (!db->error().isEmpty()) {
                s.error = db->error();
                return true;
            }
            s.error = db->run(PgSampleCustomerStatements() + extraPg);
            s.conString = server.driverString(db->name());
            s.pg = std::move(db);
            return true;
        }
        s.folder = std::make_unique<TempFolder>();
        s.file = s.folder->filePath("crm.db");
        s.error = BuildSqliteDatabase(s.file, SampleCustomerStatements());
        if (kind == "qsqlite") {
            s.conString = "Provider=SQLite;Data Source=" + s.file;
        } else if (kind == "sqlite-odbc") {
            s.conString = OdbcEnvironment::sqliteDriverString(s.file);
        } else {
            const QString dsn = QStringLiteral("Crm%1").arg(++m_dsnCount);
            m_odbc->addSqliteDsn(dsn, s.file);
            s.conString = "Provider=MSDASQL.1;Persist Security Info=False;Data Source=" + dsn;
        }
        return true;
    }

    std::unique_ptr<OdbcEnvironment> m_odbc;
    RecordingPointer m_pointer;
    ScriptedMessageBoxes m_boxes;
    int m_dsnCount = 0;
};

QTEST_GUILESS_MAIN(TestModADO)
#include "tst_modado.moc"
