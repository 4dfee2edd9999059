#include "readonlyguard.h"

#include <QSet>
#include <QStringList>

namespace {

// How one dialect reads quotes and comments.
struct Dialect
{
    bool backslashEscapes = false;   // '\'' stays inside the string
    bool hashComments = false;       // "#" starts a line comment
    bool nestedComments = false;     // "/* /* */ */" is one comment
    bool executableComments = false; // "/*! ... */" is code
    bool dollarQuotes = false;       // $tag$ ... $tag$ is a string
    bool bracketNames = false;       // [name] is a quoted name
    bool dashNeedsBlank = false;     // "--" starts a comment only before a blank
};

// Every reading the program's sources may apply: SQLite and SQL Server; PostgreSQL with and
// without standard strings; MySQL and MariaDB.
const Dialect kDialects[] = {
    {false, false, false, false, false, true, false},
    {false, false, true, false, true, false, false},
    {true, false, true, false, true, false, false},
    {true, true, false, true, false, false, true},
};

// Words that change data or schema, run code, or end the transaction the statement runs in.
// All are reserved words in the dialects that know them, so no plain column is named so.
const QSet<QString>& writingWords()
{
    static const QSet<QString> words = {
        QStringLiteral("INSERT"),      QStringLiteral("UPDATE"),    QStringLiteral("DELETE"),
        QStringLiteral("MERGE"),       QStringLiteral("UPSERT"),    QStringLiteral("TRUNCATE"),
        QStringLiteral("DROP"),        QStringLiteral("ALTER"),     QStringLiteral("CREATE"),
        QStringLiteral("GRANT"),       QStringLiteral("REVOKE"),    QStringLiteral("DENY"),
        QStringLiteral("COMMIT"),      QStringLiteral("ROLLBACK"),  QStringLiteral("SAVEPOINT"),
        QStringLiteral("BEGIN"),       QStringLiteral("EXEC"),      QStringLiteral("EXECUTE"),
        QStringLiteral("CALL"),        QStringLiteral("INTO"),      QStringLiteral("SET"),
        QStringLiteral("DECLARE"),     QStringLiteral("ATTACH"),    QStringLiteral("DETACH"),
        QStringLiteral("VACUUM"),      QStringLiteral("REINDEX"),   QStringLiteral("COPY"),
        QStringLiteral("LOCK"),        QStringLiteral("DBCC"),      QStringLiteral("BACKUP"),
        QStringLiteral("RESTORE"),     QStringLiteral("SHUTDOWN"),  QStringLiteral("KILL"),
        QStringLiteral("RECONFIGURE"), QStringLiteral("WRITETEXT"), QStringLiteral("UPDATETEXT"),
        QStringLiteral("PREPARE"),     QStringLiteral("HANDLER"),   QStringLiteral("LOAD"),
    };
    return words;
}

bool isWordChar(QChar c)
{
    return c.isLetterOrNumber() || c == u'_' || c == u'$';
}

// Reads sql as the dialect does. False with a message at the first thing that is not
// allowed; unterminated quotes and comments count as allowed (the source refuses them).
bool checkAs(const QString& sql, const Dialect& dialect, QString& message)
{
    const qsizetype n = sql.size();
    bool ended = false; // a ';' has been seen in code
    // Inside "[...]" where brackets are no quotes: a ';' still ends the statement, but the
    // words are taken for a name, as the dialects that quote with brackets read them.
    int brackets = 0;
    qsizetype i = 0;
    auto at = [&](qsizetype k) { return k < n ? sql.at(k) : QChar(); };
    while (i < n) {
        const QChar c = sql.at(i);
        // Comments.
        if (c == u'-' && at(i + 1) == u'-' &&
            (!dialect.dashNeedsBlank || at(i + 2).isSpace() || i + 2 >= n)) {
            while (i < n && sql.at(i) != u'\n')
                ++i;
            continue;
        }
        if (c == u'#' && dialect.hashComments) {
            while (i < n && sql.at(i) != u'\n')
                ++i;
            continue;
        }
        if (c == u'/' && at(i + 1) == u'*') {
            if (dialect.executableComments && at(i + 2) == u'!') {
                // Code to MySQL: read on, past the marker and any version number.
                i += 3;
                while (i < n && sql.at(i).isDigit())
                    ++i;
                continue;
            }
            int depth = 1;
            i += 2;
            while (i < n && depth > 0) {
                if (sql.at(i) == u'*' && at(i + 1) == u'/') {
                    --depth;
                    i += 2;
                } else if (dialect.nestedComments && sql.at(i) == u'/' && at(i + 1) == u'*') {
                    ++depth;
                    i += 2;
                } else {
                    ++i;
                }
            }
            continue;
        }
        if (c == u'*' && at(i + 1) == u'/' && dialect.executableComments) {
            i += 2; // the end of an executable comment
            continue;
        }
        if (c.isSpace()) {
            ++i;
            continue;
        }
        if (ended && c != u';') {
            message = QStringLiteral("The statement holds a second statement after \";\". Only "
                                     "one SELECT statement can be sent to the data source.");
            return false;
        }
        // Quoted strings and names.
        if (c == u'\'' || c == u'"' || c == u'`' || (c == u'[' && dialect.bracketNames)) {
            const QChar close = c == u'[' ? QChar(u']') : c;
            ++i;
            while (i < n) {
                const QChar d = sql.at(i);
                if (dialect.backslashEscapes && d == u'\\' && c != u'`' && c != u'[') {
                    i += 2;
                    continue;
                }
                if (d == close) {
                    if (at(i + 1) == close && c != u'[') {
                        i += 2;
                        continue;
                    }
                    break;
                }
                ++i;
            }
            ++i;
            continue;
        }
        if (c == u'$' && dialect.dollarQuotes) {
            qsizetype k = i + 1;
            while (k < n && (sql.at(k).isLetterOrNumber() || sql.at(k) == u'_') &&
                   !(k == i + 1 && sql.at(k).isDigit()))
                ++k;
            if (k < n && sql.at(k) == u'$') {
                const QString tag = sql.mid(i, k - i + 1);
                const qsizetype end = sql.indexOf(tag, k + 1);
                i = end < 0 ? n : end + tag.size();
                continue;
            }
        }
        if (c == u';') {
            ended = true;
            ++i;
            continue;
        }
        if (c == u'[' || c == u']') {
            brackets = qMax(0, brackets + (c == u'[' ? 1 : -1));
            ++i;
            continue;
        }
        if (isWordChar(c)) {
            qsizetype k = i;
            while (k < n && isWordChar(sql.at(k)))
                ++k;
            const QString word = sql.mid(i, k - i).toUpper();
            if (brackets == 0 && writingWords().contains(word)) {
                message = QStringLiteral("The statement would change the data source (it holds "
                                         "%1). Only statements that read can be sent to it.")
                              .arg(word);
                return false;
            }
            i = k;
            continue;
        }
        ++i;
    }
    return true;
}

} // namespace

bool CheckReadOnlyStatement(const QString& sql, QString& message)
{
    for (const Dialect& dialect : kDialects) {
        if (!checkAs(sql, dialect, message))
            return false;
    }
    return true;
}
