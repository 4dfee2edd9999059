#pragma once

#include <QFile>
#include <QStringList>

#include "app/connectionstore.h"
#include "app/importsettings.h"
#include "import/importchoices.h"
#include "util/appglobals.h"

#include "tempfolder.h"

// Lines as the program writes them: CR LF after each, one byte a character.
inline QByteArray iniBytes(const QStringList& lines)
{
    return (lines.join("\r\n") + "\r\n").toLatin1();
}

// A dbimport.ini of the test's own; reset() (from init()) removes it and points the program at it.
struct SettingsFile
{
    TempFolder dir;
    QString path = dir.filePath("dbimport.ini");

    void reset() const
    {
        QFile::remove(path);
        SetIniFilePath(path);
    }
    QByteArray bytes() const { return dir.readFile("dbimport.ini"); }
    void write(const QStringList& lines) const { dir.writeFile("dbimport.ini", iniBytes(lines)); }
};

// Adds the choices' connection to the settings file ini and saves the choices for it, as the
// wizard does before an import: empty, or why it failed.
inline QString saveConnectionChoices(const QString& ini, ImportChoices choices)
{
    SetIniFilePath(ini);
    QString message;
    long number = 0;
    if (MaintainDSN(choices.DSNName, choices.ConnectionString, ConnectionAction::Add, message))
        SaveImportSettings(choices, number, message);
    SetIniFilePath(QString());
    return message;
}
