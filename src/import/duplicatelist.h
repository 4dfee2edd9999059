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
//
// Past a set number of addresses in memory, the ones held so far move to a temporary file
// as one batch, grouped by hash, and memory keeps only each batch's bucket index and a
// filter that rules out nearly every address the batch does not hold. A source of any size
// then runs in the same memory; an address found on disk costs one read.
class DuplicateCheckList final
{
public:
    DuplicateCheckList();
    ~DuplicateCheckList();
    DuplicateCheckList(const DuplicateCheckList&) = delete;
    DuplicateCheckList& operator=(const DuplicateCheckList&) = delete;

    // Adds the lower-cased address; false when it is already there (the add "fails").
    bool add(const QString& address);
    // The same for an address in plain ASCII (see isAscii), given as its bytes, with the
    // number of the Group record that holds it (0: none known) and that record's digest.
    bool addAscii(const std::string& address, qint64 rowid = 0, quint64 digest = 0);
    static bool isAscii(const char* data, std::size_t size);
    // For listing many addresses at once: the same as addAscii, but the address may go in
    // a few calls later, while the memory it needs is fetched. Any other call, and settle(),
    // puts in every address still waiting, in the order given.
    void addAsciiSoon(const char* data, std::size_t size, qint64 rowid, quint64 digest);
    void settle();
    // Starts looking up address, for an add of the same address that follows: the memory
    // that add needs is fetched while the caller does other work.
    void prefetch(const QString& address);
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
    // The most addresses kept in memory before they move to a temporary file (0: no
    // limit, the default). Where no temporary file can be written, memory grows instead.
    void setMemoryLimit(qint64 addresses);
    bool contains(const QString& address);
    // Addresses in the list, not counting any still waiting to go in (see addAsciiSoon).
    qint32 count() const { return m_count + m_spilled; }
    // How many of them are in the temporary file.
    qint32 countOnDisk() const { return m_spilled; }
    // Empties the list and gives its memory and its temporary file back.
    void clear();

private:
    struct Slot
    {
        std::uint32_t offset; // chunk << kChunkBits | position, plus one; 0 = empty
        std::uint32_t hash;
    };
    struct Chunk
    {
        std::unique_ptr<char[]> data;
        std::size_t size = 0;
    };
    // One batch of entries in the temporary file, laid out bucket after bucket.
    struct Run
    {
        quint64 base = 0;                  // where the batch starts in the file
        unsigned bucketBits = 0;           // buckets by the hash's top bits
        std::vector<std::uint32_t> starts; // each bucket's start from base, then the end
        std::vector<std::uint64_t> filter; // blocks of 512 bits
    };

    static std::uint32_t hashOf(const char* data, std::size_t size);
    // The slot holding key, or the empty slot where it would go.
    std::size_t probe(const char* data, std::size_t size, std::uint32_t hash) const;
    void rehash(std::size_t size); // a power of two

    bool insert(const std::string& key, qint64 rowid, quint64 digest, std::uint32_t hash);
    void insertWaiting();
    const char* entry(std::uint32_t offset) const;
    // The file position of key's entry, newest batch first; -1 when it is in none.
    qint64 findOnDisk(const std::string& key, std::uint32_t hash) const;
    // Moves every entry in memory to a new batch in the file; false, with nothing moved,
    // when the file cannot take them.
    bool spill();
    void closeFile();

    std::string m_key; // scratch for the key being looked up
    // The keys, each after its length, in chunks that are never moved: a growing list
    // never holds two copies of itself, and pages are only touched when filled. A spill
    // leaves the chunks to be filled again.
    std::vector<Chunk> m_chunks;
    std::size_t m_chunkCurrent = 0;
    std::size_t m_chunkUsed = 0;
    std::size_t m_header = 4; // length, then the record number and digest when kept
    qint64 m_foundRowid = 0;
    std::uint32_t m_found = 0; // the entry (offset) of the last failed add; 0 = none
    qint64 m_foundOnDisk = -1; // or its position in the file
    quint64 m_foundDigest = 0;
    std::vector<Slot> m_slots;
    qint32 m_count = 0; // in memory

    qint64 m_limit = 0;
    qint32 m_spilled = 0;
    int m_file = -1;
    quint64 m_fileSize = 0;
    bool m_fileRefused = false;
    std::vector<Run> m_runs;
    mutable std::vector<char> m_buffer;

    // Addresses given to addAsciiSoon and not yet in, oldest first, in a ring.
    struct Waiting
    {
        std::string key;
        qint64 rowid = 0;
        quint64 digest = 0;
        std::uint32_t hash = 0;
    };
    static constexpr std::size_t kWaiting = 16;
    std::vector<Waiting> m_waiting;
    std::size_t m_waitingFirst = 0;
    std::size_t m_waitingCount = 0;
    // The address given to prefetch, lowered, and its hash.
    QString m_prepared;
    std::string m_preparedKey;
    std::uint32_t m_preparedHash = 0;
    bool m_preparedValid = false;
};
