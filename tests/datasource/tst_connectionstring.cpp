#include "datasource/connectionstring.h"

#include "tempfolder.h"

#include <QTest>

using Pairs = QList<QPair<QString, QString>>;

static QString flat(const Pairs& pairs)
{
    QStringList parts;
    for (const auto& p : pairs)
        parts << p.first + QLatin1Char('|') + p.second;
    return parts.join(QLatin1Char('#'));
}

class TestConnectionString : public QObject
{
    Q_OBJECT

private slots:
    void parse_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected"); // key|value pairs joined by '#'

        QTest::newRow("plain") << "Provider=SQLite;Data Source=/tmp/a.db"
                               << "Provider|SQLite#Data Source|/tmp/a.db";
        QTest::newRow("blanks around keys and values")
            << "  Provider = MSDASQL.1 ;  Data Source =  Contacts ;"
            << "Provider|MSDASQL.1#Data Source|Contacts";
        QTest::newRow("braces keep separators") << "Driver={PostgreSQL Unicode};Pwd={a;b=c};"
                                                << "Driver|PostgreSQL Unicode#Pwd|a;b=c";
        QTest::newRow("doubled closing brace") << "Pwd={x}}y}" << "Pwd|x}y";
        QTest::newRow("double quotes") << "Data Source=\"/tmp/my; file.db\";Provider=SQLite"
                                       << "Data Source|/tmp/my; file.db#Provider|SQLite";
        QTest::newRow("single quotes with doubled quote") << "Pwd='it''s'" << "Pwd|it's";
        QTest::newRow("quote inside an unquoted value") << "Uid=O'Neil" << "Uid|O'Neil";
        QTest::newRow("equals inside a value") << "ConnSettings=SET a=1" << "ConnSettings|SET a=1";
        QTest::newRow("empty entries skipped") << ";;DSN=x;; ;" << "DSN|x";
        QTest::newRow("empty value") << "DSN=x;Pwd=;" << "DSN|x#Pwd|";
        QTest::newRow("empty string") << "" << "";
    }

    void parse()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        Pairs pairs{{"stale", "entry"}};
        QString message;
        QVERIFY2(ParseConnectionString(text, pairs, message), qPrintable(message));
        QCOMPARE(flat(pairs), expected);
    }

    void refuses_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("messagePart");
        QTest::addColumn<bool>("parses");

        QTest::newRow("open brace") << "Driver={SQLite3;Database=x" << "never closed" << false;
        QTest::newRow("open double quote") << "Data Source=\"abc" << "never closed" << false;
        QTest::newRow("open single quote") << "Pwd='abc;DSN=x" << "never closed" << false;
        QTest::newRow("stray closing brace") << "Driver=SQLite3};DSN=x" << "unbalanced braces" << false;
        QTest::newRow("text after closing brace") << "Driver={a}b;DSN=x" << "after its closing" << false;
        QTest::newRow("no key") << "=value;DSN=x" << "without a key" << false;
        QTest::newRow("no equals sign") << "DSN=x;garbage" << "\"garbage\"" << false;
        QTest::newRow("unknown provider") << "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=c.mdb"
                                          << "\"Microsoft.Jet.OLEDB.4.0\"" << true;
        QTest::newRow("MSDASQL without a data source") << "Provider=MSDASQL.1;Uid=ann" << "MSDASQL.1" << true;
        QTest::newRow("no provider at all") << "Server=x;Database=y" << "names no provider" << true;
        QTest::newRow("empty") << "" << "names no provider" << true;
    }

    void refuses()
    {
        QFETCH(QString, text);
        QFETCH(QString, messagePart);
        QFETCH(bool, parses);
        Pairs pairs;
        QString parseMessage, message;
        QCOMPARE(ParseConnectionString(text, pairs, parseMessage), parses);
        ConnectionTarget target;
        QVERIFY(!ResolveConnectionString(text, target, message));
        QVERIFY2(message.contains(messagePart), qPrintable(message));
        // Resolution refuses a string that does not parse with the same reason.
        if (!parses)
            QCOMPARE(message, parseMessage);
    }

    void resolveOdbc_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("odbc");

        QTest::newRow("MSDASQL with version")
            << "Provider=MSDASQL.1;Persist Security Info=False;Data Source=DBase"
            << "DSN=DBase;";
        QTest::newRow("MSDASQL without version, any case")
            << "provider=msdasql;data source=Contacts;Uid=ann;Pwd=secret"
            << "DSN=Contacts;Uid=ann;Pwd=secret;";
        QTest::newRow("MSDASQL passes other keys, ADO spellings translated")
            << "Provider=MSDASQL.1;User ID=ann;Password=p w;Data Source=My DSN"
            << "DSN=My DSN;UID=ann;PWD=p w;";
        QTest::newRow("MSDASQL braces put back where needed")
            << "Provider=MSDASQL.1;Data Source=Contacts;Pwd={x;y}}z}"
            << "DSN=Contacts;Pwd={x;y}}z};";
        QTest::newRow("DSN string as given") << "DSN=Contacts;UID=ann;PWD={p;w};"
                                             << "DSN=Contacts;UID=ann;PWD={p;w};";
        const QString pg = "Driver={PostgreSQL Unicode};Server=127.0.0.1;Port=5432;Database=crm;Uid=ann;";
        QTest::newRow("driver string as given") << pg << pg;
        QTest::newRow("ADO-only keys taken out, rest untouched")
            << "Provider=MSDASQL;Driver={SQLite3};Persist Security Info=True;Database=/x y.db;"
            << "Driver={SQLite3};Database=/x y.db;";
        QTest::newRow("other provider with a driver") << "Provider=SQLOLEDB;DSN=Sales" << "DSN=Sales";
        QTest::newRow("driver key in another case") << "DRIVER=SQLite3;database=/a.db"
                                                    << "DRIVER=SQLite3;database=/a.db";
    }

    void resolveOdbc()
    {
        QFETCH(QString, text);
        QFETCH(QString, odbc);
        ConnectionTarget target;
        QString message;
        QVERIFY2(ResolveConnectionString(text, target, message), qPrintable(message));
        QCOMPARE(target.driver, QString("QODBC"));
        QCOMPARE(target.databaseName, odbc);
    }

    void resolveSqliteFile()
    {
        TempFolder folder;
        const QString file = folder.writeFile("my contacts.db", QByteArray());
        const QStringList texts = {
            "Provider=SQLite;Data Source=" + file, "provider=sqlite;data source={" + file + "}",
            "Data Source=\"" + file + "\";Provider=SQLite;",
            "Provider=SQLite;Data Source=" + HostForm(file), // the host's Windows form
        };
        for (const QString& text : texts) {
            ConnectionTarget target;
            QString message;
            QVERIFY2(ResolveConnectionString(text, target, message), qPrintable(text + message));
            QCOMPARE(target.driver, QString("QSQLITE"));
            QCOMPARE(target.databaseName, file);
            QCOMPARE(target.connectOptions, QString("QSQLITE_OPEN_READONLY"));
        }
    }

    void resolveSqliteRefuses_data()
    {
        QTest::addColumn<QString>("name"); // relative to a fresh folder; empty = no Data Source
        QTest::addColumn<QString>("messagePart");

        QTest::newRow("missing file") << "absent.db" << "does not exist";
        QTest::newRow("folder") << "sub" << "is not a file";
        QTest::newRow("no data source") << "" << "names no database file";
    }

    void resolveSqliteRefuses()
    {
        QFETCH(QString, name);
        QFETCH(QString, messagePart);
        TempFolder folder;
        folder.writeFile("sub/keep", "x");
        const QString file = folder.filePath(name);
        const QString text =
            name.isEmpty() ? QString("Provider=SQLite") : "Provider=SQLite;Data Source=" + file;
        ConnectionTarget target;
        QString message;
        QVERIFY(!ResolveConnectionString(text, target, message));
        QVERIFY2(message.contains(messagePart), qPrintable(message));
        if (!name.isEmpty())
            QVERIFY2(message.contains(file), qPrintable(message));
        // Never created on the way.
        if (name == "absent.db")
            QVERIFY(!QFile::exists(file));
    }

    void qtOdbcDatabaseName_data()
    {
        QTest::addColumn<QString>("odbc");
        QTest::addColumn<QString>("forQt"); // Qt's ODBC driver adds "DSN=" in front of this

        QTest::newRow("driver string kept") << "Driver={SQLite3};Database=/a.db;"
                                            << "Driver={SQLite3};Database=/a.db;";
        QTest::newRow("server string kept") << "Server=db1;DSN=x" << "Server=db1;DSN=x";
        QTest::newRow("lone DSN") << "DSN=Contacts;" << "Contacts;";
        QTest::newRow("DSN not first") << "UID=ann;DSN=Contacts;PWD={a;b}" << "Contacts;UID=ann;PWD={a;b};";
        QTest::newRow("driver key with blanks") << "Driver = SQLite3 ;Database=/a.db"
                                                << "Driver=SQLite3;Database=/a.db;";
    }

    void qtOdbcDatabaseName()
    {
        QFETCH(QString, odbc);
        QFETCH(QString, forQt);
        QCOMPARE(QtOdbcDatabaseName(odbc), forQt);
    }
};

QTEST_GUILESS_MAIN(TestConnectionString)
#include "tst_connectionstring.moc"
