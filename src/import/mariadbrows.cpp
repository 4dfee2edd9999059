#include "mariadbrows.h"

#include <QByteArray>
#include <QDate>
#include <QDateTime>
#include <QList>
#include <QPair>
#include <QTime>

#include <mysql.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "datasource/odbcsettings.h"
#include "util/apperror.h"

namespace {

// Below this the second connection costs more than the faster read saves.
constexpr qint64 kMinimumRows = 10000;

// The driver's text of a FLOAT is the client library's in this many characters: the width
// decides between fixed and exponent form ("1e8", "-1.5e-10") and how many digits stay.
constexpr std::size_t kFloatWidth = 8;

// The decimals the server gives a floating column without fixed ones.
constexpr unsigned kFloatingDecimals = 31;

// The collation number the server gives columns of bytes.
constexpr unsigned kBinaryCharset = 63;

// How a column's value becomes the text the driver and Qt's ODBC plugin make of it. The
// driver runs every statement as a prepared one, so values arrive in the binary protocol
// just as they do here.
enum class Form
{
    Text,     // UTF-8 text; the plugin ends it at the first NUL
    Bytes,    // the bytes' text (UTF-8 or hex)
    Signed,   // decimal
    Unsigned, // decimal
    Tiny,     // the plugin reads TINYINT as a 32-bit unsigned number: -5 -> 4294967291
    Bit,      // BIT(1), read as a number: 0 / 1
    Double,   // double and decimal columns, read as a double
    Float,    // FLOAT, which the plugin takes as the library's text of it
    Date,
    DateTime, // no fraction; midnight as the date alone
    Time      // hours of the day only; the sign is dropped
};

bool formOf(const MYSQL_FIELD& field, Form& form, enum_field_types& bound)
{
    const bool isUnsigned = field.flags & UNSIGNED_FLAG;
    const bool binary = field.charsetnr == kBinaryCharset;
    bound = MYSQL_TYPE_STRING;
    switch (field.type) {
    case MYSQL_TYPE_TINY:
        form = isUnsigned ? Form::Unsigned : Form::Tiny;
        bound = MYSQL_TYPE_LONGLONG;
        return true;
    case MYSQL_TYPE_SHORT:
    case MYSQL_TYPE_INT24:
    case MYSQL_TYPE_LONG:
    case MYSQL_TYPE_LONGLONG:
    case MYSQL_TYPE_YEAR:
        form = isUnsigned ? Form::Unsigned : Form::Signed;
        bound = MYSQL_TYPE_LONGLONG;
        return true;
    case MYSQL_TYPE_FLOAT:
        form = Form::Float;
        return true;
    case MYSQL_TYPE_DOUBLE:
    case MYSQL_TYPE_DECIMAL:
    case MYSQL_TYPE_NEWDECIMAL:
        form = Form::Double;
        bound = MYSQL_TYPE_DOUBLE;
        return true;
    case MYSQL_TYPE_DATE:
    case MYSQL_TYPE_NEWDATE:
        form = Form::Date;
        bound = MYSQL_TYPE_DATE;
        return true;
    case MYSQL_TYPE_DATETIME:
    case MYSQL_TYPE_TIMESTAMP:
        form = Form::DateTime;
        bound = MYSQL_TYPE_DATETIME;
        return true;
    case MYSQL_TYPE_TIME:
        form = Form::Time;
        bound = MYSQL_TYPE_TIME;
        return true;
    case MYSQL_TYPE_BIT:
        form = field.length == 1 ? Form::Bit : Form::Bytes;
        return true;
    case MYSQL_TYPE_STRING:
    case MYSQL_TYPE_VAR_STRING:
    case MYSQL_TYPE_VARCHAR:
    case MYSQL_TYPE_TINY_BLOB:
    case MYSQL_TYPE_BLOB:
    case MYSQL_TYPE_MEDIUM_BLOB:
    case MYSQL_TYPE_LONG_BLOB:
    case MYSQL_TYPE_ENUM:
    case MYSQL_TYPE_SET:
        form = binary ? Form::Bytes : Form::Text;
        return true;
    case MYSQL_TYPE_NULL:
        form = Form::Text;
        return true;
    default: // geometry, MySQL's JSON and anything newer
        return false;
    }
}

bool isMariaDbDriver(const QString& driver)
{
    return driver.contains(QLatin1String("mariadb"), Qt::CaseInsensitive) ||
           driver.contains(QLatin1String("maodbc"), Qt::CaseInsensitive);
}

struct Target
{
    QByteArray host, user, password, database, socket;
    unsigned port = 0;
    bool tcp = false;
};

// The client library's settings for the driver's, from the string and, under it, its data
// source. A setting the driver would act on that this route does not know (an option mask,
// TLS, a statement run on connecting, another character set) keeps the read on the driver.
bool connectionTarget(const QString& conString, Target& target)
{
    OdbcSettings settings;
    if (!settings.read(conString))
        return false;
    auto value = [&](const QStringList& names) { return settings.value(names); };
    if (!isMariaDbDriver(value({QStringLiteral("Driver")})))
        return false;

    static const QStringList known = {
        QStringLiteral("DSN"),      QStringLiteral("Driver"), QStringLiteral("Description"),
        QStringLiteral("Server"),   QStringLiteral("Host"),   QStringLiteral("Port"),
        QStringLiteral("Database"), QStringLiteral("DB"),     QStringLiteral("UID"),
        QStringLiteral("User"),     QStringLiteral("PWD"),    QStringLiteral("Password"),
        QStringLiteral("Socket"),   QStringLiteral("TCPIP"),  QStringLiteral("Option"),
        QStringLiteral("Options"),  QStringLiteral("CharSet")};
    for (const QString& key : settings.keys()) {
        if (!known.contains(key, Qt::CaseInsensitive))
            return false;
    }
    const QString options = value({QStringLiteral("Option"), QStringLiteral("Options")});
    if (!options.isEmpty() && options != QLatin1String("0"))
        return false;
    const QString charset = value({QStringLiteral("CharSet")});
    if (!charset.isEmpty() && charset.compare(QLatin1String("utf8mb4"), Qt::CaseInsensitive) != 0)
        return false;

    target.host = value({QStringLiteral("Server"), QStringLiteral("Host")}).toUtf8();
    target.user = value({QStringLiteral("UID"), QStringLiteral("User")}).toUtf8();
    target.password = value({QStringLiteral("PWD"), QStringLiteral("Password")}).toUtf8();
    target.database = value({QStringLiteral("Database"), QStringLiteral("DB")}).toUtf8();
    target.socket = value({QStringLiteral("Socket")}).toUtf8();
    target.port = value({QStringLiteral("Port")}).toUInt();
    target.tcp = value({QStringLiteral("TCPIP")}) == QLatin1String("1");
    return true;
}

bool run(MYSQL* connection, const char* sql)
{
    return mysql_real_query(connection, sql, (unsigned long)std::strlen(sql)) == 0;
}

template <class Number> void assignNumber(std::string& out, Number value)
{
    char buffer[24];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    out.assign(buffer, end);
}

class StreamRows final : public Utf8SourceRows
{
public:
    struct Column
    {
        Form form;
        enum_field_types bound;
        bool narrow = false; // a FLOAT without fixed decimals, read in kFloatWidth
        std::string data;    // bytes of a column read as text or bytes
        MYSQL_TIME time{};
        long long number = 0;
        double real = 0;
        unsigned long length = 0;
        my_bool null = 0;
        my_bool error = 0;
    };

