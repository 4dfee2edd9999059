#include "app/connectionstore.h"

#include "datarow.h"
#include "settingsfixture.h"

#include <QTest>

namespace {

const QStringList kBlankChoices = {"FilterMethod=", "SelectedTable=", "AdvancedSQLString=",
                                   "VTGroup=", "ReplaceExisting="};

// "add|name|string", "delete|name|string" or "modify|name|string|old name|old string".
bool apply(const QString& step, QString& message)
{
    const QStringList f = step.split('|');
    const ConnectionAction action = f[0] == "add"      ? ConnectionAction::Add
                                    : f[0] == "delete" ? ConnectionAction::Delete
                                                       : ConnectionAction::Modify;
    return MaintainDSN(f.value(1), f.value(2), action, message, f.value(3), f.value(4));
}

} // namespace

class TestConnectionStore : public QObject
{
    Q_OBJECT
    SettingsFile m_ini;

private slots:
    void init() { m_ini.reset(); }

    // The file, byte for byte, and the list shown after a run of changes that all succeed.
    void changes_data()
    {
        QTest::addColumn<QStringList>("before"); // empty: no file
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QStringList>("after");
        QTest::addColumn<QStringList>("shown");

        // The deleted slot's saved choices are blanked even though there were none.
        DataRow("delete, then re-add fills the gap", QStringList(),
                QStringList{"add|One|DSN=1", "add|Two|DSN=2", "add|Three|DSN=3", "delete|Two|DSN=2",
                            "add|Four|DSN=4"},
                QStringList{"[DSN]", "DSNName1=One", "DSNString1=ETO>2", "DSNName2=Four",
                            "DSNString2=ETO>5", "DSNName3=Three", "DSNString3=ETO>4", "[DSN2]"} +
                    kBlankChoices,
                QStringList{"One | DSN=1", "Four | DSN=4", "Three | DSN=3"});
        // Only keys that held something are blanked, nothing is removed, and other slots'
        // choices stay, a modified slot's too. A rule without a field name is left as it is.
        const QStringList head = {"[DSN]", "DSNName1=Keep", "DSNString1=ETO>2"};
        const QStringList slot1 = {"[DSN1]", "SelectedTable=People", "[FieldMap1]",
                                   "VTField1=EMailAddress", "DBField1=Email"};
        DataRow("delete clears saved choices, modify keeps them",
                head + QStringList{"DSNName2=Gone", "DSNString2=ETO>3", "[DSN2]", "FilterMethod=1",
                    "SelectedTable=Orders", "AdvancedSQLString=select 1", "VTGroup=Friends",
                    "ReplaceExisting=True", "[FieldMap2]", "VTField1=EMailAddress", "DBField1=Mail",
                    "VTField2=", "DBField2=Orphan", "VTField3=City", "DBField3=", "[Rules2]",
                    "FieldName1=Town", "OpDisplay1=Equals", "OpSQL1==", "Value1=¬Leeds¬",
                    "LogicalOp1=And", "FieldName2=", "OpDisplay2=Stale", "Value2=kept"} + slot1,
                QStringList{"delete|Gone|DSN=2", "modify|New name|DSN=New|Keep|DSN=1"},
                QStringList{"[DSN]", "DSNName1=New name", "DSNString1=ETO>Ofx", "DSNName2=",
                            "DSNString2=", "[DSN2]"} + kBlankChoices +
                    QStringList{"[FieldMap2]", "VTField1=", "DBField1=", "VTField2=", "DBField2=",
                    "VTField3=", "DBField3=", "[Rules2]", "FieldName1=", "OpDisplay1=", "OpSQL1=",
                    "Value1=", "LogicalOp1=", "FieldName2=", "OpDisplay2=Stale", "Value2=kept"} +
                    slot1,
                QStringList{"New name | DSN=New"});
        QStringList full{"[DSN]"}, fullShown;
        for (int n = 1; n <= 50; ++n) {
            full << QString("DSNName%1=Conn %1").arg(n) << QString("DSNString%1=ETO>d").arg(n);
            fullShown << QString("Conn %1 | DSN=c").arg(n);
        }
        DataRow("full store ignores an add", full, QStringList{"add|Fifty-first|DSN=51"}, full,
                fullShown);
        // Written whole, read cut at 511 characters; what the list shows is what matches.
        const QString longString = "DSN=x;PWD=" + QString(590, 'p');
        const QStringList longFile{"[DSN]", "DSNName1=Long",
                                   "DSNString1=ETO>y<QXE>" + QString(590, 'q')};
        DataRow("long string", QStringList(), QStringList{"add|Long|" + longString}, longFile,
                QStringList{"Long | " + longString.left(511)});
        DataRow("long string matched as shown", longFile,
                QStringList{"delete|Long|" + longString, "modify|New|DSN=y|Long|" + longString,
                            "delete|Long|" + longString.left(511)},
                QStringList{"[DSN]", "DSNName1=", "DSNString1=", "[DSN1]"} + kBlankChoices,
                QStringList());
        // Of two identical slots the lower one changes.
        DataRow("identical slots", QStringList(),
                QStringList{"add|Twin|DSN=t", "add|Twin|DSN=t", "modify|Twin|DSN=t|Twin|DSN=t",
                            "delete|Twin|DSN=t"},
                QStringList{"[DSN]", "DSNName1=", "DSNString1=", "DSNName2=Twin",
                            "DSNString2=ETO>u", "[DSN1]"} + kBlankChoices,
                QStringList{"Twin | DSN=t"});
        // Names and strings match exactly; a miss changes nothing and is no error. Slot 1 is
        // free so that a wrong add could not hide behind a full store.
        const QStringList sales{"[DSN]", "DSNName1=", "DSNString1=", "DSNName2=Sales",
                                "DSNString2=ETO>Tbmft"};
        for (const char* step : {"delete|sales|DSN=Sales", "delete|Sales |DSN=Sales",
                                 "delete|Sales|dsn=Sales", "modify|New|DSN=New|SALES|DSN=Sales",
                                 "modify|New|DSN=New|Sales|DSN=Sales;", "modify|Sales|DSN=Sales"})
            DataRow(step, sales, QStringList{step}, sales, QStringList{"Sales | DSN=Sales"});
    }

