// dbimport-cli as a scheduler runs it: the real executable, a real settings file, a real
// source database and data folder.
#include <QtTest>

#include <csignal>

#include "app/connectionstore.h"
#include "app/importsettings.h"
#include "import/groupstore.h"
#include "import/importchoices.h"
#include "util/appglobals.h"

#include "sqlitefixture.h"
#include "tempfolder.h"

namespace {

struct Run
{
    int exitCode = -1;
    QString out;
    QString err;
};

QString binary(const QString& name)
{
    return QDir(qEnvironmentVariable("DBIMPORT_BIN_DIR")).filePath(name);
}

Run runProgram(const QString& program, const QStringList& arguments, int timeoutMs = 120000)
{
    QProcess process;
    process.start(program, arguments);
    Run run;
    if (!process.waitForFinished(timeoutMs) || process.exitStatus() != QProcess::NormalExit) {
        process.kill();
        process.waitForFinished();
        run.err = QStringLiteral("<did not finish>");
        return run;
    }
    run.exitCode = process.exitCode();
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

Run cli(const QStringList& arguments)
{
    return runProgram(binary(QStringLiteral("dbimport-cli")), arguments);
}

QString generate(const QString& file, int rows, int seed = 7)
{
    const Run run =
        runProgram(binary(QStringLiteral("dbimport-gensource")),
                   {file, QString::number(rows), QStringLiteral("--seed"), QString::number(seed)});
    return run.exitCode == 0 ? QString() : run.err + run.out;
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

private slots:
    void initTestCase();
    void init();
    void usageErrors_data();
    void usageErrors();
    void listGroups();
    void createGroup_data();
    void createGroup();
    void unknownConnection();
    void importsTheSavedChoices();
    void overridesGroupAndReplace();
    void missingGroupFails();
    void killedMidImportKeepsCommittedBatches();

private:
    // A settings file with one connection "Contacts DB" whose saved choices import the
    // generated source into the Group "Customers".
    void writeSettings(const QString& source);

    std::unique_ptr<TempFolder> m_folder;
    QString m_data;
    QString m_ini;
};

void tst_Cli::initTestCase()
{
    QVERIFY2(QFileInfo(binary(QStringLiteral("dbimport-cli"))).isExecutable(),
             "build dbimport-cli first");
    QVERIFY2(QFileInfo(binary(QStringLiteral("dbimport-gensource"))).isExecutable(),
             "build dbimport-gensource first");
}

void tst_Cli::init()
{
    m_folder = std::make_unique<TempFolder>();
    m_data = m_folder->filePath(QStringLiteral("data"));
    QVERIFY(QDir().mkpath(m_data));
    m_ini = m_folder->filePath(QStringLiteral("dbimport.ini"));
}

void tst_Cli::writeSettings(const QString& source)
{
    SetIniFilePath(m_ini);
    QString message;
    QVERIFY2(MaintainDSN(QStringLiteral("Other DB"),
                         QStringLiteral("Provider=SQLite;Data Source=/nowhere.db"),
                         ConnectionAction::Add, message),
             qPrintable(message));
    QVERIFY2(MaintainDSN(QStringLiteral("Contacts DB"),
                         QStringLiteral("Provider=SQLite;Data Source=") + source,
                         ConnectionAction::Add, message),
             qPrintable(message));
    ImportChoices choices;
    choices.DSNName = QStringLiteral("Contacts DB");
    choices.ConnectionString = QStringLiteral("Provider=SQLite;Data Source=") + source;
    choices.SelectedTable = QStringLiteral("Contacts");
    choices.FieldMappings.Add(QStringLiteral("EMailAddress"), QStringLiteral("Email"));
    choices.FieldMappings.Add(QStringLiteral("FullNameMacro"), QStringLiteral("Full Name"));
    choices.FieldMappings.Add(QStringLiteral("City"), QStringLiteral("City"));
    choices.FieldMappings.Add(QStringLiteral("Company"), QStringLiteral("Company"));
    choices.VTGroup = QStringLiteral("Customers");
    long number = 0;
    QVERIFY2(SaveImportSettings(choices, number, message), qPrintable(message));
    SetIniFilePath(QString());
}

void tst_Cli::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("nothing") << QStringList{};
    QTest::newRow("no data folder") << QStringList{"--connection", "X"};
    QTest::newRow("no action") << QStringList{"--data-folder", "/tmp"};
    QTest::newRow("two actions") << QStringList{"--data-folder", "/tmp", "--list-groups",
                                                "--create-group", "A"};
    QTest::newRow("replace and no-replace")
        << QStringList{"--data-folder", "/tmp", "--connection", "X", "--replace", "--no-replace"};
    QTest::newRow("unknown option")
        << QStringList{"--data-folder", "/tmp", "--list-groups", "--colour"};
    QTest::newRow("missing value") << QStringList{"--data-folder", "/tmp", "--connection"};
    QTest::newRow("stray argument")
        << QStringList{"--data-folder", "/tmp", "--list-groups", "extra"};
    QTest::newRow("group without connection")
        << QStringList{"--data-folder", "/tmp", "--list-groups", "--group", "G"};
}

void tst_Cli::usageErrors()
{
    QFETCH(QStringList, arguments);
    const Run run = cli(arguments);
    QCOMPARE(run.exitCode, 2);
    QVERIFY2(run.err.contains(QLatin1String("Usage:")), qPrintable(run.err));
    QVERIFY(run.out.isEmpty());
}

void tst_Cli::listGroups()
{
    for (const char* name :
         {"Customers.gdb", "All Groups.gdb", "exclusion list.gdb", "Search Results.gdb"})
        m_folder->writeFile(QStringLiteral("data/") + QString::fromLatin1(name), "x");
    const Run run = cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--list-groups")});
    QCOMPARE(run.exitCode, 0);
    QStringList lines = run.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    lines.sort();
    QCOMPARE(lines, QStringList({"Customers", "Search Results"}));

    const Run missing =
        cli({QStringLiteral("--data-folder"), m_folder->filePath(QStringLiteral("none")),
             QStringLiteral("--list-groups")});
    QCOMPARE(missing.exitCode, 1);
    QVERIFY(missing.err.contains(QLatin1String("none")));
}

void tst_Cli::createGroup_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");
    QTest::newRow("new") << "Spring Fair"
                         << "Spring Fair.gdb" << 0 << "";
    QTest::newRow("blanks around") << "  Trimmed  "
                                   << "Trimmed.gdb" << 0 << "";
    QTest::newRow("lower-case host list") << "all groups"
                                          << "all groups.gdb" << 0 << "";
    QTest::newRow("exists") << "Existing"
                            << "" << 1 << "A Group by the name: Existing\nalready exists.";
    QTest::newRow("reserved") << "All Groups"
                              << "" << 1 << "Sorry but this Group name cannot be used.";
    QTest::newRow("empty") << "   "
                           << "" << 1 << "Please enter a Group name.";
}

