#pragma once

#include <QFile>
#include <QStringList>

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
