// The settings file as the host reads and writes it, and the host routines beside it:
// connection string scrambling, file listing, opening a file.
#include "util/apperror.h"
#include "util/modApplication.h"
#include "util/profilefile.h"
#include "util/windows1252.h"

#include "tempfolder.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <sys/stat.h>

struct IniWrite
{
    QString section, key, value;
};
using Writes = QList<IniWrite>;

static struct stat statOf(const QString& path)
{
    struct stat st = {};
    ::stat(QFile::encodeName(path).constData(), &st);
    return st;
}

class TestProfileFile : public QObject
{
    Q_OBJECT

private slots:
    void init() { ProfileFile::clearCache(); }

    void writesAreByteExact()
    {
        // before (null: no file yet), writes, after
        const QList<std::tuple<QByteArray, Writes, QByteArray>> cases = {
            {QByteArray(), {{"DSN", "DSNName1", "Contacts"}, {"DSN1", "FilterMethod", "0"},
                            {"DSN", "DSNName2", ""}, {"S", "k", " a = \"b\" "}},
             "[DSN]\r\nDSNName1=Contacts\r\nDSNName2=\r\n[DSN1]\r\nFilterMethod=0\r\n"
             "[S]\r\nk= a = \"b\" \r\n"},
            // Blank lines stay where they part two sections; lines keep their bare LF.
            {"[A]\nx=1\ny=2\n\n[B]\nz=3\n", {{"A", "y", "20"}, {"A", "w", "4"}, {"C", "v", "5"}},
             "[A]\nx=1\ny=20\r\nw=4\r\n\n[B]\nz=3\n[C]\r\nv=5\r\n"},
            {"[A]\r\n;k=0\r\nk=1\r\nk=2\r\n[B]\r\n[a]\r\nk=3\r\nonly=second\r\n",
             {{"A", "K", "9"}, {"A", "only", "first"}},
             "[A]\r\n;k=0\r\nk=9\r\nk=2\r\nonly=first\r\n[B]\r\n[a]\r\nk=3\r\nonly=second\r\n"},
            {"[A]\r\nk=1", {{"A", "m", "2"}}, "[A]\r\nk=1\r\nm=2\r\n"},
            {"[A]\r\nk=1", {{"B", "m", "2"}}, "[A]\r\nk=1\r\n[B]\r\nm=2\r\n"},
            {"[A]\r\n[B]\r\nx=1\r\n", {{"A", "k", "v"}}, "[A]\r\nk=v\r\n[B]\r\nx=1\r\n"},
            {"[S]\r\n", {{"S", "k", "first\r\nsecond=2"}, {"S", "second", "3"}},
             "[S]\r\nk=first\r\nsecond=3\r\n"},
            // What a text editor leaves: bytes Windows-1252 leaves undefined, a NUL, blanks
            // around names, a tab on the blank line that ends a section.
            {QByteArray("[O]\r\nK=\x81\x8D") + '\0' + "x\r\n  [ s ] \r\n  k = v \r\n\t\r\n[T]\r\n",
             {{"S", "K", "w"}, {"s", "n", "1"}}, QByteArray("[O]\r\nK=\x81\x8D") + '\0' +
             "x\r\n  [ s ] \r\nk=w\r\nn=1\r\n\t\r\n[T]\r\n"}};
        for (const auto& [before, writes, after] : cases) {
            TempFolder folder;
            const QString ini =
                before.isNull() ? folder.filePath("s.ini") : folder.writeFile("s.ini", before);
            QStringList kept[2]; // the copy kept from the writes reads as the file itself does
            for (const IniWrite& w : writes)
                WriteIniString(HostForm(ini), w.section, w.key, w.value);
            QCOMPARE(folder.readFile("s.ini"), after);
            for (QStringList& reads : kept) {
                for (const IniWrite& w : writes)
                    reads << ReadIniString(ini, w.section, w.key, "");
                ProfileFile::clearCache();
            }
            QCOMPARE(kept[0], kept[1]);
        }
    }

