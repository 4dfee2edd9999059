#include "groupstore.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <sqlite3.h>

#include <chrono>
#include <cstring>
#include <future>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "util/apperror.h"

namespace {

// A transaction is committed after this many rows or this much time, whichever comes
// first: a killed import loses at most that much work, never a committed row. Each commit
// rewrites every index page its rows touched, so small batches cost dearly on big Groups.
constexpr int kDefaultBatchRows = 50000;
constexpr qint64 kDefaultBatchMilliseconds = 1000;
// A larger page cache keeps the e-mail index in memory while a big import appends or finds.
constexpr const char* kCacheSize = "PRAGMA cache_size=-65536";

[[noreturn]] void fail(const QString& description, long number = AppError::GroupStore)
{
    throw AppError(number, description);
}

[[noreturn]] void failSqlite(sqlite3* db, const QString& what)
{
    QString message = db ? QString::fromUtf8(sqlite3_errmsg(db)) : QStringLiteral("out of memory");
    fail(what + QStringLiteral(": ") + message);
}

QString quoted(const QString& identifier)
{
    QString q = identifier;
    q.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + q + QLatin1Char('"');
}

void exec(sqlite3* db, const char* sql, const QString& what)
{
    char* error = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        QString message = error ? QString::fromUtf8(error) : QString();
        sqlite3_free(error);
        fail(what + QStringLiteral(": ") + message);
    }
}

// Cuts text to at most length characters, never splitting a surrogate pair.
QString cutToLength(const QString& text, int length)
{
    if (length <= 0 || text.size() <= length)
        return text;
    int characters = 0;
    qsizetype i = 0;
    while (i < text.size() && characters < length) {
        if (text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate())
            i += 2;
        else
            ++i;
        ++characters;
    }
    return text.left(i);
}

// The bytes of the first length characters of valid UTF-8 text (all of it when length is
// 0): the same cut as cutToLength makes, since a character outside the BMP is one code
// point here and one surrogate pair there.
std::size_t utf8CutSize(const std::string& text, int length)
{
    if (length <= 0 || text.size() <= std::size_t(length))
        return text.size();
    int characters = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80 && characters++ == length)
            return i;
    }
    return text.size();
}

// Converts into a buffer whose capacity is reused record after record.
void assignUtf8(std::string& target, const QString& text)
{
    const qsizetype size = text.size();
    const QChar* chars = text.constData();
    target.resize(size_t(size));
    for (qsizetype i = 0; i < size; ++i) {
        const char16_t c = chars[i].unicode();
        if (c >= 0x80) {
            const QByteArray utf8 = text.toUtf8();
            target.assign(utf8.constData(), size_t(utf8.size()));
            return;
        }
        target[size_t(i)] = char(c);
    }
}

bool isAscii(const QString& text)
{
    for (QChar c : text) {
        if (c.unicode() >= 0x80)
            return false;
    }
    return true;
}

QString columnText(sqlite3_stmt* stmt, int column)
{
    const void* data = sqlite3_column_text16(stmt, column);
    if (!data)
        return QString();
    const int bytes = sqlite3_column_bytes16(stmt, column);
    return QString(static_cast<const QChar*>(data), bytes / 2);
}

// Lower-cases the argument the way the import's duplicate list does, so that a find for
// an address that differs from the stored one only in (non-ASCII) case still succeeds.
void foldFunction(sqlite3_context* context, int, sqlite3_value** argv)
{
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(context);
        return;
    }
    const void* data = sqlite3_value_text16(argv[0]);
    const int bytes = sqlite3_value_bytes16(argv[0]);
    const QString folded = QString(static_cast<const QChar*>(data), bytes / 2).toLower();
    sqlite3_result_text16(context, folded.utf16(), int(folded.size() * 2), SQLITE_TRANSIENT);
}

// 64 bits of a 128-bit product, folded: the mixing step of the digest.
__extension__ using Product = unsigned __int128; // GCC and Clang on 64-bit targets
quint64 fold(quint64 a, quint64 b)
{
    const Product product = static_cast<Product>(a) * b;
    return quint64(product) ^ quint64(product >> 64);
}

// One field into a record's digest, sixteen bytes to a multiplication (most fields take
// one): Qt's own hash costs several times more on short texts, and this runs for every field
// of every record of a big Group. A NULL differs from an empty text, and lengths count.
quint64 digestStep(quint64 digest, const char* data, std::size_t size, bool isNull)
{
    constexpr quint64 k1 = 0xa0761d6478bd642fULL, k2 = 0xe7037ed1a0b428dbULL,
                      k3 = 0x8ebc6af09c88c6e3ULL;
    const quint64 tag = isNull ? ~quint64(0) : quint64(size);
    quint64 a = 0, b = 0;
    if (size > 16) {
        for (; size > 16; size -= 16, data += 16) {
            std::memcpy(&a, data, 8);
            std::memcpy(&b, data + 8, 8);
            digest = fold(a ^ k1 ^ digest, b ^ k2);
        }
        // The last sixteen bytes, overlapping what came before.
        std::memcpy(&a, data + size - 16, 8);
        std::memcpy(&b, data + size - 8, 8);
    } else if (size >= 8) {
        std::memcpy(&a, data, 8);
        std::memcpy(&b, data + size - 8, 8);
    } else if (size > 0) {
        std::memcpy(&a, data, size);
    }
    return fold(a ^ k1 ^ digest, b ^ k2 ^ (tag * k3));
}
constexpr quint64 kDigestSeed = 0x243f6a8885a308d3ULL;

// Only a NULL has no text.
quint64 columnDigestStep(quint64 digest, sqlite3_stmt* stmt, int column)
{
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
    return digestStep(digest, data, data ? size_t(sqlite3_column_bytes(stmt, column)) : 0,
                      data == nullptr);
}

class Statement
{
public:
    Statement() = default;
    ~Statement() { reset(); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void prepare(sqlite3* db, const QString& sql)
    {
        reset();
        const QByteArray utf8 = sql.toUtf8();
        if (sqlite3_prepare_v2(db, utf8.constData(), int(utf8.size()), &m_stmt, nullptr) !=
            SQLITE_OK) {
            m_stmt = nullptr;
            failSqlite(db, QStringLiteral("Cannot prepare the Group statement"));
        }
    }
    void reset()
    {
        if (m_stmt)
            sqlite3_finalize(m_stmt);
        m_stmt = nullptr;
    }
    sqlite3_stmt* get() const { return m_stmt; }
    explicit operator bool() const { return m_stmt != nullptr; }

private:
    sqlite3_stmt* m_stmt = nullptr;
};

} // namespace

