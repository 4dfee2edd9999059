#pragma once

#include <QList>
#include <QString>

// The named connections kept in slots 1 to 50 of [DSN] in the settings file.
enum class ConnectionAction { Add = 0, Modify = 1, Delete = 2 };

struct DSNEntry
{
    QString name;
    QString conString; // unscrambled
};

// Adds, modifies (oldName/oldConString identify the slot) or deletes a connection in the
// settings file IniFilePath(). False with errorMessage set on failure.
bool MaintainDSN(const QString& name, const QString& conString, ConnectionAction action,
                 QString& errorMessage, const QString& oldName = QString(),
                 const QString& oldConString = QString());

// The rows of the wizard's connection list, in slot order.
QList<DSNEntry> UpdateDSNListFromIni();
