#pragma once

#include <QString>

#include <cstdint>
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
    bool contains(const QString& address) const;
    qint32 count() const { return m_count; }
    // Empties the list and gives its memory back.
    void clear();

private:
    struct Slot
    {
        std::uint32_t offset; // into m_arena, plus one; 0 = empty
        std::uint32_t hash;
    };

    static std::uint32_t hashOf(const char* data, std::size_t size);
    // The slot holding key, or the empty slot where it would go.
    std::size_t probe(const char* data, std::size_t size, std::uint32_t hash) const;
    void grow();

    std::string m_key; // scratch for the key being looked up
    std::vector<char> m_arena;
    std::vector<Slot> m_slots;
    qint32 m_count = 0;
};
