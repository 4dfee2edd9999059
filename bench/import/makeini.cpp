// dbimport-bench-makeini INI NAME SOURCE.db GROUP
// Adds connection NAME (the SQLite file SOURCE.db) to the settings file INI and saves
// choices for it that import table Contacts (from dbimport-gensource) into GROUP, every
// column that has a Group field mapped, through the same routines the wizard uses.
#include <QCoreApplication>
#include <QTextStream>

#include "app/connectionstore.h"
#include "app/importsettings.h"
#include "import/importchoices.h"
#include "util/appglobals.h"

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream err(stderr);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 5) {
        err << "Usage: dbimport-bench-makeini INI NAME SOURCE.db GROUP\n";
        return 2;
    }
    SetIniFilePath(args.at(1));
    const QString conString = QStringLiteral("Provider=SQLite;Data Source=") + args.at(3);
    QString message;
    if (!MaintainDSN(args.at(2), conString, ConnectionAction::Add, message)) {
        err << message << "\n";
        return 1;
    }
    ImportChoices choices;
    choices.DSNName = args.at(2);
    choices.ConnectionString = conString;
    choices.SelectedTable = QStringLiteral("Contacts");
    const QList<QPair<const char*, const char*>> mappings = {
        {"EMailAddress", "Email"},  {"Title", "Title"},
        {"FirstName", "FirstName"}, {"Initial", "Initial"},
        {"LastName", "LastName"},   {"Address1", "Address1"},
        {"Address2", "Address2"},   {"City", "City"},
        {"State", "State"},         {"Zip", "Zip"},
        {"Country", "Country"},     {"Company", "Company"},
        {"JobTitle", "JobTitle"},   {"Web", "Web"},
        {"Telephone", "Telephone"}, {"Fax", "Fax"},
    };
    for (const auto& m : mappings)
        choices.FieldMappings.Add(QString::fromLatin1(m.first), QString::fromLatin1(m.second));
    choices.VTGroup = args.at(4);
    long number = 0;
    if (!SaveImportSettings(choices, number, message)) {
        err << message << "\n";
        return 1;
    }
    return 0;
}
