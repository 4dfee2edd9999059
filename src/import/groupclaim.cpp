#include "groupclaim.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

GroupClaim::~GroupClaim()
{
    release();
}

bool GroupClaim::acquire(const QString& nativePath, int waitMs)
{
    release();
    // flock() locks belong to the open file, not to the process, and never meet the
    // fcntl() locks SQLite takes on the same file: the Group store works as before.
    const int fd = ::open(QFile::encodeName(nativePath).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return true;
    QElapsedTimer waited;
    waited.start();
    for (;;) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            m_fd = fd;
            return true;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            // A file system without locks cannot hold a claim; the run goes on unclaimed
            // rather than not at all.
            ::close(fd);
            return true;
        }
        if (waited.elapsed() >= waitMs) {
            ::close(fd);
            return false;
        }
        QThread::msleep(100);
    }
}

void GroupClaim::release()
{
    if (m_fd >= 0) {
        ::flock(m_fd, LOCK_UN);
        ::close(m_fd);
        m_fd = -1;
    }
}
