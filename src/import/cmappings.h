#pragma once

#include <QList>
#include <QString>

// Which database field feeds one host recipient field. An empty DBField means not mapped.
struct CMapping
{
    QString VTField;
    QString DBField;
};

// Mappings keyed case-insensitively by VTField, in insertion order; positions are 1-based.
class CMappings
{
public:
    // Throws AppError(DuplicateKey) when the key is already there; nothing is added then.
    // The pointer stays valid until the list changes.
    CMapping* Add(const QString& vtField, const QString& dbField);
    int Count() const { return static_cast<int>(m_items.size()); }
    // Throws AppError(InvalidProcedureCall) for a position or key that does not exist.
    void Delete(int position);
    void Delete(const QString& key);
    // nullptr for a position or key that does not exist.
    const CMapping* Item(int position) const;
    const CMapping* Item(const QString& key) const;
    void Clear() { m_items.clear(); }

    QList<CMapping>::const_iterator begin() const { return m_items.cbegin(); }
    QList<CMapping>::const_iterator end() const { return m_items.cend(); }

private:
    int indexOfKey(const QString& key) const;
    QList<CMapping> m_items;
};
