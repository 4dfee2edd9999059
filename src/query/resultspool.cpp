#include "resultspool.h"

#include <QDir>
#include <QElapsedTimer>
#include <QMutexLocker>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QThread>
#include <QtEndian>

#include "datasource/connectionstring.h"
#include "datasource/sourceconnection.h"

namespace {

// Rows are handed to the caller in blocks: the first as soon as it is read, then whenever a
// block has grown this large or this old, so a slow source still shows rows as they come.
constexpr int kFirstBlockRows = 200;
constexpr qsizetype kBlockBytes = 256 * 1024;
constexpr qint64 kBlockMs = 100;
constexpr qint64 kFirstRowsWaitMs = 500;

// PostgreSQL's ODBC driver reads a whole result into memory before it hands over the first
// row unless it is told to read through a cursor; other drivers ignore the keyword.
QString streamingConString(const QString& conString)
{
    ConnectionTarget target;
    QString message;
    if (!ResolveConnectionString(conString, target, message) ||
        target.driver != QLatin1String("QODBC") ||
        conString.contains(QLatin1String("UseDeclareFetch"), Qt::CaseInsensitive))
        return conString;
    QString result = conString.trimmed();
    if (!result.isEmpty() && !result.endsWith(QLatin1Char(';')))
        result += QLatin1Char(';');
    return result + QStringLiteral("UseDeclareFetch=1;Fetch=2000;");
}

// The statement as a table to count: trailing blanks and semicolons go, and the statement
// sits on lines of its own so that a trailing "--" comment cannot swallow the bracket.
QString countStatement(const QString& sql)
{
    QString inner = sql;
    while (!inner.isEmpty() && (inner.back().isSpace() || inner.back() == QLatin1Char(';')))
        inner.chop(1);
    return QStringLiteral("SELECT COUNT(*) FROM (\n") + inner +
           QStringLiteral("\n) dbimport_count");
}

QString valueText(const QVariant& value)
{
    if (value.isNull())
        return QString();
    if (value.typeId() == QMetaType::QByteArray) {
        const QByteArray bytes = value.toByteArray();
        return QStringLiteral("0x") + QString::fromLatin1(bytes.left(64).toHex()) +
               (bytes.size() > 64 ? QStringLiteral("...") : QString());
    }
    return value.toString();
}

void appendValue(QByteArray& block, const QVariant& value)
{
    const bool null = value.isNull();
    const QByteArray utf8 = null ? QByteArray() : valueText(value).toUtf8();
    const qint32 length = null ? -1 : static_cast<qint32>(utf8.size());
    char header[4];
    qToLittleEndian(length, header);
    block.append(header, 4);
    block.append(utf8);
}

} // namespace

ResultSpool::ResultSpool()
{
    m_spool.setFileTemplate(QDir::tempPath() + QStringLiteral("/dbimport-results-XXXXXX"));
}

ResultSpool::~ResultSpool()
{
    stop();
    if (m_reader)
        m_reader->wait();
    if (m_counter)
        m_counter->wait();
}

bool ResultSpool::start(const QString& conString, const QString& sql, QString& errorText)
{
    // The temporary file is created private to its owner; the rows are read back through
    // an unbuffered handle of their own, since the reader thread appends behind it.
    if (!m_spool.open()) {
        errorText = QStringLiteral("75 - ") + m_spool.errorString();
        return false;
    }
    m_in.setFileName(m_spool.fileName());
    if (!m_in.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        errorText = QStringLiteral("75 - ") + m_in.errorString();
        return false;
    }
    m_offsets = {0};
    m_reader.reset(QThread::create([this, conString, sql] { readRows(conString, sql); }));
    m_reader->start();
    m_counter.reset(QThread::create([this, conString, sql] { countRows(conString, sql); }));
    m_counter->start();

    // A statement the source took but whose first rows are slow to come (a filter that
    // matches little of a large table) still opens the window soon; rows follow as found.
    QMutexLocker lock(&m_mutex);
    QElapsedTimer waiting;
    waiting.start();
    while (!m_started && !(m_executed && waiting.elapsed() >= kFirstRowsWaitMs))
        m_startedCondition.wait(&m_mutex, 20);
    m_startReturned = true;
    if (!m_started || m_startError.isEmpty())
        return true;
    errorText = m_startError;
    m_stop = true;
    return false;
}

void ResultSpool::stop()
{
    m_stop = true;
}

