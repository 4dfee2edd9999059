#pragma once

#include <QMap>
#include <QString>

class QByteArray;

// What one dbimport-cli import run reports at its end, for people and for monitoring.
struct CliRunSummary
{
    QString connection;
    QString group;
    bool replace = false;
    qint64 processed = 0;
    qint64 added = 0;
    qint64 duplicates = 0;
    qint64 illegal = 0;
    QString logPath;    // empty when the run had no log
    QString reportPath; // empty when the run wrote no report
    double seconds = 0;
    int exitStatus = 0;
    QString error; // why the run failed; empty on success
    // A test run wrote nothing: added is what a real run would add, updated how many
    // recipients it would change, changedFields how often each field would change.
    bool testRun = false;
    qint64 updated = 0;
    QMap<QString, qint32> changedFields;
};

// The closing lines printed after a run: what ran where, then the totals.
QString SummaryText(const CliRunSummary& summary);
// The same facts as one JSON object on one line, ending in a line feed.
QByteArray SummaryJson(const CliRunSummary& summary);

// Rewords a message the wizard shows in a box for a command line: one line, no
// "Click OK" advice, and an error number after its description instead of before it.
QString CommandLineWording(const QString& message);
// "70 - Permission denied" becomes "Permission denied (error 70)"; other text is kept.
QString numberLast(const QString& text);
