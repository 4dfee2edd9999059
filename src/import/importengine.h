#pragma once

#include <QMap>
#include <QString>

#include <memory>

class ImportView;
struct ImportChoices;

// One import run from a set of choices into a Group of HostDataFolder(): log, Group,
// duplicate check list, record retrieval, record loop, clean-up, log review offer.
// Questions and notices go through MessageBoxes::instance().
class ImportEngine final
{
public:
    ImportEngine(const ImportChoices& choices, ImportView& view);
    ~ImportEngine();
    ImportEngine(const ImportEngine&) = delete;
    ImportEngine& operator=(const ImportEngine&) = delete;

    // True when the record loop finished (normally or by the user's cancel); false with
    // errorText set when a phase failed or the user declined to run without a log.
    bool DoImportJob(QString& errorText);

    // A test run goes through every phase, check and counter of a real one but writes
    // nothing to the Group; its log is the test log. Set before DoImportJob.
    void setTestRun(bool testRun);
    // File names beside HostDataFolder(): the log this engine writes and the report.
    QString logFileName() const;
    static QString reportFileName();

    // True while the record loop runs.
    bool importRunning() const;
    // The Cancel button: asks the loop to stop at its next check.
    void requestStop();

    struct Totals
    {
        qint32 totalProcessed = 0;
        qint32 added = 0;
        qint32 duplicates = 0;
        qint32 illegal = 0;
        // Duplicates whose recipient the run changed (or, in a test run, would change), and
        // how often each Group field changed.
        qint32 updated = 0;
        QMap<QString, qint32> changedFields;
    };
    Totals totals() const;

private:
    class Private;
    std::unique_ptr<Private> d;
};

// E-mail validation of the record loop; reason is set only when the result is false.
bool IsEmailValid(const QString& email, QString& reason);
// Splits a full name into title, first name, initial and last name; fullName is consumed.
void SplitName(QString& fullName, QString& title, QString& firstName, QString& initial,
               QString& lastName);
