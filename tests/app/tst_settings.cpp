// Where the program finds its data folder and settings file when it starts, and what the
// settings file keeps: the connections and the import choices saved for each.
#include "app/connectionstore.h"
#include "app/importsettings.h"
#include "app/startup.h"

#include "import/importchoices.h"
#include "util/apperror.h"
#include "util/appglobals.h"
#include "util/scriptedmessageboxes.h"

#include "datarow.h"
#include "tempfolder.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QTest>

namespace {

// Lines as the program writes them: CR LF after each, one byte a character.
QByteArray iniBytes(const QStringList& lines)
{
    return (lines.join("\r\n") + "\r\n").toLatin1();
}

// A dbimport.ini of the test's own; reset() (from init()) removes it and points the program at it.
struct SettingsFile
{
    TempFolder dir;
    QString path = dir.filePath("dbimport.ini");

    void reset() const
    {
        QFile::remove(path);
        SetIniFilePath(path);
    }
    QByteArray bytes() const { return dir.readFile("dbimport.ini"); }
    void write(const QStringList& lines) const { dir.writeFile("dbimport.ini", iniBytes(lines)); }
};

const QString kNot = QStringLiteral("\u00AC");
const QString Untouched = QStringLiteral("<untouched>");

// [DSN] with the given names in slots 1, 2, ...
QStringList dsnSection(const QStringList& names)
{
    QStringList lines{"[DSN]"};
    for (int n = 1; n <= names.size(); ++n)
        lines << QString("DSNName%1=%2").arg(n).arg(names.at(n - 1))
              << QString("DSNString%1=ETO>%2").arg(n).arg(n);
    return lines;
}

ImportChoices choicesFor(const QString& dsn)
{
    ImportChoices choices;
    choices.DSNName = dsn;
    return choices;
}

// All that a load fills in: the five settings, then "host=db" mappings and "op|field|..." rules.
QStringList dump(const ImportChoices& c)
{
    QStringList out{QString::number(c.FilterMethod), c.SelectedTable, c.AdvancedSQLString,
                    c.VTGroup, c.ReplaceExisting ? "True" : "False"};
    for (const CMapping& m : c.FieldMappings)
        out << m.VTField + '=' + m.DBField;
    for (const CRule& r : c.Rules)
        out << QStringList{r.LogicalOp, r.FieldName, r.OpDisplay, r.OpSQL, r.Value}.join('|');
    return out;
}

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

class TestSettings : public QObject
{
    Q_OBJECT
    SettingsFile m_ini;
    long m_number = 0;
    QString m_message;
    bool save(ImportChoices& choices) { return SaveImportSettings(choices, m_number, m_message); }
    bool load(ImportChoices& choices) { return LoadImportSettings(choices, m_message); }

    ScriptedMessageBoxes m_boxes;

    // Main with scripted boxes, as "started|forms shown|data folder|settings file|boxes".
    QString start(const QString& arguments, const QString& programFolder, bool formFails = false)
    {
        m_boxes.clear();
        SetHostDataFolder(Untouched);
        SetIniFilePath(Untouched);
        MessageBoxesGuard guard(&m_boxes);
        int shown = 0;
        const bool started = Main(arguments, programFolder, [&shown, formFails] {
            if (formFails)
                throw AppError(7, "Out of memory while creating the form");
            ++shown;
        });
        // Every box of start-up is an error under the program's own title.
        for (const ScriptedMessageBoxes::Shown& box : m_boxes.shown()) {
            if (box.icon != MessageBoxes::Icon::Critical || !box.title.isEmpty())
                return "not an error box: " + box.text;
        }
        return QStringList{started ? "started" : "refused", QString::number(shown),
                           HostDataFolder(), IniFilePath(), m_boxes.texts().join('|')}
            .join('|');
    }

private slots:
    // First, before anything has loaded the SQL driver plug-ins.
    void missingDriversAreReported()
    {
        // Without any plug-in folder Qt SQL finds no driver, as on a machine that lacks them.
        TempFolder empty;
        const QStringList paths = QCoreApplication::libraryPaths();
        QCoreApplication::setLibraryPaths({empty.path()});
        const QString result = start("GZ:\\tmp\\data", "/opt/dbimport");
        const bool sqliteMissing = !QSqlDatabase::isDriverAvailable("QSQLITE");
        QCoreApplication::setLibraryPaths(paths);
        QVERIFY(sqliteMissing);
        // The data folder was taken before the drivers were tested; the settings path was not.
        QCOMPARE(result, "refused|0|Z:\\tmp\\data\\|" + Untouched + "|The application has "
                 "detected that ADO is not installed, this is required in order for the Veltrano "
                 "database import plug-in to run.");
        QVERIFY(QSqlDatabase::isDriverAvailable("QSQLITE"));
    }

