// Listing and creating Groups in a real data folder; the duplicate check list;
// the log file routines.
#include <QtTest>

#include <optional>

#include "import/duplicatelist.h"
#include "import/groups.h"
#include "import/groupstore.h"
#include "import/importlog.h"
#include "util/appglobals.h"
#include "util/scriptedmessageboxes.h"

#include "tempfolder.h"

class tst_Groups : public QObject
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

    // Enough addresses to grow the table many times: every one must stay findable, and none
    // that was never added may look present.
    void duplicateListGrowsAndEmpties()
    {
        DuplicateCheckList list;
        for (int i = 0; i < 200000; ++i)
            QVERIFY(list.add(QString("Person.%1@Example.com").arg(i)));
        QVERIFY(list.add(QString::fromUtf8("ÄNNE@MÜLLER.DE")));
        QVERIFY(!list.add(QString::fromUtf8("änne@müller.de")));
        for (int i = 0; i < 210000; i += 101)
            QCOMPARE(list.contains(QString("person.%1@example.COM").arg(i)), i < 200000);
        QVERIFY(!list.contains("person.1@example.co")); // a prefix is another address
        QCOMPARE(list.count(), 200001);
        list.clear();
        QVERIFY(list.count() == 0 && !list.contains("person.1@example.com"));
        QVERIFY(list.add("person.1@example.com"));
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

QTEST_GUILESS_MAIN(tst_Groups)
#include "tst_groups.moc"