const QList<GroupStore::FieldDef>& GroupStore::groupFields()
{
    static const QList<FieldDef> fields = {
        {QStringLiteral("Title"), Text, 10},     {QStringLiteral("FirstName"), Text, 30},
        {QStringLiteral("LastName"), Text, 30},  {QStringLiteral("EmailAddress"), Text, 100},
        {QStringLiteral("Initial"), Text, 10},   {QStringLiteral("Address1"), Text, 30},
        {QStringLiteral("Address2"), Text, 30},  {QStringLiteral("City"), Text, 30},
        {QStringLiteral("State"), Text, 30},     {QStringLiteral("Zip"), Text, 15},
        {QStringLiteral("Country"), Text, 30},   {QStringLiteral("Company"), Text, 50},
        {QStringLiteral("JobTitle"), Text, 50},  {QStringLiteral("WEB"), Text, 75},
        {QStringLiteral("Telephone"), Text, 25}, {QStringLiteral("FAX"), Text, 25},
        {QStringLiteral("Field1"), Text, 50},    {QStringLiteral("Field2"), Text, 50},
        {QStringLiteral("Field3"), Text, 50},    {QStringLiteral("Field4"), Text, 50},
        {QStringLiteral("DateAdded"), Date, 0},
    };
    return fields;
}

class GroupStore::Private
{
public:
    enum class Current
    {
        None,
        Cursor,
        New,
        Row,
        // Found by its number and not read yet (expectRowid).
        Expected
    };

    sqlite3* db = nullptr;
    QStringList columns;
    std::vector<int> lengths;
    QHash<QString, int> indexByLowerName;

    Statement insert;
    // UPDATE statements by the set of columns they change ('1' = changed).
    std::map<std::string, std::unique_ptr<Statement>> updates;
    std::string changed;
    std::string setColumns;
    // Per column: whether an index of the Group holds it.
    std::vector<char> isIndexed;
    // A found record's value of each changed column before its first change.
    std::vector<std::string> original;
    std::vector<char> originalIsSet;
    std::string scratch;
    Statement cursor;
    std::vector<std::unique_ptr<Statement>> finds;
    Statement byRowid;

    Current current = Current::None;
    sqlite3_int64 rowid = 0;
    QByteArray path; // encoded, for a second connection
    // The current record as UTF-8, the form the file keeps: no conversion when it is bound.
    std::vector<std::string> values;
    std::vector<char> isSet;
    bool dirty = false;
    // A record taken for unchanged by its digest: only its digest fields are read.
    bool partial = false;
    std::vector<int> digestFields;
    std::vector<char> isDigestField;
    // What was set on an expected record, and the digest it is expected to have.
    std::vector<char> pendingSet;
    std::vector<std::string> pendingValues;
    quint64 expectedDigest = 0;
    bool cursorAtEnd = true;
    bool noMatch = false;

    bool inTransaction = false;
    int pendingRows = 0;
    // New records in the open transaction, and those committed since the file was opened.
    qint64 pendingInserts = 0;
    qint64 committedInserts = 0;
    int batchRows = kDefaultBatchRows;
    qint64 batchMilliseconds = kDefaultBatchMilliseconds;
    QElapsedTimer batchTimer;

    void requireOpen() const
    {
        if (!db)
            fail(QStringLiteral("The Group file is not open"));
    }

    int requireField(const QString& name) const
    {
        const auto it = indexByLowerName.constFind(name.toLower());
        if (it == indexByLowerName.constEnd())
            fail(QStringLiteral("The Group has no field ") + name, 3265);
        return it.value();
    }

    void begin()
    {
        if (!inTransaction) {
            exec(db, "BEGIN", QStringLiteral("Cannot start writing to the Group"));
            inTransaction = true;
            batchTimer.start();
            // Dropped in the same transaction as the first rows written without it.
            if (!indexesToDrop.empty()) {
                for (const std::string& name : indexesToDrop)
                    exec(db, ("DROP INDEX " + name).c_str(),
                         QStringLiteral("Cannot write to the Group"));
                indexesToDrop.clear();
            }
        }
    }

    // Indexes that deferIndexes() will drop (quoted names) and the statements that build
    // them again.
    std::vector<std::string> indexesToDrop;
    std::vector<std::string> indexesToBuild;

    void buildDeferredIndexes()
    {
        if (indexesToBuild.empty())
            return;
        flush();
        if (!indexesToDrop.empty()) {
            // Nothing was written: the indexes are still there.
            indexesToDrop.clear();
            indexesToBuild.clear();
            exec(db, kCacheSize, QStringLiteral("Cannot write to the Group"));
            return;
        }
        // The sort runs faster in a small cache, spilling to a temporary file, and with one
        // helper thread of SQLite's own that sorts half the keys.
        exec(db, "PRAGMA cache_size=-4096", QStringLiteral("Cannot write to the Group"));
        exec(db, "PRAGMA threads=1", QStringLiteral("Cannot write to the Group"));
        auto build = [this] {
            begin();
            for (const std::string& sql : indexesToBuild)
                exec(db, sql.c_str(), QStringLiteral("Cannot write to the Group"));
            commit();
        };
        if (indexBuildYield) {
            // Sorting a big index is one long step inside SQLite: it runs on a helper thread
            // while this one keeps the window answering. Nothing here touches the handle
            // until the helper is done.
            auto work = std::async(std::launch::async, build);
            while (work.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready) {
                try {
                    indexBuildYield();
                } catch (...) {
                    // Only drawing is at stake; the index is built regardless.
                }
            }
            work.get();
        } else {
            build();
        }
        indexesToBuild.clear();
        exec(db, "PRAGMA threads=0", QStringLiteral("Cannot write to the Group"));
        exec(db, kCacheSize, QStringLiteral("Cannot write to the Group"));
    }

    std::function<void()> indexBuildYield;

    void commit()
    {
        if (inTransaction) {
            exec(db, "COMMIT", QStringLiteral("Cannot write to the Group"));
            inTransaction = false;
            pendingRows = 0;
            committedInserts += pendingInserts;
            pendingInserts = 0;
        }
    }

    void clearBuffer()
    {
        for (auto& v : values)
            v.clear();
        std::fill(isSet.begin(), isSet.end(), false);
    }

    void bindValues(sqlite3_stmt* stmt)
    {
        for (int i = 0; i < int(values.size()); ++i) {
            int rc;
            if (isSet[size_t(i)])
                rc = sqlite3_bind_text(stmt, i + 1, values[size_t(i)].data(),
                                       int(values[size_t(i)].size()), SQLITE_STATIC);
            else
                rc = sqlite3_bind_null(stmt, i + 1);
            if (rc != SQLITE_OK)
                failSqlite(db, QStringLiteral("Cannot write to the Group"));
        }
    }

    void runWrite(sqlite3_stmt* stmt)
    {
        const int rc = sqlite3_step(stmt);
        sqlite3_reset(stmt);
        sqlite3_clear_bindings(stmt);
        if (rc != SQLITE_DONE)
            failSqlite(db, QStringLiteral("Cannot write to the Group"));
    }

