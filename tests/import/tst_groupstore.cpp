// The Group store on real SQLite files: format, reading, writing, finding, batching.
#include <QtTest>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <sqlite3.h>

#include "import/groupstore.h"
#include "util/apperror.h"

#include "sqlitefixture.h"
#include "tempfolder.h"

namespace {

// A folder nobody may create files in. The owner's write permission is taken away; root
// ignores that, so for root the folder is also marked immutable, which binds root too.
class ReadOnlyFolder
{
public:
    explicit ReadOnlyFolder(const QString& path) : m_path(path)
    {
        QDir().mkpath(path);
        QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner);
        if (::geteuid() == 0)
            m_immutable = setImmutable(true);
    }
    ~ReadOnlyFolder()
    {
        if (m_immutable)
            setImmutable(false);
        QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    bool isReadOnly() const { return !QFileInfo(m_path).isWritable(); }

private:
    bool setImmutable(bool on)
    {
        const int fd = ::open(QFile::encodeName(m_path).constData(), O_RDONLY | O_DIRECTORY);
        if (fd < 0)
            return false;
        int flags = 0;
        bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
        flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        ok = ok && ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
        ::close(fd);
        return ok;
    }

    QString m_path;
    bool m_immutable = false;
};

} // namespace

class tst_GroupStore : public QObject
{
    Q_OBJECT

private slots:
    void createdFileHasTheGroupFormat();
    void checkFile_data();
    void checkFile();
    void createRefusesExistingAndUnwritable_data();
    void createRefusesExistingAndUnwritable();
    void staleJournalIsNotAppliedToANewGroup();
    void addedRecordsReachTheFile();
    void overLongValuesAreCut_data();
    void overLongValuesAreCut();
    void fieldNamesIgnoreCase();
    void unknownFieldThrows();
    void findIgnoresCase_data();
    void findIgnoresCase();
    void findThenSetUpdatesTheRow();
    void currentRecordSurvivesAddFindAndClose();
    void sequentialReading();
    void committedBatchesAreVisibleBeforeClose();
    void manyNewRecordsKeepTheirOrderAndAreFound();
    void openRefusesNonGroupFiles();

private:
    QString newGroup(const TempFolder& folder, const QString& name = QStringLiteral("Test"));
};

QString tst_GroupStore::newGroup(const TempFolder& folder, const QString& name)
{
    const QString path = folder.filePath(name + QStringLiteral(".gdb"));
    GroupStore::createFile(path, GroupStore::groupFields());
    return path;
}

void tst_GroupStore::createdFileHasTheGroupFormat()
{
    TempFolder folder;
    const QString path = newGroup(folder);

    const QStringList columns = SqliteColumn(
        path, QStringLiteral("SELECT name FROM pragma_table_info('Recipients') ORDER BY cid"));
    QCOMPARE(columns, QStringList({"Title",    "FirstName", "LastName", "EmailAddress", "Initial",
                                   "Address1", "Address2",  "City",     "State",        "Zip",
                                   "Country",  "Company",   "JobTitle", "WEB",          "Telephone",
                                   "FAX",      "Field1",    "Field2",   "Field3",       "Field4",
                                   "DateAdded"}));
    QCOMPARE(SqliteColumn(
                 path, QStringLiteral("SELECT DISTINCT type FROM pragma_table_info('Recipients')")),
             QStringList{"TEXT"});
    QCOMPARE(
        SqliteColumn(
            path, QStringLiteral("SELECT Position || ',' || Name || ',' || Type || ',' || Length "
                                 "FROM Fields WHERE Position IN (1, 4, 14, 21) ORDER BY Position")),
        QStringList({"1,Title,0,10", "4,EmailAddress,0,100", "14,WEB,0,75", "21,DateAdded,6,0"}));
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT COUNT(*) FROM Fields")), QStringList{"21"});
    // The e-mail index compares without regard to case, so a find can use it.
    const QStringList indexSql = SqliteColumn(
        path, QStringLiteral(
                  "SELECT sql FROM sqlite_master WHERE type='index' AND tbl_name='Recipients'"));
    QCOMPARE(indexSql.size(), 1);
    QVERIFY2(indexSql.first().contains(QLatin1String("EmailAddress COLLATE NOCASE")),
             qPrintable(indexSql.first()));
}

