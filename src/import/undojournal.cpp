#include "undojournal.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QStringList>

#include <algorithm>
#include <charconv>
#include <memory>

#include <sqlite3.h>

#include "groupclaim.h"
#include "groupstore.h"
#include "util/apperror.h"

namespace {

constexpr int kRunsKept = 10;

// ImportUndoState.Busy is 1 while this program writes, so that the trigger only notes the
// edits of others. A run killed half-way leaves it at 1 and its run unfinished; the next
// run or undo tidies both up before it starts.
const char* const kSchema =
    "CREATE TABLE IF NOT EXISTS ImportRuns (Run INTEGER PRIMARY KEY, Started TEXT, "
    "Connection TEXT, ReplaceMode INTEGER, RowsBefore INTEGER, LastRow INTEGER, "
    "Finished INTEGER NOT NULL DEFAULT 0, Undone INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE IF NOT EXISTS ImportRunChanges (Run INTEGER, RecipientRow INTEGER, "
    "Changes TEXT);"
    "CREATE TABLE IF NOT EXISTS ImportHandChanges (RecipientRow INTEGER PRIMARY KEY, Run "
    "INTEGER);"
    "CREATE TABLE IF NOT EXISTS ImportUndoState (Busy INTEGER);"
    "INSERT INTO ImportUndoState (Busy) SELECT 0 WHERE NOT EXISTS (SELECT 1 FROM "
    "ImportUndoState);"
    "CREATE TRIGGER IF NOT EXISTS ImportHandChange AFTER UPDATE ON Recipients "
    "WHEN (SELECT Busy FROM ImportUndoState) = 0 BEGIN "
    "INSERT OR REPLACE INTO ImportHandChanges (RecipientRow, Run) "
    "VALUES (OLD.rowid, (SELECT max(Run) FROM ImportRuns)); END;";

const char* const kTidyUp =
    "UPDATE ImportRuns SET LastRow = (SELECT coalesce(max(rowid), 0) FROM Recipients), "
    "Finished = 1 WHERE Finished = 0;"
    "UPDATE ImportUndoState SET Busy = 0;";

[[noreturn]] void fail(sqlite3* db, const QString& what)
{
    throw AppError(AppError::GroupStore,
                   what + QStringLiteral(": ") +
                       (db ? QString::fromUtf8(sqlite3_errmsg(db)) : QStringLiteral("no file")));
}

void exec(sqlite3* db, const char* sql, const QString& what)
{
    char* error = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        const QString message = error ? QString::fromUtf8(error) : QString();
        sqlite3_free(error);
        throw AppError(AppError::GroupStore, what + QStringLiteral(": ") + message);
    }
}

QString quoted(const QString& identifier)
{
    QString q = identifier;
    q.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + q + QLatin1Char('"');
}

// One overwrite of a recipient as one text: per changed field its name, the value it had
// (length -1 for NULL) and the value written, each as "<length>:<text>". One row per
// recipient keeps the bookkeeping of a big replace to one insert a record.
void appendPart(QString& packed, const std::optional<QString>& text)
{
    // Without a temporary per number: a big replace packs millions of parts.
    char digits[24];
    char* end = std::to_chars(digits, digits + sizeof digits - 1,
                              static_cast<long long>(text ? text->size() : -1))
                    .ptr;
    *end++ = ':';
    packed.append(QLatin1StringView(digits, end - digits));
    if (text)
        packed.append(*text);
}

struct Overwrite
{
    QString field;
    std::optional<QString> oldValue;
    std::optional<QString> newValue;
};

bool takePart(const QString& packed, qsizetype& at, std::optional<QString>& text)
{
    const qsizetype colon = packed.indexOf(QLatin1Char(':'), at);
    if (colon < 0)
        return false;
    bool ok = false;
    const qsizetype length = packed.mid(at, colon - at).toLongLong(&ok);
    if (!ok || length < -1 || colon + 1 + length > packed.size())
        return false;
    text = length < 0 ? std::nullopt : std::optional<QString>(packed.mid(colon + 1, length));
    at = colon + 1 + std::max<qsizetype>(length, 0);
    return true;
}