    // New records are written several to a statement: a multi-row INSERT saves most of
    // SQLite's per-statement work. Anything that reads the file writes the queue first.
    static constexpr int kQueueRows = 32;
    std::vector<std::string> queued; // kQueueRows records of columns.size() values
    std::vector<char> queuedIsSet;
    int queuedRows = 0;
    Statement insertQueue;

    void queueCurrent()
    {
        const size_t n = values.size();
        if (queued.size() != n * kQueueRows) {
            queued.assign(n * kQueueRows, std::string());
            queuedIsSet.assign(n * kQueueRows, 0);
        }
        const size_t base = size_t(queuedRows) * n;
        for (size_t i = 0; i < n; ++i) {
            queued[base + i].swap(values[i]);
            queuedIsSet[base + i] = isSet[i];
        }
        ++queuedRows;
        current = Current::None;
        dirty = false;
        if (queuedRows == kQueueRows || queuedRows >= batchRows)
            drainQueue();
    }

    void drainQueue()
    {
        if (queuedRows == 0)
            return;
        begin();
        const int n = int(values.size());
        const int rows = queuedRows;
        sqlite3_stmt* stmt = nullptr;
        if (rows == kQueueRows) {
            if (!insertQueue) {
                QStringList names, tuples;
                for (const QString& c : columns)
                    names << quoted(c);
                const QString tuple =
                    QLatin1Char('(') +
                    QStringList(QList<QString>(n, QStringLiteral("?"))).join(QLatin1Char(',')) +
                    QLatin1Char(')');
                for (int r = 0; r < kQueueRows; ++r)
                    tuples << tuple;
                insertQueue.prepare(
                    db, QStringLiteral("INSERT INTO Recipients (") + names.join(QLatin1Char(',')) +
                            QStringLiteral(") VALUES ") + tuples.join(QLatin1Char(',')));
            }
            stmt = insertQueue.get();
        }
        queuedRows = 0;
        for (int r = 0; r < rows; ++r) {
            sqlite3_stmt* target = stmt ? stmt : insert.get();
            const int first = stmt ? r * n : 0;
            for (int i = 0; i < n; ++i) {
                const size_t at = size_t(r * n + i);
                const int rc = queuedIsSet[at]
                                   ? sqlite3_bind_text(target, first + i + 1, queued[at].data(),
                                                       int(queued[at].size()), SQLITE_STATIC)
                                   : sqlite3_bind_null(target, first + i + 1);
                if (rc != SQLITE_OK)
                    failSqlite(db, QStringLiteral("Cannot write to the Group"));
            }
            if (!stmt)
                runWrite(target);
        }
        if (stmt)
            runWrite(stmt);
        pendingInserts += rows;
        pendingRows += rows - 1;
        afterWrite();
    }

    // Writes every record not yet in the file.
    void flush()
    {
        drainQueue();
        flushCurrent();
    }

    void flushCurrent()
    {
        settleOrFail();
        if (current == Current::New) {
            begin();
            bindValues(insert.get());
            runWrite(insert.get());
            ++pendingInserts;
            rowid = sqlite3_last_insert_rowid(db);
            current = Current::Row;
            dirty = false;
            afterWrite();
        } else if (current == Current::Row && dirty) {
            // The columns whose value changed, so that an unchanged address keeps its index
            // entry; with them every digest field outside an index, whose value is known, so
            // that a replace needs one or two statements rather than one per mix of changes.
            begin();
            setColumns = changed;
            for (int f : digestFields) {
                if (!isIndexed[size_t(f)])
                    setColumns[size_t(f)] = '1';
            }
            auto& update = updates[setColumns];
            if (!update) {
                QStringList assignments;
                for (int i = 0; i < columns.size(); ++i) {
                    if (setColumns[size_t(i)] == '1')
                        assignments << quoted(columns.at(i)) + QStringLiteral("=?");
                }
                update = std::make_unique<Statement>();
                update->prepare(db, QStringLiteral("UPDATE Recipients SET ") +
                                        assignments.join(QLatin1Char(',')) +
                                        QStringLiteral(" WHERE rowid=?"));
            }
            sqlite3_stmt* stmt = update->get();
            int parameter = 0;
            for (size_t i = 0; i < values.size(); ++i) {
                if (setColumns[i] != '1')
                    continue;
                const int rc = isSet[i] ? sqlite3_bind_text(stmt, ++parameter, values[i].data(),
                                                            int(values[i].size()), SQLITE_STATIC)
                                        : sqlite3_bind_null(stmt, ++parameter);
                if (rc != SQLITE_OK)
                    failSqlite(db, QStringLiteral("Cannot write to the Group"));
            }
            if (sqlite3_bind_int64(stmt, ++parameter, rowid) != SQLITE_OK)
                failSqlite(db, QStringLiteral("Cannot write to the Group"));
            runWrite(stmt);
            changed.assign(values.size(), '0');
            dirty = false;
            afterWrite();
        }
    }

    void afterWrite()
    {
        if (++pendingRows >= batchRows ||
            (batchMilliseconds > 0 && batchTimer.elapsed() >= batchMilliseconds))
            commit();
    }

