#include "appglobals.h"

namespace {
QString g_hostDataFolder;
QString g_iniFilePath;
} // namespace

QString HostDataFolder() { return g_hostDataFolder; }
void SetHostDataFolder(const QString& folder) { g_hostDataFolder = folder; }
QString IniFilePath() { return g_iniFilePath; }
void SetIniFilePath(const QString& path) { g_iniFilePath = path; }

QString AppTitle() { return QStringLiteral("Veltrano Database Import"); }
QString AppVersion() { return QStringLiteral(DBIMPORT_VERSION_STRING); }
