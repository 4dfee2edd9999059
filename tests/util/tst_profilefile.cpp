#include "util/apperror.h"
#include "util/modApplication.h"
#include "util/profilefile.h"

#include "tempfolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <sys/stat.h>

// One write to apply: section, key, value.
struct IniWrite
{
    QString section, key, value;
};
Q_DECLARE_METATYPE(QList<IniWrite>)

class TestProfileFile : public QObject
{
    Q_OBJECT

private slots:
    void init() { ProfileFile::clearCache(); }

    void newFileHoldsExactlyTheWrites();
    void writesAreByteExact_data();
    void writesAreByteExact();
    void reads_data();
    void reads();
    void readIniStringBuffer_data();
    void readIniStringBuffer();
    void everyWindows1252CharacterRoundTrips();
    void textOutsideWindows1252IsRefused_data();
    void textOutsideWindows1252IsRefused();
    void unwritablePlacesAreRefused();
    void writeReplacesTheFileAtomically();
    void newFileIsPrivateAndExistingModeKept();
    void changesByOthersAreSeen();
    void hostFormPathsReachTheSameFile();
    void batchWritesTheFileOnce();
    void batchesNest();
    void batchCreatesAPrivateFileOnlyOnCommit();
    void batchCommitFailureLeavesTheFile();
};

static quint64 inodeOf(const QString& path)
{
    struct stat st;
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_ino : 0;
}

void TestProfileFile::newFileHoldsExactlyTheWrites()
{
    TempFolder folder;
    const QString ini = folder.filePath("dbimport.ini");
    WriteIniString(ini, "DSN", "DSNName1", "Contacts");
    WriteIniString(ini, "DSN", "DSNString1", "Qspwjefs>TRMjuf<");
    WriteIniString(ini, "DSN1", "FilterMethod", "0");
    WriteIniString(ini, "DSN", "DSNName2", "");
    QCOMPARE(folder.readFile("dbimport.ini"),
             QByteArray("[DSN]\r\nDSNName1=Contacts\r\nDSNString1=Qspwjefs>TRMjuf<\r\n"
                        "DSNName2=\r\n[DSN1]\r\nFilterMethod=0\r\n"));
    QCOMPARE(ReadIniString(ini, "dsn", "dsnname1", "x"), QString("Contacts"));
    QCOMPARE(ReadIniString(ini, "DSN1", "FilterMethod", "x"), QString("0"));
}

