#include "pgcopyrows.h"

#include <QByteArray>
#include <QList>
#include <QPair>

#include <libpq-fe.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "datasource/odbcsettings.h"
#include "util/apperror.h"

namespace {

// Below this the second connection costs more than the faster read saves.
constexpr qint64 kMinimumRows = 10000;

// How a column's COPY text becomes the driver's text.
enum class Form
{
    AsIs,      // text, numbers written as integers, ISO dates
    Double,    // read as a double, as the driver hands numeric and floating columns over
    Boolean,   // t / f -> 1 / 0
    Timestamp, // no fraction; midnight as the date alone
    Time,      // no fraction
    Bytes      // \x hex -> the bytes' text
};

// Type oids from the server's catalogue (pg_type.dat); anything else takes the ODBC route.
bool formOf(Oid type, Form& form)
{
    switch (type) {
    case 25:   // text
    case 1043: // varchar
    case 1042: // bpchar
    case 19:   // name
    case 21:   // int2
    case 23:   // int4
    case 20:   // int8
    case 26:   // oid
    case 1082: // date
        form = Form::AsIs;
        return true;
    case 700:  // float4
    case 701:  // float8
    case 1700: // numeric
        form = Form::Double;
        return true;
    case 16:
        form = Form::Boolean;
        return true;
    case 1114:
        form = Form::Timestamp;
        return true;
    case 1083:
        form = Form::Time;
        return true;
    case 17:
        form = Form::Bytes;
        return true;
    default:
        return false;
    }
}

bool isPostgresDriver(const QString& driver)
{
    return driver.contains(QLatin1String("postgres"), Qt::CaseInsensitive) ||
           driver.contains(QLatin1String("psqlodbc"), Qt::CaseInsensitive);
}

// libpq's keywords for the driver's, from the string and, under it, its data source.
bool connectionParameters(const QString& conString, std::vector<std::string>& keys,
                          std::vector<std::string>& values)
{
    OdbcSettings settings;
    if (!settings.read(conString))
        return false;
    auto value = [&](const QStringList& names) { return settings.value(names); };
    if (!isPostgresDriver(value({QStringLiteral("Driver")})))
        return false;
    // Statements or options the driver sends on connecting could change what a query
    // reads (a search path, say): such connections keep to the driver.
    if (!value({QStringLiteral("ConnSettings")}).isEmpty() ||
        !value({QStringLiteral("pqopt")}).isEmpty())
        return false;
    const QList<QPair<const char*, QStringList>> map = {
        {"host", {QStringLiteral("Servername"), QStringLiteral("Server")}},
        {"port", {QStringLiteral("Port")}},
        {"dbname", {QStringLiteral("Database")}},
        {"user", {QStringLiteral("Username"), QStringLiteral("UID"), QStringLiteral("User")}},
        {"password", {QStringLiteral("Password"), QStringLiteral("PWD")}},
        {"sslmode", {QStringLiteral("SSLmode"), QStringLiteral("SSLMode")}},
    };
    for (const auto& [key, names] : map) {
        const QString v = value(names);
        if (!v.isEmpty()) {
            keys.emplace_back(key);
            values.push_back(v.toStdString());
        }
    }
    keys.emplace_back("client_encoding");
    values.emplace_back("UTF8");
    keys.emplace_back("application_name");
    values.emplace_back("dbimport");
    return true;
}

QString failureText(PGconn* connection)
{
    return QString::number(AppError::DataSource) + QStringLiteral(" - ") +
           QString::fromUtf8(PQerrorMessage(connection)).trimmed();
}

bool run(PGconn* connection, const char* sql)
{
    PGresult* result = PQexec(connection, sql);
    const bool ok = PQresultStatus(result) == PGRES_COMMAND_OK;
    PQclear(result);
    return ok;
}

class CopyRows final : public Utf8SourceRows
{
public:
    CopyRows(PGconn* connection, std::vector<Form> forms, QStringList names)
        : Utf8SourceRows(std::move(names)), m_connection(connection), m_forms(std::move(forms)),
          m_fields(m_forms.size()), m_null(m_forms.size())
    {}
    ~CopyRows() override
    {
        if (m_line)
            PQfreemem(m_line);
        // Never committed: closing ends the transaction without a trace.
        PQfinish(m_connection);
    }

    bool next() override
    {
        if (m_done)
            return false;
        if (m_line) {
            PQfreemem(m_line);
            m_line = nullptr;
        }
        const int size = PQgetCopyData(m_connection, &m_line, 0);
        if (size >= 0) {
            split(m_line, std::size_t(size));
            return true;
        }
        m_done = true;
        if (size == -1) {
            PGresult* result = PQgetResult(m_connection);
            const bool ok = PQresultStatus(result) == PGRES_COMMAND_OK;
            PQclear(result);
            if (ok)
                return false;
        }
        throw SourceFailure{failureText(m_connection)};
    }

    bool movable() const override { return true; } // a libpq connection of its own

