#include "connectionstore.h"

#include "inikeys.h"
#include "util/blanks.h"
#include "util/apperror.h"
#include "util/appglobals.h"
#include "util/modApplication.h"
#include "util/nativepath.h"
#include "util/profilefile.h"

namespace {

constexpr int kSlots = 50;
const QString kDsnSection = QStringLiteral("DSN");

QString readDsn(const QString& key)
{
    return ReadIniString(IniFilePath(), kDsnSection, key, QString());
}

void write(const QString& section, const QString& key, const QString& value)
{
    WriteIniString(IniFilePath(), section, key, value);
}

void writeSlot(int n, const QString& name, const QString& conString)
{
    const QString stored = ScrambleConString(conString);
    requireStorable(QStringLiteral("connection name"), name);
    requireStorable(QStringLiteral("connection string"), conString);
    // Stored empty, the connection would vanish from the list while its slot stays taken.
    if (stored.isEmpty())
        throw AppError(AppError::Encoding,
                       QStringLiteral("The connection string holds the character \u00FF "
                                      "(code 255), which has no stored form"));
    write(kDsnSection, numbered("DSNName", n), name);
    write(kDsnSection, numbered("DSNString", n), stored);
}

// Clears (never removes) everything kept for slot n, so that the next connection to
// take the slot starts without the old one's choices.
void clearSlot(int n)
{
    const QString file = IniFilePath();
    write(kDsnSection, numbered("DSNName", n), QString());
    write(kDsnSection, numbered("DSNString", n), QString());

    const QString choices = numbered("DSN", n);
    for (const char* key :
         {"FilterMethod", "SelectedTable", "AdvancedSQLString", "VTGroup", "ReplaceExisting"})
        write(choices, QLatin1String(key), QString());

    const QString fieldMap = numbered("FieldMap", n);
    for (int j = 1; j <= kSlots; ++j) {
        if (!ReadIniString(file, fieldMap, numbered("VTField", j), QString()).isEmpty())
            write(fieldMap, numbered("VTField", j), QString());
        if (!ReadIniString(file, fieldMap, numbered("DBField", j), QString()).isEmpty())
            write(fieldMap, numbered("DBField", j), QString());
    }

    const QString rules = numbered("Rules", n);
    for (int j = 1; j <= kSlots; ++j) {
        if (ReadIniString(file, rules, numbered("FieldName", j), QString()).isEmpty())
            continue;
        for (const char* key : {"FieldName", "OpDisplay", "OpSQL", "Value", "LogicalOp"})
            write(rules, numbered(key, j), QString());
    }
}

// Finds the slot and changes it; the writes go to the caller's batch.
void maintainSlots(const QString& name, const QString& conString, ConnectionAction action,
                   const QString& oldName, const QString& oldConString)
{
    // Names are matched as stored, case and blanks included; the lower slot wins when
    // two hold the same entry.
    for (int n = 1; n <= kSlots; ++n) {
        const QString storedName = readDsn(numbered("DSNName", n));
        if (storedName.isEmpty()) {
            if (action == ConnectionAction::Add) {
                writeSlot(n, name, conString);
                return;
            }
            continue;
        }
        if (action == ConnectionAction::Delete && storedName == name) {
            if (UnscrambleConString(readDsn(numbered("DSNString", n))) == conString) {
                clearSlot(n);
                return;
            }
        } else if (action == ConnectionAction::Modify && storedName == oldName) {
            if (UnscrambleConString(readDsn(numbered("DSNString", n))) == oldConString) {
                writeSlot(n, name, conString);
                return;
            }
        }
    }
}

} // namespace

bool MaintainDSN(const QString& name, const QString& conString, ConnectionAction action,
                 QString& errorMessage, const QString& oldName, const QString& oldConString)
{
    try {
        if (TrimBlanks(name).isEmpty() || TrimBlanks(conString).isEmpty()) {
            errorMessage = QStringLiteral("There is no database connection selected.");
            return false;
        }
        // One replace of the file for all the keys a delete clears.
        ProfileFile::WriteBatch batch(NativePath(IniFilePath()));
        maintainSlots(name, conString, action, oldName, oldConString);
        batch.commit();
        // A full store, or nothing to modify or delete: nothing changes and the caller
        // refreshes its list as after any success.
        return true;
    } catch (const AppError& e) {
        errorMessage = e.description() + QStringLiteral(" - MaintainDSN");
        return false;
    }
}

QList<DSNEntry> UpdateDSNListFromIni()
{
    QList<DSNEntry> rows;
    try {
        for (int n = 1; n <= kSlots; ++n) {
            const QString name = readDsn(numbered("DSNName", n));
            if (name.isEmpty())
                continue;
            const QString conString = UnscrambleConString(readDsn(numbered("DSNString", n)));
            if (!conString.isEmpty())
                rows.append({name, conString});
        }
    } catch (const AppError&) {
        // The rows read so far are still worth showing.
    }
    return rows;
}