    // The data folder is what follows the first capital G; any ":\" anywhere will do.
    void commandLine()
    {
        const QList<QPair<QString, QString>> cases = { // arguments, data folder (empty: refused)
            {"", ""}, {"C:\\Data", ""}, {"g:\\data", ""}, {"G/home/ann/data", ""}, {"GC:/Data", ""},
            {"GC\\:Data", ""}, {"GC:\\Groups", "C:\\Groups\\"}, {"GC:\\Data\\", "C:\\Data\\"},
            {"/GC:\\Data\\", "C:\\Data\\"}, {"C:\\Group\\Data", "roup\\Data\\"}, {"C:\\G", "\\"},
            {"xG y Z:\\tmp", " y Z:\\tmp\\"}, {"GC:\\Data ", "C:\\Data \\"},
            {"\"GZ:\\tmp\\data\\\"", "Z:\\tmp\\data\\\"\\"},
            {"-x GZ:\\home\\ann\\data", "Z:\\home\\ann\\data\\"}};
        const QString refused = "refused|0|" + Untouched + '|' + Untouched + "|Sorry but this "
            "component can only be launched from the Plug-in menu in Corbanis Veltrano Plus.";
        for (const auto& [arguments, folder] : cases) {
            const QString expected = folder.isEmpty()
                                         ? refused
                                         : "started|1|" + folder + "|/opt/dbimport/dbimport.ini|";
            QCOMPARE(arguments + " -> " + start(arguments, "/opt/dbimport"),
                     arguments + " -> " + expected);
        }
    }

    // The settings file is beside the program, and start-up does not create it. Run-time
    // errors show their description only.
    void programFolder()
    {
        TempFolder folder;
        const QString data = "|Z:\\data\\|", temp = folder.path();
        QCOMPARE(start("GZ:\\data", "/usr/lib/dbimport/"),
                 "started|1" + data + "/usr/lib/dbimport/dbimport.ini|");
        QCOMPARE(start("GZ:\\data", temp), "started|1" + data + temp + "/dbimport.ini|");
        QCOMPARE(start("GZ:\\data", ""), "refused|0" + data + Untouched +
                                             "|The folder of the program could not be determined.");
        QCOMPARE(start("GZ:\\data", temp + '/', true),
                 "refused|0" + data + temp + "/dbimport.ini|Out of memory while creating the form");
        QVERIFY(QDir(temp).isEmpty());
    }

    void init() { m_ini.reset(); }

    // Nothing is written and the record keeps its SQL: no slot holds the connection, or a
    // text has no Windows-1252 form (refused before the first write).
    void saveRefused()
    {
        const QStringList sales = dsnSection({"Sales"}) + QStringList{"[DSN1]", "VTGroup=Old"};
        const QStringList good = {"People", "Email", "1"}; // table, mapped field, rule value
        const QList<QPair<QStringList, QStringList>> cases = {{QStringList(), good},
            {dsnSection({"Members", "Sales team"}), good},
            {dsnSection(QStringList(50, "Filler")) + QStringList{"DSNName51=Sales"}, good},
            {sales, {QStringLiteral("\u8868"), "Email", "1"}},
            {sales, {"People", QStringLiteral("E\u2010mail"), "1"}},
            {sales, {"People", "Email", QStringLiteral("'\U0001F600'")}}};
        for (const auto& [file, texts] : cases) {
            m_ini.reset();
            if (!file.isEmpty())
                m_ini.write(file);
            const QByteArray before = m_ini.bytes();
            ImportChoices choices = choicesFor("Sales");
            choices.VTGroup = QStringLiteral("Caf\u00E9 \u20AC"); // both have a Windows-1252 code
            choices.SelectedTable = texts[0];
            choices.AdvancedSQLString = "select *\r\nfrom t";
            choices.FieldMappings.Add("EMailAddress", texts[1]);
            choices.Rules.Add("Town", "Equals", "=", texts[2], "And");
            m_number = -1;
            m_message.clear();
            QVERIFY(!save(choices));
            const bool found = file.contains("DSNName1=Sales");
            QCOMPARE(m_number, found ? long(AppError::Encoding) : 0L);
            QVERIFY2(found ? m_message.contains("Windows-1252")
                           : m_message == "DSN not found, cannot save associated data.",
                     qPrintable(m_message));
            QCOMPARE(choices.AdvancedSQLString, QString("select *\r\nfrom t"));
            QCOMPARE(m_ini.bytes(), before);
            QCOMPARE(QFile::exists(m_ini.path), !file.isEmpty());
            QCOMPARE(load(choices), found);
            QVERIFY(found || m_message == "DSN not found, cannot load associated data.");
        }
    }