std::vector<Overwrite> unpack(const QString& packed)
{
    std::vector<Overwrite> result;
    qsizetype at = 0;
    while (at < packed.size()) {
        std::optional<QString> field, oldValue, newValue;
        if (!takePart(packed, at, field) || !field || !takePart(packed, at, oldValue) ||
            !takePart(packed, at, newValue))
            throw AppError(AppError::GroupStore,
                           QStringLiteral("The Group's import history is damaged"));
        result.push_back({*field, oldValue, newValue});
    }
    return result;
}

class Stmt
{
public:
    Stmt(sqlite3* db, const QString& sql) : m_db(db)
    {
        const QByteArray utf8 = sql.toUtf8();
        if (sqlite3_prepare_v2(db, utf8.constData(), int(utf8.size()), &m_stmt, nullptr) !=
            SQLITE_OK)
            fail(db, QStringLiteral("Cannot read the Group's import history"));
    }
    ~Stmt() { sqlite3_finalize(m_stmt); }
    Stmt(const Stmt&) = delete;
    Stmt& operator=(const Stmt&) = delete;

    Stmt& bind(int i, qint64 v)
    {
        sqlite3_bind_int64(m_stmt, i, v);
        return *this;
    }
    Stmt& bind(int i, const std::optional<QString>& v)
    {
        if (!v)
            sqlite3_bind_null(m_stmt, i);
        else
            sqlite3_bind_text16(m_stmt, i, v->utf16(), int(v->size() * 2), SQLITE_TRANSIENT);
        return *this;
    }
    bool row()
    {
        const int rc = sqlite3_step(m_stmt);
        if (rc == SQLITE_ROW)
            return true;
        if (rc != SQLITE_DONE)
            fail(m_db, QStringLiteral("Cannot use the Group's import history"));
        return false;
    }
    void run()
    {
        row();
        sqlite3_reset(m_stmt);
        sqlite3_clear_bindings(m_stmt);
    }
    qint64 integer(int c) const { return sqlite3_column_int64(m_stmt, c); }
    std::optional<QString> text(int c) const
    {
        if (sqlite3_column_type(m_stmt, c) == SQLITE_NULL)
            return std::nullopt;
        const void* data = sqlite3_column_text16(m_stmt, c);
        return QString(static_cast<const QChar*>(data), sqlite3_column_bytes16(m_stmt, c) / 2);
    }

private:
    sqlite3* m_db;
    sqlite3_stmt* m_stmt = nullptr;

public:
    sqlite3_stmt* get() const { return m_stmt; }
};

bool hasHistory(sqlite3* db)
{
    Stmt s(db, QStringLiteral("SELECT 1 FROM sqlite_master WHERE type='table' AND "
                              "name='ImportRuns'"));
    return s.row();
}

// A connection of its own to a Group file, closed on every way out.
class GroupFile
{
public:
    explicit GroupFile(const QString& path)
    {
        if (!QFileInfo(path).isFile())
            throw AppError(AppError::FileNotFound, QStringLiteral("File not found: ") + path);
        if (sqlite3_open_v2(QFile::encodeName(path).constData(), &db, SQLITE_OPEN_READWRITE,
                            nullptr) != SQLITE_OK)
            fail(db, QStringLiteral("Cannot open the Group file"));
        sqlite3_busy_timeout(db, 5000);
    }
    ~GroupFile()
    {
        if (inTransaction)
            sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close_v2(db);
    }
    GroupFile(const GroupFile&) = delete;
    GroupFile& operator=(const GroupFile&) = delete;

    sqlite3* db = nullptr;
    bool inTransaction = false;
};

// The run's figures as the file holds them now.
ImportRunInfo runInfo(sqlite3* db, qint64 run)
{
    ImportRunInfo info;
    Stmt s(db, QStringLiteral(
                   "SELECT Run, Started, Connection, ReplaceMode, "
                   "(SELECT count(*) FROM Recipients WHERE rowid > r.RowsBefore AND rowid <= "
                   "coalesce(r.LastRow, (SELECT max(rowid) FROM Recipients))), "
                   "(SELECT count(DISTINCT RecipientRow) FROM ImportRunChanges c WHERE c.Run = "
                   "r.Run AND c.RecipientRow <= r.RowsBefore) "
                   "FROM ImportRuns r WHERE Run = ?1"));
    s.bind(1, run);
    if (s.row()) {
        info.run = s.integer(0);
        info.started = s.text(1).value_or(QString());
        info.connection = s.text(2).value_or(QString());
        info.replace = s.integer(3) != 0;
        info.added = qint32(s.integer(4));
        info.updated = qint32(s.integer(5));
    }
    return info;
}

} // namespace

