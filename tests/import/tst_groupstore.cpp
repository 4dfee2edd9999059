// Groups on real files: the store's format, reading, writing, finding and batching; listing
// and creating Groups in a data folder; the duplicate check list; the log file routines.
#include <QtTest>

#include <csignal>
#include <optional>
#include <set>

#include <sys/resource.h>

#include "import/duplicatelist.h"
#include "import/groups.h"
#include "import/groupstore.h"
#include "import/importlog.h"
#include "util/appglobals.h"
#include "util/apperror.h"
#include "util/scriptedmessageboxes.h"

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
    void init()
    {
        m_folder = std::make_unique<TempFolder>();
        SetHostDataFolder(m_folder->hostPath());
        m_boxes.clear();
        m_guard.emplace(&m_boxes);
    }

    void cleanup()
    {
        QVERIFY2(m_boxes.shown().isEmpty(), qPrintable(m_boxes.texts().join('|')));
        m_guard.reset();
    }

    void createdFileHasTheGroupFormat()
    {
        const QString path = newGroup(*m_folder);
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
        const QString path = m_folder->filePath(kind.endsWith(".gdb") ? kind : "G.gdb");
        if (kind == "text")
            m_folder->writeFile("G.gdb", "Title,FirstName\r\nMr,John\r\n");
        else if (kind == "other")
            QCOMPARE(BuildSqliteDatabase(path, {"CREATE TABLE People (Name TEXT)"}), QString());
        else if (kind == "folder")
            QVERIFY(QDir(m_folder->path()).mkdir("G.gdb"));
        std::optional<ReadOnlyFolder> readOnly;
        if (kind == "ro/G.gdb" && !readOnly.emplace(m_folder->filePath("ro")).isReadOnly())
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
        const QString path = newGroup(*m_folder);
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
        const QString path = newGroup(*m_folder);
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
        const QString path = newGroup(*m_folder);
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
        QCOMPARE(QString("%1 seen, %2 NULL, %3 wrong").arg(seen).arg(nulls).arg(wrongText),
                 QString("%1 seen, %2 NULL, 0 wrong").arg(rows).arg(rows / 1000));
        // Equal only where the values are: the records without an address and with a NULL
        // City share one digest, those with an empty City another.
        QCOMPARE(std::set<quint64>(digests.begin() + 1, digests.end()).size(),
                 size_t(rows - 2 * (rows / 1000 / 3 - 1)));
        for (int rowid : {1, 2, 3, 7, rows / 2, rows / 2 + 1, rows - 1, rows}) {
            QVERIFY(store.moveToRowid(rowid));
            QCOMPARE(store.currentDigest(), digests[size_t(rowid)]);
        }
    }

    void listSkipsTheHostsOwnLists()
    {
        QVERIFY(LoadVTGroups().isEmpty());
        for (const char* name : {"Customers.gdb", "All Groups.gdb", "exclusion list.gdb",
                                 "EXCLUSION LIST.gdb", "Search Results.gdb", ".hidden.gdb",
                                 " Padded .gdb", "Customers.vtp", "notes.txt", "Archive.GDB"})
            m_folder->writeFile(name, "x");
        // The extension matched without regard to case, as on the host; names not trimmed.
        const QStringList groups = LoadVTGroups();
        QCOMPARE(QSet<QString>(groups.begin(), groups.end()),
                 QSet<QString>({" Padded ", ".hidden", "Archive", "Customers", "Search Results"}));
        QCOMPARE(groups.size(), 5);
    }

    // Creating never touches a file that exists (the wizard's Group dialog shows that
    // refusal); a folder that is not there is told.
    void create()
    {
        m_folder->writeFile("Sales.gdb", "keep me");
        QVERIFY(CreateGroup("New Group", m_folder->hostPath()));
        QVERIFY(GroupStore::checkFile(m_folder->filePath("New Group.gdb")));
        QVERIFY(!CreateGroup("Sales", m_folder->hostPath()));
        QCOMPARE(m_folder->readFile("Sales.gdb"), QByteArray("keep me"));
        m_boxes.clear();
        QVERIFY(!CreateGroup("Lost", m_folder->hostPath() + "missing\\"));
        QCOMPARE(LoadVTGroups().size(), 2);
        QCOMPARE(m_boxes.shown().value(0).icon, MessageBoxes::Icon::Critical);
        QVERIFY2(m_boxes.texts().join('|').startsWith("CreateGroupError: 76 - "),
                 qPrintable(m_boxes.texts().join('|')));
        m_boxes.clear();
    }

    // Enough addresses to grow the table many times, with and without batches moved to
    // disk: every one must stay findable with its record number and digest, a digest
    // changed on disk must stick, and none that was never added may look present.
    void duplicateList_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<bool>("rowids");
        QTest::addColumn<QString>("tempFolder");
        QTest::addColumn<bool>("onDisk");
        QTest::addColumn<qint64>("fileBytes"); // the most a file may hold; 0: no limit
        QTest::newRow("in memory") << qint64(0) << false << QString() << false << qint64(0);
        QTest::newRow("small batches") << qint64(1000) << true << QString() << true << qint64(0);
        QTest::newRow("one batch") << qint64(150000) << false << QString() << true << qint64(0);
        QTest::newRow("no temp folder")
            << qint64(1000) << true << QString("/nonexistent") << false << qint64(0);
        QTest::newRow("file fills up")
            << qint64(1000) << true << QString() << true << qint64(200000);
    }
    void duplicateList()
    {
        QFETCH(qint64, limit);
        QFETCH(bool, rowids);
        QFETCH(QString, tempFolder);
        QFETCH(bool, onDisk);
        QFETCH(qint64, fileBytes);
        struct rlimit oldFileLimit;
        QCOMPARE(getrlimit(RLIMIT_FSIZE, &oldFileLimit), 0);
        const auto restoreFileLimit = qScopeGuard([&] { setrlimit(RLIMIT_FSIZE, &oldFileLimit); });
        if (fileBytes > 0) {
            std::signal(SIGXFSZ, SIG_IGN); // a write past the limit fails instead
            struct rlimit limited = oldFileLimit;
            limited.rlim_cur = rlim_t(fileBytes);
            QCOMPARE(setrlimit(RLIMIT_FSIZE, &limited), 0);
        }
        const QByteArray oldTemp = qgetenv("TMPDIR");
        if (!tempFolder.isEmpty())
            qputenv("TMPDIR", tempFolder.toUtf8());
        DuplicateCheckList list;
        list.keepRowids(rowids);
        list.setMemoryLimit(limit);
        list.reserve(5000000); // never more than the limit
        const int n = 200000;
        // Half go in as a Group's listing does, a few calls late; every tenth twice.
        for (int i = 0; i < n; ++i) {
            const std::string key = QString("Person.%1@Example.com").arg(i).toStdString();
            if (i % 2)
                QVERIFY(list.addAscii(key, i + 1, quint64(i) * 7));
            for (int twice = 0; twice < (i % 10 ? 1 : 2) && i % 2 == 0; ++twice)
                list.addAsciiSoon(key.data(), key.size(), i + 1 + twice, quint64(i) * 7);
        }
        list.settle();
        // A looked-up address that is not the one added next changes nothing.
        list.prefetch("person.0@example.com");
        QVERIFY(list.add(QString::fromUtf8("ÄNNE@MÜLLER.DE")));
        int addedLater = 0;
        for (int i = 0; i < n + 10000; i += 97) {
            const bool added = i < n;
            addedLater += added ? 0 : 1;
            QCOMPARE(list.contains(QString("person.%1@example.COM").arg(i)), added);
            QCOMPARE(list.add(QString("PERSON.%1@example.com").arg(i)), !added);
            if (added && rowids) {
                QCOMPARE(list.foundRowid(), qint64(i + 1));
                QCOMPARE(list.foundDigest(), quint64(i) * 7);
                list.setFoundDigest(quint64(i) + 1);
            }
        }
        QVERIFY(!list.add(QString::fromUtf8("änne@müller.de")));
        QVERIFY(!list.contains("person.1@example.co")); // a prefix is another address
        QCOMPARE(list.count(), n + addedLater + 1);
        QCOMPARE(list.countOnDisk() > 0, onDisk);
        if (fileBytes > 0) // the batches that fitted stay; the rest stays in memory
            QVERIFY2(list.countOnDisk() < n / 10, qPrintable(QString::number(list.countOnDisk())));
        if (rowids) {
            for (int i = 0; i < n; i += 97 * 5) {
                QVERIFY(!list.addAscii(QString("person.%1@example.com").arg(i).toStdString()));
                QCOMPARE(list.foundDigest(), quint64(i) + 1);
            }
        }
        list.clear();
        QVERIFY(list.count() == 0 && list.countOnDisk() == 0);
        QVERIFY(!list.contains("person.1@example.com"));
        QVERIFY(list.add("person.1@example.com"));
        if (tempFolder.isEmpty() || oldTemp.isEmpty())
            qunsetenv("TMPDIR");
        if (!oldTemp.isEmpty())
            qputenv("TMPDIR", oldTemp);
    }

    // A new log replaces the old one; lines in UTF-8 ending in CR LF.
    void logFile()
    {
        m_folder->writeFile("log.txt", "old run\r\n");
        qint16 number = 0;
        QString error;
        QVERIFY(OpenLogFile(m_folder->hostPath() + "log.txt", number, false, error));
        QVERIFY(number > 0);
        WriteLogLine(number, QString::fromUtf8("#   Zoë"));
        CloseLogFile(number);
        WriteLogLine(number, "closed"); // nothing happens
        QCOMPARE(m_folder->readFile("log.txt"), QByteArray("#   Zo\xC3\xAB\r\n"));
    }

private:
    std::unique_ptr<TempFolder> m_folder;
    ScriptedMessageBoxes m_boxes;
    std::optional<MessageBoxesGuard> m_guard;
};

QTEST_GUILESS_MAIN(tst_GroupStore)
#include "tst_groupstore.moc"
