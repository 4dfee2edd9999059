// dbimport-cli as a scheduler runs it, and what it leaves beside a run (the test run, the
// report file, the undo of the last import): the real executable, a real settings file,
// source database, data folder and Group file.
#include <QtTest>

#include <functional>

#include "app/connectionstore.h"
#include "app/importsettings.h"
#include "import/groupstore.h"
#include "import/importchoices.h"
#include "util/appglobals.h"

#include "clirun.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

using namespace Qt::StringLiterals;

class tst_Cli : public QObject
{
    Q_OBJECT

    std::unique_ptr<TempFolder> m_folder;
    QString m_data, m_ini, m_group, m_source;
    QByteArray m_iniBytes;

    CliRun cli(const QStringList& arguments) const
    {
        return runProgram(buildProgram("dbimport-cli"),
                          QStringList{"--data-folder", m_data} + arguments);
    }
    CliRun job(const QStringList& arguments) const
    {
        return cli(QStringList{"--ini", m_ini, "--connection"} + arguments);
    }

    // The Group's records, distinct addresses (ignoring case) and untrimmed addresses.
    QString summary() const
    {
        return SqliteColumn(m_group, "SELECT COUNT(*) || ',' || COUNT(DISTINCT lower(EmailAddress))"
                                     " || ',' || IFNULL(SUM(EmailAddress <> trim(EmailAddress)), 0)"
                                     " FROM Recipients")
            .join('|');
    }

    int records(const QString& where) const
    {
        const QString query = "SELECT COUNT(*) FROM Recipients WHERE " + where;
        return SqliteColumn(m_group, query).value(0).toInt();
    }

    // Saves choices for the connection name that import the table of the SQLite source
    // (mappings as "GroupField=SourceField") into the Group, changed by change if given.
    void saveChoices(const QString& name, const QString& source, const QString& table,
                     const QStringList& mappings, const QString& group,
                     const std::function<void(ImportChoices&)>& change = nullptr) const
    {
        ImportChoices choices;
        choices.DSNName = name;
        choices.ConnectionString = "Provider=SQLite;Data Source=" + source;
        choices.SelectedTable = table;
        for (const QString& pair : mappings)
            choices.FieldMappings.Add(pair.section('=', 0, 0), pair.section('=', 1));
        choices.VTGroup = group;
        if (change)
            change(choices);
        // As the wizard does before an import.
        SetIniFilePath(m_ini);
        QString message;
        long number = 0;
        QVERIFY(MaintainDSN(name, choices.ConnectionString, ConnectionAction::Add, message) &&
                SaveImportSettings(choices, number, message));
        SetIniFilePath(QString());
    }

    // A generated source and a settings file whose saved choices for "Contacts DB" import
    // it into the Group "Customers"; others, when given, are further connections.
    using Connections = QList<std::pair<QString, std::function<void(ImportChoices&)>>>;
    void prepare(int rows, int seed = 7, const Connections& others = {})
    {
        const QString source = m_folder->filePath("source.db");
        const CliRun gen =
            runProgram(buildProgram("dbimport-gensource"),
                       {source, QString::number(rows), "--seed", QString::number(seed)});
        QVERIFY2(gen.exitCode == 0, qPrintable(gen.err + gen.out));
        for (const auto& [name, change] : Connections{{"Contacts DB", nullptr}} + others)
            saveChoices(
                name, source, "Contacts",
                {"EMailAddress=Email", "FullNameMacro=Full Name", "City=City", "Company=Company"},
                "Customers", change);
        m_iniBytes = m_folder->readFile("dbimport.ini");
    }

