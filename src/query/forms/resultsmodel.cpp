#include "resultsmodel.h"

#include "query/resultspool.h"

#include <QBrush>

namespace {

constexpr int kBlockRows = 256;
constexpr int kKeptBlocks = 32;
constexpr int kPollMs = 50;

} // namespace

ResultsModel::ResultsModel(const ResultSpool& spool, QObject* parent)
    : QAbstractTableModel(parent), m_spool(spool), m_columns(spool.columns())
{
    m_poll.setInterval(kPollMs);
    connect(&m_poll, &QTimer::timeout, this, &ResultsModel::refresh);
    refresh();
    if (m_announced < 0 || !m_spool.finished())
        m_poll.start();
}

int ResultsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_rows;
}

int ResultsModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_columns.size());
}

QVariant ResultsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole)
        return QVariant();
    if (orientation == Qt::Horizontal)
        return m_columns.value(section);
    return section + 1;
}

const QStringList* ResultsModel::cachedRow(int row) const
{
    if (row < 0 || row >= m_loaded)
        return nullptr;
    const qint64 block = row / kBlockRows;
    auto found = m_blocks.find(block);
    if (found == m_blocks.end()) {
        if (m_blocks.size() >= kKeptBlocks)
            m_blocks.remove(m_recent.takeFirst());
        found = m_blocks.insert(block, m_spool.rows(block * kBlockRows, kBlockRows));
    } else {
        m_recent.removeOne(block);
    }
    m_recent.append(block);
    const qint64 offset = row - block * kBlockRows;
    return offset < found->size() ? &found->at(offset) : nullptr;
}

QVariant ResultsModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return QVariant();
    // Rows the grid already has a place for but that are not read yet are shaded, so that
    // an empty row is not taken for empty values.
    if (role == Qt::BackgroundRole)
        return index.row() >= m_loaded ? QVariant(QBrush(Qt::lightGray, Qt::Dense6Pattern))
                                       : QVariant();
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole)
        return QVariant();
    const QStringList* values = cachedRow(index.row());
    return values ? QVariant(values->value(index.column())) : QVariant();
}

void ResultsModel::refresh()
{
    const qint64 available = m_spool.rowsRead();
    const qint64 count = m_spool.count();
    const bool finished = m_spool.finished();
    const int before = m_rows;

    // Rows that came in since the last call: blocks holding them were read short.
    if (available > m_loaded) {
        for (qint64 block = m_loaded / kBlockRows; block <= (available - 1) / kBlockRows; ++block) {
            if (m_blocks.remove(block))
                m_recent.removeOne(block);
        }
        const qint64 previouslyLoaded = m_loaded;
        m_loaded = available;
        // Rows the grid already had as empty places get their values now.
        if (previouslyLoaded < before) {
            const int last = static_cast<int>(qMin<qint64>(available, before)) - 1;
            emit dataChanged(index(static_cast<int>(previouslyLoaded), 0),
                             index(last, qMax(0, columnCount() - 1)));
        }
    }

    // Before the count is known the grid grows with the rows read; after, it has them all.
    qint64 wanted = count >= 0 ? count : available;
    if (finished && count >= 0)
        wanted = count;
    wanted = qMin<qint64>(wanted, std::numeric_limits<int>::max());
    if (wanted > m_rows) {
        beginInsertRows(QModelIndex(), m_rows, static_cast<int>(wanted) - 1);
        m_rows = static_cast<int>(wanted);
        endInsertRows();
    } else if (wanted < m_rows && finished) {
        beginRemoveRows(QModelIndex(), static_cast<int>(wanted), m_rows - 1);
        m_rows = static_cast<int>(wanted);
        endRemoveRows();
    }

    if (count >= 0 && count != m_announced) {
        m_announced = count;
        emit countKnown(count);
    }
    const QString error = m_spool.readError();
    if (!error.isEmpty() && !m_failed) {
        m_failed = true;
        emit readFailed(error);
    }
    if (finished && (count >= 0 || m_failed))
        m_poll.stop();
}
