// The mapping step's combos: filling them, storing the choices made and showing them again.
#include <QtTest>

#include <algorithm>
#include <array>
#include <optional>

#include "import/cmappings.h"
#include "import/fieldmapping.h"
#include "import/hostfields.h"
#include "import/importchoices.h"
#include "util/listcontrol.h"
#include "util/scriptedmessageboxes.h"

#include "datarow.h"

namespace {

const QStringList kSourceFields = {"Email",   "First Name", "Surname", "Full Name", "Town",
                                   "(BLANK)", "Post Code",  "CITY",    " (Blank) ", "(blank)x"};

class TestCombos final : public MappingCombos
{
public:
    ListControl& combo(int hostFieldIndex) override { return lists.at(hostFieldIndex); }

    // "Key=Entry" selects the source field in the combo of the key as kHostFields spells it;
    // no entry selects nothing at all.
    void choose(const QString& pick)
    {
        const QString key = pick.section('=', 0, 0), entry = pick.section('=', 1);
        const auto field = std::find_if(kHostFields.begin(), kHostFields.end(),
                                        [&](const HostField& f) { return key == f.key; });
        QVERIFY(field != kHostFields.end());
        lists.at(field - kHostFields.begin())
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
    void store_data()
    {
        QTest::addColumn<QStringList>("picks");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QStringList>("mapped");
        DataRow("mapped",
                QStringList{"EMailAddress=Email", "FirstName=First Name", "LastName=Surname",
                            "Web=Town", "Fax=CITY", "Zip=(blank)x", "City= (Blank) ", "Country="},
                true,
                QStringList{"EMailAddress=Email", "FirstName=First Name", "LastName=Surname",
                            "Zip=(blank)x", "Web=Town", "Fax=CITY"});
        DataRow("(blank) address",
                QStringList{"EMailAddress=(blank)", "Telephone=CITY", "FullNameMacro=Full Name"},
                false, QStringList{"FullNameMacro=Full Name", "Telephone=CITY"});
        DataRow("address field named (BLANK)", QStringList{"EMailAddress=(BLANK)"}, false,
                QStringList());
    }

    void store()
    {
        QFETCH(QStringList, picks);
        QFETCH(bool, ok);
        QFETCH(QStringList, mapped);
        TestCombos combos;
        PopulateFieldCombos(combos, kSourceFields);
        for (const QString& pick : picks)
            combos.choose(pick);
        ImportChoices choices;
        choices.FieldMappings.Add("city", "Old");
        choices.FieldMappings.Add("Something", "Else");
        QString message = "left over";
        QCOMPARE(StoreFieldMapping(combos, choices.FieldMappings, message), ok);
        QCOMPARE(message, ok ? QString()
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

private:
    ScriptedMessageBoxes m_boxes;
    std::optional<MessageBoxesGuard> m_guard;
};

QTEST_GUILESS_MAIN(TestFieldMapping)
#include "tst_fieldmapping.moc"