    // The source table People and saved choices for the connection "People" that import it
    // into the Group "Customers", which holds the given INSERT value lists already.
    void preparePeople(const QStringList& sourceRows, const QStringList& groupRows = {})
    {
        QStringList statements{"CREATE TABLE People (Email TEXT, First TEXT, Last TEXT, "
                               "City TEXT, Company TEXT, Notes TEXT)"};
        for (const QString& values : sourceRows)
            statements << "INSERT INTO People VALUES (" + values + ")";
        sql(m_source, statements);
        saveChoices("People", m_source, "People",
                    {"EMailAddress=Email", "FirstName=First", "LastName=Last", "City=City",
                     "Company=Company", "Field1=Notes"},
                    "Customers");
        QCOMPARE(cli({"--create-group", "Customers"}).exitCode, 0);
        QStringList inserts;
        for (const QString& values : groupRows)
            inserts << "INSERT INTO Recipients (EmailAddress, FirstName, City, Company, "
                       "DateAdded) VALUES (" +
                           values + ")";
        sql(m_group, inserts);
    }

    void sql(const QString& file, const QStringList& statements) const
    {
        const QString error = BuildSqliteDatabase(file, statements);
        QVERIFY2(error.isEmpty(), qPrintable(error));
    }

    // Every row of the Group, every column quoted as SQLite shows it (NULL apart from '').
    QStringList groupRows() const
    {
        QStringList columns{"rowid"};
        for (const auto& f : GroupStore::groupFields())
            columns << "quote(" + f.name + ")";
        return SqliteColumn(m_group, "SELECT " + columns.join("||'|'||") +
                                         " FROM Recipients ORDER BY rowid");
    }

    QString logBody(const QString& name) const
    {
        static const QRegularExpression stamp("(Started: |Ended : )\\w{3} \\d\\d:\\d\\d:\\d\\d");
        return QString::fromUtf8(QFile(QDir(m_data).filePath(name)).exists()
                                     ? m_folder->readFile("data/" + name)
                                     : QByteArray("<none>"))
            .replace(stamp, "\\1<time>");
    }

    // The report file as written: RFC 4180 as a spreadsheet reads it, records ending in CR LF.
    QString report() const
    {
        return QString::fromUtf8(m_folder->readFile("data/Database Import Report.csv"));
    }

private slots:
    void init()
    {
        m_folder = std::make_unique<TempFolder>();
        m_data = m_folder->filePath("data");
        QVERIFY(QDir().mkpath(m_data));
        m_ini = m_folder->filePath("dbimport.ini");
        m_group = QDir(m_data).filePath("Customers.gdb");
        m_source = m_folder->filePath("source.db");
    }

    // Exit codes and messages of the runs without a job; the name rules of the create-group
    // dialog apply.
    void exitCodes()
    {
        m_folder->writeFile("data/Existing.gdb", "precious");
        const QStringList data{"--data-folder", m_data};
        const QString usage = "Usage:";
        const QList<std::tuple<QStringList, int, QString>> cases = {
            {{}, 2, usage},
            {{"--connection", "X"}, 2, usage},
            {data + QStringList{"--list-groups", "--create-group", "A"}, 2, usage},
            {data + QStringList{"--connection", "X", "--replace", "--no-replace"}, 2, usage},
            {data + QStringList{"--list-groups", "--colour"}, 2, usage},
            {data + QStringList{"--connection"}, 2, usage},
            {data + QStringList{"--list-groups", "extra"}, 2, usage},
            {data + QStringList{"--list-groups", "--group", "G"}, 2, usage},
            {data + QStringList{"--create-group", "  Spring Fair  "}, 0, ""},
            {data + QStringList{"--create-group", "Existing"}, 1,
             "A Group by the name: Existing already exists.\n"},
            {data + QStringList{"--list-groups", "--ini", m_ini}, 0, ""},
            {data + QStringList{"--list-groups", "--json"}, 2, usage},
            {data + QStringList{"--create-group", "All Groups"}, 1,
             "Sorry but this Group name cannot be used."},
            {data + QStringList{"--create-group", "   "}, 1, "Please enter a Group name."},
            // Names compare without regard to case and never leave the data folder.
            {data + QStringList{"--create-group", "existing"}, 1, "already exists."},
            {data + QStringList{"--create-group", "../escaped"}, 1, "cannot be used"},
            {data + QStringList{"--create-group", "..\\escaped"}, 1, "cannot be used"},
            {data + QStringList{"--create-group", ".."}, 1, "cannot be used"},
            {data + QStringList{"--create-group", QString::fromUtf8("Łódź")}, 1, "Windows-1252"},
            {{"--data-folder", m_folder->filePath("none"), "--list-groups"}, 1, "none"}};
        for (const auto& [arguments, exitCode, error] : cases) {
            const CliRun run = runProgram(buildProgram("dbimport-cli"), arguments);
            QVERIFY2(run.exitCode == exitCode && run.err.contains(error) &&
                         (exitCode != 2 || run.out.isEmpty()) && !run.err.contains("Click OK"),
                     qPrintable(arguments.join(' ') + ": " + run.err));
        }
        QVERIFY(GroupStore::checkFile(QDir(m_data).filePath("Spring Fair.gdb")));
        QCOMPARE(QDir(m_folder->path()).entryList({"*.gdb"}, QDir::Files | QDir::Hidden),
                 QStringList());
        QCOMPARE(m_folder->readFile("data/Existing.gdb"), QByteArray("precious"));
        QVERIFY(!QFileInfo::exists(m_ini));
        const CliRun list = cli({"--list-groups"});
        QStringList lines = list.out.split('\n', Qt::SkipEmptyParts);
        lines.sort();
        QVERIFY(list.exitCode == 0 && lines == QStringList({"Existing", "Spring Fair"}));
    }

