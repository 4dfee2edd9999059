#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// One filter rule: field, operator, value, and how it joins the rule before it.
struct CRule
{
    QString LogicalOp; // "And" or "Or"
    QString FieldName;
    QString OpDisplay; // "Equals", "is Not Equal to", ...
    QString OpSQL;     // "=", "!=", "<", ">", "like"
    QString Value;     // written into SQL as it stands, quotes included

    // LogicalOp + FieldName + OpDisplay + Value: the key a CRules list files the rule under
    // when it is added.
    QString key() const { return LogicalOp + FieldName + OpDisplay + Value; }
};

// The ordered rule list, keyed case-insensitively by CRule::key(). Positions are 1-based.
class CRules
{
public:
    // Appends a rule. Throws AppError(DuplicateKey) when a rule with the same key is
    // already there; nothing is added then. The pointer stays valid until the list changes.
    CRule* Add(const QString& fieldName, const QString& opDisplay, const QString& opSQL,
               const QString& value, const QString& logicalOp);
    int Count() const { return static_cast<int>(m_rules.size()); }
    // nullptr for a position or key that does not exist.
    const CRule* Item(int position) const;
    const CRule* Item(const QString& key) const;
    // Rewrites the rule at position in place. It stays filed under the key it was added
    // with, so no duplicate test is made: a later Add of its old values is refused while
    // an Add of its new ones is not. Throws AppError(InvalidProcedureCall) for a position
    // that does not exist.
    void Modify(int position, const CRule& rule);
    // Throws AppError(InvalidProcedureCall) for a position or key that does not exist.
    void Remove(int position);
    void Remove(const QString& key);
    void Clear()
    {
        m_rules.clear();
        m_keys.clear();
    }

    QList<CRule>::const_iterator begin() const { return m_rules.cbegin(); }
    QList<CRule>::const_iterator end() const { return m_rules.cend(); }

private:
    int indexOfKey(const QString& key) const;
    QList<CRule> m_rules;
    QStringList m_keys; // index for index with m_rules
};