void TestProfileFile::writesAreByteExact_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QList<IniWrite>>("writes");
    QTest::addColumn<QByteArray>("after");

    const QByteArray handEdited = "; settings of the import\r\n"
                                  "stray line before any section\r\n"
                                  "\r\n"
                                  "  [ DSN ]  \r\n"
                                  "   DSNName1   =   Contacts  \r\n"
                                  "; a comment inside\r\n"
                                  "garbage without equals\r\n"
                                  "DSNString1=abc\r\n"
                                  "\r\n"
                                  "\r\n"
                                  "[Unknown]\r\n"
                                  "Whatever = kept\r\n"
                                  "\t\r\n"
                                  "[FieldMap1]\r\n"
                                  "Email=Mail";
    QTest::newRow("hand-edited file keeps every other line")
        << handEdited
        << QList<IniWrite>{{"DSN", "DSNName1", "Clients"},
                           {"dsn", "DSNName2", "New"},
                           {"FIELDMAP1", "Title", ""},
                           {"Rules1", "Count", "2"}}
        << QByteArray("; settings of the import\r\n"
                      "stray line before any section\r\n"
                      "\r\n"
                      "  [ DSN ]  \r\n"
                      "DSNName1=Clients\r\n"
                      "; a comment inside\r\n"
                      "garbage without equals\r\n"
                      "DSNString1=abc\r\n"
                      "DSNName2=New\r\n"
                      "\r\n"
                      "\r\n"
                      "[Unknown]\r\n"
                      "Whatever = kept\r\n"
                      "\t\r\n"
                      "[FieldMap1]\r\n"
                      "Email=Mail\r\n"
                      "Title=\r\n"
                      "[Rules1]\r\n"
                      "Count=2\r\n");
    QTest::newRow("key keeps its spelling, names compare without case")
        << QByteArray("[dsn]\r\ndsnname1=old\r\n") << QList<IniWrite>{{"DSN", "DSNNAME1", "new"}}
        << QByteArray("[dsn]\r\ndsnname1=new\r\n");
    QTest::newRow("bare LF lines kept, written lines end in CR LF")
        << QByteArray("[A]\nx=1\ny=2\n\n[B]\nz=3\n")
        << QList<IniWrite>{{"A", "y", "20"}, {"A", "w", "4"}, {"C", "v", "5"}}
        << QByteArray("[A]\nx=1\ny=20\r\nw=4\r\n\n[B]\nz=3\n[C]\r\nv=5\r\n");
    QTest::newRow("first of duplicated sections and keys is written")
        << QByteArray("[A]\r\nk=1\r\nk=2\r\n[B]\r\n[a]\r\nk=3\r\nonly=second\r\n")
        << QList<IniWrite>{{"A", "K", "9"}, {"A", "only", "first"}}
        << QByteArray("[A]\r\nk=9\r\nk=2\r\nonly=first\r\n[B]\r\n[a]\r\nk=3\r\nonly=second\r\n");
    QTest::newRow("last line without line end")
        << QByteArray("[A]\r\nk=1") << QList<IniWrite>{{"A", "m", "2"}}
        << QByteArray("[A]\r\nk=1\r\nm=2\r\n");
    QTest::newRow("new section after a last line without line end")
        << QByteArray("[A]\r\nk=1") << QList<IniWrite>{{"B", "m", "2"}}
        << QByteArray("[A]\r\nk=1\r\n[B]\r\nm=2\r\n");
    QTest::newRow("value with blanks, quotes and equals signs written as given")
        << QByteArray() << QList<IniWrite>{{"S", "k", " a = \"b\" "}}
        << QByteArray("[S]\r\nk= a = \"b\" \r\n");
    QTest::newRow("empty section keeps its place")
        << QByteArray("[A]\r\n[B]\r\nx=1\r\n") << QList<IniWrite>{{"A", "k", "v"}}
        << QByteArray("[A]\r\nk=v\r\n[B]\r\nx=1\r\n");
    QTest::newRow("a commented-out key is not the key")
        << QByteArray("[A]\r\n;k=old\r\n") << QList<IniWrite>{{"A", "k", "new"}}
        << QByteArray("[A]\r\n;k=old\r\nk=new\r\n");
    QTest::newRow("line break inside a value makes more lines")
        << QByteArray("[S]\r\n")
        << QList<IniWrite>{{"S", "k", "first\r\nsecond=2"}, {"S", "second", "3"}}
        << QByteArray("[S]\r\nk=first\r\nsecond=3\r\n");
    QTest::newRow("Windows-1252 bytes")
        << QByteArray() << QList<IniWrite>{{"S", "k", QString::fromUtf8("€ café ÿ")}}
        << QByteArray("[S]\r\nk=\x80 caf\xe9 \xff\r\n");
}

void TestProfileFile::writesAreByteExact()
{
    QFETCH(QByteArray, before);
    QFETCH(QList<IniWrite>, writes);
    QFETCH(QByteArray, after);
    TempFolder folder;
    const QString ini = folder.filePath("settings.ini");
    if (!before.isNull())
        folder.writeFile("settings.ini", before);
    for (const IniWrite& w : writes)
        WriteIniString(ini, w.section, w.key, w.value);
    QCOMPARE(folder.readFile("settings.ini"), after);

    // The copy kept from the writes reads as the file itself does.
    QStringList kept, fresh;
    for (const IniWrite& w : writes)
        kept << ProfileFile::read(ini, w.section, w.key);
    ProfileFile::clearCache();
    for (const IniWrite& w : writes)
        fresh << ProfileFile::read(ini, w.section, w.key);
    QCOMPARE(kept, fresh);
}

