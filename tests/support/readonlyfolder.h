#pragma once

#include <QString>

// A folder nobody may create files in, writable again on destruction. Root ignores the
// missing write permission, so for root the folder is also marked immutable.
class ReadOnlyFolder final
{
public:
    explicit ReadOnlyFolder(const QString& path);
    ~ReadOnlyFolder();
    Q_DISABLE_COPY_MOVE(ReadOnlyFolder)
    bool isReadOnly() const; // false where nothing refuses writes (then skip the test)

private:
    bool setImmutable(bool on);
    QString m_path;
    bool m_immutable = false;
};
