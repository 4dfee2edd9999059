#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// The first rows of the import's statement, read for the mapping step's sample values.
struct SampleRows
{
    QStringList columns;
    QList<QStringList> rows; // texts as the import reads them, by column
    QString error;           // "<number> - <description>" when the source refused

    // Reads at most maxRows rows of sql through a read-only connection of its own, made,
    // used and removed on the calling thread, so a helper thread may call it.
    static SampleRows read(const QString& conString, const QString& sql, const QStringList& columns,
                           int maxRows = 50);

    // The first non-empty value of the column, empty when none (or no such column).
    QString firstValue(const QString& column) const;
    // How many of the column's values the import's e-mail check refuses (the record loop
    // trims them first); sampled gets the number of rows looked at.
    int refusedEmails(const QString& column, int* sampled) const;
    // The first non-empty value split as the import splits a full name:
    // "Title: x  First: y  Initial: z  Last: w".
    QString namePreview(const QString& column) const;
};
