#include "sqlhighlighter.h"

#include <QFont>
#include <QStringList>

namespace {

const QStringList kKeywords = {
    "ADD",   "ALL",    "ALTER",  "AND",    "AS",     "ASC",       "AVG",   "BETWEEN",  "BY",
    "CASE",  "CAST",   "COUNT",  "CREATE", "CROSS",  "DELETE",    "DESC",  "DISTINCT", "DROP",
    "ELSE",  "END",    "ESCAPE", "EXCEPT", "EXISTS", "FETCH",     "FIRST", "FROM",     "FULL",
    "GROUP", "HAVING", "IN",     "INNER",  "INSERT", "INTERSECT", "INTO",  "IS",       "JOIN",
    "LEFT",  "LIKE",   "LIMIT",  "MAX",    "MIN",    "NOT",       "NULL",  "OFFSET",   "ON",
    "OR",    "ORDER",  "OUTER",  "RIGHT",  "ROWS",   "SELECT",    "SET",   "SUM",      "TABLE",
    "THEN",  "TOP",    "UNION",  "UPDATE", "VALUES", "WHEN",      "WHERE", "WITH"};

} // namespace

SqlHighlighter::SqlHighlighter(QTextDocument* document)
    : QSyntaxHighlighter(document),
      m_keywords(QStringLiteral("\\b(") + kKeywords.join(QLatin1Char('|')) + QStringLiteral(")\\b"),
                 QRegularExpression::CaseInsensitiveOption)
{
    m_keywordFormat.setForeground(QColor(0x00, 0x00, 0xA0));
    m_keywordFormat.setFontWeight(QFont::Bold);
    m_stringFormat.setForeground(QColor(0xA0, 0x10, 0x10));
    m_nameFormat.setForeground(QColor(0x00, 0x70, 0x30));
}

void SqlHighlighter::highlightBlock(const QString& text)
{
    // Keywords first; strings and names drawn over them, since "select" inside quotes is
    // text, not a keyword.
    for (auto it = m_keywords.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        setFormat(static_cast<int>(match.capturedStart()), static_cast<int>(match.capturedLength()),
                  m_keywordFormat);
    }

    int state = previousBlockState() < 0 ? Normal : previousBlockState();
    int start = 0;
    const int length = static_cast<int>(text.size());
    for (int i = 0; i < length; ++i) {
        const QChar c = text.at(i);
        if (state == InString) {
            if (c == QLatin1Char('\'')) {
                if (i + 1 < length && text.at(i + 1) == QLatin1Char('\'')) {
                    ++i; // a doubled quote stays inside the string
                    continue;
                }
                setFormat(start, i - start + 1, m_stringFormat);
                state = Normal;
            }
        } else if (state == InBrackets) {
            if (c == QLatin1Char(']')) {
                setFormat(start, i - start + 1, m_nameFormat);
                state = Normal;
            }
        } else if (c == QLatin1Char('\'')) {
            state = InString;
            start = i;
        } else if (c == QLatin1Char('[')) {
            state = InBrackets;
            start = i;
        }
    }
    if (state == InString)
        setFormat(start, length - start, m_stringFormat);
    else if (state == InBrackets)
        setFormat(start, length - start, m_nameFormat);
    setCurrentBlockState(state);
}
