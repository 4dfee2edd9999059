#include "app/startup.h"

#include "util/apperror.h"
#include "util/appglobals.h"
#include "util/scriptedmessageboxes.h"

#include "tempfolder.h"

#include <QCoreApplication>
#include <QDir>
#include <QSqlDatabase>
#include <QTest>

static const QString Untouched = QStringLiteral("<untouched>");

class TestStartup : public QObject
{
    Q_OBJECT
    ScriptedMessageBoxes m_boxes;

    // Main with scripted boxes, as "started|forms shown|data folder|settings file|boxes".
    QString start(const QString& arguments, const QString& programFolder, bool formFails = false)
    {
        m_boxes.clear();
        SetHostDataFolder(Untouched);
        SetIniFilePath(Untouched);
        MessageBoxesGuard guard(&m_boxes);
        int shown = 0;
        const bool started = Main(arguments, programFolder, [&shown, formFails] {
            if (formFails)
                throw AppError(7, "Out of memory while creating the form");
            ++shown;
        });
        // Every box of start-up is an error under the program's own title.
        for (const ScriptedMessageBoxes::Shown& box : m_boxes.shown()) {
            if (box.icon != MessageBoxes::Icon::Critical || !box.title.isEmpty())
                return "not an error box: " + box.text;
        }
        return QStringList{started ? "started" : "refused", QString::number(shown),
                           HostDataFolder(), IniFilePath(), m_boxes.texts().join('|')}
            .join('|');
    }

private slots:
    // First, before anything has loaded the SQL driver plug-ins.
    void missingDriversAreReported()
    {
        // Without any plug-in folder Qt SQL finds no driver, as on a machine that lacks them.
        TempFolder empty;
        const QStringList paths = QCoreApplication::libraryPaths();
        QCoreApplication::setLibraryPaths({empty.path()});
        const QString result = start("GZ:\\tmp\\data", "/opt/dbimport");
        const bool sqliteMissing = !QSqlDatabase::isDriverAvailable("QSQLITE");
        QCoreApplication::setLibraryPaths(paths);
        QVERIFY(sqliteMissing);
        // The data folder was taken before the drivers were tested; the settings path was not.
        QCOMPARE(result, "refused|0|Z:\\tmp\\data\\|" + Untouched + "|The application has "
                 "detected that ADO is not installed, this is required in order for the Veltrano "
                 "database import plug-in to run.");
        QVERIFY(QSqlDatabase::isDriverAvailable("QSQLITE"));
    }

    // The data folder is what follows the first capital G; any ":\" anywhere will do.
    void commandLine()
    {
        const QList<QPair<QString, QString>> cases = { // arguments, data folder (empty: refused)
            {"", ""}, {"C:\\Data", ""}, {"g:\\data", ""}, {"G/home/ann/data", ""}, {"GC:/Data", ""},
            {"GC\\:Data", ""}, {"GC:\\Groups", "C:\\Groups\\"}, {"GC:\\Data\\", "C:\\Data\\"},
            {"/GC:\\Data\\", "C:\\Data\\"}, {"C:\\Group\\Data", "roup\\Data\\"}, {"C:\\G", "\\"},
            {"xG y Z:\\tmp", " y Z:\\tmp\\"}, {"GC:\\Data ", "C:\\Data \\"},
            {"\"GZ:\\tmp\\data\\\"", "Z:\\tmp\\data\\\"\\"},
            {"-x GZ:\\home\\ann\\data", "Z:\\home\\ann\\data\\"}};
        const QString refused = "refused|0|" + Untouched + '|' + Untouched + "|Sorry but this "
            "component can only be launched from the Plug-in menu in Corbanis Veltrano Plus.";
        for (const auto& [arguments, folder] : cases) {
            const QString expected = folder.isEmpty()
                                         ? refused
                                         : "started|1|" + folder + "|/opt/dbimport/dbimport.ini|";
            QCOMPARE(arguments + " -> " + start(arguments, "/opt/dbimport"),
                     arguments + " -> " + expected);
        }
    }

    // The settings file is beside the program, and start-up does not create it. Run-time
    // errors show their description only.
    void programFolder()
    {
        TempFolder folder;
        const QString data = "|Z:\\data\\|", temp = folder.path();
        QCOMPARE(start("GZ:\\data", "/usr/lib/dbimport/"),
                 "started|1" + data + "/usr/lib/dbimport/dbimport.ini|");
        QCOMPARE(start("GZ:\\data", temp), "started|1" + data + temp + "/dbimport.ini|");
        QCOMPARE(start("GZ:\\data", ""), "refused|0" + data + Untouched +
                                             "|The folder of the program could not be determined.");
        QCOMPARE(start("GZ:\\data", temp + '/', true),
                 "refused|0" + data + temp + "/dbimport.ini|Out of memory while creating the form");
        QVERIFY(QDir(temp).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
