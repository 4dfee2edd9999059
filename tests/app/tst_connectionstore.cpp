#include "app/connectionstore.h"

#include "util/appglobals.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {

// The stored form of an ASCII connection string: every character one code higher.
QString shifted(const QString& ascii)
{
    QString out;
    for (QChar c : ascii) {
        Q_ASSERT(c.unicode() >= 0x20 && c.unicode() < 0x7E);
        out += QChar(c.unicode() + 1);
    }
    return out;
}

// Settings file lines joined as the profile writer ends them.
QByteArray iniBytes(const QStringList& lines)
{
    QByteArray bytes;
    for (const QString& line : lines)
        bytes += line.toLatin1() + "\r\n";
    return bytes;
}

QStringList rows(const QList<DSNEntry>& entries)
{
    QStringList out;
    for (const DSNEntry& e : entries)
        out << e.name + " | " + e.conString;
    return out;
}

} // namespace

class TestConnectionStore : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void blankInputIsRefused_data();
    void blankInputIsRefused();
    void firstAddCreatesTheFile();
    void deleteLeavesTheGapAndReAddFillsIt();
    void deleteClearsSavedChoices();
    void modifyKeepsSlotAndChoices();
    void noMatchChangesNothing_data();
    void noMatchChangesNothing();
    void fullStoreIgnoresAdd();
    void characterWithoutSuccessor();
    void longStringIsCutOnRead();
    void identicalSlotsLowerWins();
    void unstorableTextIsRefused_data();
    void unstorableTextIsRefused();
    void writeFailureNamesTheRoutine();
    void handEditedFile();

private:
    QByteArray fileBytes() const;
    void writeFile(const QByteArray& bytes) const;
    QString add(const QString& name, const QString& conString);

    QTemporaryDir m_dir;
    QString m_ini;
};

void TestConnectionStore::init()
{
    QVERIFY(m_dir.isValid());
    m_ini = m_dir.filePath(QStringLiteral("dbimport.ini"));
    QFile::remove(m_ini);
    SetIniFilePath(m_ini);
}

