#pragma once

#include <QString>

class CRules;

// The SELECT statements built from a table and its rules. They differ in one detail each
// and must stay character for character as they are.

// quote: for a source that does not take names in brackets (PostgreSQL, MySQL), the
// character its driver quotes names with; every name is then quoted with it, an embedded
// one doubled, so that blanks, capitals and reserved words all reach the source as they
// are. Empty (the default): the bracket form below.

// "[Field Name] = 'x'" or "Field = 'x'": brackets only when the trimmed name has a blank.
QString RuleCondition(const QString& fieldName, const QString& opSQL, const QString& value,
                      const QString& quote = QString());
// "select * from Name" or "select * from [Name With Blank]", the name trimmed.
QString SelectFromTable(const QString& tableName, const QString& quote = QString());

// The query builder's statement: first rule joined by nothing.
QString BuildSelectSQL(const QString& tableName, const CRules& rules);
// The imported and logged statement: first rule joined by one blank.
QString BuildImportSQL(const QString& tableName, const CRules& rules,
                       const QString& quote = QString());
// The rule editor's trial of one rule.
QString BuildTestSQL(const QString& tableName, const QString& fieldName, const QString& opSQL,
                     const QString& value);
