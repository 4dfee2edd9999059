#include "sourcerows.h"

#include <QDate>
#include <QDateTime>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStringConverter>
#include <QTime>
#include <QVariant>

#include <sqlite3.h>

#include "datasource/sourceconnection.h"

QString SourceBlobText(const QByteArray& bytes)
{
    auto decoder = QStringDecoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(bytes);
    if (!decoder.hasError())
        return text;
    return QStringLiteral("0x") + QString::fromLatin1(bytes.toHex().toUpper());
}

QString SourceDoubleText(double value)
{
    return QString::number(value, 'g', 15);
}

namespace {

QString blobText(const QByteArray& bytes)
{
    return SourceBlobText(bytes);
}

QString doubleText(double value)
{
    return SourceDoubleText(value);
}

bool isAscii(const char* data, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        if (static_cast<unsigned char>(data[i]) >= 0x80)
            return false;
    }
    return true;
}

QString variantText(const QVariant& value)
{
    if (value.isNull())
        return QString();
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("True") : QStringLiteral("False");
    case QMetaType::Double:
    case QMetaType::Float:
        return doubleText(value.toDouble());
    case QMetaType::QDate:
        return value.toDate().toString(Qt::ISODate);
    case QMetaType::QTime:
        return value.toTime().toString(QStringLiteral("HH:mm:ss"));
    case QMetaType::QDateTime: {
        const QDateTime dt = value.toDateTime();
        return dt.time() == QTime(0, 0) ? dt.date().toString(Qt::ISODate)
                                        : dt.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    }
    case QMetaType::QByteArray:
        return blobText(value.toByteArray());
    default:
        return value.toString();
    }
}

// Any driver, through Qt SQL.
class QueryRows final : public SourceRows
{
public:
    QueryRows(const QSqlDatabase& db, const QString& sql) : m_query(db)
    {
        // Forward-only before exec, or the driver keeps every row it has read.
        m_query.setForwardOnly(true);
        if (!m_query.exec(sql))
            throw SourceFailure{SourceConnection::errorText(m_query.lastError())};
        m_record = m_query.record();
        // ODBC's row count; drivers that hold the whole result (PostgreSQL's by default)
        // give the rows of a SELECT, others -1.
        m_count = m_query.numRowsAffected();
    }

    bool next() override
    {
        if (m_query.next())
            return true;
        if (m_query.lastError().isValid())
            throw SourceFailure{SourceConnection::errorText(m_query.lastError())};
        return false;
    }
    int indexOf(const QString& name) const override { return m_record.indexOf(name); }
    QString text(int index) const override { return variantText(m_query.value(index)); }
    qint64 knownCount() const override { return m_count; }

private:
    QSqlQuery m_query;
    QSqlRecord m_record;
    qint64 m_count = -1;
};

// A SQLite source read on the driver's own handle, inside the same read-only connection
// and transaction. Qt's driver turns every column of every row into a UTF-16 QVariant,
// which costs more than the rest of a big import together; here only the mapped columns
// are read, as the same text the driver's values would give.
class SqliteRows final : public SourceRows
{
public:
    SqliteRows(sqlite3* db, const QString& sql) : m_db(db)
    {
        const QByteArray utf8 = sql.toUtf8();
        const int rc = sqlite3_prepare_v2(db, utf8.constData(), int(utf8.size()), &m_stmt, nullptr);
        if (rc != SQLITE_OK) {
            const QString message = QString::fromUtf8(sqlite3_errmsg(db));
            sqlite3_finalize(m_stmt);
            m_stmt = nullptr;
            throw SourceFailure{QString::number(rc) + QStringLiteral(" - ") + message};
        }
        // Run it now, as an exec does, so that a refused statement fails here.
        try {
            m_pending = step();
        } catch (...) {
            sqlite3_finalize(m_stmt);
            m_stmt = nullptr;
            throw;
        }
    }
    ~SqliteRows() override { sqlite3_finalize(m_stmt); }

