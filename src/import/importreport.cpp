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
    m_buffer.reserve(2 * kBufferBytes);
    addRow(QStringLiteral("Outcome"), QStringLiteral("Reason"), columns);
    flushBuffer();
    return true;
}

void ImportReport::addRow(const QString& outcome, const QString& reason, const QStringList& values)
{
    beginRow(outcome, reason);
    for (const QString& value : values)
        addField(value);
    endRow();
}

void ImportReport::beginRow(const QString& outcome, const QString& reason)
{
    m_line.clear();
    appendField(outcome);
    addField(reason);
}

void ImportReport::addField(const QString& value)
{
    m_line += QLatin1Char(',');
    appendField(value);
}

void ImportReport::endRow()
{
    if (!m_file.isOpen())
        return;
    m_line += QStringLiteral("\r\n");
    // Encoded straight into the block: no text copy per line.
    const qsizetype used = m_buffer.size();
    m_buffer.resize(used + m_line.size() * 3);
    char* end = m_encoder.appendToBuffer(m_buffer.data() + used, m_line);
    m_buffer.truncate(end - m_buffer.constData());
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
    for (QChar c : value) {
        if (c == QLatin1Char(',') || c == QLatin1Char('"') || c == QLatin1Char('\r') ||
            c == QLatin1Char('\n')) {
            QString quoted = value;
            quoted.replace(QLatin1Char('"'), QStringLiteral("\"\""));
            return QLatin1Char('"') + quoted + QLatin1Char('"');
        }
    }
    return value;
}

void ImportReport::appendField(const QString& value)
{
    m_line += csvField(value);
}

void ImportReport::flushBuffer()
{
    if (!m_buffer.isEmpty())
        m_file.write(m_buffer);
    m_buffer.truncate(0); // keeps the block's capacity
}