    // Saved byte for byte, then loaded back with the deliberate losses: an unmapped entry,
    // blanks around a value, a not sign inside a rule's value.
    void saveThenLoad()
    {
        // The connection is found trimmed and in any case; the first slot that matches wins.
        const QStringList dsn = dsnSection({"Members", "", " Sales ", "sales"});
        m_ini.write(dsn);
        ImportChoices choices = choicesFor("SALES  ");
        choices.FilterMethod = 1;
        choices.SelectedTable = "Order Lines";
        choices.AdvancedSQLString = "select Email,\r\n  Name\r\nfrom [Order Lines]";
        choices.VTGroup = "Friends";
        choices.ReplaceExisting = true;
        choices.FieldMappings.Add("EMailAddress", "Email");
        choices.FieldMappings.Add("Title", "");
        choices.FieldMappings.Add("city", "Town");
        choices.Rules.Add("Town", "Equals", "=", "'O'Neil's'", "And");
        choices.Rules.Add(" Note", "is like", "like", "'50" + kNot + " off%'", "Or");
        QVERIFY(save(choices));
        // The record keeps the one-line SQL that was saved: the import that follows runs it.
        const QString sql = "select Email," + kNot + "  Name" + kNot + "from [Order Lines]";
        QCOMPARE(choices.AdvancedSQLString, sql);
        QCOMPARE(m_ini.bytes(), iniBytes(dsn + QStringList{"[DSN3]", "FilterMethod=1",
            "SelectedTable=Order Lines", "AdvancedSQLString=" + sql, "VTGroup=Friends",
            "ReplaceExisting=True", "[FieldMap3]", "VTField1=EMailAddress", "DBField1=Email",
            "VTField2=Title", "DBField2=", "VTField3=city", "DBField3=Town", "[Rules3]",
            "FieldName1=Town", "OpDisplay1=Equals", "OpSQL1==",
            "Value1=" + kNot + "O" + kNot + "Neil" + kNot + "s" + kNot, "LogicalOp1=And",
            "FieldName2= Note", "OpDisplay2=is like", "OpSQL2=like",
            "Value2=" + kNot + "50" + kNot + " off%" + kNot, "LogicalOp2=Or"}));
        ImportChoices loaded = choicesFor("sAlEs");
        QVERIFY(load(loaded));
        QCOMPARE(dump(loaded), QStringList({"1", "Order Lines",
            "select Email,\r\n  Name\r\nfrom [Order Lines]", "Friends", "True",
            "EMailAddress=Email", "city=Town", "And|Town|Equals|=|'O'Neil's'",
            "Or|Note|is like|like|'50' off%'"}));
    }

