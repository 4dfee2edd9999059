#include "app/importsettings.h"

#include "import/importchoices.h"
#include "util/apperror.h"
#include "util/appglobals.h"

#include "tempfolder.h"

#include <QDir>
#include <QFile>
#include <QTest>

namespace {

const QString kNot = QStringLiteral("\u00AC");

// The test texts are all in Latin-1.
QByteArray iniBytes(const QStringList& lines)
{
    return (lines.join("\r\n") + "\r\n").toLatin1();
}

// [DSN] with the given names in slots 1, 2, ...
QStringList dsnSection(const QStringList& names)
{
    QStringList lines{"[DSN]"};
    for (int n = 1; n <= names.size(); ++n)
        lines << QString("DSNName%1=%2").arg(n).arg(names.at(n - 1))
              << QString("DSNString%1=ETO>%2").arg(n).arg(n);
    return lines;
}

QStringList dumpMappings(const CMappings& list)
{
    QStringList out;
    for (const CMapping& m : list)
        out << m.VTField + '=' + m.DBField;
    return out;
}

ImportChoices choicesFor(const QString& dsn)
{
    ImportChoices choices;
    choices.DSNName = dsn;
    return choices;
}

bool save(ImportChoices& choices)
{
    long number = 0;
    QString message;
    return SaveImportSettings(choices, number, message);
}

bool load(ImportChoices& choices)
{
    QString message;
    return LoadImportSettings(choices, message);
}

QStringList dumpRules(const CRules& list)
{
    QStringList out;
    for (const CRule& r : list)
        out << QStringList{r.LogicalOp, r.FieldName, r.OpDisplay, r.OpSQL, r.Value}.join('|');
    return out;
}

} // namespace

static ImportChoices filled(int count)
{
    ImportChoices choices = choicesFor("Sales");
    for (int j = 1; j <= count; ++j) {
        choices.FieldMappings.Add("Host" + QString::number(j), "Db" + QString::number(j));
        choices.Rules.Add("F" + QString::number(j), "Equals", "=", QString::number(j), "And");
    }
    return choices;
}