void tst_Cli::createGroup()
{
    QFETCH(QString, name);
    QFETCH(QString, file);
    QFETCH(int, exitCode);
    QFETCH(QString, message);
    m_folder->writeFile(QStringLiteral("data/Existing.gdb"), "precious");
    const QStringList before = QDir(m_data).entryList(QDir::Files);
    const Run run =
        cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--create-group"), name});
    QCOMPARE(run.exitCode, exitCode);
    if (exitCode == 0) {
        QVERIFY(GroupStore::checkFile(QDir(m_data).filePath(file)));
        QCOMPARE(QDir(m_data).entryList(QDir::Files).size(), before.size() + 1);
    } else {
        QVERIFY2(run.err.contains(message), qPrintable(run.err));
        QCOMPARE(QDir(m_data).entryList(QDir::Files), before);
    }
    QCOMPARE(m_folder->readFile(QStringLiteral("data/Existing.gdb")), QByteArray("precious"));
    QVERIFY(!QFileInfo::exists(m_ini));
}

void tst_Cli::unknownConnection()
{
    const QString source = m_folder->filePath(QStringLiteral("source.db"));
    QCOMPARE(generate(source, 10), QString());
    writeSettings(source);
    const QByteArray ini = m_folder->readFile(QStringLiteral("dbimport.ini"));
    const Run run = cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--ini"), m_ini,
                         QStringLiteral("--connection"), QStringLiteral("Nobody's DB")});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains(QLatin1String("\"Nobody's DB\"")), qPrintable(run.err));
    QCOMPARE(m_folder->readFile(QStringLiteral("dbimport.ini")), ini);
}