    bool next() override
    {
        if (m_pending) {
            m_pending = false;
            return true;
        }
        return !m_done && step();
    }

    int indexOf(const QString& name) const override
    {
        const int columns = m_stmt ? sqlite3_column_count(m_stmt) : 0;
        for (int i = 0; i < columns; ++i) {
            if (name.compare(QString::fromUtf8(sqlite3_column_name(m_stmt, i)),
                             Qt::CaseInsensitive) == 0)
                return i;
        }
        return -1;
    }

    QString text(int index) const override
    {
        switch (sqlite3_column_type(m_stmt, index)) {
        case SQLITE_NULL:
            return QString();
        case SQLITE_INTEGER:
            return QString::number(sqlite3_column_int64(m_stmt, index));
        case SQLITE_FLOAT:
            return doubleText(sqlite3_column_double(m_stmt, index));
        case SQLITE_BLOB: {
            const void* data = sqlite3_column_blob(m_stmt, index);
            return blobText(
                QByteArray(static_cast<const char*>(data), sqlite3_column_bytes(m_stmt, index)));
        }
        default: {
            const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(m_stmt, index));
            return QString::fromUtf8(data, sqlite3_column_bytes(m_stmt, index));
        }
        }
    }

    // SQLite lets a handle move between threads as long as one uses it at a time, and the
    // import leaves it alone while the rows are read.
    bool movable() const override { return true; }

    void utf8(int index, std::string& out) const override
    {
        switch (sqlite3_column_type(m_stmt, index)) {
        case SQLITE_NULL:
            out.clear();
            return;
        case SQLITE_TEXT: {
            const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(m_stmt, index));
            const auto size = std::size_t(sqlite3_column_bytes(m_stmt, index));
            // Anything but plain ASCII goes the way text() does, so that bytes that are not
            // UTF-8 come out as the same replacement characters.
            if (isAscii(data, size)) {
                out.assign(data, size);
                return;
            }
            break;
        }
        default:
            break;
        }
        SourceRows::utf8(index, out);
    }

private:
    bool step()
    {
        if (!m_stmt)
            return false;
        const int rc = sqlite3_step(m_stmt);
        if (rc == SQLITE_ROW)
            return true;
        m_done = true;
        if (rc == SQLITE_DONE)
            return false;
        throw SourceFailure{QString::number(sqlite3_extended_errcode(m_db)) +
                            QStringLiteral(" - ") + QString::fromUtf8(sqlite3_errmsg(m_db))};
    }

    sqlite3* m_db;
    sqlite3_stmt* m_stmt = nullptr;
    bool m_pending = false;
    bool m_done = false;
};

} // namespace

int Utf8SourceRows::indexOf(const QString& name) const
{
    for (qsizetype i = 0; i < m_names.size(); ++i) {
        if (m_names.at(i).compare(name, Qt::CaseInsensitive) == 0)
            return int(i);
    }
    return -1;
}

QString Utf8SourceRows::text(int index) const
{
    std::string value;
    utf8(index, value);
    return QString::fromUtf8(value.data(), qsizetype(value.size()));
}

void SourceRows::utf8(int index, std::string& out) const
{
    const QByteArray bytes = text(index).toUtf8();
    out.assign(bytes.constData(), std::size_t(bytes.size()));
}

std::unique_ptr<SourceRows> SourceRows::open(const QSqlDatabase& db, const QString& sql)
{
    // The driver's handle is only shared when its plugin uses this process's libsqlite3,
    // as Debian's Qt does; the type name is how Qt marks a SQLite handle.
    const QVariant handle = db.driver() ? db.driver()->handle() : QVariant();
    if (handle.isValid() && qstrcmp(handle.typeName(), "sqlite3*") == 0) {
        sqlite3* sqlite = *static_cast<sqlite3* const*>(handle.data());
        if (sqlite)
            return std::make_unique<SqliteRows>(sqlite, sql);
    }
    return std::make_unique<QueryRows>(db, sql);
}