void tst_GroupStore::checkFile_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("expected");
    QTest::newRow("group") << "group" << true;
    QTest::newRow("missing") << "missing" << false;
    QTest::newRow("text file") << "text" << false;
    QTest::newRow("empty file") << "empty" << false;
    QTest::newRow("sqlite without Recipients") << "other" << false;
    QTest::newRow("folder") << "folder" << false;
}

void tst_GroupStore::checkFile()
{
    QFETCH(QString, kind);
    QFETCH(bool, expected);
    TempFolder folder;
    QString path = folder.filePath(QStringLiteral("G.gdb"));
    if (kind == QLatin1String("group"))
        newGroup(folder, QStringLiteral("G"));
    else if (kind == QLatin1String("text"))
        folder.writeFile(QStringLiteral("G.gdb"), "Title,FirstName\r\nMr,John\r\n");
    else if (kind == QLatin1String("empty"))
        folder.writeFile(QStringLiteral("G.gdb"), QByteArray());
    else if (kind == QLatin1String("other"))
        QCOMPARE(BuildSqliteDatabase(path, {QStringLiteral("CREATE TABLE People (Name TEXT)")}),
                 QString());
    else if (kind == QLatin1String("folder"))
        QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("G.gdb")));
    QCOMPARE(GroupStore::checkFile(path), expected);
}

void tst_GroupStore::createRefusesExistingAndUnwritable_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<long>("number");
    QTest::newRow("exists") << "exists" << 58L;
    QTest::newRow("no such folder") << "nofolder" << long(AppError::PathNotFound);
    QTest::newRow("folder is a file") << "fileasfolder" << long(AppError::PathNotFound);
    QTest::newRow("read-only folder") << "readonly" << long(AppError::PermissionDenied);
}

void tst_GroupStore::createRefusesExistingAndUnwritable()
{
    QFETCH(QString, kind);
    QFETCH(long, number);
    TempFolder folder;
    QString path;
    if (kind == QLatin1String("exists")) {
        path = folder.writeFile(QStringLiteral("G.gdb"), "precious");
    } else if (kind == QLatin1String("nofolder")) {
        path = folder.filePath(QStringLiteral("missing/G.gdb"));
    } else if (kind == QLatin1String("fileasfolder")) {
        path = folder.writeFile(QStringLiteral("plain"), "x") + QStringLiteral("/G.gdb");
    }
    std::unique_ptr<ReadOnlyFolder> readOnly;
    if (kind == QLatin1String("readonly")) {
        readOnly = std::make_unique<ReadOnlyFolder>(folder.filePath(QStringLiteral("ro")));
        if (!readOnly->isReadOnly())
            QSKIP("cannot make a folder read-only here");
        path = folder.filePath(QStringLiteral("ro/G.gdb"));
    }
    try {
        GroupStore::createFile(path, GroupStore::groupFields());
        QFAIL("createFile did not throw");
    } catch (const AppError& e) {
        QCOMPARE(e.number(), number);
    }
    if (kind == QLatin1String("exists"))
        QCOMPARE(folder.readFile(QStringLiteral("G.gdb")), QByteArray("precious"));
    else
        QVERIFY(!QFileInfo::exists(path));
}

