#pragma once

#include "cmappings.h"

#include "query/crules.h"

#include <QString>

// The user's choices for one run: what the wizard collects, the settings file keeps per
// connection, and the import engine reads.
struct ImportChoices
{
    QString DSNName;          // the connection's descriptive name
    QString ConnectionString; // its ADO-style connection string
    long FilterMethod = 0;    // 0 = a table (with rules), 1 = advanced SQL
    QString SelectedTable;
    CRules Rules;
    QString AdvancedSQLString;
    CMappings FieldMappings;
    QString VTGroup; // destination Group name
    bool ReplaceExisting = false;

    // Empties every choice: texts empty, FilterMethod 0, ReplaceExisting false, no rules,
    // no mappings.
    void reset()
    {
        DSNName.clear();
        ConnectionString.clear();
        FilterMethod = 0;
        SelectedTable.clear();
        while (Rules.Count() > 0)
            Rules.Remove(Rules.Count());
        AdvancedSQLString.clear();
        FieldMappings.Clear();
        VTGroup.clear();
        ReplaceExisting = false;
    }
};