    // Copies the row under a statement (rowid first, then the columns) into the buffer.
    void loadRow(sqlite3_stmt* stmt)
    {
        rowid = sqlite3_column_int64(stmt, 0);
        for (int i = 0; i < int(values.size()); ++i) {
            const bool isNull = sqlite3_column_type(stmt, i + 1) == SQLITE_NULL;
            isSet[size_t(i)] = !isNull;
            if (isNull) {
                values[size_t(i)].clear();
            } else {
                const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, i + 1));
                values[size_t(i)].assign(text ? text : "",
                                         size_t(sqlite3_column_bytes(stmt, i + 1)));
            }
        }
        changed.assign(values.size(), '0');
        dirty = false;
        partial = false;
    }

    QString selectColumns() const
    {
        QStringList parts{QStringLiteral("rowid")};
        for (const QString& c : columns)
            parts << quoted(c);
        return parts.join(QLatin1Char(','));
    }

    void stepCursor()
    {
        const int rc = sqlite3_step(cursor.get());
        if (rc == SQLITE_ROW) {
            current = Current::Cursor;
            rowid = sqlite3_column_int64(cursor.get(), 0);
            cursorAtEnd = false;
        } else {
            cursorAtEnd = true;
            current = Current::None;
            cursor.reset();
            if (rc != SQLITE_DONE)
                failSqlite(db, QStringLiteral("Cannot read the Group"));
        }
    }

    void stopCursor()
    {
        if (current == Current::Cursor)
            current = Current::None;
        cursor.reset();
        cursorAtEnd = true;
    }

    // Makes scratch the value of field i of the current (buffered) record.
    void setFromScratch(size_t i)
    {
        if (current == Current::Expected) {
            values[i].swap(scratch);
            isSet[i] = true;
            pendingSet[i] = 1;
            return;
        }
        if (current == Current::New) {
            values[i].swap(scratch);
            isSet[i] = true;
            return;
        }
        if (isSet[i] && scratch == values[i])
            return;
        values[i].swap(scratch);
        // The first change since the record was found keeps what it overwrote, for undo.
        if (changed[i] != '1') {
            if (original.size() != values.size()) {
                original.resize(values.size());
                originalIsSet.resize(values.size());
            }
            original[i].swap(scratch);
            originalIsSet[i] = isSet[i];
        }
        isSet[i] = true;
        changed[i] = '1';
        dirty = true;
    }

    quint64 valuesDigest() const
    {
        quint64 digest = kDigestSeed;
        for (int f : digestFields)
            digest = digestStep(digest, values[size_t(f)].data(), values[size_t(f)].size(),
                                !isSet[size_t(f)]);
        return digest;
    }

    // Reads the record with this number under byRowid; false when there is none. The
    // statement is left on the row for the caller, who resets it.
    bool stepByRowid(sqlite3_int64 number)
    {
        if (!byRowid)
            byRowid.prepare(db, QStringLiteral("SELECT ") + selectColumns() +
                                    QStringLiteral(" FROM Recipients WHERE rowid=?1"));
        sqlite3_bind_int64(byRowid.get(), 1, number);
        const int rc = sqlite3_step(byRowid.get());
        if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
            sqlite3_reset(byRowid.get());
            failSqlite(db, QStringLiteral("Cannot search the Group"));
        }
        return rc == SQLITE_ROW;
    }

    // An expected record becomes a found one: taken as it is when what was set on it has its
    // digest, else read and changed by what was set. False when it is gone.
    bool settle()
    {
        if (current != Current::Expected)
            return true;
        bool allSet = !digestFields.empty();
        for (int f : digestFields)
            allSet = allSet && pendingSet[size_t(f)];
        changed.assign(values.size(), '0');
        dirty = false;
        if (allSet && valuesDigest() == expectedDigest) {
            current = Current::Row;
            partial = true;
            return true;
        }
        pendingValues.swap(values);
        values.assign(pendingValues.size(), std::string());
        const bool found = stepByRowid(rowid);
        if (found)
            loadRow(byRowid.get());
        sqlite3_reset(byRowid.get());
        if (!found) {
            current = Current::None;
            return false;
        }
        current = Current::Row;
        partial = false;
        for (size_t i = 0; i < values.size(); ++i) {
            if (pendingSet[i]) {
                scratch.swap(pendingValues[i]);
                setFromScratch(i);
            }
        }
        return true;
    }

    void settleOrFail()
    {
        if (!settle())
            fail(QStringLiteral("The Group record %1 is no longer there").arg(rowid));
    }

    // Before field i of the current record is read or set: an expected record is settled,
    // and one taken by its digest has its other fields read.
    void needField(int i)
    {
        settleOrFail();
        if (current != Current::Row || !partial || isDigestField[size_t(i)])
            return;
        const bool found = stepByRowid(rowid);
        if (found) {
            for (size_t k = 0; k < values.size(); ++k) {
                if (isDigestField[k])
                    continue;
                const bool isNull = sqlite3_column_type(byRowid.get(), int(k) + 1) == SQLITE_NULL;
                isSet[k] = !isNull;
                const auto* text =
                    reinterpret_cast<const char*>(sqlite3_column_text(byRowid.get(), int(k) + 1));
                values[k].assign(isNull || !text ? "" : text,
                                 size_t(sqlite3_column_bytes(byRowid.get(), int(k) + 1)));
            }
        }
        sqlite3_reset(byRowid.get());
        if (!found)
            fail(QStringLiteral("The Group record %1 is no longer there").arg(rowid));
        partial = false;
    }

    // Turns a cursor row into a buffered one before it is changed.
    void bufferCursorRow()
    {
        if (current == Current::Cursor) {
            loadRow(cursor.get());
            current = Current::Row;
        }
    }

    bool findWith(sqlite3_stmt* stmt, const QString& value)
    {
        sqlite3_bind_text16(stmt, 1, value.utf16(), int(value.size() * 2), SQLITE_STATIC);
        const int rc = sqlite3_step(stmt);
        bool found = false;
        if (rc == SQLITE_ROW) {
            loadRow(stmt);
            current = Current::Row;
            found = true;
        }
        sqlite3_reset(stmt);
        sqlite3_clear_bindings(stmt);
        if (rc != SQLITE_ROW && rc != SQLITE_DONE)
            failSqlite(db, QStringLiteral("Cannot search the Group"));
        return found;
    }

    void closeHandle()
    {
        insert.reset();
        insertQueue.reset();
        queuedRows = 0;
        updates.clear();
        cursor.reset();
        finds.clear();
        byRowid.reset();
        if (db)
            sqlite3_close_v2(db);
        db = nullptr;
        current = Current::None;
        columns.clear();
        lengths.clear();
        indexByLowerName.clear();
        values.clear();
        isSet.clear();
        inTransaction = false;
        pendingRows = 0;
        pendingInserts = 0;
        cursorAtEnd = true;
        dirty = false;
        indexesToDrop.clear();
        indexesToBuild.clear();
        indexBuildYield = nullptr;
        partial = false;
        digestFields.clear();
        isDigestField.clear();
    }
};

GroupStore::GroupStore() : d(std::make_unique<Private>()) {}

GroupStore::~GroupStore()
{
    try {
        close();
    } catch (const AppError&) {
        // A destructor cannot report; close() has already released the file.
    }
}

bool GroupStore::checkFile(const QString& path)
{
    const QFileInfo info(path);
    if (!info.isFile() || !info.isReadable())
        return false;
    // Read-write when allowed, so that a batch left half-written by a killed run is rolled
    // back here rather than making the file look unreadable.
    sqlite3* db = nullptr;
    const int flags = info.isWritable() ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY;
    bool ok = false;
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), &db, flags, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(db, 5000);
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(db,
                               "SELECT 1 FROM sqlite_master WHERE type='table' AND "
                               "name='Recipients' COLLATE NOCASE",
                               -1, &stmt, nullptr) == SQLITE_OK) {
            ok = sqlite3_step(stmt) == SQLITE_ROW;
        }
        sqlite3_finalize(stmt);
    }
    sqlite3_close_v2(db);
    return ok;
}