void tst_GroupStore::staleJournalIsNotAppliedToANewGroup()
{
    // A hot journal as a killed import leaves it: taken while a transaction that has
    // already written changed pages to the file is still open.
    TempFolder folder;
    const QString old = newGroup(folder, QStringLiteral("Old"));
    QStringList rows{QStringLiteral("BEGIN")};
    for (int i = 0; i < 3000; ++i)
        rows << QStringLiteral(
                    "INSERT INTO Recipients (EmailAddress, City) VALUES ('p%1@x.org', 'Leeds')")
                    .arg(i);
    rows << QStringLiteral("COMMIT");
    QCOMPARE(BuildSqliteDatabase(old, rows), QString());
    const QString fresh = folder.filePath(QStringLiteral("Fresh.gdb"));
    sqlite3* db = nullptr;
    QCOMPARE(sqlite3_open(QFile::encodeName(old).constData(), &db), SQLITE_OK);
    QCOMPARE(sqlite3_exec(db, "PRAGMA cache_size=5; BEGIN; UPDATE Recipients SET City = 'York';",
                          nullptr, nullptr, nullptr),
             SQLITE_OK);
    const bool copied =
        QFile::copy(old + QStringLiteral("-journal"), fresh + QStringLiteral("-journal"));
    sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    QVERIFY(copied);

    GroupStore::createFile(fresh, GroupStore::groupFields());
    QVERIFY(!QFileInfo::exists(fresh + QStringLiteral("-journal")));
    GroupStore store;
    store.open(fresh);
    QCOMPARE(store.recordCount(), 0);
    store.close();
    QCOMPARE(SqliteColumn(fresh, QStringLiteral("PRAGMA integrity_check")), QStringList{"ok"});
}

void tst_GroupStore::addedRecordsReachTheFile()
{
    TempFolder folder;
    const QString path = newGroup(folder);
    {
        GroupStore store;
        store.open(path);
        QVERIFY(store.isOpen());
        QCOMPARE(store.recordCount(), 0);
        for (int i = 1; i <= 3; ++i) {
            store.addRecord();
            store.setField(QStringLiteral("EmailAddress"),
                           QStringLiteral("p%1@example.com").arg(i));
            store.setField(QStringLiteral("LastName"), QStringLiteral("Person %1").arg(i));
        }
        QCOMPARE(store.recordCount(), 3);
        store.close();
        QVERIFY(!store.isOpen());
    }
    QCOMPARE(
        SqliteColumn(path,
                     QStringLiteral(
                         "SELECT EmailAddress || '/' || LastName FROM Recipients ORDER BY rowid")),
        QStringList(
            {"p1@example.com/Person 1", "p2@example.com/Person 2", "p3@example.com/Person 3"}));
    // Fields never set stay NULL, and read back as empty text.
    QCOMPARE(
        SqliteColumn(path, QStringLiteral("SELECT COUNT(*) FROM Recipients WHERE City IS NULL")),
        QStringList{"3"});
    GroupStore store;
    store.open(path);
    store.moveFirst();
    QCOMPARE(store.getField(QStringLiteral("City")), QString());
}

void tst_GroupStore::overLongValuesAreCut_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("stored");

    QTest::newRow("title 10") << "Title"
                              << "Professorin"
                              << "Professori";
    QTest::newRow("exactly the length") << "Zip"
                                        << "123456789012345"
                                        << "123456789012345";
    QTest::newRow("zip 15") << "Zip"
                            << "1234567890123456789"
                            << "123456789012345";
    QTest::newRow("email 100") << "EmailAddress" << QString(120, QLatin1Char('e'))
                               << QString(100, QLatin1Char('e'));
    QTest::newRow("non-ASCII counted in characters")
        << "Title" << QString::fromUtf8("ÄÖÜäöüßÉÈÊX") << QString::fromUtf8("ÄÖÜäöüßÉÈÊ");
    // A character outside the BMP is one character, two UTF-16 units: never split.
    const QString clef = QString::fromUtf8("\xF0\x9D\x84\x9E");
    QTest::newRow("surrogate pairs")
        << "Title" << QString(clef).repeated(12) << QString(clef).repeated(10);
    QTest::newRow("date has no limit")
        << "DateAdded" << QString(60, QLatin1Char('d')) << QString(60, QLatin1Char('d'));
}

