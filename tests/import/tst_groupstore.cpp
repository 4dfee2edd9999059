// The Group store on real SQLite files: format, reading, writing, finding, batching.
#include <QtTest>

#include <sqlite3.h>

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

void findEmail(GroupStore& store, const QString& email)
{
    store.find("EmailAddress", "=", email);
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
                              "SELECT group_concat(name, ',') FROM "
                              "(SELECT name FROM pragma_table_info('Recipients') ORDER BY cid)"),
                 QStringList{"Title,FirstName,LastName,EmailAddress,Initial,Address1,Address2,City,"
                             "State,Zip,Country,Company,JobTitle,WEB,Telephone,FAX,Field1,Field2,"
                             "Field3,Field4,DateAdded"});
        QCOMPARE(SqliteColumn(path, "SELECT DISTINCT type FROM pragma_table_info('Recipients')"),
                 QStringList{"TEXT"});
        QCOMPARE(SqliteColumn(path,
                              "SELECT Position || ',' || Name || ',' || Type || ',' || Length "
                              "FROM Fields WHERE Position IN (1, 4, 14, 21) ORDER BY Position"),
                 QStringList(
                     {"1,Title,0,10", "4,EmailAddress,0,100", "14,WEB,0,75", "21,DateAdded,6,0"}));
        QCOMPARE(SqliteColumn(path, "SELECT COUNT(*) FROM Fields"), QStringList{"21"});
        // The e-mail index compares without regard to case, so a find can use it.
        const QStringList indexSql = SqliteColumn(
            path, "SELECT sql FROM sqlite_master WHERE type='index' AND tbl_name='Recipients'");
        QCOMPARE(indexSql.size(), 1);
        QVERIFY2(indexSql.first().contains("EmailAddress COLLATE NOCASE"),
                 qPrintable(indexSql.first()));
    }

    // What checking, opening and creating make of a path: only a Group file passes the check
    // and opens; creating refuses what exists and what cannot be written, and leaves it as
    // it was (-1: creating is not tried).
    void fileKinds_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<bool>("isGroup");
        QTest::addColumn<long>("createError");
        const long exists = 58, noPath = long(AppError::PathNotFound);
        DataRow("group", "group", true, exists);
        DataRow("missing", "missing", false, 0L);
        DataRow("text file", "text", false, exists);
        DataRow("empty file", "empty", false, exists);
        DataRow("SQLite without Recipients", "other", false, exists);
        DataRow("folder", "folder", false, -1L);
        DataRow("no such folder", "missing/G.gdb", false, noPath);
        DataRow("folder is a file", "plain/G.gdb", false, noPath);
        DataRow("read-only folder", "ro/G.gdb", false, long(AppError::PermissionDenied));
    }

    void fileKinds()
    {
        QFETCH(QString, kind);
        QFETCH(bool, isGroup);
        QFETCH(long, createError);
        TempFolder folder;
        const QString path = folder.filePath(kind.endsWith(".gdb") ? kind : "G.gdb");
        if (kind == "group")
            newGroup(folder, "G");
        else if (kind == "text" || kind == "empty")
            folder.writeFile("G.gdb", kind == "text" ? "Title,FirstName\r\nMr,John\r\n" : "");
        else if (kind == "other")
            QCOMPARE(BuildSqliteDatabase(path, {"CREATE TABLE People (Name TEXT)"}), QString());
        else if (kind == "folder")
            QVERIFY(QDir(folder.path()).mkdir("G.gdb"));
        else if (kind == "plain/G.gdb")
            folder.writeFile("plain", "x");
        std::unique_ptr<ReadOnlyFolder> readOnly;
        if (kind == "ro/G.gdb") {
            readOnly = std::make_unique<ReadOnlyFolder>(folder.filePath("ro"));
            if (!readOnly->isReadOnly())
                QSKIP("cannot make a folder read-only here");
        }
        QCOMPARE(GroupStore::checkFile(path), isGroup);
        {
            GroupStore store;
            if (isGroup)
                store.open(path);
            else
                QVERIFY_THROWS_EXCEPTION(AppError, store.open(path));
            QCOMPARE(store.isOpen(), isGroup);
        }
        QCOMPARE(QFileInfo::exists(path), createError == 58 || kind == "folder");
        if (createError < 0)
            return;
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
        }
        if (createError != 0)
            QCOMPARE(bytes(), before);
    }

    void staleJournalIsNotAppliedToANewGroup()
    {
        // A hot journal as a killed import leaves it: taken while a transaction that has
        // already written changed pages to the file is still open.
        TempFolder folder;
        const QString old = newGroup(folder, "Old");
        QStringList rows{"BEGIN"};
        for (int i = 0; i < 3000; ++i)
            rows << QString(
                        "INSERT INTO Recipients (EmailAddress, City) VALUES ('p%1@x.org', 'Leeds')")
                        .arg(i);
        QCOMPARE(BuildSqliteDatabase(old, rows << "COMMIT"), QString());
        const QString fresh = folder.filePath("Fresh.gdb");
        sqlite3* db = nullptr;
        QCOMPARE(sqlite3_open(QFile::encodeName(old).constData(), &db), SQLITE_OK);
        QCOMPARE(sqlite3_exec(db,
                              "PRAGMA cache_size=5; BEGIN; UPDATE Recipients SET City = 'York';",
                              nullptr, nullptr, nullptr),
                 SQLITE_OK);
        const bool copied = QFile::copy(old + "-journal", fresh + "-journal");
        sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close(db);
        QVERIFY(copied);

        GroupStore::createFile(fresh, GroupStore::groupFields());
        QVERIFY(!QFileInfo::exists(fresh + "-journal"));
        GroupStore store;
        store.open(fresh);
        QCOMPARE(store.recordCount(), 0);
        store.close();
        QCOMPARE(SqliteColumn(fresh, "PRAGMA integrity_check"), QStringList{"ok"});
    }

    void writtenRecordsReachTheFile()
    {
        TempFolder folder;
        const QString path = newGroup(folder);
        {
            GroupStore store;
            store.open(path);
            QCOMPARE(store.recordCount(), 0);
            for (int i = 1; i <= 3; ++i)
                add(store,
                    {QString("EmailAddress=p%1@x.org").arg(i), QString("LastName=P %1").arg(i)});
            // Field names match without regard to case.
            add(store, {"Web=https://x.org", "fax=+44 1", "EMAILADDRESS=a@b.cc"});
            QCOMPARE(store.fieldIndex("wEb"), store.fieldIndex("WEB"));
            QCOMPARE(store.fieldIndex("FullNameMacro"), -1);
            QVERIFY_THROWS_EXCEPTION(AppError, store.setField("FullNameMacro", "x"));
            QVERIFY_THROWS_EXCEPTION(AppError, store.getField("Nickname"));
            QCOMPARE(store.recordCount(), 4);
            store.close();
            QVERIFY(!store.isOpen());
            QVERIFY_THROWS_EXCEPTION(AppError, store.addRecord());
            QVERIFY_THROWS_EXCEPTION(AppError, store.recordCount());
        }
        // Fields never set stay NULL, and read back as empty text.
        QCOMPARE(SqliteColumn(path, "SELECT EmailAddress || '/' || IFNULL(LastName, '-') || '/' || "
                                    "IFNULL(WEB || FAX, '-') || IFNULL(City, '.') FROM Recipients "
                                    "ORDER BY rowid"),
                 QStringList({"p1@x.org/P 1/-.", "p2@x.org/P 2/-.", "p3@x.org/P 3/-.",
                              "a@b.cc/-/https://x.org+44 1."}));
        GroupStore store;
        store.open(path);
        store.moveFirst();
        QCOMPARE(store.getField("City"), QString());
    }

    void overLongValuesAreCut_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("stored");
        DataRow("title 10", "Title", "Professorin", "Professori");
        DataRow("exactly the length", "Zip", "123456789012345", "123456789012345");
        DataRow("zip 15", "Zip", "1234567890123456789", "123456789012345");
        DataRow("email 100", "EmailAddress", QString(120, 'e'), QString(100, 'e'));
        DataRow("non-ASCII counted in characters", "Title", QString::fromUtf8("ÄÖÜäöüßÉÈÊX"),
                QString::fromUtf8("ÄÖÜäöüßÉÈÊ"));
        // A character outside the BMP is one character, two UTF-16 units: never split.
        const QString clef = QString::fromUtf8("\xF0\x9D\x84\x9E");
        DataRow("surrogate pairs", "Title", clef.repeated(12), clef.repeated(10));
        DataRow("date has no limit", "DateAdded", QString(60, 'd'), QString(60, 'd'));
    }

    void overLongValuesAreCut()
    {
        QFETCH(QString, field);
        QFETCH(QString, value);
        QFETCH(QString, stored);
        TempFolder folder;
        const QString path = newGroup(folder);
        {
            GroupStore store;
            store.open(path);
            store.addRecord();
            store.setField(field, value);
            QCOMPARE(store.getField(field), stored);
        }
        QCOMPARE(SqliteColumn(path, QString("SELECT %1 FROM Recipients").arg(field)),
                 QStringList{stored});
    }

    void findIgnoresCase_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("wanted");
        QTest::addColumn<bool>("found");
        DataRow("same", "ann@example.com", "ann@example.com", true);
        DataRow("ASCII case", "Ann@Example.COM", "ann@example.com", true);
        DataRow("non-ASCII case", QString::fromUtf8("ÄNNE@MÜLLER.DE"),
                QString::fromUtf8("änne@müller.de"), true);
        DataRow("Greek case", QString::fromUtf8("ΣΟΦΙΑ@example.gr"),
                QString::fromUtf8("σοφια@example.gr"), true);
        DataRow("different", "ann@example.com", "bob@example.com", false);
        DataRow("non-ASCII different", QString::fromUtf8("änne@müller.de"),
                QString::fromUtf8("anne@muller.de"), false);
        DataRow("trailing blank differs", "ann@example.com ", "ann@example.com", false);
    }

    void findIgnoresCase()
    {
        QFETCH(QString, stored);
        QFETCH(QString, wanted);
        QFETCH(bool, found);
        TempFolder folder;
        GroupStore store;
        store.open(newGroup(folder));
        for (const QString& email : {QString("first@x.org"), stored, QString("last@x.org")})
            add(store, {"EmailAddress=" + email, "Company=of " + email});
        findEmail(store, wanted);
        QCOMPARE(!store.noMatch(), found);
        if (found)
            QCOMPARE(store.getField("Company"), "of " + stored);
        QVERIFY_THROWS_EXCEPTION(AppError, store.find("EmailAddress", ">", wanted));
    }

    void currentRecordSurvivesAddFindAndClose()
    {
        TempFolder folder;
        const QString path = newGroup(folder);
        {
            GroupStore store;
            store.open(path);
            add(store, {"EmailAddress=one@x.org", "DateAdded=01/02/2020"});
            add(store, {"EmailAddress=two@x.org"}); // the first must be written now
            findEmail(store, "ONE@x.org");
            QVERIFY(!store.noMatch());
            store.setField("City", "Leeds");
            add(store, {"EmailAddress=three@x.org"});
            findEmail(store, "nobody@x.org");
            QVERIFY(store.noMatch());
            findEmail(store, "TWO@x.org");
            QVERIFY(!store.noMatch());
            store.setField("City", "York");
            store.close(); // the update of two must be written by the close
        }
        {
            GroupStore store; // the destructor closes too, keeping the last record
            store.open(path);
            add(store, {"EmailAddress=four@x.org"});
        }
        QCOMPARE(SqliteColumn(path, "SELECT EmailAddress || ':' || IFNULL(City, '-') || ':' || "
                                    "IFNULL(DateAdded, '-') FROM Recipients ORDER BY rowid"),
                 QStringList({"one@x.org:Leeds:01/02/2020", "two@x.org:York:-", "three@x.org:-:-",
                              "four@x.org:-:-"}));
    }

    void manyNewRecordsKeepTheirOrderAndAreFound()
    {
        TempFolder folder;
        const QString path = newGroup(folder);
        GroupStore store;
        store.open(path);
        QStringList expected;
        for (int i = 0; i < 100; ++i) {
            add(store, {QString("EmailAddress=r%1@x.org").arg(i), QString("Zip=%1").arg(i)});
            expected << QString::number(i);
        }
        // Records added last, not yet written, are counted and found like any other.
        QCOMPARE(store.recordCount(), 100);
        for (int i : {0, 31, 32, 95, 98, 99}) {
            findEmail(store, QString("R%1@X.ORG").arg(i));
            QVERIFY(!store.noMatch());
            QCOMPARE(store.getField("Zip"), QString::number(i));
        }
        store.setField("City", "Found");
        store.close();
        QCOMPARE(SqliteColumn(path, "SELECT Zip FROM Recipients ORDER BY rowid"), expected);
        QCOMPARE(SqliteColumn(path, "SELECT Zip FROM Recipients WHERE City = 'Found'"),
                 QStringList{"99"});
    }

    void sequentialReading()
    {
        TempFolder folder;
        const QString path = newGroup(folder);
        QStringList inserts;
        for (int i = 0; i < 250; ++i)
            inserts << QString("INSERT INTO Recipients (EmailAddress) VALUES ('r%1@x.org')").arg(i);
        inserts << "INSERT INTO Recipients (EmailAddress) VALUES (NULL)";
        QCOMPARE(BuildSqliteDatabase(path, inserts), QString());

        GroupStore store;
        store.open(path);
        QCOMPARE(store.recordCount(), 251);
        QStringList seen;
        for (store.moveFirst(); !store.atEnd(); store.moveNext())
            seen << store.getField("EmailAddress");
        QCOMPARE(seen.size(), 251);
        QCOMPARE(seen.first(), QString("r0@x.org"));
        QCOMPARE(seen.at(249), QString("r249@x.org"));
        QCOMPARE(seen.last(), QString());
        QVERIFY_THROWS_EXCEPTION(AppError, store.getField("EmailAddress"));
        // Changing a row met while reading updates that row and reading goes on.
        store.moveFirst();
        store.moveNext();
        store.setField("City", "Hull");
        store.moveNext();
        QCOMPARE(store.getField("EmailAddress"), QString("r2@x.org"));
        store.close();
        QCOMPARE(SqliteColumn(path, "SELECT EmailAddress FROM Recipients WHERE City='Hull'"),
                 QStringList{"r1@x.org"});

        GroupStore empty;
        empty.open(newGroup(folder, "Empty"));
        empty.moveFirst();
        QVERIFY(empty.atEnd());
    }

    void committedBatchesAreVisibleBeforeClose()
    {
        TempFolder folder;
        const QString path = newGroup(folder);
        GroupStore store;
        store.open(path);
        store.setBatchLimits(3, 0);
        for (int i = 0; i < 7; ++i)
            add(store, {QString("EmailAddress=b%1@x.org").arg(i)});
        // Seven records set: six written in two full batches, the seventh still current.
        QCOMPARE(SqliteColumn(path, "SELECT COUNT(*) FROM Recipients"), QStringList{"6"});
        store.close();
        QCOMPARE(SqliteColumn(path, "SELECT COUNT(*) FROM Recipients"), QStringList{"7"});
    }
};

QTEST_GUILESS_MAIN(tst_GroupStore)
#include "tst_groupstore.moc"
