// dbimport-cli as a scheduler runs it: the real executable, a real settings file, a real
// source database and data folder.
#include <QtTest>

#include <csignal>

#include "app/connectionstore.h"
#include "app/importsettings.h"
#include "import/groupstore.h"
#include "import/importchoices.h"
#include "util/appglobals.h"

#include "datarow.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

namespace {

struct Run
{
    int exitCode = -1;
    QString out, err;
    // The figure printed after the label, -1 when missing.
    int figure(const QString& label) const
    {
        const auto m =
            QRegularExpression(QRegularExpression::escape(label) + "(\\d+)\\n").match(out);
        return m.hasMatch() ? m.captured(1).toInt() : -1;
    }
};

QString binary(const QString& name)
{
    return QDir(qEnvironmentVariable("DBIMPORT_BIN_DIR")).filePath(name);
}

Run runProgram(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    Run run;
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit) {
        process.kill();
        process.waitForFinished();
        run.err = "<did not finish>";
        return run;
    }
    run.exitCode = process.exitCode();
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

int count(const QString& file, const QString& query)
{
    const QStringList values = SqliteColumn(file, query);
    return values.size() == 1 ? values.first().toInt() : -1;
}

} // namespace

class tst_Cli : public QObject
{
    Q_OBJECT

    std::unique_ptr<TempFolder> m_folder;
    QString m_data, m_ini, m_source, m_group;
    QByteArray m_iniBytes;

    Run cli(const QStringList& arguments) const
    {
        return runProgram(binary("dbimport-cli"), QStringList{"--data-folder", m_data} + arguments);
    }
    Run job(const QStringList& arguments) const
    {
        return cli(QStringList{"--ini", m_ini, "--connection"} + arguments);
    }

    // The Group's records, distinct addresses (ignoring case) and untrimmed addresses.
    QString summary() const
    {
        return SqliteColumn(
                   m_group,
                   "SELECT COUNT(*) || ',' || COUNT(DISTINCT lower(EmailAddress)) "
                   "|| ',' || IFNULL(SUM(EmailAddress <> trim(EmailAddress)), 0) FROM Recipients")
            .join('|');
    }

    // A generated source of the given size and a settings file with two connections; the
    // saved choices of "Contacts DB" import it into the Group "Customers" (made on request).
    void prepare(int rows, bool withGroup, int seed = 7)
    {
        m_source = m_folder->filePath("source.db");
        const Run gen = runProgram(binary("dbimport-gensource"), {m_source, QString::number(rows),
                                                                  "--seed", QString::number(seed)});
        QVERIFY2(gen.exitCode == 0, qPrintable(gen.err + gen.out));
        SetIniFilePath(m_ini);
        QString message;
        const QString connection = "Provider=SQLite;Data Source=" + m_source;
        QVERIFY(MaintainDSN("Other DB", "Provider=SQLite;Data Source=/nowhere.db",
                            ConnectionAction::Add, message));
        QVERIFY2(MaintainDSN("Contacts DB", connection, ConnectionAction::Add, message),
                 qPrintable(message));
        ImportChoices choices;
        choices.DSNName = "Contacts DB";
        choices.ConnectionString = connection;
        choices.SelectedTable = "Contacts";
        choices.FieldMappings.Add("EMailAddress", "Email");
        choices.FieldMappings.Add("FullNameMacro", "Full Name");
        choices.FieldMappings.Add("City", "City");
        choices.FieldMappings.Add("Company", "Company");
        choices.VTGroup = "Customers";
        long number = 0;
        QVERIFY2(SaveImportSettings(choices, number, message), qPrintable(message));
        SetIniFilePath(QString());
        m_iniBytes = m_folder->readFile("dbimport.ini");
        if (withGroup)
            QCOMPARE(cli({"--create-group", "Customers"}).exitCode, 0);
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(QFileInfo(binary("dbimport-cli")).isExecutable(), "build dbimport-cli first");
        QVERIFY2(QFileInfo(binary("dbimport-gensource")).isExecutable(),
                 "build dbimport-gensource first");
    }

    void init()
    {
        m_folder = std::make_unique<TempFolder>();
        m_data = m_folder->filePath("data");
        QVERIFY(QDir().mkpath(m_data));
        m_ini = m_folder->filePath("dbimport.ini");
        m_group = QDir(m_data).filePath("Customers.gdb");
    }

    // Scheduled runs never change the choices the user saved.
    void cleanup()
    {
        if (!m_iniBytes.isEmpty())
            QCOMPARE(m_folder->readFile("dbimport.ini"), m_iniBytes);
        m_iniBytes.clear();
    }

