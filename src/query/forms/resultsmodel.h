#pragma once

#include <QAbstractTableModel>
#include <QHash>
#include <QList>
#include <QStringList>
#include <QTimer>

class ResultSpool;

// The rows of a ResultSpool for a grid. Rows are read from the spool a block at a time as
// the grid asks for them, and only a few blocks are kept, so a million rows cost no more
// memory than a screenful. Once the count is known the grid has every row, and rows not
// read yet show empty until they arrive.
class ResultsModel final : public QAbstractTableModel
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ResultsModel)

public:
    ResultsModel(const ResultSpool& spool, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    qint64 loadedRows() const { return m_loaded; }

    // Takes in what the spool has read since the last call.
    void refresh();

signals:
    void countKnown(qint64 count);
    void readFailed(const QString& errorText);

private:
    const QStringList* cachedRow(int row) const;

    const ResultSpool& m_spool;
    QStringList m_columns;
    int m_rows = 0;
    qint64 m_loaded = 0;
    qint64 m_announced = -1;
    bool m_failed = false;
    QTimer m_poll;

    mutable QHash<qint64, QList<QStringList>> m_blocks;
    mutable QList<qint64> m_recent; // block numbers, most recently used last
};
