#include "readahead.h"

#include <QThread>

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <string>
#include <thread>

namespace {

// Rows are handed over in batches, so that the two threads meet once per batch rather than
// once per row; a few batches in the queue ride out the bumps on either side.
constexpr int kBatchRows = 512;
constexpr std::size_t kQueuedBatches = 8;
// Below this the thread costs more than it saves (scripts/bench-import.sh).
constexpr qint64 kMinimumRows = 10000;

} // namespace

class ReadAheadRows::Private
{
public:
    // Values are kept as UTF-8 in one buffer per batch: few allocations, and a value the
    // import only copies is never converted on its way.
    struct Batch
    {
        std::string bytes;
        std::vector<std::size_t> ends; // of each value in bytes; rows one after the other
        std::size_t rows = 0;
    };

    std::unique_ptr<SourceRows> source;
    std::vector<int> columns;
    QStringList names;       // of the kept columns
    std::vector<int> slotOf; // source column -> position in a row, -1 when not kept
    std::size_t width = 0;

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Batch> full;
    std::vector<Batch> spare;
    bool finished = false;
    bool stopping = false;
    std::exception_ptr error;
    std::thread thread;

    // The batch the import reads from, and its row (UI thread only).
    Batch current;
    std::size_t row = 0;

    std::string value; // scratch of the helper thread

    void copyRow(Batch& batch)
    {
        for (int column : columns) {
            source->utf8(column, value);
            batch.bytes += value;
            batch.ends.push_back(batch.bytes.size());
        }
        ++batch.rows;
    }

    // The bytes of the current row's value in slot.
    std::pair<const char*, std::size_t> slice(int index) const
    {
        const int slot =
            index >= 0 && std::size_t(index) < slotOf.size() ? slotOf[std::size_t(index)] : -1;
        const std::size_t at = row * width + std::size_t(slot);
        if (slot < 0 || at >= current.ends.size())
            throw SourceFailure{QStringLiteral("The import asked for a column it did not keep")};
        const std::size_t begin = at == 0 ? 0 : current.ends[at - 1];
        return {current.bytes.data() + begin, current.ends[at] - begin};
    }

    void read()
    {
        bool more = true;
        while (more) {
            Batch batch;
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (!spare.empty()) {
                    batch = std::move(spare.back());
                    spare.pop_back();
                }
            }
            batch.bytes.clear();
            batch.ends.clear();
            batch.rows = 0;
            std::exception_ptr failure;
            try {
                for (int n = 0; n < kBatchRows; ++n) {
                    if (!source->next()) {
                        more = false;
                        break;
                    }
                    copyRow(batch);
                }
            } catch (...) {
                // The rows read before the failure still go to the import, whole rows only.
                failure = std::current_exception();
                more = false;
                batch.ends.resize(batch.rows * width);
                batch.bytes.resize(batch.ends.empty() ? 0 : batch.ends.back());
            }
            std::unique_lock<std::mutex> lock(mutex);
            if (batch.rows > 0)
                full.push_back(std::move(batch));
            error = failure;
            changed.notify_all();
            changed.wait(lock, [&] { return stopping || !more || full.size() < kQueuedBatches; });
            if (stopping)
                break;
        }
        std::lock_guard<std::mutex> lock(mutex);
        finished = true;
        changed.notify_all();
    }
};

ReadAheadRows::ReadAheadRows(std::unique_ptr<SourceRows> source, const std::vector<int>& columns,
                             const QStringList& names)
    : d(std::make_unique<Private>())
{
    d->source = std::move(source);
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const int column = columns[i];
        if (column < 0)
            continue;
        if (std::size_t(column) >= d->slotOf.size())
            d->slotOf.resize(std::size_t(column) + 1, -1);
        if (d->slotOf[std::size_t(column)] < 0) {
            d->slotOf[std::size_t(column)] = int(d->columns.size());
            d->columns.push_back(column);
            d->names << names.value(qsizetype(i));
        }
    }
    d->width = d->columns.size();
    // The row the source stands on is read here, before the helper thread moves it on.
    d->copyRow(d->current);
    d->thread = std::thread([this] { d->read(); });
}

ReadAheadRows::~ReadAheadRows()
{
    {
        std::lock_guard<std::mutex> lock(d->mutex);
        d->stopping = true;
    }
    d->changed.notify_all();
    d->thread.join();
}

bool ReadAheadRows::next()
{
    if (++d->row < d->current.rows)
        return true;
    std::unique_lock<std::mutex> lock(d->mutex);
    d->changed.wait(lock, [&] { return !d->full.empty() || d->finished; });
    if (!d->full.empty()) {
        d->spare.push_back(std::move(d->current));
        d->current = std::move(d->full.front());
        d->full.pop_front();
        d->row = 0;
        d->changed.notify_all();
        return true;
    }
    d->current = Private::Batch();
    d->row = 0;
    if (d->error) {
        std::exception_ptr error = d->error;
        d->error = nullptr;
        std::rethrow_exception(error);
    }
    return false;
}

int ReadAheadRows::indexOf(const QString& name) const
{
    for (qsizetype i = 0; i < d->names.size() && std::size_t(i) < d->columns.size(); ++i) {
        if (d->names.at(i).compare(name, Qt::CaseInsensitive) == 0)
            return d->columns[std::size_t(i)];
    }
    return -1;
}

QString ReadAheadRows::text(int index) const
{
    const auto [data, size] = d->slice(index);
    return QString::fromUtf8(data, qsizetype(size));
}

void ReadAheadRows::utf8(int index, std::string& out) const
{
    const auto [data, size] = d->slice(index);
    out.assign(data, size);
}

bool ReadAheadRows::pays(const SourceRows& rows, qint64 rowCount)
{
    return rows.movable() && rowCount >= kMinimumRows && QThread::idealThreadCount() > 1;
}
