#include "app/connectionstore.h"

#include "util/appglobals.h"

#include "tempfolder.h"

#include <QDir>
#include <QFile>
#include <QTest>

namespace {

// The stored form of an ASCII connection string: every character one code higher.
QString shifted(const QString& ascii)
{
    QString out;
    for (QChar c : ascii)
        out += QChar(c.unicode() + 1);
    return out;
}

QByteArray iniBytes(const QStringList& lines)
{
    return (lines.join("\r\n") + "\r\n").toLatin1();
}

QStringList rows(const QList<DSNEntry>& entries)
{
    QStringList out;
    for (const DSNEntry& e : entries)
        out << e.name + " | " + e.conString;
    return out;
}

QStringList listed()
{
    return rows(UpdateDSNListFromIni());
}

bool maintain(ConnectionAction action, const QString& name, const QString& conString,
              const QString& oldName = QString(), const QString& oldConString = QString())
{
    QString message;
    return MaintainDSN(name, conString, action, message, oldName, oldConString);
}

bool add(const QString& name, const QString& conString)
{
    return maintain(ConnectionAction::Add, name, conString);
}

const QStringList kBlankChoices = {"FilterMethod=", "SelectedTable=", "AdvancedSQLString=",
                                   "VTGroup=", "ReplaceExisting="};

} // namespace