class TestImportSettings : public QObject
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

    void slotNotFound_data()
    {
        QTest::addColumn<QStringList>("file");
        QTest::addColumn<QString>("name");

        QTest::newRow("no file") << QStringList() << "Sales";
        QTest::newRow("other names") << dsnSection({"Members", "Sales team"}) << "Sales";
        QTest::newRow("slot 51 is never read")
            << dsnSection(QStringList(50, "Filler")) + QStringList{"DSNName51=Sales"} << "Sales";
    }

    void slotNotFound()
    {
        QFETCH(QStringList, file);
        QFETCH(QString, name);
        if (!file.isEmpty())
            writeFile(file);
        const QByteArray before = fileBytes();

        ImportChoices choices = choicesFor(name);
        choices.AdvancedSQLString = "select *\r\nfrom t";
        long number = -1;
        QString message;
        QVERIFY(!SaveImportSettings(choices, number, message));
        QCOMPARE(number, 0L);
        QCOMPARE(message, QString("DSN not found, cannot save associated data."));
        QCOMPARE(choices.AdvancedSQLString, QString("select *\r\nfrom t"));

        QVERIFY(!LoadImportSettings(choices, message));
        QCOMPARE(message, QString("DSN not found, cannot load associated data."));
        QCOMPARE(fileBytes(), before);
        QCOMPARE(QFile::exists(m_ini), !file.isEmpty());
    }

    void slotFoundByTrimmedNameInAnyCase()
    {
        writeFile(dsnSection({"Members", "", " Sales ", "sales"}));
        ImportChoices choices = choicesFor("SALES  ");
        choices.VTGroup = "Friends";
        QVERIFY(save(choices));
        QVERIFY(fileBytes().contains("[DSN3]\r\nFilterMethod=0\r\n"));
        QVERIFY(!fileBytes().contains("[DSN4]"));
        ImportChoices loaded = choicesFor("sAlEs");
        QVERIFY(load(loaded));
        QCOMPARE(loaded.VTGroup, QString("Friends"));
    }

    void saveWritesTheLayout()
    {
        writeFile(dsnSection({"Members", "Sales"}));
        ImportChoices choices = choicesFor("Sales");
        choices.FilterMethod = 1;
        choices.SelectedTable = "Customer List";
        choices.AdvancedSQLString = "select *\r\nfrom [Customer List]\r\n";
        choices.VTGroup = "Friends";
        choices.ReplaceExisting = true;
        choices.FieldMappings.Add("EMailAddress", "Email");
        choices.FieldMappings.Add("City", "");
        choices.Rules.Add("Town", "Equals", "=", "'O'Neil's'", "And");

        QVERIFY(save(choices));
        QCOMPARE(choices.AdvancedSQLString, "select *" + kNot + "from [Customer List]" + kNot);
        // Sections are appended in the order they are first written; the not sign is one byte.
        const QByteArray bytes = fileBytes();
        QCOMPARE(bytes, iniBytes(dsnSection({"Members", "Sales"}) + QStringList{
            "[DSN2]", "FilterMethod=1", "SelectedTable=Customer List",
            "AdvancedSQLString=select *" + kNot + "from [Customer List]" + kNot, "VTGroup=Friends",
            "ReplaceExisting=True", "[FieldMap2]", "VTField1=EMailAddress", "DBField1=Email",
            "VTField2=City", "DBField2=", "[Rules2]", "FieldName1=Town", "OpDisplay1=Equals",
            "OpSQL1==", "Value1=" + kNot + "O" + kNot + "Neil" + kNot + "s" + kNot, "LogicalOp1=And"}));
        // A second save of the same choices rewrites every key in place.
        QVERIFY(save(choices));
        QCOMPARE(fileBytes(), bytes);
    }

    void saveThenLoadFullChoices()
    {
        writeFile(dsnSection({"Sales"}));
        ImportChoices choices = choicesFor("Sales");
        choices.FilterMethod = 1;
        choices.SelectedTable = "Order Lines";
        choices.AdvancedSQLString = "select Email,\r\n  Name\r\nfrom People";
        choices.VTGroup = "Customers 2026";
        choices.ReplaceExisting = false;
        choices.FieldMappings.Add("EMailAddress", "Email");
        choices.FieldMappings.Add("Title", "");
        choices.FieldMappings.Add("FirstName", "First Name");
        choices.FieldMappings.Add("city", "Town");
        choices.Rules.Add("Town", "Equals", "=", "'Leeds'", "And");
        choices.Rules.Add("Name", "is like", "like", "'O''Neil%'", "Or");
        choices.Rules.Add("Note", "Equals", "=", "'50" + kNot + " off'", "And");
        choices.Rules.Add(" Age", "is Greater Than", ">", "30", "Or");

        QVERIFY(save(choices));
        ImportChoices loaded = choicesFor("Sales");
        QVERIFY(load(loaded));
        QCOMPARE(loaded.FilterMethod, 1L);
        QCOMPARE(loaded.SelectedTable, QString("Order Lines"));
        QCOMPARE(loaded.AdvancedSQLString, QString("select Email,\r\n  Name\r\nfrom People"));
        QCOMPARE(loaded.VTGroup, QString("Customers 2026"));
        QCOMPARE(loaded.ReplaceExisting, false);
        // The unmapped entry is not restored; the others come back as written, key case included.
        QCOMPARE(dumpMappings(loaded.FieldMappings),
                 QStringList({"EMailAddress=Email", "FirstName=First Name", "city=Town"}));
        // A not sign that was part of a value comes back as an apostrophe, and the profile file
        // keeps no blanks around a value.
        QCOMPARE(dumpRules(loaded.Rules),
                 QStringList({"And|Town|Equals|=|'Leeds'", "Or|Name|is like|like|'O''Neil%'",
                              "And|Note|Equals|=|'50' off'", "Or|Age|is Greater Than|>|30"}));
    }

    void fiftyEntriesKeptAndShorterSaveBlanksSurplus()
    {
        writeFile(dsnSection({"Sales"}));
        ImportChoices choices = filled(60);
        QVERIFY(save(choices));
        QVERIFY(fileBytes().contains("DBField50=Db50\r\n"));
        QVERIFY(fileBytes().contains("LogicalOp50=And\r\n"));
        QVERIFY(!fileBytes().contains("51="));
        ImportChoices loaded = choicesFor("Sales");
        QVERIFY(load(loaded));
        QCOMPARE(loaded.FieldMappings.Count(), 50);
        QCOMPARE(loaded.Rules.Count(), 50);

        choices.FieldMappings.Clear();
        choices.Rules.Clear();
        for (int j = 1; j <= 21; ++j)
            choices.FieldMappings.Add("Key" + QString::number(j), j == 5 ? "" : "New" + QString::number(j));
        choices.Rules.Add("Only", "Equals", "=", "1", "Or");
        QVERIFY(save(choices));
        const QByteArray bytes = fileBytes();
        QVERIFY(bytes.contains("VTField21=Key21\r\nDBField21=New21\r\nVTField22=\r\nDBField22=\r\n"));
        QVERIFY(bytes.contains("VTField50=\r\nDBField50=\r\n"));
        QVERIFY(bytes.contains("FieldName2=\r\nOpDisplay2=\r\nOpSQL2=\r\nValue2=\r\nLogicalOp2=\r\n"));
        QVERIFY(!bytes.contains("Db") && !bytes.contains("51="));
        loaded = choicesFor("Sales");
        QVERIFY(load(loaded));
        QCOMPARE(loaded.FieldMappings.Count(), 20);
        QCOMPARE(loaded.FieldMappings.Item(20)->VTField, QString("Key21"));
        QVERIFY(!loaded.FieldMappings.Item("Key5"));
        QCOMPARE(dumpRules(loaded.Rules), QStringList{"Or|Only|Equals|=|1"});
        // Saving the same short lists again writes nothing more: the blank keys stay alone.
        QVERIFY(save(choices));
        QCOMPARE(fileBytes(), bytes);
    }

    void loadReadsHandEditedValues_data()
    {
        QTest::addColumn<QString>("filterMethod");
        QTest::addColumn<QString>("replaceExisting");
        QTest::addColumn<long>("method");
        QTest::addColumn<bool>("replace");

        QTest::newRow("1 and True") << "1" << "True" << 1L << true;
        QTest::newRow("blanks around") << "  1 " << " tRuE  " << 1L << true;
        QTest::newRow("upper case") << "0" << "TRUE" << 0L << true;
        QTest::newRow("other numbers") << "2" << "yes" << 0L << false;
        QTest::newRow("leading zero") << "01" << "1" << 0L << false;
        QTest::newRow("False") << "-1" << "False" << 0L << false;
        QTest::newRow("empty") << "" << "" << 0L << false;
        QTest::newRow("garbage") << "one" << "True!" << 0L << false;
    }

    void loadReadsHandEditedValues()
    {
        QFETCH(QString, filterMethod);
        QFETCH(QString, replaceExisting);
        QFETCH(long, method);
        QFETCH(bool, replace);

        writeFile(dsnSection({"Sales"}) + QStringList{"[dsn1]", "filtermethod=" + filterMethod,
            "SELECTEDTABLE=  People ", "AdvancedSQLString=  select 1" + kNot + "from x ",
            "VTGroup= Friends ", "ReplaceExisting=" + replaceExisting});
        ImportChoices choices = choicesFor("Sales");
        choices.FilterMethod = 1;
        choices.ReplaceExisting = !replace;
        QVERIFY(load(choices));
        QCOMPARE(choices.FilterMethod, method);
        QCOMPARE(choices.ReplaceExisting, replace);
        QCOMPARE(choices.SelectedTable, QString("People"));
        QCOMPARE(choices.AdvancedSQLString, QString("select 1\r\nfrom x"));
        QCOMPARE(choices.VTGroup, QString("Friends"));
    }

    void loadStopsAtEmptyEntries()
    {
        writeFile(dsnSection({"Sales"}) + QStringList{"[FieldMap1]", "VTField1=EMailAddress",
            "DBField1=Mail", "VTField2=Title", "DBField2=   ", "VTField3=", "DBField3=Orphan",
            "VTField4=", "DBField4=", "VTField5=City", "DBField5=Town", "[Rules1]", "FieldName1=Town",
            "OpDisplay1=Equals", "OpSQL1==", "Value1=1", "LogicalOp1=Or", "FieldName2=  ",
            "Value2=skipped", "FieldName3=Age", "OpSQL3=>", "Value3=3"});
        ImportChoices choices = choicesFor("Sales");
        choices.FieldMappings.Add("Fax", "Kept");
        QVERIFY(load(choices));
        // Loading adds to what the record holds.
        QCOMPARE(dumpMappings(choices.FieldMappings),
                 QStringList({"Fax=Kept", "EMailAddress=Mail", "=Orphan"}));
        QCOMPARE(dumpRules(choices.Rules), QStringList{"Or|Town|Equals|=|1"});
    }

    void loadCutsLongValues()
    {
        const QString longSql = "select " + QString(600, QLatin1Char('x'));
        writeFile(dsnSection({"Sales"}) + QStringList{"[DSN1]", "AdvancedSQLString=" + longSql,
                                                      "SelectedTable=" + QString(520, 'T')});
        ImportChoices choices = choicesFor("Sales");
        QVERIFY(load(choices));
        QCOMPARE(choices.AdvancedSQLString, longSql.left(511));
        QCOMPARE(choices.SelectedTable, QString(511, 'T'));
    }

    void duplicateMappingKeyEndsLoad()
    {
        writeFile(dsnSection({"Sales"}) + QStringList{"[DSN1]", "VTGroup=Friends", "[FieldMap1]",
            "VTField1=City", "DBField1=Town", "VTField2=CITY", "DBField2=Place", "VTField3=Zip",
            "DBField3=Post", "[Rules1]", "FieldName1=Town", "Value1=1"});
        ImportChoices choices = choicesFor("Sales");
        QString message;
        QVERIFY(!LoadImportSettings(choices, message));
        QVERIFY2(message.startsWith(QString::number(AppError::DuplicateKey) + " - "),
                 qPrintable(message));
        QCOMPARE(choices.VTGroup, QString("Friends"));
        QCOMPARE(dumpMappings(choices.FieldMappings), QStringList{"City=Town"});
        QCOMPARE(choices.Rules.Count(), 0);
    }

    void saveFailureReportsTheError()
    {
        // The settings file turns out to be a folder: the first read finds nothing to match.
        QVERIFY(QDir(m_dir.path()).mkpath("dbimport.ini"));
        ImportChoices choices;
        long number = -1;
        QString message;
        // An empty name matches the first empty slot, and the write then fails.
        const bool saved = SaveImportSettings(choices, number, message);
        QVERIFY(QDir(m_dir.path()).rmdir("dbimport.ini"));
        QVERIFY(!saved);
        QVERIFY(number != 0);
        QVERIFY(!message.isEmpty());
        QVERIFY(message != "DSN not found, cannot save associated data.");
    }

    void unstorableTextIsRefused_data()
    {
        QTest::addColumn<QString>("table");
        QTest::addColumn<QString>("dbField");
        QTest::addColumn<QString>("value");

        QTest::newRow("table") << QStringLiteral("\u8868") << "Email" << "1";
        QTest::newRow("mapped field") << "People" << QStringLiteral("E\u2010mail") << "1";
        QTest::newRow("rule value") << "People" << "Email" << QStringLiteral("'\U0001F600'");
    }

    void unstorableTextIsRefused()
    {
        QFETCH(QString, table);
        QFETCH(QString, dbField);
        QFETCH(QString, value);

        writeFile(dsnSection({"Sales"}) + QStringList{"[DSN1]", "FilterMethod=0", "VTGroup=Old"});
        const QByteArray before = fileBytes();
        ImportChoices choices = choicesFor("Sales");
        choices.FilterMethod = 1;
        choices.VTGroup = QStringLiteral("Caf\u00E9 \u20AC"); // both have a Windows-1252 code
        choices.SelectedTable = table;
        choices.AdvancedSQLString = "select 1\r\nfrom x";
        choices.FieldMappings.Add("EMailAddress", dbField);
        choices.Rules.Add("Town", "Equals", "=", value, "And");
        long number = 0;
        QString message;
        QVERIFY(!SaveImportSettings(choices, number, message));
        QCOMPARE(number, long(AppError::Encoding));
        QVERIFY2(message.contains("Windows-1252"), qPrintable(message));
        // Refused before the first write: the old choices are whole, the record untouched.
        QCOMPARE(fileBytes(), before);
        QCOMPARE(choices.AdvancedSQLString, QString("select 1\r\nfrom x"));
    }

    void handEditedFileSurvivesSave_data()
    {
        QTest::addColumn<QByteArray>("lineEnd");
        QTest::newRow("CR LF") << QByteArray("\r\n");
        QTest::newRow("bare LF") << QByteArray("\n");
    }

    void handEditedFileSurvivesSave()
    {
        QFETCH(QByteArray, lineEnd);
        // What a text editor can leave behind, bytes Windows-1252 leaves undefined and a NUL too.
        const QByteArray longValue(2000, 'L');
        const QList<QByteArray> foreign = {"; kept comment", "[Other]",
            QByteArray("Key=\x81\x8D") + QByteArray(1, '\0') + "raw", "Long=" + longValue,
            "not a key line", "[Empty]"};
        const QList<QByteArray> lines = foreign + QList<QByteArray>{"[dsn]", "dsnNAME1=Members",
            "DSNSTRING1=ETO>2", "junk ] [ line", "DsnName2=Sales", "[DSN2]", "vtgroup=Old", "[DSN2]",
            "VTGroup=Second copy", "[fieldmap2]", "vtfield1=EMailAddress", "dbfield1=Mail",
            "[Rules3]", "FieldName1=Untouched"};
        m_dir.writeFile("dbimport.ini", lines.join(lineEnd) + lineEnd);

        ImportChoices choices = choicesFor("sales");
        choices.VTGroup = "New group";
        choices.FieldMappings.Add("EMailAddress", "Email");
        choices.FieldMappings.Add("City", "Town");
        choices.Rules.Add("Town", "Equals", "=", "'Leeds'", "And");
        QVERIFY(save(choices));
        ImportChoices loaded = choicesFor("SALES");
        QVERIFY(load(loaded));
        QCOMPARE(loaded.VTGroup, QString("New group"));
        QCOMPARE(dumpMappings(loaded.FieldMappings), QStringList({"EMailAddress=Email", "City=Town"}));
        QCOMPARE(dumpRules(loaded.Rules), QStringList{"And|Town|Equals|=|'Leeds'"});

        // Every line the program did not write is still there, byte for byte and in order.
        QList<QByteArray> after = fileBytes().split('\n');
        for (QByteArray& line : after) {
            if (line.endsWith('\r'))
                line.chop(1);
        }
        int from = 0;
        for (const QByteArray& line : foreign) {
            const int at = int(after.indexOf(line, from));
            QVERIFY2(at >= 0, line.left(40).constData());
            from = at + 1;
        }
        for (const QByteArray& line :
             {QByteArray("junk ] [ line"), QByteArray("[Rules3]"), QByteArray("FieldName1=Untouched"),
              QByteArray("VTGroup=Second copy"), QByteArray("dsnNAME1=Members")})
            QVERIFY2(after.contains(line), line.constData());
    }

private:
    QByteArray fileBytes() const { return m_dir.readFile("dbimport.ini"); }
    void writeFile(const QStringList& lines) const { m_dir.writeFile("dbimport.ini", iniBytes(lines)); }

    TempFolder m_dir;
    QString m_ini;
};

QTEST_GUILESS_MAIN(TestImportSettings)
#include "tst_importsettings.moc"
