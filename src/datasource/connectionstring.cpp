#include "connectionstring.h"

#include <QFileInfo>
#include <QRegularExpression>

#include "util/nativepath.h"

namespace {

// One "key=value" entry and where it sits in the original text, so that an ODBC string
// can be handed on exactly as the user wrote it with only some entries taken out.
struct Entry
{
    QString key;
    QString value;
    qsizetype start = 0; // first character of the entry
    qsizetype end = 0;   // one past its ';' (or the end of the text)
};

bool splitEntries(const QString& text, QList<Entry>& entries, QString& message)
{
    entries.clear();
    const qsizetype n = text.size();
    qsizetype i = 0;
    while (i < n) {
        Entry entry;
        entry.start = i;
        const qsizetype eq = text.indexOf(QLatin1Char('='), i);
        const qsizetype semi = text.indexOf(QLatin1Char(';'), i);
        if (eq < 0 || (semi >= 0 && semi < eq)) {
            // No '=' before the next ';': only blank filler between separators is allowed.
            const qsizetype stop = semi < 0 ? n : semi;
            const QString piece = text.mid(i, stop - i).trimmed();
            if (!piece.isEmpty()) {
                message = QStringLiteral("The connection string entry \"%1\" has no '=' and "
                                         "no value.")
                              .arg(piece);
                return false;
            }
            i = semi < 0 ? n : semi + 1;
            continue;
        }
        entry.key = text.mid(i, eq - i).trimmed();
        if (entry.key.isEmpty()) {
            message = QStringLiteral("The connection string has a value without a key at "
                                     "position %1.")
                          .arg(i + 1);
            return false;
        }

        qsizetype j = eq + 1;
        while (j < n && text.at(j).isSpace())
            ++j;
        const QChar open = j < n ? text.at(j) : QChar();
        if (open == QLatin1Char('{') || open == QLatin1Char('"') || open == QLatin1Char('\'')) {
            const QChar close = open == QLatin1Char('{') ? QLatin1Char('}') : open;
            QString value;
            qsizetype k = j + 1;
            bool closed = false;
            while (k < n) {
                const QChar c = text.at(k);
                if (c == close) {
                    // A doubled closing character stands for itself.
                    if (k + 1 < n && text.at(k + 1) == close) {
                        value += c;
                        k += 2;
                        continue;
                    }
                    closed = true;
                    ++k;
                    break;
                }
                value += c;
                ++k;
            }
            if (!closed) {
                message = QStringLiteral("The value of \"%1\" in the connection string opens "
                                         "with %2 but is never closed with %3.")
                              .arg(entry.key, open, close);
                return false;
            }
            while (k < n && text.at(k).isSpace())
                ++k;
            if (k < n && text.at(k) != QLatin1Char(';')) {
                message = QStringLiteral("The value of \"%1\" in the connection string has "
                                         "text after its closing %2.")
                              .arg(entry.key, close);
                return false;
            }
            entry.value = value;
            entry.end = k < n ? k + 1 : n;
        } else {
            const qsizetype stop = semi < 0 ? n : semi;
            const QString value = text.mid(eq + 1, stop - eq - 1).trimmed();
            if (value.contains(QLatin1Char('{')) || value.contains(QLatin1Char('}'))) {
                message = QStringLiteral("The value of \"%1\" in the connection string has "
                                         "unbalanced braces.")
                              .arg(entry.key);
                return false;
            }
            entry.value = value;
            entry.end = semi < 0 ? n : semi + 1;
        }
        entries.append(entry);
        i = entry.end;
    }
    return true;
}

const Entry* findEntry(const QList<Entry>& entries, const QString& key)
{
    for (const Entry& e : entries) {
        if (e.key.compare(key, Qt::CaseInsensitive) == 0)
            return &e;
    }
    return nullptr;
}

bool isPasswordKey(const QString& key)
{
    return key.compare(QLatin1String("PWD"), Qt::CaseInsensitive) == 0 ||
           key.compare(QLatin1String("Password"), Qt::CaseInsensitive) == 0;
}

bool isTimeoutKey(const QString& key)
{
    return key.compare(QLatin1String("Connect Timeout"), Qt::CaseInsensitive) == 0 ||
           key.compare(QLatin1String("Connection Timeout"), Qt::CaseInsensitive) == 0;
}

bool isAdoOnlyKey(const QString& key)
{
    return key.compare(QLatin1String("Provider"), Qt::CaseInsensitive) == 0 ||
           key.compare(QLatin1String("Persist Security Info"), Qt::CaseInsensitive) == 0 ||
           isTimeoutKey(key);
}

// The Qt options of an ODBC source: read-only, and a limit on the wait for the login.
// Without one, a server that takes the connection and never answers would hold the
// program until the user kills it. The limit is ADO's: 15 seconds unless the string
// gives its own Connect Timeout (0 waits for ever).
bool odbcOptions(const QList<Entry>& entries, ConnectionTarget& target, QString& message)
{
    uint seconds = 15;
    for (const Entry& e : entries) {
        if (!isTimeoutKey(e.key))
            continue;
        bool ok = false;
        seconds = e.value.trimmed().toUInt(&ok);
        if (!ok) {
            message = QStringLiteral("The %1 \"%2\" is not a whole number of seconds.")
                          .arg(e.key, e.value);
            return false;
        }
    }
    target.loginTimeout = seconds;
    target.connectOptions =
        QStringLiteral("SQL_ATTR_ACCESS_MODE=SQL_MODE_READ_ONLY;SQL_ATTR_LOGIN_TIMEOUT=") +
        QString::number(seconds);
    return true;
}

// ODBC wants braces around a value that would otherwise be cut or misread.
QString odbcValue(const QString& value)
{
    static const QRegularExpression special(QStringLiteral("[;{}=]|^\\s|\\s$"));
    if (!value.contains(special))
        return value;
    QString escaped = value;
    escaped.replace(QLatin1Char('}'), QLatin1String("}}"));
    return QLatin1Char('{') + escaped + QLatin1Char('}');
}

// The keys an ADO data-link string spells differently from ODBC.
QString odbcKey(const QString& key)
{
    if (key.compare(QLatin1String("User ID"), Qt::CaseInsensitive) == 0)
        return QStringLiteral("UID");
    if (key.compare(QLatin1String("Password"), Qt::CaseInsensitive) == 0)
        return QStringLiteral("PWD");
    if (key.compare(QLatin1String("Initial Catalog"), Qt::CaseInsensitive) == 0)
        return QStringLiteral("DATABASE");
    return key;
}

} // namespace

