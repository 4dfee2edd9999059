#include "importsettings.h"

#include "import/importchoices.h"

#include "inikeys.h"
#include "util/blanks.h"
#include "util/apperror.h"
#include "util/appglobals.h"
#include "util/modApplication.h"
#include "util/nativepath.h"
#include "util/profilefile.h"

namespace {

constexpr int kEntries = 50;
const QString kLineBreak = QStringLiteral("\r\n");
const QString kNotSign = QString(QChar(0x00AC)); // "¬", one byte in the settings file

QString read(const QString& section, const QString& key)
{
    return ReadIniString(IniFilePath(), section, key, QString());
}

void write(const QString& section, const QString& key, const QString& value)
{
    WriteIniString(IniFilePath(), section, key, value);
}

// The connection's slot in [DSN], its name compared trimmed and without regard to case;
// 0 when no slot holds it.
int findSlot(const QString& connectionName)
{
    const QString wanted = TrimBlanks(connectionName).toUpper();
    for (int n = 1; n <= kEntries; ++n) {
        if (TrimBlanks(read(QStringLiteral("DSN"), numbered("DSNName", n))).toUpper() == wanted)
            return n;
    }
    return 0;
}

void requireStorable(const ImportChoices& choices)
{
    requireStorable(QStringLiteral("table name"), choices.SelectedTable);
    requireStorable(QStringLiteral("SQL statement"), choices.AdvancedSQLString);
    requireStorable(QStringLiteral("Group name"), choices.VTGroup);
    for (int j = 1; j <= qMin(choices.FieldMappings.Count(), kEntries); ++j) {
        const CMapping* mapping = choices.FieldMappings.Item(j);
        requireStorable(QStringLiteral("field mapping"), mapping->VTField + mapping->DBField);
    }
    for (int j = 1; j <= qMin(choices.Rules.Count(), kEntries); ++j) {
        const CRule* rule = choices.Rules.Item(j);
        requireStorable(QStringLiteral("filter rule"), rule->key() + rule->OpSQL);
    }
}

// Surplus entries of an earlier, longer list are blanked so that a load stops where this
// save ended; keys already blank are not written again.
void blankIfSet(const QString& section, const QString& key)
{
    if (!TrimBlanks(read(section, key)).isEmpty())
        write(section, key, QString());
}

} // namespace

bool SaveImportSettings(ImportChoices& choices, long& errorNumber, QString& message)
{
    try {
        const int n = findSlot(choices.DSNName);
        if (n == 0) {
            errorNumber = 0;
            message = QStringLiteral("DSN not found, cannot save associated data.");
            return false;
        }

        requireStorable(choices);
        // One replace of the file for the whole save.
        ProfileFile::WriteBatch batch(NativePath(IniFilePath()));

        const QString settings = numbered("DSN", n);
        write(settings, QStringLiteral("FilterMethod"), QString::number(choices.FilterMethod));
        write(settings, QStringLiteral("SelectedTable"), choices.SelectedTable);
        // A value is one line. The record keeps the replaced text: the import that follows
        // runs what was saved.
        choices.AdvancedSQLString.replace(kLineBreak, kNotSign);
        write(settings, QStringLiteral("AdvancedSQLString"), choices.AdvancedSQLString);
        write(settings, QStringLiteral("VTGroup"), choices.VTGroup);
        write(settings, QStringLiteral("ReplaceExisting"),
              choices.ReplaceExisting ? QStringLiteral("True") : QStringLiteral("False"));

        const QString fieldMap = numbered("FieldMap", n);
        const int mappingCount = choices.FieldMappings.Count();
        for (int j = 1; j <= kEntries; ++j) {
            if (j <= mappingCount) {
                const CMapping* mapping = choices.FieldMappings.Item(j);
                write(fieldMap, numbered("VTField", j), mapping->VTField);
                write(fieldMap, numbered("DBField", j), mapping->DBField);
            } else {
                blankIfSet(fieldMap, numbered("VTField", j));
                blankIfSet(fieldMap, numbered("DBField", j));
            }
        }

        // The profile reader drops a pair of quotes around a value, which would strip a
        // quoted text value bare; apostrophes are kept as "¬" and turned back on load.
        const QString rules = numbered("Rules", n);
        const int ruleCount = choices.Rules.Count();
        for (int j = 1; j <= kEntries; ++j) {
            if (j <= ruleCount) {
                const CRule* rule = choices.Rules.Item(j);
                write(rules, numbered("FieldName", j), rule->FieldName);
                write(rules, numbered("OpDisplay", j), rule->OpDisplay);
                write(rules, numbered("OpSQL", j), rule->OpSQL);
                write(rules, numbered("Value", j),
                      QString(rule->Value).replace(QLatin1Char('\''), kNotSign));
                write(rules, numbered("LogicalOp", j), rule->LogicalOp);
            } else {
                for (const char* key : {"FieldName", "OpDisplay", "OpSQL", "Value", "LogicalOp"})
                    blankIfSet(rules, numbered(key, j));
            }
        }
        batch.commit();
        return true;
    } catch (const AppError& e) {
        errorNumber = e.number();
        message = e.description();
        return false;
    }
}

bool LoadImportSettings(ImportChoices& choices, QString& message)
{
    try {
        const int n = findSlot(choices.DSNName);
        if (n == 0) {
            message = QStringLiteral("DSN not found, cannot load associated data.");
            return false;
        }

        const QString settings = numbered("DSN", n);
        choices.FilterMethod =
            TrimBlanks(read(settings, QStringLiteral("FilterMethod"))) == QLatin1String("1") ? 1
                                                                                             : 0;
        choices.SelectedTable = TrimBlanks(read(settings, QStringLiteral("SelectedTable")));
        choices.AdvancedSQLString = TrimBlanks(read(settings, QStringLiteral("AdvancedSQLString")))
                                        .replace(kNotSign, kLineBreak);
        choices.VTGroup = TrimBlanks(read(settings, QStringLiteral("VTGroup")));
        choices.ReplaceExisting =
            TrimBlanks(read(settings, QStringLiteral("ReplaceExisting"))).toUpper() ==
            QLatin1String("TRUE");

        // Entries without a database field are not restored: the mapping step shows those
        // host fields as "(blank)" anyway.
        const QString fieldMap = numbered("FieldMap", n);
        for (int j = 1; j <= kEntries; ++j) {
            const QString vtField = read(fieldMap, numbered("VTField", j));
            const QString dbField = read(fieldMap, numbered("DBField", j));
            if (TrimBlanks(vtField).isEmpty() && TrimBlanks(dbField).isEmpty())
                break;
            if (!TrimBlanks(dbField).isEmpty())
                choices.FieldMappings.Add(vtField, dbField);
        }

        const QString rules = numbered("Rules", n);
        for (int j = 1; j <= kEntries; ++j) {
            const QString logicalOp = read(rules, numbered("LogicalOp", j));
            const QString fieldName = read(rules, numbered("FieldName", j));
            const QString opDisplay = read(rules, numbered("OpDisplay", j));
            const QString opSQL = read(rules, numbered("OpSQL", j));
            const QString value =
                read(rules, numbered("Value", j)).replace(kNotSign, QStringLiteral("'"));
            if (TrimBlanks(fieldName).isEmpty())
                break;
            choices.Rules.Add(fieldName, opDisplay, opSQL, value, logicalOp);
        }
        return true;
    } catch (const AppError& e) {
        message = e.numberAndDescription();
        return false;
    }
}
