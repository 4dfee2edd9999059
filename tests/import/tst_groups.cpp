// Listing, creating and purging Groups in a real data folder; the duplicate check list;
// the log file routines.
#include <QtTest>

#include "import/duplicatelist.h"
#include "import/groups.h"
#include "import/groupstore.h"
#include "import/importlog.h"
#include "util/appglobals.h"
#include "util/scriptedmessageboxes.h"

#include "datarow.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

class tst_Groups : public QObject
{
    Q_OBJECT

private slots:
    void listSkipsTheHostsOwnLists()
    {
        TempFolder folder;
        SetHostDataFolder(folder.hostPath());
        ScriptedMessageBoxes boxes;
        MessageBoxesGuard guard(&boxes);
        QVERIFY(LoadVTGroups().isEmpty());
        for (const char* name : {"Customers.gdb", "All Groups.gdb", "exclusion list.gdb",
                                 "EXCLUSION LIST.gdb", "Search Results.gdb", ".hidden.gdb",
                                 " Padded .gdb", "Customers.vtp", "notes.txt", "Archive.GDB"})
            folder.writeFile(name, "x");
        const QStringList groups = LoadVTGroups();
        QVERIFY(boxes.shown().isEmpty());
        // The extension is matched without regard to case, as on the host; names are not trimmed;
        // the order is the directory's own, as a plain listing gives it.
        QStringList listed =
            QDir(folder.path()).entryList({"*.gdb"}, QDir::Files | QDir::Hidden, QDir::Unsorted);
        for (QString& name : listed)
            name.chop(4);
        listed.removeIf([](const QString& n) {
            return n.toUpper() == "ALL GROUPS" || n.toUpper() == "EXCLUSION LIST";
        });
        QCOMPARE(groups, listed);
        QStringList sorted = groups;
        sorted.sort();
        QCOMPARE(sorted,
                 QStringList({" Padded ", ".hidden", "Archive", "Customers", "Search Results"}));
    }