    StreamRows(MYSQL* connection, MYSQL_STMT* statement, std::vector<Column> columns,
               QStringList names)
        : Utf8SourceRows(std::move(names)), m_connection(connection), m_statement(statement),
          m_columns(std::move(columns)), m_binds(m_columns.size())
    {
        for (Column& column : m_columns) {
            if (column.bound == MYSQL_TYPE_STRING)
                column.data.resize(column.narrow ? kFloatWidth : 256);
        }
        bind();
    }

    ~StreamRows() override
    {
        // Closing the connection first drops the rows not yet read instead of reading them
        // all off the wire, and ends the transaction without a commit.
        mysql_close(m_connection);
        mysql_stmt_close(m_statement);
    }

    bool bound() const { return m_bound; }

    bool next() override
    {
        if (m_done)
            return false;
        const int rc = mysql_stmt_fetch(m_statement);
        if (rc == 0)
            return true;
        if (rc == MYSQL_NO_DATA) {
            m_done = true;
            return false;
        }
        if (rc == MYSQL_DATA_TRUNCATED && readLongValues())
            return true;
        m_done = true;
        const unsigned number = mysql_stmt_errno(m_statement);
        throw SourceFailure{QString::number(number ? long(number) : long(AppError::DataSource)) +
                            QStringLiteral(" - ") +
                            QString::fromUtf8(mysql_stmt_error(m_statement)).trimmed()};
    }