    void changes()
    {
        QFETCH(QStringList, before);
        QFETCH(QStringList, steps);
        QFETCH(QStringList, after);
        QFETCH(QStringList, shown);
        if (!before.isEmpty())
            m_ini.write(before);
        for (const QString& step : steps) {
            QString message;
            QVERIFY2(apply(step, message) && message.isEmpty(), qPrintable(step + ": " + message));
        }
        QCOMPARE(m_ini.bytes(), iniBytes(after));
        QStringList listed;
        for (const DSNEntry& e : UpdateDSNListFromIni())
            listed << e.name + " | " + e.conString;
        QCOMPARE(listed, shown);
        // The file holds connection strings: only its owner may read one it created.
        if (before.isEmpty())
            QCOMPARE(QFile::permissions(m_ini.path) & (QFile::ReadGroup | QFile::ReadOther),
                     QFileDevice::Permissions());
    }

    // Nothing changes: a blank name or string, text without a Windows-1252 form, or a
    // string holding code 255, which has no successor to be stored as.
    void refused()
    {
        m_ini.write(
            {"[DSN]", "DSNName1=Sales", "DSNString1=ETO>Tbmft", "DSNName2=", "DSNString2="});
        const QByteArray before = m_ini.bytes();
        const QString blank = "There is no database connection selected.";
        const QString encoding = "(Windows-1252) - MaintainDSN";
        const QString scramble = "(code 255), which has no stored form - MaintainDSN";
        const QList<QPair<QString, QString>> cases = {{"add||DSN=Sales", blank},
            {"modify|   |DSN=Sales|Sales|DSN=Sales", blank}, {"delete|Sales|  ", blank},
            {QStringLiteral("add|Kunden \u4E2D|DSN=k"), encoding},
            {QStringLiteral("add|Kunden|DSN=\u0100"), encoding},
            {QStringLiteral("modify|\u0394elta|DSN=d|Sales|DSN=Sales"), encoding},
            {QStringLiteral("modify|Delta|DSN=\U0001F600|Sales|DSN=Sales"), encoding},
            {QStringLiteral("add|Odd|DSN=caf\u00FF"), scramble},
            {QStringLiteral("modify|Sales|DSN=\u00FF|Sales|DSN=Sales"), scramble}};
        for (const auto& [step, ending] : cases) {
            QString message;
            QVERIFY2(!apply(step, message) && message.endsWith(ending),
                     qPrintable(step + ": " + message));
            QCOMPARE(m_ini.bytes(), before);
        }
    }
};

QTEST_GUILESS_MAIN(TestConnectionStore)
#include "tst_connectionstore.moc"