void tst_Cli::importsTheSavedChoices()
{
    const QString source = m_folder->filePath(QStringLiteral("source.db"));
    QCOMPARE(generate(source, 2000), QString());
    writeSettings(source);
    const QByteArray ini = m_folder->readFile(QStringLiteral("dbimport.ini"));
    const QDateTime iniTime = QFileInfo(m_ini).lastModified();
    QCOMPARE(cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--create-group"),
                  QStringLiteral("Customers")})
                 .exitCode,
             0);

    // The connection name is matched without regard to case, like the settings' own.
    const Run run = cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--ini"), m_ini,
                         QStringLiteral("--connection"), QStringLiteral("contacts db")});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(!run.out.contains(QLatin1Char('\r')), "plain lines when not on a terminal");
    QVERIFY(run.out.contains(QLatin1String("Importing ...\n")));
    QVERIFY(run.out.contains(QLatin1String("Import Complete ...\n")));
    QVERIFY(run.out.contains(QLatin1String("  100% Importing ...\n")));
    // Every question declined: the offer to open the log is printed and answered No.
    QVERIFY2(run.err.contains(QLatin1String("Would you like to review the log file now? No")),
             qPrintable(run.err));

    const QString group = QDir(m_data).filePath(QStringLiteral("Customers.gdb"));
    const QString logPath = QDir(m_data).filePath(QStringLiteral("Database Import Log File.txt"));
    QVERIFY(run.out.contains(QStringLiteral("Log file         : ") + logPath + QLatin1Char('\n')));
    auto figure = [&](const QString& label) {
        const QRegularExpression re(QRegularExpression::escape(label) +
                                    QStringLiteral("(\\d+)\\n"));
        const QRegularExpressionMatch m = re.match(run.out);
        return m.hasMatch() ? m.captured(1).toInt() : -1;
    };
    const int total = figure(QStringLiteral("Total Processed  : "));
    const int added = figure(QStringLiteral("Recipients Added : "));
    const int duplicates = figure(QStringLiteral("Duplicates       : "));
    const int illegal = figure(QStringLiteral("Illegal          : "));
    QCOMPARE(total, 2000);
    QCOMPARE(added + duplicates + illegal, total);
    QCOMPARE(count(group, QStringLiteral("SELECT COUNT(*) FROM Recipients")), added);
    // Addresses are unique without regard to case and stored trimmed.
    QCOMPARE(
        count(group, QStringLiteral("SELECT COUNT(DISTINCT lower(EmailAddress)) FROM Recipients")),
        added);
    QCOMPARE(count(group,
                   QStringLiteral(
                       "SELECT COUNT(*) FROM Recipients WHERE EmailAddress <> trim(EmailAddress)")),
             0);
    // Every source address that is valid once trimmed is in the Group.
    QCOMPARE(count(source,
                   QStringLiteral(
                       "SELECT COUNT(DISTINCT lower(trim(Email))) FROM Contacts WHERE "
                       "instr(Email, '@') > 0 AND instr(substr(Email, instr(Email, '@')), '.') > 0 "
                       "AND trim(Email) NOT LIKE '%.' AND trim(Email) NOT LIKE '%._'")),
             added);
    QVERIFY(illegal > 0 && duplicates > 0);

    QFile log(logPath);
    QVERIFY(log.open(QIODevice::ReadOnly));
    const QString logText = QString::fromUtf8(log.readAll());
    QVERIFY(logText.contains(QStringLiteral("#   Total Processed  : %1\r\n").arg(total)));
    QVERIFY(logText.contains(QStringLiteral("#   DSN : Contacts DB\r\n")));
    QVERIFY(logText.contains(QStringLiteral("#   SQL : select * from Contacts\r\n")));
    QCOMPARE(m_folder->readFile(QStringLiteral("dbimport.ini")), ini);
    QCOMPARE(QFileInfo(m_ini).lastModified(), iniTime);

    // Run again: nothing new, all counted as duplicates or illegal.
    const Run again = cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--ini"), m_ini,
                           QStringLiteral("--connection"), QStringLiteral("Contacts DB"),
                           QStringLiteral("--quiet")});
    QCOMPARE(again.exitCode, 0);
    QVERIFY(!again.out.contains(QLatin1String("Importing ...")));
    QVERIFY(again.out.contains(QLatin1String("Recipients Added : 0\n")));
    QVERIFY(again.out.contains(QStringLiteral("Duplicates       : %1\n").arg(added + duplicates)));
    QCOMPARE(count(group, QStringLiteral("SELECT COUNT(*) FROM Recipients")), added);
}

void tst_Cli::overridesGroupAndReplace()
{
    const QString source = m_folder->filePath(QStringLiteral("source.db"));
    QCOMPARE(generate(source, 300), QString());
    writeSettings(source);
    const QByteArray ini = m_folder->readFile(QStringLiteral("dbimport.ini"));
    QCOMPARE(cli({QStringLiteral("--data-folder"), m_data + QLatin1Char('/'),
                  QStringLiteral("--create-group"), QStringLiteral("Other")})
                 .exitCode,
             0);
    for (const char* option : {"--no-replace", "--replace"}) {
        const Run run =
            cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--ini"), m_ini,
                 QStringLiteral("--connection"), QStringLiteral("Contacts DB"),
                 QStringLiteral("--group"), QStringLiteral("Other"), QString::fromLatin1(option)});
        QCOMPARE(run.exitCode, 0);
        const QByteArray log =
            m_folder->readFile(QStringLiteral("data/Database Import Log File.txt"));
        QVERIFY(log.contains("#   Destination Group : Other\r\n"));
        QVERIFY(log.contains(qstrcmp(option, "--replace") == 0 ? "#   Replace : True\r\n"
                                                               : "#   Replace : False\r\n"));
    }
    QVERIFY(!QFileInfo::exists(QDir(m_data).filePath(QStringLiteral("Customers.gdb"))));
    QCOMPARE(m_folder->readFile(QStringLiteral("dbimport.ini")), ini);
}

