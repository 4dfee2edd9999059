#pragma once

#include <QString>

#include <optional>
#include <vector>

class GroupStore;
struct sqlite3_stmt;

// What a Group remembers of its last import runs so that the last one can be undone: the
// recipients a run added (a range of row ids, since new rows only ever go to the end) and,
// when it replaced details, the values it overwrote. Kept in tables of its own in the Group
// file, created on first use, for the last ten runs, and written in the transactions of the
// run's own batches, so a killed run can be undone as far as it got. Edits made since by
// anyone else are noticed (a trigger notes hand-changed rows) and left alone.
struct ImportRunInfo
{
    qint64 run = 0;
    QString started; // "yyyy-MM-dd hh:mm:ss", local time
    QString connection;
    bool replace = false;
    qint32 added = 0;
    qint32 updated = 0;
};

struct UndoOutcome
{
    qint32 removed = 0;
    qint32 restored = 0;
    qint32 leftAlone = 0; // changed by hand since the run
};

class UndoJournal final
{
public:
    // One field of a replaced recipient; nullopt stands for NULL.
    struct Change
    {
        int index;
        std::optional<QString> oldValue;
        QString newValue;
    };

    explicit UndoJournal(GroupStore& store) : m_store(store) {}
    ~UndoJournal();
    UndoJournal(const UndoJournal&) = delete;
    UndoJournal& operator=(const UndoJournal&) = delete;

    // Before the first record. Throws AppError when the file cannot be written.
    void beginRun(const QString& connection, bool replace);
    // The current record of the store is about to be overwritten with these changes.
    void noteReplaced(qint64 rowid, const std::vector<Change>& changes);
    // After the last record; the store's close commits it.
    void endRun();

    // The newest run not undone yet. False with errorText empty when there is none (an
    // older Group, or every run undone); false with errorText set when the file fails.
    static bool lastRun(const QString& groupPath, ImportRunInfo& info, QString& errorText);
    // Undoes run (as lastRun gave it) in one transaction.
    static bool undoLast(const QString& groupPath, qint64 run, UndoOutcome& outcome,
                         QString& errorText);

    // The texts the wizard and the command line show.
    static QString describe(const ImportRunInfo& info, const QString& group);
    static QString describe(const UndoOutcome& outcome);
    static QString nothingToUndo(const QString& group);

private:
    GroupStore& m_store;
    qint64 m_run = 0;
    sqlite3_stmt* m_insert = nullptr;
    QString m_packed;
};
