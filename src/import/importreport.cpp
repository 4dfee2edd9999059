#include "importreport.h"

namespace {
// Rows are gathered and written in blocks: a run refusing a million rows stays fast.
constexpr qsizetype kBufferBytes = 64 * 1024;
} // namespace

ImportReport::~ImportReport()
{
    close();
}

bool ImportReport::open(const QString& nativePath, const QStringList& columns)
{
    close();
    m_file.setFileName(nativePath);
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    writeLine(QStringList{QStringLiteral("Outcome"), QStringLiteral("Reason")} + columns);
    flushBuffer();
    return true;
}

void ImportReport::addRow(const QString& outcome, const QString& reason, const QStringList& values)
{
    if (!m_file.isOpen())
        return;
    writeLine(QStringList{outcome, reason} + values);
    if (m_buffer.size() >= kBufferBytes)
        flushBuffer();
}

void ImportReport::close()
{
    if (!m_file.isOpen())
        return;
    flushBuffer();
    m_file.close();
}

QString ImportReport::csvField(const QString& value)
{
    bool quote = false;
    for (QChar c : value) {
        if (c == QLatin1Char(',') || c == QLatin1Char('"') || c == QLatin1Char('\r') ||
            c == QLatin1Char('\n')) {
            quote = true;
            break;
        }
    }
    if (!quote)
        return value;
    QString quoted = value;
    quoted.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

void ImportReport::writeLine(const QStringList& fields)
{
    QString line;
    for (qsizetype i = 0; i < fields.size(); ++i) {
        if (i > 0)
            line += QLatin1Char(',');
        line += csvField(fields.at(i));
    }
    line += QStringLiteral("\r\n");
    m_buffer += line.toUtf8();
}

void ImportReport::flushBuffer()
{
    if (!m_buffer.isEmpty())
        m_file.write(m_buffer);
    m_buffer.clear();
}