    void importsTheSavedChoices()
    {
        prepare(2000);
        // Failures import nothing, and a file that is no Group is left as it was.
        m_folder->writeFile("data/Broken.gdb", "just text");
        const QString outside = m_folder->filePath("Outside.gdb");
        GroupStore::createFile(outside, GroupStore::groupFields());
        const QList<QPair<QStringList, QString>> failures = {
            {{"Nobody's DB"}, "\"Nobody's DB\""},
            {{"Contacts DB"}, "\"Customers\""},
            {{"Contacts DB", "--group", "Broken"}, "the import failed: "},
            {{"Contacts DB", "--group", "Broken"}, "(error 3100)\n"},
            {{"Contacts DB", "--group", "../Outside"}, "cannot be used"}};
        for (const auto& [arguments, error] : failures) {
            const CliRun run = job(arguments);
            QVERIFY2(run.exitCode == 1 && run.err.contains(error), qPrintable(run.err));
        }
        QVERIFY(!QFileInfo::exists(m_group));
        QCOMPARE(m_folder->readFile("data/Broken.gdb"), QByteArray("just text"));
        QCOMPARE(SqliteColumn(outside, "SELECT COUNT(*) FROM Recipients"), QStringList{"0"});
        QCOMPARE(cli({"--create-group", "Customers"}).exitCode, 0);
        // The connection name is matched without regard to case, like the settings' own.
        const CliRun run = job({"contacts db"});
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(!run.out.contains('\r'), "plain lines when not on a terminal");
        QVERIFY2(!run.out.contains("  0% "), "no progress line before the first tenth");
        for (const char* line :
             {"Importing ...\n", "Import Complete ...\n", "  100% Importing ...\n"})
            QVERIFY2(run.out.contains(line), line);
        // Every question declined: the offer to open the log is printed and answered No.
        QVERIFY2(run.err.contains("Would you like to review the log file now? No"),
                 qPrintable(run.err));
        const QString log = QDir(m_data).filePath("Database Import Log File.txt");
        for (const QString& line :
             QStringList{"Connection       : Contacts DB", "Group            : Customers",
                         "Mode             : add", "Log file         : " + log + '\n'})
            QVERIFY2(run.out.contains(line), qPrintable(line));
        const int added = run.figure("Recipients Added"), illegal = run.figure("Illegal");
        QCOMPARE(run.figure("Total Processed"), 2000);
        QCOMPARE(added + run.figure("Duplicates") + illegal, 2000);
        QVERIFY(illegal > 0 && added < 2000 - illegal);
        // The Group holds what was reported: unique addresses, stored trimmed.
        QCOMPARE(summary(), QString("%1,%1,0").arg(added));

        // The Group and Replace given on the command line win over the saved ones. A quiet
        // run that goes well leaves nothing for cron to mail, and the JSON summary holds the
        // same figures as the Group.
        m_data += '/';
        QCOMPARE(cli({"--create-group", "Other"}).exitCode, 0);
        const CliRun quiet = runProgram(buildProgram("dbimport-cli"),
                                        {"--data-folder", m_data, "--ini", m_ini, "--connection",
                                         "Contacts DB", "--group", "Other", "--replace", "--quiet"},
                                        m_folder->path());
        QVERIFY2(quiet.exitCode == 0 && quiet.out.isEmpty() && quiet.err.isEmpty(),
                 qPrintable(quiet.out + quiet.err));
        QVERIFY(m_folder->readFile("data/Database Import Log File.txt")
                    .contains("#   Destination Group : Other\r\n#   Replace : True\r\n"));
        QCOMPARE(summary(), QString("%1,%1,0").arg(added));
        const CliRun json = job({"Contacts DB", "--group", "Other", "--json"});
        QJsonParseError error;
        const QJsonObject o = QJsonDocument::fromJson(json.out.toUtf8(), &error).object();
        QVERIFY2(error.error == QJsonParseError::NoError && json.exitCode == 0,
                 qPrintable(json.out));
        QCOMPARE(o["connection"].toString() + '|' + o["group"].toString() + '|' +
                     QString::number(o["replace"].toBool()) + '|' + o["log"].toString(),
                 "Contacts DB|Other|0|" + QDir::cleanPath(log));
        QCOMPARE(o["processed"].toInt(), 2000);
        QCOMPARE(o["added"].toInt(), 0);
        QCOMPARE(o["duplicates"].toInt() + o["illegal"].toInt(), 2000);
        QVERIFY(o["seconds"].toDouble() > 0 && o["exitStatus"].toInt() == 0 && o["error"].isNull());
        // Scheduled runs never change the choices the user saved.
        QCOMPARE(m_folder->readFile("dbimport.ini"), m_iniBytes);
    }