UndoJournal::~UndoJournal()
{
    sqlite3_finalize(m_insert);
}

void UndoJournal::beginRun(const QString& connection, bool replace)
{
    sqlite3* db = m_store.handle();
    m_store.writePending();
    m_store.beginWrite();
    exec(db, kSchema, QStringLiteral("Cannot keep the Group's import history"));
    exec(db, kTidyUp, QStringLiteral("Cannot keep the Group's import history"));
    {
        // The new run is the tenth kept.
        const QString oldRuns =
            QStringLiteral("SELECT Run FROM ImportRuns ORDER BY Run DESC LIMIT -1 OFFSET %1")
                .arg(kRunsKept - 1);
        Stmt(db, QStringLiteral("DELETE FROM ImportRunChanges WHERE Run IN (") + oldRuns +
                     QLatin1Char(')'))
            .run();
        Stmt(db,
             QStringLiteral("DELETE FROM ImportRuns WHERE Run IN (") + oldRuns + QLatin1Char(')'))
            .run();
        Stmt(db, QStringLiteral("DELETE FROM ImportHandChanges WHERE Run < (SELECT min(Run) "
                                "FROM ImportRuns)"))
            .run();
    }
    Stmt insert(db, QStringLiteral("INSERT INTO ImportRuns (Started, Connection, ReplaceMode, "
                                   "RowsBefore) VALUES (?1, ?2, ?3, (SELECT coalesce(max(rowid), "
                                   "0) FROM Recipients))"));
    insert.bind(1, QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")))
        .bind(2, connection)
        .bind(3, qint64(replace ? 1 : 0))
        .run();
    m_run = sqlite3_last_insert_rowid(db);
    exec(db, "UPDATE ImportUndoState SET Busy = 1",
         QStringLiteral("Cannot keep the Group's "
                        "import history"));
    // Committed before the first recipient is written: every later batch then belongs to
    // a run the file knows of.
    m_store.commitWrite();
}

void UndoJournal::noteReplaced(qint64 rowid, const std::vector<Change>& changes)
{
    if (m_run == 0 || changes.empty())
        return;
    sqlite3* db = m_store.handle();
    // In the batch that will carry the overwrite itself.
    m_store.beginWrite();
    if (!m_insert && sqlite3_prepare_v2(db,
                                        "INSERT INTO ImportRunChanges (Run, RecipientRow, "
                                        "Changes) VALUES (?1, ?2, ?3)",
                                        -1, &m_insert, nullptr) != SQLITE_OK)
        fail(db, QStringLiteral("Cannot keep the Group's import history"));
    const QStringList names = m_store.fieldNames();
    // Reused, so that its room is reserved once.
    QString& packed = m_packed;
    packed.resize(0);
    qsizetype room = 0;
    for (const Change& c : changes)
        room += names.at(c.index).size() + (c.oldValue ? c.oldValue->size() : 0) +
                c.newValue.size() + 3 * 12;
    packed.reserve(room);
    for (const Change& c : changes) {
        appendPart(packed, names.at(c.index));
        appendPart(packed, c.oldValue);
        appendPart(packed, c.newValue);
    }
    sqlite3_bind_int64(m_insert, 1, m_run);
    sqlite3_bind_int64(m_insert, 2, rowid);
    sqlite3_bind_text16(m_insert, 3, packed.utf16(), int(packed.size() * 2), SQLITE_STATIC);
    const int rc = sqlite3_step(m_insert);
    sqlite3_reset(m_insert);
    sqlite3_clear_bindings(m_insert);
    if (rc != SQLITE_DONE)
        fail(db, QStringLiteral("Cannot keep the Group's import history"));
}

void UndoJournal::endRun()
{
    if (m_run == 0)
        return;
    sqlite3* db = m_store.handle();
    m_store.writePending();
    m_store.beginWrite();
    Stmt finish(db, QStringLiteral("UPDATE ImportRuns SET LastRow = (SELECT coalesce(max(rowid), "
                                   "0) FROM Recipients), Finished = 1 WHERE Run = ?1"));
    finish.bind(1, m_run).run();
    exec(db, "UPDATE ImportUndoState SET Busy = 0",
         QStringLiteral("Cannot keep the Group's import history"));
    m_run = 0;
}

bool UndoJournal::lastRun(const QString& groupPath, ImportRunInfo& info, QString& errorText)
{
    errorText.clear();
    info = ImportRunInfo();
    try {
        GroupFile file(groupPath);
        if (!hasHistory(file.db))
            return false;
        Stmt last(file.db, QStringLiteral("SELECT max(Run) FROM ImportRuns WHERE Undone = 0"));
        if (!last.row() || !last.text(0))
            return false;
        info = runInfo(file.db, last.integer(0));
        return info.run != 0;
    } catch (const AppError& e) {
        errorText = e.numberAndDescription();
        return false;
    }
}

bool UndoJournal::undoLast(const QString& groupPath, qint64 run, UndoOutcome& outcome,
                           QString& errorText)
{
    outcome = UndoOutcome();
    errorText.clear();
    // An import running into the Group would interleave its writes with the undo.
    GroupClaim claim;
    if (!claim.acquire(groupPath, 3000)) {
        errorText = QStringLiteral("The Group is being imported into by another run; try again "
                                   "when it has finished.");
        return false;
    }
    try {
        GroupFile file(groupPath);
        sqlite3* db = file.db;
        if (!hasHistory(db))
            return false;
        exec(db, "BEGIN IMMEDIATE", QStringLiteral("Cannot write to the Group"));
        file.inTransaction = true;
        exec(db, kTidyUp, QStringLiteral("Cannot write to the Group"));
        Stmt pick(db, QStringLiteral("SELECT Run, RowsBefore, LastRow FROM ImportRuns WHERE Run = "
                                     "(SELECT max(Run) FROM ImportRuns WHERE Undone = 0)"));
        if (!pick.row() || pick.integer(0) != run) {
            errorText = QStringLiteral("The Group was imported into again since; try again.");
            return false;
        }
        const qint64 rowsBefore = pick.integer(1);
        const qint64 lastRow = pick.integer(2);
        exec(db, "UPDATE ImportUndoState SET Busy = 1",
             QStringLiteral("Cannot write to the Group"));

        // Recipients the run overwrote: restored only when they still hold what it wrote.
        // Read in recipient order, so each one's overwrites come together.
        Stmt changed(db, QStringLiteral("SELECT RecipientRow, Changes FROM ImportRunChanges "
                                        "WHERE Run = ?1 AND RecipientRow <= ?2 ORDER BY "
                                        "RecipientRow, rowid"));
        changed.bind(1, run).bind(2, rowsBefore);
        Stmt hand(db, QStringLiteral("SELECT 1 FROM ImportHandChanges WHERE RecipientRow = ?1 "
                                     "AND Run >= ?2"));
        QHash<QString, std::shared_ptr<Stmt>> reads;
        qint64 row = -1;
        std::vector<Overwrite> fields; // first old value, last new value of each field
        auto finishRow = [&] {
            if (row < 0)
                return;
            hand.bind(1, row).bind(2, run);
            bool leave = hand.row();
            sqlite3_reset(hand.get());
            for (const Overwrite& f : fields) {
                auto& read = reads[f.field];
                if (!read)
                    read = std::make_shared<Stmt>(db, QStringLiteral("SELECT ") + quoted(f.field) +
                                                          QStringLiteral(" FROM Recipients WHERE "
                                                                         "rowid = ?1"));
                read->bind(1, row);
                if (!read->row() || read->text(0) != f.newValue)
                    leave = true;
                sqlite3_reset(read->get());
            }
            if (leave) {
                ++outcome.leftAlone;
                return;
            }
            QStringList assignments;
            for (size_t i = 0; i < fields.size(); ++i)
                assignments << quoted(fields[i].field) + QStringLiteral(" = ?%1").arg(i + 1);
            Stmt restore(db, QStringLiteral("UPDATE Recipients SET ") +
                                 assignments.join(QStringLiteral(", ")) +
                                 QStringLiteral(" WHERE rowid = ?%1").arg(fields.size() + 1));
            for (size_t i = 0; i < fields.size(); ++i)
                restore.bind(int(i + 1), fields[i].oldValue);
            restore.bind(int(fields.size() + 1), row).run();
            ++outcome.restored;
        };
        while (changed.row()) {
            const qint64 next = changed.integer(0);
            if (next != row) {
                finishRow();
                row = next;
                fields.clear();
            }
            for (Overwrite& o : unpack(changed.text(1).value_or(QString()))) {
                auto it = std::find_if(fields.begin(), fields.end(),
                                       [&](const Overwrite& f) { return f.field == o.field; });
                if (it == fields.end())
                    fields.push_back(std::move(o));
                else
                    it->newValue = o.newValue;
            }
        }
        finishRow();

        // Recipients the run added, less those edited since.
        Stmt handAdded(db, QStringLiteral("SELECT count(*) FROM ImportHandChanges h JOIN "
                                          "Recipients r ON r.rowid = h.RecipientRow WHERE "
                                          "h.RecipientRow > ?1 AND h.RecipientRow <= ?2 AND "
                                          "h.Run >= ?3"));
        handAdded.bind(1, rowsBefore).bind(2, lastRow).bind(3, run);
        if (handAdded.row())
            outcome.leftAlone += qint32(handAdded.integer(0));
        Stmt remove(db, QStringLiteral("DELETE FROM Recipients WHERE rowid > ?1 AND rowid <= ?2 "
                                       "AND rowid NOT IN (SELECT RecipientRow FROM "
                                       "ImportHandChanges WHERE Run >= ?3)"));
        remove.bind(1, rowsBefore).bind(2, lastRow).bind(3, run).run();
        outcome.removed = qint32(sqlite3_changes(db));

        Stmt done(db, QStringLiteral("UPDATE ImportRuns SET Undone = 1 WHERE Run = ?1"));
        done.bind(1, run).run();
        Stmt forget(db, QStringLiteral("DELETE FROM ImportRunChanges WHERE Run = ?1"));
        forget.bind(1, run).run();
        exec(db, "UPDATE ImportUndoState SET Busy = 0",
             QStringLiteral("Cannot write to the Group"));
        exec(db, "COMMIT", QStringLiteral("Cannot write to the Group"));
        file.inTransaction = false;
        return true;
    } catch (const AppError& e) {
        errorText = e.numberAndDescription();
        return false;
    }
}

QString UndoJournal::describe(const ImportRunInfo& info, const QString& group)
{
    QString text = QStringLiteral("Undo the import of ") + info.started +
                   QStringLiteral(" from the connection \"") + info.connection +
                   QStringLiteral("\" into the Group \"") + group + QStringLiteral("\"?\r\n\r\n") +
                   QStringLiteral("It added %1 recipient(s)").arg(info.added);
    if (info.replace || info.updated > 0)
        text += QStringLiteral(" and updated %1").arg(info.updated);
    text += QStringLiteral(". The added recipients are removed");
    if (info.updated > 0)
        text += QStringLiteral(" and the updated ones get their earlier details back");
    return text + QLatin1Char('.');
}

QString UndoJournal::describe(const UndoOutcome& outcome)
{
    QString text = QStringLiteral("The import was undone: %1 recipient(s) removed, %2 restored.")
                       .arg(outcome.removed)
                       .arg(outcome.restored);
    if (outcome.leftAlone > 0)
        text += QStringLiteral("\r\n%1 recipient(s) changed since the import were left as they "
                               "are.")
                    .arg(outcome.leftAlone);
    return text;
}

QString UndoJournal::nothingToUndo(const QString& group)
{
    return QStringLiteral("There is no import into the Group \"") + group +
           QStringLiteral("\" to undo.");
}
