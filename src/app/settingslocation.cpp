#include "settingslocation.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

QString SettingsFolder(const QString& programFolder)
{
    const QString folder = QDir::cleanPath(programFolder);
    const bool system =
        folder == QLatin1String("/usr") || folder.startsWith(QLatin1String("/usr/"));
    if (!system && QFileInfo(folder).isWritable())
        return folder;
    return QDir(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation))
        .filePath(QStringLiteral("dbimport"));
}

QString SettingsFilePath(const QString& programFolder)
{
    return QDir(SettingsFolder(programFolder)).filePath(QStringLiteral("dbimport.ini"));
}
