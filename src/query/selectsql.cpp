#include "selectsql.h"
#include "util/blanks.h"

#include "crules.h"

namespace {

bool hasBlank(const QString& text)
{
    return text.contains(QLatin1Char(' '));
}

QString quotedName(const QString& name, const QString& quote)
{
    QString inner = name;
    inner.replace(quote, quote + quote);
    return quote + inner + quote;
}

// The joiner before the first condition is the only thing the builders disagree on.
QString buildSelect(const QString& tableName, const CRules& rules, const QString& firstJoiner,
                    const QString& quote = QString())
{
    QString where;
    bool first = true;
    for (const CRule& rule : rules) {
        if (first)
            where += firstJoiner;
        else
            where += QLatin1Char(' ') + rule.LogicalOp + QLatin1Char(' ');
        first = false;
        where += RuleCondition(rule.FieldName, rule.OpSQL, rule.Value, quote);
    }

    QString sql = SelectFromTable(tableName, quote);
    if (!where.isEmpty())
        sql += QStringLiteral(" WHERE ") + where;
    return sql;
}

} // namespace

QString RuleCondition(const QString& fieldName, const QString& opSQL, const QString& value,
                      const QString& quote)
{
    // The test looks at the trimmed name, yet the name goes in as the source listed it,
    // outer blanks and all.
    QString field;
    if (!quote.isEmpty())
        field = quotedName(fieldName, quote) + QLatin1Char(' ');
    else if (hasBlank(TrimBlanks(fieldName)))
        field = QLatin1Char('[') + fieldName + QStringLiteral("] ");
    else
        field = fieldName + QLatin1Char(' ');
    return field + opSQL + QLatin1Char(' ') + value;
}

QString SelectFromTable(const QString& tableName, const QString& quote)
{
    const QString name = TrimBlanks(tableName);
    if (!quote.isEmpty() && !name.isEmpty())
        return QStringLiteral("select * from ") + quotedName(name, quote);
    if (hasBlank(name))
        return QStringLiteral("select * from [") + name + QLatin1Char(']');
    return QStringLiteral("select * from ") + name;
}

QString BuildSelectSQL(const QString& tableName, const CRules& rules)
{
    return buildSelect(tableName, rules, QString());
}

QString BuildImportSQL(const QString& tableName, const CRules& rules, const QString& quote)
{
    // One blank before the first condition, so the imported and logged statement has two
    // blanks after WHERE. The records selected are the same as the query builder's.
    return buildSelect(tableName, rules, QStringLiteral(" "), quote);
}

QString BuildTestSQL(const QString& tableName, const QString& fieldName, const QString& opSQL,
                     const QString& value)
{
    QString sql = SelectFromTable(tableName);
    const QString condition = RuleCondition(fieldName, opSQL, value);
    if (!condition.isEmpty())
        sql += QStringLiteral(" WHERE ") + condition;
    return sql;
}
