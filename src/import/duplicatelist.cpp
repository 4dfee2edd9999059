#include "duplicatelist.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <unistd.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "util/apperror.h"

namespace {
constexpr std::size_t kInitialSlots = 1024; // a power of two
constexpr std::size_t kLengthBytes = 4;
constexpr unsigned kChunkBits = 20;
constexpr std::size_t kChunkSize = std::size_t(1) << kChunkBits;

// A batch on disk is read one bucket at a time: about this many entries in each.
constexpr std::size_t kBucketEntries = 16;
// Filter bits per entry: about one address in a hundred that a batch does not hold passes.
constexpr std::size_t kFilterBits = 10;
constexpr int kFilterProbes = 6;
// A spill writes the file in pieces of about this size, so that it never needs a second
// copy of the entries in memory.
constexpr std::size_t kSpillPiece = std::size_t(1) << 20;

std::uint32_t readLength(const char* p)
{
    std::uint32_t length;
    std::memcpy(&length, p, kLengthBytes);
    return length;
}

// The filter's block and bits come from the address's hash, remixed: two addresses with
// the same 32-bit hash always pass each other's filter, one time in four billion.
std::uint64_t filterBits(std::uint32_t hash)
{
    std::uint64_t x = hash + 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return x ^ (x >> 31);
}

// The first of the block's eight words.
std::size_t filterBlock(const std::vector<std::uint64_t>& filter, std::uint64_t bits)
{
    const std::uint64_t blocks = filter.size() / 8;
    return std::size_t((bits >> 32) * blocks >> 32) * 8;
}

// Freed blocks inside the heap would otherwise stay resident, and whatever runs next (the
// Group's index build, on threads of its own) would add to them.
void giveBackFreedMemory()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

int openTempFile()
{
    // Nameless where the file system allows, so that a killed run leaves nothing behind.
    const QByteArray folder = QFile::encodeName(QDir::tempPath());
    if (folder.isEmpty()) // the folder named is not there
        return -1;
    int file = ::open(folder.constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (file < 0) {
        QByteArray name = folder + "/dbimport-XXXXXX";
        file = ::mkostemp(name.data(), O_CLOEXEC);
        if (file >= 0)
            ::unlink(name.constData());
    }
    return file;
}

bool writeAll(int file, const char* data, std::size_t size, quint64 at)
{
    while (size > 0) {
        const ssize_t written = ::pwrite(file, data, size, off_t(at));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= std::size_t(written);
        at += quint64(written);
    }
    return true;
}

void readAll(int file, char* data, std::size_t size, quint64 at)
{
    while (size > 0) {
        const ssize_t read = ::pread(file, data, size, off_t(at));
        if (read < 0 && errno == EINTR)
            continue;
        if (read <= 0)
            throw AppError(57, QStringLiteral("Device I/O error"));
        data += read;
        size -= std::size_t(read);
        at += quint64(read);
    }
}
} // namespace

DuplicateCheckList::DuplicateCheckList()
{
    clear();
}

DuplicateCheckList::~DuplicateCheckList()
{
    closeFile();
}

void DuplicateCheckList::closeFile()
{
    if (m_file >= 0)
        ::close(m_file);
    m_file = -1;
    m_fileSize = 0;
    m_fileRefused = false;
    std::vector<Run>().swap(m_runs);
    m_spilled = 0;
}

void DuplicateCheckList::clear()
{
    std::vector<Chunk>().swap(m_chunks);
    m_chunkCurrent = 0;
    m_chunkUsed = 0;
    m_slots.assign(kInitialSlots, Slot{0, 0});
    m_count = 0;
    m_header = kLengthBytes;
    m_foundRowid = 0;
    m_found = 0;
    m_foundOnDisk = -1;
    m_limit = 0;
    m_waitingFirst = 0;
    m_waitingCount = 0;
    m_preparedValid = false;
    closeFile();
    std::vector<char>().swap(m_buffer);
    giveBackFreedMemory();
}

void DuplicateCheckList::setMemoryLimit(qint64 addresses)
{
    m_limit = std::max<qint64>(addresses, 0);
}

void DuplicateCheckList::reserve(qint64 addresses)
{
    if (m_limit > 0)
        addresses = std::min(addresses, m_limit);
    // At most half full, as insert keeps it.
    std::size_t size = m_slots.size();
    while (size < std::size_t(std::max<qint64>(addresses, 0)) * 2 + 2)
        size *= 2;
    if (size != m_slots.size())
        rehash(size);
}

void DuplicateCheckList::rehash(std::size_t size)
{
    std::vector<Slot> old;
    old.swap(m_slots);
    m_slots.assign(size, Slot{0, 0});
    const std::size_t mask = size - 1;
    for (const Slot& slot : old) {
        if (slot.offset == 0)
            continue;
        std::size_t i = slot.hash & mask;
        while (m_slots[i].offset != 0)
            i = (i + 1) & mask;
        m_slots[i] = slot;
    }
}

quint64 DuplicateCheckList::foundDigest() const
{
    quint64 digest = 0;
    if (m_foundOnDisk >= 0)
        digest = m_foundDigest;
    else if (m_found && m_header > kLengthBytes)
        std::memcpy(&digest, entry(m_found) + kLengthBytes + sizeof(qint64), sizeof digest);
    return digest;
}

void DuplicateCheckList::setFoundDigest(quint64 digest)
{
    if (m_foundOnDisk >= 0 && m_header > kLengthBytes) {
        // A digest that did not reach the file would let a later row pass as unchanged.
        if (!writeAll(m_file, reinterpret_cast<const char*>(&digest), sizeof digest,
                      quint64(m_foundOnDisk) + kLengthBytes + sizeof(qint64)))
            throw AppError(57, QStringLiteral("Device I/O error"));
        m_foundDigest = digest;
    } else if (m_found && m_header > kLengthBytes) {
        const std::uint32_t at = m_found - 1;
        std::memcpy(m_chunks[at >> kChunkBits].data.get() + (at & (kChunkSize - 1)) + kLengthBytes +
                        sizeof(qint64),
                    &digest, sizeof digest);
    }
}

// Eight bytes at a step: an address costs a handful of multiplications, not one per byte.
std::uint32_t DuplicateCheckList::hashOf(const char* data, std::size_t size)
{
    std::uint64_t h = 0x9e3779b97f4a7c15ULL ^ size;
    for (; size >= 8; data += 8, size -= 8) {
        std::uint64_t word;
        std::memcpy(&word, data, 8);
        h = (h ^ word) * 0xff51afd7ed558ccdULL;
        h ^= h >> 32;
    }
    if (size > 0) {
        std::uint64_t word = 0;
        std::memcpy(&word, data, size);
        h = (h ^ word) * 0xc4ceb9fe1a85ec53ULL;
    }
    // Mix the high bits down, since the table index uses the low ones.
    h ^= h >> 29;
    h *= 0xbf58476d1ce4e5b9ULL;
    h ^= h >> 32;
    return std::uint32_t(h);
}

std::size_t DuplicateCheckList::probe(const char* data, std::size_t size, std::uint32_t hash) const
{
    const std::size_t mask = m_slots.size() - 1;
    std::size_t i = hash & mask;
    for (;;) {
        const Slot& slot = m_slots[i];
        if (slot.offset == 0)
            return i;
        if (slot.hash == hash) {
            const char* stored = entry(slot.offset);
            if (readLength(stored) == size && std::memcmp(stored + m_header, data, size) == 0)
                return i;
        }
        i = (i + 1) & mask;
    }
}

// The lower-cased address as UTF-8. Nearly every address is ASCII: those are lowered in
// place without building new strings.
static void lowerUtf8(const QString& address, std::string& key)
{
    const qsizetype size = address.size();
    const QChar* chars = address.constData();
    key.resize(std::size_t(size));
    for (qsizetype i = 0; i < size; ++i) {
        const char16_t c = chars[i].unicode();
        if (c >= 0x80) {
            const QByteArray utf8 = address.toLower().toUtf8();
            key.assign(utf8.constData(), std::size_t(utf8.size()));
            return;
        }
        key[std::size_t(i)] = (c >= 'A' && c <= 'Z') ? char(c + ('a' - 'A')) : char(c);
    }
}

static void lowerAscii(const char* data, std::size_t size, std::string& key)
{
    key.resize(size);
    for (std::size_t i = 0; i < size; ++i) {
        const char c = data[i];
        key[i] = (c >= 'A' && c <= 'Z') ? char(c + ('a' - 'A')) : c;
    }
}

const char* DuplicateCheckList::entry(std::uint32_t offset) const
{
    const std::uint32_t at = offset - 1;
    return m_chunks[at >> kChunkBits].data.get() + (at & (kChunkSize - 1));
}

bool DuplicateCheckList::add(const QString& address)
{
    settle();
    m_foundRowid = 0;
    m_found = 0;
    m_foundOnDisk = -1;
    if (m_preparedValid && address == m_prepared) {
        m_preparedValid = false;
        return insert(m_preparedKey, 0, 0, m_preparedHash);
    }
    m_preparedValid = false;
    lowerUtf8(address, m_key);
    return insert(m_key, 0, 0, hashOf(m_key.data(), m_key.size()));
}

void DuplicateCheckList::prefetch(const QString& address)
{
    m_prepared = address;
    lowerUtf8(address, m_preparedKey);
    m_preparedHash = hashOf(m_preparedKey.data(), m_preparedKey.size());
    m_preparedValid = true;
    __builtin_prefetch(&m_slots[m_preparedHash & (m_slots.size() - 1)]);
}

void DuplicateCheckList::addAsciiSoon(const char* data, std::size_t size, qint64 rowid,
                                      quint64 digest)
{
    if (m_waiting.size() < kWaiting)
        m_waiting.resize(kWaiting);
    if (m_waitingCount == kWaiting)
        insertWaiting();
    Waiting& w = m_waiting[(m_waitingFirst + m_waitingCount) % kWaiting];
    ++m_waitingCount;
    lowerAscii(data, size, w.key);
    w.rowid = rowid;
    w.digest = digest;
    w.hash = hashOf(w.key.data(), size);
    __builtin_prefetch(&m_slots[w.hash & (m_slots.size() - 1)]);
}

void DuplicateCheckList::insertWaiting()
{
    Waiting& w = m_waiting[m_waitingFirst];
    m_waitingFirst = (m_waitingFirst + 1) % kWaiting;
    --m_waitingCount;
    insert(w.key, w.rowid, w.digest, w.hash);
}

void DuplicateCheckList::settle()
{
    while (m_waitingCount > 0)
        insertWaiting();
}

void DuplicateCheckList::keepRowids(bool keep)
{
    if (m_count == 0)
        m_header = keep ? kLengthBytes + sizeof(qint64) + sizeof(quint64) : kLengthBytes;
}

bool DuplicateCheckList::isAscii(const char* data, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        if (static_cast<unsigned char>(data[i]) >= 0x80)
            return false;
    }
    return true;
}