void tst_Cli::missingGroupFails()
{
    const QString source = m_folder->filePath(QStringLiteral("source.db"));
    QCOMPARE(generate(source, 10), QString());
    writeSettings(source);
    const Run run = cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--ini"), m_ini,
                         QStringLiteral("--connection"), QStringLiteral("Contacts DB")});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains(QLatin1String("\"Customers\"")), qPrintable(run.err));

    // A Group file that is not a Group: the job itself fails.
    m_folder->writeFile(QStringLiteral("data/Customers.gdb"), "just text");
    const Run broken = cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--ini"), m_ini,
                            QStringLiteral("--connection"), QStringLiteral("Contacts DB")});
    QCOMPARE(broken.exitCode, 1);
    QVERIFY2(broken.err.contains(QLatin1String("the import failed: 3100 - ")),
             qPrintable(broken.err));
    QCOMPARE(m_folder->readFile(QStringLiteral("data/Customers.gdb")), QByteArray("just text"));
}

void tst_Cli::killedMidImportKeepsCommittedBatches()
{
    const QString source = m_folder->filePath(QStringLiteral("big.db"));
    QCOMPARE(generate(source, 400000, 11), QString());
    writeSettings(source);
    QCOMPARE(cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--create-group"),
                  QStringLiteral("Customers")})
                 .exitCode,
             0);
    const QString group = QDir(m_data).filePath(QStringLiteral("Customers.gdb"));

    QProcess process;
    process.start(binary(QStringLiteral("dbimport-cli")),
                  {QStringLiteral("--data-folder"), m_data, QStringLiteral("--ini"), m_ini,
                   QStringLiteral("--connection"), QStringLiteral("Contacts DB"),
                   QStringLiteral("--quiet")});
    QVERIFY(process.waitForStarted());
    // Kill it as soon as some batches are in the file, well before the end.
    QElapsedTimer timer;
    timer.start();
    int seen = 0;
    while (seen < 20000 && timer.elapsed() < 60000 && process.state() == QProcess::Running) {
        const QStringList values =
            SqliteColumn(group, QStringLiteral("SELECT COUNT(*) FROM Recipients"));
        if (values.size() == 1)
            seen = values.first().toInt();
        QThread::msleep(5);
    }
    QVERIFY2(process.state() == QProcess::Running, "the import ended before it could be killed");
    ::kill(pid_t(process.processId()), SIGKILL);
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);

    // The Group opens and holds every batch committed before the kill, each record complete.
    QVERIFY(GroupStore::checkFile(group));
    GroupStore store;
    store.open(group);
    const int kept = store.recordCount();
    store.close();
    QVERIFY2(kept >= seen && kept < 400000, qPrintable(QString::number(kept)));
    QCOMPARE(
        count(group,
              QStringLiteral(
                  "SELECT COUNT(*) FROM Recipients WHERE EmailAddress IS NULL OR DateAdded IS NULL "
                  "OR City IS NULL")),
        0);
    QCOMPARE(SqliteColumn(group, QStringLiteral("PRAGMA integrity_check")), QStringList{"ok"});

    // Running again finishes the job: the kept records count as duplicates.
    const Run rerun = cli({QStringLiteral("--data-folder"), m_data, QStringLiteral("--ini"), m_ini,
                           QStringLiteral("--connection"), QStringLiteral("Contacts DB"),
                           QStringLiteral("--quiet")});
    QCOMPARE(rerun.exitCode, 0);
    const QRegularExpressionMatch added =
        QRegularExpression(QStringLiteral("Recipients Added : (\\d+)\\n")).match(rerun.out);
    QVERIFY(added.hasMatch());
    QCOMPARE(count(group, QStringLiteral("SELECT COUNT(*) FROM Recipients")),
             kept + added.captured(1).toInt());
    QCOMPARE(
        count(group, QStringLiteral("SELECT COUNT(DISTINCT lower(EmailAddress)) FROM Recipients")),
        kept + added.captured(1).toInt());
}

QTEST_GUILESS_MAIN(tst_Cli)
#include "tst_cli.moc"
