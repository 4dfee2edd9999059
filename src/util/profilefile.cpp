#include "profilefile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QSaveFile>

#include <sys/stat.h>

#include "apperror.h"
#include "windows1252.h"

namespace {

// What tells one version of a file from the next without reading it.
struct Stamp
{
    qint64 size = -1;
    qint64 mtimeSec = 0;
    qint64 mtimeNsec = 0;
    quint64 inode = 0;
    quint64 device = 0;

    bool operator==(const Stamp& o) const
    {
        return size == o.size && mtimeSec == o.mtimeSec && mtimeNsec == o.mtimeNsec
               && inode == o.inode && device == o.device;
    }
};

bool stampOf(const QString& path, Stamp& stamp)
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    stamp.size = st.st_size;
    stamp.mtimeSec = st.st_mtim.tv_sec;
    stamp.mtimeNsec = st.st_mtim.tv_nsec;
    stamp.inode = st.st_ino;
    stamp.device = st.st_dev;
    return true;
}

QString fold(const QString& name) { return name.trimmed().toCaseFolded(); }

struct Section
{
    int header = -1; // line of "[name]"
    int end = 0;     // one past its last line
    QHash<QString, int> keys; // folded key -> line; the first occurrence only
};

// A file split into its lines (each with its own line end, byte for byte) and an index
// of the sections and keys that count.
struct Parsed
{
    QList<QByteArray> lines;
    QList<Section> sections;         // the first occurrence of each name
    QHash<QString, int> sectionIndex; // folded name -> index in sections
    Stamp stamp;
};

QByteArray withoutLineEnd(const QByteArray& raw)
{
    qsizetype n = raw.size();
    if (n > 0 && raw.at(n - 1) == '\n')
        --n;
    if (n > 0 && raw.at(n - 1) == '\r')
        --n;
    return raw.left(n);
}

bool endsLine(const QByteArray& raw) { return raw.endsWith('\n'); }

// The name of a "[name]" line, or a null string for any other line.
QString sectionName(const QString& text)
{
    const QString t = text.trimmed();
    if (!t.startsWith(QLatin1Char('[')))
        return QString();
    const qsizetype close = t.lastIndexOf(QLatin1Char(']'));
    if (close < 0)
        return QString();
    const QString name = t.mid(1, close - 1).trimmed();
    return name.isNull() ? QStringLiteral("") : name;
}

// The key of a "key=value" line, or a null string for a comment or a line without one.
QString keyName(const QString& text, qsizetype* equals = nullptr)
{
    const QString t = text.trimmed();
    if (t.startsWith(QLatin1Char(';')))
        return QString();
    const qsizetype eq = text.indexOf(QLatin1Char('='));
    if (eq < 0)
        return QString();
    const QString key = text.left(eq).trimmed();
    if (key.isEmpty())
        return QString();
    if (equals)
        *equals = eq;
    return key;
}

Parsed parse(const QByteArray& bytes)
{
    Parsed p;
    qsizetype start = 0;
    while (start < bytes.size()) {
        qsizetype nl = bytes.indexOf('\n', start);
        const qsizetype stop = nl < 0 ? bytes.size() : nl + 1;
        p.lines.append(bytes.mid(start, stop - start));
        start = stop;
    }

    int current = -1;     // index in p.sections of the section being read, -1 if none
    bool counts = false;  // false inside a repeated section: only the first one counts
    for (int i = 0; i < p.lines.size(); ++i) {
        const QString text = Windows1252::decode(withoutLineEnd(p.lines.at(i)));
        const QString section = sectionName(text);
        if (!section.isNull()) {
            if (current >= 0)
                p.sections[current].end = i;
            const QString folded = fold(section);
            if (p.sectionIndex.contains(folded)) {
                counts = false;
                current = -1;
            } else {
                Section s;
                s.header = i;
                p.sections.append(s);
                current = static_cast<int>(p.sections.size() - 1);
                p.sectionIndex.insert(folded, current);
                counts = true;
            }
            continue;
        }
        if (!counts || current < 0)
            continue;
        const QString key = keyName(text);
        if (!key.isNull()) {
            const QString folded = fold(key);
            if (!p.sections[current].keys.contains(folded))
                p.sections[current].keys.insert(folded, i);
        }
    }
    if (current >= 0)
        p.sections[current].end = static_cast<int>(p.lines.size());
    return p;
}

QString valueOf(const QByteArray& rawLine)
{
    const QString text = Windows1252::decode(withoutLineEnd(rawLine));
    qsizetype eq = -1;
    keyName(text, &eq);
    QString value = text.mid(eq + 1).trimmed();
    if (value.size() >= 2) {
        const QChar first = value.front();
        if ((first == QLatin1Char('"') || first == QLatin1Char('\'')) && value.back() == first)
            value = value.mid(1, value.size() - 2);
    }
    return value;
}

QMutex g_mutex;
QHash<QString, Parsed> g_cache;

bool readWhole(const QString& path, QByteArray& bytes)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    bytes = f.readAll();
    return true;
}