bool DuplicateCheckList::addAscii(const std::string& address, qint64 rowid, quint64 digest)
{
    settle();
    m_foundRowid = 0;
    m_found = 0;
    m_foundOnDisk = -1;
    lowerAscii(address.data(), address.size(), m_key);
    return insert(m_key, rowid, digest, hashOf(m_key.data(), m_key.size()));
}

bool DuplicateCheckList::insert(const std::string& key, qint64 rowid, quint64 digest,
                                std::uint32_t hash)
{
    const std::size_t size = key.size();
    std::size_t i = probe(key.data(), size, hash);
    if (m_slots[i].offset != 0) {
        m_found = m_slots[i].offset;
        if (m_header > kLengthBytes)
            std::memcpy(&m_foundRowid, entry(m_found) + kLengthBytes, sizeof rowid);
        return false;
    }
    if (!m_runs.empty()) {
        const qint64 at = findOnDisk(key, hash);
        if (at >= 0) {
            m_foundOnDisk = at;
            if (m_header > kLengthBytes) {
                // findOnDisk left the entry at the start of the buffer.
                std::memcpy(&m_foundRowid, m_buffer.data() + kLengthBytes, sizeof rowid);
                std::memcpy(&m_foundDigest, m_buffer.data() + kLengthBytes + sizeof rowid,
                            sizeof digest);
            }
            return false;
        }
    }
    if (count() == std::numeric_limits<qint32>::max())
        throw AppError(7, QStringLiteral("Out of memory"));
    if (m_limit > 0 && m_count >= m_limit && spill())
        i = probe(key.data(), size, hash);

    const std::size_t needed = m_header + size;
    // An entry starts within the first kChunkSize bytes of its chunk, as offsets require.
    if (m_chunks.empty() || m_chunkUsed + needed > m_chunks[m_chunkCurrent].size ||
        (m_chunkUsed > 0 && m_chunkUsed + needed > kChunkSize)) {
        // The next chunk, one left by a spill where it is big enough; a key longer than a
        // chunk gets one of its own.
        if (!m_chunks.empty())
            ++m_chunkCurrent;
        if (m_chunkCurrent == m_chunks.size())
            m_chunks.emplace_back();
        Chunk& chunk = m_chunks[m_chunkCurrent];
        if (chunk.size < needed) {
            chunk.size = std::max(kChunkSize, needed);
            chunk.data.reset(new char[chunk.size]);
        }
        m_chunkUsed = 0;
    }
    const std::size_t offset = (m_chunkCurrent << kChunkBits) + m_chunkUsed;
    if (offset >= std::numeric_limits<std::uint32_t>::max())
        throw AppError(7, QStringLiteral("Out of memory"));
    const std::uint32_t length = std::uint32_t(size);
    char* target = m_chunks[m_chunkCurrent].data.get() + m_chunkUsed;
    std::memcpy(target, &length, kLengthBytes);
    if (m_header > kLengthBytes) {
        std::memcpy(target + kLengthBytes, &rowid, sizeof rowid);
        std::memcpy(target + kLengthBytes + sizeof rowid, &digest, sizeof digest);
    }
    std::memcpy(target + m_header, key.data(), size);
    m_chunkUsed += needed;
    m_slots[i] = Slot{std::uint32_t(offset + 1), hash};
    ++m_count;
    // Keep the table at most half full so probe runs stay short.
    if (std::size_t(m_count) * 2 > m_slots.size())
        rehash(m_slots.size() * 2);
    return true;
}