bool ParseConnectionString(const QString& conString, QList<QPair<QString, QString>>& pairs,
                           QString& message)
{
    QList<Entry> entries;
    if (!splitEntries(conString, entries, message))
        return false;
    pairs.clear();
    for (const Entry& e : entries)
        pairs.append(qMakePair(e.key, e.value));
    return true;
}

bool ResolveConnectionString(const QString& conString, ConnectionTarget& target, QString& message)
{
    QList<Entry> entries;
    if (!splitEntries(conString, entries, message))
        return false;

    const Entry* provider = findEntry(entries, QStringLiteral("Provider"));
    const QString providerName = provider ? provider->value.trimmed() : QString();
    const Entry* dataSource = findEntry(entries, QStringLiteral("Data Source"));

    if (providerName.compare(QLatin1String("SQLite"), Qt::CaseInsensitive) == 0) {
        if (!dataSource || dataSource->value.trimmed().isEmpty()) {
            message = QStringLiteral("The connection string for Provider=SQLite names no "
                                     "database file (Data Source=<file>).");
            return false;
        }
        const QString file = NativePath(dataSource->value.trimmed());
        const QFileInfo info(file);
        if (!info.exists()) {
            message = QStringLiteral("The SQLite database file \"%1\" does not exist.").arg(file);
            return false;
        }
        if (!info.isFile()) {
            message = QStringLiteral("The SQLite database \"%1\" is not a file.").arg(file);
            return false;
        }
        target.driver = QStringLiteral("QSQLITE");
        target.databaseName = info.absoluteFilePath();
        target.connectOptions = QStringLiteral("QSQLITE_OPEN_READONLY");
        return true;
    }

    static const QRegularExpression msdasql(QStringLiteral("^MSDASQL(\\.\\d+)?$"),
                                            QRegularExpression::CaseInsensitiveOption);
    if (provider && msdasql.match(providerName).hasMatch() && dataSource) {
        QString odbc = QStringLiteral("DSN=") + odbcValue(dataSource->value) + QLatin1Char(';');
        for (const Entry& e : entries) {
            if (&e == dataSource || isAdoOnlyKey(e.key) ||
                e.key.compare(QLatin1String("DSN"), Qt::CaseInsensitive) == 0)
                continue;
            odbc += odbcKey(e.key) + QLatin1Char('=') + odbcValue(e.value) + QLatin1Char(';');
        }
        target.driver = QStringLiteral("QODBC");
        target.databaseName = odbc;
        return odbcOptions(entries, target, message);
    }

    if (findEntry(entries, QStringLiteral("DSN")) || findEntry(entries, QStringLiteral("Driver"))) {
        // Hand the ODBC string on as written, only without the keys ADO alone understands.
        QString odbc = conString;
        for (qsizetype k = entries.size() - 1; k >= 0; --k) {
            if (isAdoOnlyKey(entries.at(k).key))
                odbc.remove(entries.at(k).start, entries.at(k).end - entries.at(k).start);
        }
        target.driver = QStringLiteral("QODBC");
        target.databaseName = odbc.trimmed();
        return odbcOptions(entries, target, message);
    }

    if (!provider) {
        message = QStringLiteral("The connection string names no provider, ODBC data source "
                                 "(DSN=) or ODBC driver (Driver=).");
    } else if (msdasql.match(providerName).hasMatch()) {
        message = QStringLiteral("The connection string for Provider=%1 names no ODBC data "
                                 "source (Data Source=<name>).")
                      .arg(providerName);
    } else {
        message = QStringLiteral("The provider \"%1\" is not supported: use Provider=SQLite, "
                                 "Provider=MSDASQL or an ODBC string with DSN= or Driver=.")
                      .arg(providerName);
    }
    return false;
}