void GroupStore::createFile(const QString& path, const QList<FieldDef>& fields)
{
    const QFileInfo info(path);
    if (info.exists())
        fail(QStringLiteral("File already exists"), 58);
    if (!info.dir().exists())
        fail(QStringLiteral("Path not found"), AppError::PathNotFound);
    // A journal left by a killed run of a Group since deleted would otherwise be "rolled
    // back" into the new file.
    for (const char* suffix : {"-journal", "-wal", "-shm"})
        QFile::remove(path + QLatin1String(suffix));

    sqlite3* db = nullptr;
    const int rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &db,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    try {
        if (rc != SQLITE_OK)
            failSqlite(db, QStringLiteral("Cannot create the Group file"));
        QStringList columns;
        for (const FieldDef& f : fields)
            columns << quoted(f.name) + QStringLiteral(" TEXT");
        Statement stmt;
        exec(db, "BEGIN", QStringLiteral("Cannot create the Group file"));
        stmt.prepare(db, QStringLiteral("CREATE TABLE Recipients (") +
                             columns.join(QStringLiteral(", ")) + QLatin1Char(')'));
        if (sqlite3_step(stmt.get()) != SQLITE_DONE)
            failSqlite(db, QStringLiteral("Cannot create the Group file"));
        exec(db, "CREATE TABLE Fields (Position INTEGER, Name TEXT, Type INTEGER, Length INTEGER)",
             QStringLiteral("Cannot create the Group file"));
        stmt.prepare(db, QStringLiteral("INSERT INTO Fields (Position, Name, Type, Length) "
                                        "VALUES (?1, ?2, ?3, ?4)"));
        int position = 1;
        for (const FieldDef& f : fields) {
            const QByteArray name = f.name.toUtf8();
            sqlite3_bind_int(stmt.get(), 1, position++);
            sqlite3_bind_text(stmt.get(), 2, name.constData(), int(name.size()), SQLITE_TRANSIENT);
            sqlite3_bind_int(stmt.get(), 3, f.type);
            sqlite3_bind_int(stmt.get(), 4, f.type == Date ? 0 : f.length);
            if (sqlite3_step(stmt.get()) != SQLITE_DONE)
                failSqlite(db, QStringLiteral("Cannot create the Group file"));
            sqlite3_reset(stmt.get());
        }
        bool hasEmail = false;
        for (const FieldDef& f : fields)
            hasEmail =
                hasEmail || f.name.compare(QLatin1String("EmailAddress"), Qt::CaseInsensitive) == 0;
        if (hasEmail) {
            exec(db,
                 "CREATE INDEX RecipientsEmailAddress ON Recipients (EmailAddress COLLATE NOCASE)",
                 QStringLiteral("Cannot create the Group file"));
        }
        stmt.reset();
        exec(db, "COMMIT", QStringLiteral("Cannot create the Group file"));
        if (sqlite3_close(db) != SQLITE_OK)
            failSqlite(db, QStringLiteral("Cannot create the Group file"));
    } catch (const AppError& e) {
        sqlite3_close_v2(db);
        QFile::remove(path);
        QFile::remove(path + QStringLiteral("-journal"));
        if (!QFileInfo(info.absolutePath()).isWritable())
            throw AppError(AppError::PermissionDenied, QStringLiteral("Permission denied (") +
                                                           e.description() + QLatin1Char(')'));
        throw;
    }
}

void GroupStore::open(const QString& path)
{
    close();
    if (!QFileInfo::exists(path))
        fail(QStringLiteral("File not found: ") + path, AppError::FileNotFound);
    sqlite3* db = nullptr;
    // One thread uses the handle: SQLite's own locking around every call would only cost.
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), &db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        const QString message = QString::fromUtf8(sqlite3_errmsg(db));
        sqlite3_close_v2(db);
        fail(QStringLiteral("Cannot open the Group file: ") + message);
    }
    d->db = db;
    d->path = QFile::encodeName(path);
    d->committedInserts = 0;
    try {
        sqlite3_busy_timeout(db, 5000);
        sqlite3_create_function_v2(db, "dbimport_fold", 1, SQLITE_UTF16 | SQLITE_DETERMINISTIC,
                                   nullptr, foldFunction, nullptr, nullptr, nullptr);
        // A larger page cache keeps the e-mail index in memory while a big import appends;
        // NORMAL sync still leaves every committed batch intact after a crash of the process.
        exec(db, kCacheSize, QStringLiteral("Cannot open the Group file"));
        exec(db, "PRAGMA synchronous=NORMAL", QStringLiteral("Cannot open the Group file"));

        Statement info;
        info.prepare(db, QStringLiteral("PRAGMA table_info(Recipients)"));
        while (sqlite3_step(info.get()) == SQLITE_ROW)
            d->columns << QString::fromUtf8(
                reinterpret_cast<const char*>(sqlite3_column_text(info.get(), 1)));
        if (d->columns.isEmpty())
            fail(QStringLiteral("The file is not a Group file (no table Recipients)"));

        d->lengths.assign(size_t(d->columns.size()), 0);
        for (int i = 0; i < d->columns.size(); ++i)
            d->indexByLowerName.insert(d->columns.at(i).toLower(), i);
        d->isIndexed.assign(size_t(d->columns.size()), 0);
        sqlite3_stmt* indexed = nullptr;
        if (sqlite3_prepare_v2(db,
                               "SELECT DISTINCT info.name FROM pragma_index_list('Recipients') "
                               "AS list, pragma_index_info(list.name) AS info",
                               -1, &indexed, nullptr) == SQLITE_OK) {
            while (sqlite3_step(indexed) == SQLITE_ROW) {
                const int at = d->indexByLowerName.value(
                    QString::fromUtf8(
                        reinterpret_cast<const char*>(sqlite3_column_text(indexed, 0)))
                        .toLower(),
                    -1);
                if (at >= 0)
                    d->isIndexed[size_t(at)] = 1;
            }
        } else {
            // Taken as all indexed: no column is ever written unchanged.
            d->isIndexed.assign(size_t(d->columns.size()), 1);
        }
        sqlite3_finalize(indexed);

        // A run killed while its indexes were deferred leaves the file without the e-mail
        // index; a failure here only makes finds slower, so it is not fatal.
        const int emailColumn = d->indexByLowerName.value(QStringLiteral("emailaddress"), -1);
        if (emailColumn >= 0) {
            sqlite3_stmt* indexes = nullptr;
            bool hasIndex = true;
            if (sqlite3_prepare_v2(db,
                                   "SELECT 1 FROM sqlite_master WHERE type='index' AND "
                                   "tbl_name='Recipients' AND sql IS NOT NULL",
                                   -1, &indexes, nullptr) == SQLITE_OK)
                hasIndex = sqlite3_step(indexes) == SQLITE_ROW;
            sqlite3_finalize(indexes);
            if (!hasIndex) {
                const QByteArray sql =
                    (QStringLiteral("CREATE INDEX IF NOT EXISTS RecipientsEmailAddress ON "
                                    "Recipients (") +
                     quoted(d->columns.at(emailColumn)) + QStringLiteral(" COLLATE NOCASE)"))
                        .toUtf8();
                sqlite3_exec(db, sql.constData(), nullptr, nullptr, nullptr);
            }
        }

        // The definitions are optional: a Group without them simply has no length limits.
        sqlite3_stmt* fieldsStmt = nullptr;
        if (sqlite3_prepare_v2(db, "SELECT Name, Type, Length FROM Fields", -1, &fieldsStmt,
                               nullptr) == SQLITE_OK) {
            while (sqlite3_step(fieldsStmt) == SQLITE_ROW) {
                const QString name = QString::fromUtf8(
                    reinterpret_cast<const char*>(sqlite3_column_text(fieldsStmt, 0)));
                const auto it = d->indexByLowerName.constFind(name.toLower());
                if (it != d->indexByLowerName.constEnd() &&
                    sqlite3_column_int(fieldsStmt, 1) == Text)
                    d->lengths[size_t(it.value())] = sqlite3_column_int(fieldsStmt, 2);
            }
        }
        sqlite3_finalize(fieldsStmt);

        QStringList names, params;
        for (int i = 0; i < d->columns.size(); ++i) {
            names << quoted(d->columns.at(i));
            params << QStringLiteral("?%1").arg(i + 1);
        }
        d->insert.prepare(db, QStringLiteral("INSERT INTO Recipients (") +
                                  names.join(QLatin1Char(',')) + QStringLiteral(") VALUES (") +
                                  params.join(QLatin1Char(',')) + QLatin1Char(')'));
        d->finds.resize(size_t(d->columns.size()) * 2);
        d->values.assign(size_t(d->columns.size()), std::string());
        d->isSet.assign(size_t(d->columns.size()), false);
        d->changed.assign(size_t(d->columns.size()), '0');
        d->current = Private::Current::None;
        d->noMatch = false;
    } catch (...) {
        d->closeHandle();
        throw;
    }
}

