#pragma once

#include <QString>

// The two process-wide paths fixed once by start-up. HostDataFolder keeps the host's
// Windows form (always ending in a backslash); reach the file system through NativePath().
QString HostDataFolder();
void SetHostDataFolder(const QString& folder);

QString IniFilePath();
void SetIniFilePath(const QString& path);

// The program's title, used on every message box that names no other.
QString AppTitle();
// "major.minor.revision"
QString AppVersion();