    // Connections whose choices were never completed are refused before anything runs;
    // listing the connections shows their names, never their strings.
    void incompleteChoicesAndConnectionList()
    {
        prepare(10, 7,
                {{"No Table", [](ImportChoices& c) { c.SelectedTable.clear(); }},
                 {"No Statement", [](ImportChoices& c) { c.FilterMethod = 1; }},
                 {"No Email", [](ImportChoices& c) { c.FieldMappings.Delete("EMailAddress"); }}});
        QCOMPARE(cli({"--create-group", "Customers"}).exitCode, 0);
        for (const QString name : {"No Table", "No Statement", "No Email"}) {
            const CliRun run = job({name, "--json"});
            const QString error = "the connection \"" + name +
                                  "\" has no saved import choices: "
                                  "open it once in the wizard and start an import";
            const QJsonObject o = QJsonDocument::fromJson(run.out.toUtf8()).object();
            QVERIFY2(run.exitCode == 1 && run.err == "dbimport-cli: " + error + '\n' &&
                         o["error"] == error && o["exitStatus"] == 1,
                     qPrintable(run.err + run.out));
        }
        QVERIFY(!QFileInfo::exists(QDir(m_data).filePath("Database Import Log File.txt")));
        QCOMPARE(records("1"), 0);

        const CliRun list =
            runProgram(buildProgram("dbimport-cli"), {"--list-connections", "--ini", m_ini});
        QCOMPARE(list.exitCode, 0);
        QCOMPARE(list.out, "Contacts DB\nNo Table\nNo Statement\nNo Email\n");
    }