bool GroupStore::isOpen() const
{
    return d->db != nullptr;
}

void GroupStore::close()
{
    if (!d->db)
        return;
    try {
        d->stopCursor();
        d->flush();
        d->commit();
        d->buildDeferredIndexes();
    } catch (...) {
        d->closeHandle();
        throw;
    }
    d->closeHandle();
}

void GroupStore::commit()
{
    d->requireOpen();
    d->flush();
    d->commit();
}

void GroupStore::discardChanges()
{
    if (!d->db)
        return;
    if (d->current == Private::Current::New || d->current == Private::Current::Expected) {
        d->clearBuffer();
        d->current = Private::Current::None;
    } else if (d->current == Private::Current::Row && d->dirty) {
        // The file still holds the record as it was; reading it again gives that back.
        d->current = Private::Current::None;
    }
    d->changed.assign(d->values.size(), '0');
    d->dirty = false;
}

qint64 GroupStore::committedNewRecords() const
{
    return d->committedInserts;
}

int GroupStore::fieldLength(int index) const
{
    return index >= 0 && index < int(d->lengths.size()) ? d->lengths[size_t(index)] : 0;
}

qint32 GroupStore::recordCount()
{
    d->requireOpen();
    d->flush();
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(d->db, "SELECT COUNT(*) FROM Recipients", -1, &stmt, nullptr) !=
        SQLITE_OK)
        failSqlite(d->db, QStringLiteral("Cannot count the Group's records"));
    const int rc = sqlite3_step(stmt);
    const qint64 count = rc == SQLITE_ROW ? sqlite3_column_int64(stmt, 0) : 0;
    sqlite3_finalize(stmt);
    if (rc != SQLITE_ROW)
        failSqlite(d->db, QStringLiteral("Cannot count the Group's records"));
    return qint32(count);
}

void GroupStore::moveFirst()
{
    d->requireOpen();
    d->flush();
    d->stopCursor();
    d->cursor.prepare(d->db, QStringLiteral("SELECT ") + d->selectColumns() +
                                 QStringLiteral(" FROM Recipients ORDER BY rowid"));
    d->stepCursor();
}

void GroupStore::moveNext()
{
    d->requireOpen();
    d->flush();
    if (!d->cursor) {
        // No sequential read under way (after an add or a find): continue after the
        // current row in file order.
        const sqlite3_int64 after = d->current == Private::Current::None ? -1 : d->rowid;
        d->current = Private::Current::None;
        if (after < 0) {
            d->cursorAtEnd = true;
            return;
        }
        d->cursor.prepare(d->db,
                          QStringLiteral("SELECT ") + d->selectColumns() +
                              QStringLiteral(" FROM Recipients WHERE rowid>?1 ORDER BY rowid"));
        sqlite3_bind_int64(d->cursor.get(), 1, after);
        d->stepCursor();
        return;
    }
    d->stepCursor();
}

bool GroupStore::atEnd() const
{
    return d->current == Private::Current::None && d->cursorAtEnd;
}

int GroupStore::fieldIndex(const QString& name) const
{
    return d->indexByLowerName.value(name.toLower(), -1);
}

QStringList GroupStore::fieldNames() const
{
    return d->columns;
}

QString GroupStore::getField(const QString& name)
{
    d->requireOpen();
    return getField(d->requireField(name));
}

QString GroupStore::getField(int index)
{
    d->requireOpen();
    if (index < 0 || index >= d->columns.size())
        fail(QStringLiteral("No such Group field"), AppError::SubscriptOutOfRange);
    d->needField(index);
    switch (d->current) {
    case Private::Current::Cursor:
        return columnText(d->cursor.get(), index + 1);
    case Private::Current::New:
    case Private::Current::Row:
        return QString::fromUtf8(d->values[size_t(index)].data(),
                                 qsizetype(d->values[size_t(index)].size()));
    case Private::Current::None:
    case Private::Current::Expected:
        break;
    }
    fail(QStringLiteral("No current record"));
}

void GroupStore::getFieldUtf8(int index, std::string& out)
{
    d->requireOpen();
    if (index < 0 || index >= d->columns.size())
        fail(QStringLiteral("No such Group field"), AppError::SubscriptOutOfRange);
    d->needField(index);
    switch (d->current) {
    case Private::Current::Cursor: {
        const auto* data =
            reinterpret_cast<const char*>(sqlite3_column_text(d->cursor.get(), index + 1));
        out.assign(data ? data : "", std::size_t(sqlite3_column_bytes(d->cursor.get(), index + 1)));
        return;
    }
    case Private::Current::New:
    case Private::Current::Row:
        out = d->values[size_t(index)];
        return;
    case Private::Current::None:
    case Private::Current::Expected:
        break;
    }
    fail(QStringLiteral("No current record"));
}

