#pragma once

#include <QString>
#include <QStringList>

#include <memory>
#include <string>

class QSqlDatabase;

// The rows of the import's statement, read forward once. Values come as the text a Group
// field holds: NULL as empty text, numbers in decimal, dates in ISO form, booleans as True
// or False, a blob holding UTF-8 as its text and any other blob as hex ("0x...").
class SourceRows
{
public:
    virtual ~SourceRows() = default;

    // Runs sql on the open source connection db. Throws SourceFailure when the statement
    // is refused.
    static std::unique_ptr<SourceRows> open(const QSqlDatabase& db, const QString& sql);

    // Moves to the next row (the first on the first call); false past the last one.
    // Throws SourceFailure when the source fails while reading.
    virtual bool next() = 0;
    // The column of that name (compared without regard to case); -1 when there is none.
    virtual int indexOf(const QString& name) const = 0;
    virtual QString text(int index) const = 0;
    // The number of rows when the driver knew it as soon as the statement ran, else -1.
    virtual qint64 knownCount() const { return -1; }
    // The same text as UTF-8, into out (whose capacity is reused): the form a Group keeps,
    // so a value that is only copied need not be converted twice.
    virtual void utf8(int index, std::string& out) const;
    // Whether another thread may read the rows while this one does other work on other
    // connections. Qt SQL connections belong to the thread that opened them.
    virtual bool movable() const { return false; }
};

// A reader that has every value as UTF-8 to begin with: columns found by their names, the
// text made from the UTF-8.
class Utf8SourceRows : public SourceRows
{
public:
    explicit Utf8SourceRows(QStringList names) : m_names(std::move(names)) {}
    int indexOf(const QString& name) const override;
    QString text(int index) const override;

private:
    QStringList m_names;
};

// The text of a double and of a blob, as every route gives them.
QString SourceDoubleText(double value);
QString SourceBlobText(const QByteArray& bytes);

// A failure reported by the data source, in "<number> - <description>" form.
struct SourceFailure
{
    QString text;
};
