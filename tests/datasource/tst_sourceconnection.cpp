#include "datasource/readonlyguard.h"
#include "datasource/sourceconnection.h"

#include "datarow.h"

#include "sqlitefixture.h"
#include "tempfolder.h"

#include <QSqlQuery>
#include <QTest>

#include <memory>

// That nothing written through a connection stays is checked on every kind of source
// through the modADO helpers.
class TestSourceConnection : public QObject
{
    Q_OBJECT

private slots:
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
    void readOnlyStatements_data()
    {
        QTest::addColumn<QString>("sql");
        QTest::addColumn<QString>("refusal"); // a word of the message; empty: passes
        const QString second = "second statement", change = "would change";
        DataRow("plain", "SELECT email FROM t WHERE note LIKE '%;%'", "");
        DataRow("brackets and a closing ';'", "select * from [Order Lines] WHERE  [Set] = 'a;b';",
                "");
        DataRow("words in quotes, names, comments", "SELECT \"update\", 'DELETE' -- ; drop\n"
                                                    "FROM t /* ; COMMIT */ ; -- done",
                "");
        DataRow("words inside names", "SELECT updated_at, settled, intotal FROM t", "");
        DataRow("pragma", "PRAGMA table_info(People)", "");
        DataRow("after COMMIT", "SELECT email FROM t; COMMIT; DELETE FROM t WHERE id <= 10",
                second);
        DataRow("table name", "select * from t;COMMIT;DELETE/**/FROM/**/t", second);
        DataRow("rule value", "select * from t WHERE  x = 'x' OR 1=1; COMMIT; DELETE FROM t; --'",
                second);
        DataRow("backslash-escaped quote", "SELECT 'a\\'' ; SELECT 2 -- '", second);
        DataRow("dollar quote", "SELECT $$'$$; SELECT 1 --'", second);
        DataRow("hash comment", "SELECT 1 #'\n; SELECT 2 -- '", second);
        DataRow("executable comment", "SELECT 1 /*! ; SELECT 2 */", second);
        DataRow("nested comment", "SELECT 1 /* /* */ ; SELECT 2 */", second);
        DataRow("batch without ';'", "SELECT 1 DELETE FROM t", change);
        DataRow("writing CTE", "WITH d AS (DELETE FROM t RETURNING *) SELECT * FROM d", change);
        DataRow("select into", "SELECT * INTO copy FROM t", change);
        DataRow("procedure", "SELECT 1 EXEC('DEL' + 'ETE FROM t')", change);
    }

    void readOnlyStatements()
    {
        QFETCH(QString, sql);
        QFETCH(QString, refusal);
        QString message;
        QCOMPARE(CheckReadOnlyStatement(sql, message), refusal.isEmpty());
        QVERIFY2(message.contains(refusal), qPrintable(message));
    }
};

QTEST_GUILESS_MAIN(TestSourceConnection)
#include "tst_sourceconnection.moc"