void TestProfileFile::reads_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected"); // "<null>" when absent

    const QByteArray file = "top=before any section\r\n"
                            "[DSN]\r\n"
                            "  Name1  =  Ann Smith  \r\n"
                            "Quoted=\"  padded  \"\r\n"
                            "Single='x'\r\n"
                            "Half=\"open\r\n"
                            "Equals=a=b=c\r\n"
                            "Empty=\r\n"
                            "Dup=first\r\n"
                            "Dup=second\r\n"
                            ";Commented=yes\r\n"
                            "Tab=\tv\t\r\n"
                            "[ Spaced Section ]\r\n"
                            "k=spaced\r\n"
                            "[dsn]\r\n"
                            "Name1=from the repeated section\r\n"
                            "OnlyLater=hidden\r\n"
                            "[Bytes]\r\n"
                            "Euro=\x80\x81\x9f\xa0\xff\r\n";
    QTest::newRow("blanks around key and value") << file << "DSN"
                                                 << "name1"
                                                 << "Ann Smith";
    QTest::newRow("section case") << file << "dSn"
                                  << "NAME1"
                                  << "Ann Smith";
    QTest::newRow("matching quotes taken off") << file << "DSN"
                                               << "Quoted"
                                               << "  padded  ";
    QTest::newRow("single quotes") << file << "DSN"
                                   << "Single"
                                   << "x";
    QTest::newRow("unmatched quote kept") << file << "DSN"
                                          << "Half"
                                          << "\"open";
    QTest::newRow("equals in value") << file << "DSN"
                                     << "Equals"
                                     << "a=b=c";
    QTest::newRow("empty value") << file << "DSN"
                                 << "Empty"
                                 << "";
    QTest::newRow("first duplicate key") << file << "DSN"
                                         << "Dup"
                                         << "first";
    QTest::newRow("comment is no key") << file << "DSN"
                                       << "Commented"
                                       << "<null>";
    QTest::newRow(";key is no key either") << file << "DSN"
                                           << ";Commented"
                                           << "<null>";
    QTest::newRow("tabs trimmed") << file << "DSN"
                                  << "Tab"
                                  << "v";
    QTest::newRow("blanks in section line") << file << "spaced section"
                                            << "k"
                                            << "spaced";
    QTest::newRow("keys of a repeated section are not seen") << file << "DSN"
                                                             << "OnlyLater"
                                                             << "<null>";
    QTest::newRow("line before any section") << file << ""
                                             << "top"
                                             << "<null>";
    QTest::newRow("missing key") << file << "DSN"
                                 << "Nope"
                                 << "<null>";
    QTest::newRow("missing section") << file << "Nope"
                                     << "Name1"
                                     << "<null>";
    QTest::newRow("Windows-1252 decoding") << file << "Bytes"
                                           << "Euro" << QString::fromUtf8("€\u0081Ÿ\u00a0ÿ");
    QTest::newRow("bare LF file") << QByteArray("[A]\nk = v \n[B]\nk=w\n") << "B"
                                  << "K"
                                  << "w";
    QTest::newRow("bare LF file, no last line end") << QByteArray("[A]\nk=v") << "A"
                                                    << "k"
                                                    << "v";
}

void TestProfileFile::reads()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, section);
    QFETCH(QString, key);
    QFETCH(QString, expected);
    TempFolder folder;
    const QString ini = folder.writeFile("r.ini", content);
    const QString value = ProfileFile::read(ini, section, key);
    QCOMPARE(value.isNull() ? QString("<null>") : value, expected);
}

void TestProfileFile::readIniStringBuffer_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("expected");

    QTest::newRow("511 characters kept") << QByteArray(511, 'a') << QString(511, 'a');
    QTest::newRow("512 cut to 511") << QByteArray(511, 'a') + 'b' << QString(511, 'a');
    QTest::newRow("long value cut") << QByteArray(3000, 'z') << QString(511, 'z');
    QTest::newRow("empty value gives the default") << QByteArray() << "DEFAULT";
    QTest::newRow("blank value gives the default") << QByteArray("   ") << "DEFAULT";
    QTest::newRow("text ends at a NUL") << QByteArray("ab\0cd", 5) << "ab";
    QTest::newRow("NUL first gives the default") << QByteArray("\0cd", 3) << "DEFAULT";
}

void TestProfileFile::readIniStringBuffer()
{
    QFETCH(QByteArray, value);
    QFETCH(QString, expected);
    TempFolder folder;
    const QString ini = folder.writeFile("b.ini", "[S]\r\nk=" + value + "\r\n");
    QCOMPARE(ReadIniString(ini, "S", "k", "DEFAULT"), expected);
    QCOMPARE(ReadIniString(ini, "S", "missing", "DEFAULT"), QString("DEFAULT"));
    QCOMPARE(ReadIniString(folder.filePath("absent.ini"), "S", "k", "DEFAULT"), QString("DEFAULT"));
}

