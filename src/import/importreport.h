#pragma once

#include <QFile>
#include <QString>
#include <QStringList>

// "Database Import Report.csv": one line per row a run refused, cut or used to update a
// recipient, with the mapped source values, so that a user can fix the source and import
// just those rows again. RFC 4180: comma-separated, fields quoted when they hold a comma,
// a quote or a line break, CR LF line ends, UTF-8.
class ImportReport final
{
public:
    ImportReport() = default;
    ~ImportReport();
    ImportReport(const ImportReport&) = delete;
    ImportReport& operator=(const ImportReport&) = delete;

    // Replaces the file at nativePath and writes the header: Outcome, Reason, columns.
    // False when it cannot be written; the run then goes on without a report.
    bool open(const QString& nativePath, const QStringList& columns);
    bool isOpen() const { return m_file.isOpen(); }
    void addRow(const QString& outcome, const QString& reason, const QStringList& values);
    void close();

    // One field as RFC 4180 writes it.
    static QString csvField(const QString& value);

private:
    void writeLine(const QStringList& fields);
    void flushBuffer();

    QFile m_file;
    QByteArray m_buffer;
};
