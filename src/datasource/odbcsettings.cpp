#include "odbcsettings.h"

#include <odbcinst.h>

#include <cstring>
#include <vector>

#include "connectionstring.h"

namespace {

QString dsnEntry(const QString& dsn, const char* key)
{
    char value[1024] = {0};
    const QByteArray name = dsn.toUtf8();
    SQLGetPrivateProfileString(name.constData(), key, "", value, int(sizeof value), "odbc.ini");
    return QString::fromUtf8(value);
}

} // namespace

bool OdbcSettings::read(const QString& conString)
{
    m_pairs.clear();
    m_dsn.clear();
    ConnectionTarget target;
    QString message;
    if (!ResolveConnectionString(conString, target, message) ||
        target.driver != QLatin1String("QODBC") ||
        !ParseConnectionString(target.databaseName, m_pairs, message))
        return false;
    for (auto& pair : m_pairs) {
        pair.first = pair.first.trimmed();
        pair.second = pair.second.trimmed();
    }
    m_dsn = value({QStringLiteral("DSN")});
    return true;
}

QString OdbcSettings::value(const QStringList& names) const
{
    QString v;
    for (const auto& pair : m_pairs) {
        if (names.contains(pair.first, Qt::CaseInsensitive)) {
            v = pair.second;
            break;
        }
    }
    // An empty value in the string leaves the data source's.
    for (qsizetype i = 0; v.isEmpty() && !m_dsn.isEmpty() && i < names.size(); ++i)
        v = dsnEntry(m_dsn, names.at(i).toUtf8().constData());
    return v;
}

QStringList OdbcSettings::keys() const
{
    QStringList keys;
    if (!m_dsn.isEmpty()) {
        std::vector<char> list(8192, '\0');
        const QByteArray name = m_dsn.toUtf8();
        const int size = SQLGetPrivateProfileString(name.constData(), nullptr, "", list.data(),
                                                    int(list.size()), "odbc.ini");
        for (int i = 0; i < size && list[std::size_t(i)];) {
            const char* key = list.data() + i;
            keys << QString::fromUtf8(key);
            i += int(std::strlen(key)) + 1;
        }
    }
    for (const auto& pair : m_pairs)
        keys << pair.first;
    return keys;
}