void tst_GroupStore::overLongValuesAreCut()
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
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT %1 FROM Recipients").arg(field)),
             QStringList{stored});
}

void tst_GroupStore::fieldNamesIgnoreCase()
{
    TempFolder folder;
    const QString path = newGroup(folder);
    {
        GroupStore store;
        store.open(path);
        store.addRecord();
        store.setField(QStringLiteral("Web"), QStringLiteral("https://example.com"));
        store.setField(QStringLiteral("fax"), QStringLiteral("+44 1"));
        store.setField(QStringLiteral("EMAILADDRESS"), QStringLiteral("a@b.cc"));
        QCOMPARE(store.fieldIndex(QStringLiteral("wEb")), store.fieldIndex(QStringLiteral("WEB")));
        QCOMPARE(store.fieldIndex(QStringLiteral("FullNameMacro")), -1);
    }
    QCOMPARE(SqliteColumn(
                 path,
                 QStringLiteral("SELECT WEB || '|' || FAX || '|' || EmailAddress FROM Recipients")),
             QStringList{"https://example.com|+44 1|a@b.cc"});
}

void tst_GroupStore::unknownFieldThrows()
{
    TempFolder folder;
    GroupStore store;
    store.open(newGroup(folder));
    store.addRecord();
    QVERIFY_THROWS_EXCEPTION(AppError,
                             store.setField(QStringLiteral("FullNameMacro"), QStringLiteral("x")));
    QVERIFY_THROWS_EXCEPTION(AppError, store.getField(QStringLiteral("Nickname")));
    GroupStore closed;
    QVERIFY_THROWS_EXCEPTION(AppError, closed.addRecord());
    QVERIFY_THROWS_EXCEPTION(AppError, closed.recordCount());
}

void tst_GroupStore::findIgnoresCase_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("wanted");
    QTest::addColumn<bool>("found");
    QTest::newRow("same") << "ann@example.com"
                          << "ann@example.com" << true;
    QTest::newRow("ASCII case") << "Ann@Example.COM"
                                << "ann@example.com" << true;
    QTest::newRow("non-ASCII case")
        << QString::fromUtf8("ÄNNE@MÜLLER.DE") << QString::fromUtf8("änne@müller.de") << true;
    QTest::newRow("Greek case") << QString::fromUtf8("ΣΟΦΙΑ@example.gr")
                                << QString::fromUtf8("σοφια@example.gr") << true;
    QTest::newRow("different") << "ann@example.com"
                               << "bob@example.com" << false;
    QTest::newRow("non-ASCII different")
        << QString::fromUtf8("änne@müller.de") << QString::fromUtf8("anne@muller.de") << false;
    QTest::newRow("trailing blank differs") << "ann@example.com "
                                            << "ann@example.com" << false;
}

void tst_GroupStore::findIgnoresCase()
{
    QFETCH(QString, stored);
    QFETCH(QString, wanted);
    QFETCH(bool, found);
    TempFolder folder;
    GroupStore store;
    store.open(newGroup(folder));
    for (const QString& email :
         {QStringLiteral("first@x.org"), stored, QStringLiteral("last@x.org")}) {
        store.addRecord();
        store.setField(QStringLiteral("EmailAddress"), email);
        store.setField(QStringLiteral("Company"), QStringLiteral("of ") + email);
    }
    store.find(QStringLiteral("EmailAddress"), QStringLiteral("="), wanted);
    QCOMPARE(!store.noMatch(), found);
    if (found)
        QCOMPARE(store.getField(QStringLiteral("Company")), QStringLiteral("of ") + stored);
    QVERIFY_THROWS_EXCEPTION(
        AppError, store.find(QStringLiteral("EmailAddress"), QStringLiteral(">"), wanted));
}

