#pragma once

#include <QString>
#include <QStringList>

// One finished run of a program: exit code (-1 when it crashed or hung) and what it printed.
struct CliRun
{
    int exitCode = -1;
    QString out, err;
    int figure(const QString& label) const; // "label  : 12" on standard output; -1 when absent
};

QString buildProgram(const QString& name); // a program of this build, from DBIMPORT_BIN_DIR

// With filesFolder set, standard output and error go to files there, as cron sends them.
CliRun runProgram(const QString& program, const QStringList& arguments,
                  const QString& filesFolder = QString());

// Runs dbimport-cli and kills it (SIGKILL) once the Group file holds at least rows records:
// the records last seen, or -1 when the run ended before it could be killed.
int killImportOnceGroupHolds(const QStringList& arguments, const QString& group, int rows);
