#include "crules.h"

#include "util/apperror.h"

CRule* CRules::Add(const QString& fieldName, const QString& opDisplay, const QString& opSQL,
                   const QString& value, const QString& logicalOp)
{
    CRule rule;
    rule.FieldName = fieldName;
    rule.OpDisplay = opDisplay;
    rule.OpSQL = opSQL;
    rule.Value = value;
    rule.LogicalOp = logicalOp;

    // OpSQL is left out of the key on purpose: it follows from OpDisplay. Two rules that
    // differ only in the letter case of their value collide, as keys ignore case.
    if (indexOfKey(rule.key()) >= 0)
        throw AppError(AppError::DuplicateKey,
                       QStringLiteral("This key is already associated with an element of "
                                      "this collection"));
    m_rules.append(rule);
    m_keys.append(rule.key());
    return &m_rules.last();
}

const CRule* CRules::Item(int position) const
{
    if (position < 1 || position > m_rules.size())
        return nullptr;
    return &m_rules.at(position - 1);
}

const CRule* CRules::Item(const QString& key) const
{
    const int index = indexOfKey(key);
    return index < 0 ? nullptr : &m_rules.at(index);
}

void CRules::Modify(int position, const CRule& rule)
{
    if (position < 1 || position > m_rules.size())
        throw AppError(AppError::InvalidProcedureCall,
                       QStringLiteral("Invalid procedure call or argument"));
    m_rules[position - 1] = rule;
}

void CRules::Remove(int position)
{
    if (position < 1 || position > m_rules.size())
        throw AppError(AppError::InvalidProcedureCall,
                       QStringLiteral("Invalid procedure call or argument"));
    m_rules.removeAt(position - 1);
    m_keys.removeAt(position - 1);
}

void CRules::Remove(const QString& key)
{
    const int index = indexOfKey(key);
    if (index < 0)
        throw AppError(AppError::InvalidProcedureCall,
                       QStringLiteral("Invalid procedure call or argument"));
    m_rules.removeAt(index);
    m_keys.removeAt(index);
}

int CRules::indexOfKey(const QString& key) const
{
    for (int i = 0; i < m_rules.size(); ++i) {
        if (m_keys.at(i).compare(key, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}
