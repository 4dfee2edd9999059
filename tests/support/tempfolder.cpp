#include "tempfolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

TempFolder::TempFolder() : m_dir(QDir::tempPath() + "/dbimport-test-XXXXXX") {}

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
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QString HostForm(const QString& nativePath)
{
    return "Z:" + QString(nativePath).replace('/', '\\');
}
