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

// Fifty connections, each with its settings, fifty mappings and fifty rules.
QByteArray fullStore()
{
    QByteArray text = "[DSN]\r\n";
    for (int n = 1; n <= 50; ++n) {
        text += QString("DSNName%1=Connection %1\r\n").arg(n).toLatin1();
        text +=
            QString("DSNString%1=%2\r\n")
                .arg(n)
                .arg(shifted(QString("Provider=MSDASQL.1;Data Source=source%1;UID=user").arg(n)))
                .toLatin1();
    }
    for (int n = 1; n <= 50; ++n) {
        text += QString("[DSN%1]\r\nFilterMethod=0\r\nSelectedTable=Customer List\r\n"
                        "AdvancedSQLString=select *\u00ACfrom x\r\nVTGroup=Group %1\r\n"
                        "ReplaceExisting=True\r\n")
                    .arg(n)
                    .toLatin1();
        text += QString("[FieldMap%1]\r\n").arg(n).toLatin1();
        for (int j = 1; j <= 50; ++j)
            text += QString("VTField%1=Host%1\r\nDBField%1=Column %1\r\n").arg(j).toLatin1();
        text += QString("[Rules%1]\r\n").arg(n).toLatin1();
        for (int j = 1; j <= 50; ++j)
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
    const QByteArray store = fullStore();
    std::printf("settings file: %lld bytes, 50 connections, 50 mappings and 50 rules each\n",
                static_cast<long long>(store.size()));

    const double deleteMs = medianMs(
        runs, [&] { writeFile(ini, store); },
        [&] {
            QString message;
            const QString conString = "Provider=MSDASQL.1;Data Source=source25;UID=user";
            if (!MaintainDSN("Connection 25", conString, ConnectionAction::Delete, message))
                qFatal("delete failed: %s", qPrintable(message));
        });
    QFile check(ini);
    check.open(QIODevice::ReadOnly);
    if (check.readAll().contains("DSNName25=Connection"))
        qFatal("the delete did not happen");
    std::printf("MaintainDSN delete of slot 25:          median %8.2f ms over %d runs\n", deleteMs,
                runs);

    ImportChoices choices;
    choices.DSNName = "Connection 40";
    choices.FilterMethod = 1;
    choices.SelectedTable = "Order Lines";
    choices.VTGroup = "Customers";
    choices.ReplaceExisting = true;
    for (int j = 1; j <= 50; ++j) {
        choices.FieldMappings.Add("Key" + QString::number(j),
                                  "Source column " + QString::number(j));
        choices.Rules.Add("Field " + QString::number(j), "is like", "like",
                          "'value " + QString::number(j) + "%'", j % 2 ? "And" : "Or");
    }
    int loadedRules = 0;
    const double saveLoadMs = medianMs(
        runs, [&] { writeFile(ini, store); },
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
    if (loadedRules != 50)
        qFatal("load gave %d rules", loadedRules);
    std::printf("SaveImportSettings + LoadImportSettings: median %8.2f ms over %d runs\n",
                saveLoadMs, runs);
    std::printf("target: each well under 50 ms\n");
    return 0;
}
