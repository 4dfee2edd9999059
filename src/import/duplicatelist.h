#pragma once

#include <QString>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The keyed list of lower-cased e-mail addresses the import checks every record against.
// A Group of a million recipients must fit in little memory, so the addresses are kept as
// UTF-8 bytes in one arena and found through an open-addressing table of offsets. A hash
// match is always confirmed by comparing the bytes: a false "duplicate" would lose a
// recipient.
class DuplicateCheckList final
{
public:
    DuplicateCheckList();

    // Adds the lower-cased address; false when it is already there (the add "fails").
    bool add(const QString& address);
    // The same for an address in plain ASCII (see isAscii), given as its bytes, with the
    // number of the Group record that holds it (0: none known) and that record's digest.
    bool addAscii(const std::string& address, qint64 rowid = 0, quint64 digest = 0);
    static bool isAscii(const std::string& text);
    // Whether entries keep the record numbers and digests given to addAscii (costs 16 bytes
    // each); set on an empty list.
    void keepRowids(bool keep);
    // After an add that failed: the record number kept with the address found, 0 if none,
    // and its digest, which the caller may change when it changes the record.
    qint64 foundRowid() const { return m_foundRowid; }
    quint64 foundDigest() const;
    void setFoundDigest(quint64 digest);
    // Room for this many addresses without growing.
    void reserve(qint64 addresses);
    bool contains(const QString& address) const;
    qint32 count() const { return m_count; }
    // Empties the list and gives its memory back.
    void clear();

private:
    struct Slot
    {
        std::uint32_t offset; // chunk << kChunkBits | position, plus one; 0 = empty
        std::uint32_t hash;
    };

    static std::uint32_t hashOf(const char* data, std::size_t size);
    // The slot holding key, or the empty slot where it would go.
    std::size_t probe(const char* data, std::size_t size, std::uint32_t hash) const;
    void rehash(std::size_t size); // a power of two

    bool insert(const std::string& key, qint64 rowid, quint64 digest);
    const char* entry(std::uint32_t offset) const;

    std::string m_key; // scratch for the key being looked up
    // The keys, each after its length, in chunks that are never moved: a growing list
    // never holds two copies of itself, and pages are only touched when filled.
    std::vector<std::unique_ptr<char[]>> m_chunks;
    std::size_t m_chunkUsed = 0;
    std::size_t m_header = 4; // length, then the record number and digest when kept
    qint64 m_foundRowid = 0;
    std::uint32_t m_found = 0; // the entry (offset) of the last failed add; 0 = none
    std::vector<Slot> m_slots;
    qint32 m_count = 0;
};