qint64 DuplicateCheckList::findOnDisk(const std::string& key, std::uint32_t hash) const
{
    const std::uint64_t bits = filterBits(hash);
    for (auto run = m_runs.rbegin(); run != m_runs.rend(); ++run) {
        const std::uint64_t* block = run->filter.data() + filterBlock(run->filter, bits);
        bool maybe = true;
        for (int p = 0; p < kFilterProbes && maybe; ++p) {
            const unsigned bit = unsigned(bits >> (p * 9)) & 511u;
            maybe = (block[bit >> 6] >> (bit & 63)) & 1u;
        }
        if (!maybe)
            continue;
        const std::size_t bucket = hash >> (32 - run->bucketBits);
        const std::uint32_t from = run->starts[bucket];
        const std::size_t size = run->starts[bucket + 1] - from;
        m_buffer.resize(size);
        readAll(m_file, m_buffer.data(), size, run->base + from);
        for (std::size_t at = 0; at < size;) {
            const std::uint32_t length = readLength(m_buffer.data() + at);
            if (length == key.size() &&
                std::memcmp(m_buffer.data() + at + m_header, key.data(), length) == 0) {
                std::memmove(m_buffer.data(), m_buffer.data() + at, m_header);
                return qint64(run->base + from + at);
            }
            at += m_header + length;
        }
    }
    return -1;
}

