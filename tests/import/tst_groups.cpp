// Listing, creating and purging Groups in a real data folder; the duplicate check list;
// the log file routines.
#include <QtTest>

#include "import/duplicatelist.h"
#include "import/groups.h"
#include "import/groupstore.h"
#include "import/importlog.h"
#include "util/appglobals.h"
#include "util/scriptedmessageboxes.h"

#include "sqlitefixture.h"
#include "tempfolder.h"

class tst_Groups : public QObject
{
    Q_OBJECT

private slots:
    void listSkipsTheHostsOwnLists();
    void listOfAnEmptyFolder();
    void createMakesAnEmptyGroup();
    void createRefusesAnExistingName();
    void createReportsFailure();
    void purgeReplacesTheGroup();
    void duplicateList_data();
    void duplicateList();
    void duplicateListGrowsAndEmpties();
    void logFile();
    void logWithoutNumberWritesNothing();
};

void tst_Groups::listSkipsTheHostsOwnLists()
{
    TempFolder folder;
    SetHostDataFolder(folder.hostPath());
    for (const char* name : {"Customers.gdb", "All Groups.gdb", "exclusion list.gdb",
                             "EXCLUSION LIST.gdb", "Search Results.gdb", ".hidden.gdb",
                             " Padded .gdb", "Customers.vtp", "notes.txt", "Archive.GDB"})
        folder.writeFile(QString::fromLatin1(name), "x");
    QStringList groups = LoadVTGroups();
    QStringList sorted = groups;
    sorted.sort();
    // The extension is matched without regard to case, as on the host; names are not trimmed.
    QCOMPARE(sorted, QStringList({" Padded ", ".hidden", "Archive", "Customers", "Search Results"}));
    // Directory order, not sorted: the same order as a plain listing.
    QStringList listed =
        QDir(folder.path())
            .entryList({QStringLiteral("*.gdb")}, QDir::Files | QDir::Hidden, QDir::Unsorted);
    for (QString& name : listed)
        name.chop(4);
    listed.removeIf([](const QString& n) {
        return n.toUpper() == QLatin1String("ALL GROUPS") ||
               n.toUpper() == QLatin1String("EXCLUSION LIST");
    });
    QCOMPARE(groups, listed);
}

void tst_Groups::listOfAnEmptyFolder()
{
    TempFolder folder;
    SetHostDataFolder(folder.hostPath());
    ScriptedMessageBoxes boxes;
    MessageBoxesGuard guard(&boxes);
    QVERIFY(LoadVTGroups().isEmpty());
    QVERIFY(boxes.shown().isEmpty());
}

void tst_Groups::createMakesAnEmptyGroup()
{
    TempFolder folder;
    ScriptedMessageBoxes boxes;
    MessageBoxesGuard guard(&boxes);
    QVERIFY(CreateGroup(QStringLiteral("New Group"), folder.hostPath()));
    const QString path = folder.filePath(QStringLiteral("New Group.gdb"));
    QVERIFY(GroupStore::checkFile(path));
    QVERIFY(!QFileInfo::exists(folder.filePath(QStringLiteral("New Group.vtp"))));
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT COUNT(*) FROM Recipients")),
             QStringList{"0"});
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT Name FROM Fields ORDER BY Position")).size(),
             21);
    QVERIFY(boxes.shown().isEmpty());
    SetHostDataFolder(folder.hostPath());
    QCOMPARE(LoadVTGroups(), QStringList{"New Group"});
}

void tst_Groups::createRefusesAnExistingName()
{
    TempFolder folder;
    ScriptedMessageBoxes boxes;
    MessageBoxesGuard guard(&boxes);
    folder.writeFile(QStringLiteral("Sales.gdb"), "keep me");
    QVERIFY(!CreateGroup(QStringLiteral("Sales"), folder.hostPath()));
    QCOMPARE(
        boxes.texts(),
        QStringList{
            "A Group by the name: Sales\r\nalready exists.\r\n\r\nClick OK to choose a new name"});
    QCOMPARE(boxes.shown().first().icon, MessageBoxes::Icon::Information);
    QCOMPARE(folder.readFile(QStringLiteral("Sales.gdb")), QByteArray("keep me"));
}

void tst_Groups::createReportsFailure()
{
    TempFolder folder;
    ScriptedMessageBoxes boxes;
    MessageBoxesGuard guard(&boxes);
    QVERIFY(!CreateGroup(QStringLiteral("Lost"), folder.hostPath() + QStringLiteral("missing\\")));
    QCOMPARE(boxes.shown().size(), 1);
    QCOMPARE(boxes.shown().first().icon, MessageBoxes::Icon::Critical);
    QVERIFY2(boxes.texts().first().startsWith(QLatin1String("CreateGroupError: 76 - ")),
             qPrintable(boxes.texts().first()));
}

