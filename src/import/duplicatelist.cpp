#include "duplicatelist.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "util/apperror.h"

namespace {
constexpr std::size_t kInitialSlots = 1024; // a power of two
constexpr std::size_t kLengthBytes = 4;
constexpr unsigned kChunkBits = 20;
constexpr std::size_t kChunkSize = std::size_t(1) << kChunkBits;

std::uint32_t readLength(const char* p)
{
    std::uint32_t length;
    std::memcpy(&length, p, kLengthBytes);
    return length;
}
} // namespace

DuplicateCheckList::DuplicateCheckList()
{
    clear();
}

void DuplicateCheckList::clear()
{
    std::vector<std::unique_ptr<char[]>>().swap(m_chunks);
    m_chunkUsed = 0;
    m_slots.assign(kInitialSlots, Slot{0, 0});
    m_count = 0;
    m_header = kLengthBytes;
    m_foundRowid = 0;
    m_found = 0;
}

void DuplicateCheckList::reserve(qint64 addresses)
{
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
    if (m_found && m_header > kLengthBytes)
        std::memcpy(&digest, entry(m_found) + kLengthBytes + sizeof(qint64), sizeof digest);
    return digest;
}

void DuplicateCheckList::setFoundDigest(quint64 digest)
{
    if (m_found && m_header > kLengthBytes) {
        const std::uint32_t at = m_found - 1;
        std::memcpy(m_chunks[at >> kChunkBits].get() + (at & (kChunkSize - 1)) + kLengthBytes +
                        sizeof(qint64),
                    &digest, sizeof digest);
    }
}

// FNV-1a: short keys, no allocation, good enough spread for addresses.
std::uint32_t DuplicateCheckList::hashOf(const char* data, std::size_t size)
{
    std::uint32_t h = 2166136261u;
    for (std::size_t i = 0; i < size; ++i) {
        h ^= static_cast<unsigned char>(data[i]);
        h *= 16777619u;
    }
    // Mix the high bits down, since the table index uses the low ones.
    h ^= h >> 15;
    h *= 0x2c1b3c6dU;
    h ^= h >> 12;
    return h;
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

const char* DuplicateCheckList::entry(std::uint32_t offset) const
{
    const std::uint32_t at = offset - 1;
    return m_chunks[at >> kChunkBits].get() + (at & (kChunkSize - 1));
}

bool DuplicateCheckList::add(const QString& address)
{
    m_foundRowid = 0;
    m_found = 0;
    lowerUtf8(address, m_key);
    return insert(m_key, 0, 0);
}

void DuplicateCheckList::keepRowids(bool keep)
{
    if (m_count == 0)
        m_header = keep ? kLengthBytes + sizeof(qint64) + sizeof(quint64) : kLengthBytes;
}

bool DuplicateCheckList::isAscii(const std::string& text)
{
    for (const char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80)
            return false;
    }
    return true;
}

bool DuplicateCheckList::addAscii(const std::string& address, qint64 rowid, quint64 digest)
{
    m_foundRowid = 0;
    m_found = 0;
    m_key.resize(address.size());
    for (std::size_t i = 0; i < address.size(); ++i) {
        const char c = address[i];
        m_key[i] = (c >= 'A' && c <= 'Z') ? char(c + ('a' - 'A')) : c;
    }
    return insert(m_key, rowid, digest);
}

bool DuplicateCheckList::insert(const std::string& key, qint64 rowid, quint64 digest)
{
    const std::size_t size = key.size();
    const std::uint32_t hash = hashOf(key.data(), size);
    std::size_t i = probe(key.data(), size, hash);
    if (m_slots[i].offset != 0) {
        m_found = m_slots[i].offset;
        if (m_header > kLengthBytes)
            std::memcpy(&m_foundRowid, entry(m_found) + kLengthBytes, sizeof rowid);
        return false;
    }

    const std::size_t needed = m_header + size;
    if (m_chunks.empty() || m_chunkUsed + needed > kChunkSize) {
        // A key longer than a chunk gets one of its own.
        m_chunks.emplace_back(new char[std::max(kChunkSize, needed)]);
        m_chunkUsed = 0;
    }
    const std::size_t offset = ((m_chunks.size() - 1) << kChunkBits) + m_chunkUsed;
    if (offset >= std::numeric_limits<std::uint32_t>::max() ||
        m_count == std::numeric_limits<qint32>::max())
        throw AppError(7, QStringLiteral("Out of memory"));
    const std::uint32_t length = std::uint32_t(size);
    char* target = m_chunks.back().get() + m_chunkUsed;
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

bool DuplicateCheckList::contains(const QString& address) const
{
    std::string key;
    lowerUtf8(address, key);
    const std::uint32_t hash = hashOf(key.data(), key.size());
    return m_slots[probe(key.data(), key.size(), hash)].offset != 0;
}
