// The Group store on real SQLite files: format, reading, writing, finding, batching.
#include <QtTest>

#include <optional>
#include <set>

#include "import/groupstore.h"
#include "util/apperror.h"

#include "datarow.h"
#include "readonlyfolder.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

namespace {

QString newGroup(const TempFolder& folder, const QString& name = "Test")
{
    const QString path = folder.filePath(name + ".gdb");
    GroupStore::createFile(path, GroupStore::groupFields());
    return path;
}

// Adds a record with these field=value pairs.
void add(GroupStore& store, const QStringList& pairs)
{
    store.addRecord();
    for (const QString& pair : pairs)
        store.setField(pair.section('=', 0, 0), pair.section('=', 1));
}

bool findEmail(GroupStore& store, const QString& email)
{
    store.find("EmailAddress", "=", email);
    return !store.noMatch();
}

} // namespace

class tst_GroupStore : public QObject
{
    Q_OBJECT

private slots:
    void createdFileHasTheGroupFormat()
    {
        TempFolder folder;
        const QString path = newGroup(folder);
        QCOMPARE(SqliteColumn(path,
                              "SELECT group_concat(Name || ',' || Type || ',' || Length, ' ') "
                              "FROM (SELECT * FROM Fields ORDER BY Position)"),
                 QStringList{"Title,0,10 FirstName,0,30 LastName,0,30 EmailAddress,0,100 Initial,0,"
                             "10 Address1,0,30 Address2,0,30 City,0,30 State,0,30 Zip,0,15 "
                             "Country,0,30 Company,0,50 JobTitle,0,50 WEB,0,75 Telephone,0,25 FAX,"
                             "0,25 Field1,0,50 Field2,0,50 Field3,0,50 Field4,0,50 DateAdded,6,0"});
        // Each definition names the TEXT column at its position, and there are no others.
        QCOMPARE(SqliteColumn(path, "SELECT COUNT(*) || COUNT(f.Name) FROM pragma_table_info("
                                    "'Recipients') c LEFT JOIN Fields f ON c.cid = f.Position - 1 "
                                    "AND c.name = f.Name AND c.type = 'TEXT'"),
                 QStringList{"2121"});
        // The e-mail index compares without regard to case, so a find can use it.
        QCOMPARE(SqliteColumn(path, "SELECT sql LIKE '%(EmailAddress COLLATE NOCASE)' FROM "
                                    "sqlite_master WHERE type='index' AND tbl_name='Recipients'"),
                 QStringList{"1"});
    }