    void usageErrors_data()
    {
        QTest::addColumn<QStringList>("arguments");
        DataRow("nothing", QStringList{});
        DataRow("no data folder", QStringList{"--connection", "X"});
        DataRow("no action", QStringList{"--data-folder", "/tmp"});
        DataRow("two actions",
                QStringList{"--data-folder", "/tmp", "--list-groups", "--create-group", "A"});
        DataRow("replace and no-replace", QStringList{"--data-folder", "/tmp", "--connection", "X",
                                                      "--replace", "--no-replace"});
        DataRow("unknown option",
                QStringList{"--data-folder", "/tmp", "--list-groups", "--colour"});
        DataRow("missing value", QStringList{"--data-folder", "/tmp", "--connection"});
        DataRow("stray argument", QStringList{"--data-folder", "/tmp", "--list-groups", "extra"});
        DataRow("group without connection",
                QStringList{"--data-folder", "/tmp", "--list-groups", "--group", "G"});
    }

    void usageErrors()
    {
        QFETCH(QStringList, arguments);
        const Run run = runProgram(binary("dbimport-cli"), arguments);
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.err.contains("Usage:"), qPrintable(run.err));
        QVERIFY(run.out.isEmpty());
    }

    void listGroups()
    {
        for (const char* name :
             {"Customers.gdb", "All Groups.gdb", "exclusion list.gdb", "Search Results.gdb"})
            m_folder->writeFile(QString("data/") + name, "x");
        const Run run = cli({"--list-groups"});
        QCOMPARE(run.exitCode, 0);
        QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
        lines.sort();
        QCOMPARE(lines, QStringList({"Customers", "Search Results"}));
        m_data = m_folder->filePath("none");
        const Run missing = cli({"--list-groups"});
        QCOMPARE(missing.exitCode, 1);
        QVERIFY(missing.err.contains("none"));
    }

    void createGroup_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("result"); // the file made, or the error shown
        DataRow("new", "Spring Fair", "Spring Fair.gdb");
        DataRow("blanks around", "  Trimmed  ", "Trimmed.gdb");
        DataRow("lower-case host list", "all groups", "all groups.gdb");
        DataRow("exists", "Existing", "A Group by the name: Existing\nalready exists.");
        DataRow("reserved", "All Groups", "Sorry but this Group name cannot be used.");
        DataRow("empty", "   ", "Please enter a Group name.");
    }

    void createGroup()
    {
        QFETCH(QString, name);
        QFETCH(QString, result);
        m_folder->writeFile("data/Existing.gdb", "precious");
        const QStringList before = QDir(m_data).entryList(QDir::Files);
        const Run run = cli({"--create-group", name});
        const bool made = result.endsWith(".gdb");
        QCOMPARE(run.exitCode, made ? 0 : 1);
        QVERIFY2(made || run.err.contains(result), qPrintable(run.err));
        QVERIFY(!made || GroupStore::checkFile(QDir(m_data).filePath(result)));
        QCOMPARE(QDir(m_data).entryList(QDir::Files).size(), before.size() + (made ? 1 : 0));
        QCOMPARE(m_folder->readFile("data/Existing.gdb"), QByteArray("precious"));
        QVERIFY(!QFileInfo::exists(m_ini));
    }

    void jobFailures_data()
    {
        QTest::addColumn<QString>("connection");
        QTest::addColumn<QByteArray>("groupFile"); // empty: no Group file
        QTest::addColumn<QString>("error");
        DataRow("unknown connection", "Nobody's DB", QByteArray(), "\"Nobody's DB\"");
        DataRow("missing Group", "Contacts DB", QByteArray(), "\"Customers\"");
        DataRow("Group not a Group", "Contacts DB", QByteArray("just text"),
                "the import failed: 3100 - ");
    }

    void jobFailures()
    {
        QFETCH(QString, connection);
        QFETCH(QByteArray, groupFile);
        QFETCH(QString, error);
        prepare(10, false);
        if (!groupFile.isEmpty())
            m_folder->writeFile("data/Customers.gdb", groupFile);
        const Run run = job({connection});
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.err.contains(error), qPrintable(run.err));
        QCOMPARE(m_folder->readFile("data/Customers.gdb"), groupFile);
    }

    void importsTheSavedChoices()
    {
        prepare(2000, true);
        const QDateTime iniTime = QFileInfo(m_ini).lastModified();
        // The connection name is matched without regard to case, like the settings' own.
        const Run run = job({"contacts db"});
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(!run.out.contains('\r'), "plain lines when not on a terminal");
        for (const char* line :
             {"Importing ...\n", "Import Complete ...\n", "  100% Importing ...\n"})
            QVERIFY2(run.out.contains(line), line);
        // Every question declined: the offer to open the log is printed and answered No.
        QVERIFY2(run.err.contains("Would you like to review the log file now? No"),
                 qPrintable(run.err));
        const QString logPath = QDir(m_data).filePath("Database Import Log File.txt");
        QVERIFY(run.out.contains("Log file         : " + logPath + '\n'));
        const int total = run.figure("Total Processed  : "),
                  added = run.figure("Recipients Added : "),
                  duplicates = run.figure("Duplicates       : "),
                  illegal = run.figure("Illegal          : ");
        QCOMPARE(total, 2000);
        QCOMPARE(added + duplicates + illegal, total);
        QVERIFY(illegal > 0 && duplicates > 0);
        // Addresses are unique without regard to case and stored trimmed, and every source
        // address that is valid once trimmed is in the Group.
        QCOMPARE(summary(), QString("%1,%1,0").arg(added));
        QCOMPARE(count(m_source,
                       "SELECT COUNT(DISTINCT lower(trim(Email))) FROM Contacts WHERE "
                       "instr(Email, '@') > 0 AND instr(substr(Email, instr(Email, '@')), "
                       "'.') > 0 AND trim(Email) NOT LIKE '%.' AND trim(Email) NOT LIKE '%._'"),
                 added);
        const QString log =
            QString::fromUtf8(m_folder->readFile("data/Database Import Log File.txt"));
        for (const QString& line : {QString("#   Total Processed  : %1\r\n").arg(total),
                                    QString("#   DSN : Contacts DB\r\n"),
                                    QString("#   SQL : select * from Contacts\r\n")})
            QVERIFY2(log.contains(line), qPrintable(line));
        QCOMPARE(QFileInfo(m_ini).lastModified(), iniTime);

        // Run again: nothing new, all counted as duplicates or illegal.
        const Run again = job({"Contacts DB", "--quiet"});
        QCOMPARE(again.exitCode, 0);
        QVERIFY(!again.out.contains("Importing ..."));
        QCOMPARE(again.figure("Recipients Added : "), 0);
        QCOMPARE(again.figure("Duplicates       : "), added + duplicates);
        QCOMPARE(summary(), QString("%1,%1,0").arg(added));
    }

    void overridesGroupAndReplace()
    {
        prepare(300, false);
        m_data += '/';
        QCOMPARE(cli({"--create-group", "Other"}).exitCode, 0);
        for (const QString option : {"--no-replace", "--replace"}) {
            QCOMPARE(job({"Contacts DB", "--group", "Other", option}).exitCode, 0);
            const QByteArray log = m_folder->readFile("data/Database Import Log File.txt");
            QVERIFY(log.contains("#   Destination Group : Other\r\n"));
            QVERIFY(log.contains(option == "--replace" ? "#   Replace : True\r\n"
                                                       : "#   Replace : False\r\n"));
        }
        QVERIFY(!QFileInfo::exists(m_group));
    }

    void killedMidImportKeepsCommittedBatches()
    {
        prepare(400000, true, 11);
        QProcess process;
        process.start(binary("dbimport-cli"), {"--data-folder", m_data, "--ini", m_ini,
                                               "--connection", "Contacts DB", "--quiet"});
        QVERIFY(process.waitForStarted());
        // Kill it as soon as some batches are in the file, well before the end.
        QElapsedTimer timer;
        timer.start();
        int seen = 0;
        while (seen < 20000 && timer.elapsed() < 60000 && process.state() == QProcess::Running) {
            seen = std::max(seen, count(m_group, "SELECT COUNT(*) FROM Recipients"));
            QThread::msleep(5);
        }
        QVERIFY2(process.state() == QProcess::Running,
                 "the import ended before it could be killed");
        ::kill(pid_t(process.processId()), SIGKILL);
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitStatus(), QProcess::CrashExit);

        // The Group opens and holds every batch committed before the kill, each record complete.
        QVERIFY(GroupStore::checkFile(m_group));
        GroupStore store;
        store.open(m_group);
        const int kept = store.recordCount();
        store.close();
        QVERIFY2(kept >= seen && kept < 400000, qPrintable(QString::number(kept)));
        QCOMPARE(count(m_group, "SELECT COUNT(*) FROM Recipients WHERE EmailAddress IS NULL OR "
                                "DateAdded IS NULL OR City IS NULL"),
                 0);
        QCOMPARE(SqliteColumn(m_group, "PRAGMA integrity_check"), QStringList{"ok"});
        // Running again finishes the job: the kept records count as duplicates.
        const Run rerun = job({"Contacts DB", "--quiet"});
        QCOMPARE(rerun.exitCode, 0);
        const int added = rerun.figure("Recipients Added : ");
        QVERIFY(added >= 0);
        QCOMPARE(summary(), QString("%1,%1,0").arg(kept + added));
    }
};

QTEST_GUILESS_MAIN(tst_Cli)
#include "tst_cli.moc"
