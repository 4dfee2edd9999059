#include "profilefile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QRecursiveMutex>
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
        return size == o.size && mtimeSec == o.mtimeSec && mtimeNsec == o.mtimeNsec &&
               inode == o.inode && device == o.device;
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

QString fold(const QString& name)
{
    return name.trimmed().toCaseFolded();
}

// A "[name]" line with the lines after it up to the next one; the first block of a file
// holds the lines before any section and has no header.
struct Block
{
    QByteArray header;        // the "[name]" line as read, with its line end
    QList<QByteArray> lines;  // each with its own line end, byte for byte
    QHash<QString, int> keys; // folded key -> index in lines; the first occurrence only
};

// A file split into blocks, with an index of the sections that count: when a name occurs
// twice, only the first block of that name is ever read or written.
struct Parsed
{
    QList<Block> blocks{Block()};
    QHash<QString, int> sectionIndex; // folded name -> index in blocks
    Stamp stamp;
    // Inside a write batch: changed since the file was last written, so it is the copy
    // that counts, whatever the file says. created: the file did not exist before.
    bool pending = false;
    bool created = false;
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

bool endsLine(const QByteArray& raw)
{
    return raw.endsWith('\n');
}

// The name of a "[name]" line, or a null string for any other line.
QString sectionName(const QByteArray& line)
{
    const QByteArray t = withoutLineEnd(line).trimmed();
    if (!t.startsWith('['))
        return QString();
    const qsizetype close = t.lastIndexOf(']');
    if (close < 0)
        return QString();
    return Windows1252::decode(t.mid(1, close - 1).trimmed());
}

// Where the '=' of a "key=value" line is, or -1 for a comment or a line without a key.
qsizetype keyEquals(const QByteArray& line)
{
    const qsizetype eq = line.indexOf('=');
    if (eq <= 0)
        return -1;
    const QByteArray key = line.left(eq).trimmed();
    if (key.isEmpty() || key.startsWith(';'))
        return -1;
    return eq;
}

QString keyName(const QByteArray& line, qsizetype eq)
{
    return Windows1252::decode(line.left(eq).trimmed());
}

void indexKey(Block& block, int index)
{
    const QByteArray& line = block.lines.at(index);
    const qsizetype eq = keyEquals(line);
    if (eq < 0)
        return;
    const QString folded = fold(keyName(line, eq));
    if (!block.keys.contains(folded))
        block.keys.insert(folded, index);
}

Parsed parse(const QByteArray& bytes)
{
    Parsed p;
    bool counts = false; // false before any section and inside a repeated one
    qsizetype start = 0;
    while (start < bytes.size()) {
        const qsizetype nl = bytes.indexOf('\n', start);
        const qsizetype stop = nl < 0 ? bytes.size() : nl + 1;
        const QByteArray line = bytes.mid(start, stop - start);
        start = stop;

        const QString section = sectionName(line);
        if (!section.isNull()) {
            Block block;
            block.header = line;
            p.blocks.append(block);
            const QString folded = fold(section);
            counts = !p.sectionIndex.contains(folded);
            if (counts)
                p.sectionIndex.insert(folded, static_cast<int>(p.blocks.size() - 1));
            continue;
        }
        Block& block = p.blocks.last();
        block.lines.append(line);
        if (counts)
            indexKey(block, static_cast<int>(block.lines.size() - 1));
    }
    return p;
}

QByteArray serialise(const Parsed& p)
{
    qsizetype size = 0;
    for (const Block& b : p.blocks) {
        size += b.header.size();
        for (const QByteArray& line : b.lines)
            size += line.size();
    }
    QByteArray bytes;
    bytes.reserve(size);
    for (const Block& b : p.blocks) {
        bytes += b.header;
        for (const QByteArray& line : b.lines)
            bytes += line;
    }
    return bytes;
}

QString valueOf(const QByteArray& rawLine)
{
    const QByteArray line = withoutLineEnd(rawLine);
    QString value = Windows1252::decode(line.mid(line.indexOf('=') + 1).trimmed());
    if (value.size() >= 2) {
        const QChar first = value.front();
        if ((first == QLatin1Char('"') || first == QLatin1Char('\'')) && value.back() == first)
            value = value.mid(1, value.size() - 2);
    }
    return value;
}

QRecursiveMutex g_mutex;
QHash<QString, Parsed> g_cache;
QHash<QString, int> g_batches; // path -> number of open batches

// Makes room in the cache; copies with writes still to come stay.
void trimCache()
{
    if (g_cache.size() < 16)
        return;
    for (auto it = g_cache.begin(); it != g_cache.end();) {
        if (it->pending)
            ++it;
        else
            it = g_cache.erase(it);
    }
}

bool readWhole(const QString& path, QByteArray& bytes)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    bytes = f.readAll();
    return true;
}

