// Whole imports from real source databases into real Group files, checked row by row and
// log line by log line.
#include <QtTest>

#include <functional>

#include "import/groupstore.h"
#include "import/importchoices.h"
#include "import/importengine.h"
#include "import/importlog.h"
#include "import/importview.h"
#include "util/appglobals.h"
#include "util/modApplication.h"
#include "util/scriptedmessageboxes.h"

#include "odbcenvironment.h"
#include "pgtestserver.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

namespace {

// Records what the engine shows, in order.
class RecordingView final : public ImportView
{
public:
    QStringList statuses, counters, notices;       // counters: "total,added,duplicates,illegal"
    QList<int> counterTotals, yieldTotals, values; // yieldTotals: total shown at each yield
    QList<QPair<int, int>> ranges;
    QList<bool> visibility;
    std::function<void()> onYield;
    std::function<void(const QString&)> onStatus;
    int currentTotal = 0;

    void setStatus(const QString& text) override
    {
        statuses << text;
        if (onStatus)
            onStatus(text);
    }
    void setCounters(qint32 t, qint32 a, qint32 d, qint32 i) override
    {
        counters << QString("%1,%2,%3,%4").arg(t).arg(a).arg(d).arg(i);
        counterTotals << (currentTotal = t);
    }
    void setProgressRange(int minimum, int maximum) override
    {
        ranges << qMakePair(minimum, maximum);
    }
    void setProgressValue(int value) override { values << value; }
    void setProgressVisible(bool visible) override { visibility << visible; }
    void showNoProgressNotice(const QString& text) override { notices << text; }
    void yieldToEvents() override
    {
        yieldTotals << currentTotal;
        if (onYield)
            onYield();
    }
};

const QString kLogName = "Database Import Log File.txt";

QString row(const QString& email)
{
    return QString("'%1', 'A', 'B', 'C', NULL").arg(email);
}

// Adds "GroupField=SourceField" pairs to the mappings.
void map(ImportChoices& choices, const QStringList& pairs)
{
    for (const QString& pair : pairs)
        choices.FieldMappings.Add(pair.section('=', 0, 0), pair.section('=', 1));
}

void build(const QString& file, const QStringList& statements)
{
    const QString error = BuildSqliteDatabase(file, statements);
    if (!error.isEmpty())
        qFatal("%s", qPrintable(error));
}

QString totalsText(const ImportEngine::Totals& t)
{
    return QString("%1,%2,%3,%4")
        .arg(t.totalProcessed)
        .arg(t.added)
        .arg(t.duplicates)
        .arg(t.illegal);
}

} // namespace