class TestConnectionStore : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QVERIFY(m_dir.isValid());
        m_ini = m_dir.filePath("dbimport.ini");
        QFile::remove(m_ini);
        SetIniFilePath(m_ini);
    }

    void blankInputIsRefused_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("conString");
        QTest::addColumn<int>("action");
        QTest::newRow("empty name") << "" << "DSN=Sales" << 0;
        QTest::newRow("blank name") << "   " << "DSN=Sales" << 1;
        QTest::newRow("blank string") << "Sales" << "  " << 2;
    }

    void blankInputIsRefused()
    {
        QFETCH(QString, name);
        QFETCH(QString, conString);
        QFETCH(int, action);
        QString message;
        QVERIFY(!MaintainDSN(name, conString, ConnectionAction(action), message, "Sales", "DSN=Sales"));
        QCOMPARE(message, QString("There is no database connection selected."));
        QVERIFY(!QFile::exists(m_ini));
    }

    void firstAddCreatesAPrivateFile()
    {
        QVERIFY(listed().isEmpty());
        QVERIFY(add("Sales contacts", "DSN=Sales"));
        QCOMPARE(fileBytes(), iniBytes({"[DSN]", "DSNName1=Sales contacts", "DSNString1=ETO>Tbmft"}));
        QCOMPARE(listed(), QStringList{"Sales contacts | DSN=Sales"});
        // The file holds connection strings: only its owner may read it.
        QCOMPARE(QFile::permissions(m_ini) & (QFile::ReadGroup | QFile::ReadOther),
                 QFileDevice::Permissions());
    }

    void deleteLeavesTheGapAndReAddFillsIt()
    {
        QVERIFY(add("One", "DSN=1") && add("Two", "DSN=2") && add("Three", "DSN=3"));
        QVERIFY(maintain(ConnectionAction::Delete, "Two", "DSN=2"));
        // The saved choices of slot 2 are blanked even though there were none.
        QCOMPARE(fileBytes(), iniBytes(QStringList{"[DSN]", "DSNName1=One", "DSNString1=ETO>2",
            "DSNName2=", "DSNString2=", "DSNName3=Three", "DSNString3=ETO>4", "[DSN2]"} + kBlankChoices));
        QCOMPARE(listed(), QStringList({"One | DSN=1", "Three | DSN=3"}));
        QVERIFY(add("Four", "DSN=4"));
        QCOMPARE(listed(), QStringList({"One | DSN=1", "Four | DSN=4", "Three | DSN=3"}));
        QVERIFY(fileBytes().contains("DSNName2=Four\r\nDSNString2=ETO>5\r\nDSNName3=Three"));
    }

    void deleteClearsSavedChoices()
    {
        const QStringList head = {"[DSN]", "DSNName1=Keep", "DSNString1=ETO>2"};
        const QStringList slot1 = {"[DSN1]", "FilterMethod=0", "SelectedTable=People", "[FieldMap1]",
                                   "VTField1=EMailAddress", "DBField1=Email"};
        writeFile(head + QStringList{"DSNName2=Gone", "DSNString2=ETO>3", "[DSN2]", "FilterMethod=1",
            "SelectedTable=Orders", "AdvancedSQLString=select 1", "VTGroup=Friends",
            "ReplaceExisting=True", "[FieldMap2]", "VTField1=EMailAddress", "DBField1=Mail",
            "VTField2=", "DBField2=Orphan", "VTField3=City", "DBField3=", "[Rules2]",
            "FieldName1=Town", "OpDisplay1=Equals", "OpSQL1==", "Value1=¬Leeds¬", "LogicalOp1=And",
            "FieldName2=", "OpDisplay2=Stale", "Value2=kept"} + slot1);
        QVERIFY(maintain(ConnectionAction::Delete, "Gone", "DSN=2"));
        // Only keys that held something are blanked; nothing is removed, and slot 1's choices
        // are untouched. A rule without a field name is left as it is.
        QCOMPARE(fileBytes(), iniBytes(head + QStringList{"DSNName2=", "DSNString2=", "[DSN2]"} +
            kBlankChoices + QStringList{"[FieldMap2]", "VTField1=", "DBField1=", "VTField2=",
            "DBField2=", "VTField3=", "DBField3=", "[Rules2]", "FieldName1=", "OpDisplay1=",
            "OpSQL1=", "Value1=", "LogicalOp1=", "FieldName2=", "OpDisplay2=Stale", "Value2=kept"} +
            slot1));
    }

    void modifyKeepsSlotAndChoices()
    {
        writeFile({"[DSN]", "DSNName1=Old", "DSNString1=ETO>Pme", "DSNName2=Other",
                   "DSNString2=ETO>2", "[DSN1]", "VTGroup=Friends"});
        QVERIFY(maintain(ConnectionAction::Modify, "New name", "DSN=New", "Old", "DSN=Old"));
        QCOMPARE(fileBytes(), iniBytes({"[DSN]", "DSNName1=New name", "DSNString1=ETO>Ofx",
            "DSNName2=Other", "DSNString2=ETO>2", "[DSN1]", "VTGroup=Friends"}));
    }

    void noMatchChangesNothing_data()
    {
        QTest::addColumn<int>("action");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("conString");
        QTest::addColumn<QString>("oldName");
        QTest::addColumn<QString>("oldConString");
        QTest::newRow("delete, name case") << 2 << "sales" << "DSN=Sales" << "" << "";
        QTest::newRow("delete, trailing blank") << 2 << "Sales " << "DSN=Sales" << "" << "";
        QTest::newRow("delete, string case") << 2 << "Sales" << "dsn=Sales" << "" << "";
        QTest::newRow("modify, old name case") << 1 << "New" << "DSN=New" << "SALES" << "DSN=Sales";
        QTest::newRow("modify, old string") << 1 << "New" << "DSN=New" << "Sales" << "DSN=Sales;";
        QTest::newRow("modify, new used as old") << 1 << "Sales" << "DSN=Sales" << "" << "";
    }

    void noMatchChangesNothing()
    {
        QFETCH(int, action);
        QFETCH(QString, name);
        QFETCH(QString, conString);
        QFETCH(QString, oldName);
        QFETCH(QString, oldConString);
        // Slot 1 is free so a wrong action could not hide behind a full store.
        writeFile({"[DSN]", "DSNName1=", "DSNString1=", "DSNName2=Sales", "DSNString2=ETO>Tbmft"});
        const QByteArray before = fileBytes();
        QString message = "untouched";
        QVERIFY(MaintainDSN(name, conString, ConnectionAction(action), message, oldName, oldConString));
        QCOMPARE(message, QString("untouched"));
        QCOMPARE(fileBytes(), before);
    }

    void fullStoreIgnoresAdd()
    {
        QStringList lines{"[DSN]"};
        for (int n = 1; n <= 50; ++n)
            lines << QString("DSNName%1=Conn %1").arg(n)
                  << QString("DSNString%1=").arg(n) + shifted("DSN=c" + QString::number(n));
        writeFile(lines);
        QVERIFY(add("Fifty-first", "DSN=51"));
        QCOMPARE(fileBytes(), iniBytes(lines));
        const QStringList list = listed();
        QCOMPARE(list.size(), 50);
        QCOMPARE(list.last(), QString("Conn 50 | DSN=c50"));
    }

    void characterWithoutSuccessor()
    {
        QVERIFY(add("Odd", QStringLiteral("DSN=caf\u00FF")));
        QCOMPARE(fileBytes(), iniBytes({"[DSN]", "DSNName1=Odd", "DSNString1="}));
        QVERIFY(listed().isEmpty());
        // The slot counts as used all the same.
        QVERIFY(add("Next", "DSN=2"));
        QCOMPARE(listed(), QStringList{"Next | DSN=2"});
        QVERIFY(fileBytes().endsWith("DSNName2=Next\r\nDSNString2=ETO>3\r\n"));
    }

    void longStringIsCutOnRead()
    {
        const QString longString = "DSN=x;PWD=" + QString(590, QLatin1Char('p'));
        QVERIFY(add("Long", longString));
        const QByteArray written = fileBytes();
        QVERIFY(written.contains(shifted(longString).toLatin1()));
        QCOMPARE(listed(), QStringList{"Long | " + longString.left(511)});
        QVERIFY(maintain(ConnectionAction::Delete, "Long", longString));
        QVERIFY(maintain(ConnectionAction::Modify, "Renamed", "DSN=y", "Long", longString));
        QCOMPARE(fileBytes(), written);
        // What the list shows is what matches.
        QVERIFY(maintain(ConnectionAction::Delete, "Long", longString.left(511)));
        QCOMPARE(fileBytes(),
                 iniBytes(QStringList{"[DSN]", "DSNName1=", "DSNString1=", "[DSN1]"} + kBlankChoices));
    }

    void identicalSlotsLowerWins()
    {
        QVERIFY(add("Twin", "DSN=t") && add("Twin", "DSN=t"));
        QVERIFY(maintain(ConnectionAction::Modify, "Twin", "DSN=t", "Twin", "DSN=t"));
        QVERIFY(maintain(ConnectionAction::Delete, "Twin", "DSN=t"));
        QCOMPARE(listed(), QStringList{"Twin | DSN=t"});
        QVERIFY(fileBytes().startsWith(
            iniBytes({"[DSN]", "DSNName1=", "DSNString1=", "DSNName2=Twin", "DSNString2=ETO>u"})));
    }

    void unstorableTextIsRefused_data()
    {
        QTest::addColumn<int>("action");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("conString");
        QTest::newRow("add, name") << 0 << QStringLiteral("Kunden \u4E2D") << "DSN=k";
        QTest::newRow("add, string") << 0 << "Kunden" << QStringLiteral("DSN=\u0100");
        QTest::newRow("modify, name") << 1 << QStringLiteral("\u0394elta") << "DSN=d";
        QTest::newRow("modify, string") << 1 << "Delta" << QStringLiteral("DSN=\U0001F600");
    }

    void unstorableTextIsRefused()
    {
        QFETCH(int, action);
        QFETCH(QString, name);
        QFETCH(QString, conString);
        writeFile({"[DSN]", "DSNName1=Sales", "DSNString1=ETO>Tbmft", "DSNName2=", "DSNString2="});
        const QByteArray before = fileBytes();
        QString message;
        QVERIFY(!MaintainDSN(name, conString, ConnectionAction(action), message, "Sales", "DSN=Sales"));
        QVERIFY2(message.endsWith(" - MaintainDSN"), qPrintable(message));
        QVERIFY2(message.contains("Windows-1252"), qPrintable(message));
        QCOMPARE(fileBytes(), before);
    }

    void writeFailureNamesTheRoutine()
    {
        // A folder where the file should be: every write fails.
        QVERIFY(QDir(m_dir.path()).mkpath("dbimport.ini"));
        QString message;
        QVERIFY(!MaintainDSN("Sales", "DSN=Sales", ConnectionAction::Add, message));
        QVERIFY2(message.endsWith(" - MaintainDSN"), qPrintable(message));
        QVERIFY(message.size() > QString(" - MaintainDSN").size());
        QVERIFY(listed().isEmpty());
        QVERIFY(QDir(m_dir.path()).rmdir("dbimport.ini"));
    }

    void handEditedFile()
    {
        writeFile({"; written by hand", "[Other]", "key=value", "[dsn]", "dsnname1=Sales",
                   "DSNSTRING1=ETO>Tbmft", "garbage line", "DSNName3 = Spaced", "DSNString3=ETO>4",
                   "[Rules9]", "FieldName1=x"});
        QCOMPARE(listed(), QStringList({"Sales | DSN=Sales", "Spaced | DSN=3"}));
        QVERIFY(add("Added", "DSN=a"));
        QVERIFY(maintain(ConnectionAction::Delete, "Sales", "DSN=Sales"));
        const QByteArray after = fileBytes();
        for (const char* kept : {"; written by hand\r\n", "[Other]\r\nkey=value\r\n",
                                 "garbage line\r\n", "[Rules9]\r\nFieldName1=x\r\n"})
            QVERIFY2(after.contains(kept), kept);
        QCOMPARE(listed(), QStringList({"Added | DSN=a", "Spaced | DSN=3"}));
        // The existing keys were rewritten in place, not added a second time.
        QCOMPARE(after.count("DSNName1") + after.count("dsnname1"), 1);
    }

private:
    QByteArray fileBytes() const { return m_dir.readFile("dbimport.ini"); }
    void writeFile(const QStringList& lines) const { m_dir.writeFile("dbimport.ini", iniBytes(lines)); }

    TempFolder m_dir;
    QString m_ini;
};

QTEST_GUILESS_MAIN(TestConnectionStore)
#include "tst_connectionstore.moc"
