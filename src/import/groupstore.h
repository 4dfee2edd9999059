#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

// One Group file (a SQLite 3 database) opened for the import: table Recipients with one
// TEXT column per Group field, table Fields with the definitions the Group was created
// with, an index on EmailAddress without regard to case.
//
// There is one current record. Field values set on it are kept in memory and written when
// the next add, find, move or close needs the row; writes are grouped in transactions (see
// setBatchLimits) so that a killed process leaves a valid file holding every committed
// batch. Every failure throws AppError(GroupStore).
//
// Paths are native paths.
class GroupStore final
{
public:
    // A field definition as the Group is created with it.
    enum FieldType
    {
        Text = 0,
        Date = 6
    };
    struct FieldDef
    {
        QString name;
        int type = Text;
        int length = 0; // characters; 0 = no limit (the date)
    };

    GroupStore();
    ~GroupStore(); // closes, keeping every record
    GroupStore(const GroupStore&) = delete;
    GroupStore& operator=(const GroupStore&) = delete;

    // The 21 fields of a host Group in their order.
    static const QList<FieldDef>& groupFields();

    // True only for a readable SQLite file holding the table Recipients.
    static bool checkFile(const QString& path);
    // Creates a new Group file with these fields; throws when the file exists or cannot be
    // written. Nothing is left behind on failure.
    static void createFile(const QString& path, const QList<FieldDef>& fields);

    void open(const QString& path);
    bool isOpen() const;
    void close();

    qint32 recordCount();
    void moveFirst();
    void moveNext();
    bool atEnd() const;

    // Writes every record set so far and commits it; throws when the file refuses.
    void commit();
    // Forgets what was set on the current record and not yet written: a new record is
    // dropped, a changed one keeps its values in the file. Nothing else is undone.
    void discardChanges();
    // New records committed to the file since it was opened; after a failed write, the
    // ones that are really there.
    qint64 committedNewRecords() const;

    // The longest text the field holds in characters; 0 when there is no limit.
    int fieldLength(int index) const;
    // Index of a field (names compared without regard to case), -1 when unknown.
    int fieldIndex(const QString& name) const;
    QStringList fieldNames() const;

    // The current record's value; a NULL reads as an empty text.
    QString getField(const QString& name);
    QString getField(int index);
    // The current record's value as the file keeps it (UTF-8 as a rule); NULL as empty.
    void getFieldUtf8(int index, std::string& out);

    // A new, empty record becomes current.
    void addRecord();
    // Over-long text is cut to the field's length in characters.
    void setField(const QString& name, const QString& value);
    void setField(int index, const QString& value);
    // The same for a value already in UTF-8 (valid UTF-8 only); value's buffer may be
    // taken, leaving it with another one.
    void setFieldUtf8(int index, std::string& value);

    // Makes the first record whose field compares equal to value (without regard to case)
    // current; comparison is "=" only. noMatch() tells whether one was found.
    void find(const QString& field, const QString& comparison, const QString& value);
    bool noMatch() const;

    // The file's own number of the current record (0 when there is none or it is not
    // written yet), and the record with that number made current: what a find would make
    // current when it is known to find that record. False when there is no such record.
    qint64 currentRowid() const;
    bool moveToRowid(qint64 rowid);

    // For a replacing run, which reads a found record only when the copy changes it: the
    // fields whose values make up a record's digest. Equal digests mean equal values, but
    // for a chance of one in 2^64 per record.
    void setDigestFields(std::vector<int> fields);
    // Reads every record, in no set order: its number, the UTF-8 text of field textIndex
    // (nullptr for NULL or when textIndex is -1) and the digest of its digest fields.
    using ScanVisitor =
        std::function<void(qint64 rowid, const char* text, int size, quint64 digest)>;
    void scan(int textIndex, const ScanVisitor& visit);
    // The digest of the current record's digest fields.
    quint64 currentDigest();
    // Makes the record with that number current without reading it, on the word that its
    // digest fields hold values with this digest. It is read when something asks for more
    // than what was set on it since, or when what was set differs from the digest.
    void expectRowid(qint64 rowid, quint64 digest);
    // Settles an expected record: false when it is no longer in the file, and nothing is
    // current then. True for any other current record.
    bool confirmCurrent();

    // For a run that adds many records: the Group's indexes are dropped with the next write
    // and built again in one pass when the file closes (or before the next find), which
    // costs far less than keeping them up to date row by row. A run killed in between
    // leaves a file without its e-mail index; open() builds it again.
    void deferIndexes();
    // Called every few hundredths of a second while deferred indexes are built, so that a
    // window showing the run keeps drawing and answering.
    void setIndexBuildYield(std::function<void()> yield);

    // A transaction is committed after rows written or milliseconds since it began (0: no
    // time limit), whichever comes first. Defaults: 50000 rows, 1000 ms.
    void setBatchLimits(int rows, qint64 milliseconds);

    // For bookkeeping kept beside the recipients in the same file and the same
    // transactions: the open connection, the current record's rowid and whether one of its
    // fields is NULL, a field's length (0 = no limit), writing every pending record, and
    // starting or committing the batch transaction.
    sqlite3* handle() const;
    bool isNull(int index) const;
    void writePending();
    void beginWrite();
    void commitWrite();
    // After setting fields of a found record, before it is written: whether the field now
    // differs from what the file holds, and what it held (nullopt for NULL).
    bool changedSinceFound(int index, std::optional<QString>& oldValue) const;

private:
    class Private;
    std::unique_ptr<Private> d;
};
