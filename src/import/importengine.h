#pragma once

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