QByteArray TestConnectionStore::fileBytes() const
{
    QFile file(m_ini);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

void TestConnectionStore::writeFile(const QByteArray& bytes) const
{
    QFile file(m_ini);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

QString TestConnectionStore::add(const QString& name, const QString& conString)
{
    QString message;
    if (!MaintainDSN(name, conString, ConnectionAction::Add, message))
        return message.isEmpty() ? QStringLiteral("failed") : message;
    return QString();
}

void TestConnectionStore::blankInputIsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("conString");
    QTest::addColumn<int>("action");
    QTest::newRow("empty name") << ""
                                << "DSN=Sales" << 0;
    QTest::newRow("blank name") << "   "
                                << "DSN=Sales" << 1;
    QTest::newRow("blank string") << "Sales"
                                  << "  " << 2;
    QTest::newRow("both empty") << ""
                                << "" << 0;
}

void TestConnectionStore::blankInputIsRefused()
{
    QFETCH(QString, name);
    QFETCH(QString, conString);
    QFETCH(int, action);
    QString message;
    QVERIFY(!MaintainDSN(name, conString, ConnectionAction(action), message, "Sales", "DSN=Sales"));
    QCOMPARE(message, QString("There is no database connection selected."));
    QVERIFY(!QFile::exists(m_ini));
}

void TestConnectionStore::firstAddCreatesTheFile()
{
    QVERIFY(UpdateDSNListFromIni().isEmpty());
    QCOMPARE(add("Sales contacts", "DSN=Sales"), QString());
    QCOMPARE(fileBytes(), iniBytes({"[DSN]", "DSNName1=Sales contacts", "DSNString1=ETO>Tbmft"}));
    QCOMPARE(rows(UpdateDSNListFromIni()), QStringList{"Sales contacts | DSN=Sales"});
    // The file holds connection strings: only its owner may read it.
    QCOMPARE(QFile::permissions(m_ini) & (QFile::ReadGroup | QFile::ReadOther),
             QFileDevice::Permissions());
}

void TestConnectionStore::deleteLeavesTheGapAndReAddFillsIt()
{
    QCOMPARE(add("One", "DSN=1"), QString());
    QCOMPARE(add("Two", "DSN=2"), QString());
    QCOMPARE(add("Three", "DSN=3"), QString());
    QString message;
    QVERIFY(MaintainDSN("Two", "DSN=2", ConnectionAction::Delete, message));
    // The saved choices of slot 2 are blanked even though there were none.
    QCOMPARE(fileBytes(), iniBytes({"[DSN]", "DSNName1=One", "DSNString1=ETO>2",
                                    "DSNName2=", "DSNString2=", "DSNName3=Three",
                                    "DSNString3=ETO>4", "[DSN2]", "FilterMethod=", "SelectedTable=",
                                    "AdvancedSQLString=", "VTGroup=", "ReplaceExisting="}));
    QCOMPARE(rows(UpdateDSNListFromIni()), QStringList({"One | DSN=1", "Three | DSN=3"}));

    QCOMPARE(add("Four", "DSN=4"), QString());
    QCOMPARE(rows(UpdateDSNListFromIni()),
             QStringList({"One | DSN=1", "Four | DSN=4", "Three | DSN=3"}));
    QVERIFY(fileBytes().contains("DSNName2=Four\r\nDSNString2=ETO>5\r\nDSNName3=Three"));
}

void TestConnectionStore::deleteClearsSavedChoices()
{
    writeFile(iniBytes({
        "[DSN]",
        "DSNName1=Keep",
        "DSNString1=ETO>2",
        "DSNName2=Gone",
        "DSNString2=ETO>3",
        "[DSN2]",
        "FilterMethod=1",
        "SelectedTable=Orders",
        "AdvancedSQLString=select 1",
        "VTGroup=Friends",
        "ReplaceExisting=True",
        "[FieldMap2]",
        "VTField1=EMailAddress",
        "DBField1=Mail",
        "VTField2=",
        "DBField2=Orphan",
        "VTField3=City",
        "DBField3=",
        "[Rules2]",
        "FieldName1=Town",
        "OpDisplay1=Equals",
        "OpSQL1==",
        "Value1=¬Leeds¬",
        "LogicalOp1=And",
        "FieldName2=",
        "OpDisplay2=Stale",
        "Value2=kept",
        "[DSN1]",
        "FilterMethod=0",
        "SelectedTable=People",
        "[FieldMap1]",
        "VTField1=EMailAddress",
        "DBField1=Email",
    }));
    QString message;
    QVERIFY(MaintainDSN("Gone", "DSN=2", ConnectionAction::Delete, message));
    // Only keys that held something are blanked; nothing is removed, and slot 1's choices
    // are untouched. A rule without a field name is left as it is.
    QCOMPARE(fileBytes(), iniBytes({
                              "[DSN]",
                              "DSNName1=Keep",
                              "DSNString1=ETO>2",
                              "DSNName2=",
                              "DSNString2=",
                              "[DSN2]",
                              "FilterMethod=",
                              "SelectedTable=",
                              "AdvancedSQLString=",
                              "VTGroup=",
                              "ReplaceExisting=",
                              "[FieldMap2]",
                              "VTField1=",
                              "DBField1=",
                              "VTField2=",
                              "DBField2=",
                              "VTField3=",
                              "DBField3=",
                              "[Rules2]",
                              "FieldName1=",
                              "OpDisplay1=",
                              "OpSQL1=",
                              "Value1=",
                              "LogicalOp1=",
                              "FieldName2=",
                              "OpDisplay2=Stale",
                              "Value2=kept",
                              "[DSN1]",
                              "FilterMethod=0",
                              "SelectedTable=People",
                              "[FieldMap1]",
                              "VTField1=EMailAddress",
                              "DBField1=Email",
                          }));
}

void TestConnectionStore::modifyKeepsSlotAndChoices()
{
    writeFile(iniBytes({"[DSN]", "DSNName1=Old", "DSNString1=ETO>Pme", "DSNName2=Other",
                        "DSNString2=ETO>2", "[DSN1]", "VTGroup=Friends"}));
    QString message;
    QVERIFY(
        MaintainDSN("New name", "DSN=New", ConnectionAction::Modify, message, "Old", "DSN=Old"));
    QCOMPARE(fileBytes(),
             iniBytes({"[DSN]", "DSNName1=New name", "DSNString1=ETO>Ofx", "DSNName2=Other",
                       "DSNString2=ETO>2", "[DSN1]", "VTGroup=Friends"}));
}

void TestConnectionStore::noMatchChangesNothing_data()
{
    QTest::addColumn<int>("action");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("conString");
    QTest::addColumn<QString>("oldName");
    QTest::addColumn<QString>("oldConString");

    QTest::newRow("delete, name in other case") << 2 << "sales"
                                                << "DSN=Sales"
                                                << ""
                                                << "";
    QTest::newRow("delete, name with trailing blank") << 2 << "Sales "
                                                      << "DSN=Sales"
                                                      << ""
                                                      << "";
    QTest::newRow("delete, string differs in case") << 2 << "Sales"
                                                    << "dsn=Sales"
                                                    << ""
                                                    << "";
    QTest::newRow("delete, unknown") << 2 << "Nobody"
                                     << "DSN=x"
                                     << ""
                                     << "";
    QTest::newRow("modify, old name in other case") << 1 << "New"
                                                    << "DSN=New"
                                                    << "SALES"
                                                    << "DSN=Sales";
    QTest::newRow("modify, old string differs") << 1 << "New"
                                                << "DSN=New"
                                                << "Sales"
                                                << "DSN=Sales;";
    QTest::newRow("modify, new values used as old") << 1 << "Sales"
                                                    << "DSN=Sales"
                                                    << ""
                                                    << "";
}

void TestConnectionStore::noMatchChangesNothing()
{
    QFETCH(int, action);
    QFETCH(QString, name);
    QFETCH(QString, conString);
    QFETCH(QString, oldName);
    QFETCH(QString, oldConString);

    // Slot 1 is free so a wrong action could not hide behind a full store.
    const QByteArray before =
        iniBytes({"[DSN]", "DSNName1=", "DSNString1=", "DSNName2=Sales", "DSNString2=ETO>Tbmft"});
    writeFile(before);
    QString message = "untouched";
    QVERIFY(MaintainDSN(name, conString, ConnectionAction(action), message, oldName, oldConString));
    QCOMPARE(message, QString("untouched"));
    QCOMPARE(fileBytes(), before);
}

void TestConnectionStore::fullStoreIgnoresAdd()
{
    QStringList lines{"[DSN]"};
    for (int n = 1; n <= 50; ++n)
        lines << QString("DSNName%1=Conn %1").arg(n)
              << "DSNString" + QString::number(n) + "=" + shifted("DSN=c" + QString::number(n));
    const QByteArray before = iniBytes(lines);
    writeFile(before);

    QCOMPARE(add("Fifty-first", "DSN=51"), QString());
    QCOMPARE(fileBytes(), before);
    const QList<DSNEntry> list = UpdateDSNListFromIni();
    QCOMPARE(list.size(), 50);
    QCOMPARE(rows(list).last(), QString("Conn 50 | DSN=c50"));
}

void TestConnectionStore::characterWithoutSuccessor()
{
    QCOMPARE(add("Odd", QStringLiteral("DSN=caf\u00FF")), QString());
    QCOMPARE(fileBytes(), iniBytes({"[DSN]", "DSNName1=Odd", "DSNString1="}));
    QVERIFY(UpdateDSNListFromIni().isEmpty());
    // The slot counts as used all the same.
    QCOMPARE(add("Next", "DSN=2"), QString());
    QCOMPARE(rows(UpdateDSNListFromIni()), QStringList{"Next | DSN=2"});
    QVERIFY(fileBytes().endsWith("DSNName2=Next\r\nDSNString2=ETO>3\r\n"));
}

void TestConnectionStore::longStringIsCutOnRead()
{
    const QString longString = "DSN=x;PWD=" + QString(590, QLatin1Char('p'));
    QCOMPARE(add("Long", longString), QString());
    const QByteArray written = fileBytes();
    QVERIFY(written.contains(shifted(longString).toLatin1()));
    QCOMPARE(rows(UpdateDSNListFromIni()), QStringList{"Long | " + longString.left(511)});

    QString message;
    QVERIFY(MaintainDSN("Long", longString, ConnectionAction::Delete, message));
    QVERIFY(MaintainDSN("Renamed", "DSN=y", ConnectionAction::Modify, message, "Long", longString));
    QCOMPARE(fileBytes(), written);

    // What the list shows is what matches.
    QVERIFY(MaintainDSN("Long", longString.left(511), ConnectionAction::Delete, message));
    QCOMPARE(fileBytes(),
             iniBytes({"[DSN]", "DSNName1=", "DSNString1=", "[DSN1]", "FilterMethod=",
                       "SelectedTable=", "AdvancedSQLString=", "VTGroup=", "ReplaceExisting="}));
}

void TestConnectionStore::identicalSlotsLowerWins()
{
    QCOMPARE(add("Twin", "DSN=t"), QString());
    QCOMPARE(add("Twin", "DSN=t"), QString());
    QString message;
    QVERIFY(MaintainDSN("Twin", "DSN=t", ConnectionAction::Modify, message, "Twin", "DSN=t"));
    QVERIFY(MaintainDSN("Twin", "DSN=t", ConnectionAction::Delete, message));
    QCOMPARE(rows(UpdateDSNListFromIni()), QStringList{"Twin | DSN=t"});
    QVERIFY(fileBytes().startsWith(
        iniBytes({"[DSN]", "DSNName1=", "DSNString1=", "DSNName2=Twin", "DSNString2=ETO>u"})));
}

void TestConnectionStore::unstorableTextIsRefused_data()
{
    QTest::addColumn<int>("action");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("conString");
    QTest::newRow("add, name") << 0 << QStringLiteral("Kunden \u4E2D") << "DSN=k";
    QTest::newRow("add, string") << 0 << "Kunden" << QStringLiteral("DSN=\u0100");
    QTest::newRow("modify, name") << 1 << QStringLiteral("\u0394elta") << "DSN=d";
    QTest::newRow("modify, string") << 1 << "Delta" << QStringLiteral("DSN=\U0001F600");
}

void TestConnectionStore::unstorableTextIsRefused()
{
    QFETCH(int, action);
    QFETCH(QString, name);
    QFETCH(QString, conString);
    const QByteArray before =
        iniBytes({"[DSN]", "DSNName1=Sales", "DSNString1=ETO>Tbmft", "DSNName2=", "DSNString2="});
    writeFile(before);
    QString message;
    QVERIFY(!MaintainDSN(name, conString, ConnectionAction(action), message, "Sales", "DSN=Sales"));
    QVERIFY2(message.endsWith(" - MaintainDSN"), qPrintable(message));
    QVERIFY2(message.contains("Windows-1252"), qPrintable(message));
    QCOMPARE(fileBytes(), before);
}

void TestConnectionStore::writeFailureNamesTheRoutine()
{
    // A folder where the file should be: every write fails.
    QVERIFY(QDir(m_dir.path()).mkpath("dbimport.ini"));
    QString message;
    QVERIFY(!MaintainDSN("Sales", "DSN=Sales", ConnectionAction::Add, message));
    QVERIFY2(message.endsWith(" - MaintainDSN"), qPrintable(message));
    QVERIFY(message.size() > QString(" - MaintainDSN").size());
    QVERIFY(UpdateDSNListFromIni().isEmpty());
    QVERIFY(QDir(m_dir.path()).rmdir("dbimport.ini"));
}

void TestConnectionStore::handEditedFile()
{
    // Keys in odd case, blanks around "=", a comment, a line without "=", and sections the
    // store does not read.
    writeFile(iniBytes({"; written by hand", "[Other]", "key=value", "[dsn]", "dsnname1=Sales",
                        "DSNSTRING1=ETO>Tbmft", "garbage line", "DSNName3 = Spaced",
                        "DSNString3=ETO>4", "[Rules9]", "FieldName1=x"}));
    QCOMPARE(rows(UpdateDSNListFromIni()), QStringList({"Sales | DSN=Sales", "Spaced | DSN=3"}));

    QCOMPARE(add("Added", "DSN=a"), QString());
    QString message;
    QVERIFY(MaintainDSN("Sales", "DSN=Sales", ConnectionAction::Delete, message));
    const QByteArray after = fileBytes();
    for (const char* kept : {"; written by hand\r\n", "[Other]\r\nkey=value\r\n",
                             "garbage line\r\n", "[Rules9]\r\nFieldName1=x\r\n"})
        QVERIFY2(after.contains(kept), kept);
    QCOMPARE(rows(UpdateDSNListFromIni()), QStringList({"Added | DSN=a", "Spaced | DSN=3"}));
    // The existing keys were rewritten in place, not added a second time.
    QCOMPARE(after.count("DSNName1") + after.count("dsnname1"), 1);
}

QTEST_GUILESS_MAIN(TestConnectionStore)
#include "tst_connectionstore.moc"
