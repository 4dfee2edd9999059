#include "util/apperror.h"
#include "util/listcontrol.h"
#include "util/modApplication.h"
#include "util/scriptedmessageboxes.h"
#include "util/windows1252.h"

#include "tempfolder.h"

#include <QDir>
#include <QTest>

#include <dirent.h>

// The names in the order the directory gives them.
static QStringList directoryOrder(const QString& folder)
{
    QStringList names;
    DIR* dir = ::opendir(QFile::encodeName(folder).constData());
    while (dirent* e = dir ? ::readdir(dir) : nullptr)
        names << QFile::decodeName(e->d_name);
    if (dir)
        ::closedir(dir);
    return names;
}

namespace {
class BrokenList final : public ListControl
{
public:
    void clear() override {}
    void addItem(const QString&) override {}
    int count() const override { return 0; }
    QString itemText(int) const override { return QString(); }
    int currentIndex() const override { return -1; }
    void setCurrentIndex(int) override {}
    int findExact(const QString&) const override
    {
        throw AppError(AppError::InvalidProcedureCall, "Invalid procedure call or argument");
    }
};
} // namespace

class TestModApplication : public QObject
{
    Q_OBJECT

private slots:
    void windows1252Codes_data()
    {
        QTest::addColumn<int>("unicode");
        QTest::addColumn<int>("code"); // -1: none

        const QList<QPair<int, int>> rows = {{0x0000, 0x00}, {0x007F, 0x7F}, {0x20AC, 0x80},
            {0x0081, 0x81}, {0x009D, 0x9D}, {0x0160, 0x8A}, {0x0178, 0x9F}, {0x00A0, 0xA0},
            {0x00FF, 0xFF}, {0x0080, -1}, {0x009F, -1}, {0x03A9, -1}};
        for (const auto& [unicode, code] : rows)
            QTest::addRow("U+%04X", unicode) << unicode << code;
    }

    void windows1252Codes()
    {
        QFETCH(int, unicode);
        QFETCH(int, code);
        QCOMPARE(Windows1252::code(QChar(char16_t(unicode))), code);
        if (code >= 0)
            QCOMPARE(int(Windows1252::character(code).unicode()), unicode);
    }

    void scramble_data()
    {
        QTest::addColumn<QString>("plain");
        QTest::addColumn<QString>("stored"); // empty: refused

        QTest::newRow("letters") << "Provider=SQLite;Data Source=/x.db" << "Qspwjefs>TRMjuf<Ebub!Tpvsdf>0y/ec";
        QTest::newRow("empty") << "" << "";
        QTest::newRow("euro to undefined") << "€" << QString(QChar(0x0081));
        QTest::newRow("into the euro") << QString(QChar(0x007F)) << "€";
        QTest::newRow("across C1") << "Ÿ" << QString(QChar(0x00A0));
        QTest::newRow("code 254") << "þ" << "ÿ";
        QTest::newRow("code 255 empties all") << "abcÿdef" << QString();
        QTest::newRow("no code empties all") << "abcΩ" << QString();
    }

    void scramble()
    {
        QFETCH(QString, plain);
        QFETCH(QString, stored);
        QCOMPARE(ScrambleConString(plain), stored);
        if (!stored.isEmpty())
            QCOMPARE(UnscrambleConString(stored), plain);

        // The reverse ends at code 0, and refuses what has no code too.
        QCOMPARE(UnscrambleConString(QString("ab") + QChar(0) + "c"), QString());
        QCOMPARE(UnscrambleConString(QString::fromUtf8("Łx")), QString());
        QCOMPARE(UnscrambleConString(QString(QChar(1))), QString(QChar(0)));
    }

    void scrambleRoundTripsEveryInnerCode()
    {
        QString all;
        for (int c = 1; c <= 254; ++c)
            all += Windows1252::character(c);
        const QString stored = ScrambleConString(all);
        QCOMPARE(stored.size(), all.size());
        for (int i = 0; i < all.size(); ++i)
            QCOMPARE(Windows1252::code(stored.at(i)), Windows1252::code(all.at(i)) + 1);
        QCOMPARE(UnscrambleConString(stored), all);
    }

    void listFiles()
    {
        TempFolder folder;
        for (const char* name : {"Sales.gdb", ".hidden.gdb", "UPPER.GDB", "notes.txt", "x.gdb.bak",
                                 "gdb", "two words.gdb"})
            folder.writeFile(name, "x");
        QVERIFY(QDir(folder.path()).mkdir("folder.gdb"));

        QStringList expected;
        for (const QString& name : directoryOrder(folder.path())) {
            if (name.endsWith(".gdb", Qt::CaseInsensitive) && name != "folder.gdb")
                expected << name;
        }
        QCOMPARE(expected.size(), 4);

        for (const QString& f : {folder.hostPath(), folder.hostPath().chopped(1), folder.path()}) {
            QStringList names{"stale"};
            QVERIFY2(ListFiles(f, "gdb", names), qPrintable(f));
            QCOMPARE(names, expected);
        }
    }

