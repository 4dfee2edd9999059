#pragma once

#include <QString>

// A folder nobody may create files in, made writable again on destruction. The owner's
// write permission is taken away; root ignores that, so for root the folder is also marked
// immutable, which binds root too.
class ReadOnlyFolder final
{
public:
    explicit ReadOnlyFolder(const QString& path);
    ~ReadOnlyFolder();
    ReadOnlyFolder(const ReadOnlyFolder&) = delete;
    ReadOnlyFolder& operator=(const ReadOnlyFolder&) = delete;

    // False where the file system offers no way to refuse writes (then skip the test).
    bool isReadOnly() const;

private:
    bool setImmutable(bool on);

    QString m_path;
    bool m_immutable = false;
};
