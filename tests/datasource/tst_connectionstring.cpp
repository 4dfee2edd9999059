#include "datasource/connectionstring.h"

#include "tempfolder.h"

#include <QTest>

// Cases expect a result, or "!" and part of the refusal message.
static bool matches(const QString& result, const QString& expected)
{
    if (expected.startsWith('!'))
        return result.startsWith('!') && result.contains(expected.mid(1));
    return result == expected;
}

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
            {"Server=x;Database=y", "!names no provider"}, {"", "!names no provider"}};
        for (const auto& [text, expected] : cases) {
            ConnectionTarget target;
            QString message;
            const bool ok = ResolveConnectionString(text, target, message);
            const QString result = ok ? target.driver + ' ' + target.databaseName : '!' + message;
            QVERIFY2(matches(result, expected), qPrintable(text + " -> " + result));
            // Every source is opened read-only.
            if (ok)
                QCOMPARE(target.connectOptions, target.driver == "QSQLITE"
                                                    ? "QSQLITE_OPEN_READONLY"
                                                    : "SQL_ATTR_ACCESS_MODE=SQL_MODE_READ_ONLY");
        }
    }

    // Qt's ODBC driver puts "DSN=" in front of a name that holds neither DRIVER= nor SERVER=.
    void qtOdbcDatabaseName()
    {
        QCOMPARE(QtOdbcDatabaseName("Server=db1;DSN=x"), "Server=db1;DSN=x");
        QCOMPARE(QtOdbcDatabaseName("UID=ann;DSN=Crm;PWD={a;b}"), "Crm;UID=ann;PWD={a;b};");
        QCOMPARE(QtOdbcDatabaseName("Driver = SQLite3 ;Database=a"), "Driver=SQLite3;Database=a;");
    }
};

QTEST_GUILESS_MAIN(TestConnectionString)
#include "tst_connectionstring.moc"
