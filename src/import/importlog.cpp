#include "importlog.h"

#include <QFile>
#include <QMap>

#include <memory>

#include "util/nativepath.h"

namespace {
QMap<qint16, std::shared_ptr<QFile>>& openFiles()
{
    static QMap<qint16, std::shared_ptr<QFile>> files;
    return files;
}
} // namespace

qint16& LogFileNumber()
{
    static qint16 number = 0;
    return number;
}

bool OpenLogFile(const QString& path, qint16& fileNumber, bool append, QString& errorText)
{
    const QString native = NativePath(path);
    if (!append && QFile::exists(native) && !QFile::remove(native)) {
        errorText = QStringLiteral("Permission denied");
        fileNumber = 0;
        return false;
    }
    qint16 number = 1;
    while (openFiles().contains(number))
        ++number;

    auto file = std::make_shared<QFile>(native);
    const QIODevice::OpenMode mode =
        QIODevice::WriteOnly | (append ? QIODevice::Append : QIODevice::Truncate);
    if (!file->open(mode)) {
        errorText = file->errorString();
        fileNumber = 0;
        return false;
    }
    openFiles().insert(number, file);
    fileNumber = number;
    return true;
}

void CloseLogFile(qint16 fileNumber)
{
    const auto file = openFiles().take(fileNumber);
    if (file)
        file->close();
}

void WriteLogLine(qint16 fileNumber, const QString& line)
{
    if (fileNumber == 0)
        return;
    const auto it = openFiles().constFind(fileNumber);
    if (it == openFiles().constEnd())
        return;
    QByteArray bytes = line.toUtf8();
    bytes.append("\r\n", 2);
    it.value()->write(bytes);
}
