// Connection strings: parsing, resolving to a Qt driver, the builder's fields, masked
// passwords, the read-only check of statements, and the connections opened with them.
#include "datasource/connectionfields.h"
#include "datasource/connectionstring.h"
#include "datasource/readonlyguard.h"
#include "datasource/sourceconnection.h"

#include "sqlitefixture.h"
#include "tempfolder.h"

#include <QSqlQuery>
#include <QTest>

#include <memory>

using Kind = ConnectionFields::Kind;

namespace {

// The kind's own field (file, data source or driver), server, port, database, user, password.
ConnectionFields fields(Kind kind, QStringList f)
{
    f.resize(6);
    ConnectionFields s;
    s.kind = kind;
    (kind == Kind::SqliteFile       ? s.file
     : kind == Kind::OdbcDataSource ? s.dataSource
                                    : s.driver) = f[0];
    std::tie(s.server, s.port, s.database, s.user, s.password) =
        std::tie(f[1], f[2], f[3], f[4], f[5]);
    return s;
}

// Cases expect a result, or "!" and part of the refusal message.
bool matches(const QString& result, const QString& expected)
{
    if (expected.startsWith('!'))
        return result.startsWith('!') && result.contains(expected.mid(1));
    return result == expected;
}

} // namespace

class TestConnectionString : public QObject
{
    Q_OBJECT

private slots:
    void parse()
    {
        const QList<QPair<QString, QString>> cases = { // text, "key|value#key|value"
            {"  Provider = MSDASQL.1 ;  Data Source =  Contacts ;",
             "Provider|MSDASQL.1#Data Source|Contacts"},
            {"Driver={PostgreSQL Unicode};Pwd={a;b=c};", "Driver|PostgreSQL Unicode#Pwd|a;b=c"},
            {"Pwd={x}}y}", "Pwd|x}y"}, {"Pwd='it''s'", "Pwd|it's"}, {"Uid=O'Neil", "Uid|O'Neil"},
            {"Data Source=\"/my; f.db\";Provider=SQLite", "Data Source|/my; f.db#Provider|SQLite"},
            {"ConnSettings=SET a=1", "ConnSettings|SET a=1"}, {";;DSN=x;; ;", "DSN|x"},
            {"DSN=x;Pwd=;", "DSN|x#Pwd|"}, {"", ""},
            {"Driver={SQLite3;Database=x", "!never closed"}, {"Data Source=\"abc", "!never closed"},
            {"Pwd='abc;DSN=x", "!never closed"}, {"Driver=SQLite3};DSN=x", "!unbalanced braces"},
            {"Driver={a}b;DSN=x", "!after its closing"}, {"=value;DSN=x", "!without a key"},
            {"DSN=x;garbage", "!\"garbage\""}};
        for (const auto& [text, expected] : cases) {
            QList<QPair<QString, QString>> pairs{{"stale", "entry"}};
            QString message, resolveMessage;
            QStringList result;
            if (ParseConnectionString(text, pairs, message)) {
                for (const auto& [key, value] : pairs)
                    result << key + '|' + value;
            } else {
                result << '!' + message;
                // Resolution refuses it for the same reason.
                ConnectionTarget target;
                QVERIFY(!ResolveConnectionString(text, target, resolveMessage));
                QCOMPARE(resolveMessage, message);
            }
            const QString got = result.join('#');
            QVERIFY2(matches(got, expected), qPrintable(text + " -> " + got));
        }
    }