void ResultSpool::readRows(const QString& conString, const QString& sql)
{
    // Hands the outcome to start(), which waits for it; false when start() has had it.
    auto started = [this](const QString& error) {
        QMutexLocker lock(&m_mutex);
        if (m_started)
            return false;
        if (m_startReturned) {
            // Too late for start() to report: the window is open and shows it.
            m_started = true;
            m_finished = !error.isEmpty() || m_finished;
            m_readError = error;
            return true;
        }
        m_startError = error;
        m_started = true;
        if (!error.isEmpty())
            m_finished = true;
        m_startedCondition.wakeAll();
        return true;
    };

    QFile out(m_spool.fileName());
    if (!out.open(QIODevice::WriteOnly | QIODevice::Append)) {
        started(QStringLiteral("75 - ") + out.errorString());
        return;
    }

    SourceConnection connection;
    QString error;
    if (!connection.open(streamingConString(conString), error)) {
        started(error);
        return;
    }
    qint64 read = 0;
    {
        QSqlQuery query(connection.database());
        query.setForwardOnly(true);
        if (!query.exec(sql)) {
            started(SourceConnection::errorText(query.lastError()));
            return;
        }
        const QSqlRecord record = query.record();
        {
            QMutexLocker lock(&m_mutex);
            for (int i = 0; query.isSelect() && i < record.count(); ++i)
                m_columns << record.fieldName(i);
            m_executed = true;
        }
        if (query.isSelect()) {
            QByteArray block;
            QList<qint64> offsets;
            qint64 fileEnd = 0;
            QElapsedTimer sincePublished;
            sincePublished.start();
            auto flush = [&] {
                if (offsets.isEmpty())
                    return true;
                if (out.write(block) != block.size() || !out.flush()) {
                    QMutexLocker lock(&m_mutex);
                    m_readError = QStringLiteral("75 - ") + out.errorString();
                    return false;
                }
                for (qint64& offset : offsets)
                    offset += fileEnd;
                fileEnd += block.size();
                publish(offsets);
                block.clear();
                offsets.clear();
                sincePublished.restart();
                return true;
            };

            const int columnCount = record.count();
            bool ok = true;
            while (!m_stop && query.next()) {
                for (int i = 0; i < columnCount; ++i)
                    appendValue(block, query.value(i));
                offsets << block.size(); // where this row ends, relative to the block
                ++read;
                if (read == kFirstBlockRows) {
                    if (!(ok = flush()))
                        break;
                    started(QString());
                } else if (block.size() >= kBlockBytes || sincePublished.elapsed() >= kBlockMs) {
                    if (!(ok = flush()))
                        break;
                }
            }
            if (ok)
                ok = flush();
            if (ok && !m_stop && query.lastError().isValid()) {
                const QString failure = SourceConnection::errorText(query.lastError());
                if (started(failure))
                    return;
                QMutexLocker lock(&m_mutex);
                m_readError = failure;
                ok = false;
            }
            if (ok && !m_stop) {
                QMutexLocker lock(&m_mutex);
                m_count = read;
            }
        } else {
            QMutexLocker lock(&m_mutex);
            m_count = 0;
        }
    }
    connection.close();
    started(QString());
    QMutexLocker lock(&m_mutex);
    m_finished = true;
}

void ResultSpool::countRows(const QString& conString, const QString& sql)
{
    if (m_stop)
        return;
    SourceConnection connection;
    QString error;
    if (!connection.open(conString, error))
        return;
    QSqlQuery query(connection.database());
    query.setForwardOnly(true);
    // A statement that cannot be wrapped (a DELETE, say) fails here; the reader's own
    // count then stands.
    if (m_stop || !query.exec(countStatement(sql)) || !query.next())
        return;
    bool ok = false;
    const qint64 count = query.value(0).toLongLong(&ok);
    query.finish();
    if (!ok)
        return;
    QMutexLocker lock(&m_mutex);
    if (m_count < 0)
        m_count = count;
}

void ResultSpool::publish(const QList<qint64>& rowEnds)
{
    QMutexLocker lock(&m_mutex);
    m_offsets.append(rowEnds);
}

QStringList ResultSpool::columns() const
{
    QMutexLocker lock(&m_mutex);
    return m_columns;
}

qint64 ResultSpool::rowsRead() const
{
    QMutexLocker lock(&m_mutex);
    return m_offsets.size() - 1;
}

qint64 ResultSpool::count() const
{
    QMutexLocker lock(&m_mutex);
    return m_count;
}

bool ResultSpool::finished() const
{
    QMutexLocker lock(&m_mutex);
    return m_finished;
}

QString ResultSpool::readError() const
{
    QMutexLocker lock(&m_mutex);
    return m_readError;
}

QList<QStringList> ResultSpool::rows(qint64 first, int n) const
{
    qint64 from = 0;
    qint64 to = 0;
    int columnCount = 0;
    {
        QMutexLocker lock(&m_mutex);
        const qint64 available = m_offsets.size() - 1;
        if (first < 0 || first >= available || n <= 0)
            return {};
        n = static_cast<int>(qMin<qint64>(n, available - first));
        from = m_offsets.at(first);
        to = m_offsets.at(first + n);
        columnCount = static_cast<int>(m_columns.size());
    }
    QByteArray bytes;
    {
        QMutexLocker lock(&m_fileMutex);
        if (!m_in.seek(from))
            return {};
        bytes = m_in.read(to - from);
    }
    QList<QStringList> result;
    result.reserve(n);
    qsizetype pos = 0;
    for (int r = 0; r < n && pos <= bytes.size(); ++r) {
        QStringList values;
        values.reserve(columnCount);
        for (int c = 0; c < columnCount && pos + 4 <= bytes.size(); ++c) {
            const qint32 length = qFromLittleEndian<qint32>(bytes.constData() + pos);
            pos += 4;
            if (length < 0) {
                values << QString();
                continue;
            }
            values << QString::fromUtf8(bytes.constData() + pos, length);
            pos += length;
        }
        result << values;
    }
    return result;
}