void GroupStore::addRecord()
{
    d->requireOpen();
    if (d->current == Private::Current::New)
        d->queueCurrent();
    else
        d->flush();
    d->stopCursor();
    d->clearBuffer();
    d->current = Private::Current::New;
    d->dirty = true;
}

void GroupStore::setField(const QString& name, const QString& value)
{
    d->requireOpen();
    setField(d->requireField(name), value);
}

void GroupStore::setField(int index, const QString& value)
{
    d->requireOpen();
    if (index < 0 || index >= d->columns.size())
        fail(QStringLiteral("No such Group field"), AppError::SubscriptOutOfRange);
    d->bufferCursorRow();
    if (d->current == Private::Current::None)
        fail(QStringLiteral("No current record"));
    if (d->current == Private::Current::Row)
        d->needField(index);
    assignUtf8(d->scratch, cutToLength(value, d->lengths[size_t(index)]));
    d->setFromScratch(size_t(index));
}

void GroupStore::setFieldUtf8(int index, std::string& value)
{
    d->requireOpen();
    if (index < 0 || index >= d->columns.size())
        fail(QStringLiteral("No such Group field"), AppError::SubscriptOutOfRange);
    d->bufferCursorRow();
    if (d->current == Private::Current::None)
        fail(QStringLiteral("No current record"));
    if (d->current == Private::Current::Row)
        d->needField(index);
    const std::size_t size = utf8CutSize(value, d->lengths[size_t(index)]);
    d->scratch.swap(value);
    d->scratch.resize(size);
    d->setFromScratch(size_t(index));
}

void GroupStore::find(const QString& field, const QString& comparison, const QString& value)
{
    d->requireOpen();
    if (comparison.trimmed() != QLatin1String("="))
        fail(QStringLiteral("Unsupported comparison ") + comparison,
             AppError::InvalidProcedureCall);
    const int index = d->requireField(field);
    d->flush();
    d->stopCursor();
    d->buildDeferredIndexes();
    d->current = Private::Current::None;

    // The statements are kept: the texts are only built the first time.
    auto statement = [&](size_t slot, auto where) -> sqlite3_stmt* {
        auto& stmt = d->finds[slot];
        if (!stmt) {
            stmt = std::make_unique<Statement>();
            stmt->prepare(d->db, QStringLiteral("SELECT ") + d->selectColumns() +
                                     QStringLiteral(" FROM Recipients WHERE ") + where() +
                                     QStringLiteral(" LIMIT 1"));
        }
        return stmt->get();
    };

    bool found = d->findWith(statement(size_t(index) * 2,
                                       [&] {
                                           return quoted(d->columns.at(index)) +
                                                  QStringLiteral("=?1 COLLATE NOCASE");
                                       }),
                             value);
    // SQLite's NOCASE folds ASCII letters only.
    if (!found && !isAscii(value)) {
        found = d->findWith(statement(size_t(index) * 2 + 1,
                                      [&] {
                                          return QStringLiteral("dbimport_fold(") +
                                                 quoted(d->columns.at(index)) +
                                                 QStringLiteral(")=?1");
                                      }),
                            value.toLower());
    }
    d->noMatch = !found;
}

bool GroupStore::noMatch() const
{
    return d->noMatch;
}

qint64 GroupStore::currentRowid() const
{
    switch (d->current) {
    case Private::Current::Cursor:
        return sqlite3_column_int64(d->cursor.get(), 0);
    case Private::Current::Row:
    case Private::Current::Expected:
        return d->rowid;
    default:
        return 0;
    }
}

bool GroupStore::moveToRowid(qint64 rowid)
{
    d->requireOpen();
    d->flush();
    d->stopCursor();
    d->current = Private::Current::None;
    const bool found = d->stepByRowid(rowid);
    if (found) {
        d->loadRow(d->byRowid.get());
        d->current = Private::Current::Row;
    }
    sqlite3_reset(d->byRowid.get());
    d->noMatch = !found;
    return found;
}

void GroupStore::deferIndexes()
{
    d->requireOpen();
    if (!d->indexesToBuild.empty())
        return;
    d->flush();
    // Rows are only appended until the indexes are built again, and the sort that builds
    // them runs as fast in a small cache (spilling to a temporary file) as in a big one:
    // the big cache would only cost memory.
    exec(d->db, "PRAGMA cache_size=-16384", QStringLiteral("Cannot open the Group file"));
    Statement list;
    list.prepare(d->db, QStringLiteral("SELECT name, sql FROM sqlite_master WHERE type='index' "
                                       "AND tbl_name='Recipients' AND sql IS NOT NULL"));
    while (sqlite3_step(list.get()) == SQLITE_ROW) {
        const QString name =
            QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(list.get(), 0)));
        d->indexesToDrop.push_back(quoted(name).toStdString());
        d->indexesToBuild.emplace_back(
            reinterpret_cast<const char*>(sqlite3_column_text(list.get(), 1)));
    }
    // Drop in the running transaction if there is one, so that no batch is written twice
    // as dear.
    if (d->inTransaction) {
        for (const std::string& name : d->indexesToDrop)
            exec(d->db, ("DROP INDEX " + name).c_str(),
                 QStringLiteral("Cannot write to the Group"));
        d->indexesToDrop.clear();
    }
}

void GroupStore::setIndexBuildYield(std::function<void()> yield)
{
    d->indexBuildYield = std::move(yield);
}

void GroupStore::setBatchLimits(int rows, qint64 milliseconds)
{
    d->batchRows = rows > 0 ? rows : 1;
    d->batchMilliseconds = milliseconds;
}

sqlite3* GroupStore::handle() const
{
    return d->db;
}

bool GroupStore::isNull(int index) const
{
    if (index < 0 || index >= int(d->isSet.size()))
        return true;
    d->needField(index);
    if (d->current == Private::Current::Cursor)
        return sqlite3_column_type(d->cursor.get(), index + 1) == SQLITE_NULL;
    return !d->isSet[size_t(index)];
}

void GroupStore::writePending()
{
    d->requireOpen();
    d->flush();
}

void GroupStore::beginWrite()
{
    d->requireOpen();
    d->begin();
}

void GroupStore::commitWrite()
{
    d->requireOpen();
    d->commit();
}

bool GroupStore::changedSinceFound(int index, std::optional<QString>& oldValue) const
{
    d->settleOrFail();
    if (d->current != Private::Current::Row || index < 0 || index >= int(d->changed.size()) ||
        d->changed[size_t(index)] != '1')
        return false;
    const size_t i = size_t(index);
    oldValue = d->originalIsSet[i] ? std::optional<QString>(QString::fromUtf8(
                                         d->original[i].data(), qsizetype(d->original[i].size())))
                                   : std::nullopt;
    return true;
}

