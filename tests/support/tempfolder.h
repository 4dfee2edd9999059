#pragma once

#include <QString>
#include <QTemporaryDir>

// A throw-away folder removed with everything in it when the object goes.
class TempFolder final
{
public:
    TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    bool isValid() const { return m_dir.isValid(); }
    // Native path, without a trailing slash.
    QString path() const { return m_dir.path(); }
    QString filePath(const QString& name) const { return m_dir.filePath(name); }
    // The folder as the host hands it over: "Z:" and backslashes, ending in a backslash.
    QString hostPath() const;

    // Writes bytes to a file in the folder (sub-folders are created); returns its path.
    QString writeFile(const QString& name, const QByteArray& bytes) const;
    QByteArray readFile(const QString& name) const;

private:
    QTemporaryDir m_dir;
};

// "Z:" + path with every '/' turned into '\', the form the host uses.
QString HostForm(const QString& nativePath);
