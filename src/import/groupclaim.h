#pragma once

#include <QString>

// An exclusive claim on one Group file for the length of an import run, so that two runs
// (two schedules, or a schedule and the wizard) never write the same Group at once. The
// claim is an advisory lock on the file itself: it leaves the file and its folder as they
// are, is released when the process ends however it ends, and does not get in the way of
// anything that only reads the Group.
class GroupClaim final
{
public:
    GroupClaim() = default;
    ~GroupClaim();
    GroupClaim(const GroupClaim&) = delete;
    GroupClaim& operator=(const GroupClaim&) = delete;

    // Claims the file at nativePath, waiting up to waitMs for another run to let go. True
    // when claimed, and when there is no such file (the run then fails on its own, with
    // nothing to protect); false when another run still holds it.
    bool acquire(const QString& nativePath, int waitMs);
    void release();

private:
    int m_fd = -1;
};