// The parsed file, from the cache when the file has not changed; null when unreadable.
const Parsed* current(const QString& path)
{
    Stamp stamp;
    if (!stampOf(path, stamp)) {
        g_cache.remove(path);
        return nullptr;
    }
    auto it = g_cache.find(path);
    if (it != g_cache.end() && it->stamp == stamp)
        return &*it;
    QByteArray bytes;
    if (!readWhole(path, bytes)) {
        g_cache.remove(path);
        return nullptr;
    }
    if (g_cache.size() >= 16)
        g_cache.clear();
    Parsed parsed = parse(bytes);
    parsed.stamp = stamp;
    return &*g_cache.insert(path, std::move(parsed));
}

QByteArray encodeOrThrow(const QString& text, const QString& what, const QString& path)
{
    QByteArray bytes;
    qsizetype bad = -1;
    if (!Windows1252::encode(text, bytes, &bad)) {
        char32_t ucs = text.at(bad).unicode();
        QString shown(text.at(bad));
        if (text.at(bad).isHighSurrogate() && bad + 1 < text.size()
            && text.at(bad + 1).isLowSurrogate()) {
            ucs = QChar::surrogateToUcs4(text.at(bad), text.at(bad + 1));
            shown = text.mid(bad, 2);
        }
        const QString code =
            QString::number(ucs, 16).toUpper().rightJustified(4, QLatin1Char('0'));
        throw AppError(AppError::Encoding,
                       QStringLiteral("%1 holds the character \"%2\" (U+%3), which cannot be "
                                      "written to the settings file \"%4\": it accepts only "
                                      "Windows-1252 (Western European) characters.")
                           .arg(what, shown, code, path));
    }
    return bytes;
}

void ensureLineEnd(QList<QByteArray>& lines, int index)
{
    if (index >= 0 && index < lines.size() && !endsLine(lines.at(index)))
        lines[index] += "\r\n";
}

} // namespace

namespace ProfileFile {

QString read(const QString& nativePath, const QString& section, const QString& key)
{
    QMutexLocker lock(&g_mutex);
    const Parsed* p = current(nativePath);
    if (!p)
        return QString();
    const auto s = p->sectionIndex.constFind(fold(section));
    if (s == p->sectionIndex.cend())
        return QString();
    const Section& sec = p->sections.at(*s);
    const auto k = sec.keys.constFind(fold(key));
    if (k == sec.keys.cend())
        return QString();
    return valueOf(p->lines.at(*k));
}

void write(const QString& nativePath, const QString& section, const QString& key,
           const QString& value)
{
    const QByteArray sectionBytes =
        encodeOrThrow(section, QStringLiteral("The section name \"%1\"").arg(section), nativePath);
    const QByteArray keyBytes =
        encodeOrThrow(key, QStringLiteral("The key name \"%1\"").arg(key), nativePath);
    const QByteArray valueBytes = encodeOrThrow(
        value, QStringLiteral("The value of [%1] %2").arg(section, key), nativePath);

    QMutexLocker lock(&g_mutex);
    const QFileInfo info(nativePath);
    const bool exists = info.exists();
    if (exists && !info.isFile())
        throw AppError(AppError::PathFileAccess,
                       QStringLiteral("The settings file \"%1\" is not a file.").arg(nativePath));
    if (!info.absoluteDir().exists())
        throw AppError(AppError::PathNotFound,
                       QStringLiteral("The folder of the settings file \"%1\" does not exist.")
                           .arg(nativePath));

    QByteArray old;
    if (exists && !readWhole(nativePath, old))
        throw AppError(AppError::PermissionDenied,
                       QStringLiteral("The settings file \"%1\" cannot be read.").arg(nativePath));
    Parsed p = parse(old);
    QList<QByteArray>& lines = p.lines;

    const QByteArray newLine = keyBytes + '=' + valueBytes + "\r\n";
    const auto s = p.sectionIndex.constFind(fold(section));
    if (s != p.sectionIndex.cend()) {
        const Section& sec = p.sections.at(*s);
        const auto k = sec.keys.constFind(fold(key));
        if (k != sec.keys.cend()) {
            // The key keeps the spelling it has in the file.
            const QByteArray raw = withoutLineEnd(lines.at(*k));
            lines[*k] = raw.left(raw.indexOf('=')).trimmed() + '=' + valueBytes + "\r\n";
        } else {
            int last = sec.header;
            for (int i = sec.end - 1; i > sec.header; --i) {
                if (!withoutLineEnd(lines.at(i)).trimmed().isEmpty()) {
                    last = i;
                    break;
                }
            }
            ensureLineEnd(lines, last);
            lines.insert(last + 1, newLine);
        }
    } else {
        ensureLineEnd(lines, static_cast<int>(lines.size() - 1));
        lines.append('[' + sectionBytes + "]\r\n");
        lines.append(newLine);
    }

    QSaveFile out(nativePath);
    if (!out.open(QIODevice::WriteOnly)) {
        throw AppError(AppError::PermissionDenied,
                       QStringLiteral("The settings file \"%1\" cannot be written: %2")
                           .arg(nativePath, out.errorString()));
    }
    // It holds connection strings, passwords among them.
    if (!exists)
        out.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    for (const QByteArray& line : lines)
        out.write(line);
    if (!out.commit()) {
        throw AppError(AppError::PathFileAccess,
                       QStringLiteral("The settings file \"%1\" could not be written: %2")
                           .arg(nativePath, out.errorString()));
    }
    g_cache.remove(nativePath);
}

void clearCache()
{
    QMutexLocker lock(&g_mutex);
    g_cache.clear();
}

} // namespace ProfileFile