    // At most 50 entries of each kind; a shorter save blanks what a longer one left, so
    // that a load stops where it ended.
    void fiftyEntriesAndShorterSaves()
    {
        m_ini.write(dsnSection({"Sales"}));
        ImportChoices choices = choicesFor("Sales"), loaded = choicesFor("Sales");
        for (int j = 1; j <= 60; ++j) {
            choices.FieldMappings.Add("Host" + QString::number(j), "Db" + QString::number(j));
            choices.Rules.Add("F" + QString::number(j), "Equals", "=", QString::number(j), "And");
        }
        QVERIFY(save(choices) && load(loaded));
        QCOMPARE(dump(loaded).size(), 5 + 50 + 50);
        QVERIFY(m_ini.bytes().contains("LogicalOp50=And\r\n") && !m_ini.bytes().contains("51="));

        choices.FieldMappings.Clear();
        choices.Rules.Clear();
        for (int j = 1; j <= 21; ++j) {
            const QString n = QString::number(j);
            choices.FieldMappings.Add("Key" + n, j == 5 ? "" : "New" + n);
        }
        choices.Rules.Add("Only", "Equals", "=", "1", "Or");
        loaded = choicesFor("Sales");
        QVERIFY(save(choices) && load(loaded));
        QCOMPARE(dump(loaded).size(), 5 + 20 + 1);
        QCOMPARE(dump(loaded).mid(23),
                 QStringList({"Key20=New20", "Key21=New21", "Or|Only|Equals|=|1"}));
        const QByteArray bytes = m_ini.bytes();
        QVERIFY(bytes.contains("FieldName2=\r\nOpDisplay2=\r\nOpSQL2=\r\nValue2=\r\n"
                               "LogicalOp2=\r\n"));
        QVERIFY(bytes.contains("VTField50=\r\nDBField50=\r\n") && !bytes.contains("Db"));
    }

    // Values are read trimmed and cut at 511 characters, as the host's profile reader does;
    // the lists stop at the first empty entry and add to what the record holds.
    void loadReadsHandEditedValues()
    {
        // FilterMethod and ReplaceExisting as written, and as read.
        const QList<QPair<QStringList, QStringList>> cases = {
            {{"  1 ", " tRuE  "}, {"1", "True"}}, {{"0", "TRUE"}, {"0", "True"}},
            {{"2", "yes"}, {"0", "False"}}, {{"01", "1"}, {"0", "False"}},
            {{"", ""}, {"0", "False"}}};
        for (const auto& [written, read] : cases) {
            m_ini.write(dsnSection({"Sales"}) + QStringList{"[dsn1]", "filtermethod=" + written[0],
                "SELECTEDTABLE=  " + QString(520, 'T'),
                "AdvancedSQLString=  select 1" + kNot + "from x ", "VTGroup= Friends ",
                "ReplaceExisting=" + written[1], "[FieldMap1]", "VTField1=EMailAddress",
                "DBField1=Mail", "VTField2=Title", "DBField2=   ", "VTField3=", "DBField3=Orphan",
                "VTField4=", "DBField4=", "VTField5=City", "DBField5=Town", "[Rules1]",
                "FieldName1=Town", "OpDisplay1=Equals", "OpSQL1==", "Value1=1", "LogicalOp1=Or",
                "FieldName2=  ", "Value2=skipped", "FieldName3=Age", "OpSQL3=>", "Value3=3"});
            ImportChoices choices = choicesFor("Sales");
            choices.FilterMethod = 1;
            choices.ReplaceExisting = read[1] == "False";
            choices.FieldMappings.Add("Fax", "Kept");
            QVERIFY(load(choices));
            QCOMPARE(dump(choices), QStringList({read[0], QString(511, 'T'), "select 1\r\nfrom x",
                "Friends", read[1], "Fax=Kept", "EMailAddress=Mail", "=Orphan",
                "Or|Town|Equals|=|1"}));
        }
    }

    void duplicateMappingKeyEndsLoad()
    {
        m_ini.write(dsnSection({"Sales"}) + QStringList{"[DSN1]", "VTGroup=Friends", "[FieldMap1]",
            "VTField1=City", "DBField1=Town", "VTField2=CITY", "DBField2=Place", "VTField3=Zip",
            "DBField3=Post", "[Rules1]", "FieldName1=Town", "Value1=1"});
        ImportChoices choices = choicesFor("Sales");
        QVERIFY(!load(choices));
        QVERIFY2(m_message.startsWith(QString::number(AppError::DuplicateKey) + " - "),
                 qPrintable(m_message));
        QCOMPARE(dump(choices).mid(3), QStringList({"Friends", "False", "City=Town"}));
    }

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

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"
