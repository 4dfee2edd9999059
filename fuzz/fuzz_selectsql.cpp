// The SELECT statements built from a table and a rule list, on arbitrary names, operators
// and values, and the read-only check on what they build and on arbitrary text.
#include <QString>
#include <QStringList>

#include <cstdint>
#include <cstdlib>

#include "datasource/readonlyguard.h"
#include "query/crules.h"
#include "query/selectsql.h"
#include "util/apperror.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(bytes), qsizetype(size));
    // Pieces separated by a control character: the table, then five per rule.
    const QStringList pieces = text.split(QChar(0x1F));
    const QString table = pieces.value(0);
    CRules rules;
    for (qsizetype i = 1; i + 4 < pieces.size(); i += 5) {
        try {
            rules.Add(pieces.at(i), pieces.at(i + 1), pieces.at(i + 2), pieces.at(i + 3),
                      pieces.at(i + 4));
        } catch (const AppError&) {
            // A rule whose key is already listed is refused; the list goes on without it.
        }
    }

    const QString select = BuildSelectSQL(table, rules);
    const QString import = BuildImportSQL(table, rules);
    if (!select.startsWith(QLatin1String("select * from ")) ||
        !import.startsWith(QLatin1String("select * from ")))
        abort();
    // The two differ only in the blank before the first condition.
    if (rules.Count() > 0 && import.size() != select.size() + 1)
        abort();
    if (rules.Count() == 0 && import != select)
        abort();
    const CRule* first = rules.Item(1);
    if (first)
        (void)BuildTestSQL(table, first->FieldName, first->OpSQL, first->Value);

    QString message;
    (void)CheckReadOnlyStatement(text, message);

    // Names quoted for PostgreSQL hold anything but a backslash (which MySQL's reading of a
    // quote would take as an escape): with plain operators and numbers as values the
    // statement is one that only reads, and a second one added after it is always seen.
    if (table.contains(u'\\') || table.trimmed().isEmpty())
        return 0;
    CRules plain;
    static const char* const ops[] = {"=", "!=", "<", ">", "like"};
    int n = 0;
    for (const CRule& rule : rules) {
        if (rule.FieldName.contains(u'\\'))
            return 0;
        try {
            plain.Add(rule.FieldName, rule.OpDisplay, QLatin1String(ops[n % 5]), QString::number(n),
                      n % 2 ? QStringLiteral("Or") : QStringLiteral("And"));
        } catch (const AppError&) {
        }
        ++n;
    }
    const QString quoted = BuildImportSQL(table, plain, QStringLiteral("\""));
    if (!CheckReadOnlyStatement(quoted, message))
        abort();
    if (CheckReadOnlyStatement(quoted + QStringLiteral("; DELETE FROM t"), message))
        abort();
    return 0;
}