class tst_ImportEngine : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_folder = std::make_unique<TempFolder>();
        QVERIFY(m_folder->isValid());
        SetHostDataFolder(m_folder->hostPath());
        m_boxes = std::make_unique<ScriptedMessageBoxes>();
        m_guard = std::make_unique<MessageBoxesGuard>(m_boxes.get());
        SetShellLauncher([](const QString&, const QString&) { return 42L; });
        m_view = std::make_unique<RecordingView>();
    }

    void cleanup()
    {
        SetShellLauncher({});
        m_guard.reset();
        m_boxes.reset();
        m_folder.reset();
    }

    void importsValidatesAndSkips_data()
    {
        QTest::addColumn<bool>("replace");
        QTest::newRow("add only") << false;
        QTest::newRow("replace existing") << true;
    }

    void importsValidatesAndSkips()
    {
        QFETCH(bool, replace);
        const QString source = createSource({
            "'ann@example.com', 'Ann', 'Lee', 'Leeds', NULL",
            "'  bob@example.com  ', 'Bob', 'Ray', 'York', NULL",
            "'invalid', 'Ian', 'Val', 'Hull', NULL",
            "'ANN@EXAMPLE.COM', 'Annie', 'Lee-Smith', 'Bath', NULL",
            "'carol@example.c', 'Carol', 'Cee', 'Ely', NULL",
            "NULL, 'Nul', 'L', 'Derby', NULL",
            "'dave@example.org', 'Dave', 'New', 'Wells', NULL",
            "'erin@example', 'Erin', 'E', 'Ripon', NULL",
            "'zed@example.com', 'Zed', 'Zee', 'Truro', NULL",
            "'   ', 'Blank', 'B', 'Bury', NULL",
        });
        // The Group already holds Dave in other letter case, and Zed with a trailing blank,
        // which an address from the source (always trimmed) never matches.
        createGroup("Customers", {"Dave@Example.ORG", "zed@example.com "});
        QVERIFY(run(choicesFor(source, "Customers", replace)));
        QCOMPARE(m_totals, QString("10,3,2,5"));

        const QString today =
            QLocale::system().toString(QDate::currentDate(), QLocale::ShortFormat);
        const QString old = replace ? "dave@example.org|Dave|New|Wells|01/01/2001"
                                    : "Dave@Example.ORG|~|~|OldCity|01/01/2001";
        const QString ann =
            replace ? "ANN@EXAMPLE.COM|Annie|Lee-Smith|Bath|" : "ann@example.com|Ann|Lee|Leeds|";
        QCOMPARE(groupRows("Customers", "EmailAddress,FirstName,LastName,City,DateAdded"),
                 QStringList({old, "zed@example.com |~|~|OldCity|01/01/2001", ann + today,
                              "bob@example.com|Bob|Ray|York|" + today,
                              "zed@example.com|Zed|Zee|Truro|" + today}));
        // "#~" stands for the log's "#   " lines.
        const QString expected =
            QString(R"(# Initialising Database Import...
# Parameters
#   DSN : Test Source
#   Destination Group : Customers
#   Replace : %1
#   FilterMethod : Table
#   Selected Table : People
#     # Rules : 0
#   SQL : select * from People
#   Database Import Started: <time>
#~
#   2 entries in duplicate check list
**  IGNORED: Invalid email (No @ sign) Email=invalid
%2**  IGNORED: Invalid email (Period within 2 characters of end) Email=carol@example.c
**  IGNORED: Invalid email (Blank) Email=
%3**  IGNORED: Invalid email (No period after @ sign) Email=erin@example
**  IGNORED: Invalid email (Blank) Email=
#~
#   Total Processed  : 10
#   Recipients Added : 3
#   Duplicates       : 2
#   Illegal          : 5
#~
#   Database Import Ended : <time>)")
                .arg(replace ? "True" : "False",
                     replace ? "" : "**  IGNORED: Duplicate email, Email=ANN@EXAMPLE.COM\n",
                     replace ? "" : "**  IGNORED: Duplicate email, Email=dave@example.org\n")
                .replace("#~", "#   ");
        QCOMPARE(logLines(), expected.split('\n'));
        QCOMPARE(
            m_view->statuses,
            QStringList({"Resetting duplicate check list ...", "Loading existing Group ...",
                         "Retrieving records from Database ...", "Determining size of import ...",
                         "Importing ...", "Import Complete ..."}));
        QVERIFY(m_view->ranges.contains(qMakePair(0, 10))); // the bar's maximum is the record count
        QVERIFY(m_view->notices.isEmpty());
        // The only question is the offer to review the log; no warning was needed.
        QCOMPARE(m_boxes->texts(), QStringList{"Would you like to review the log file now?"});
        QCOMPARE(m_boxes->shown().first().icon, MessageBoxes::Icon::Question);
    }

    void fullNameMacroAndOverrides()
    {
        const QString source = createSource(
            {"'a@x.org', NULL, NULL, 'C1', 'Mr John A Smith'",
             "'b@x.org', 'Sep', NULL, 'C2', 'Dr Alexander Benjamin Christopher'",
             "'c@x.org', NULL, 'Own', 'C3', NULL", "'d@x.org', NULL, NULL, 'C4', 'Cher'"});
        createGroup("Names");
        ImportChoices choices = choicesFor(source, "Names");
        // The split overwrites the Title mapped before it; the LastName mapped after it wins.
        choices.FieldMappings.Clear();
        map(choices, {"EMailAddress=Email", "Title=City", "FullNameMacro=Full Name",
                      "LastName=Last", "Web=City", "FAX=First"});
        QVERIFY(run(choices));
        QCOMPARE(
            groupRows("Names", "Title,FirstName,Initial,LastName,WEB,FAX"),
            QStringList({"Mr|John|A||C1|", "Dr|Alexander|||C2|Sep", "|||Own|C3|", "|Cher|||C4|"}));
    }

    void sourceValuesBecomeText()
    {
        const QString longText(80, 'L');
        const QString source = createSource(
            {"'a@x.org', NULL, 'x', 'y', NULL, X'4869C3A4', 1, '2024-02-29', 3.25, 12345",
             QString::fromUtf8(
                 "'b@x.org', 'Jürgen', 'Ørsted-Ñúñez', '%1', NULL, X'00FF10', 0, NULL, "
                 "1e20, -7")
                 .arg(longText),
             "' c@x.org ', '', '', '', NULL, NULL, NULL, 'x', NULL, NULL"},
            ", Data BLOB, Flag BOOLEAN, Joined DATE, Amount REAL, Qty INTEGER");
        createGroup("Values");
        ImportChoices choices = choicesFor(source, "Values");
        map(choices,
            {"Field1=Data", "Field2=Flag", "Field3=Joined", "Field4=Amount", "Telephone=Qty"});
        QVERIFY(run(choices));
        QCOMPARE(m_totals, QString("3,3,0,0"));
        // NULL and empty text are written as empty text; numbers as decimal text; a blob holding
        // UTF-8 as its text, any other as hex; over-long text cut to the field (City: 30).
        QCOMPARE(
            groupRows("Values",
                      "EmailAddress,FirstName,LastName,City,Field1,Field2,Field3,Field4,Telephone",
                      "quote(%1)"),
            QStringList(
                {QString::fromUtf8("'a@x.org'|''|'x'|'y'|'Hiä'|'1'|'2024-02-29'|'3.25'|'12345'"),
                 QString::fromUtf8("'b@x.org'|'Jürgen'|'Ørsted-Ñúñez'|'") + longText.left(30) +
                     "'|'0x00FF10'|'0'|''|'1e+20'|'-7'",
                 "'c@x.org'|''|''|''|''|''|'x'|''|''"}));
    }

    void failures_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("errorStart");
        QTest::addColumn<QString>("lastLogLine");
        auto add = [](const char* name, const char* kind, const char* start, const char* last) {
            QTest::newRow(name) << QString(kind) << QString(start) << QString(last);
        };
        const char* failed = "#   Import failed";
        add("mapped field missing from the source", "nofield", "3265 - ", failed);
        // Opening reports success; the run fails at the first write to the Group.
        add("Group is a text file", "text", "3100 - ", failed);
        add("Group file missing", "nogroup", "3100 - ", failed);
        add("statement would change the source", "delete", "",
            "#   Error - Retrieval of records from DSN failed");
    }

    void failures()
    {
        QFETCH(QString, kind);
        QFETCH(QString, errorStart);
        QFETCH(QString, lastLogLine);
        ImportChoices choices = prepare({row("bad"), row("a@x.org")});
        const QString source = m_folder->filePath("source.db"), group = m_folder->filePath("G.gdb");
        const QByteArray text = "Title,FirstName\r\nMr,Bob\r\n";
        QFile::remove(group);
        if (kind == "text")
            m_folder->writeFile("G.gdb", text);
        else if (kind != "nogroup")
            createGroup("G");
        if (kind == "nofield")
            choices.FieldMappings.Add("Company", "Employer");
        if (kind == "delete") {
            choices.FilterMethod = 1;
            choices.AdvancedSQLString = "DELETE FROM People";
        }
        QVERIFY(!run(choices));
        QVERIFY2(!m_error.isEmpty() && m_error.startsWith(errorStart), qPrintable(m_error));
        const QStringList log = logLines();
        QCOMPARE(log.last(), lastLogLine);
        QVERIFY(!log.join('\n').contains("Total Processed"));
        QCOMPARE(m_view->statuses.last(), QString("Import Terminated due to error ..."));
        QVERIFY(m_boxes->texts().isEmpty()); // no review offer after a failure
        QCOMPARE(SqliteColumn(source, "SELECT COUNT(*) FROM People"), QStringList{"2"});
        if (kind == "nofield") {
            QVERIFY(m_error.contains("Employer"));
            QVERIFY(GroupStore::checkFile(group)); // closed and readable
        } else if (kind == "text" || kind == "nogroup") {
            QVERIFY(log.contains("#   0 entries in duplicate check list"));
            QVERIFY(log.contains("**  IGNORED: Invalid email (No @ sign) Email=bad"));
            QCOMPARE(m_totals, QString("1,0,0,1"));
            if (kind == "text")
                QCOMPARE(m_folder->readFile("G.gdb"), text);
            else
                QVERIFY(!QFileInfo::exists(group));
        }
    }

    void cancelThenNoThenYes_data()
    {
        QTest::addColumn<bool>("confirm");
        QTest::newRow("No: goes on") << false;
        QTest::newRow("Yes: stops") << true;
    }

    void cancelThenNoThenYes()
    {
        QFETCH(bool, confirm);
        QStringList rows;
        for (int i = 1; i <= 120; ++i)
            rows << row(QString("p%1@x.org").arg(i));
        const ImportChoices choices = prepare(rows);
        ImportEngine engine(choices, *m_view);
        // The Cancel button is pressed while the loop yields after record 50.
        m_view->onYield = [&] {
            if (engine.importRunning() && m_view->currentTotal == 50)
                engine.requestStop();
        };
        m_boxes->queueAnswer(confirm);
        QString errorText;
        QVERIFY2(engine.DoImportJob(errorText), qPrintable(errorText));
        QCOMPARE(
            m_boxes->texts().count("You have chosen to cancel the import process, are you sure ?"),
            1);
        const int expected = confirm ? 50 : 120;
        QCOMPARE(totalsText(engine.totals()), QString("%1,%1,0,0").arg(expected));
        const QStringList emails = groupRows("G", "EmailAddress");
        QCOMPARE(emails.size(), expected);
        QCOMPARE(emails.last(), QString("p%1@x.org").arg(expected));
        QCOMPARE(m_view->statuses.mid(m_view->statuses.size() - 2).join('|'),
                 confirm ? QString("Import Terminated by user ...|Import Complete ...")
                         : QString("Importing ...|Import Complete ..."));
        QVERIFY(logLines().contains(QString("#   Total Processed  : %1").arg(expected)));
    }

    void twoRunsInARow()
    {
        const ImportChoices choices =
            prepare({row("a@x.org"), row("b@x.org"), row("A@X.ORG")}, {"old@x.org"});
        ImportEngine engine(choices, *m_view);
        QString errorText;
        QVERIFY(engine.DoImportJob(errorText));
        QCOMPARE(totalsText(engine.totals()), QString("3,2,1,0"));
        QVERIFY(logLines().contains("#   1 entries in duplicate check list"));
        // The second run starts from an emptied list reloaded from the Group, and its log
        // replaces the first.
        QVERIFY(engine.DoImportJob(errorText));
        QCOMPARE(totalsText(engine.totals()), QString("3,0,3,0"));
        const QStringList log = logLines();
        QCOMPARE(log.count("# Initialising Database Import..."), 1);
        QVERIFY(log.contains("#   3 entries in duplicate check list"));
        QCOMPARE(groupRows("G", "COUNT(*)"), QStringList{"3"});
        // The list was emptied position by position down from its three entries.
        QVERIFY(m_view->ranges.contains(qMakePair(0, 3)));
    }

    void cadenceOfUpdatesAndYields()
    {
        QStringList rows;
        for (int i = 1; i <= 100; ++i)
            rows << row(QString(i % 7 == 0 ? "bad%1" : "p%1@x.org").arg(i));
        QVERIFY(run(prepare(rows)));
        // The zeroing at the start, every tenth record, and the final write after the loop.
        QCOMPARE(m_view->counterTotals,
                 QList<int>({0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 100}));
        QCOMPARE(m_view->counters.at(5), QString("50,43,0,7"));
        // Two yields while the duplicate list is built, then after records 50 and 100.
        QCOMPARE(m_view->yieldTotals, QList<int>({0, 0, 50, 100}));
        const int firstLoopValue = int(m_view->values.indexOf(10));
        QVERIFY(firstLoopValue >= 0);
        QCOMPARE(m_view->values.mid(firstLoopValue),
                 QList<int>({10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 100}));
    }

    void noRecords()
    {
        QVERIFY(run(prepare({})));
        QCOMPARE(
            m_boxes->texts(),
            QStringList({"The criteria specified did not return any records from the database.",
                         "Would you like to review the log file now?"}));
        QCOMPARE(m_boxes->shown().first().icon, MessageBoxes::Icon::Information);
        const QStringList log = logLines();
        QCOMPARE(log.size(), 13);
        QCOMPARE(log.at(11), QString("#   0 entries in duplicate check list"));
        QVERIFY(log.at(12).startsWith("#   Database Import Ended : "));
        QCOMPARE(m_view->statuses.last(), QString("Determining size of import ..."));
    }

    void logThatCannotBeOpened_data()
    {
        QTest::addColumn<bool>("goOn");
        QTest::newRow("declined") << false;
        QTest::newRow("without a log") << true;
    }

    void logThatCannotBeOpened()
    {
        QFETCH(bool, goOn);
        const ImportChoices choices = prepare({row("a@x.org"), row("bad")});
        // A folder where the log file should be: it cannot be replaced by a file.
        QVERIFY(QDir(m_folder->path()).mkpath(kLogName + "/keep"));
        m_boxes->queueAnswer(goOn);
        QCOMPARE(run(choices), goOn);
        QVERIFY(!m_error.isEmpty());
        const QString first = m_boxes->texts().value(0);
        QVERIFY2(first.startsWith("The log file cannot be opened, Error: " + m_error),
                 qPrintable(first));
        QVERIFY(first.endsWith(". Do you wist to continue with the import ?"));
        QCOMPARE(LogFileNumber(), qint16(0));
        QCOMPARE(groupRows("G", "COUNT(*)"), QStringList{goOn ? "1" : "0"});
        QCOMPARE(m_boxes->texts().size(), goOn ? 2 : 1);
        if (goOn)
            QCOMPARE(m_boxes->texts().last(),
                     QString("Would you like to review the log file now?"));
        else
            QVERIFY(m_view->statuses.isEmpty());
        QVERIFY(QFileInfo(m_folder->filePath(kLogName)).isDir());
    }

    void advancedSqlAndUnknownCount()
    {
        ImportChoices choices = prepare({row("a@x.org")});
        choices.FilterMethod = 1;
        choices.SelectedTable = "Elsewhere";
        choices.Rules.Add("City", "Equals", "=", "'C'", "And");
        // A statement that cannot be counted as a sub-query: the import goes on without a bar.
        choices.AdvancedSQLString = "PRAGMA table_info(People)";
        choices.FieldMappings.Clear();
        map(choices, {"EMailAddress=name", "Company=type"});
        QVERIFY(run(choices));
        QCOMPARE(m_view->notices,
                 QStringList{"Progress bar not displayed - Record Count is not available."});
        QVERIFY(m_view->visibility.contains(false));
        QVERIFY(m_view->ranges.contains(qMakePair(0, 1000000)));
        QCOMPARE(m_totals, QString("5,0,0,5")); // the five columns of People
        QCOMPARE(
            logLines().mid(5, 4),
            QStringList({"#   FilterMethod : User inputted SQL", "#   Selected Table : Elsewhere",
                         "#     # Rules : 1", "#   SQL : PRAGMA table_info(People)"}));
    }

    void replaceTargetMissingWarns()
    {
        // The Group's row is removed behind the engine's back after the list was loaded, so the
        // list knows the address but the Group cannot find it.
        const ImportChoices choices = prepare({row("a@x.org"), row("q@x.org")}, {"q@x.org"}, true);
        const QString group = m_folder->filePath("G.gdb");
        m_view->onStatus = [&](const QString& status) {
            if (status == "Retrieving records from Database ...")
                QCOMPARE(BuildSqliteDatabase(group, {"DELETE FROM Recipients"}), QString());
        };
        QVERIFY(run(choices));
        QCOMPARE(m_totals, QString("2,1,1,0"));
        QCOMPARE(m_boxes->shown().first().icon, MessageBoxes::Icon::Exclamation);
        QCOMPARE(
            m_boxes->texts().first(),
            QString("Warning: A record was found in the duplicates list, but could not be found "
                    "in the Veltrano database to replace."));
    }

    void reviewOfTheLog_data()
    {
        QTest::addColumn<long>("launcherResult");
        QTest::addColumn<bool>("warned");
        QTest::newRow("32 is success") << 32L << false;
        QTest::newRow("31 is failure") << 31L << true;
    }

    void reviewOfTheLog()
    {
        QFETCH(long, launcherResult);
        QFETCH(bool, warned);
        QString launched;
        SetShellLauncher([&](const QString& file, const QString&) {
            launched = file;
            return launcherResult;
        });
        m_boxes->queueAnswer(true);
        QVERIFY(run(prepare({row("a@x.org")})));
        QCOMPARE(launched, m_folder->filePath(kLogName));
        QCOMPARE(m_boxes->texts().size(), warned ? 2 : 1);
        if (warned) {
            QCOMPARE(m_boxes->shown().last().icon, MessageBoxes::Icon::Exclamation);
            QCOMPARE(m_boxes->texts().last(),
                     "Unable to launch the default text editor for your system.\r\nTo view the "
                     "details please open the following file:\r\n\r\n" +
                         m_folder->hostPath() + kLogName);
        }
    }

    void importFromPostgresOverOdbc()
    {
        PgTestServer server;
        DBIMPORT_REQUIRE_PG(server);
        OdbcEnvironment odbc;
        QVERIFY(odbc.isValid());
        PgTestDatabase database(server);
        QVERIFY2(database.error().isEmpty(), qPrintable(database.error()));
        const QString failed = database.run({
            "CREATE TABLE contacts (id serial PRIMARY KEY, email varchar(200), full_name text, "
            "city text, joined date, seen timestamp, active boolean, score numeric(8,2), "
            "visits integer, photo bytea)",
            QString::fromUtf8(
                "INSERT INTO contacts (email, full_name, city, joined, seen, active, score, "
                "visits, "
                "photo) VALUES ('ann@example.com', 'Mrs Ann Lee', 'Leeds', '2024-02-29', "
                "'2024-03-01 13:45:10', true, 12.50, 7, '\\x414243'),"
                "(' Ann@Example.com ', 'Ann Two', 'Bath', NULL, NULL, false, NULL, NULL, NULL),"
                "('zoë@exämple.de', 'Zoë Ørsted', 'Köln', '1999-12-31', NULL, NULL, -3.75, -1, "
                "NULL),"
                "('ZOË@EXÄMPLE.DE', 'Zoe Again', 'Bonn', NULL, NULL, NULL, NULL, NULL, NULL),"
                "('no-at-sign', 'Bad Row', 'Hull', NULL, NULL, NULL, NULL, NULL, NULL),"
                "(NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL),"
                "('dup@example.com', 'Pre Existing', 'York', NULL, NULL, NULL, NULL, NULL, NULL)"),
        });
        QVERIFY2(failed.isEmpty(), qPrintable(failed));
        createGroup("PG", {"DUP@example.com"});
        const QString columns = "EmailAddress,Title,FirstName,LastName,City,Field1,Field2,Field3,"
                                "Field4,Telephone,Address1";
        for (bool replace : {false, true}) {
            ImportChoices choices;
            choices.DSNName = "Postgres";
            choices.ConnectionString = server.driverString(database.name());
            choices.FilterMethod = 1;
            choices.AdvancedSQLString = "SELECT * FROM contacts ORDER BY id";
            map(choices, {"EMailAddress=email", "FullNameMacro=full_name", "City=city",
                          "Field1=joined", "Field2=active", "Field3=score", "Field4=photo",
                          "Telephone=visits", "Address1=seen"});
            choices.VTGroup = "PG";
            choices.ReplaceExisting = replace;
            QVERIFY(run(choices));
            QVERIFY(m_view->notices.isEmpty()); // the count came from COUNT(*)
            QVERIFY(m_view->ranges.contains(qMakePair(0, 7)));
            QCOMPARE(m_totals, QString(replace ? "7,0,5,2" : "7,2,3,2"));
            if (!replace) {
                // Dates, time stamps, numbers and a byte string holding text, as text.
                QCOMPARE(
                    groupRows("PG", columns).mid(1),
                    QStringList({"ann@example.com|Mrs|Ann|Lee|Leeds|2024-02-29|1|12.5|ABC|7|"
                                 "2024-03-01 13:45:10",
                                 QString::fromUtf8("zoë@exämple.de||Zoë|Ørsted|Köln|1999-12-31||"
                                                   "-3.75||-1|")}));
            }
        }
        // After the replace run every duplicate carries its last source row; the PostgreSQL
        // driver hands booleans over as the characters 0 and 1.
        QCOMPARE(groupRows("PG", columns),
                 QStringList({"dup@example.com||Pre|Existing|York||||||",
                              "Ann@Example.com||Ann|Two|Bath||0||||",
                              QString::fromUtf8("ZOË@EXÄMPLE.DE||Zoe|Again|Bonn||||||")}));
        QVERIFY(logLines().contains("**  IGNORED: Invalid email (No @ sign) Email=no-at-sign"));
    }

    void sourceDropsMidRun()
    {
        PgTestServer server;
        DBIMPORT_REQUIRE_PG(server);
        OdbcEnvironment odbc;
        QVERIFY(odbc.isValid());
        PgTestDatabase database(server);
        QVERIFY2(database.error().isEmpty(), qPrintable(database.error()));
        const QString failed =
            database.run({"CREATE TABLE contacts (id serial PRIMARY KEY, email text)",
                          "INSERT INTO contacts (email) SELECT 'p' || i || '@x.org' "
                          "FROM generate_series(1, 500) AS i"});
        QVERIFY2(failed.isEmpty(), qPrintable(failed));
        createGroup("Drop");
        ImportChoices choices;
        choices.DSNName = "Postgres";
        // Rows come in small fetches, so the server is still needed after the first yield.
        choices.ConnectionString =
            server.driverString(database.name()) + "UseDeclareFetch=1;Fetch=20;";
        choices.FilterMethod = 1;
        choices.AdvancedSQLString = "SELECT * FROM contacts ORDER BY id";
        map(choices, {"EMailAddress=email"});
        choices.VTGroup = "Drop";
        ImportEngine engine(choices, *m_view);
        // The server ends the import's session while the loop yields after record 50.
        m_view->onYield = [&] {
            if (engine.importRunning() && m_view->currentTotal == 50)
                database.run({"SELECT pg_terminate_backend(pid) FROM pg_stat_activity "
                              "WHERE datname = current_database() AND pid <> pg_backend_pid()"});
        };
        QString errorText;
        QVERIFY(!engine.DoImportJob(errorText));
        QVERIFY(!errorText.isEmpty());
        QCOMPARE(logLines().last(), QString("#   Import failed"));
        QCOMPARE(m_view->statuses.last(), QString("Import Terminated due to error ..."));
        // Every record read before the drop is in the Group, and the file is whole.
        const QString group = m_folder->filePath("Drop.gdb");
        QVERIFY(GroupStore::checkFile(group));
        const QStringList emails = groupRows("Drop", "EmailAddress");
        QVERIFY2(emails.size() >= 50 && emails.size() < 500, qPrintable(emails.join(',')));
        QCOMPARE(emails.size(), int(engine.totals().added));
        QCOMPARE(emails.last(), QString("p%1@x.org").arg(emails.size()));
    }

