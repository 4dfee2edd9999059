#include "mariadbtestserver.h"
#include "pgtestserver.h"
#include "sqlitefixture.h"

#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <type_traits>

static int g_counter = 0;

template <class T> static constexpr bool isPg = std::is_same_v<T, PgTraits>;

// By driver path, so fixtures work with or without a test ODBC configuration.
template <class T>
static QString runOn(const TestServer<T>& s, const QString& db, const QStringList& statements,
                     QStringList* firstColumn = nullptr)
{
    const QString name = QStringLiteral("server-fixture-%1").arg(++g_counter);
    QString result;
    {
        QSqlDatabase conn = QSqlDatabase::addDatabase("QODBC", name);
        QString odbc = s.driverString(db);
        if constexpr (isPg<T>) {
            odbc.replace("{PostgreSQL Unicode}", "/usr/lib/x86_64-linux-gnu/odbc/psqlodbcw.so");
        } else { // the driver cannot parse a string that ends in ';' (see SourceConnection)
            odbc.replace("{MariaDB Unicode}", "/usr/lib/x86_64-linux-gnu/odbc/libmaodbc.so");
            odbc.chop(1);
        }
        conn.setDatabaseName(odbc);
        if (!conn.open())
            result = "cannot connect to " + db + ": " + conn.lastError().text();
        for (int i = 0; result.isEmpty() && i < statements.size(); ++i) {
            QSqlQuery query(conn);
            if (!query.exec(statements.at(i)))
                result = statements.at(i) + ": " + query.lastError().text();
            while (firstColumn && query.next())
                firstColumn->append(query.value(0).toString());
        }
    }
    QSqlDatabase::removeDatabase(name);
    return result;
}

template <class T> bool TestServer<T>::fromEnvironment(TestServer& server, QString& reason)
{
    const auto variable = [](const char* name) {
        const QByteArray full = QByteArray("DBIMPORT_TEST_") + T::prefix + '_' + name;
        return qEnvironmentVariable(full.constData());
    };
    server = {variable("HOST"), variable("DB"), variable("USER"), variable("PASSWORD"),
              variable("PORT").toInt()};
    reason = QStringLiteral("no %1 test server (DBIMPORT_TEST_%2_* not set); scripts/test.sh "
                            "starts one")
                 .arg(T::product, T::prefix);
    return !server.host.isEmpty() && server.port && !server.database.isEmpty() &&
           !server.user.isEmpty() && !server.password.isEmpty();
}

template <class T> QString TestServer<T>::driverString(const QString& db) const
{
    return QStringLiteral("Driver={%1 Unicode};Server=%2;Port=%3;Database=%4;%5=%6;%7={%8};")
        .arg(T::product, host, QString::number(port), db.isEmpty() ? database : db,
             isPg<T> ? "Uid" : "UID", user, isPg<T> ? "Pwd" : "PWD", password);
}

template <class T>
TestDatabase<T>::TestDatabase(const TestServer<T>& server)
    : m_server(server), m_name(QStringLiteral("dbimport_t%1_%2")
                                   .arg(QCoreApplication::applicationPid())
                                   .arg(++g_counter))
{
    m_error = runOn(server, server.database,
                    {"DROP DATABASE IF EXISTS " + m_name, "CREATE DATABASE " + m_name});
    if (!m_error.isEmpty())
        m_name.clear();
}

template <class T> TestDatabase<T>::~TestDatabase()
{
    if (!m_name.isEmpty())
        runOn(m_server, m_server.database,
              {"DROP DATABASE IF EXISTS " + m_name + (isPg<T> ? " WITH (FORCE)" : "")});
}

template <class T> QString TestDatabase<T>::run(const QStringList& statements) const
{
    return runOn(m_server, m_name, statements);
}

template <class T> QStringList TestDatabase<T>::column(const QString& query) const
{
    QStringList values;
    const QString error = runOn(m_server, m_name, {query}, &values);
    return error.isEmpty() ? values : QStringList{"<error>", error};
}

template struct TestServer<PgTraits>;
template struct TestServer<MariaDbTraits>;
template class TestDatabase<PgTraits>;
template class TestDatabase<MariaDbTraits>;

QStringList PgSampleCustomerStatements()
{
    QStringList statements = SampleCustomerStatements().mid(0, 4); // without the index
    statements.replaceInStrings("INTEGER PRIMARY KEY AUTOINCREMENT", "serial PRIMARY KEY");
    statements.replaceInStrings("BLOB", "bytea");
    statements.replaceInStrings("', 1)", "', true)").replaceInStrings("', 0)", "', false)");
    return statements;
}
