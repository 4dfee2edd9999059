#pragma once

#include <QStringList>

class QTextStream;

// dbimport-cli: runs the saved choices of one connection without the wizard, creates a
// Group or lists the Groups. arguments are the program's, its name first. Status lines,
// the log path and the totals go to out; messages and errors to err; terminal selects a
// redrawn progress bar (on err) instead of plain progress lines (on out).
// Returns 0 on success, 1 when the job failed, 2 for a usage error.
int RunCommandLine(const QStringList& arguments, QTextStream& out, QTextStream& err, bool terminal);
