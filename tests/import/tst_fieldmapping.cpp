// The mapping step: filling its combos, storing the choices made and showing them again,
// matching fields by column name, and the sample values read from a real source.
#include <QtTest>

#include <array>
#include <optional>

#include "import/cmappings.h"
#include "import/fieldmapping.h"
#include "import/hostfields.h"
#include "import/importchoices.h"
#include "import/namematch.h"
#include "import/samplerows.h"
#include "util/listcontrol.h"
#include "util/scriptedmessageboxes.h"

#include "sqlitefixture.h"
#include "tempfolder.h"

namespace {

const QStringList kSourceFields = {"Email",   "First Name", "Surname", "Full Name", "Town",
                                   "(BLANK)", "Post Code",  "CITY",    " (Blank) ", "(blank)x"};

int keyIndex(const QString& key)
{
    for (int i = 0; i < int(kHostFields.size()); ++i) {
        if (key == QLatin1String(kHostFields[size_t(i)].key))
            return i;
    }
    qFatal("no host field %s", qPrintable(key));
}

class TestCombos final : public MappingCombos
{
public:
    ListControl& combo(int hostFieldIndex) override { return lists.at(hostFieldIndex); }

    // "Key=Entry" selects the source field in the combo of the key as kHostFields spells it;
    // no entry selects nothing at all.
    void choose(const QString& pick)
    {
        const QString entry = pick.section('=', 1);
        lists.at(size_t(keyIndex(pick.section('=', 0, 0))))
            .setCurrentIndex(entry.isEmpty() ? -1 : int(kSourceFields.indexOf(entry)) + 1);
    }

    std::array<StringListControl, 21> lists;
};

// The mapping list as "Key=Field" lines, in list order.
QStringList dump(const CMappings& list)
{
    QStringList lines;
    for (const CMapping& m : list)
        lines << m.VTField + '=' + m.DBField;
    return lines;
}

// "Key=Column" pairs, in host field order, of every mapped field.
QStringList pairs(const std::array<QString, 21>& mapping)
{
    QStringList result;
    for (int i = 0; i < int(mapping.size()); ++i) {
        if (!mapping[size_t(i)].isEmpty())
            result << QString::fromUtf8(kHostFields[size_t(i)].key) + '=' + mapping[size_t(i)];
    }
    return result;
}

} // namespace

