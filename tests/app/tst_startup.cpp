#include "app/startup.h"

#include "util/apperror.h"
#include "util/appglobals.h"
#include "util/scriptedmessageboxes.h"

#include "tempfolder.h"

#include <QCoreApplication>
#include <QDir>
#include <QSqlDatabase>
#include <QTest>

namespace {
const QString Refusal = QStringLiteral(
    "Sorry but this component can only be launched from the Plug-in menu in Corbanis "
    "Veltrano Plus.");
const QString NoAdo = QStringLiteral(
    "The application has detected that ADO is not installed, this is required in order for "
    "the Veltrano database import plug-in to run.");
const QString Untouched = QStringLiteral("<untouched>");
} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_boxes.clear();
        SetHostDataFolder(Untouched);
        SetIniFilePath(Untouched);
    }
    // First, before anything has loaded the SQL driver plug-ins.
    void missingDriversAreReported()
    {
        // Without any plug-in folder Qt SQL finds neither driver, as on a machine that lacks them.
        TempFolder empty;
        const QStringList paths = QCoreApplication::libraryPaths();
        QCoreApplication::setLibraryPaths({empty.path()});
        MessageBoxesGuard guard(&m_boxes);
        int shown = 0;
        const bool started = Main("GZ:\\tmp\\data", "/opt/dbimport", [&shown] { ++shown; });
        const bool sqliteMissing = !QSqlDatabase::isDriverAvailable("QSQLITE");
        QCoreApplication::setLibraryPaths(paths);

        QVERIFY(sqliteMissing);
        QVERIFY(!started);
        QCOMPARE(shown, 0);
        QCOMPARE(m_boxes.texts(), QStringList{NoAdo});
        QCOMPARE(m_boxes.shown().at(0).icon, MessageBoxes::Icon::Critical);
        // The data folder was taken before the drivers were tested; the settings path was not.
        QCOMPARE(HostDataFolder(), QString("Z:\\tmp\\data\\"));
        QCOMPARE(IniFilePath(), Untouched);
        QVERIFY(QSqlDatabase::isDriverAvailable("QSQLITE"));
    }

    void commandLine_data()
    {
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<QString>("hostDataFolder"); // empty: refused

        QTest::newRow("empty") << "" << "";
        QTest::newRow("no capital G") << "C:\\Data" << "";
        QTest::newRow("lower-case only") << "g:\\data" << "";
        QTest::newRow("G but no drive") << "G/home/ann/data" << "";
        QTest::newRow("colon and slash is no drive") << "GC:/Data" << "";
        QTest::newRow("backslash before colon") << "GC\\:Data" << "";
        QTest::newRow("folder after G") << "GC:\\Data" << "C:\\Data\\";
        QTest::newRow("closing backslash kept single") << "GC:\\Data\\" << "C:\\Data\\";
        QTest::newRow("longer folder") << "GC:\\Hosted\\Data" << "C:\\Hosted\\Data\\";
        QTest::newRow("switch before G") << "/GC:\\Data\\" << "C:\\Data\\";
        QTest::newRow("G inside the path") << "C:\\Group\\Data" << "roup\\Data\\";
        QTest::newRow("nothing after G") << "C:\\G" << "\\";
        QTest::newRow("G before the drive elsewhere") << "xG y Z:\\tmp" << " y Z:\\tmp\\";
        QTest::newRow("trailing blank kept") << "GC:\\Data " << "C:\\Data \\";
        QTest::newRow("quotes kept") << "\"GZ:\\tmp\\data\\\"" << "Z:\\tmp\\data\\\"\\";
        QTest::newRow("joined arguments") << "-x GZ:\\home\\ann\\data" << "Z:\\home\\ann\\data\\";
    }

    void commandLine()
    {
        QFETCH(QString, arguments);
        QFETCH(QString, hostDataFolder);
        MessageBoxesGuard guard(&m_boxes);
        int shown = 0;
        const bool started = Main(arguments, "/opt/dbimport", [&shown] { ++shown; });

        if (hostDataFolder.isEmpty()) {
            QVERIFY(!started);
            QCOMPARE(shown, 0);
            QCOMPARE(m_boxes.shown().size(), 1);
            QCOMPARE(m_boxes.shown().at(0).text, Refusal);
            QCOMPARE(m_boxes.shown().at(0).icon, MessageBoxes::Icon::Critical);
            QCOMPARE(m_boxes.shown().at(0).title, QString()); // the program's own title
            QCOMPARE(HostDataFolder(), Untouched);
            QCOMPARE(IniFilePath(), Untouched);
        } else {
            QVERIFY(started);
            QCOMPARE(shown, 1);
            QCOMPARE(m_boxes.shown().size(), 0);
            QCOMPARE(HostDataFolder(), hostDataFolder);
            QCOMPARE(IniFilePath(), QString("/opt/dbimport/dbimport.ini"));
        }
    }

    void settingsFileBesideTheProgram_data()
    {
        QTest::addColumn<QString>("programFolder");
        QTest::addColumn<QString>("iniFilePath");

        QTest::newRow("folder with closing slash") << "/usr/lib/dbimport/" << "/usr/lib/dbimport/dbimport.ini";
        QTest::newRow("root") << "/" << "/dbimport.ini";
        QTest::newRow("real folder") << "<temp>" << "<temp>/dbimport.ini";
        QTest::newRow("real folder with closing slash") << "<temp>/" << "<temp>/dbimport.ini";
    }

    void settingsFileBesideTheProgram()
    {
        QFETCH(QString, programFolder);
        QFETCH(QString, iniFilePath);
        MessageBoxesGuard guard(&m_boxes);
        TempFolder folder;
        programFolder.replace("<temp>", folder.path());
        iniFilePath.replace("<temp>", folder.path());
        QVERIFY(Main("GZ:\\data", programFolder, [] {}));
        QCOMPARE(IniFilePath(), iniFilePath);
        QCOMPARE(m_boxes.shown().size(), 0);
        // Start-up does not create the settings file; the first write does.
        QVERIFY(QDir(folder.path()).isEmpty());
    }

    void runTimeErrorsShowTheirDescriptionOnly_data()
    {
        QTest::addColumn<QString>("programFolder");
        QTest::addColumn<bool>("formThrows");
        QTest::addColumn<QString>("text");

        QTest::newRow("program folder unknown")
            << "" << false << "The folder of the program could not be determined.";
        QTest::newRow("form cannot be created")
            << "/opt/dbimport" << true << "Out of memory while creating the form";
    }

    void runTimeErrorsShowTheirDescriptionOnly()
    {
        QFETCH(QString, programFolder);
        QFETCH(bool, formThrows);
        QFETCH(QString, text);
        MessageBoxesGuard guard(&m_boxes);
        const bool started = Main("GZ:\\data", programFolder, [formThrows] {
            if (formThrows)
                throw AppError(7, "Out of memory while creating the form");
        });
        QVERIFY(!started);
        QCOMPARE(m_boxes.texts(), QStringList{text});
        QCOMPARE(m_boxes.shown().at(0).icon, MessageBoxes::Icon::Critical);
    }

private:
    ScriptedMessageBoxes m_boxes;
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