private:
    // A table People(Email, First, Last, City, "Full Name"[, extra]) with the given VALUES rows.
    QString createSource(const QStringList& rows, const QString& extraColumns = QString());
    QString createGroup(const QString& name, const QStringList& emails = {});
    ImportChoices choicesFor(const QString& source, const QString& group, bool replace = false);
    // A source People with these rows and a Group "G" holding these addresses; the choices
    // import the one into the other.
    ImportChoices prepare(const QStringList& rows, const QStringList& emails = {},
                          bool replace = false);
    // Runs the import into m_view; the totals as "total,added,duplicates,illegal" in m_totals.
    bool run(const ImportChoices& choices);
    QStringList logLines() const;
    // The columns of every row, '|' between them; how each value shows is the wrap's business.
    QStringList groupRows(const QString& group, const QString& columns,
                          const QString& wrap = "IFNULL(%1, '~')") const;

    std::unique_ptr<TempFolder> m_folder;
    std::unique_ptr<ScriptedMessageBoxes> m_boxes;
    std::unique_ptr<MessageBoxesGuard> m_guard;
    std::unique_ptr<RecordingView> m_view;
    QString m_totals, m_error;
};

QString tst_ImportEngine::createSource(const QStringList& rows, const QString& extraColumns)
{
    const QString file = m_folder->filePath("source.db");
    QStringList statements{QString("CREATE TABLE People (Email TEXT, First TEXT, Last TEXT, "
                                   "City TEXT, \"Full Name\" TEXT%1)")
                               .arg(extraColumns)};
    for (const QString& values : rows)
        statements << QString("INSERT INTO People VALUES (%1)").arg(values);
    build(file, statements);
    return file;
}

