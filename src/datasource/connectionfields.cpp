#include "connectionfields.h"

#include <QList>
#include <QPair>
#include <QRegularExpression>

#include "connectionstring.h"

namespace {

using Pairs = QList<QPair<QString, QString>>;

bool same(const QString& a, const char* b)
{
    return a.compare(QLatin1String(b), Qt::CaseInsensitive) == 0;
}

// Takes the value of the first key among names out of pairs; false when two entries
// would fill the same field, since one of them would be lost.
bool take(Pairs& pairs, std::initializer_list<const char*> names, QString& value)
{
    bool found = false;
    for (qsizetype i = 0; i < pairs.size();) {
        bool match = false;
        for (const char* name : names)
            match = match || same(pairs.at(i).first, name);
        if (!match) {
            ++i;
            continue;
        }
        if (found)
            return false;
        found = true;
        value = pairs.at(i).second;
        pairs.removeAt(i);
    }
    return true;
}

void append(QString& text, const char* key, const QString& value)
{
    if (!value.isEmpty())
        text +=
            QLatin1String(key) + QLatin1Char('=') + ConnectionStringValue(value) + QLatin1Char(';');
}

} // namespace

bool ConnectionFields::operator==(const ConnectionFields& o) const
{
    return kind == o.kind && file == o.file && dataSource == o.dataSource && driver == o.driver &&
           server == o.server && port == o.port && database == o.database && user == o.user &&
           password == o.password && raw == o.raw;
}

bool ParseConnectionFields(const QString& conString, ConnectionFields& fields, QString& message)
{
    fields = ConnectionFields();
    if (conString.trimmed().isEmpty())
        return true;
    Pairs pairs;
    if (!ParseConnectionString(conString, pairs, message))
        return false;

    ConnectionFields parsed;
    QString provider;
    bool fits = take(pairs, {"Provider"}, provider);
    static const QRegularExpression msdasql(QStringLiteral("^MSDASQL(\\.\\d+)?$"),
                                            QRegularExpression::CaseInsensitiveOption);
    if (fits && provider.compare(QLatin1String("SQLite"), Qt::CaseInsensitive) == 0) {
        parsed.kind = ConnectionFields::Kind::SqliteFile;
        fits = take(pairs, {"Data Source"}, parsed.file) && !parsed.file.isEmpty();
    } else if (fits && (provider.isEmpty() || msdasql.match(provider).hasMatch())) {
        // Data Source names the ODBC data source only behind an ODBC provider.
        QString adoDataSource;
        fits = take(pairs, {"Driver"}, parsed.driver) && take(pairs, {"DSN"}, parsed.dataSource) &&
               (provider.isEmpty() || take(pairs, {"Data Source"}, adoDataSource)) &&
               take(pairs, {"UID", "User ID", "User"}, parsed.user) &&
               take(pairs, {"PWD", "Password"}, parsed.password);
        if (parsed.dataSource.isEmpty())
            parsed.dataSource = adoDataSource;
        else if (!adoDataSource.isEmpty())
            fits = false;
        fits = fits && parsed.driver.isEmpty() != parsed.dataSource.isEmpty();
        if (fits && !parsed.driver.isEmpty()) {
            parsed.kind = ConnectionFields::Kind::OdbcDriver;
            fits = take(pairs, {"Server"}, parsed.server) && take(pairs, {"Port"}, parsed.port) &&
                   take(pairs, {"Database"}, parsed.database);
        } else {
            parsed.kind = ConnectionFields::Kind::OdbcDataSource;
        }
    } else {
        fits = false;
    }
    // What is left has no field here; Persist Security Info is an ADO setting with no
    // meaning for our drivers and is dropped rather than sending the string to the raw page.
    QString ignored;
    if (fits && take(pairs, {"Persist Security Info"}, ignored) && pairs.isEmpty()) {
        fields = parsed;
        return true;
    }
    fields.kind = ConnectionFields::Kind::Raw;
    fields.raw = conString;
    return true;
}

QString ComposeConnectionString(const ConnectionFields& fields)
{
    QString text;
    switch (fields.kind) {
    case ConnectionFields::Kind::SqliteFile:
        text = QStringLiteral("Provider=SQLite;");
        append(text, "Data Source", fields.file);
        break;
    case ConnectionFields::Kind::OdbcDataSource:
        append(text, "DSN", fields.dataSource);
        append(text, "UID", fields.user);
        append(text, "PWD", fields.password);
        break;
    case ConnectionFields::Kind::OdbcDriver:
        // The Provider keyword lets the string pass the connection editor's check, which
        // wants Provider=, Data Source= or DSN= in it; the ODBC layer drops it again.
        text = QStringLiteral("Provider=MSDASQL;");
        // Driver names are braced by custom, blanks and all.
        if (!fields.driver.isEmpty())
            text += QStringLiteral("Driver={%1};")
                        .arg(QString(fields.driver).replace(QLatin1Char('}'), QLatin1String("}}")));
        append(text, "Server", fields.server);
        append(text, "Port", fields.port);
        append(text, "Database", fields.database);
        append(text, "UID", fields.user);
        append(text, "PWD", fields.password);
        break;
    case ConnectionFields::Kind::Raw:
        return fields.raw;
    }
    return text;
}
