#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>
#include <QTemporaryFile>
#include <QWaitCondition>

#include <atomic>
#include <memory>

class QThread;

// The rows of one statement, read on helper threads so that a window showing them stays
// responsive however many there are. One thread reads the rows forward and spools them to
// a private temporary file (so memory stays small); another counts them with COUNT(*). Each
// runs on a connection of its own and, as every statement sent to a source, inside a
// transaction that is rolled back.
class ResultSpool final
{
public:
    ResultSpool();
    ~ResultSpool(); // stops both threads and waits for them
    ResultSpool(const ResultSpool&) = delete;
    ResultSpool& operator=(const ResultSpool&) = delete;

    // Runs sql and waits until it has been executed and its first rows read (or, when
    // they are slow to come, half a second after it was executed). False with errorText
    // ("<number> - <description>") when the source refuses the connection or the
    // statement. Call once.
    bool start(const QString& conString, const QString& sql, QString& errorText);
    // Ends both threads at their next row; what was read stays readable.
    void stop();

    QStringList columns() const; // empty for a statement that returns no rows
    qint64 rowsRead() const;
    // The exact number of rows: from the count, or from the reader once it reached the end;
    // -1 until either is known.
    qint64 count() const;
    bool finished() const;     // the reader is done: end of rows, stopped or failed
    QString readError() const; // a failure after start(), empty otherwise

    // The values of rows first .. first + n - 1 (all below rowsRead()), as text; NULL is empty.
    QList<QStringList> rows(qint64 first, int n) const;

private:
    void readRows(const QString& conString, const QString& sql);
    void countRows(const QString& conString, const QString& sql);
    void publish(const QList<qint64>& rowEnds);

    mutable QMutex m_mutex;
    QWaitCondition m_startedCondition;
    bool m_started = false;
    bool m_executed = false;      // the source took the statement
    bool m_startReturned = false; // start() has returned; later failures are read errors
    QString m_startError;
    QString m_readError;
    QStringList m_columns;
    QList<qint64> m_offsets; // where each row starts in the spool, then where the next would
    qint64 m_count = -1;
    bool m_finished = false;
    std::atomic<bool> m_stop{false};

    QTemporaryFile m_spool; // appended to by the reader thread
    mutable QFile m_in;     // the caller's handle on it
    mutable QMutex m_fileMutex;
    std::unique_ptr<QThread> m_reader;
    std::unique_ptr<QThread> m_counter;
};
