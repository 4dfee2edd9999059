// bench_viewer viewer|reference CONNECTION SQL
//
// viewer: opens the results viewer on SQL and prints, in milliseconds, the time until the
// first rows are on screen, until the count shows, to scroll to the last row (with the
// longest pause of the event loop meanwhile), and to close; then the peak memory.
// reference: the same source read plainly through the same driver: COUNT(*) of the
// statement, the first row, and every row read forward; then the peak memory.
// Figures only; the script compares them.

#include "query/forms/frmViewResults.h"

#include "datasource/sourceconnection.h"

#include <QAbstractItemModel>
#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTableView>
#include <QTest>
#include <QTimer>

#include <cstdio>

namespace {

long peakRssKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    }
    return -1;
}

void print(const char* name, qint64 value)
{
    std::printf("%s %lld\n", name, static_cast<long long>(value));
    std::fflush(stdout);
}

// Runs the event loop until done() holds; returns the elapsed ms and the longest gap
// between two turns of the loop (a freeze the user would feel).
qint64 waitFor(const std::function<bool()>& done, qint64& longestStall, qint64 limitMs = 600000)
{
    QElapsedTimer clock;
    clock.start();
    QElapsedTimer turn;
    turn.start();
    longestStall = 0;
    while (!done() && clock.elapsed() < limitMs) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        longestStall = qMax(longestStall, turn.restart());
        QTest::qSleep(1);
    }
    return clock.elapsed();
}

int viewer(const QString& conString, const QString& sql)
{
    auto* dialog = new frmViewResults;
    dialog->resize(900, 600);
    dialog->DSNString = conString;
    dialog->SQLString = sql;
    auto* grid = dialog->findChild<QTableView*>(QStringLiteral("vsfgrdResults"));
    auto* label = dialog->findChild<QLabel*>(QStringLiteral("lblResults"));

    QElapsedTimer clock;
    clock.start();
    QString error;
    if (!dialog->RunQuery(error)) {
        std::fprintf(stderr, "bench_viewer: %s\n", qPrintable(error));
        return 1;
    }
    dialog->show();
    if (!QTest::qWaitForWindowExposed(dialog))
        return 1;
    grid->viewport()->repaint();
    print("first_rows_ms", clock.elapsed());
    print("first_rows_loaded", dialog->loadedRows());

    qint64 stall = 0;
    const QString suffix = QStringLiteral(" Records Returned ...");
    waitFor([&] { return label->text().endsWith(suffix); }, stall);
    print("count_ms", clock.elapsed());
    print("count", label->text().section(QLatin1Char(' '), 0, 0).toLongLong());

    QAbstractItemModel* model = grid->model();
    QElapsedTimer scroll;
    scroll.start();
    const qint64 scrollMs = waitFor(
        [&] {
            grid->scrollToBottom();
            const int last = model->rowCount() - 1;
            return last >= 0 &&
                   dialog->loadedRows() >= label->text().section(' ', 0, 0).toLongLong() &&
                   model->data(model->index(last, 0)).isValid();
        },
        stall);
    grid->viewport()->repaint();
    print("scroll_to_end_ms", scrollMs);
    print("scroll_longest_stall_ms", stall);
    print("last_row_number", model->headerData(model->rowCount() - 1, Qt::Vertical).toLongLong());

    // Close while nothing is left to read, then once more in the middle of a read.
    QElapsedTimer closing;
    closing.start();
    dialog->close();
    delete dialog;
    print("close_ms", closing.elapsed());

    auto* early = new frmViewResults;
    early->DSNString = conString;
    early->SQLString = sql;
    if (!early->RunQuery(error))
        return 1;
    early->show();
    QElapsedTimer closeEarly;
    closeEarly.start();
    early->close();
    delete early;
    print("close_while_reading_ms", closeEarly.elapsed());

    print("peak_rss_kb", peakRssKb());
    return 0;
}

int reference(const QString& conString, const QString& sql)
{
    QString error;
    {
        SourceConnection connection;
        if (!connection.open(conString, error)) {
            std::fprintf(stderr, "bench_viewer: %s\n", qPrintable(error));
            return 1;
        }
        QElapsedTimer clock;
        clock.start();
        QSqlQuery count(connection.database());
        count.setForwardOnly(true);
        if (!count.exec(QStringLiteral("SELECT COUNT(*) FROM (") + sql + QStringLiteral(") t")) ||
            !count.next()) {
            std::fprintf(stderr, "bench_viewer: %s\n", qPrintable(count.lastError().text()));
            return 1;
        }
        print("ref_count_ms", clock.elapsed());
        print("ref_count", count.value(0).toLongLong());
    }
    {
        // From the connection's opening, as the viewer's figure is.
        QElapsedTimer clock;
        clock.start();
        SourceConnection connection;
        if (!connection.open(conString, error))
            return 1;
        QSqlQuery rows(connection.database());
        rows.setForwardOnly(true);
        if (!rows.exec(sql) || !rows.next())
            return 1;
        std::printf("ref_first_row_ms %.1f\n", clock.nsecsElapsed() / 1e6);
        const int columns = rows.record().count();
        qint64 n = 0;
        qint64 chars = 0;
        do {
            for (int c = 0; c < columns; ++c)
                chars += rows.value(c).toString().size();
            ++n;
        } while (rows.next());
        print("ref_read_all_ms", clock.elapsed());
        print("ref_rows", n);
        Q_UNUSED(chars)
    }
    print("ref_peak_rss_kb", peakRssKb());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    if (argc != 4) {
        std::fprintf(stderr, "usage: bench_viewer viewer|reference CONNECTION SQL\n");
        return 2;
    }
    const QString mode = QString::fromLocal8Bit(argv[1]);
    const QString conString = QString::fromLocal8Bit(argv[2]);
    const QString sql = QString::fromLocal8Bit(argv[3]);
    return mode == QLatin1String("viewer") ? viewer(conString, sql) : reference(conString, sql);
}