void TestProfileFile::everyWindows1252CharacterRoundTrips()
{
    QByteArray all;
    for (int c = 0x21; c <= 0xFF; ++c)
        all += char(c);
    TempFolder folder;
    const QString ini = folder.filePath("all.ini");
    // Write the decoded form of every byte, then expect exactly those bytes on disk.
    QString decoded;
    {
        const QString probe = folder.writeFile("probe.ini", "[S]\r\nk=" + all + "\r\n");
        decoded = ProfileFile::read(probe, "S", "k");
    }
    QCOMPARE(decoded.size(), all.size());
    QCOMPARE(decoded.at(0x80 - 0x21), QChar(0x20AC));
    QCOMPARE(decoded.at(0x81 - 0x21), QChar(0x0081));
    QCOMPARE(decoded.at(0x9F - 0x21), QChar(0x0178));
    WriteIniString(ini, "S", "k", decoded);
    QCOMPARE(folder.readFile("all.ini"), "[S]\r\nk=" + all + "\r\n");
    QCOMPARE(ReadIniString(ini, "S", "k", ""), decoded);
}

void TestProfileFile::textOutsideWindows1252IsRefused_data()
{
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("shown"); // the character the message names

    QTest::newRow("value, Polish letter")
        << "DSN"
        << "DSNName1" << QString::fromUtf8("Łódź") << QString::fromUtf8("Ł");
    QTest::newRow("value, emoji") << "DSN"
                                  << "DSNName1" << QString::fromUtf8("ok 😀")
                                  << QString::fromUtf8("😀");
    QTest::newRow("value, C1 control without a code")
        << "DSN"
        << "k" << QString(QChar(0x80)) << QString(QChar(0x80));
    QTest::newRow("section name") << QString::fromUtf8("Ωmega") << "k"
                                  << "v" << QString::fromUtf8("Ω");
    QTest::newRow("key name") << "DSN" << QString::fromUtf8("ключ") << "v"
                              << QString::fromUtf8("к");
}

void TestProfileFile::textOutsideWindows1252IsRefused()
{
    QFETCH(QString, section);
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QString, shown);
    TempFolder folder;
    const QByteArray before = "; mine\r\n[DSN]\r\nDSNName1=Ann\r\n";
    const QString ini = folder.writeFile("dbimport.ini", before);
    const quint64 inode = inodeOf(ini);
    try {
        WriteIniString(HostForm(ini), section, key, value);
        QFAIL("the write was accepted");
    } catch (const AppError& e) {
        QCOMPARE(e.number(), long(AppError::Encoding));
        QVERIFY2(e.description().contains(shown), qPrintable(e.description()));
        QVERIFY2(e.description().contains(ini), qPrintable(e.description()));
        QVERIFY2(e.description().contains("Windows-1252"), qPrintable(e.description()));
    }
    QCOMPARE(folder.readFile("dbimport.ini"), before);
    QCOMPARE(inodeOf(ini), inode);
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden),
             QStringList{"dbimport.ini"});
}

void TestProfileFile::unwritablePlacesAreRefused()
{
    TempFolder folder;
    QDir(folder.path()).mkdir("sub.ini");
    const struct
    {
        QString path;
        long number;
    } cases[] = {
        {folder.filePath("no/such/folder/dbimport.ini"), AppError::PathNotFound},
        {folder.filePath("sub.ini"), AppError::PathFileAccess},
    };
    for (const auto& c : cases) {
        try {
            WriteIniString(c.path, "S", "k", "v");
            QFAIL(qPrintable("accepted " + c.path));
        } catch (const AppError& e) {
            QCOMPARE(e.number(), c.number);
            QVERIFY2(e.description().contains(c.path), qPrintable(e.description()));
        }
    }
    QVERIFY(!QFile::exists(folder.filePath("no")));
}

