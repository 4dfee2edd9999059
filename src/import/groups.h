#pragma once

#include <QString>
#include <QStringList>

// The host's Groups in HostDataFolder(): one "<name>.gdb" file each.

// Group names in directory order, the host's own lists ("All Groups", "Exclusion List",
// any case) left out.
QStringList LoadVTGroups();
// The rules every Group name meets, wherever it comes from (the create-group dialog, the
// command line, saved choices): it stays inside the data folder (no "/" or "\", no leading
// period, no control character) and the settings file can store it (Windows-1252). False
// with a message saying why. Blank and reserved names are the callers' own checks.
bool IsUsableGroupName(const QString& name, QString& message);
// The host path of the Group's file in folder: the existing ".gdb" file whose name matches
// without regard to case, as on the host's file system, else folder + name + ".gdb".
QString GroupFilePath(const QString& name, const QString& folder);
// Creates folder + name + ".gdb" with the 21 Group fields. Shows its own message (through
// MessageBoxes) and returns false when the Group exists or the file cannot be created.
bool CreateGroup(const QString& name, const QString& folder);
// Deletes the Group's files and creates it afresh.
bool PurgeGroup(const QString& groupName);
