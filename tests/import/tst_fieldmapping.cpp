#include "import/cmappings.h"
#include "import/fieldmapping.h"
#include "import/hostfields.h"
#include "import/importchoices.h"

#include "util/apperror.h"
#include "util/listcontrol.h"
#include "util/scriptedmessageboxes.h"

#include <QTest>

#include "datarow.h"

#include <array>

namespace {

class TestCombos final : public MappingCombos
{
public:
    ListControl& combo(int hostFieldIndex) override { return lists.at(hostFieldIndex); }

    // The combo of a host field key as spelled in kHostFields.
    StringListControl& byKey(const char* key)
    {
        for (size_t i = 0; i < kHostFields.size(); ++i) {
            if (qstrcmp(kHostFields[i].key, key) == 0)
                return lists.at(i);
        }
        qFatal("unknown host field %s", key);
    }

    // Selects the entry with exactly this text (case-sensitive, unlike the program's search).
    void choose(const char* key, const QString& text)
    {
        StringListControl& list = byKey(key);
        for (int i = 0; i < list.count(); ++i) {
            if (list.itemText(i) == text) {
                list.setCurrentIndex(i);
                return;
            }
        }
        qFatal("no entry %s", qPrintable(text));
    }

    std::array<StringListControl, 21> lists;
};

const QStringList kSourceFields = {"Email", "First Name", "Surname",   "Full Name",
                                   "Town",  "(BLANK)",    "Post Code", "CITY"};

// The mapping list as "Key=Field" lines, in list order.
QStringList dump(const CMappings& list)
{
    QStringList lines;
    for (const CMapping& m : list)
        lines << m.VTField + '=' + m.DBField;
    return lines;
}

const QStringList kStoredOrder = {
    "EMailAddress", "Title",     "FirstName", "Initial", "LastName", "FullNameMacro", "Address1",
    "Address2",     "City",      "State",     "Zip",     "Country",  "Company",       "JobTitle",
    "Web",          "Telephone", "Fax",       "Field1",  "Field2",   "Field3",        "Field4"};

// What a store gives: every host field in this order, mapped as the pairs say, else empty.
QStringList stored(const QMap<QString, QString>& mapped, bool withEmail = true)
{
    QStringList lines;
    for (const QString& key : kStoredOrder) {
        if (withEmail || key != "EMailAddress")
            lines << key + '=' + mapped.value(key);
    }
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
        m_previous = &MessageBoxes::instance();
        MessageBoxes::setInstance(&m_boxes);
    }

    void cleanup() { MessageBoxes::setInstance(m_previous); }

    void populateStartsWithBlankAndRefills()
    {
        TestCombos combos;
        PopulateFieldCombos(combos, {"A", "B", "A"});
        PopulateFieldCombos(combos, kSourceFields);
        for (StringListControl& list : combos.lists) {
            QCOMPARE(list.count(), kSourceFields.size() + 1);
            QCOMPARE(list.itemText(0), QString("(blank)"));
            QCOMPARE(list.currentIndex(), 0);
            for (int i = 0; i < kSourceFields.size(); ++i)
                QCOMPARE(list.itemText(i + 1), kSourceFields.at(i));
        }

        // No sorting, no removal of repeats.
        StringListControl single;
        PopulateMappingCombo(single, {"b", "a", "b"});
        QCOMPARE(single.count(), 4);
        QCOMPARE(single.itemText(3), QString("b"));
    }

    void storeAllFields()
    {
        TestCombos combos;
        PopulateFieldCombos(combos, kSourceFields);
        combos.choose("EMailAddress", "Email");
        combos.choose("FirstName", "First Name");
        combos.choose("LastName", "Surname");
        combos.choose("City", "Town");
        combos.choose("Zip", "Post Code");

        CMappings list;
        QString message = "left over";
        QVERIFY(StoreFieldMapping(combos, list, message));
        QCOMPARE(message, QString());
        QVERIFY(m_boxes.shown().isEmpty());

        QCOMPARE(dump(list), stored({{"EMailAddress", "Email"},
                                     {"FirstName", "First Name"},
                                     {"LastName", "Surname"},
                                     {"City", "Town"},
                                     {"Zip", "Post Code"}}));
    }

    void storeWithoutEmail_data()
    {
        QTest::addColumn<QString>("emailEntry");
        QTest::newRow("(blank) entry") << "(blank)";
        QTest::newRow("a source field named (BLANK)") << "(BLANK)";
    }

    void storeWithoutEmail()
    {
        QFETCH(QString, emailEntry);
        TestCombos combos;
        PopulateFieldCombos(combos, kSourceFields);
        combos.choose("EMailAddress", emailEntry);
        combos.choose("Telephone", "CITY");
        combos.choose("FullNameMacro", "Full Name");

        CMappings list;
        QString message;
        QVERIFY(!StoreFieldMapping(combos, list, message));
        QCOMPARE(message, QString("You must match up the Email Address field in the import "
                                  "database to the Email Address field in the Veltrano database."));
        QVERIFY(m_boxes.shown().isEmpty());
        QCOMPARE(dump(list),
                 stored({{"Telephone", "CITY"}, {"FullNameMacro", "Full Name"}}, false));
    }

