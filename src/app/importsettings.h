#pragma once

#include <QString>

struct ImportChoices;

// The choices last used with a connection, kept in [DSN<n>], [FieldMap<n>] and [Rules<n>]
// of the settings file IniFilePath(), n being the connection's slot.
bool SaveImportSettings(ImportChoices& choices, long& errorNumber, QString& message);
bool LoadImportSettings(ImportChoices& choices, QString& message);