    void listFilesInTheCurrentFolder()
    {
        TempFolder folder;
        folder.writeFile("here.vtp", "x");
        folder.writeFile(".also.vtp", "x");
        folder.writeFile("left¬right.vtp", "x");
        const QString previous = QDir::currentPath();
        QVERIFY(QDir::setCurrent(folder.path()));
        QStringList names;
        const bool found = ListFiles("", "vtp", names);
        QVERIFY(QDir::setCurrent(previous));
        QVERIFY(found);
        names.sort();
        // The host's list separator splits a name in two.
        QCOMPARE(names, QStringList({".also.vtp", "here.vtp", "left", "right.vtp"}));
    }

    void listFilesFindsNothing_data()
    {
        QTest::addColumn<QString>("sub");
        QTest::newRow("empty folder") << "empty";
        QTest::newRow("other extensions") << "other";
        QTest::newRow("missing folder") << "missing";
    }

    void listFilesFindsNothing()
    {
        QFETCH(QString, sub);
        TempFolder folder;
        QDir(folder.path()).mkdir("empty");
        folder.writeFile("other/a.txt", "x");
        folder.writeFile("other/b.gdbx", "x");
        QStringList names{"kept", "as is"};
        QVERIFY(!ListFiles(folder.filePath(sub), "gdb", names));
        QCOMPARE(names, QStringList({"kept", "as is"}));
    }

    void fileExists_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("host");
        QTest::addColumn<bool>("exists");

        QTest::newRow("file, host form") << "a.txt" << true << true;
        QTest::newRow("empty file") << "empty.txt" << false << true;
        QTest::newRow("missing") << "b.txt" << false << false;
        QTest::newRow("folder") << "sub" << false << false;
        QTest::newRow("empty path") << "" << false << false;
    }

    void fileExists()
    {
        QFETCH(QString, name);
        QFETCH(bool, host);
        QFETCH(bool, exists);
        TempFolder folder;
        folder.writeFile("a.txt", "abc");
        folder.writeFile("empty.txt", "");
        folder.writeFile("sub/x", "x");
        const QString path = name.isEmpty() ? QString() : folder.filePath(name);
        QCOMPARE(FileExists(host ? HostForm(path) : path), exists);
    }

    void shortNamesDoNotExist()
    {
        TempFolder folder;
        const QString file = folder.writeFile("A Long Table Name.dbf", "x");
        QCOMPARE(GetShortName(file), QString());
        QCOMPARE(GetShortName(HostForm(file)), QString());
    }

    void findComboItem_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<long>("index");

        QTest::newRow("exact") << "Email" << 1L;
        QTest::newRow("other case") << "EMAIL" << 1L;
        QTest::newRow("first of equal entries") << "name" << 0L;
        QTest::newRow("beginning only") << "Em" << -1L;
        QTest::newRow("blank entry") << "" << 3L;
        QTest::newRow("accented letters") << QString::fromUtf8("STRASSE É") << 4L;
    }

    void findComboItem()
    {
        QFETCH(QString, text);
        QFETCH(long, index);
        StringListControl combo;
        for (const QString& item : {QString("Name"), QString("Email"), QString("NAME"), QString(),
                                    QString::fromUtf8("Strasse é")})
            combo.addItem(item);
        QCOMPARE(FindComboItem(combo, text), index);
    }

    void findComboItemReportsErrors()
    {
        ScriptedMessageBoxes boxes;
        MessageBoxesGuard guard(&boxes);
        BrokenList list;
        QCOMPARE(FindComboItem(list, "x"), -1L);
        QCOMPARE(boxes.shown().size(), 1);
        QCOMPARE(boxes.shown().at(0).icon, MessageBoxes::Icon::Critical);
        QCOMPARE(boxes.shown().at(0).text, "5 - Invalid procedure call or argument - FindComboItem");
    }

    void loadedForms()
    {
        QVERIFY(!IsFormLoaded("frmAddModGroup"));
        RegisterLoadedForm("frmAddModGroup");
        QVERIFY(IsFormLoaded(" frmAddModGroup "));
        QVERIFY(IsFormLoaded("FRMADDMODGROUP"));
        QVERIFY(!IsFormLoaded("frmAddMod"));
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
        QStringList opened;
        SetShellLauncher([&opened](const QString& file, const QString& verb) -> long {
            opened << file + "|" + verb;
            return 42;
        });
        QCOMPARE(ShellOpen(HostForm(log)), 42L);
        QCOMPARE(ShellOpen(log, QString(), 1, QString(), "open"), 42L);
        QCOMPARE(opened, QStringList({log + "|", log + "|open"}));

        // The desktop launcher reports a missing file as "file not found" without trying.
        SetShellLauncher({});
        QCOMPARE(ShellOpen(folder.filePath("missing.txt")), 2L);
    }
};

QTEST_GUILESS_MAIN(TestModApplication)
#include "tst_modapplication.moc"