    void resolve()
    {
        TempFolder folder;
        const QString file = folder.writeFile("my contacts.db", QByteArray());
        const QString absent = folder.filePath("absent.db");
        const QString sqlite = "Provider=SQLite;Data Source=";
        const QList<QPair<QString, QString>> cases = { // text, "<driver> <database name>"
            {"provider=msdasql;data source=Contacts;Uid=ann;Pwd=secret",
             "QODBC DSN=Contacts;Uid=ann;Pwd=secret;"},
            {"Provider=MSDASQL.1;User ID=ann;Password=p w;Data Source=My DSN",
             "QODBC DSN=My DSN;UID=ann;PWD=p w;"},
            {"Provider=MSDASQL.1;Data Source=Contacts;Pwd={x;y}}z}",
             "QODBC DSN=Contacts;Pwd={x;y}}z};"},
            {"Provider=MSDASQL;Driver={SQLite3};Persist Security Info=True;Database=/x y.db;",
             "QODBC Driver={SQLite3};Database=/x y.db;"},
            {"Provider=SQLOLEDB;DSN=Sales", "QODBC DSN=Sales"},
            {"DRIVER=SQLite3;database=/a.db", "QODBC DRIVER=SQLite3;database=/a.db"},
            {sqlite + file, "QSQLITE " + file}, {sqlite + HostForm(file), "QSQLITE " + file},
            {"provider=sqlite;data source={" + file + "}", "QSQLITE " + file},
            {"Data Source=\"" + file + "\";Provider=SQLite;", "QSQLITE " + file},
            {sqlite + absent, "!\"" + absent + "\" does not exist"},
            {sqlite + folder.path(), "!\"" + folder.path() + "\" is not a file"},
            {"Provider=SQLite", "!names no database file"},
            {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=c.mdb",
             "!\"Microsoft.Jet.OLEDB.4.0\" is not supported"},
            {"Provider=MSDASQL.1;Uid=ann", "!Provider=MSDASQL.1 names no ODBC data source"},
            {"Server=x;Database=y", "!names no provider"}, {"", "!names no provider"},
            // The login waits ADO's 15 seconds, or what the string says; the key is ADO's own.
            {"DSN=Sales;Connect Timeout=3", "QODBC DSN=Sales; 3"},
            {"Provider=MSDASQL;Data Source=Sales;connection timeout= 0 ", "QODBC DSN=Sales; 0"},
            {"DSN=Sales;Connect Timeout=soon",
             "!The Connect Timeout \"soon\" is not a whole number of seconds."},
            {"DSN=Sales;Connect Timeout=-1", "!\"-1\" is not a whole number"}};
        for (const auto& [text, expected] : cases) {
            ConnectionTarget target;
            QString message;
            const bool ok = ResolveConnectionString(text, target, message);
            QString result = ok ? target.driver + ' ' + target.databaseName : '!' + message;
            // Every source is opened read-only; an ODBC one with a limit on its login.
            static const QRegularExpression timeout(
                "^SQL_ATTR_ACCESS_MODE=SQL_MODE_READ_ONLY;SQL_ATTR_LOGIN_TIMEOUT=(\\d+)$");
            const auto limit = timeout.match(target.connectOptions);
            if (ok && target.driver == "QSQLITE")
                QCOMPARE(target.connectOptions, "QSQLITE_OPEN_READONLY");
            else if (ok && limit.captured(1) != "15")
                result += ' ' + (limit.hasMatch() ? limit.captured(1) : target.connectOptions);
            QVERIFY2(matches(result, expected), qPrintable(text + " -> " + result));
        }
    }

    // Fields become a string that comes back as the same fields, and a string the builder
    // wrote comes back as itself.
    void fieldsRoundTrip()
    {
        const QList<QPair<ConnectionFields, QString>> cases = {
            {fields(Kind::SqliteFile, {"/data/my contacts.db"}),
             "Provider=SQLite;Data Source=/data/my contacts.db;"},
            {fields(Kind::SqliteFile, {"/d/a;b=c.db"}),
             "Provider=SQLite;Data Source={/d/a;b=c.db};"},
            {fields(Kind::OdbcDataSource, {"Sales", {}, {}, {}, "ann", "s3cret"}),
             "DSN=Sales;UID=ann;PWD=s3cret;"},
            {fields(Kind::OdbcDataSource, {"Sales {EU}", {}, {}, {}, "o'neil", "\"a}b;c=d{"}),
             "DSN={Sales {EU}}};UID=o'neil;PWD={\"a}}b;c=d{};"},
            {fields(Kind::OdbcDriver,
                    {"MariaDB Unicode", "db.example.com", "3306", "crm", "ann", " padded "}),
             "Provider=MSDASQL;Driver={MariaDB Unicode};Server=db.example.com;Port=3306;"
             "Database=crm;UID=ann;PWD={ padded };"},
            {fields(Kind::OdbcDriver, {"PostgreSQL Unicode", "h", {}, "d", "u", "'x'"}),
             "Provider=MSDASQL;Driver={PostgreSQL Unicode};Server=h;Database=d;UID=u;PWD={'x'};"}};
        for (const auto& [given, composed] : cases) {
            QCOMPARE(ComposeConnectionString(given), composed);
            ConnectionFields parsed;
            QString message;
            QVERIFY2(ParseConnectionFields(composed, parsed, message), qPrintable(message));
            QVERIFY(parsed == given);
            QCOMPARE(ComposeConnectionString(parsed), composed);
            ConnectionTarget target;
            QVERIFY2(ResolveConnectionString(composed, target, message) ||
                         message.contains("does not exist"),
                     qPrintable(message));
        }
    }