void TestProfileFile::writeReplacesTheFileAtomically()
{
    TempFolder folder;
    const QString ini = folder.writeFile("dbimport.ini", "[S]\r\nk=1\r\n");
    // A reader holding the old file keeps seeing the old text: the new one is a new file
    // renamed over it, never the old one rewritten in place.
    QFile reader(ini);
    QVERIFY(reader.open(QIODevice::ReadOnly));
    const quint64 before = inodeOf(ini);
    WriteIniString(ini, "S", "k", "2");
    QVERIFY(inodeOf(ini) != before);
    QCOMPARE(reader.readAll(), QByteArray("[S]\r\nk=1\r\n"));
    QCOMPARE(folder.readFile("dbimport.ini"), QByteArray("[S]\r\nk=2\r\n"));
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden),
             QStringList{"dbimport.ini"});
}

void TestProfileFile::newFileIsPrivateAndExistingModeKept()
{
    TempFolder folder;
    const QString ini = folder.filePath("dbimport.ini");
    WriteIniString(ini, "S", "k", "v");
    struct stat st;
    QCOMPARE(::stat(QFile::encodeName(ini).constData(), &st), 0);
    QCOMPARE(st.st_mode & 0777, mode_t(0600));

    const QString shared = folder.writeFile("shared.ini", "[S]\r\n");
    QVERIFY(::chmod(QFile::encodeName(shared).constData(), 0640) == 0);
    WriteIniString(shared, "S", "k", "v");
    QCOMPARE(::stat(QFile::encodeName(shared).constData(), &st), 0);
    QCOMPARE(st.st_mode & 0777, mode_t(0640));
}

void TestProfileFile::changesByOthersAreSeen()
{
    TempFolder folder;
    const QString ini = folder.writeFile("dbimport.ini", "[S]\r\nk=one\r\n");
    QCOMPARE(ReadIniString(ini, "S", "k", ""), QString("one"));

    // Same size, rewritten in place a moment later.
    QFile f(ini);
    QVERIFY(f.open(QIODevice::ReadWrite));
    const QDateTime oldTime = f.fileTime(QFileDevice::FileModificationTime);
    f.write("[S]\r\nk=two\r\n");
    f.setFileTime(oldTime.addSecs(1), QFileDevice::FileModificationTime);
    f.close();
    QCOMPARE(ReadIniString(ini, "S", "k", ""), QString("two"));

    // Same size and time, but another file renamed over it (another editor's save).
    const QString other = folder.writeFile("other.tmp", "[S]\r\nk=six\r\n");
    {
        QFile o(other);
        QVERIFY(o.open(QIODevice::ReadWrite));
        o.setFileTime(oldTime.addSecs(1), QFileDevice::FileModificationTime);
    }
    QVERIFY(::rename(QFile::encodeName(other).constData(), QFile::encodeName(ini).constData()) ==
            0);
    QCOMPARE(ReadIniString(ini, "S", "k", ""), QString("six"));

    // A longer text.
    folder.writeFile("dbimport.ini", "[S]\r\nk=seven\r\n");
    QCOMPARE(ReadIniString(ini, "S", "k", ""), QString("seven"));

    // Gone.
    QVERIFY(QFile::remove(ini));
    QCOMPARE(ReadIniString(ini, "S", "k", "gone"), QString("gone"));
}

void TestProfileFile::hostFormPathsReachTheSameFile()
{
    TempFolder folder;
    const QString ini = folder.filePath("dbimport.ini");
    WriteIniString(HostForm(ini), "S", "k", "v");
    QCOMPARE(folder.readFile("dbimport.ini"), QByteArray("[S]\r\nk=v\r\n"));
    QCOMPARE(ReadIniString(HostForm(ini), "S", "k", ""), QString("v"));
}

