#pragma once

#include <QFileInfo>
#include <QString>

// A folder nobody may create files in, writable again on destruction. Root ignores the
// missing write permission, so for root the folder is also marked immutable.
class ReadOnlyFolder final
{
public:
    explicit ReadOnlyFolder(const QString& path);
    ~ReadOnlyFolder();
    Q_DISABLE_COPY_MOVE(ReadOnlyFolder)
    // False where nothing refuses writes (then skip the test).
    bool isReadOnly() const { return !QFileInfo(m_path).isWritable(); }

private:
    bool setImmutable(bool on);
    QString m_path;
    bool m_immutable = false;
};