    // Every option the manual page describes is in --help, and the other way round.
    void helpMatchesManualPage()
    {
        QFile page(QStringLiteral(DBIMPORT_SOURCE_DIR "/docs/dbimport-cli.1"));
        QVERIFY(page.open(QIODevice::ReadOnly));
        const QString manual = QString::fromUtf8(page.readAll()).replace("\\-", "-");
        const CliRun help = runProgram(buildProgram("dbimport-cli"), {"--help"});
        QCOMPARE(help.exitCode, 0);
        const auto options = [](const QString& pattern, const QString& text) {
            QStringList found;
            for (const auto& m :
                 QRegularExpression(pattern, QRegularExpression::MultilineOption).globalMatch(text))
                found << m.captured(1);
            found.sort();
            return found;
        };
        const QStringList offered = options("^  (--[a-z-]+)", help.out);
        QVERIFY(offered.size() >= 13);
        QCOMPARE(options("^\\.TP\n\\.B (--[a-z-]+)", manual), offered);
        const CliRun version = runProgram(buildProgram("dbimport-cli"), {"--version"});
        QCOMPARE(version.out, u"dbimport-cli " DBIMPORT_VERSION_STRING "\n"_s);
    }

    // A killed run keeps every batch it committed, and undo takes back just those.
    void killedMidImportKeepsCommittedBatches()
    {
        prepare(400000, 11);
        QCOMPARE(cli({"--create-group", "Customers"}).exitCode, 0);
        QCOMPARE(BuildSqliteDatabase(m_group, {"INSERT INTO Recipients (EmailAddress, City, "
                                               "DateAdded) VALUES ('keep@x.com', NULL, '1')"}),
                 QString());
        // Killed as soon as some batches are in the file, well before the end.
        const int seen = killImportOnceGroupHolds(
            {"--data-folder", m_data, "--ini", m_ini, "--connection", "Contacts DB", "--quiet"},
            m_group, 20000);
        QVERIFY2(seen >= 0, "the import ended before it could be killed");
        // The Group opens and holds every batch committed before the kill, each record complete.
        QVERIFY(GroupStore::checkFile(m_group));
        QCOMPARE(SqliteColumn(m_group, "PRAGMA integrity_check"), QStringList{"ok"});
        const int kept = records("1");
        QVERIFY2(kept >= seen && kept < 400000, qPrintable(QString::number(kept)));
        QCOMPARE(records("EmailAddress IS NULL OR DateAdded IS NULL OR City IS NULL"), 1);
        // The run builds the e-mail index once at its end; killed before that, the file is
        // without it until the Group is next opened, which builds it again.
        auto hasEmailIndex = [&] {
            const QStringList indexes =
                SqliteColumn(m_group, "SELECT sql FROM sqlite_master WHERE type = 'index'");
            return indexes.size() == 1 && indexes.first().contains("EmailAddress") &&
                   indexes.first().contains("COLLATE NOCASE");
        };
        QVERIFY(!hasEmailIndex());
        GroupStore().open(m_group);
        QVERIFY(hasEmailIndex());
        // Running again finishes the job: the kept records count as duplicates.
        const CliRun rerun = job({"Contacts DB"});
        const int added = rerun.figure("Recipients Added");
        QVERIFY(rerun.exitCode == 0 && added >= 0);
        QCOMPARE(summary(), QString("%1,%1,0").arg(kept + added));
        QVERIFY(hasEmailIndex());
        // Undoing the rerun, then the killed run, leaves the recipient from before them.
        for (const int removed : {added, kept - 1}) {
            const CliRun undo = cli({"--undo-last", "--group", "Customers"});
            QVERIFY2(undo.out.contains(QString("%1 recipient(s) removed").arg(removed)),
                     qPrintable(undo.out));
        }
        QCOMPARE(SqliteColumn(m_group, "SELECT EmailAddress || DateAdded FROM Recipients"),
                 QStringList{"keep@x.com1"});
    }