    void reads()
    {
        TempFolder folder;
        const QString ini = folder.writeFile("r.ini", "top=before any section\r\n[DSN]\r\n"
            "  Name1  =  Ann Smith  \r\nQuoted=\"  padded  \"\r\nSingle='x'\r\nHalf=\"open\r\n"
            "Equals=a=b=c\r\nEmpty=\r\nBlank=   \r\nDup=first\r\nDup=second\r\n;Commented=yes\r\n"
            "Tab=\tv\t\r\nNul=ab" + QByteArray(1, '\0') + "cd\r\nNulFirst=" + QByteArray(1, '\0') +
            "cd\r\n[ Spaced Section ]\r\nk=spaced\r\n[dsn]\r\nName1=repeated\r\nLater=hidden\r\n"
            "[LF]\nk = v \n[LF end]\nk=w");
        const QList<QStringList> cases = {{"dSn", "NAME1", "Ann Smith"},
            {"DSN", "Quoted", "  padded  "}, {"DSN", "Single", "x"}, {"DSN", "Half", "\"open"},
            {"DSN", "Equals", "a=b=c"}, {"DSN", "Empty", "-"}, {"DSN", "Blank", "-"},
            {"DSN", "Dup", "first"}, {"DSN", ";Commented", "-"}, {"DSN", "Tab", "v"},
            {"DSN", "Nul", "ab"}, {"DSN", "NulFirst", "-"},
            {"spaced section", "k", "spaced"}, {"DSN", "Later", "-"}, {"", "top", "-"},
            {"DSN", "Nope", "-"}, {"Nope", "Name1", "-"}, {"lf", "K", "v"}, {"LF END", "k", "w"}};
        for (const QStringList& c : cases)
            QCOMPARE(c.at(0) + '|' + c.at(1) + '=' + ReadIniString(ini, c.at(0), c.at(1), "-"),
                     c.at(0) + '|' + c.at(1) + '=' + c.at(2));
        QCOMPARE(ReadIniString(folder.filePath("absent.ini"), "DSN", "Name1", "-"), QString("-"));
    }

    void everyWindows1252CharacterRoundTrips()
    {
        QByteArray all;
        for (int c = 0x21; c <= 0xFF; ++c)
            all += char(c);
        TempFolder folder;
        const QString decoded =
            ReadIniString(folder.writeFile("in.ini", "[S]\r\nk=" + all + "\r\n"), "S", "k", "");
        QCOMPARE(decoded.size(), all.size());
        QCOMPARE(decoded.mid(0x80 - 0x21, 2) + decoded.at(0x9F - 0x21),
                 QString::fromUtf8("€\u0081Ÿ"));
        WriteIniString(folder.filePath("out.ini"), "S", "k", decoded);
        QCOMPARE(folder.readFile("out.ini"), "[S]\r\nk=" + all + "\r\n");
    }

