#pragma once

#include <QString>
#include <QStringList>

// The host's Groups in HostDataFolder(): one "<name>.gdb" file each.

// Group names in directory order, the host's own lists ("All Groups", "Exclusion List",
// any case) left out.
QStringList LoadVTGroups();
// Creates folder + name + ".gdb" with the 21 Group fields. Shows its own message (through
// MessageBoxes) and returns false when the Group exists or the file cannot be created.
bool CreateGroup(const QString& name, const QString& folder);
// Deletes the Group's files and creates it afresh.
bool PurgeGroup(const QString& groupName);