// The same writes, one by one and in a batch, give the same bytes; in the batch the file
// is replaced once, at commit, and reads see the pending values before.
void TestProfileFile::batchWritesTheFileOnce()
{
    TempFolder folder;
    const QByteArray before = "; kept\r\n[DSN]\r\nDSNName1=Ann\r\n\r\n[Other]\r\nx=1\r\n";
    const QString single = folder.writeFile("single.ini", before);
    const QString batched = folder.writeFile("batched.ini", before);
    const QList<IniWrite> writes = {
        {"DSN", "DSNName1", ""}, {"DSN", "DSNName2", "Bob"},  {"FieldMap1", "VTField1", "Email"},
        {"other", "X", "2"},     {"DSN", "dsnname2", "Bill"}, {"FieldMap1", "DBField1", "Mail"}};
    for (const IniWrite& w : writes)
        WriteIniString(single, w.section, w.key, w.value);

    const quint64 inode = inodeOf(batched);
    {
        ProfileFile::WriteBatch batch(batched);
        for (const IniWrite& w : writes)
            WriteIniString(batched, w.section, w.key, w.value);
        QCOMPARE(folder.readFile("batched.ini"), before);
        QCOMPARE(inodeOf(batched), inode);
        QCOMPARE(ReadIniString(batched, "DSN", "DSNName2", ""), QString("Bill"));
        QCOMPARE(ReadIniString(batched, "DSN", "DSNName1", "gone"), QString("gone"));
        // Bad text is refused at once, and what came before stays pending.
        QVERIFY_THROWS_EXCEPTION(AppError,
                                 WriteIniString(batched, "DSN", "k", QString::fromUtf8("Ł")));
        batch.commit();
        QVERIFY(inodeOf(batched) != inode);
        QCOMPARE(folder.readFile("batched.ini"), folder.readFile("single.ini"));
        // Written once; later writes in the same batch go to the file at the next commit.
        WriteIniString(batched, "DSN", "DSNName3", "Cy");
    }
    QCOMPARE(ReadIniString(batched, "DSN", "DSNName3", ""), QString("Cy"));
    ProfileFile::clearCache();
    QCOMPARE(ReadIniString(batched, "DSN", "DSNName3", ""), QString("Cy"));
    QCOMPARE(ReadIniString(batched, "FieldMap1", "DBField1", ""), QString("Mail"));
}

void TestProfileFile::batchesNest()
{
    TempFolder folder;
    const QString ini = folder.writeFile("n.ini", "[S]\r\n");
    {
        ProfileFile::WriteBatch outer(ini);
        {
            ProfileFile::WriteBatch inner(ini);
            WriteIniString(ini, "S", "a", "1");
            inner.commit();
        }
        QCOMPARE(folder.readFile("n.ini"), QByteArray("[S]\r\n"));
        WriteIniString(ini, "S", "b", "2");
    }
    QCOMPARE(folder.readFile("n.ini"), QByteArray("[S]\r\na=1\r\nb=2\r\n"));
    // Without a batch every write goes straight to the file again.
    WriteIniString(ini, "S", "c", "3");
    QCOMPARE(folder.readFile("n.ini"), QByteArray("[S]\r\na=1\r\nb=2\r\nc=3\r\n"));
}

void TestProfileFile::batchCreatesAPrivateFileOnlyOnCommit()
{
    TempFolder folder;
    const QString ini = folder.filePath("new.ini");
    {
        ProfileFile::WriteBatch batch(ini);
        WriteIniString(ini, "A", "k", "1");
        WriteIniString(ini, "B", "k", "2");
        QVERIFY(!QFile::exists(ini));
        QCOMPARE(ReadIniString(ini, "B", "k", ""), QString("2"));
    }
    QCOMPARE(folder.readFile("new.ini"), QByteArray("[A]\r\nk=1\r\n[B]\r\nk=2\r\n"));
    struct stat st;
    QCOMPARE(::stat(QFile::encodeName(ini).constData(), &st), 0);
    QCOMPARE(st.st_mode & 0777, mode_t(0600));
}

void TestProfileFile::batchCommitFailureLeavesTheFile()
{
    TempFolder folder;
    const QString ini = folder.writeFile("sub/f.ini", "[S]\r\nk=old\r\n");
    ProfileFile::WriteBatch batch(ini);
    WriteIniString(ini, "S", "k", "new");
    // The file turns into a folder before the commit: nothing can replace it.
    QVERIFY(QFile::remove(ini));
    QVERIFY(QDir().mkdir(ini));
    try {
        batch.commit();
        QFAIL("the commit succeeded");
    } catch (const AppError& e) {
        QVERIFY2(e.description().contains(ini), qPrintable(e.description()));
    }
    // The pending value is gone with the failed commit.
    QCOMPARE(ReadIniString(ini, "S", "k", "none"), QString("none"));
}

QTEST_GUILESS_MAIN(TestProfileFile)
#include "tst_profilefile.moc"
