#pragma once

#include <QString>
#include <QStringList>

#include <functional>

class ListControl;

// Small routines shared by the whole program. Paths are host (Windows-form) paths; each
// routine reaches the file system through NativePath().

// Reads [section] key of the profile file. Returns defaultValue when the value is empty or
// missing; otherwise the value cut at 511 characters (the 512-character read buffer).
QString ReadIniString(const QString& file, const QString& section, const QString& key,
                      const QString& defaultValue);

// Writes [section] key=value, creating file, section and key as needed. Throws AppError
// when the file cannot be written or the text has no Windows-1252 form; nothing is
// changed then.
void WriteIniString(const QString& file, const QString& section, const QString& key,
                    const QString& value);

// The stored form of a connection string: every character one Windows-1252 code higher
// (or lower). A character that has no successor (code 255) or predecessor (code 0), or
// no Windows-1252 code at all, makes the whole result empty.
QString ScrambleConString(const QString& text);
QString UnscrambleConString(const QString& text);

// Names (without folder) of the files "folder\*.extension", hidden ones included, in
// directory order. False, names unchanged, when there are none.
bool ListFiles(const QString& folder, const QString& extension, QStringList& names);

bool FileExists(const QString& path);

// The 8.3 short form of a path. Linux has none, so this is always empty.
QString GetShortName(const QString& path);

// Exact, case-insensitive search of the whole list; -1 when absent.
long FindComboItem(const ListControl& combo, const QString& text);

// True when a loaded form has that name, compared trimmed and upper-cased. Forms register
// themselves while they are loaded.
bool IsFormLoaded(const QString& formName);
void RegisterLoadedForm(const QString& formName);
void UnregisterLoadedForm(const QString& formName);

// Opens the file with its associated program. Returns the launcher's result: above 32 on
// success, below 32 on failure.
long ShellOpen(const QString& file, const QString& parameters = QString(), int showMode = 1,
               const QString& directory = QString(), const QString& verb = QString(),
               void* ownerWindow = nullptr);

// Replaces the launcher behind ShellOpen (tests; the default opens the file's URL with
// the desktop's handler). An empty function restores the default.
using ShellLauncher = std::function<long(const QString& nativeFile, const QString& verb)>;
void SetShellLauncher(ShellLauncher launcher);