    void storeReplacesEarlierList()
    {
        TestCombos combos;
        PopulateFieldCombos(combos, kSourceFields);
        combos.choose("EMailAddress", "Email");

        CMappings list;
        list.Add("city", "Old");
        list.Add("Something", "Else");
        QString message;
        QVERIFY(StoreFieldMapping(combos, list, message));
        QCOMPARE(dump(list), stored({{"EMailAddress", "Email"}}));
        QVERIFY(m_boxes.shown().isEmpty());
    }

    void fieldNamedBlankIsUnmapped()
    {
        TestCombos combos;
        PopulateFieldCombos(combos, {"Mail", " (Blank) ", "(blank)x"});
        combos.choose("EMailAddress", "Mail");
        combos.choose("City", " (Blank) ");
        combos.choose("Zip", "(blank)x");
        // Nothing selected at all reads as an empty entry, stored as unmapped too.
        combos.byKey("Fax").setCurrentIndex(-1);

        CMappings list;
        QString message;
        QVERIFY(StoreFieldMapping(combos, list, message));
        QCOMPARE(dump(list), stored({{"EMailAddress", "Mail"}, {"Zip", "(blank)x"}}));
    }

    void addToFieldMapReportsDuplicate()
    {
        CMappings list;
        QVERIFY(AddToFieldMap(list, " Town ", "City"));
        QCOMPARE(list.Item("City")->DBField, QString(" Town "));
        QVERIFY(!AddToFieldMap(list, "Other", "CITY"));
        QCOMPARE(list.Count(), 1);
        QCOMPARE(m_boxes.shown().size(), 1);
        const ScriptedMessageBoxes::Shown& box = m_boxes.shown().first();
        QCOMPARE(box.icon, MessageBoxes::Icon::Critical);
        QVERIFY2(box.text.startsWith("457 - "), qPrintable(box.text));
        QCOMPARE(box.title, QString("AddToFieldMap : CITY"));
    }

    void showSelectsStoredFields_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("combo");
        QTest::addColumn<QString>("shown");
        DataRow("exact", "City", "Town", "City", "Town");
        DataRow("field in other case", "Zip", "post code", "Zip", "Post Code");
        DataRow("first of two case variants", "City", "city", "City", "CITY");
        DataRow("blanks around both trimmed", " Title ", "  Surname ", "Title", "Surname");
        DataRow("field gone", "Company", "Employer", "Company", "(blank)");
        DataRow("empty field", "Fax", "", "Fax", "(blank)");
        DataRow("key in wrong case ignored", "city", "Town", "City", "Email");
        DataRow("unknown key ignored", "Mobile", "Town", "City", "Email");
    }

    void showSelectsStoredFields()
    {
        QFETCH(QString, key);
        QFETCH(QString, field);
        QFETCH(QString, combo);
        QFETCH(QString, shown);

        TestCombos combos;
        PopulateFieldCombos(combos, kSourceFields);
        // A previous selection shows whether the combo was touched at all.
        StringListControl& target = combos.byKey(qPrintable(combo));
        target.setCurrentIndex(1);

        ImportChoices choices;
        choices.FieldMappings.Add(key, field);
        ShowFieldMapping(combos, choices);
        QCOMPARE(target.itemText(target.currentIndex()), shown);
        QVERIFY(m_boxes.shown().isEmpty());
    }

    void storeThenShowRoundTrip()
    {
        TestCombos combos;
        PopulateFieldCombos(combos, kSourceFields);
        combos.choose("EMailAddress", "Email");
        combos.choose("FullNameMacro", "Full Name");
        combos.choose("Address1", "Town");
        combos.choose("Field4", "CITY");

        ImportChoices choices;
        QString message;
        QVERIFY(StoreFieldMapping(combos, choices.FieldMappings, message));

        // Entering the step again rebuilds the combos, then shows the stored choices.
        PopulateFieldCombos(combos, kSourceFields);
        ShowFieldMapping(combos, choices);
        for (size_t i = 0; i < kHostFields.size(); ++i) {
            const StringListControl& list = combos.lists.at(i);
            const QString expected = choices.FieldMappings.Item(kHostFields[i].key)->DBField;
            QCOMPARE(list.itemText(list.currentIndex()),
                     expected.isEmpty() ? QString("(blank)") : expected);
        }
        QCOMPARE(combos.byKey("Field4").currentIndex(), kSourceFields.indexOf("CITY") + 1);
    }

private:
    ScriptedMessageBoxes m_boxes;
    MessageBoxes* m_previous = nullptr;
};

QTEST_GUILESS_MAIN(TestFieldMapping)
#include "tst_fieldmapping.moc"