class TestFieldMapping : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_boxes.clear();
        m_guard.emplace(&m_boxes);
    }

    void cleanup() { m_guard.reset(); }

    // Storing rebuilds the whole list from the combos, the other fields even without an
    // address; "(blank)" in any spelling, or no selection, is stored as unmapped.
    void store()
    {
        const QList<std::tuple<QStringList, bool, QStringList>> cases = {
            // picks, stored with an address, mapped afterwards
            {{"EMailAddress=Email", "FirstName=First Name", "LastName=Surname", "Web=Town",
              "Fax=CITY", "Zip=(blank)x", "City= (Blank) ", "Country="},
             true,
             {"EMailAddress=Email", "FirstName=First Name", "LastName=Surname", "Zip=(blank)x",
              "Web=Town", "Fax=CITY"}},
            {{"EMailAddress=(blank)", "Telephone=CITY", "FullNameMacro=Full Name"},
             false,
             {"FullNameMacro=Full Name", "Telephone=CITY"}},
            {{"EMailAddress=(BLANK)"}, false, {}}}; // an address field named (BLANK)
        for (const auto& [picks, ok, mapped] : cases) {
            TestCombos combos;
            PopulateFieldCombos(combos, kSourceFields);
            for (const QString& pick : picks)
                combos.choose(pick);
            ImportChoices choices;
            choices.FieldMappings.Add("city", "Old");
            choices.FieldMappings.Add("Something", "Else");
            QString message = "left over";
            QCOMPARE(StoreFieldMapping(combos, choices.FieldMappings, message), ok);
            QCOMPARE(message,
                     ok ? QString()
                        : QString("You must match up the Email Address field in the import "
                                  "database to the Email Address field in the Veltrano "
                                  "database."));
            QCOMPARE(choices.FieldMappings.Count(), ok ? 21 : 20);
            QCOMPARE(dump(choices.FieldMappings).filter(QRegularExpression("=.")), mapped);
            // Entering the step again refills the combos, "(blank)" selected, and shows the stored
            // choices: storing those gives the same list.
            PopulateFieldCombos(combos, kSourceFields);
            for (const StringListControl& list : combos.lists)
                QVERIFY(list.count() == kSourceFields.size() + 1 && list.currentIndex() == 0);
            ShowFieldMapping(combos, choices);
            CMappings again;
            StoreFieldMapping(combos, again, message);
            QCOMPARE(dump(again), dump(choices.FieldMappings));
            QVERIFY(m_boxes.shown().isEmpty());
        }
    }

    // Fields are found in any letter case, blanks trimmed; keys only as spelled exactly.
    void showSelectsStoredFields()
    {
        TestCombos combos;
        PopulateFieldCombos(combos, kSourceFields);
        for (StringListControl& list : combos.lists)
            list.setCurrentIndex(1); // "Email": shows which combos were touched
        ImportChoices choices;
        for (const QString pair : {"City=Town", "Zip=post code", " Title =  Surname ",
                                   "Company=Employer", "Fax=", "address1=Town", "Mobile=Town"})
            choices.FieldMappings.Add(pair.section('=', 0, 0), pair.section('=', 1));
        ShowFieldMapping(combos, choices);
        QStringList touched;
        for (size_t i = 0; i < kHostFields.size(); ++i) {
            const QString shown = combos.lists[i].itemText(combos.lists[i].currentIndex());
            if (shown != "Email")
                touched << kHostFields[i].key + ('=' + shown);
        }
        QCOMPARE(touched, QStringList({"Title=Surname", "City=Town", "Zip=Post Code",
                                       "Company=(blank)", "Fax=(blank)"}));
        QVERIFY(m_boxes.shown().isEmpty());
    }

    // Names compare without case, blanks or punctuation, in English or German. The user's
    // choices stay, even odd ones, and a column they use is not taken twice. A full name is
    // matched only when no name part is mapped, and keeps the parts out.
    void matchByName()
    {
        const QList<std::tuple<QStringList, QStringList, QStringList, int>> cases = {
            // columns, the user's mapping, the mapping afterwards, fields matched
            {{"E-Mail", "Vorname", "Straße", "PLZ", "Webseite", "Telefax"},
             {},
             {"EMailAddress=E-Mail", "FirstName=Vorname", "Address1=Straße", "Zip=PLZ",
              "Web=Webseite", "Fax=Telefax"},
             6},
            {{"ID", "e_mail", "FIRST_NAME", "last-name", "Address.Line.1", "Postal Code", "County",
              "fax", "Field1"},
             {},
             {"EMailAddress=e_mail", "FirstName=FIRST_NAME", "LastName=last-name",
              "Address1=Address.Line.1", "State=County", "Zip=Postal Code", "Fax=fax",
              "Field1=Field1"},
             8},
            {{"Email", "Surname", "Given Name", "City", "Town"},
             {"EMailAddress=Surname", "City=Town"},
             {"EMailAddress=Surname", "FirstName=Given Name", "City=Town"},
             1},
            {{"Full Name", "Mail", "Phone"},
             {},
             {"EMailAddress=Mail", "FullNameMacro=Full Name", "Telephone=Phone"},
             3},
            {{"Name", "Forename", "Email Address"},
             {},
             {"EMailAddress=Email Address", "FirstName=Forename"},
             2},
            {{"Name", "First Name", "EMail"},
             {"FullNameMacro=Name"},
             {"EMailAddress=EMail", "FullNameMacro=Name"},
             1},
            {{"A", "B"}, {}, {}, 0}};
        for (const auto& [columns, userMapping, expected, matched] : cases) {
            std::array<QString, 21> mapping;
            for (const QString& pair : userMapping)
                mapping[size_t(keyIndex(pair.section('=', 0, 0)))] = pair.section('=', 1);
            QCOMPARE(MatchFieldsByName(columns, mapping), matched);
            QCOMPARE(pairs(mapping), expected);
        }
    }

    // Only the first 50 rows are read; the first non-empty value is shown, the e-mail
    // check counts what it would refuse, the full name splits as the import splits it.
    void sampleRows()
    {
        TempFolder folder;
        const QString file = folder.filePath("source.db");
        const QString error = BuildSqliteDatabase(
            file, {"CREATE TABLE People (Mail TEXT, \"Full Name\" TEXT, Note TEXT)",
                   "INSERT INTO People VALUES ('  ', '', NULL), ('bad', NULL, NULL), "
                   "(' a@x.com ', 'Dr Ann B Lee', NULL)",
                   "WITH RECURSIVE s(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM s WHERE i < 60) "
                   "INSERT INTO People SELECT CASE WHEN i > 44 THEN 'late' ELSE 'p' || i || "
                   "'@x.com' END, 'P ' || i, CASE WHEN i = 55 THEN 'too late' END FROM s"});
        QVERIFY2(error.isEmpty(), qPrintable(error));
        const QStringList columns{"Mail", "Full Name", "Note"};
        const SampleRows sample = SampleRows::read("Provider=SQLite;Data Source=" + file,
                                                   "select * from People", columns);
        QCOMPARE(sample.error, QString());
        QCOMPARE(sample.rows.size(), 50);
        QCOMPARE(sample.firstValue("Mail"), QString("bad"));
        QCOMPARE(sample.firstValue("Note"), QString());
        int sampled = 0;
        // Blank, "bad", and "late" in rows 48 to 50 of the 50.
        QCOMPARE(sample.refusedEmails("Mail", &sampled), 5);
        QCOMPARE(sampled, 50);
        QCOMPARE(sample.namePreview("Full Name"),
                 QString("Title: Dr  First: Ann  Initial: B  Last: Lee"));

        const SampleRows refused = SampleRows::read("Provider=SQLite;Data Source=" + file,
                                                    "select * from Nowhere", columns);
        QVERIFY(refused.error.contains("Nowhere"));
        QVERIFY(refused.rows.isEmpty());
    }

private:
    ScriptedMessageBoxes m_boxes;
    std::optional<MessageBoxesGuard> m_guard;
};

QTEST_GUILESS_MAIN(TestFieldMapping)
#include "tst_fieldmapping.moc"