// The parsed file, from the cache when the file has not changed; null when it is missing
// or unreadable.
const Parsed* current(const QString& path)
{
    const auto cached = g_cache.constFind(path);
    if (cached != g_cache.cend() && cached->pending)
        return &*cached;
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
    trimCache();
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
        if (text.at(bad).isHighSurrogate() && bad + 1 < text.size() &&
            text.at(bad + 1).isLowSurrogate()) {
            ucs = QChar::surrogateToUcs4(text.at(bad), text.at(bad + 1));
            shown = text.mid(bad, 2);
        }
        const QString code = QString::number(ucs, 16).toUpper().rightJustified(4, QLatin1Char('0'));
        throw AppError(AppError::Encoding,
                       QStringLiteral("%1 holds the character \"%2\" (U+%3), which cannot be "
                                      "written to the settings file \"%4\": it accepts only "
                                      "Windows-1252 (Western European) characters.")
                           .arg(what, shown, code, path));
    }
    return bytes;
}

// The last line of the file, so that something can follow it on a line of its own.
void endLastLine(Parsed& p)
{
    for (qsizetype b = p.blocks.size() - 1; b >= 0; --b) {
        Block& block = p.blocks[b];
        if (!block.lines.isEmpty()) {
            if (!endsLine(block.lines.last()))
                block.lines.last() += "\r\n";
            return;
        }
        if (!block.header.isEmpty()) {
            if (!endsLine(block.header))
                block.header += "\r\n";
            return;
        }
    }
}

// Puts the line after the last non-blank line of the block (right after its header when
// there is none), so blank lines that part it from the next section stay where they are.
void appendToSection(Block& block, const QByteArray& line)
{
    int at = 0;
    for (int i = static_cast<int>(block.lines.size()) - 1; i >= 0; --i) {
        if (!withoutLineEnd(block.lines.at(i)).trimmed().isEmpty()) {
            at = i + 1;
            break;
        }
    }
    if (at > 0 && !endsLine(block.lines.at(at - 1)))
        block.lines[at - 1] += "\r\n";
    if (at == 0 && !endsLine(block.header))
        block.header += "\r\n";
    block.lines.insert(at, line);
    for (auto it = block.keys.begin(); it != block.keys.end(); ++it) {
        if (*it >= at)
            ++*it;
    }
    indexKey(block, at);
}

// Replaces the file with the copy, atomically, and keeps the copy as the parsed file.
void save(const QString& nativePath, Parsed& p)
{
    QSaveFile out(nativePath);
    if (!out.open(QIODevice::WriteOnly)) {
        throw AppError(AppError::PermissionDenied,
                       QStringLiteral("The settings file \"%1\" cannot be written: %2")
                           .arg(nativePath, out.errorString()));
    }
    // It holds connection strings, passwords among them.
    if (p.created)
        out.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    out.write(serialise(p));
    if (!out.commit()) {
        throw AppError(AppError::PathFileAccess,
                       QStringLiteral("The settings file \"%1\" could not be written: %2")
                           .arg(nativePath, out.errorString()));
    }
    p.pending = false;
    p.created = false;
    if (stampOf(nativePath, p.stamp)) {
        trimCache();
        g_cache.insert(nativePath, std::move(p));
    } else {
        g_cache.remove(nativePath);
    }
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
    const Block& block = p->blocks.at(*s);
    const auto k = block.keys.constFind(fold(key));
    if (k == block.keys.cend())
        return QString();
    return valueOf(block.lines.at(*k));
}