QString tst_ImportEngine::createGroup(const QString& name, const QStringList& emails)
{
    const QString path = m_folder->filePath(name + ".gdb");
    GroupStore::createFile(path, GroupStore::groupFields());
    QStringList statements;
    for (QString email : emails)
        statements << QString("INSERT INTO Recipients (EmailAddress, City, DateAdded) "
                              "VALUES ('%1', 'OldCity', '01/01/2001')")
                          .arg(email.replace('\'', "''"));
    build(path, statements);
    return path;
}

ImportChoices tst_ImportEngine::choicesFor(const QString& source, const QString& group,
                                           bool replace)
{
    ImportChoices c;
    c.DSNName = "Test Source";
    c.ConnectionString = "Provider=SQLite;Data Source=" + source;
    c.FilterMethod = 0;
    c.SelectedTable = "People";
    map(c, {"EMailAddress=Email", "FirstName=First", "LastName=Last", "City=City"});
    c.VTGroup = group;
    c.ReplaceExisting = replace;
    return c;
}

ImportChoices tst_ImportEngine::prepare(const QStringList& rows, const QStringList& emails,
                                        bool replace)
{
    createGroup("G", emails);
    return choicesFor(createSource(rows), "G", replace);
}

bool tst_ImportEngine::run(const ImportChoices& choices)
{
    ImportEngine engine(choices, *m_view);
    m_error.clear();
    const bool ok = engine.DoImportJob(m_error);
    m_totals = totalsText(engine.totals());
    return ok && !engine.importRunning();
}

