#pragma once

#include <QString>
#include <QTemporaryDir>

// "Z:" + path with every '/' turned into '\', the form the host uses.
QString HostForm(const QString& nativePath);

// A throw-away folder removed with everything in it when the object goes.
class TempFolder final
{
public:
    TempFolder();
    Q_DISABLE_COPY_MOVE(TempFolder)

    QString path() const { return m_dir.path(); } // without a trailing slash
    QString filePath(const QString& name) const { return m_dir.filePath(name); }
    QString hostPath() const { return HostForm(path() + '/'); } // ends in a backslash
    QString writeFile(const QString& name, const QByteArray& bytes) const;
    QByteArray readFile(const QString& name) const;

private:
    QTemporaryDir m_dir;
};
