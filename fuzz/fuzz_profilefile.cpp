// The settings-file reader on arbitrary file contents, and a write of a key followed by a
// read of it: the value written must be the value read back.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>

#include <cstdint>
#include <cstdlib>
#include <unistd.h>

#include "util/apperror.h"
#include "util/profilefile.h"
#include "util/windows1252.h"

namespace {

QString scratchPath()
{
    static const QString path =
        QDir::temp().filePath(QStringLiteral("fuzz-profile-%1.ini").arg(qint64(getpid())));
    return path;
}

// A short name taken from the input: a section or key to ask for.
QString takeName(const QByteArray& data, qsizetype& at)
{
    if (at >= data.size())
        return QStringLiteral("Key");
    const int length = uchar(data.at(at++)) % 8;
    const QByteArray raw = data.mid(at, length);
    at += length;
    return Windows1252::decode(raw);
}

// The file's own trimming: the ASCII blanks and control white space, never U+00A0.
QString asciiTrimmed(const QString& text)
{
    auto blank = [](QChar c) { return c == u' ' || (c >= u'\t' && c <= u'\r'); };
    qsizetype from = 0, to = text.size();
    while (from < to && blank(text.at(from)))
        ++from;
    while (to > from && blank(text.at(to - 1)))
        --to;
    return text.mid(from, to - from);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    const QByteArray data(reinterpret_cast<const char*>(bytes), qsizetype(size));
    // The first bytes name what is read and written; the rest is the file.
    qsizetype at = 0;
    const QString section = takeName(data, at);
    const QString key = takeName(data, at);
    const QString value = takeName(data, at);
    const QByteArray file = data.mid(at);

    const QString path = scratchPath();
    {
        QFile out(path);
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate))
            abort();
        out.write(file);
    }
    ProfileFile::clearCache();
    (void)ProfileFile::read(path, section, key);

    try {
        ProfileFile::write(path, section, key, value);
    } catch (const AppError&) {
        // Names and values the layout cannot hold are refused; that is allowed.
        return 0;
    }
    ProfileFile::clearCache();
    const QString back = ProfileFile::read(path, section, key);
    // A written value reads back as it was, unless the reader's own rules change it: outer
    // blanks are dropped and one pair of quotes taken off; a line break cannot be stored.
    const QString expected = asciiTrimmed(value);
    const bool quoted = expected.size() >= 2 &&
                        (expected.front() == u'"' || expected.front() == u'\'') &&
                        expected.back() == expected.front();
    const bool plainName =
        !section.contains(u']') && !section.contains(u'\n') && !section.contains(u'\r') &&
        !key.contains(u'=') && !key.contains(u'\n') && !key.contains(u'\r') &&
        !asciiTrimmed(key).startsWith(u';') && !asciiTrimmed(key).startsWith(u'[') &&
        !asciiTrimmed(section).isEmpty() && !asciiTrimmed(key).isEmpty() &&
        asciiTrimmed(section) == section && asciiTrimmed(key) == key;
    const bool plainValue =
        !quoted && !value.contains(u'\n') && !value.contains(u'\r') && !value.contains(QChar(0));
    if (plainName && plainValue && back != expected)
        abort();
    return 0;
}
