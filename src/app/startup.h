#pragma once

#include <QString>

#include <functional>

// The program's entry as the host starts it: checks the command line, fixes
// HostDataFolder() and IniFilePath(), tests the database drivers, then calls showForm to
// show the wizard. argumentText is the program's arguments joined by single blanks;
// programFolder is the folder of the executable. Returns true when the form was shown.
bool Main(const QString& argumentText, const QString& programFolder,
          const std::function<void()>& showForm);
