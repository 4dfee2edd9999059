// Times the settings-file work a user waits for: deleting a connection from a full store,
// and saving then loading a full set of choices. Prints the median of several runs.

#include "app/connectionstore.h"
#include "app/importsettings.h"
#include "import/importchoices.h"
#include "util/appglobals.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

QString shifted(const QString& ascii)
{
    QString out;
    for (QChar c : ascii)
        out += QChar(c.unicode() + 1);
    return out;
}

// A settings file of the given number of connections, each with its settings and the
// given numbers of mappings and rules.
QByteArray store(int connections, int mappings, int rules)
{
    QByteArray text = "[DSN]\r\n";
    for (int n = 1; n <= connections; ++n) {
        text += QString("DSNName%1=Connection %1\r\n").arg(n).toLatin1();
        text +=
            QString("DSNString%1=%2\r\n")
                .arg(n)
                .arg(shifted(QString("Provider=MSDASQL.1;Data Source=source%1;UID=user").arg(n)))
                .toLatin1();
    }
    for (int n = 1; n <= connections; ++n) {
        text += QString("[DSN%1]\r\nFilterMethod=0\r\nSelectedTable=Customer List\r\n"
                        "AdvancedSQLString=select *\u00ACfrom x\r\nVTGroup=Group %1\r\n"
                        "ReplaceExisting=True\r\n")
                    .arg(n)
                    .toLatin1();
        text += QString("[FieldMap%1]\r\n").arg(n).toLatin1();
        for (int j = 1; j <= mappings; ++j)
            text += QString("VTField%1=Host%1\r\nDBField%1=Column %1\r\n").arg(j).toLatin1();
        text += QString("[Rules%1]\r\n").arg(n).toLatin1();
        for (int j = 1; j <= rules; ++j)
            text += QString("FieldName%1=Field %1\r\nOpDisplay%1=Equals\r\nOpSQL%1==\r\n"
                            "Value%1=\u00ACvalue %1\u00AC\r\nLogicalOp%1=And\r\n")
                        .arg(j)
                        .toLatin1();
    }
    return text;
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
}

// Runs prepare (untimed) then work (timed) several times; returns the median in ms.
double medianMs(int runs, const std::function<void()>& prepare, const std::function<void()>& work)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        prepare();
        QElapsedTimer timer;
        timer.start();
        work();
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// Times a delete of the middle connection and a save plus load of a connection's choices
// in a file of that shape.
void runScenario(const char* label, const QString& ini, int connections, int mappings, int rules,
                 int runs)
{
    const QByteArray bytes = store(connections, mappings, rules);
    std::printf("%s: %lld bytes, %d connections, %d mappings and %d rules each\n", label,
                static_cast<long long>(bytes.size()), connections, mappings, rules);

    const int middle = (connections + 1) / 2;
    const double deleteMs = medianMs(
        runs, [&] { writeFile(ini, bytes); },
        [&] {
            QString message;
            const QString conString =
                QString("Provider=MSDASQL.1;Data Source=source%1;UID=user").arg(middle);
            if (!MaintainDSN(QString("Connection %1").arg(middle), conString,
                             ConnectionAction::Delete, message))
                qFatal("delete failed: %s", qPrintable(message));
        });
    QFile check(ini);
    if (!check.open(QIODevice::ReadOnly) ||
        check.readAll().contains(QString("DSNName%1=Connection").arg(middle).toLatin1()))
        qFatal("the delete did not happen");
    std::printf("  MaintainDSN delete:                       median %9.2f ms over %d runs\n",
                deleteMs, runs);

    ImportChoices choices;
    choices.DSNName = QString("Connection %1").arg(connections);
    choices.FilterMethod = 1;
    choices.SelectedTable = "Order Lines";
    choices.VTGroup = "Customers";
    choices.ReplaceExisting = true;
    for (int j = 1; j <= mappings; ++j)
        choices.FieldMappings.Add("Key" + QString::number(j),
                                  "Source column " + QString::number(j));
    for (int j = 1; j <= rules; ++j)
        choices.Rules.Add("Field " + QString::number(j), "is like", "like",
                          "'value " + QString::number(j) + "%'", j % 2 ? "And" : "Or");
    int loadedRules = -1;
    const double saveLoadMs = medianMs(
        runs, [&] { writeFile(ini, bytes); },
        [&] {
            choices.AdvancedSQLString = "select *\r\nfrom [Order Lines]\r\nwhere x = 1";
            long number = 0;
            QString message;
            if (!SaveImportSettings(choices, number, message))
                qFatal("save failed: %s", qPrintable(message));
            ImportChoices loaded;
            loaded.DSNName = choices.DSNName;
            if (!LoadImportSettings(loaded, message))
                qFatal("load failed: %s", qPrintable(message));
            loadedRules = loaded.Rules.Count();
        });
    if (loadedRules != rules)
        qFatal("load gave %d rules", loadedRules);
    std::printf("  SaveImportSettings + LoadImportSettings: median %9.2f ms over %d runs\n",
                saveLoadMs, runs);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 7;

    QTemporaryDir dir;
    if (!dir.isValid())
        qFatal("no temporary folder");
    const QString ini = dir.filePath("dbimport.ini");
    SetIniFilePath(ini);

    runScenario("full settings file", ini, 50, 50, 50, runs);
    runScenario("typical settings file", ini, 5, 21, 3, runs);
    std::printf("target: each well under 50 ms\n");
    return 0;
}
