#pragma once

#include <QString>

// Where dbimport.ini lives: beside the program, as always, when the program runs from a
// folder of its own that the user may write to (a build tree, a copy in the home folder);
// for a program installed into the system (/usr/...) or any folder the user cannot write
// to, in the user's configuration folder ($XDG_CONFIG_HOME/dbimport, by default
// ~/.config/dbimport). The wizard and dbimport-cli share the rule, so they share the file.
QString SettingsFolder(const QString& programFolder);
QString SettingsFilePath(const QString& programFolder);