    // Refused before anything is written, naming the file and the character.
    void refusedWrites()
    {
        TempFolder folder;
        const QByteArray before = "; mine\r\n[DSN]\r\nDSNName1=Ann\r\n";
        const QString ini = folder.writeFile("dbimport.ini", before);
        const ino_t inode = statOf(ini).st_ino;
        QDir(folder.path()).mkdir("sub.ini");
        const QString encoding = QString::number(AppError::Encoding);
        const QList<QStringList> cases = {{ini, "DSN", "DSNName1", "Łódź", "Ł", encoding},
            {ini, "DSN", "k", "ok 😀", "😀", encoding},
            {ini, "DSN", "k", QString(QChar(0x80)), QChar(0x80), encoding},
            {ini, "Ωmega", "k", "v", "Ω", encoding}, {ini, "DSN", "ключ", "v", "к", encoding},
            {folder.filePath("no/such/folder/x.ini"), "S", "k", "v", "does not exist",
             QString::number(AppError::PathNotFound)},
            {folder.filePath("sub.ini"), "S", "k", "v", "is not a file",
             QString::number(AppError::PathFileAccess)}};
        for (const QStringList& c : cases) {
            try {
                WriteIniString(HostForm(c.at(0)), c.at(1), c.at(2), c.at(3));
                QFAIL(qPrintable("accepted " + c.join('|')));
            } catch (const AppError& e) {
                for (const QString& part : {c.at(4), c.at(0)})
                    QVERIFY2(e.description().contains(part), qPrintable(e.description()));
                QCOMPARE(QString::number(e.number()), c.at(5));
            }
        }
        QCOMPARE(folder.readFile("dbimport.ini"), before);
        QCOMPARE(statOf(ini).st_ino, inode);
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{"dbimport.ini"});
        QVERIFY(!QFile::exists(folder.filePath("no")));
    }

    void changesByOthersAreSeen()
    {
        TempFolder folder;
        const QString ini = folder.writeFile("dbimport.ini", "[S]\r\nk=one\r\n");
        const QDateTime later = QFileInfo(ini).lastModified().addSecs(1);
        const auto touch = [&later](const QString& path) {
            QFile f(path);
            return f.open(QIODevice::ReadWrite) &&
                   f.setFileTime(later, QFileDevice::FileModificationTime);
        };
        QCOMPARE(ReadIniString(ini, "S", "k", ""), QString("one"));
        // Same size, rewritten in place a moment later.
        folder.writeFile("dbimport.ini", "[S]\r\nk=two\r\n");
        QVERIFY(touch(ini));
        QCOMPARE(ReadIniString(ini, "S", "k", ""), QString("two"));
        // Same size and time, but another file renamed over it (another editor's save).
        const QString other = folder.writeFile("other.tmp", "[S]\r\nk=six\r\n");
        QVERIFY(touch(other));
        QVERIFY(::rename(QFile::encodeName(other).constData(),
                         QFile::encodeName(ini).constData()) == 0);
        QCOMPARE(ReadIniString(ini, "S", "k", ""), QString("six"));
        QVERIFY(QFile::remove(ini));
        QCOMPARE(ReadIniString(ini, "S", "k", "gone"), QString("gone"));
    }

    // In a batch the writes change the kept copy, which reads see at once; the file is
    // replaced once, at the outermost commit, with the bytes the writes one by one give.
    // The new file is renamed over the old one and keeps its mode.
    void batchWritesTheFileOnce()
    {
        TempFolder folder;
        const QByteArray before = "; kept\r\n[DSN]\r\nDSNName1=Ann\r\n\r\n[Other]\r\nx=1\r\n";
        const QString single = folder.writeFile("single.ini", before);
        const QString batched = folder.writeFile("batched.ini", before);
        QVERIFY(::chmod(QFile::encodeName(batched).constData(), 0640) == 0);
        const Writes writes = {{"DSN", "DSNName1", ""}, {"DSN", "DSNName2", "Bob"},
                               {"FieldMap1", "VTField1", "Email"}, {"other", "X", "2"},
                               {"DSN", "dsnname2", "Bill"}, {"FieldMap1", "DBField1", "Mail"}};
        for (const IniWrite& w : writes)
            WriteIniString(single, w.section, w.key, w.value);
        QFile reader(batched);
        QVERIFY(reader.open(QIODevice::ReadOnly));
        {
            ProfileFile::WriteBatch batch(batched);
            {
                ProfileFile::WriteBatch inner(batched);
                for (const IniWrite& w : writes)
                    WriteIniString(batched, w.section, w.key, w.value);
                inner.commit();
            }
            QCOMPARE(folder.readFile("batched.ini"), before);
            QCOMPARE(ReadIniString(batched, "DSN", "DSNName2", ""), QString("Bill"));
            QCOMPARE(ReadIniString(batched, "DSN", "DSNName1", "gone"), QString("gone"));
            // Bad text is refused at once, and what came before stays pending.
            QVERIFY_THROWS_EXCEPTION(AppError, WriteIniString(batched, "DSN", "k", "Ł"));
            batch.commit();
            QCOMPARE(folder.readFile("batched.ini"), folder.readFile("single.ini"));
            QCOMPARE(reader.readAll(), before);
            QCOMPARE(statOf(batched).st_mode & 0777, mode_t(0640));
            // Later writes in the same batch go to the file at the next commit.
            WriteIniString(batched, "DSN", "DSNName3", "Cy");
        }
        QVERIFY(folder.readFile("batched.ini").contains("DSNName3=Cy\r\n"));
        // Without a batch every write goes straight to the file again.
        WriteIniString(batched, "Other", "x", "3");
        QCOMPARE(folder.readFile("batched.ini"), "; kept\r\n[DSN]\r\nDSNName1=\r\nDSNName2=Bill\r\n"
                 "DSNName3=Cy\r\n\r\n[Other]\r\nx=3\r\n[FieldMap1]\r\nVTField1=Email\r\n"
                 "DBField1=Mail\r\n");
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden),
                 QStringList({"batched.ini", "single.ini"}));

        // A commit that cannot replace the file (now a folder) leaves the file as it is.
        ProfileFile::WriteBatch failing(single);
        WriteIniString(single, "S", "k", "new");
        QVERIFY(QFile::remove(single) && QDir().mkdir(single));
        QVERIFY_THROWS_EXCEPTION(AppError, failing.commit());
        QCOMPARE(ReadIniString(single, "S", "k", "none"), QString("none"));
    }

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

    // The desktop launcher reports a missing file as "file not found" without trying (that
    // the engine's own launcher gets the native path: tst_importengine).
    void shellOpenOfMissingFile()
    {
        TempFolder folder;
        SetShellLauncher({});
        QCOMPARE(ShellOpen(folder.filePath("missing.txt")), 2L);
    }
};

QTEST_GUILESS_MAIN(TestProfileFile)
#include "tst_profilefile.moc"
