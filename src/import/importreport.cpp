#include "importreport.h"

#include <algorithm>

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
    m_firstField = true;
    addField(outcome);
    addField(reason);
}

void ImportReport::addField(const QString& value)
{
    const QByteArray utf8 = value.toUtf8();
    appendField(utf8.constData(), utf8.size());
}

void ImportReport::addFieldUtf8(const std::string& value)
{
    appendField(value.data(), qsizetype(value.size()));
}

// RFC 4180: quoted, with quotes doubled, when the value holds a comma, a quote or a line
// break. Straight into the block: no text copy per field.
void ImportReport::appendField(const char* data, qsizetype size)
{
    if (!m_file.isOpen())
        return;
    if (!m_firstField)
        m_buffer.append(',');
    m_firstField = false;
    const char* end = data + size;
    if (std::find_if(data, end, [](char c) {
            return c == ',' || c == '"' || c == '\r' || c == '\n';
        }) == end) {
        m_buffer.append(data, size);
        return;
    }
    m_buffer.append('"');
    for (const char* p = data; p != end; ++p) {
        if (*p == '"')
            m_buffer.append('"');
        m_buffer.append(*p);
    }
    m_buffer.append('"');
}

void ImportReport::endRow()
{
    if (!m_file.isOpen())
        return;
    m_buffer.append("\r\n", 2);
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

void ImportReport::flushBuffer()
{
    if (!m_buffer.isEmpty())
        m_file.write(m_buffer);
    m_buffer.truncate(0); // keeps the block's capacity
}