    void create_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("subfolder");
        QTest::addColumn<QString>("message"); // empty: created
        QTest::addColumn<int>("icon");
        const int info = int(MessageBoxes::Icon::Information);
        DataRow("new", "New Group", "", "", 0);
        DataRow("exists", "Sales", "",
                "A Group by the name: Sales\r\nalready exists.\r\n\r\n"
                "Click OK to choose a new name",
                info);
        DataRow("no such folder", "Lost", "missing\\", "CreateGroupError: 76 - ",
                int(MessageBoxes::Icon::Critical));
    }

    void create()
    {
        QFETCH(QString, name);
        QFETCH(QString, subfolder);
        QFETCH(QString, message);
        QFETCH(int, icon);
        TempFolder folder;
        SetHostDataFolder(folder.hostPath());
        ScriptedMessageBoxes boxes;
        MessageBoxesGuard guard(&boxes);
        folder.writeFile("Sales.gdb", "keep me");
        QCOMPARE(CreateGroup(name, folder.hostPath() + subfolder), message.isEmpty());
        QCOMPARE(folder.readFile("Sales.gdb"), QByteArray("keep me"));
        if (message.isEmpty()) {
            const QString path = folder.filePath(name + ".gdb");
            QVERIFY(GroupStore::checkFile(path));
            QVERIFY(!QFileInfo::exists(folder.filePath(name + ".vtp")));
            QCOMPARE(SqliteColumn(path, "SELECT COUNT(*) FROM Recipients"), QStringList{"0"});
            QCOMPARE(SqliteColumn(path, "SELECT COUNT(*) FROM Fields"), QStringList{"21"});
            QVERIFY(boxes.shown().isEmpty());
            QVERIFY(LoadVTGroups().contains(name));
            return;
        }
        QCOMPARE(boxes.shown().size(), 1);
        QCOMPARE(int(boxes.shown().first().icon), icon);
        QVERIFY2(boxes.texts().first().startsWith(message), qPrintable(boxes.texts().first()));
    }

    void purgeReplacesTheGroup()
    {
        TempFolder folder;
        SetHostDataFolder(folder.hostPath());
        ScriptedMessageBoxes boxes;
        MessageBoxesGuard guard(&boxes);
        QVERIFY(CreateGroup("Old", folder.hostPath()));
        const QString path = folder.filePath("Old.gdb");
        QCOMPARE(
            BuildSqliteDatabase(path, {"INSERT INTO Recipients (EmailAddress) VALUES ('a@b.cc')"}),
            QString());
        folder.writeFile("Old.vtp", "host data");
        QVERIFY(PurgeGroup("Old"));
        QCOMPARE(SqliteColumn(path, "SELECT COUNT(*) FROM Recipients"), QStringList{"0"});
        QVERIFY(GroupStore::checkFile(path));
        QVERIFY(!QFileInfo::exists(folder.filePath("Old.vtp")));
        QVERIFY(boxes.shown().isEmpty());
    }

    void duplicateList_data()
    {
        QTest::addColumn<QStringList>("added");
        QTest::addColumn<QString>("probe");
        QTest::addColumn<bool>("present");
        DataRow("same", QStringList{"a@x.org"}, "a@x.org", true);
        DataRow("ASCII case", QStringList{"Ann@X.org"}, "aNN@x.ORG", true);
        DataRow("non-ASCII case", QStringList{QString::fromUtf8("ÄNNE@MÜLLER.DE")},
                QString::fromUtf8("änne@müller.de"), true);
        DataRow("trailing blank differs", QStringList{"a@x.org "}, "a@x.org", false);
        DataRow("prefix differs", QStringList{"a@x.org"}, "a@x.or", false);
        DataRow("empty text is an entry", QStringList{""}, "", true);
        DataRow("absent from many", QStringList{"a@x.org", "b@x.org", "c@x.org"}, "d@x.org", false);
    }

    void duplicateList()
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

    void duplicateListGrowsAndEmpties()
    {
        // Enough to grow the table many times; every address must stay findable, and none
        // that was never added may look present.
        DuplicateCheckList list;
        const int n = 200000;
        for (int i = 0; i < n; ++i)
            QVERIFY(list.add(QString("Person.%1@Example.com").arg(i)));
        QCOMPARE(list.count(), n);
        for (int i = 0; i < n; i += 997)
            QVERIFY(list.contains(QString("person.%1@example.COM").arg(i)));
        for (int i = n; i < n + 2000; ++i)
            QVERIFY(!list.contains(QString("person.%1@example.com").arg(i)));
        QVERIFY(!list.add("PERSON.12345@EXAMPLE.COM"));
        QCOMPARE(list.count(), n);
        list.clear();
        QCOMPARE(list.count(), 0);
        QVERIFY(!list.contains("person.1@example.com"));
        QVERIFY(list.add("person.1@example.com"));
    }

    void logFile()
    {
        TempFolder folder;
        const QString path = folder.hostPath() + "log.txt";
        folder.writeFile("log.txt", "old run\r\n");
        qint16 number = -1, other = 0;
        QString error;
        QVERIFY(OpenLogFile(path, number, false, error));
        QVERIFY(OpenLogFile(folder.hostPath() + "other.txt", other, false, error));
        QVERIFY(number > 0 && other > 0 && other != number);
        WriteLogLine(number, QString::fromUtf8("#   Zoë"));
        WriteLogLine(number, "**  IGNORED: Duplicate email, Email=a@b.cc");
        CloseLogFile(number);
        CloseLogFile(number); // harmless
        CloseLogFile(other);
        WriteLogLine(0, "nowhere"); // no file: nothing happens
        QCOMPARE(folder.readFile("log.txt"),
                 QByteArray("#   Zo\xC3\xAB\r\n**  IGNORED: Duplicate email, Email=a@b.cc\r\n"));
        QVERIFY(OpenLogFile(path, number, true, error));
        WriteLogLine(number, "more");
        CloseLogFile(number);
        QVERIFY(folder.readFile("log.txt").endsWith("a@b.cc\r\nmore\r\n"));
        // A path that cannot be a file.
        QVERIFY(QDir(folder.path()).mkdir("dir.txt"));
        number = 5;
        QVERIFY(!OpenLogFile(folder.hostPath() + "dir.txt", number, false, error));
        QCOMPARE(number, qint16(0));
        QVERIFY(!error.isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_Groups)
#include "tst_groups.moc"
