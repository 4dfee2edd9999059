#include "fieldmapping.h"

#include "cmappings.h"
#include "hostfields.h"
#include "importchoices.h"

#include "util/apperror.h"
#include "util/appglobals.h"
#include "util/listcontrol.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"

#include <exception>

namespace {

const QString kBlankEntry = QStringLiteral("(blank)");

// Position in kHostFields of a key spelled exactly as there (case included); -1 if none.
int hostFieldIndex(const QString& key)
{
    for (int i = 0; i < static_cast<int>(kHostFields.size()); ++i) {
        if (key == QLatin1String(kHostFields[i].key))
            return i;
    }
    return -1;
}

// The list entry at the selected index, not whatever an edit field might show.
QString selectedEntry(const ListControl& combo)
{
    return combo.itemText(combo.currentIndex());
}

bool isBlankEntry(const QString& text)
{
    return text.trimmed().toUpper() == QLatin1String("(BLANK)");
}

// The order the mapping list is rebuilt in after the e-mail address. It is not the order of
// the combos: the name parts come before the full name.
const char* const kStoreOrder[] = {
    "Title",     "FirstName", "Initial", "LastName", "FullNameMacro", "Address1", "Address2",
    "City",      "State",     "Zip",     "Country",  "Company",       "JobTitle", "Web",
    "Telephone", "Fax",       "Field1",  "Field2",   "Field3",        "Field4",
};

} // namespace

void PopulateMappingCombo(ListControl& combo, const QStringList& fieldNames)
{
    combo.addItem(kBlankEntry);
    combo.setCurrentIndex(0);
    for (const QString& name : fieldNames)
        combo.addItem(name);
}

void PopulateFieldCombos(MappingCombos& combos, const QStringList& fieldNames)
{
    for (int i = 0; i < static_cast<int>(kHostFields.size()); ++i)
        combos.combo(i).clear();
    for (int i = 0; i < static_cast<int>(kHostFields.size()); ++i)
        PopulateMappingCombo(combos.combo(i), fieldNames);
}

void ShowFieldMapping(MappingCombos& combos, const ImportChoices& choices)
{
    try {
        const CMappings& mappings = choices.FieldMappings;
        for (int position = 1; position <= mappings.Count(); ++position) {
            const CMapping* mapping = mappings.Item(position);
            const QString key = mapping->VTField.trimmed();
            const QString field = mapping->DBField.trimmed();
            // Only the exact spelling finds its combo, though the list itself would find
            // the entry whatever the case.
            const int index = hostFieldIndex(key);
            if (index < 0)
                continue;
            ListControl& combo = combos.combo(index);
            combo.setCurrentIndex(static_cast<int>(FindComboItem(combo, field)));
            if (combo.currentIndex() == -1)
                combo.setCurrentIndex(0);
        }
    } catch (const AppError& e) {
        MessageBoxes::instance().critical(e.numberAndDescription());
    }
}

bool StoreFieldMapping(MappingCombos& combos, CMappings& mappings, QString& message)
{
    bool result = false;
    try {
        message.clear();
        for (int position = mappings.Count(); position >= 1; --position)
            mappings.Delete(position);

        ListControl& email = combos.combo(hostFieldIndex(QStringLiteral("EMailAddress")));
        if (isBlankEntry(selectedEntry(email))) {
            message = QStringLiteral("You must match up the Email Address field in the import "
                                     "database to the Email Address field in the Veltrano "
                                     "database.");
        } else {
            AddToFieldMap(mappings, selectedEntry(email), QStringLiteral("EMailAddress"));
        }

        // The other fields are stored even when the e-mail address is missing, so that
        // the choices made so far survive a return to this step.
        for (const char* key : kStoreOrder) {
            const QString hostKey = QLatin1String(key);
            AddToFieldMap(mappings, selectedEntry(combos.combo(hostFieldIndex(hostKey))), hostKey);
        }
        result = message.isEmpty();
    } catch (const AppError& e) {
        MessageBoxes::instance().critical(e.numberAndDescription(),
                                          AppTitle() + QStringLiteral(" - StoreFieldMapping"));
    }
    return result;
}

bool AddToFieldMap(CMappings& mappings, const QString& dbField, const QString& key)
{
    try {
        // A field literally called "(blank)" cannot be told from the unmapped entry.
        if (isBlankEntry(dbField))
            mappings.Add(key, QString());
        else
            mappings.Add(key, dbField);
        return true;
    } catch (const AppError& e) {
        MessageBoxes::instance().critical(e.numberAndDescription(),
                                          QStringLiteral("AddToFieldMap : ") + key);
        return false;
    }
}