void tst_GroupStore::findThenSetUpdatesTheRow()
{
    TempFolder folder;
    const QString path = newGroup(folder);
    {
        GroupStore store;
        store.open(path);
        for (const char* email : {"a@x.org", "b@x.org", "c@x.org"}) {
            store.addRecord();
            store.setField(QStringLiteral("EmailAddress"), QString::fromLatin1(email));
            store.setField(QStringLiteral("City"), QStringLiteral("Old"));
            store.setField(QStringLiteral("DateAdded"), QStringLiteral("01/02/2020"));
        }
        store.find(QStringLiteral("EmailAddress"), QStringLiteral("="), QStringLiteral("B@X.ORG"));
        QVERIFY(!store.noMatch());
        store.setField(QStringLiteral("City"), QStringLiteral("New"));
        store.find(QStringLiteral("EmailAddress"), QStringLiteral("="),
                   QStringLiteral("nobody@x.org"));
        QVERIFY(store.noMatch());
    }
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT EmailAddress || ' ' || City || ' ' || "
                                               "DateAdded FROM Recipients ORDER BY rowid")),
             QStringList(
                 {"a@x.org Old 01/02/2020", "b@x.org New 01/02/2020", "c@x.org Old 01/02/2020"}));
}

void tst_GroupStore::currentRecordSurvivesAddFindAndClose()
{
    TempFolder folder;
    const QString path = newGroup(folder);
    {
        GroupStore store;
        store.open(path);
        store.addRecord();
        store.setField(QStringLiteral("EmailAddress"), QStringLiteral("one@x.org"));
        store.addRecord(); // the first must be written now
        store.setField(QStringLiteral("EmailAddress"), QStringLiteral("two@x.org"));
        store.find(QStringLiteral("EmailAddress"), QStringLiteral("="),
                   QStringLiteral("one@x.org"));
        QVERIFY(!store.noMatch());
        store.setField(QStringLiteral("City"), QStringLiteral("Leeds"));
        store.addRecord();
        store.setField(QStringLiteral("EmailAddress"), QStringLiteral("three@x.org"));
        store.find(QStringLiteral("EmailAddress"), QStringLiteral("="),
                   QStringLiteral("TWO@x.org"));
        QVERIFY(!store.noMatch());
        store.setField(QStringLiteral("City"), QStringLiteral("York"));
        store.close(); // the update of two must be written by the close
    }
    QCOMPARE(
        SqliteColumn(
            path,
            QStringLiteral(
                "SELECT EmailAddress || ':' || IFNULL(City, '-') FROM Recipients ORDER BY rowid")),
        QStringList({"one@x.org:Leeds", "two@x.org:York", "three@x.org:-"}));

    // The destructor closes too, keeping the last record.
    {
        GroupStore store;
        store.open(path);
        store.addRecord();
        store.setField(QStringLiteral("EmailAddress"), QStringLiteral("four@x.org"));
    }
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT COUNT(*) FROM Recipients")),
             QStringList{"4"});
}

void tst_GroupStore::sequentialReading()
{
    TempFolder folder;
    const QString path = newGroup(folder);
    QStringList inserts;
    for (int i = 0; i < 250; ++i)
        inserts
            << QStringLiteral("INSERT INTO Recipients (EmailAddress) VALUES ('r%1@x.org')").arg(i);
    inserts << QStringLiteral("INSERT INTO Recipients (EmailAddress) VALUES (NULL)");
    QCOMPARE(BuildSqliteDatabase(path, inserts), QString());

    GroupStore store;
    store.open(path);
    const qint32 count = store.recordCount();
    QCOMPARE(count, 251);
    store.moveFirst();
    QStringList seen;
    while (!store.atEnd()) {
        seen << store.getField(QStringLiteral("EmailAddress"));
        store.moveNext();
    }
    QCOMPARE(seen.size(), 251);
    QCOMPARE(seen.first(), QStringLiteral("r0@x.org"));
    QCOMPARE(seen.at(249), QStringLiteral("r249@x.org"));
    QCOMPARE(seen.last(), QString());
    QVERIFY_THROWS_EXCEPTION(AppError, store.getField(QStringLiteral("EmailAddress")));

    // Changing a row met while reading updates that row and reading goes on.
    store.moveFirst();
    store.moveNext();
    store.setField(QStringLiteral("City"), QStringLiteral("Hull"));
    store.moveNext();
    QCOMPARE(store.getField(QStringLiteral("EmailAddress")), QStringLiteral("r2@x.org"));
    store.close();
    QCOMPARE(
        SqliteColumn(path, QStringLiteral("SELECT EmailAddress FROM Recipients WHERE City='Hull'")),
        QStringList{"r1@x.org"});

    // An empty Group is at its end at once.
    const QString empty = newGroup(folder, QStringLiteral("Empty"));
    GroupStore other;
    other.open(empty);
    other.moveFirst();
    QVERIFY(other.atEnd());
}