bool DuplicateCheckList::spill()
{
    if (m_fileRefused)
        return false;
    if (m_file < 0 && (m_file = openTempFile()) < 0) {
        m_fileRefused = true;
        return false;
    }
    Run run;
    run.base = m_fileSize;
    run.bucketBits = 4;
    while ((std::size_t(1) << run.bucketBits) * kBucketEntries < std::size_t(m_count) &&
           run.bucketBits < 24)
        ++run.bucketBits;
    const unsigned shift = 32 - run.bucketBits;
    const std::size_t buckets = std::size_t(1) << run.bucketBits;
    run.filter.assign(
        std::max<std::size_t>(1, (std::size_t(m_count) * kFilterBits + 511) / 512) * 8, 0);

    // Entries per bucket, and the filter: neither needs to touch the keys.
    std::vector<std::uint32_t> starts(buckets + 1, 0);
    for (const Slot& slot : m_slots) {
        if (slot.offset == 0)
            continue;
        ++starts[(slot.hash >> shift) + 1];
        const std::uint64_t bits = filterBits(slot.hash);
        std::uint64_t* block = run.filter.data() + filterBlock(run.filter, bits);
        for (int p = 0; p < kFilterProbes; ++p) {
            const unsigned bit = unsigned(bits >> (p * 9)) & 511u;
            block[bit >> 6] |= std::uint64_t(1) << (bit & 63);
        }
    }
    for (std::size_t b = 0; b < buckets; ++b)
        starts[b + 1] += starts[b];
    // The entries in bucket order, sorted within the table that the spill empties anyway,
    // then copied in that order, piece by piece; starts turns from entry counts into byte
    // positions on the way.
    const std::size_t n = std::size_t(m_count);
    std::size_t used = 0;
    for (const Slot& slot : m_slots) {
        if (slot.offset != 0)
            m_slots[used++] = slot;
    }
    std::fill(m_slots.begin() + std::ptrdiff_t(n), m_slots.end(), Slot{0, 0});
    {
        std::vector<std::uint32_t> next(starts.begin(), starts.end() - 1);
        for (std::size_t b = 0; b < buckets; ++b) {
            while (next[b] < starts[b + 1]) {
                Slot slot = m_slots[next[b]];
                for (std::size_t c = slot.hash >> shift; c != b; c = slot.hash >> shift)
                    std::swap(slot, m_slots[next[c]++]);
                m_slots[next[b]++] = slot;
            }
        }
    }
    std::vector<char> piece;
    piece.reserve(kSpillPiece + kChunkSize);
    quint64 written = 0;
    std::size_t bucket = 0;
    constexpr std::size_t kAhead = 8;
    for (std::size_t i = 0; i <= n; ++i) {
        while (bucket < buckets && starts[bucket] <= i) // buckets end to end in order
            starts[bucket++] = std::uint32_t(written + piece.size());
        if (i < n) {
            if (i + kAhead < n)
                __builtin_prefetch(entry(m_slots[i + kAhead].offset));
            const char* from = entry(m_slots[i].offset);
            piece.insert(piece.end(), from, from + m_header + readLength(from));
        }
        if (piece.size() >= kSpillPiece || (i == n && !piece.empty())) {
            if (!writeAll(m_file, piece.data(), piece.size(), run.base + written)) {
                // Nothing has moved: the entries stay in memory, which grows from now on,
                // once the table is a table again.
                m_fileRefused = true;
                rehash(m_slots.size());
                return false;
            }
            written += piece.size();
            piece.clear();
        }
    }
    starts[buckets] = std::uint32_t(written);
    m_fileSize += starts[buckets];
    run.starts = std::move(starts);
    m_runs.push_back(std::move(run));
    m_spilled += m_count;
    m_count = 0;
    std::fill(m_slots.begin(), m_slots.begin() + std::ptrdiff_t(n), Slot{0, 0});
    m_chunkCurrent = 0;
    m_chunkUsed = 0;
    m_found = 0;
    piece = std::vector<char>();
    giveBackFreedMemory();
    return true;
}

bool DuplicateCheckList::contains(const QString& address)
{
    settle();
    std::string key;
    lowerUtf8(address, key);
    const std::uint32_t hash = hashOf(key.data(), key.size());
    return m_slots[probe(key.data(), key.size(), hash)].offset != 0 ||
           (!m_runs.empty() && findOnDisk(key, hash) >= 0);
}
