#include "tempfolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

TempFolder::TempFolder() : m_dir(QDir::tempPath() + QStringLiteral("/dbimport-test-XXXXXX")) {}

QString TempFolder::hostPath() const
{
    return HostForm(path() + QLatin1Char('/'));
}

QString TempFolder::writeFile(const QString& name, const QByteArray& bytes) const
{
    const QString file = filePath(name);
    QDir().mkpath(QFileInfo(file).absolutePath());
    QFile f(file);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(bytes) != bytes.size())
        qFatal("cannot write the test file %s", qPrintable(file));
    return file;
}

QByteArray TempFolder::readFile(const QString& name) const
{
    QFile f(filePath(name));
    if (!f.open(QIODevice::ReadOnly))
        return QByteArray();
    return f.readAll();
}

QString HostForm(const QString& nativePath)
{
    QString host = nativePath;
    host.replace(QLatin1Char('/'), QLatin1Char('\\'));
    return QStringLiteral("Z:") + host;
}
