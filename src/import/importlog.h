#pragma once

#include <QString>

// The import's plain-text log. Files are known by a small number, as the routines that
// write the log expect; LogFileNumber() is the one of the open log, 0 when there is none,
// and every write is skipped then. Lines are UTF-8 and end in CR LF.

// The number of the open log (0 = none). Kept after CloseLogFile; the next open replaces it.
qint16& LogFileNumber();

// Opens path (a host path) for writing: replaced unless append. False with errorText set
// and fileNumber 0 when it cannot be opened.
bool OpenLogFile(const QString& path, qint16& fileNumber, bool append, QString& errorText);
// Closes the file; closing 0 or a closed number is harmless.
void CloseLogFile(qint16 fileNumber);
// Appends one line to the file; nothing happens for 0 or a number not open.
void WriteLogLine(qint16 fileNumber, const QString& line);
