#include "samplerows.h"

#include "importengine.h"
#include "sourcerows.h"
#include "datasource/sourceconnection.h"
#include "util/blanks.h"

SampleRows SampleRows::read(const QString& conString, const QString& sql,
                            const QStringList& columns, int maxRows)
{
    SampleRows sample;
    sample.columns = columns;
    SourceConnection source;
    if (!source.open(conString, sample.error))
        return sample;
    try {
        std::unique_ptr<SourceRows> rows = SourceRows::open(source.database(), sql);
        std::vector<int> indexes;
        for (const QString& column : columns)
            indexes.push_back(rows->indexOf(column));
        while (sample.rows.size() < maxRows && rows->next()) {
            QStringList values;
            values.reserve(columns.size());
            for (int index : indexes)
                values << (index >= 0 ? rows->text(index) : QString());
            sample.rows << values;
        }
    } catch (const SourceFailure& e) {
        sample.error = e.text;
    }
    source.close();
    return sample;
}

QString SampleRows::firstValue(const QString& column) const
{
    const qsizetype index = columns.indexOf(column);
    if (index < 0)
        return QString();
    for (const QStringList& row : rows) {
        if (!TrimBlanks(row.value(index)).isEmpty())
            return row.value(index);
    }
    return QString();
}

int SampleRows::refusedEmails(const QString& column, int* sampled) const
{
    const qsizetype index = columns.indexOf(column);
    int refused = 0;
    if (sampled)
        *sampled = index < 0 ? 0 : int(rows.size());
    if (index < 0)
        return 0;
    for (const QStringList& row : rows) {
        QString reason;
        if (!IsEmailValid(TrimBlanks(row.value(index)), reason))
            ++refused;
    }
    return refused;
}

QString SampleRows::namePreview(const QString& column) const
{
    QString fullName = firstValue(column);
    if (fullName.isEmpty())
        return QString();
    QString title, first, initial, last;
    SplitName(fullName, title, first, initial, last);
    return QStringLiteral("Title: %1  First: %2  Initial: %3  Last: %4")
        .arg(title, first, initial, last);
}