void tst_GroupStore::committedBatchesAreVisibleBeforeClose()
{
    TempFolder folder;
    const QString path = newGroup(folder);
    GroupStore store;
    store.open(path);
    store.setBatchLimits(3, 0);
    for (int i = 0; i < 7; ++i) {
        store.addRecord();
        store.setField(QStringLiteral("EmailAddress"), QStringLiteral("b%1@x.org").arg(i));
    }
    // Seven records set: six written in two full batches, the seventh still current.
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT COUNT(*) FROM Recipients")),
             QStringList{"6"});
    store.close();
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT COUNT(*) FROM Recipients")),
             QStringList{"7"});
}

void tst_GroupStore::manyNewRecordsKeepTheirOrderAndAreFound()
{
    TempFolder folder;
    const QString path = newGroup(folder);
    GroupStore store;
    store.open(path);
    for (int i = 0; i < 100; ++i) {
        store.addRecord();
        store.setField(QStringLiteral("EmailAddress"), QStringLiteral("r%1@x.org").arg(i));
        store.setField(QStringLiteral("Zip"), QString::number(i));
    }
    // Records added last, not yet written, are counted and found like any other.
    QCOMPARE(store.recordCount(), 100);
    for (int i : {0, 31, 32, 95, 98, 99}) {
        store.find(QStringLiteral("EmailAddress"), QStringLiteral("="),
                   QStringLiteral("R%1@X.ORG").arg(i));
        QVERIFY(!store.noMatch());
        QCOMPARE(store.getField(QStringLiteral("Zip")), QString::number(i));
    }
    store.setField(QStringLiteral("City"), QStringLiteral("Found"));
    store.close();
    QStringList expected;
    for (int i = 0; i < 100; ++i)
        expected << QString::number(i);
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT Zip FROM Recipients ORDER BY rowid")),
             expected);
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT Zip FROM Recipients WHERE City = 'Found'")),
             QStringList{"99"});
}

void tst_GroupStore::openRefusesNonGroupFiles()
{
    TempFolder folder;
    const QString text =
        folder.writeFile(QStringLiteral("Text.gdb"), "not a database at all, just text\n");
    GroupStore store;
    QVERIFY_THROWS_EXCEPTION(AppError, store.open(text));
    QVERIFY(!store.isOpen());
    QVERIFY_THROWS_EXCEPTION(AppError, store.open(folder.filePath(QStringLiteral("Missing.gdb"))));
    QVERIFY(!QFileInfo::exists(folder.filePath(QStringLiteral("Missing.gdb"))));
    const QString other = folder.filePath(QStringLiteral("Other.gdb"));
    QCOMPARE(BuildSqliteDatabase(other, {QStringLiteral("CREATE TABLE People (Name TEXT)")}),
             QString());
    QVERIFY_THROWS_EXCEPTION(AppError, store.open(other));
    QVERIFY(!store.isOpen());
}

QTEST_GUILESS_MAIN(tst_GroupStore)
#include "tst_groupstore.moc"
