#pragma once

#include <QString>
#include <QStringList>

class CMappings;
class ListControl;
struct ImportChoices;

// The 21 mapping combos of the mapping step, by their position in kHostFields.
class MappingCombos
{
public:
    virtual ~MappingCombos() = default;
    virtual ListControl& combo(int hostFieldIndex) = 0;
};

// "(blank)" first (selected), then the field names in the order given.
void PopulateMappingCombo(ListControl& combo, const QStringList& fieldNames);
void PopulateFieldCombos(MappingCombos& combos, const QStringList& fieldNames);
// Selects in each combo the entry of its stored mapping ("(blank)" when absent).
void ShowFieldMapping(MappingCombos& combos, const ImportChoices& choices);
// Rebuilds the mapping list from the combos; false with message when the e-mail field is
// not mapped (the other 20 are stored all the same).
bool StoreFieldMapping(MappingCombos& combos, CMappings& mappings, QString& message);
bool AddToFieldMap(CMappings& mappings, const QString& dbField, const QString& key);
