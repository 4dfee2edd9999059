#include "windows1252.h"

namespace {

// 0x80-0x9F; every other byte is the Unicode character of the same number.
// clang-format off
constexpr char16_t HighControls[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};
// clang-format on

} // namespace

namespace Windows1252 {

int code(QChar c)
{
    const char16_t u = c.unicode();
    if (u < 0x80 || (u >= 0xA0 && u <= 0xFF))
        return u;
    for (int i = 0; i < 32; ++i) {
        if (HighControls[i] == u)
            return 0x80 + i;
    }
    return -1;
}

QChar character(int code)
{
    if (code >= 0x80 && code <= 0x9F)
        return QChar(HighControls[code - 0x80]);
    return QChar(char16_t(code & 0xFF));
}

QString decode(const QByteArray& bytes)
{
    QString text(bytes.size(), Qt::Uninitialized);
    QChar* out = text.data();
    for (qsizetype i = 0; i < bytes.size(); ++i)
        out[i] = character(static_cast<unsigned char>(bytes.at(i)));
    return text;
}

bool encode(const QString& text, QByteArray& out, qsizetype* firstBad)
{
    QByteArray bytes(text.size(), Qt::Uninitialized);
    for (qsizetype i = 0; i < text.size(); ++i) {
        const int c = code(text.at(i));
        if (c < 0) {
            if (firstBad)
                *firstBad = i;
            return false;
        }
        bytes[i] = static_cast<char>(c);
    }
    out = bytes;
    return true;
}

} // namespace Windows1252