    // Strings written by hand or by other tools open on the page that can represent them; what
    // no page can represent stays text, exactly as typed.
    void foreignStrings()
    {
        const QList<std::tuple<QString, int, QString>> cases = {
            // text, kind (-1: no), composed
            {"", int(Kind::SqliteFile), "Provider=SQLite;"},
            {"Provider=MSDASQL.1;Persist Security Info=False;User ID=ann;Data Source=Sales",
             int(Kind::OdbcDataSource), "DSN=Sales;UID=ann;"},
            {"dsn=x;pwd={p;w}", int(Kind::OdbcDataSource), "DSN=x;PWD={p;w};"},
            {"Driver={SQLite3};Database=/d/x.db;", int(Kind::OdbcDriver),
             "Provider=MSDASQL;Driver={SQLite3};Database=/d/x.db;"},
            // An extra driver option, a DSN and a driver both, two passwords, another provider.
            {"Driver={MariaDB Unicode};Server=h;Option=3", int(Kind::Raw), ""},
            {"DSN=a;Driver={b}", int(Kind::Raw), ""},
            {"DSN=a;PWD=x;Password=y", int(Kind::Raw), ""},
            {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=c:\\a.mdb", int(Kind::Raw), ""},
            {"DSN={x;PWD=y", -1, "refused"}};
        for (const auto& [text, kind, composed] : cases) {
            ConnectionFields parsed;
            QString message;
            const bool ok = ParseConnectionFields(text, parsed, message);
            // Raw text comes back as typed; a refusal gives a reason.
            QCOMPARE(QString::number(ok ? int(parsed.kind) : -1) + ' ' +
                         (ok                  ? ComposeConnectionString(parsed)
                          : message.isEmpty() ? "no reason"
                                              : "refused"),
                     QString::number(kind) + ' ' + (kind == int(Kind::Raw) ? text : composed));
        }
    }

    void passwordsMasked()
    {
        const QList<QPair<QString, QString>> cases = {
            {"DSN=x;Uid=ann;Pwd=secret;", "DSN=x;Uid=ann;Pwd=•••;"},
            {"Driver={a};PWD={se;cr=et}", "Driver={a};PWD=•••"},
            {"Password = 'x y' ;User ID=u", "Password =•••;User ID=u"},
            {"pwd=a;Password=b;", "pwd=•••;Password=•••;"},
            {"Provider=SQLite;Data Source=/a.db", "Provider=SQLite;Data Source=/a.db"},
            {"OldPwd=a;DSN=x", "OldPwd=a;DSN=x"},                 // only ends in pwd
            {"DSN={x;Pwd=secret;Uid=u", "DSN={x;Pwd=•••;Uid=u"}}; // unparseable, still hidden
        for (const auto& [text, shown] : cases)
            QCOMPARE(MaskPasswords(text), shown);
    }

    void connectionsAreSeparateAndRemoved()
    {
        TempFolder folder;
        const QString a = folder.filePath("a.db"), b = folder.filePath("b.db");
        for (const QString& file : {a, b}) // each holds its own name
            QCOMPARE(BuildSqliteDatabase(file, {"CREATE TABLE T AS SELECT '" + file + "' AS V"}),
                     QString());
        const QStringList before = QSqlDatabase::connectionNames();
        const auto valueOf = [](const SourceConnection& c) {
            QSqlQuery query(c.database());
            return query.exec("SELECT V FROM T") && query.next() ? query.value(0).toString() : "-";
        };

        auto first = std::make_unique<SourceConnection>();
        SourceConnection second;
        QString error;
        QVERIFY2(first->open("Provider=SQLite;Data Source=" + a, error), qPrintable(error));
        QVERIFY2(second.open("Provider=SQLite;Data Source=" + b, error), qPrintable(error));
        QCOMPARE(valueOf(*first) + valueOf(second), a + b);
        first.reset();
        QCOMPARE(valueOf(second), b);
        // Re-opening the same object on another source closes the first one.
        QVERIFY2(second.open("Provider=SQLite;Data Source=" + a, error), qPrintable(error));
        QCOMPARE(valueOf(second), a);
        QCOMPARE(QSqlDatabase::connectionNames().size(), before.size() + 1);
        second.close();
        QVERIFY(!second.isOpen());
        QCOMPARE(QSqlDatabase::connectionNames(), before);
    }

    // One statement that only reads passes; a second statement or a writing word is found
    // however a dialect's quotes and comments could hide it.
    void readOnlyStatements()
    {
        const QList<QPair<QString, QStringList>> cases = {
            // a word of the refusal (empty: passes), statements
            {"",
             {"SELECT email FROM t WHERE note LIKE '%;%'",
              "select * from [Order Lines] WHERE  [Set] = 'a;b';",
              "SELECT \"update\", 'DELETE' -- ; drop\nFROM t /* ; COMMIT */ ; -- done",
              "SELECT updated_at, settled, intotal FROM t", "PRAGMA table_info(People)"}},
            {"second statement",
             {"SELECT email FROM t; COMMIT; DELETE FROM t WHERE id <= 10",
              "select * from t;COMMIT;DELETE/**/FROM/**/t",
              "select * from t WHERE  x = 'x' OR 1=1; COMMIT; DELETE FROM t; --'",
              "SELECT 'a\\'' ; SELECT 2 -- '", "SELECT $$'$$; SELECT 1 --'",
              "SELECT 1 #'\n; SELECT 2 -- '", "SELECT 1 /*! ; SELECT 2 */",
              "SELECT 1 /* /* */ ; SELECT 2 */"}},
            {"would change",
             {"SELECT 1 DELETE FROM t", "WITH d AS (DELETE FROM t RETURNING *) SELECT * FROM d",
              "SELECT * INTO t2 FROM t", "SELECT 1 EXEC('DEL' + 'ETE FROM t')"}}};
        for (const auto& [refusal, statements] : cases) {
            for (const QString& sql : statements) {
                QString message;
                const bool passes = CheckReadOnlyStatement(sql, message);
                QVERIFY2(passes == refusal.isEmpty() && message.contains(refusal),
                         qPrintable(sql + ": " + message));
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestConnectionString)
#include "tst_connectionstring.moc"
