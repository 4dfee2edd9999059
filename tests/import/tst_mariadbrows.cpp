// The streamed MariaDB read against the ODBC driver's, value by value, on a real server.
#include <QtTest>

#include "datasource/sourceconnection.h"
#include "import/mariadbrows.h"
#include "import/sourcerows.h"

#include "datarow.h"
#include "odbcenvironment.h"
#include "testsource.h"

namespace {

// Every row's text and UTF-8 of column v from the rows, "<failure>" when reading fails.
QStringList values(SourceRows& rows)
{
    QStringList out;
    const int v = rows.indexOf("V");
    try {
        while (rows.next()) {
            std::string utf8;
            rows.utf8(v, utf8);
            out << rows.text(v) + "|" + QString::fromStdString(utf8);
        }
    } catch (const SourceFailure& e) {
        out << "<failure> " + e.text;
    }
    return out;
}

} // namespace

class TestMariaDbRows : public QObject
{
    Q_OBJECT

    OdbcEnvironment m_odbc;

private slots:
    // A zone whose clocks change, where Qt's ODBC plugin has times that do not exist.
    void initTestCase() { qputenv("TZ", "Europe/Berlin"); }

    // Each type a contact table may hold, with the values whose text is easiest to get wrong:
    // the route must give what the driver gives, or the same import differs with its size.
    void matchesTheDriver()
    {
        const QList<QPair<QString, QString>> cases = {
            // type, an INSERT's VALUES list
            {"INT", "(-2147483648), (0), (2147483647), (NULL)"},
            {"INT(5) ZEROFILL", "(42), (0)"},
            {"BIGINT", "(-9223372036854775808), (9223372036854775807)"},
            {"BIGINT UNSIGNED", "(18446744073709551615), (0)"},
            {"TINYINT", "(-128), (-5), (0), (127)"},
            {"TINYINT UNSIGNED", "(255)"},
            {"BOOLEAN", "(TRUE), (FALSE), (NULL)"},
            {"YEAR", "(2024), (1901), (0)"},
            {"DECIMAL(30,10)", "(12345678901234567890.0123456789), (-0.0001), (0.1)"},
            {"DOUBLE", "(0.1), (1e300), (-0.0), (2.2250738585072014e-308), (123456789012345678)"},
            {"FLOAT",
             "(1.23456789), (3.4e38), (-1.5e-10), (16777217), (100000000), (0), (-12.5), "
             "(1.5e-5), (99999.9), (12345678), (-0.123456789), (-1.17549e-38), (-123456.7)"},
            {"FLOAT(7,2)", "(1.5), (-12345.67)"},
            {"DATE", "('2024-02-29'), ('0099-12-31'), ('0000-00-00'), ('0000-01-01')"},
            {"DATETIME(6)", "('2024-01-01 00:00:00'), ('2024-01-01 00:00:00.5'), ('1999-12-31 "
                            "23:59:59.999999'), ('0000-00-00 00:00:00'), ('0099-01-01 10:00:00'), "
                            "('2024-03-31 02:30:00'), ('2024-10-27 02:30:00.001')"},
            {"TIMESTAMP NULL", "('2024-02-29 10:11:12'), (NULL)"},
            {"TIME(2)",
             "('13:45:10.25'), ('-01:00:00'), ('838:59:59'), ('00:00:00'), ('25:00:00')"},
            {"BIT(1)", "(b'1'), (b'0')"},
            {"BIT(10)", "(b'1000000001'), (0), (5)"},
            {"VARCHAR(20)", "('Zoë 😀'), ('tab\\there'), (''), ('a\\0b'), ('ab\\0'), ('\\\\')"},
            {"CHAR(5) CHARACTER SET latin1", "('ab   '), ('é')"},
            {"MEDIUMTEXT", "(REPEAT('aé😀', 3000)), ('x'), (REPEAT('b', 300))"},
            {"BLOB", "('héllo'), (x'00ff'), (''), (REPEAT(x'ff', 400))"},
            {"VARBINARY(10)", "('x\\0y'), (x'ff')"},
            {"ENUM('a','b')", "('b'), (''), (NULL)"},
            {"SET('x','y')", "('x,y'), ('')"},
            {"JSON", "('{\"a\":1}')"}};
        QStringList statements;
        for (qsizetype i = 0; i < cases.size(); ++i)
            statements << QString("CREATE TABLE t%1 (id int AUTO_INCREMENT PRIMARY KEY, v %2) "
                                  "CHARACTER SET utf8mb4")
                              .arg(i)
                              .arg(cases[i].first)
                       << QString("INSERT INTO t%1 (v) VALUES %2").arg(i).arg(cases[i].second);
        OPEN_TEST_SOURCE(source, "mariadb", statements);
        SourceConnection connection;
        QString error;
        QVERIFY2(connection.open(source.conString, error), qPrintable(error));
        QVERIFY(connection.serverReadOnly()); // what lets the engine count and take this route
        for (qsizetype i = 0; i < cases.size(); ++i) {
            const QString sql = QString("SELECT v FROM t%1 ORDER BY id").arg(i);
            const std::unique_ptr<SourceRows> driver = SourceRows::open(connection.database(), sql);
            const std::unique_ptr<SourceRows> streamed = MariaDbRows::open(source.conString, sql);
            QVERIFY(streamed && streamed->movable());
            const QStringList expected = values(*driver);
            QCOMPARE(cases[i].first + ": " + values(*streamed).join('\n'),
                     cases[i].first + ": " + expected.join('\n'));
            QCOMPARE(expected.size(), cases[i].second.count("), (") + 1);
        }
    }

