#include "datasource/connectionfields.h"
#include "datasource/connectionstring.h"

#include "datarow.h"

#include <QTest>

using Kind = ConnectionFields::Kind;

namespace {

ConnectionFields fields(Kind kind, QStringList fields)
{
    // kind-specific fields in the order: file|dataSource|driver, server, port, database,
    // user, password
    fields.resize(6);
    ConnectionFields s;
    s.kind = kind;
    (kind == Kind::SqliteFile       ? s.file
     : kind == Kind::OdbcDataSource ? s.dataSource
                                    : s.driver) = fields.at(0);
    s.server = fields.at(1);
    s.port = fields.at(2);
    s.database = fields.at(3);
    s.user = fields.at(4);
    s.password = fields.at(5);
    return s;
}

} // namespace

class tst_ConnectionFields : public QObject
{
    Q_OBJECT

private slots:
    void fieldsRoundTrip_data();
    void fieldsRoundTrip();
    void foreignStrings_data();
    void foreignStrings();
    void passwordsMasked_data();
    void passwordsMasked();
};

void tst_ConnectionFields::fieldsRoundTrip_data()
{
    QTest::addColumn<ConnectionFields>("fields");
    QTest::addColumn<QString>("composed");
    DataRow("sqlite file", fields(Kind::SqliteFile, {"/data/my contacts.db"}),
            "Provider=SQLite;Data Source=/data/my contacts.db;");
    DataRow("sqlite file with ; and =", fields(Kind::SqliteFile, {"/d/a;b=c.db"}),
            "Provider=SQLite;Data Source={/d/a;b=c.db};");
    DataRow("data source name",
            fields(Kind::OdbcDataSource, {"Sales", {}, {}, {}, "ann", "s3cret"}),
            "DSN=Sales;UID=ann;PWD=s3cret;");
    DataRow("data source, password with braces and quotes",
            fields(Kind::OdbcDataSource, {"Sales {EU}", {}, {}, {}, "o'neil", "\"a}b;c=d{"}),
            "DSN={Sales {EU}}};UID=o'neil;PWD={\"a}}b;c=d{};");
    DataRow("driver, every field",
            fields(Kind::OdbcDriver,
                   {"MariaDB Unicode", "db.example.com", "3306", "crm", "ann", " padded "}),
            "Provider=MSDASQL;Driver={MariaDB Unicode};Server=db.example.com;Port=3306;"
            "Database=crm;UID=ann;PWD={ padded };");
    DataRow("driver, password starting with a quote",
            fields(Kind::OdbcDriver, {"PostgreSQL Unicode", "h", {}, "d", "u", "'x'"}),
            "Provider=MSDASQL;Driver={PostgreSQL Unicode};Server=h;Database=d;UID=u;PWD={'x'};");
}

// Fields become a string that comes back as the same fields, and a string the builder
// wrote comes back as itself.
void tst_ConnectionFields::fieldsRoundTrip()
{
    QFETCH(ConnectionFields, fields);
    QFETCH(QString, composed);
    QCOMPARE(ComposeConnectionString(fields), composed);
    ConnectionFields parsed;
    QString message;
    QVERIFY2(ParseConnectionFields(composed, parsed, message), qPrintable(message));
    QVERIFY(parsed == fields);
    QCOMPARE(ComposeConnectionString(parsed), composed);
    ConnectionTarget target;
    QVERIFY2(ResolveConnectionString(composed, target, message) ||
                 message.contains("does not exist"),
             qPrintable(message));
}

void tst_ConnectionFields::foreignStrings_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("kind"); // -1: cannot be parsed at all
    QTest::addColumn<QString>("composed");
    DataRow("empty opens a new sqlite fields", "", int(Kind::SqliteFile), "Provider=SQLite;");
    DataRow("data-link form of a DSN",
            "Provider=MSDASQL.1;Persist Security Info=False;User ID=ann;Data Source=Sales",
            int(Kind::OdbcDataSource), "DSN=Sales;UID=ann;");
    DataRow("lower-case keys", "dsn=x;pwd={p;w}", int(Kind::OdbcDataSource), "DSN=x;PWD={p;w};");
    DataRow("plain driver string", "Driver={SQLite3};Database=/d/x.db;", int(Kind::OdbcDriver),
            "Provider=MSDASQL;Driver={SQLite3};Database=/d/x.db;");
    DataRow("extra driver option", "Driver={MariaDB Unicode};Server=h;Option=3", int(Kind::Raw),
            "Driver={MariaDB Unicode};Server=h;Option=3");
    DataRow("DSN and driver both", "DSN=a;Driver={b}", int(Kind::Raw), "DSN=a;Driver={b}");
    DataRow("two passwords", "DSN=a;PWD=x;Password=y", int(Kind::Raw), "DSN=a;PWD=x;Password=y");
    DataRow("other provider", "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=c:\\a.mdb",
            int(Kind::Raw), "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=c:\\a.mdb");
    DataRow("unbalanced braces", "DSN={x;PWD=y", -1, "");
}

// Strings written by hand or by other tools open on the page that can represent them; what
// no page can represent stays text, exactly as typed.
void tst_ConnectionFields::foreignStrings()
{
    QFETCH(QString, text);
    QFETCH(int, kind);
    QFETCH(QString, composed);
    ConnectionFields parsed;
    QString message;
    QCOMPARE(ParseConnectionFields(text, parsed, message), kind >= 0);
    if (kind < 0) {
        QVERIFY(!message.isEmpty());
        return;
    }
    QCOMPARE(int(parsed.kind), kind);
    QCOMPARE(ComposeConnectionString(parsed), composed);
}

void tst_ConnectionFields::passwordsMasked_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    DataRow("plain", "DSN=x;Uid=ann;Pwd=secret;", "DSN=x;Uid=ann;Pwd=•••;");
    DataRow("braced with ; inside, last entry", "Driver={a};PWD={se;cr=et}", "Driver={a};PWD=•••");
    DataRow("data-link spelling and blanks", "Password = 'x y' ;User ID=u",
            "Password =•••;User ID=u");
    DataRow("two of them", "pwd=a;Password=b;", "pwd=•••;Password=•••;");
    DataRow("no password", "Provider=SQLite;Data Source=/a.db",
            "Provider=SQLite;Data Source=/a.db");
    DataRow("key that only ends in pwd", "OldPwd=a;DSN=x", "OldPwd=a;DSN=x");
    DataRow("unparseable still hidden", "DSN={x;Pwd=secret;Uid=u", "DSN={x;Pwd=•••;Uid=u");
}

void tst_ConnectionFields::passwordsMasked()
{
    QFETCH(QString, text);
    QFETCH(QString, shown);
    QCOMPARE(MaskPasswords(text), shown);
}

QTEST_GUILESS_MAIN(tst_ConnectionFields)
#include "tst_connectionfields.moc"