void tst_Groups::purgeReplacesTheGroup()
{
    TempFolder folder;
    SetHostDataFolder(folder.hostPath());
    ScriptedMessageBoxes boxes;
    MessageBoxesGuard guard(&boxes);
    QVERIFY(CreateGroup(QStringLiteral("Old"), folder.hostPath()));
    const QString path = folder.filePath(QStringLiteral("Old.gdb"));
    QCOMPARE(BuildSqliteDatabase(
                 path, {QStringLiteral("INSERT INTO Recipients (EmailAddress) VALUES ('a@b.cc')")}),
             QString());
    folder.writeFile(QStringLiteral("Old.vtp"), "host data");
    QVERIFY(PurgeGroup(QStringLiteral("Old")));
    QCOMPARE(SqliteColumn(path, QStringLiteral("SELECT COUNT(*) FROM Recipients")),
             QStringList{"0"});
    QVERIFY(!QFileInfo::exists(folder.filePath(QStringLiteral("Old.vtp"))));
    QVERIFY(boxes.shown().isEmpty());
}

void tst_Groups::duplicateList_data()
{
    QTest::addColumn<QStringList>("added");
    QTest::addColumn<QString>("probe");
    QTest::addColumn<bool>("present");
    QTest::newRow("same") << QStringList{"a@x.org"} << "a@x.org" << true;
    QTest::newRow("ASCII case") << QStringList{"Ann@X.org"} << "aNN@x.ORG" << true;
    QTest::newRow("non-ASCII case") << QStringList{QString::fromUtf8("ÄNNE@MÜLLER.DE")}
                                    << QString::fromUtf8("änne@müller.de") << true;
    QTest::newRow("trailing blank differs") << QStringList{"a@x.org "} << "a@x.org" << false;
    QTest::newRow("prefix differs") << QStringList{"a@x.org"} << "a@x.or" << false;
    QTest::newRow("empty text is an entry") << QStringList{""} << "" << true;
    QTest::newRow("absent from many")
        << QStringList{"a@x.org", "b@x.org", "c@x.org"} << "d@x.org" << false;
}

void tst_Groups::duplicateList()
{
    QFETCH(QStringList, added);
    QFETCH(QString, probe);
    QFETCH(bool, present);
    DuplicateCheckList list;
    for (const QString& a : added)
        QVERIFY(list.add(a));
    QCOMPARE(list.contains(probe), present);
    QCOMPARE(list.add(probe), !present);
}

void tst_Groups::duplicateListGrowsAndEmpties()
{
    DuplicateCheckList list;
    // Enough to grow the table many times; every address must stay findable, and none
    // that was never added may look present.
    const int n = 200000;
    for (int i = 0; i < n; ++i)
        QVERIFY(list.add(QStringLiteral("Person.%1@Example.com").arg(i)));
    QCOMPARE(list.count(), n);
    for (int i = 0; i < n; i += 997)
        QVERIFY(list.contains(QStringLiteral("person.%1@example.COM").arg(i)));
    for (int i = n; i < n + 2000; ++i)
        QVERIFY(!list.contains(QStringLiteral("person.%1@example.com").arg(i)));
    QVERIFY(!list.add(QStringLiteral("PERSON.12345@EXAMPLE.COM")));
    QCOMPARE(list.count(), n);
    // Far less than a set of strings would take (about 100 bytes an address).
    QVERIFY2(list.memoryUsed() < std::size_t(n) * 60,
             qPrintable(QString::number(list.memoryUsed())));
    list.clear();
    QCOMPARE(list.count(), 0);
    QVERIFY(!list.contains(QStringLiteral("person.1@example.com")));
    QVERIFY(list.add(QStringLiteral("person.1@example.com")));
}

void tst_Groups::logFile()
{
    TempFolder folder;
    const QString path = folder.hostPath() + QStringLiteral("log.txt");
    folder.writeFile(QStringLiteral("log.txt"), "old run\r\n");
    qint16 number = -1;
    QString error;
    QVERIFY(OpenLogFile(path, number, false, error));
    QVERIFY(number > 0);
    // A second file gets another number.
    qint16 other = 0;
    QVERIFY(OpenLogFile(folder.hostPath() + QStringLiteral("other.txt"), other, false, error));
    QVERIFY(other != number);
    WriteLogLine(number, QString::fromUtf8("#   Zoë"));
    WriteLogLine(number, QStringLiteral("**  IGNORED: Duplicate email, Email=a@b.cc"));
    CloseLogFile(number);
    CloseLogFile(number); // harmless
    CloseLogFile(other);
    QCOMPARE(folder.readFile(QStringLiteral("log.txt")),
             QByteArray("#   Zo\xC3\xAB\r\n**  IGNORED: Duplicate email, Email=a@b.cc\r\n"));

    QVERIFY(OpenLogFile(path, number, true, error));
    WriteLogLine(number, QStringLiteral("more"));
    CloseLogFile(number);
    QVERIFY(folder.readFile(QStringLiteral("log.txt")).endsWith("a@b.cc\r\nmore\r\n"));

    // A path that cannot be a file.
    QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("dir.txt")));
    number = 5;
    QVERIFY(!OpenLogFile(folder.hostPath() + QStringLiteral("dir.txt"), number, false, error));
    QCOMPARE(number, qint16(0));
    QVERIFY(!error.isEmpty());
}

void tst_Groups::logWithoutNumberWritesNothing()
{
    TempFolder folder;
    WriteLogLine(0, QStringLiteral("nowhere"));
    CloseLogFile(0);
    QVERIFY(QDir(folder.path()).entryList(QDir::Files).isEmpty());
}

QTEST_GUILESS_MAIN(tst_Groups)
#include "tst_groups.moc"