void GroupStore::setDigestFields(std::vector<int> fields)
{
    d->requireOpen();
    d->flush();
    d->current = Private::Current::None;
    d->isDigestField.assign(d->values.size(), 0);
    for (int f : fields) {
        if (f < 0 || f >= int(d->values.size()))
            fail(QStringLiteral("No such Group field"), AppError::SubscriptOutOfRange);
        d->isDigestField[size_t(f)] = 1;
    }
    d->digestFields = std::move(fields);
}

namespace {

// The records after rowid `after`, in rowid order, read through a connection of its own:
// the later part of a big scan, read on a helper thread while the caller's reads the rest.
struct LaterRows
{
    struct Row
    {
        qint64 rowid;
        quint64 digest;
        qsizetype at; // into texts; -1 for NULL
        int size;
    };
    std::vector<Row> rows;
    std::string texts;
    bool ok = false;
};

// The statement gives the rowid, the text, then the fields to digest.
void readLaterRows(const QByteArray& path, const QString& select, qint64 after, LaterRows& out)
{
    sqlite3* db = nullptr;
    bool ok = sqlite3_open_v2(path.constData(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX,
                              nullptr) == SQLITE_OK;
    sqlite3_stmt* stmt = nullptr;
    if (ok) {
        sqlite3_busy_timeout(db, 5000);
        const QByteArray sql = select.toUtf8();
        ok = sqlite3_prepare_v2(db, sql.constData(), int(sql.size()), &stmt, nullptr) == SQLITE_OK;
    }
    if (ok) {
        sqlite3_bind_int64(stmt, 1, after);
        const int columns = sqlite3_column_count(stmt);
        int rc;
        while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
            quint64 digest = kDigestSeed;
            for (int k = 2; k < columns; ++k)
                digest = columnDigestStep(digest, stmt, k);
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 1));
            const int size = text ? sqlite3_column_bytes(stmt, 1) : 0;
            out.rows.push_back({sqlite3_column_int64(stmt, 0), digest,
                                text ? qsizetype(out.texts.size()) : -1, size});
            out.texts.append(text ? text : "", std::size_t(size));
        }
        ok = rc == SQLITE_DONE;
    }
    sqlite3_finalize(stmt);
    sqlite3_close_v2(db);
    out.ok = ok;
}

// Below this many records a scan is not worth a second thread.
constexpr qint64 kSplitScanRows = 100000;

} // namespace

void GroupStore::scan(int textIndex, const ScanVisitor& visit)
{
    d->requireOpen();
    d->flush();
    d->stopCursor();
    d->current = Private::Current::None;
    const QString text = textIndex >= 0 && textIndex < d->columns.size()
                             ? quoted(d->columns.at(textIndex))
                             : QStringLiteral("NULL");
    QString digestColumns;
    for (int f : d->digestFields)
        digestColumns += QLatin1Char(',') + quoted(d->columns.at(f));

    // Reading every field of a big Group costs more than the walk itself: a helper thread
    // reads the later records (a little more than half: this thread also lists what both
    // read) while this one reads the rest. It sees only what is committed.
    qint64 split = std::numeric_limits<qint64>::max();
    LaterRows later;
    std::future<void> helper;
    const QString select = QStringLiteral("SELECT rowid,") + text + digestColumns;
    if (!d->digestFields.empty()) {
        d->commit();
        Statement last;
        last.prepare(d->db, QStringLiteral("SELECT max(rowid) FROM Recipients"));
        const qint64 maxRowid =
            sqlite3_step(last.get()) == SQLITE_ROW ? sqlite3_column_int64(last.get(), 0) : 0;
        if (maxRowid >= kSplitScanRows) {
            split = maxRowid / 100 * 44;
            helper = std::async(std::launch::async,
                                [path = d->path,
                                 sql = select + QStringLiteral(" FROM Recipients WHERE rowid>?1 "
                                                               "ORDER BY rowid"),
                                 split, &later] { readLaterRows(path, sql, split, later); });
        }
    }
    // Waits for the helper on every way out: it writes to `later`.
    struct Join
    {
        std::future<void>& helper;
        ~Join()
        {
            if (helper.valid())
                helper.wait();
        }
    } join{helper};

    auto walk = [&](const QString& sql) {
        Statement stmt;
        stmt.prepare(d->db, sql);
        sqlite3_stmt* row = stmt.get();
        if (split != std::numeric_limits<qint64>::max())
            sqlite3_bind_int64(row, 1, split);
        int rc;
        while ((rc = sqlite3_step(row)) == SQLITE_ROW) {
            quint64 digest = kDigestSeed;
            for (int k = 0; k < int(d->digestFields.size()); ++k)
                digest = columnDigestStep(digest, row, k + 2);
            const auto* value = sqlite3_column_type(row, 1) == SQLITE_NULL
                                    ? nullptr
                                    : reinterpret_cast<const char*>(sqlite3_column_text(row, 1));
            visit(sqlite3_column_int64(row, 0), value, value ? sqlite3_column_bytes(row, 1) : 0,
                  digest);
        }
        if (rc != SQLITE_DONE)
            failSqlite(d->db, QStringLiteral("Cannot read the Group"));
    };
    if (!helper.valid()) {
        // In no particular order: for the e-mail alone SQLite may read its smaller index.
        walk(select + QStringLiteral(" FROM Recipients"));
        return;
    }
    walk(select + QStringLiteral(" FROM Recipients WHERE rowid<=?1"));
    helper.get();
    if (!later.ok) {
        walk(select + QStringLiteral(" FROM Recipients WHERE rowid>?1"));
        return;
    }
    for (const LaterRows::Row& row : later.rows)
        visit(row.rowid, row.at < 0 ? nullptr : later.texts.data() + row.at, row.size, row.digest);
}

quint64 GroupStore::currentDigest()
{
    d->requireOpen();
    d->settleOrFail();
    if (d->current == Private::Current::Cursor) {
        quint64 digest = kDigestSeed;
        sqlite3_stmt* row = d->cursor.get();
        for (int f : d->digestFields)
            digest = columnDigestStep(digest, row, f + 1);
        return digest;
    }
    if (d->current == Private::Current::None)
        fail(QStringLiteral("No current record"));
    return d->valuesDigest();
}

void GroupStore::expectRowid(qint64 rowid, quint64 digest)
{
    d->requireOpen();
    d->flush();
    d->stopCursor();
    d->clearBuffer();
    d->pendingSet.assign(d->values.size(), 0);
    d->changed.assign(d->values.size(), '0');
    d->dirty = false;
    d->partial = false;
    d->rowid = rowid;
    d->expectedDigest = digest;
    d->noMatch = false;
    d->current = Private::Current::Expected;
}

bool GroupStore::confirmCurrent()
{
    d->requireOpen();
    return d->settle();
}
