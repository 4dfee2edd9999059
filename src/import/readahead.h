#pragma once

#include <QStringList>

#include <memory>
#include <vector>

#include "sourcerows.h"

// Reads a source's rows on a helper thread while the import writes the ones before, so
// that reading and writing overlap on two cores. Only the columns asked for are kept, as
// the text the source gives (in UTF-8). Rows come out in their order; a failure of the source comes
// out of next() where it happened, after every row read before it. Nothing user-visible
// happens on the helper thread.
class ReadAheadRows final : public SourceRows
{
public:
    // source stands on a row; this object starts on the same row. columns are the source's
    // column indexes to keep, names their names (for indexOf). The source must not be used
    // by anyone else until this object is destroyed.
    ReadAheadRows(std::unique_ptr<SourceRows> source, const std::vector<int>& columns,
                  const QStringList& names);
    ~ReadAheadRows() override; // stops the helper thread and waits for it

    bool next() override;
    int indexOf(const QString& name) const override;
    QString text(int index) const override;
    void utf8(int index, std::string& out) const override;

    // Whether reading ahead is allowed for these rows and pays for a source of this many
    // rows (-1: unknown) here.
    static bool pays(const SourceRows& rows, qint64 rowCount);

private:
    class Private;
    std::unique_ptr<Private> d;
};
