// dbimport-bench-makeini INI NAME SOURCE GROUP [MAPPING [TABLE]]
// Adds connection NAME to the settings file INI and saves choices for it that import table
// TABLE (default Contacts, as dbimport-gensource writes it) into GROUP, through the same
// routines the wizard uses. SOURCE is a SQLite file, or a whole connection string when it
// holds a '='. MAPPING: "standard" (default; every column that has a Group field of its
// name), "narrow" (e-mail, first and last name, city, telephone) or "wide" (standard plus
// Notes, Joined, Score and Active into Field1 to Field4: every Group field is written).
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
    const QString mapping = args.size() > 5 ? args.at(5) : QStringLiteral("standard");
    if (args.size() < 5 || args.size() > 7 ||
        !QStringList{QStringLiteral("standard"), QStringLiteral("narrow"), QStringLiteral("wide")}
             .contains(mapping)) {
        err << "Usage: dbimport-bench-makeini INI NAME SOURCE GROUP [standard|narrow|wide "
               "[TABLE]]\n";
        return 2;
    }
    SetIniFilePath(args.at(1));
    const QString conString = args.at(3).contains(QLatin1Char('='))
                                  ? args.at(3)
                                  : QStringLiteral("Provider=SQLite;Data Source=") + args.at(3);
    QString message;
    if (!MaintainDSN(args.at(2), conString, ConnectionAction::Add, message)) {
        err << message << "\n";
        return 1;
    }
    ImportChoices choices;
    choices.DSNName = args.at(2);
    choices.ConnectionString = conString;
    choices.SelectedTable = args.size() > 6 ? args.at(6) : QStringLiteral("Contacts");
    QList<QPair<const char*, const char*>> mappings = {
        {"EMailAddress", "Email"},  {"Title", "Title"},
        {"FirstName", "FirstName"}, {"Initial", "Initial"},
        {"LastName", "LastName"},   {"Address1", "Address1"},
        {"Address2", "Address2"},   {"City", "City"},
        {"State", "State"},         {"Zip", "Zip"},
        {"Country", "Country"},     {"Company", "Company"},
        {"JobTitle", "JobTitle"},   {"Web", "Web"},
        {"Telephone", "Telephone"}, {"Fax", "Fax"},
    };
    if (mapping == QLatin1String("narrow")) {
        mappings = {{"EMailAddress", "Email"},
                    {"FirstName", "FirstName"},
                    {"LastName", "LastName"},
                    {"City", "City"},
                    {"Telephone", "Telephone"}};
    } else if (mapping == QLatin1String("wide")) {
        mappings +=
            {{"Field1", "Notes"}, {"Field2", "Joined"}, {"Field3", "Score"}, {"Field4", "Active"}};
    }
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
