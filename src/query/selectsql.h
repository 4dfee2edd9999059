#pragma once

#include <QString>

class CRules;

// The SELECT statements built from a table and its rules. They differ in one detail each
// and must stay character for character as they are.

// "[Field Name] = 'x'" or "Field = 'x'": brackets only when the trimmed name has a blank.
QString RuleCondition(const QString& fieldName, const QString& opSQL, const QString& value);
// "select * from Name" or "select * from [Name With Blank]", the name trimmed.
QString SelectFromTable(const QString& tableName);

// The query builder's statement: first rule joined by nothing.
QString BuildSelectSQL(const QString& tableName, const CRules& rules);
// The imported and logged statement: first rule joined by one blank.
QString BuildImportSQL(const QString& tableName, const CRules& rules);
// The rule editor's trial of one rule.
QString BuildTestSQL(const QString& tableName, const QString& fieldName, const QString& opSQL,
                     const QString& value);