    // Whatever the route cannot be sure to read as the driver does goes to the driver.
    void takesOnlyWhatItKnows()
    {
        OPEN_TEST_SOURCE(source, "mariadb",
                         QStringList({"CREATE TABLE t (email text, place POINT)",
                                      "INSERT INTO t VALUES ('a@x.org', POINT(1, 2))"}));
        const QString plain = "SELECT email AS v FROM t";
        const QList<std::tuple<QString, QString, QString, bool>> cases = {
            // data source "key=value" pairs (empty: a driver string), added to the string, sql
            {"", "", plain, true},
            {"Description=x", "", plain, true},
            {"Option=3", "", plain, false}, // an option mask
            {"", "InitStmt={SET @a = 1}", plain, false},
            {"", "", "SELECT {fn UCASE(email)} FROM t", false},
            {"", "", "SELECT email FROM t WHERE email = ?", false},
            {"", "", "SELECT email, place FROM t", false}, // geometry
            {"", "", "DO 1", false}};                      // no columns
        for (const auto& [dsnOptions, extra, sql, taken] : cases) {
            QString conString = source.conString + extra;
            if (!dsnOptions.isEmpty()) {
                QList<QPair<QString, QString>> attributes;
                for (const QString& pair : (source.conString + dsnOptions).split(';')) {
                    const QString key = pair.section('=', 0, 0);
                    if (key != "Provider" && key != "Driver" && !pair.isEmpty())
                        attributes.append({key, pair.section('=', 1).remove('{').remove('}')});
                }
                m_odbc.addDsn("maria" + dsnOptions.section('=', 0, 0), "MariaDB Unicode",
                              attributes);
                conString = "DSN=maria" + dsnOptions.section('=', 0, 0);
            }
            const std::unique_ptr<SourceRows> rows = MariaDbRows::open(conString, sql);
            QCOMPARE(sql + extra + dsnOptions + (rows ? " taken" : " left"),
                     sql + extra + dsnOptions + (taken ? " taken" : " left"));
            if (rows)
                QCOMPARE(values(*rows), QStringList{"a@x.org|a@x.org"});
        }
    }

    // The route runs the statement as given, so the server itself must refuse whatever in it
    // would change the source.
    void neverChangesTheSource()
    {
        OPEN_TEST_SOURCE(
            source, "mariadb",
            QStringList({"CREATE TABLE t (email text)",
                         "INSERT INTO t VALUES ('a@x.org'), ('b@x.org')",
                         "CREATE TABLE calls (n int) ENGINE=MyISAM", "CREATE SEQUENCE s",
                         "CREATE FUNCTION grab() RETURNS int MODIFIES SQL DATA BEGIN "
                         "INSERT INTO calls VALUES (1); RETURN 1; END"}));
        const QString state = "SELECT CONCAT(COUNT(*), ',', (SELECT COUNT(*) FROM calls), ',', "
                              "(SELECT next_not_cached_value FROM s)) FROM t";
        for (const QString sql :
             {"DELETE FROM t RETURNING email",
              "INSERT INTO t (email) VALUES ('x@y.org') RETURNING email",
              "SELECT email, grab() FROM t", "SELECT email FROM t; DELETE FROM t",
              "SELECT email, NEXTVAL(s) FROM t"}) {
            if (const std::unique_ptr<SourceRows> rows = MariaDbRows::open(source.conString, sql))
                values(*rows);
            QCOMPARE(sql + " -> " + source.column(state).join(""), sql + " -> 2,0,1");
        }
    }
};

QTEST_GUILESS_MAIN(TestMariaDbRows)
#include "tst_mariadbrows.moc"