    bool movable() const override { return true; } // a client connection of its own

    void utf8(int index, std::string& out) const override
    {
        const std::size_t i = std::size_t(index);
        if (index < 0 || i >= m_columns.size() || m_columns[i].null) {
            out.clear();
            return;
        }
        const Column& c = m_columns[i];
        switch (c.form) {
        case Form::Text: {
            const void* nul = std::memchr(c.data.data(), '\0', c.length);
            out.assign(c.data.data(),
                       nul ? static_cast<const char*>(nul) - c.data.data() : std::size_t(c.length));
            return;
        }
        case Form::Float:
            out.assign(c.data.data(), std::min(std::size_t(c.length), c.data.size()));
            return;
        case Form::Bytes:
            out = SourceBlobText(QByteArray::fromRawData(c.data.data(), qsizetype(c.length)))
                      .toStdString();
            return;
        case Form::Signed:
            assignNumber(out, c.number);
            return;
        case Form::Unsigned:
            assignNumber(out, static_cast<unsigned long long>(c.number));
            return;
        case Form::Tiny:
            assignNumber(out, static_cast<quint32>(c.number));
            return;
        case Form::Bit:
            out = c.length > 0 && c.data[0] ? "1" : "0";
            return;
        case Form::Double:
            out = SourceDoubleText(c.real).toStdString();
            return;
        case Form::Date:
            out.clear();
            if (QDate::isValid(int(c.time.year), int(c.time.month), int(c.time.day)))
                out = QDate(int(c.time.year), int(c.time.month), int(c.time.day))
                          .toString(Qt::ISODate)
                          .toStdString();
            return;
        case Form::DateTime:
            dateTime(c.time, out);
            return;
        case Form::Time: {
            out.clear();
            if (c.time.hour > 23 || c.time.minute > 59 || c.time.second > 59)
                return;
            char buffer[16];
            std::snprintf(buffer, sizeof buffer, "%02u:%02u:%02u", c.time.hour, c.time.minute,
                          c.time.second);
            out = buffer;
            return;
        }
        }
    }

private:
    // As the plugin builds it, in local time: a time that a clock change skips is no time.
    static void dateTime(const MYSQL_TIME& t, std::string& out)
    {
        const QDateTime dt(
            QDate(int(t.year), int(t.month), int(t.day)),
            QTime(int(t.hour), int(t.minute), int(t.second), int(t.second_part / 1000)));
        out = (dt.time() == QTime(0, 0) ? dt.date().toString(Qt::ISODate)
                                        : dt.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")))
                  .toStdString();
    }

    void bind()
    {
        for (std::size_t i = 0; i < m_columns.size(); ++i) {
            Column& c = m_columns[i];
            MYSQL_BIND& b = m_binds[i];
            std::memset(&b, 0, sizeof b);
            b.buffer_type = c.bound;
            b.length = &c.length;
            b.is_null = &c.null;
            b.error = &c.error;
            switch (c.bound) {
            case MYSQL_TYPE_LONGLONG:
                b.buffer = &c.number;
                b.is_unsigned = c.form == Form::Unsigned;
                break;
            case MYSQL_TYPE_DOUBLE:
                b.buffer = &c.real;
                break;
            case MYSQL_TYPE_DATE:
            case MYSQL_TYPE_DATETIME:
            case MYSQL_TYPE_TIME:
                b.buffer = &c.time;
                break;
            default:
                b.buffer = c.data.data();
                b.buffer_length = (unsigned long)c.data.size();
                break;
            }
        }
        m_bound = mysql_stmt_bind_result(m_statement, m_binds.data()) == 0;
    }

    // The rest of each value longer than its buffer; the buffers grow for the rows after.
    bool readLongValues()
    {
        bool grown = false;
        for (std::size_t i = 0; i < m_columns.size(); ++i) {
            Column& c = m_columns[i];
            if (c.bound != MYSQL_TYPE_STRING || c.narrow || c.null || c.length <= c.data.size())
                continue;
            const std::size_t had = c.data.size();
            c.data.resize(std::size_t(c.length) + 1);
            MYSQL_BIND rest;
            std::memset(&rest, 0, sizeof rest);
            unsigned long restLength = 0;
            rest.buffer_type = MYSQL_TYPE_STRING;
            rest.buffer = c.data.data() + had;
            rest.buffer_length = (unsigned long)(c.data.size() - had);
            rest.length = &restLength;
            if (mysql_stmt_fetch_column(m_statement, &rest, unsigned(i), had) != 0)
                return false;
            grown = true;
        }
        if (grown)
            bind();
        return m_bound;
    }

    MYSQL* m_connection;
    MYSQL_STMT* m_statement;
    std::vector<Column> m_columns;
    std::vector<MYSQL_BIND> m_binds;
    bool m_bound = false;
    bool m_done = false;
};

} // namespace

bool MariaDbRows::pays(qint64 rowCount)
{
    return rowCount >= kMinimumRows;
}

std::unique_ptr<SourceRows> MariaDbRows::open(const QString& conString, const QString& sql)
{
    QString inner = sql.trimmed();
    while (inner.endsWith(QLatin1Char(';')))
        inner = inner.chopped(1).trimmed();
    // The driver rewrites ODBC escapes ("{fn ...}", "{d ...}") before the server sees them.
    if (inner.contains(QLatin1Char('{')))
        return nullptr;
    Target target;
    if (!connectionTarget(conString, target))
        return nullptr;

    MYSQL* connection = mysql_init(nullptr);
    if (!connection)
        return nullptr;
    MYSQL_STMT* statement = nullptr;
    auto giveUp = [&]() -> std::unique_ptr<SourceRows> {
        mysql_close(connection);
        if (statement)
            mysql_stmt_close(statement);
        return nullptr;
    };
    mysql_options(connection, MYSQL_SET_CHARSET_NAME, "utf8mb4");
    const unsigned int noLocalFiles = 0;
    mysql_options(connection, MYSQL_OPT_LOCAL_INFILE, &noLocalFiles);
    if (target.tcp) {
        const unsigned int tcp = MYSQL_PROTOCOL_TCP;
        mysql_options(connection, MYSQL_OPT_PROTOCOL, &tcp);
    }
    auto orNull = [](const QByteArray& v) { return v.isEmpty() ? nullptr : v.constData(); };
    if (!mysql_real_connect(connection, orNull(target.host), orNull(target.user),
                            orNull(target.password), orNull(target.database), target.port,
                            orNull(target.socket), 0))
        return giveUp();
    // The server stops writing to a reader that pauses longer than net_write_timeout, and
    // an import pauses for as long as a question to the user stays open.
    if (!run(connection, "SET SESSION net_write_timeout = 86400") ||
        !run(connection, "SET SESSION TRANSACTION READ ONLY") ||
        !run(connection, "START TRANSACTION READ ONLY"))
        return giveUp();

    const QByteArray query = inner.toUtf8();
    statement = mysql_stmt_init(connection);
    // A statement that is not a single query fails to prepare, and one with no columns or
    // with parameters is none the import reads: the ODBC route reports what it is.
    if (!statement ||
        mysql_stmt_prepare(statement, query.constData(), (unsigned long)query.size()) != 0 ||
        mysql_stmt_param_count(statement) != 0 || mysql_stmt_field_count(statement) == 0 ||
        mysql_stmt_execute(statement) != 0)
        return giveUp();
    MYSQL_RES* metadata = mysql_stmt_result_metadata(statement);
    if (!metadata)
        return giveUp();
    std::vector<StreamRows::Column> columns;
    QStringList names;
    const MYSQL_FIELD* fields = mysql_fetch_fields(metadata);
    for (unsigned i = 0; i < mysql_num_fields(metadata); ++i) {
        StreamRows::Column column{};
        if (!formOf(fields[i], column.form, column.bound)) {
            mysql_free_result(metadata);
            return giveUp();
        }
        // Fixed decimals are written out in full whatever the width.
        column.narrow = column.form == Form::Float && fields[i].decimals >= kFloatingDecimals;
        columns.push_back(std::move(column));
        names << QString::fromUtf8(fields[i].name);
    }
    mysql_free_result(metadata);
    auto rows =
        std::make_unique<StreamRows>(connection, statement, std::move(columns), std::move(names));
    if (!rows->bound())
        return nullptr; // the rows' destructor closed both
    return rows;
}
