#include "datasource/sourceconnection.h"

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
};

QTEST_GUILESS_MAIN(TestSourceConnection)
#include "tst_sourceconnection.moc"
