#include "readonlyfolder.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

ReadOnlyFolder::ReadOnlyFolder(const QString& path) : m_path(path)
{
    QDir().mkpath(path);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner);
    m_immutable = ::geteuid() == 0 && setImmutable(true);
}

ReadOnlyFolder::~ReadOnlyFolder()
{
    if (m_immutable)
        setImmutable(false);
    QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

bool ReadOnlyFolder::setImmutable(bool on)
{
    const int fd = ::open(QFile::encodeName(m_path).constData(), O_RDONLY | O_DIRECTORY);
    int flags = 0;
    bool ok = fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
    ok = ok && ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    if (fd >= 0)
        ::close(fd);
    return ok;
}