QString QtOdbcDatabaseName(const QString& odbcString)
{
    if (odbcString.contains(QLatin1String("DRIVER="), Qt::CaseInsensitive) ||
        odbcString.contains(QLatin1String("SERVER="), Qt::CaseInsensitive))
        return odbcString;
    QList<Entry> entries;
    QString message;
    if (!splitEntries(odbcString, entries, message))
        return odbcString;
    // The data source name goes first, without its key, and Qt adds the key back.
    const Entry* dsn = findEntry(entries, QStringLiteral("DSN"));
    QString name = dsn ? odbcValue(dsn->value) + QLatin1Char(';') : QString();
    for (const Entry& e : entries) {
        if (&e != dsn)
            name += e.key + QLatin1Char('=') + odbcValue(e.value) + QLatin1Char(';');
    }
    // Without a DSN only a driver key written with blanks around '=' gets here; rebuilt
    // as "Driver=...", Qt takes it as it is.
    return name;
}

QString MaskPasswords(const QString& conString)
{
    static const QString mask = QStringLiteral("\u2022\u2022\u2022");
    QList<Entry> entries;
    QString message;
    if (!splitEntries(conString, entries, message)) {
        static const QRegularExpression loose(QStringLiteral("\\b(pwd|password)(\\s*=)[^;]*"),
                                              QRegularExpression::CaseInsensitiveOption);
        QString masked = conString;
        return masked.replace(loose, QStringLiteral("\\1\\2") + mask);
    }
    QString masked = conString;
    for (qsizetype k = entries.size() - 1; k >= 0; --k) {
        const Entry& e = entries.at(k);
        if (!isPasswordKey(e.key))
            continue;
        const qsizetype valueStart = masked.indexOf(QLatin1Char('='), e.start) + 1;
        const bool separated = e.end > e.start && conString.at(e.end - 1) == QLatin1Char(';');
        const qsizetype valueEnd = separated ? e.end - 1 : e.end;
        masked.replace(valueStart, valueEnd - valueStart, mask);
    }
    return masked;
}

QString ConnectionStringValue(const QString& value)
{
    static const QRegularExpression special(QStringLiteral("[;{}=]|^[\\s\"']|\\s$"));
    if (!value.contains(special))
        return value;
    QString escaped = value;
    escaped.replace(QLatin1Char('}'), QLatin1String("}}"));
    return QLatin1Char('{') + escaped + QLatin1Char('}');
}