void write(const QString& nativePath, const QString& section, const QString& key,
           const QString& value)
{
    const QByteArray sectionBytes =
        encodeOrThrow(section, QStringLiteral("The section name \"%1\"").arg(section), nativePath);
    const QByteArray keyBytes =
        encodeOrThrow(key, QStringLiteral("The key name \"%1\"").arg(key), nativePath);
    const QByteArray valueBytes =
        encodeOrThrow(value, QStringLiteral("The value of [%1] %2").arg(section, key), nativePath);

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

    // Work on a copy: the cached file stays as it is unless the new one is in place.
    Parsed p;
    const auto batched = g_cache.constFind(nativePath);
    if (batched != g_cache.cend() && batched->pending) {
        p = *batched;
    } else if (exists) {
        const Parsed* cached = current(nativePath);
        if (!cached)
            throw AppError(
                AppError::PermissionDenied,
                QStringLiteral("The settings file \"%1\" cannot be read.").arg(nativePath));
        p = *cached;
    }

    const QByteArray newLine = keyBytes + '=' + valueBytes + "\r\n";
    const auto s = p.sectionIndex.constFind(fold(section));
    if (s != p.sectionIndex.cend()) {
        Block& block = p.blocks[*s];
        const auto k = block.keys.constFind(fold(key));
        if (k != block.keys.cend()) {
            // The key keeps the spelling it has in the file.
            QByteArray& line = block.lines[*k];
            line =
                withoutLineEnd(line).left(line.indexOf('=')).trimmed() + '=' + valueBytes + "\r\n";
        } else {
            appendToSection(block, newLine);
        }
    } else {
        endLastLine(p);
        Block block;
        block.header = '[' + sectionBytes + "]\r\n";
        block.lines.append(newLine);
        indexKey(block, 0);
        p.blocks.append(block);
        p.sectionIndex.insert(fold(section), static_cast<int>(p.blocks.size() - 1));
    }

    // What was just changed is what the next read would parse, unless a line break inside
    // the text has made more lines of it than were written.
    const bool oneLine = !newLine.chopped(1).contains('\n') && !sectionBytes.contains('\n');
    const bool created = p.created || !exists;
    if (!oneLine)
        p = parse(serialise(p));
    p.created = created;
    if (g_batches.value(nativePath) > 0) {
        p.pending = true;
        trimCache();
        g_cache.insert(nativePath, std::move(p));
        return;
    }
    save(nativePath, p);
}

void clearCache()
{
    QMutexLocker lock(&g_mutex);
    for (auto it = g_cache.begin(); it != g_cache.end();) {
        if (it->pending)
            ++it;
        else
            it = g_cache.erase(it);
    }
}

WriteBatch::WriteBatch(const QString& nativePath) : m_path(nativePath)
{
    QMutexLocker lock(&g_mutex);
    ++g_batches[m_path];
}

WriteBatch::~WriteBatch()
{
    try {
        commit();
    } catch (const AppError& e) {
        qWarning("%s", qPrintable(e.numberAndDescription()));
    }
    QMutexLocker lock(&g_mutex);
    if (--g_batches[m_path] <= 0)
        g_batches.remove(m_path);
}

void WriteBatch::commit()
{
    QMutexLocker lock(&g_mutex);
    if (g_batches.value(m_path) > 1)
        return; // the outermost batch writes
    auto it = g_cache.find(m_path);
    if (it == g_cache.end() || !it->pending)
        return;
    Parsed p = *it;
    try {
        save(m_path, p);
    } catch (...) {
        // Nothing is kept back for a second try: the file stays as it was before the batch.
        g_cache.remove(m_path);
        throw;
    }
}

} // namespace ProfileFile
