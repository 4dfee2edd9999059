#pragma once

#include <QFile>
#include <QString>
#include <QStringList>

#include <string>

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
    // The same, field by field, without gathering the values first; a value may come as
    // UTF-8, as the source gave it.
    void beginRow(const QString& outcome, const QString& reason);
    void addField(const QString& value);
    void addFieldUtf8(const std::string& value);
    void endRow();
    void close();

private:
    void appendField(const char* data, qsizetype size);
    void flushBuffer();

    QFile m_file;
    QByteArray m_buffer; // whole lines in UTF-8, written in blocks
    bool m_firstField = true;
};
