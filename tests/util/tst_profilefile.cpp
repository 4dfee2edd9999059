#include "util/apperror.h"
#include "util/modApplication.h"
#include "util/profilefile.h"

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
Q_DECLARE_METATYPE(Writes)

static quint64 inodeOf(const QString& path)
{
    struct stat st;
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_ino : 0;
}

static mode_t modeOf(const QString& path)
{
    struct stat st;
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_mode & 0777 : 0;
}

static QStringList filesIn(const TempFolder& folder)
{
    return QDir(folder.path()).entryList(QDir::Files | QDir::Hidden);
}

class TestProfileFile : public QObject
{
    Q_OBJECT

private slots:
    void init() { ProfileFile::clearCache(); }

    void writesAreByteExact_data()
    {
        QTest::addColumn<QByteArray>("before"); // null: no file yet
        QTest::addColumn<Writes>("writes");
        QTest::addColumn<QByteArray>("after");

        QTest::newRow("new file")
            << QByteArray()
            << Writes{{"DSN", "DSNName1", "Contacts"}, {"DSN", "DSNString1", "Qspwjefs>TRMjuf<"},
                      {"DSN1", "FilterMethod", "0"}, {"DSN", "DSNName2", ""}}
            << QByteArray("[DSN]\r\nDSNName1=Contacts\r\nDSNString1=Qspwjefs>TRMjuf<\r\n"
                          "DSNName2=\r\n[DSN1]\r\nFilterMethod=0\r\n");
        QTest::newRow("hand-edited file keeps every other line")
            << QByteArray("; settings of the import\r\nstray line before any section\r\n\r\n"
                          "  [ DSN ]  \r\n   DSNName1   =   Contacts  \r\n; a comment inside\r\n"
                          "garbage without equals\r\nDSNString1=abc\r\n\r\n\r\n[Unknown]\r\n"
                          "Whatever = kept\r\n\t\r\n[FieldMap1]\r\nEmail=Mail")
            << Writes{{"DSN", "DSNName1", "Clients"}, {"dsn", "DSNName2", "New"},
                      {"FIELDMAP1", "Title", ""}, {"Rules1", "Count", "2"}}
            << QByteArray("; settings of the import\r\nstray line before any section\r\n\r\n"
                          "  [ DSN ]  \r\nDSNName1=Clients\r\n; a comment inside\r\n"
                          "garbage without equals\r\nDSNString1=abc\r\nDSNName2=New\r\n\r\n\r\n"
                          "[Unknown]\r\nWhatever = kept\r\n\t\r\n[FieldMap1]\r\nEmail=Mail\r\n"
                          "Title=\r\n[Rules1]\r\nCount=2\r\n");
        QTest::newRow("key keeps its spelling") << QByteArray("[dsn]\r\ndsnname1=old\r\n")
            << Writes{{"DSN", "DSNNAME1", "new"}} << QByteArray("[dsn]\r\ndsnname1=new\r\n");
        QTest::newRow("bare LF lines kept") << QByteArray("[A]\nx=1\ny=2\n\n[B]\nz=3\n")
            << Writes{{"A", "y", "20"}, {"A", "w", "4"}, {"C", "v", "5"}}
            << QByteArray("[A]\nx=1\ny=20\r\nw=4\r\n\n[B]\nz=3\n[C]\r\nv=5\r\n");
        QTest::newRow("first duplicate written")
            << QByteArray("[A]\r\nk=1\r\nk=2\r\n[B]\r\n[a]\r\nk=3\r\nonly=second\r\n")
            << Writes{{"A", "K", "9"}, {"A", "only", "first"}}
            << QByteArray("[A]\r\nk=9\r\nk=2\r\nonly=first\r\n[B]\r\n[a]\r\nk=3\r\nonly=second\r\n");
        QTest::newRow("no last line end") << QByteArray("[A]\r\nk=1") << Writes{{"A", "m", "2"}}
                                          << QByteArray("[A]\r\nk=1\r\nm=2\r\n");
        QTest::newRow("new section, no last line end") << QByteArray("[A]\r\nk=1")
            << Writes{{"B", "m", "2"}} << QByteArray("[A]\r\nk=1\r\n[B]\r\nm=2\r\n");
        QTest::newRow("value written as given") << QByteArray() << Writes{{"S", "k", " a = \"b\" "}}
                                                << QByteArray("[S]\r\nk= a = \"b\" \r\n");
        QTest::newRow("empty section keeps its place") << QByteArray("[A]\r\n[B]\r\nx=1\r\n")
            << Writes{{"A", "k", "v"}} << QByteArray("[A]\r\nk=v\r\n[B]\r\nx=1\r\n");
        QTest::newRow("commented-out key") << QByteArray("[A]\r\n;k=old\r\n")
            << Writes{{"A", "k", "new"}} << QByteArray("[A]\r\n;k=old\r\nk=new\r\n");
        QTest::newRow("line break in a value") << QByteArray("[S]\r\n")
            << Writes{{"S", "k", "first\r\nsecond=2"}, {"S", "second", "3"}}
            << QByteArray("[S]\r\nk=first\r\nsecond=3\r\n");
        QTest::newRow("Windows-1252 bytes") << QByteArray()
            << Writes{{"S", "k", QString::fromUtf8("€ café ÿ")}}
            << QByteArray("[S]\r\nk=\x80 caf\xe9 \xff\r\n");
    }

