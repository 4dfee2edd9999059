#include "util/listcontrol.h"
#include "util/modApplication.h"
#include "util/windows1252.h"

#include "tempfolder.h"

#include <QDir>
#include <QTest>

class TestModApplication : public QObject
{
    Q_OBJECT

private slots:
    // Each character one Windows-1252 code higher; a character without one, or without a
    // successor, empties the whole string.
    void scramble()
    {
        QString inner, shifted;
        for (int c = 1; c <= 254; ++c) {
            inner += Windows1252::character(c);
            shifted += Windows1252::character(c + 1);
        }
        const QList<QPair<QString, QString>> cases = {{inner, shifted}, {"", ""},
            {"Provider=SQLite;Data Source=/x.db", "Qspwjefs>TRMjuf<Ebub!Tpvsdf>0y/ec"},
            {"€", QChar(0x0081)}, {QChar(0x007F), "€"}, {"Ÿ", QChar(0x00A0)}, {"abcÿdef", ""},
            {"abcΩ", ""}};
        for (const auto& [plain, stored] : cases) {
            QCOMPARE(ScrambleConString(plain), stored);
            if (!stored.isEmpty())
                QCOMPARE(UnscrambleConString(stored), plain);
        }
        // The reverse ends at code 0, and refuses what has no code too.
        QCOMPARE(UnscrambleConString(QString("ab") + QChar(0) + "c"), QString());
        QCOMPARE(UnscrambleConString(QString::fromUtf8("Łx")), QString());
        QCOMPARE(UnscrambleConString(QString(QChar(1))), QString(QChar(0)));
    }

    void listFilesAndFileExists()
    {
        TempFolder folder;
        for (const char* name : {"Sales.gdb", ".hidden.gdb", "UPPER.GDB", "notes.txt", "x.gdb.bak",
                                 "gdb", "two words.gdb", "sub/deeper.gdb", "left¬right.vtp"})
            folder.writeFile(name, "x");
        folder.writeFile("empty.gdb", "");
        QVERIFY(QDir(folder.path()).mkpath("folder.gdb") && QDir(folder.path()).mkpath("none"));
        // The host's folder form, with or without its closing backslash, or a native one.
        for (const QString& f : {folder.hostPath(), folder.hostPath().chopped(1), folder.path()}) {
            QStringList names{"stale"};
            QVERIFY2(ListFiles(f, "gdb", names), qPrintable(f));
            names.sort();
            QCOMPARE(names, QStringList({".hidden.gdb", "Sales.gdb", "UPPER.GDB", "empty.gdb",
                                         "two words.gdb"}));
        }
        for (const char* sub : {"none", "missing"}) {
            QStringList names{"kept"};
            QVERIFY(!ListFiles(folder.filePath(sub), "gdb", names));
            QCOMPARE(names, QStringList{"kept"});
        }
        // No folder: the current one. The host's list separator splits a name in two.
        const QString previous = QDir::currentPath();
        QVERIFY(QDir::setCurrent(folder.path()));
        QStringList names;
        const bool found = ListFiles("", "vtp", names);
        QVERIFY(QDir::setCurrent(previous));
        QVERIFY(found);
        QCOMPARE(names, QStringList({"left", "right.vtp"}));

        QVERIFY(FileExists(HostForm(folder.filePath("Sales.gdb"))));
        QVERIFY(FileExists(folder.filePath("empty.gdb")));
        for (const QString& path : {folder.filePath("b.txt"), folder.filePath("sub"), QString()})
            QVERIFY2(!FileExists(path), qPrintable(path));
    }

    void findComboItem()
    {
        StringListControl combo;
        for (const QString& item : {QString("Name"), QString("Email"), QString("NAME"), QString(),
                                    QString::fromUtf8("Strasse é")})
            combo.addItem(item);
        const QList<QPair<QString, long>> cases = {{"Email", 1}, {"EMAIL", 1}, {"name", 0},
            {"Em", -1}, {"", 3}, {QString::fromUtf8("STRASSE É"), 4}};
        for (const auto& [text, index] : cases)
            QCOMPARE(FindComboItem(combo, text), index);
    }

    void loadedForms()
    {
        QVERIFY(!IsFormLoaded("frmAddModGroup"));
        RegisterLoadedForm("frmAddModGroup");
        QVERIFY(IsFormLoaded(" FRMADDMODGROUP ") && !IsFormLoaded("frmAddMod"));
        // Two loaded instances: the name stays loaded until both are gone.
        RegisterLoadedForm("frmaddmodgroup");
        UnregisterLoadedForm("frmAddModGroup");
        QVERIFY(IsFormLoaded("frmAddModGroup"));
        UnregisterLoadedForm("frmAddModGroup");
        QVERIFY(!IsFormLoaded("frmAddModGroup"));
    }

    void shellOpen()
    {
        TempFolder folder;
        const QString log = folder.writeFile("Database Import Log File.txt", "log");
        QString opened;
        SetShellLauncher([&opened](const QString& file, const QString& verb) -> long {
            opened = file + "|" + verb;
            return 42;
        });
        QCOMPARE(ShellOpen(HostForm(log), QString(), 1, QString(), "open"), 42L);
        QCOMPARE(opened, log + "|open");
        // The desktop launcher reports a missing file as "file not found" without trying.
        SetShellLauncher({});
        QCOMPARE(ShellOpen(folder.filePath("missing.txt")), 2L);
    }
};

QTEST_GUILESS_MAIN(TestModApplication)
#include "tst_modapplication.moc"