    // Nothing but a Group passes the check; creating refuses what exists and what cannot be
    // written, and leaves it as it was.
    void createOnlyWhereNothingIs_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<long>("createError");
        const long exists = 58;
        DataRow("missing", "missing", 0L);
        DataRow("text file", "text", exists);
        DataRow("SQLite without Recipients", "other", exists);
        DataRow("folder", "folder", exists);
        DataRow("no such folder", "missing/G.gdb", long(AppError::PathNotFound));
        DataRow("read-only folder", "ro/G.gdb", long(AppError::PermissionDenied));
    }

    void createOnlyWhereNothingIs()
    {
        QFETCH(QString, kind);
        QFETCH(long, createError);
        TempFolder folder;
        const QString path = folder.filePath(kind.endsWith(".gdb") ? kind : "G.gdb");
        if (kind == "text")
            folder.writeFile("G.gdb", "Title,FirstName\r\nMr,John\r\n");
        else if (kind == "other")
            QCOMPARE(BuildSqliteDatabase(path, {"CREATE TABLE People (Name TEXT)"}), QString());
        else if (kind == "folder")
            QVERIFY(QDir(folder.path()).mkdir("G.gdb"));
        std::optional<ReadOnlyFolder> readOnly;
        if (kind == "ro/G.gdb" && !readOnly.emplace(folder.filePath("ro")).isReadOnly())
            QSKIP("cannot make a folder read-only here");
        QVERIFY(!GroupStore::checkFile(path));
        auto bytes = [&] {
            QFile file(path);
            return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<none>");
        };
        const QByteArray before = bytes();
        try {
            GroupStore::createFile(path, GroupStore::groupFields());
            QCOMPARE(0L, createError);
            QVERIFY(GroupStore::checkFile(path));
        } catch (const AppError& e) {
            QCOMPARE(e.number(), createError);
            QCOMPARE(bytes(), before);
        }
    }

    // Values are held for the current record and written, new records several at a time,
    // when the next add, find, count or close needs them; the destructor closes too.
    void recordsReachTheFile()
    {
        TempFolder folder;
        const QString path = newGroup(folder);
        const QString anne = QString::fromUtf8("ÄNNE@MÜLLER.DE");
        QStringList zips;
        {
            GroupStore store;
            store.open(path);
            for (int i = 0; i < 100; ++i) {
                add(store, {QString("EmailAddress=r%1@x.org").arg(i), QString("Zip=%1").arg(i)});
                zips << QString::number(i);
            }
            // Field names match without regard to case.
            add(store, {"EMAILADDRESS=" + anne, "Web=https://x.org", "fax=+44 1", "DateAdded=1"});
            add(store, {"EmailAddress=ann@example.com "});
            QCOMPARE(store.recordCount(), 102);
            for (int i : {0, 31, 32, 95, 98, 99}) {
                QVERIFY(findEmail(store, QString("R%1@X.ORG").arg(i)));
                QCOMPARE(store.getField("Zip"), QString::number(i));
            }
            store.setField("City", "Leeds");
            QVERIFY(!findEmail(store, QString::fromUtf8("anne@muller.de")));
            QVERIFY(!findEmail(store, "ann@example.com")); // a trailing blank differs
            QVERIFY(findEmail(store, QString::fromUtf8("änne@müller.de")));
            store.setField("City", "York");
            QVERIFY_THROWS_EXCEPTION(AppError, store.setField("FullNameMacro", "x"));
            store.close();
            store.open(path);
            add(store, {"City=Last"});
        }
        QCOMPARE(SqliteColumn(path, "SELECT Zip FROM Recipients WHERE rowid <= 100"), zips);
        // Fields never set stay NULL.
        QCOMPARE(SqliteColumn(
                     path, "SELECT IFNULL(EmailAddress, '') || ':' || IFNULL(City, '-') || ':' || "
                           "IFNULL(DateAdded, '-') || ':' || IFNULL(WEB || FAX, '-') "
                           "FROM Recipients WHERE rowid >= 100 ORDER BY rowid"),
                 QStringList({"r99@x.org:Leeds:-:-", anne + ":York:1:https://x.org+44 1",
                              "ann@example.com :-:-:-", ":Last:-:-"}));
        // Reading in file order, a NULL as empty text, and nothing after the end.
        GroupStore store;
        store.open(path);
        QStringList seen;
        for (store.moveFirst(); !store.atEnd(); store.moveNext())
            seen << store.getField("EmailAddress");
        QCOMPARE(seen, SqliteColumn(
                           path, "SELECT IFNULL(EmailAddress, '') FROM Recipients ORDER BY rowid"));
        QVERIFY_THROWS_EXCEPTION(AppError, store.getField("EmailAddress"));
    }

    // Cut to the field's length in characters, a pair of UTF-16 units (outside the BMP) being
    // one character that is never split; the date has no limit. Written in batches of three,
    // each committed at once: a killed import keeps every full batch.
    void overLongValuesAreCutAndBatched()
    {
        const QString clef = QString::fromUtf8("\xF0\x9D\x84\x9E");
        const QList<QStringList> cases = {
            {"Zip", "123456789012345", "123456789012345"},
            {"Zip", "1234567890123456789", "123456789012345"},
            {"EmailAddress", QString(120, 'e'), QString(100, 'e')},
            {"Title", QString::fromUtf8("ÄÖÜäöüßÉÈÊX"), QString::fromUtf8("ÄÖÜäöüßÉÈÊ")},
            {"Title", clef.repeated(12), clef.repeated(10)},
            {"DateAdded", QString(60, 'd'), QString(60, 'd')},
            {"City", "", ""}};
        TempFolder folder;
        const QString path = newGroup(folder);
        GroupStore store;
        store.open(path);
        store.setBatchLimits(3, 0);
        QStringList stored;
        for (const QStringList& c : cases) {
            add(store, {c[0] + '=' + c[1]});
            QCOMPARE(store.getField(c[0]), c[2]);
            // The same value handed over as UTF-8 is cut alike.
            std::string utf8 = c[1].toStdString();
            store.setFieldUtf8(store.fieldIndex(c[0]), utf8);
            QCOMPARE(store.getField(c[0]), c[2]);
            stored << c[2];
        }
        // Seven records set: six written in two full batches, the seventh still current.
        QCOMPARE(SqliteColumn(path, "SELECT COUNT(*) FROM Recipients"), QStringList{"6"});
        store.close();
        QCOMPARE(SqliteColumn(path, "SELECT COALESCE(Zip, EmailAddress, Title, DateAdded, City) "
                                    "FROM Recipients ORDER BY rowid"),
                 stored);
    }

    // A big Group is scanned by two threads: every record once, with its text and the digest
    // a record read on its own has; NULL and empty text differ.
    void bigScanSeesEveryRecordOnce()
    {
        TempFolder folder;
        const QString path = newGroup(folder);
        const int rows = 120000;
        QCOMPARE(BuildSqliteDatabase(
                     path, {QString("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 "
                                    "FROM n WHERE i < %1) INSERT INTO Recipients (EmailAddress, "
                                    "City, Zip) SELECT CASE i % 1000 WHEN 7 THEN NULL ELSE 'p' "
                                    "|| i || '@x.org' END, CASE i % 3 WHEN 0 THEN NULL WHEN 1 "
                                    "THEN '' ELSE 'C' || i END, i FROM n")
                                .arg(rows)}),
                 QString());
        GroupStore store;
        store.open(path);
        const int email = store.fieldIndex("EmailAddress");
        store.setDigestFields({store.fieldIndex("City"), email});
        std::vector<quint64> digests(rows + 1, 0);
        qint64 seen = 0, nulls = 0, wrongText = 0;
        store.scan(email, [&](qint64 rowid, const char* text, int size, quint64 digest) {
            ++seen;
            nulls += text == nullptr;
            if (text && QByteArray(text, size) != "p" + QByteArray::number(rowid) + "@x.org")
                ++wrongText;
            digests[size_t(rowid)] = digest;
        });
        QCOMPARE(seen, qint64(rows));
        QCOMPARE(nulls, qint64(rows / 1000));
        QCOMPARE(wrongText, qint64(0));
        // Equal only where the values are: the records without an address and with a NULL
        // City share one digest, those with an empty City another.
        QCOMPARE(std::set<quint64>(digests.begin() + 1, digests.end()).size(),
                 size_t(rows - 2 * (rows / 1000 / 3 - 1)));
        for (int rowid : {1, 2, 3, 7, rows / 2, rows / 2 + 1, rows - 1, rows}) {
            QVERIFY(store.moveToRowid(rowid));
            QCOMPARE(store.currentDigest(), digests[size_t(rowid)]);
        }
    }
};

QTEST_GUILESS_MAIN(tst_GroupStore)
#include "tst_groupstore.moc"
