// The connection-string parser and resolver, and the stored form of a connection string:
// what is scrambled must unscramble to itself.
#include <QString>

#include <cstdint>
#include <cstdlib>

#include "datasource/connectionstring.h"
#include "util/modApplication.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(bytes), qsizetype(size));

    QList<QPair<QString, QString>> pairs;
    QString message;
    const bool parsed = ParseConnectionString(text, pairs, message);
    if (!parsed && message.isEmpty())
        abort();
    for (const auto& pair : pairs) {
        if (pair.first.isEmpty())
            abort();
    }

    ConnectionTarget target;
    if (ResolveConnectionString(text, target, message)) {
        if (target.driver != QLatin1String("QSQLITE") && target.driver != QLatin1String("QODBC"))
            abort();
        // ODBC reads only braces as quoting, so quotes in what goes on to the driver
        // manager are plain text: the string is only checked for the rewriting Qt needs.
        if (target.driver == QLatin1String("QODBC") &&
            QtOdbcDatabaseName(target.databaseName).isEmpty() != target.databaseName.isEmpty())
            abort();
    } else if (message.isEmpty()) {
        abort();
    }

    const QString stored = ScrambleConString(text);
    if (!stored.isEmpty() && (stored.size() != text.size() || UnscrambleConString(stored) != text))
        abort();
    return 0;
}