QStringList tst_ImportEngine::logLines() const
{
    const QByteArray bytes = m_folder->readFile(kLogName);
    if (bytes.isEmpty())
        return {};
    if (!bytes.endsWith("\r\n"))
        return {"<log does not end in CR LF>"};
    // The start and end lines carry the day and time: "Mon 13:45:10".
    static const QRegularExpression stamp("(Started: |Ended : )(Mon|Tue|Wed|Thu|Fri|Sat|Sun) "
                                          "\\d\\d:\\d\\d:\\d\\d\r\n");
    const QString text = QString::fromUtf8(bytes).replace(stamp, "\\1<time>\r\n");
    if (text.count('\n') != text.count("\r\n") || text.count('\r') != text.count("\r\n"))
        return {"<bare line break in log>"};
    return text.chopped(2).split("\r\n");
}

QStringList tst_ImportEngine::groupRows(const QString& group, const QString& columns,
                                        const QString& wrap) const
{
    QStringList parts;
    for (const QString& column : columns.split(','))
        parts << wrap.arg(column);
    return SqliteColumn(m_folder->filePath(group + ".gdb"),
                        "SELECT " + parts.join(" || '|' || ") + " FROM Recipients ORDER BY rowid");
}

QTEST_GUILESS_MAIN(tst_ImportEngine)
#include "tst_importengine.moc"