    // A test run says what the real run then does, logs the same lines to its own log and
    // leaves the Group file as it was, byte for byte.
    void testRunPredictsTheRealRun()
    {
        for (const auto& [replace, wouldChange] : {std::pair{false, -1}, {true, 3}}) {
            init();
            // old@ changes its city (and then, coming again, nothing), same@ only gains empty
            // texts where it had NULLs, new@ comes twice: its second row overwrites the first,
            // which a test run never wrote.
            preparePeople({"'old@x.com', 'Old', 'O', 'Leeds', NULL, NULL",
                           "'same@x.com', 'Sam', NULL, NULL, NULL, NULL",
                           "'new@x.com', 'New', 'N', 'York', NULL, NULL",
                           "'bad', 'B', NULL, NULL, NULL, NULL",
                           "'NEW@x.com', 'Newer', 'N', 'York', NULL, NULL",
                           "'fresh@x.com', NULL, NULL, NULL, NULL, NULL",
                           "'old@x.com', 'Old', 'O', 'Leeds', NULL, NULL"},
                          {"'old@x.com', 'Old', 'Hull', NULL, '01/01/2001'",
                           "'same@x.com', 'Sam', NULL, NULL, '01/01/2001'"});
            const QStringList mode{replace ? "--replace" : "--no-replace"};
            const QByteArray before = m_folder->readFile("data/Customers.gdb");

            const CliRun test = job(QStringList{"People"} + mode + QStringList{"--dry-run"});
            QCOMPARE(test.exitCode, 0);
            QCOMPARE(m_folder->readFile("data/Customers.gdb"), before);
            QCOMPARE(logBody("Database Import Log File.txt"), QString("<none>"));
            const QString testLog = logBody("Database Import Test Log File.txt");
            QCOMPARE(test.figure("Would change"), wouldChange);

            const CliRun real = job(QStringList{"People"} + mode);
            QCOMPARE(real.exitCode, 0);
            QCOMPARE(QList<int>({test.figure("Total Processed"), test.figure("Would be added"),
                                 test.figure("Duplicates"), test.figure("Illegal")}),
                     QList<int>({real.figure("Total Processed"), real.figure("Recipients Added"),
                                 real.figure("Duplicates"), real.figure("Illegal")}));
            QCOMPARE(real.figure("Recipients Added"), 2);
            QCOMPARE(logBody("Database Import Log File.txt"), testLog);
            // What the test run named as changing is what the real run reports as updated.
            QCOMPARE(report().count("\r\nUpdated,"), std::max(wouldChange, 0));
        }
    }

    // The report file: every refusal with the log's reason, cut values with the field and
    // its length, updates with the changed fields; values with commas, quotes and line breaks
    // quoted so that a spreadsheet reads them whole.
    void reportFile()
    {
        const QStringList common = {
            "Outcome,Reason,EmailAddress,FirstName,LastName,City,Company,Field1",
            "Refused,Invalid email (No @ sign),no-at,A,,,\",;\"\"x\"\"\",",
            "Refused,Invalid email (Blank),  ,B,,,x,",
            "Cut,City cut to 30 characters; Company cut to 50 characters,long@x.com,L,," +
                QString(31, 'c') + ',' + QString(51, 'k') + ','};
        const QString in = "in@x.com,\"\"\"Quoted\"\", Name\",,\"Line 1\r\nLine 2\",\"A, B\",";
        const QList<QPair<bool, QStringList>> cases = {
            // replace, the report's lines
            {false, common + QStringList{"Refused,Duplicate email," + in,
                                         "Refused,Duplicate email,long@x.com,Again,,,,"}},
            {true, common + QStringList{"Updated,\"Changed: FirstName, LastName, City, Company, "
                                        "Field1\"," +
                                            in,
                                        "Updated,\"Changed: FirstName, City, Company\",long@x.com,"
                                        "Again,,,,"}}};
        for (const auto& [replace, expected] : cases) {
            init();
            preparePeople(
                {"'no-at', 'A', NULL, NULL, ',;\"x\"', NULL", "'  ', 'B', NULL, NULL, 'x', NULL",
                 "'long@x.com', 'L', NULL, '" + QString(31, 'c') + "', '" + QString(51, 'k') +
                     "', NULL",
                 "'in@x.com', '\"Quoted\", Name', NULL, 'Line 1' || char(13, 10) || 'Line 2', "
                 "'A, B', NULL",
                 "'long@x.com', 'Again', NULL, NULL, NULL, NULL"},
                {"'in@x.com', 'Old', 'Hull', NULL, '01/01/2001'"});
            QCOMPARE(job({"People", replace ? "--replace" : "--no-replace"}).exitCode, 0);
            QCOMPARE(report(), expected.join("\r\n") + "\r\n");
            // A run with nothing to report leaves the header alone.
            sql(m_source, {"DELETE FROM People",
                           "INSERT INTO People VALUES ('z@x.com', NULL, NULL, NULL, NULL, NULL)"});
            QCOMPARE(job({"People"}).exitCode, 0);
            QCOMPARE(report(), expected.first() + "\r\n");
        }
    }

