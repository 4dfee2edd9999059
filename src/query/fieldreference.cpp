#include "fieldreference.h"

QString FieldReference(const QString& tableName, const QString& fieldName)
{
    QString tableRef = tableName.trimmed();
    if (tableRef.contains(QLatin1Char(' ')))
        tableRef = QLatin1Char('[') + tableRef + QLatin1Char(']');
    const QString field = fieldName.trimmed();
    if (field.contains(QLatin1Char(' ')))
        return tableRef + QStringLiteral(".[") + field + QLatin1Char(']');
    return tableRef + QLatin1Char('.') + field + QLatin1Char(' ');
}

QString InsertFieldReference(const QString& text, int caret, const QString& reference,
                             int& newCaret)
{
    if (text.isEmpty()) {
        newCaret = static_cast<int>(reference.size());
        return reference;
    }
    caret = qBound(0, caret, static_cast<int>(text.size()));
    const QString before = text.left(caret);
    QString after = text.mid(caret);
    QString result = before;
    if (!before.isEmpty()) {
        if (before.endsWith(QLatin1Char(']')))
            result += QLatin1Char(',');
        if (!before.endsWith(QLatin1Char(' ')))
            result += QLatin1Char(' ');
    }
    result += reference;
    newCaret = static_cast<int>(result.size());
    if (!after.isEmpty() && !after.startsWith(QLatin1Char(' ')))
        after.prepend(QLatin1Char(' '));
    return result + after;
}