    void writesAreByteExact()
    {
        QFETCH(QByteArray, before);
        QFETCH(Writes, writes);
        QFETCH(QByteArray, after);
        TempFolder folder;
        const QString ini = folder.filePath("settings.ini");
        if (!before.isNull())
            folder.writeFile("settings.ini", before);
        for (const IniWrite& w : writes)
            WriteIniString(HostForm(ini), w.section, w.key, w.value);
        QCOMPARE(folder.readFile("settings.ini"), after);

        // The copy kept from the writes reads as the file itself does.
        QStringList kept, fresh;
        for (const IniWrite& w : writes)
            kept << ProfileFile::read(ini, w.section, w.key);
        ProfileFile::clearCache();
        for (const IniWrite& w : writes)
            fresh << ReadIniString(HostForm(ini), w.section, w.key, "");
        QCOMPARE(kept, fresh);
    }

    void reads_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("section");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("expected"); // "<null>" when absent

        const QByteArray f = "top=before any section\r\n[DSN]\r\n  Name1  =  Ann Smith  \r\n"
                             "Quoted=\"  padded  \"\r\nSingle='x'\r\nHalf=\"open\r\nEquals=a=b=c\r\n"
                             "Empty=\r\nDup=first\r\nDup=second\r\n;Commented=yes\r\nTab=\tv\t\r\n"
                             "[ Spaced Section ]\r\nk=spaced\r\n[dsn]\r\n"
                             "Name1=from the repeated section\r\nOnlyLater=hidden\r\n"
                             "[Bytes]\r\nEuro=\x80\x81\x9f\xa0\xff\r\n";
        QTest::newRow("blanks, section case") << f << "dSn" << "NAME1" << "Ann Smith";
        QTest::newRow("matching quotes off") << f << "DSN" << "Quoted" << "  padded  ";
        QTest::newRow("single quotes") << f << "DSN" << "Single" << "x";
        QTest::newRow("unmatched quote kept") << f << "DSN" << "Half" << "\"open";
        QTest::newRow("equals in value") << f << "DSN" << "Equals" << "a=b=c";
        QTest::newRow("empty value") << f << "DSN" << "Empty" << "";
        QTest::newRow("first duplicate key") << f << "DSN" << "Dup" << "first";
        QTest::newRow("comment is no key") << f << "DSN" << "Commented" << "<null>";
        QTest::newRow(";key is no key") << f << "DSN" << ";Commented" << "<null>";
        QTest::newRow("tabs trimmed") << f << "DSN" << "Tab" << "v";
        QTest::newRow("blanks in section line") << f << "spaced section" << "k" << "spaced";
        QTest::newRow("repeated section unseen") << f << "DSN" << "OnlyLater" << "<null>";
        QTest::newRow("line before any section") << f << "" << "top" << "<null>";
        QTest::newRow("missing key") << f << "DSN" << "Nope" << "<null>";
        QTest::newRow("missing section") << f << "Nope" << "Name1" << "<null>";
        QTest::newRow("Windows-1252") << f << "Bytes" << "Euro" << QString::fromUtf8("€\u0081Ÿ\u00a0ÿ");
        QTest::newRow("bare LF") << QByteArray("[A]\nk = v \n[B]\nk=w\n") << "B" << "K" << "w";
        QTest::newRow("bare LF, no last line end") << QByteArray("[A]\nk=v") << "A" << "k" << "v";
    }

    void reads()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, section);
        QFETCH(QString, key);
        QFETCH(QString, expected);
        TempFolder folder;
        const QString value = ProfileFile::read(folder.writeFile("r.ini", content), section, key);
        QCOMPARE(value.isNull() ? QString("<null>") : value, expected);
    }

    void readIniStringBuffer_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("expected");
        QTest::newRow("511 kept") << QByteArray(511, 'a') << QString(511, 'a');
        QTest::newRow("512 cut to 511") << QByteArray(511, 'a') + 'b' << QString(511, 'a');
        QTest::newRow("empty: default") << QByteArray() << "DEFAULT";
        QTest::newRow("blank: default") << QByteArray("   ") << "DEFAULT";
        QTest::newRow("ends at a NUL") << QByteArray("ab\0cd", 5) << "ab";
        QTest::newRow("NUL first: default") << QByteArray("\0cd", 3) << "DEFAULT";
    }

    void readIniStringBuffer()
    {
        QFETCH(QByteArray, value);
        QFETCH(QString, expected);
        TempFolder folder;
        const QString ini = folder.writeFile("b.ini", "[S]\r\nk=" + value + "\r\n");
        QCOMPARE(ReadIniString(ini, "S", "k", "DEFAULT"), expected);
        QCOMPARE(ReadIniString(ini, "S", "missing", "DEFAULT"), QString("DEFAULT"));
        QCOMPARE(ReadIniString(folder.filePath("absent.ini"), "S", "k", "DEFAULT"), QString("DEFAULT"));
    }

    void everyWindows1252CharacterRoundTrips()
    {
        QByteArray all;
        for (int c = 0x21; c <= 0xFF; ++c)
            all += char(c);
        TempFolder folder;
        const QString decoded =
            ProfileFile::read(folder.writeFile("probe.ini", "[S]\r\nk=" + all + "\r\n"), "S", "k");
        QCOMPARE(decoded.size(), all.size());
        QCOMPARE(decoded.at(0x80 - 0x21), QChar(0x20AC));
        QCOMPARE(decoded.at(0x81 - 0x21), QChar(0x0081));
        QCOMPARE(decoded.at(0x9F - 0x21), QChar(0x0178));
        WriteIniString(folder.filePath("all.ini"), "S", "k", decoded);
        QCOMPARE(folder.readFile("all.ini"), "[S]\r\nk=" + all + "\r\n");
    }

    void textOutsideWindows1252IsRefused_data()
    {
        QTest::addColumn<QString>("section");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("shown"); // the character the message names
        QTest::newRow("Polish letter") << "DSN" << "DSNName1" << "Łódź" << "Ł";
        QTest::newRow("emoji") << "DSN" << "DSNName1" << "ok 😀" << "😀";
        QTest::newRow("C1 control") << "DSN" << "k" << QString(QChar(0x80)) << QString(QChar(0x80));
        QTest::newRow("section name") << "Ωmega" << "k" << "v" << "Ω";
        QTest::newRow("key name") << "DSN" << "ключ" << "v" << "к";
    }

    void textOutsideWindows1252IsRefused()
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
            for (const QString& part : {shown, ini, QString("Windows-1252")})
                QVERIFY2(e.description().contains(part), qPrintable(e.description()));
        }
        QCOMPARE(folder.readFile("dbimport.ini"), before);
        QCOMPARE(inodeOf(ini), inode);
        QCOMPARE(filesIn(folder), QStringList{"dbimport.ini"});
    }

    void unwritablePlacesAreRefused()
    {
        TempFolder folder;
        QDir(folder.path()).mkdir("sub.ini");
        const QList<QPair<QString, long>> cases = {
            {folder.filePath("no/such/folder/dbimport.ini"), AppError::PathNotFound},
            {folder.filePath("sub.ini"), AppError::PathFileAccess}};
        for (const auto& [path, number] : cases) {
            try {
                WriteIniString(path, "S", "k", "v");
                QFAIL(qPrintable("accepted " + path));
            } catch (const AppError& e) {
                QCOMPARE(e.number(), number);
                QVERIFY2(e.description().contains(path), qPrintable(e.description()));
            }
        }
        QVERIFY(!QFile::exists(folder.filePath("no")));
    }

    void writeReplacesTheFileAtomicallyKeepingItsMode()
    {
        TempFolder folder;
        const QString ini = folder.writeFile("dbimport.ini", "[S]\r\nk=1\r\n");
        QVERIFY(::chmod(QFile::encodeName(ini).constData(), 0640) == 0);
        // A reader holding the old file keeps seeing the old text: the new one is renamed over it.
        QFile reader(ini);
        QVERIFY(reader.open(QIODevice::ReadOnly));
        const quint64 before = inodeOf(ini);
        WriteIniString(ini, "S", "k", "2");
        QVERIFY(inodeOf(ini) != before);
        QCOMPARE(reader.readAll(), QByteArray("[S]\r\nk=1\r\n"));
        QCOMPARE(folder.readFile("dbimport.ini"), QByteArray("[S]\r\nk=2\r\n"));
        QCOMPARE(filesIn(folder), QStringList{"dbimport.ini"});
        QCOMPARE(modeOf(ini), mode_t(0640));
        WriteIniString(folder.filePath("new.ini"), "S", "k", "v");
        QCOMPARE(modeOf(folder.filePath("new.ini")), mode_t(0600));
    }

    void changesByOthersAreSeen()
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
        QVERIFY(::rename(QFile::encodeName(other).constData(), QFile::encodeName(ini).constData()) == 0);
        QCOMPARE(ReadIniString(ini, "S", "k", ""), QString("six"));

        folder.writeFile("dbimport.ini", "[S]\r\nk=seven\r\n");
        QCOMPARE(ReadIniString(ini, "S", "k", ""), QString("seven"));
        QVERIFY(QFile::remove(ini));
        QCOMPARE(ReadIniString(ini, "S", "k", "gone"), QString("gone"));
    }

    // The same writes, one by one and in a batch, give the same bytes; in the batch the file
    // is replaced once, at commit, and reads see the pending values before.
    void batchWritesTheFileOnce()
    {
        TempFolder folder;
        const QByteArray before = "; kept\r\n[DSN]\r\nDSNName1=Ann\r\n\r\n[Other]\r\nx=1\r\n";
        const QString single = folder.writeFile("single.ini", before);
        const QString batched = folder.writeFile("batched.ini", before);
        const Writes writes = {{"DSN", "DSNName1", ""},        {"DSN", "DSNName2", "Bob"},
                               {"FieldMap1", "VTField1", "Email"}, {"other", "X", "2"},
                               {"DSN", "dsnname2", "Bill"},    {"FieldMap1", "DBField1", "Mail"}};
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
            QVERIFY_THROWS_EXCEPTION(AppError, WriteIniString(batched, "DSN", "k", "Ł"));
            batch.commit();
            QVERIFY(inodeOf(batched) != inode);
            QCOMPARE(folder.readFile("batched.ini"), folder.readFile("single.ini"));
            // Later writes in the same batch go to the file at the next commit.
            WriteIniString(batched, "DSN", "DSNName3", "Cy");
        }
        ProfileFile::clearCache();
        QCOMPARE(ReadIniString(batched, "DSN", "DSNName3", ""), QString("Cy"));
        QCOMPARE(ReadIniString(batched, "FieldMap1", "DBField1", ""), QString("Mail"));
    }

    // Nested batches on a new file: only the outermost one writes it, private, at its end.
    void batchesNestAndCreateAPrivateFileOnCommit()
    {
        TempFolder folder;
        const QString ini = folder.filePath("new.ini");
        {
            ProfileFile::WriteBatch outer(ini);
            {
                ProfileFile::WriteBatch inner(ini);
                WriteIniString(ini, "A", "k", "1");
                inner.commit();
            }
            WriteIniString(ini, "B", "k", "2");
            QVERIFY(!QFile::exists(ini));
            QCOMPARE(ReadIniString(ini, "A", "k", ""), QString("1"));
        }
        QCOMPARE(folder.readFile("new.ini"), QByteArray("[A]\r\nk=1\r\n[B]\r\nk=2\r\n"));
        QCOMPARE(modeOf(ini), mode_t(0600));
        // Without a batch every write goes straight to the file again.
        WriteIniString(ini, "B", "c", "3");
        QCOMPARE(folder.readFile("new.ini"), QByteArray("[A]\r\nk=1\r\n[B]\r\nk=2\r\nc=3\r\n"));
    }

    void batchCommitFailureLeavesTheFile()
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
        QCOMPARE(ReadIniString(ini, "S", "k", "none"), QString("none"));
    }
};

QTEST_GUILESS_MAIN(TestProfileFile)
#include "tst_profilefile.moc"