    // Undo puts the Group back as it was before the last run, row for row, NULLs included:
    // after a run that added and replaced, and twice in a row for the two last runs (after a
    // run killed half-way: above). Recipients edited since are left alone and counted.
    void undoLastImport()
    {
        for (const QString scenario : {"add and replace", "twice", "edited"}) {
            init();
            preparePeople({"'a@x.com', 'Ann', NULL, 'Leeds', NULL, 'n1'",
                           "'old@x.com', 'Olga', 'O', NULL, NULL, NULL",
                           "'b@x.com', 'Bob', NULL, NULL, NULL, NULL"},
                          {"'old@x.com', 'Old', NULL, 'Acme', '01/01/2001'",
                           "'other@x.com', NULL, 'Ely', NULL, '01/01/2001'"});
            const QStringList original = groupRows();
            const QString nothing = "There is no import into the Group \"Customers\" to undo.\n";
            QCOMPARE(cli({"--undo-last", "--group", "Customers"}).out, nothing);

            QString leftAlone;
            QCOMPARE(job({"People", "--replace"}).exitCode, 0);
            QVERIFY(groupRows() != original);
            if (scenario == "edited") {
                // Someone corrects a recipient the run added and one it overwrote.
                sql(m_group, {"UPDATE Recipients SET City = 'Bath' WHERE EmailAddress IN "
                              "('a@x.com', 'old@x.com')"});
                leftAlone = "\n2 recipient(s) changed since the import were left as they are.";
            }
            QStringList between = groupRows();
            if (scenario == "twice") {
                sql(m_source, {"UPDATE People SET City = 'Wells'",
                               "INSERT INTO People VALUES ('c@x.com', NULL, NULL, NULL, NULL, "
                               "NULL)"});
                QCOMPARE(job({"People", "--replace"}).exitCode, 0);
                const CliRun undo = cli({"--undo-last", "--group", "Customers"});
                QVERIFY2(undo.out.contains("1 recipient(s) removed, 3 restored."),
                         qPrintable(undo.out));
                QCOMPARE(groupRows(), between);
            }

            const CliRun undo = cli({"--undo-last", "--group", "Customers"});
            QCOMPARE(undo.exitCode, 0);
            QVERIFY2(
                undo.out.contains("from the connection \"People\" into the Group \"Customers\"?"),
                qPrintable(undo.out));
            QVERIFY2(undo.out.endsWith(leftAlone + "\n"), qPrintable(undo.out));
            if (scenario == "edited") {
                QCOMPARE(groupRows().size(), original.size() + 1);
                QCOMPARE(SqliteColumn(m_group, "SELECT EmailAddress || City FROM Recipients WHERE "
                                               "City = 'Bath' ORDER BY rowid"),
                         QStringList({"old@x.comBath", "a@x.comBath"}));
            } else {
                QCOMPARE(groupRows(), original);
            }
            QCOMPARE(SqliteColumn(m_group, "PRAGMA integrity_check"), QStringList{"ok"});
            QCOMPARE(cli({"--undo-last", "--group", "Customers"}).out, nothing);
        }
    }
};

QTEST_GUILESS_MAIN(tst_Cli)
#include "tst_cli.moc"
