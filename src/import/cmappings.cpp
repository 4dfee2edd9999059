#include "cmappings.h"

#include "util/apperror.h"

CMapping* CMappings::Add(const QString& vtField, const QString& dbField)
{
    // No duplicate filtering here: a second entry for a host field is refused only by the
    // key check below, and that error is the caller's to handle.
    CMapping mapping;
    mapping.VTField = vtField;
    mapping.DBField = dbField;
    if (indexOfKey(mapping.VTField) >= 0)
        throw AppError(AppError::DuplicateKey,
                       QStringLiteral("This key is already associated with an element of "
                                      "this collection"));
    m_items.append(mapping);
    return &m_items.last();
}

void CMappings::Delete(int position)
{
    if (position < 1 || position > m_items.size())
        throw AppError(AppError::InvalidProcedureCall,
                       QStringLiteral("Invalid procedure call or argument"));
    m_items.removeAt(position - 1);
}

void CMappings::Delete(const QString& key)
{
    const int index = indexOfKey(key);
    if (index < 0)
        throw AppError(AppError::InvalidProcedureCall,
                       QStringLiteral("Invalid procedure call or argument"));
    m_items.removeAt(index);
}

const CMapping* CMappings::Item(int position) const
{
    if (position < 1 || position > m_items.size())
        return nullptr;
    return &m_items.at(position - 1);
}

const CMapping* CMappings::Item(const QString& key) const
{
    const int index = indexOfKey(key);
    return index < 0 ? nullptr : &m_items.at(index);
}

int CMappings::indexOfKey(const QString& key) const
{
    for (int i = 0; i < m_items.size(); ++i) {
        if (m_items.at(i).VTField.compare(key, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}