    void utf8(int index, std::string& out) const override
    {
        const std::size_t i = std::size_t(index);
        if (index < 0 || i >= m_fields.size() || m_null[i]) {
            out.clear();
            return;
        }
        const std::string& raw = m_fields[i];
        switch (m_forms[i]) {
        case Form::AsIs:
            out = raw;
            return;
        case Form::Double:
            out = SourceDoubleText(std::strtod(raw.c_str(), nullptr)).toStdString();
            return;
        case Form::Boolean:
            out = raw == "t" ? "1" : "0";
            return;
        case Form::Timestamp: {
            // "yyyy-mm-dd hh:mm:ss[.ffffff]"
            out = raw.substr(0, raw.find('.'));
            const std::size_t blank = out.find(' ');
            const bool midnight = blank != std::string::npos &&
                                  out.compare(blank + 1, std::string::npos, "00:00:00") == 0 &&
                                  wholeMilliseconds(raw) == 0;
            if (midnight)
                out.resize(blank);
            return;
        }
        case Form::Time:
            out = raw.substr(0, raw.find('.'));
            return;
        case Form::Bytes: {
            const QByteArray bytes = QByteArray::fromHex(
                QByteArray::fromRawData(raw.data(), qsizetype(raw.size())).mid(2));
            out = SourceBlobText(bytes).toStdString();
            return;
        }
        }
    }

private:
    // The first three digits of a fraction of a second, as the driver keeps them.
    static int wholeMilliseconds(const std::string& raw)
    {
        const std::size_t dot = raw.find('.');
        if (dot == std::string::npos)
            return 0;
        int ms = 0;
        for (std::size_t i = dot + 1; i < dot + 4; ++i)
            ms = ms * 10 + (i < raw.size() ? raw[i] - '0' : 0);
        return ms;
    }

    // One line of COPY's text format: tab between fields, \N for NULL, backslash escapes.
    void split(const char* line, std::size_t size)
    {
        if (size > 0 && line[size - 1] == '\n')
            --size;
        std::size_t field = 0;
        for (auto& f : m_fields)
            f.clear();
        std::fill(m_null.begin(), m_null.end(), false);
        std::string* target = m_fields.empty() ? nullptr : &m_fields[0];
        for (std::size_t i = 0; i < size; ++i) {
            const char c = line[i];
            if (c == '\t') {
                ++field;
                target = field < m_fields.size() ? &m_fields[field] : nullptr;
                continue;
            }
            if (!target)
                continue;
            if (c != '\\' || i + 1 >= size) {
                target->push_back(c);
                continue;
            }
            const char e = line[++i];
            switch (e) {
            case 'N':
                m_null[field] = true;
                break;
            case 'b':
                target->push_back('\b');
                break;
            case 'f':
                target->push_back('\f');
                break;
            case 'n':
                target->push_back('\n');
                break;
            case 'r':
                target->push_back('\r');
                break;
            case 't':
                target->push_back('\t');
                break;
            case 'v':
                target->push_back('\v');
                break;
            default:
                target->push_back(e);
                break;
            }
        }
    }

    PGconn* m_connection;
    std::vector<Form> m_forms;
    std::vector<std::string> m_fields;
    std::vector<char> m_null;
    char* m_line = nullptr;
    bool m_done = false;
};

} // namespace

bool PgCopyRows::pays(qint64 rowCount)
{
    return rowCount >= kMinimumRows;
}

std::unique_ptr<SourceRows> PgCopyRows::open(const QString& conString, const QString& sql)
{
    std::vector<std::string> keys, values;
    if (!connectionParameters(conString, keys, values))
        return nullptr;
    std::vector<const char*> keyList, valueList;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        keyList.push_back(keys[i].c_str());
        valueList.push_back(values[i].c_str());
    }
    keyList.push_back(nullptr);
    valueList.push_back(nullptr);
    PGconn* connection = PQconnectdbParams(keyList.data(), valueList.data(), 0);
    auto giveUp = [&]() -> std::unique_ptr<SourceRows> {
        PQfinish(connection);
        return nullptr;
    };
    if (PQstatus(connection) != CONNECTION_OK)
        return giveUp();
    if (!run(connection, "BEGIN TRANSACTION READ ONLY") ||
        !run(connection, "SET LOCAL DateStyle = ISO, YMD") ||
        !run(connection, "SET LOCAL bytea_output = hex"))
        return giveUp();

    QString inner = sql.trimmed();
    while (inner.endsWith(QLatin1Char(';')))
        inner = inner.chopped(1).trimmed();
    // A statement that is not a single query fails to prepare: the ODBC route reports it.
    const QByteArray query = inner.toUtf8();
    PGresult* prepared = PQprepare(connection, "", query.constData(), 0, nullptr);
    const bool preparedOk = PQresultStatus(prepared) == PGRES_COMMAND_OK;
    PQclear(prepared);
    if (!preparedOk)
        return giveUp();
    PGresult* described = PQdescribePrepared(connection, "");
    if (PQresultStatus(described) != PGRES_COMMAND_OK) {
        PQclear(described);
        return giveUp();
    }
    std::vector<Form> forms;
    QStringList names;
    for (int i = 0; i < PQnfields(described); ++i) {
        Form form;
        if (!formOf(PQftype(described, i), form)) {
            PQclear(described);
            return giveUp();
        }
        forms.push_back(form);
        names << QString::fromUtf8(PQfname(described, i));
    }
    PQclear(described);

    PGresult* copy =
        PQexec(connection, (QByteArrayLiteral("COPY (") + query + ") TO STDOUT").constData());
    const bool copying = PQresultStatus(copy) == PGRES_COPY_OUT;
    PQclear(copy);
    if (!copying)
        return giveUp();
    return std::make_unique<CopyRows>(connection, std::move(forms), std::move(names));
}
