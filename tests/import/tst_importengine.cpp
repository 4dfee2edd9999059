// Whole imports from real source databases into real Group files, checked row by row and
// log line by log line; the record loop's e-mail check and name split.
#include <QtTest>

#include <csignal>
#include <functional>
#include <optional>
#include <sys/resource.h>

#include "import/groupclaim.h"
#include "import/groupstore.h"
#include "import/importchoices.h"
#include "import/importengine.h"
#include "import/importlog.h"
#include "import/importview.h"
#include "query/selectsql.h"
#include "util/appglobals.h"
#include "util/modApplication.h"
#include "util/scriptedmessageboxes.h"

#include "datarow.h"
#include "odbcenvironment.h"
#include "sqlitefixture.h"
#include "tempfolder.h"
#include "testsource.h"

namespace {

// Records what the engine shows, by kind ("status", "counters", "range", "value", "bar",
// "notice", "yield"), in order.
class RecordingView final : public ImportView
{
public:
    QMap<QString, QStringList> shown;
    std::function<void(const QString&, const QString&)> onShow;
    QString total = "0"; // the last total processed shown

    void setStatus(const QString& text) override { show("status", text); }
    void setCounters(qint32 t, qint32 a, qint32 d, qint32 i) override
    {
        total = QString::number(t);
        show("counters", QString("%1,%2,%3,%4").arg(t).arg(a).arg(d).arg(i));
    }
    void setProgressRange(int min, int max) override
    {
        show("range", QString("%1-%2").arg(min).arg(max));
    }
    void setProgressValue(int value) override { show("value", QString::number(value)); }
    void setProgressVisible(bool visible) override { show("bar", visible ? "shown" : "hidden"); }
    void showNoProgressNotice(const QString& text) override { show("notice", text); }
    void yieldToEvents() override { show("yield", total); }

private:
    void show(const QString& kind, const QString& text)
    {
        shown[kind] << text;
        if (onShow)
            onShow(kind, text);
    }
};

const QString kLogName = "Database Import Log File.txt";
const QString kReview = "Would you like to review the log file now?";

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

// While it lives, no file of this process may grow past limit bytes: a full disk.
struct FileSizeLimit
{
    rlimit old{};
    explicit FileSizeLimit(rlim_t limit)
    {
        getrlimit(RLIMIT_FSIZE, &old);
        std::signal(SIGXFSZ, SIG_IGN); // the write fails instead of ending the process
        rlimit reduced = old;
        reduced.rlim_cur = limit;
        setrlimit(RLIMIT_FSIZE, &reduced);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &old); }
};

} // namespace

class tst_ImportEngine : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_folder = std::make_unique<TempFolder>();
        SetHostDataFolder(m_folder->hostPath());
        m_boxes.clear();
        m_guard.emplace(&m_boxes);
        m_launch = 32; // the lowest result that means the editor started
        m_launched.clear();
        SetShellLauncher([this](const QString& file, const QString&) {
            m_launched = file;
            return m_launch;
        });
        m_view = std::make_unique<RecordingView>();
    }

    void cleanup()
    {
        SetShellLauncher({});
        m_guard.reset();
    }

    void importsValidatesAndSkips_data()
    {
        QTest::addColumn<bool>("replace");
        DataRow("add only", false);
        DataRow("replace existing", true);
    }

    void importsValidatesAndSkips()
    {
        QFETCH(bool, replace);
        // The Group already holds Dave in other letter case, and Zed with a trailing blank,
        // which an address from the source (always trimmed) never matches.
        ImportChoices choices = prepare(
            {"'ann@example.com', 'Ann', 'Lee', 'Leeds', NULL",
             "'  bob@example.com  ', 'Bob', 'Ray', 'York', NULL",
             "'invalid', 'Ian', 'Val', 'Hull', NULL",
             "'ANN@EXAMPLE.COM', 'Annie', 'Lee-Smith', 'Bath', NULL",
             "'carol@example.c', 'Carol', 'Cee', 'Ely', NULL", "NULL, 'Nul', 'L', 'Derby', NULL",
             "'dave@example.org', 'Dave', 'New', 'Wells', NULL",
             "'erin@example', 'Erin', 'E', 'Ripon', NULL",
             "'zed@example.com', 'Zed', 'Zee', 'Truro', NULL", "'   ', 'Blank', 'B', 'Bury', NULL"},
            {"Dave@Example.ORG", "zed@example.com "});
        choices.ReplaceExisting = replace;
        m_boxes.queueAnswer(true);
        QVERIFY(run(choices));
        QCOMPARE(m_totals, QString("10,3,2,5"));
        // Replacing keeps the columns that are not mapped (DateAdded).
        const QString today =
            QLocale::system().toString(QDate::currentDate(), QLocale::ShortFormat);
        const QString old = replace ? "dave@example.org|Dave|New|Wells|01/01/2001"
                                    : "Dave@Example.ORG|~|~|OldCity|01/01/2001";
        const QString ann =
            replace ? "ANN@EXAMPLE.COM|Annie|Lee-Smith|Bath|" : "ann@example.com|Ann|Lee|Leeds|";
        QCOMPARE(groupRows("EmailAddress,FirstName,LastName,City,DateAdded"),
                 QStringList({old, "zed@example.com |~|~|OldCity|01/01/2001", ann + today,
                              "bob@example.com|Bob|Ray|York|" + today,
                              "zed@example.com|Zed|Zee|Truro|" + today}));
        // "#~" stands for the log's "#   " lines.
        const QString expected =
            QString(R"(# Initialising Database Import...
# Parameters
#   DSN : Test Source
#   Destination Group : G
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
            m_view->shown["status"],
            QStringList({"Resetting duplicate check list ...", "Loading existing Group ...",
                         "Retrieving records from Database ...", "Determining size of import ...",
                         "Importing ...", "Import Complete ..."}));
        QVERIFY(m_view->shown["range"].contains("0-10")); // the bar's maximum is the record count
        QVERIFY(m_view->shown["notice"].isEmpty());
        // The only question is the offer to review the log, which opens it in the editor.
        QCOMPARE(m_boxes.texts(), QStringList{kReview});
        QCOMPARE(m_launched, m_folder->filePath(kLogName));
    }

    void mappedValuesBecomeText()
    {
        const QString longText(80, 'L');
        ImportChoices choices = prepare(
            {"'a@x.org', NULL, NULL, 'C1', 'Mr John A Smith', X'4869C3A4', 1, '2024-02-29', 3.25, "
             "12345",
             QString::fromUtf8("'b@x.org', 'Jürgen', 'Ørsted', '%1', 'Dr Alexander Benjamin "
                               "Christopher', X'00FF10', 0, NULL, 1e20, -7")
                 .arg(longText),
             "' c@x.org ', '', '', '', NULL, NULL, NULL, 'x', NULL, NULL",
             "'d@x.org', NULL, NULL, 'C4', 'Cher', NULL, NULL, NULL, NULL, NULL"},
            {}, ", Data BLOB, Flag BOOLEAN, Joined DATE, Amount REAL, Qty INTEGER");
        // The split overwrites the Title mapped before it; the LastName mapped after it wins.
        choices.FieldMappings.Clear();
        map(choices, {"EMailAddress=Email", "Title=City", "FullNameMacro=Full Name",
                      "LastName=Last", "Fax=First", "Address1=City", "Field1=Data", "Field2=Flag",
                      "Field3=Joined", "Field4=Amount", "Telephone=Qty"});
        QVERIFY(run(choices));
        // NULL and empty text are written as empty text; numbers as decimal text; a blob holding
        // UTF-8 as its text, any other as hex; over-long text cut to the field (Address1: 30).
        QCOMPARE(
            groupRows("EmailAddress,Title,FirstName,Initial,LastName,FAX,Address1,Field1,"
                      "Field2,Field3,Field4,Telephone",
                      "quote(%1)"),
            QStringList({QString::fromUtf8("'a@x.org'|'Mr'|'John'|'A'|''|''|'C1'|'Hiä'|'1'|"
                                           "'2024-02-29'|'3.25'|'12345'"),
                         QString::fromUtf8("'b@x.org'|'Dr'|'Alexander'|''|'Ørsted'|'Jürgen'|'") +
                             longText.left(30) + "'|'0x00FF10'|'0'|''|'1e+20'|'-7'",
                         "'c@x.org'|''|''|''|''|''|''|''|''|'x'|''|''",
                         "'d@x.org'|''|'Cher'|''|''|''|'C4'|''|''|''|''|''"}));
    }

    // A failed run leaves the source alone and the Group whole or as it was, logs why, and
    // offers no review.
    void failures()
    {
        const QString failed = "#   Import failed";
        // The Group as a text file or missing: opening reports success, the run fails at the
        // first write. "delete": the statement would change the source. "full": the disk is
        // full at the last write.
        const QList<std::array<QString, 3>> cases = {
            // kind, error pattern, last log line
            {"nofield", "^3265 - .*Employer", failed},
            {"text", "^3100 - ", failed},
            {"nogroup", "^3100 - ", failed},
            {"delete", ".", "#   Error - Retrieval of records from DSN failed"},
            {"full", "^3100 - Cannot write", failed}};
        for (const auto& [kind, error, lastLine] : cases) {
            init();
            ImportChoices choices = prepare({row("bad"), row("a@x.org")});
            const QString group = m_folder->filePath("G.gdb");
            const QByteArray text = "Title,FirstName\r\nMr,Bob\r\n";
            if (kind == "text" || kind == "nogroup")
                QFile::remove(group);
            if (kind == "text")
                m_folder->writeFile("G.gdb", text);
            if (kind == "nofield")
                choices.FieldMappings.Add("Company", "Employer");
            choices.FilterMethod = kind == "delete" ? 1 : 0;
            choices.AdvancedSQLString = "DELETE FROM People";
            std::optional<FileSizeLimit> full;
            if (kind == "full") {
                m_view->onShow = [&](const QString& shown, const QString& shownText) {
                    // Every record read: only the closing commit is left to fail.
                    if (shown == "counters" && shownText.startsWith("2,"))
                        full.emplace(4096); // the log stays below it, the Group is above
                };
            }
            QVERIFY(!run(choices));
            full.reset();
            QVERIFY2(QRegularExpression(error).match(m_error).hasMatch(), qPrintable(m_error));
            const QStringList log = logLines();
            QCOMPARE(log.last(), lastLine);
            QVERIFY(!log.join('\n').contains("Recipients Added"));
            QCOMPARE(log.contains("**  IGNORED: Invalid email (No @ sign) Email=bad"),
                     kind != "delete");
            // The counters claim no record the Group lacks, and no record is in it by halves.
            QCOMPARE(m_totals, QString(kind == "delete" ? "0,0,0,0"
                                       : kind == "full" ? "2,0,0,1"
                                                        : "1,0,0,1"));
            if (kind == "nofield" || kind == "full")
                QCOMPARE(groupRows("COUNT(*)"), QStringList{"0"});
            QCOMPARE(m_view->shown["status"].last(), QString("Import Terminated due to error ..."));
            QVERIFY(m_boxes.texts().isEmpty());
            QCOMPARE(SqliteColumn(m_folder->filePath("source.db"), "SELECT COUNT(*) FROM People"),
                     QStringList{"2"});
            if (kind == "text")
                QCOMPARE(m_folder->readFile("G.gdb"), text);
            else
                QCOMPARE(GroupStore::checkFile(group), kind != "nogroup");
        }
    }

    // A run that finds its Group in another run's hands waits, then fails without touching
    // the Group or the other run's log. Names match the file without regard to case.
    void groupTakenByAnotherRun()
    {
        for (const QString group : {"G", "g"}) {
            init();
            ImportChoices choices = prepare({row("a@x.org")});
            choices.VTGroup = group;
            m_folder->writeFile(kLogName, "the other run's log");
            const QByteArray before = m_folder->readFile("G.gdb");
            GroupClaim other;
            QVERIFY(other.acquire(m_folder->filePath("G.gdb"), 0));
            QVERIFY(!run(choices));
            QCOMPARE(m_error, "The Group " + group + " is being imported into by another run");
            QCOMPARE(m_folder->readFile(kLogName), QByteArray("the other run's log"));
            QCOMPARE(m_folder->readFile("G.gdb"), before);
            QVERIFY(m_view->shown.isEmpty() && m_boxes.texts().isEmpty());
            other.release();
            QVERIFY(run(choices));
            QCOMPARE(groupRows("EmailAddress"), QStringList{"a@x.org"});
        }
    }

    // An address longer than the Group's field is refused, never cut to fit.
    void overlongAddresses()
    {
        const QString domain = "@example.org"; // 12 characters
        const QString fits = QString(88, 'a') + domain;
        const QString wide = QString(87, 'c') + QString::fromUtf8("\U0001F600") + domain;
        const QStringList tooLong = {QString(89, 'b') + domain, QString(89, 'b') + "@example.net"};
        const ImportChoices choices =
            prepare({row(fits), row(tooLong[0]), row(wide), row(tooLong[1])});
        QVERIFY(run(choices));
        QCOMPARE(m_totals, QString("4,2,0,2"));
        QCOMPARE(groupRows("EmailAddress"), QStringList({fits, wide}));
        for (const QString& email : tooLong)
            QVERIFY(logLines().contains(
                "**  IGNORED: Invalid email (Longer than 100 characters) Email=" + email));
    }

    // Counters every tenth record, a yield (the chance to press Cancel) every fiftieth. Cancel
    // is pressed twice: after No the run goes on, after Yes it stops, keeping what it added.
    void cancelMidImport()
    {
        QStringList rows;
        for (int i = 1; i <= 120; ++i)
            rows << row(QString(i % 7 == 0 ? "bad%1" : "p%1@x.org").arg(i));
        m_view->onShow = [&](const QString& kind, const QString&) {
            if (kind == "yield" && m_engine && m_engine->importRunning())
                m_engine->requestStop();
        };
        m_boxes.queueAnswer(false);
        m_boxes.queueAnswer(true);
        QVERIFY2(run(prepare(rows)), qPrintable(m_error));
        QCOMPARE(m_boxes.texts(),
                 QStringList(2, "You have chosen to cancel the import process, are you sure ?")
                     << kReview);
        QCOMPARE(m_totals, QString("100,86,0,14"));
        QCOMPARE(groupRows("EmailAddress").mid(85), QStringList{"p100@x.org"}); // 86 rows
        QCOMPARE(m_view->shown["status"].mid(5),
                 QStringList({"Import Terminated by user ...", "Import Complete ..."}));
        QVERIFY(logLines().contains("#   Total Processed  : 100"));
        // Two yields while the duplicate list is built; each cancel shows the counters again.
        QCOMPARE(m_view->shown["yield"], QStringList({"0", "0", "50", "100"}));
        QStringList counters;
        for (const QString& shown : m_view->shown["counters"])
            counters << shown.section(',', 0, 0);
        QCOMPARE(counters.join(','), QString("0,10,20,30,40,50,50,60,70,80,90,100,100,100"));
        QCOMPARE(m_view->shown["value"].last(), QString("100"));
    }

    // A run that finds nothing still ends its log and offers it; the editor may not start.
    void noRecordsAndNoEditor()
    {
        m_launch = 31;
        m_boxes.queueAnswer(true);
        QVERIFY(run(prepare({})));
        QCOMPARE(
            m_boxes.texts(),
            QStringList({"The criteria specified did not return any records from the database.",
                         kReview,
                         "Unable to launch the default text editor for your system.\r\nTo "
                         "view the details please open the following file:\r\n\r\n" +
                             m_folder->hostPath() + kLogName}));
        QCOMPARE(m_boxes.shown().first().icon, MessageBoxes::Icon::Information);
        QCOMPARE(m_boxes.shown().last().icon, MessageBoxes::Icon::Exclamation);
        QCOMPARE(logLines().mid(11), QStringList({"#   0 entries in duplicate check list",
                                                  "#   Database Import Ended : <time>"}));
        QCOMPARE(m_view->shown["status"].last(), QString("Determining size of import ..."));
    }

    void logThatCannotBeOpened()
    {
        const ImportChoices choices = prepare({row("a@x.org"), row("bad")});
        // A folder where the log file should be: it cannot be replaced by a file.
        QVERIFY(QDir(m_folder->path()).mkpath(kLogName + "/keep"));
        m_boxes.queueAnswer(false);
        QVERIFY(!run(choices)); // declined: nothing done
        QVERIFY(m_view->shown.isEmpty());
        QCOMPARE(groupRows("COUNT(*)"), QStringList{"0"});
        m_boxes.queueAnswer(true);
        QVERIFY(run(choices)); // goes on without a log
        QCOMPARE(groupRows("COUNT(*)"), QStringList{"1"});
        QCOMPARE(LogFileNumber(), qint16(0));
        QVERIFY(!m_error.isEmpty());
        const QString ask = "The log file cannot be opened, Error: " + m_error +
                            ". Do you wist to continue with the import ?";
        QCOMPARE(m_boxes.texts(), QStringList({ask, ask, kReview}));
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
        QCOMPARE(m_view->shown["notice"],
                 QStringList{"Progress bar not displayed - Record Count is not available."});
        QVERIFY(m_view->shown["bar"].contains("hidden"));
        QCOMPARE(m_totals, QString("5,0,0,5")); // the five columns of People
        QCOMPARE(
            logLines().mid(5, 4),
            QStringList({"#   FilterMethod : User inputted SQL", "#   Selected Table : Elsewhere",
                         "#     # Rules : 1", "#   SQL : PRAGMA table_info(People)"}));
    }

    // A server that ends the session mid-import: rows come in small fetches, so the server is
    // still needed after the first yield.
    void postgresSessionEndsMidImport()
    {
        OPEN_TEST_SOURCE(database, "postgresql",
                         QStringList({"CREATE TABLE many (id serial PRIMARY KEY, email text)",
                                      "INSERT INTO many (email) SELECT 'p' || i || '@x.org' FROM "
                                      "generate_series(1, 500) i"}));
        const ImportChoices choices =
            sourceChoices(database.conString + "UseDeclareFetch=1;Fetch=20;",
                          "SELECT * FROM many ORDER BY id", {"EMailAddress=email"});
        m_view->onShow = [&](const QString& kind, const QString& text) {
            if (kind == "yield" && text == "50" && m_engine && m_engine->importRunning())
                database.run({"SELECT pg_terminate_backend(pid) FROM pg_stat_activity "
                              "WHERE datname = current_database() AND pid <> pg_backend_pid()"});
        };
        QVERIFY(!run(choices));
        QVERIFY(!m_error.isEmpty());
        QCOMPARE(logLines().last(), QString("#   Import failed"));
        QCOMPARE(m_view->shown["status"].last(), QString("Import Terminated due to error ..."));
        // Every record read before the drop is in the Group, and the file is whole.
        QVERIFY(GroupStore::checkFile(m_folder->filePath("G.gdb")));
        const QStringList emails = groupRows("EmailAddress");
        QVERIFY2(emails.size() >= 50 && emails.size() < 500, qPrintable(emails.join(',')));
        QCOMPARE(QString::number(emails.size()), m_totals.section(',', 1, 1));
        QCOMPARE(emails.last(), QString("p%1@x.org").arg(emails.size()));
    }

    // Replacing updates the record a find gives: the first whose address is equal without
    // regard to ASCII case. The duplicate list's record numbers must agree with it.
    void replaceUpdatesTheRecordAFindGives()
    {
        // The Kelvin sign lower-cases to k, but no find matches it with an ASCII k.
        const QString kelvin = QString::fromUtf8("\u212Aate@x.org");
        const QList<QPair<QStringList, QStringList>> cases = {
            // the Group, EmailAddress|City afterwards
            {{"Kate@x.org", "KATE@x.org"}, {"kate@x.org|C", "KATE@x.org|OldCity"}},
            {{kelvin, "kate@X.org"}, {kelvin + "|OldCity", "kate@x.org|C"}}};
        for (const auto& [group, expected] : cases) {
            init();
            ImportChoices choices = prepare({row("kate@x.org")}, group);
            choices.ReplaceExisting = true;
            QVERIFY(run(choices));
            QCOMPARE(m_totals, QString("1,0,1,0"));
            QCOMPARE(groupRows("EmailAddress,City"), expected);
        }
    }

    // A replace that meets an address again compares with what it wrote last, not with what
    // the Group held before the run.
    void replaceComesBackToEarlierValues()
    {
        const QString ann = "'a@x.org', 'Ann', 'Lee', 'Leeds', NULL";
        ImportChoices choices =
            prepare({ann, "'a@x.org', 'Bob', 'Lee', 'York', NULL", ann}, {"a@x.org"});
        build(m_folder->filePath("G.gdb"),
              {"UPDATE Recipients SET FirstName = 'Ann', LastName = 'Lee', City = 'Leeds'"});
        choices.ReplaceExisting = true;
        QVERIFY(run(choices));
        QCOMPARE(m_totals, QString("3,0,3,0"));
        QCOMPARE(groupRows("EmailAddress,FirstName,City"), QStringList{"a@x.org|Ann|Leeds"});
    }

    // PostgreSQL's own types become text as the driver gives them: dates, times, numbers and a
    // byte string holding text as text, booleans as 0 and 1. A big read goes through the
    // server's COPY instead, and must come out the same.
    void postgresCopyMatchesTheDriver()
    {
        OPEN_TEST_SOURCE(
            database, "postgresql",
            QStringList(
                {"CREATE TABLE t (id serial PRIMARY KEY, email text, name varchar(20), code "
                 "char(4), n int8, f float4, d float8, m numeric(12,3), b boolean, day date, "
                 "at time, seen timestamp, photo bytea)",
                 QString::fromUtf8(
                     "INSERT INTO t (email, name, code, n, f, d, m, b, day, at, seen, photo) "
                     "VALUES "
                     "('a@x.org', E'tab\\there', 'ab', -9000000000, 1.1, 0.1, 12.500, true, "
                     "'2024-02-29', '13:45:10.25', '2024-01-01 00:00:00', '\\x414243'), "
                     "('b@x.org', E'line\\nbreak\\\\', 'Zoë', 0, -0.5, 1e20, -3, false, "
                     "'0099-12-31', '00:00:00', '2024-01-01 00:00:00.5', '\\x00ff'), "
                     "('c@x.org', NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, "
                     "'1999-12-31 23:59:59.999999', '')"),
                 "INSERT INTO t (email) SELECT 'p' || i || '@x.org' FROM generate_series(1, 10000) "
                 "i"}));
        const QString columns = "EmailAddress,FirstName,Zip,Address1,Address2,City,State,"
                                "Country,Company,JobTitle,WEB,Telephone";
        QStringList routes[2];
        for (int big = 0; big < 2; ++big) {
            QFile::remove(m_folder->filePath("G.gdb"));
            const ImportChoices choices = sourceChoices(
                database.conString,
                QString("SELECT * FROM t WHERE id <= %1 ORDER BY id").arg(big ? 20000 : 3),
                {"EMailAddress=email", "FirstName=name", "Zip=code", "Address1=n", "Address2=f",
                 "City=d", "State=m", "Country=b", "Company=day", "JobTitle=at", "Web=seen",
                 "Telephone=photo"});
            bool copying = false;
            m_view->onShow = [&](const QString& kind, const QString&) {
                if (kind == "yield")
                    copying = copying ||
                              database.column("SELECT count(*) FROM pg_stat_activity WHERE "
                                              "application_name = 'dbimport'") == QStringList{"1"};
            };
            QVERIFY(run(choices));
            QCOMPARE(copying, big == 1);
            routes[big] = groupRows(columns, "quote(%1)").mid(0, 3);
        }
        QCOMPARE(routes[0].value(0),
                 "'a@x.org'|'tab\there'|'ab  '|'-9000000000'|'1.1'|'0.1'|'12.5'|"
                 "'1'|'2024-02-29'|'13:45:10'|'2024-01-01'|'ABC'");
        QCOMPARE(routes[1], routes[0]);
    }

    // A big source is read ahead on a helper thread: a read that fails part-way still
    // stops the run right there, with every record before it in the Group, in order.
    void sourceFailingWhileReadAhead()
    {
        for (const int failingRow : {700, 29990}) { // in an early batch, near the end
            init();
            const QString source = m_folder->filePath("big.db");
            build(source, {"CREATE TABLE People AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
                           "SELECT i + 1 FROM n WHERE i < 30000) SELECT 'p' || i || '@x.org' AS "
                           "Email, i AS Id FROM n"});
            // json() refuses an address: the statement fails on that row, not before.
            QVERIFY(!run(sourceChoices(
                "Provider=SQLite;Data Source=" + source,
                QString("SELECT Id, CASE WHEN Id < %1 THEN Email ELSE json(Email) END AS Email "
                        "FROM People")
                    .arg(failingRow),
                {"EMailAddress=Email", "Zip=Id"})));
            QVERIFY2(m_error.contains("malformed JSON"), qPrintable(m_error));
            QCOMPARE(m_totals, QString("%1,%1,0,0").arg(failingRow - 1));
            QCOMPARE(logLines().last(), QString("#   Import failed"));
            QCOMPARE(
                SqliteColumn(m_folder->filePath("G.gdb"),
                             "SELECT COUNT(*) || ',' || SUM(Zip = rowid AND EmailAddress = 'p' || "
                             "rowid || '@x.org') FROM Recipients"),
                QStringList{QString("%1,%1").arg(failingRow - 1)});
        }
    }

    // Nothing a table name or rule value holds changes a PostgreSQL source: a second
    // statement is refused before it is sent (which statements are refused: the source
    // connection's own test), and the server itself runs the one statement read-only, so
    // that a function that writes and a sequence fail too.
    void postgresSourceIsNeverChanged()
    {
        OPEN_TEST_SOURCE(
            database, "postgresql",
            QStringList(
                {"CREATE TABLE t (id serial PRIMARY KEY, email text)",
                 "INSERT INTO t (email) SELECT 'p' || i || '@x.org' FROM generate_series(1, 20) i",
                 "CREATE TABLE calls (n int)", "CREATE SEQUENCE s",
                 "CREATE FUNCTION grab() RETURNS int LANGUAGE plpgsql AS "
                 "$$BEGIN INSERT INTO calls VALUES (1); RETURN 1; END$$"}));
        const QList<std::array<QString, 4>> cases = {
            // statement (empty: table t with the rule below), table, rule value, error pattern
            {"", "t;COMMIT;DELETE/**/FROM/**/t", "", "does not exist"},
            {"", "t", "'x' OR 1=1; COMMIT; DELETE FROM t; --", "second statement"},
            {"SELECT email, grab() FROM t", "", "", "read-only"}, // a function that writes
            {"SELECT email, nextval('s') FROM t", "", "", "read-only"}};
        for (const auto& [sql, table, ruleValue, error] : cases) {
            QFile::remove(m_folder->filePath("G.gdb"));
            ImportChoices choices = sourceChoices(database.conString, sql, {"EMailAddress=email"});
            choices.SelectedTable = table;
            if (!ruleValue.isEmpty())
                choices.Rules.Add("email", "Equals", "=", ruleValue, "And");
            QVERIFY(!run(choices));
            QVERIFY2(m_error.contains(QRegularExpression(error)), qPrintable(m_error));
            QCOMPARE(logLines().last(),
                     QString("#   Error - Retrieval of records from DSN failed"));
            QCOMPARE(
                database.column("SELECT count(*) || ',' || (SELECT count(*) FROM calls) || ',' "
                                "|| (SELECT last_value || '' || is_called FROM s) FROM t"),
                QStringList{"20,0,1false"});
            QCOMPARE(groupRows("COUNT(*)"), QStringList{"0"});
        }
    }

    // Table mode quotes names as PostgreSQL expects, so capitals, a reserved word and a blank
    // reach it as they are; the log keeps the statement as built and shows the one sent.
    void postgresTableNames()
    {
        const QString table = "Order Lines";
        const QString quoted = '"' + table + '"';
        OPEN_TEST_SOURCE(
            database, "postgresql",
            QStringList({"CREATE TABLE " + quoted + " (\"E Mail\" text, \"Kind\" text)",
                         "INSERT INTO " + quoted + " VALUES ('a@x.org', 'a'), ('b@x.org', 'b')"}));
        ImportChoices choices = sourceChoices(database.conString, "", {"EMailAddress=E Mail"});
        choices.SelectedTable = table;
        choices.Rules.Add("Kind", "Equals", "=", "'a'", "And");
        QVERIFY2(run(choices), qPrintable(m_error));
        QCOMPARE(groupRows("EmailAddress"), QStringList{"a@x.org"});
        const QStringList log = logLines();
        QVERIFY(log.contains("#   SQL : " + BuildImportSQL(table, choices.Rules)));
        QVERIFY(log.contains("#   SQL as sent to the source : select * from \"Order Lines\" "
                             "WHERE  \"Kind\" = 'a'"));
    }

    // E-mail validation and full-name splitting, beyond the cases the whole imports pin.
    void emailValidation()
    {
        const QString nearEnd = "Period within 2 characters of end";
        // Several at signs and a blank inside pass: the rest is the mail server's business. The
        // length test counts the trimmed text while the searches run on the text as given.
        const QList<QPair<QString, QString>> cases = {
            {"ann@example.co", ""}, {"ann@example.", nearEnd},
            {"a@b.cd.e", nearEnd},  {"a@b@c.de", ""},
            {"a b@c.de", ""},       {QString::fromUtf8("jürgen@müller.de"), ""},
            {"a@b.c  ", nearEnd}};
        for (const auto& [email, reason] : cases) {
            QString actual = "earlier"; // a valid address leaves the reason alone
            const bool valid = IsEmailValid(email, actual);
            QCOMPARE(email + ": " + actual + (valid ? " (valid)" : ""),
                     email + ": " + (reason.isEmpty() ? "earlier (valid)" : reason));
        }
    }

    void splitName()
    {
        // "full name>title|first|initial|last;..."; a short first word counts as a title
        const QStringList cases =
            QString::fromUtf8(" Cher>|||Cher;John Smith>|John||Smith;Mr John Smith>Mr|John||Smith;"
                              "Mrs Jane Smith>Mrs|Jane||Smith;John A Smith>|John|A|Smith;"
                              "John AB Smith>|John|AB|Smith;Mr J Smith>Mr|J||Smith;"
                              "Jo Smith Brown>Jo|Smith||Brown;John Smith >|John||Smith;"
                              "John A Smith Jones>|John|A|Jones;Mr J R Tolkien>Mr|J|R|Tolkien;"
                              "Frau Jürgen Müller>|Frau||Jürgen Müller;Alexander Benjamin "
                              "Christopher Davidson>|Alexander||Benjamin Christopher Davidson")
                .split(';');
        for (const QString& c : cases) {
            QString full = c.section('>', 0, 0), t, f, i, l;
            SplitName(full, t, f, i, l);
            QCOMPARE(c.section('>', 0, 0) + '>' + QStringList({t, f, i, l}).join('|'), c);
        }
    }

private:
    static void build(const QString& file, const QStringList& statements)
    {
        const QString error = BuildSqliteDatabase(file, statements);
        if (!error.isEmpty())
            qFatal("%s", qPrintable(error));
    }

    // The Group "G" holding these addresses, and choices that import the rows of sql (empty:
    // the selected table) from the source into it.
    ImportChoices sourceChoices(const QString& conString, const QString& sql,
                                const QStringList& mappings, const QStringList& emails = {})
    {
        GroupStore::createFile(m_folder->filePath("G.gdb"), GroupStore::groupFields());
        QStringList statements;
        for (const QString& email : emails)
            statements << QString("INSERT INTO Recipients (EmailAddress, City, DateAdded) "
                                  "VALUES ('%1', 'OldCity', '01/01/2001')")
                              .arg(email);
        build(m_folder->filePath("G.gdb"), statements);
        ImportChoices c;
        c.ConnectionString = conString;
        c.FilterMethod = sql.isEmpty() ? 0 : 1;
        c.AdvancedSQLString = sql;
        c.VTGroup = "G";
        map(c, mappings);
        return c;
    }

    // A source table People(Email, First, Last, City, "Full Name"[, extra]) with these VALUES
    // rows and the Group holding these addresses; the choices import the one into the other.
    ImportChoices prepare(const QStringList& rows, const QStringList& emails = {},
                          const QString& extraColumns = QString())
    {
        const QString source = m_folder->filePath("source.db");
        QStringList statements{QString("CREATE TABLE People (Email TEXT, First TEXT, Last TEXT, "
                                       "City TEXT, \"Full Name\" TEXT%1)")
                                   .arg(extraColumns)};
        for (const QString& values : rows)
            statements << QString("INSERT INTO People VALUES (%1)").arg(values);
        build(source, statements);
        ImportChoices c = sourceChoices(
            "Provider=SQLite;Data Source=" + source, "",
            {"EMailAddress=Email", "FirstName=First", "LastName=Last", "City=City"}, emails);
        c.DSNName = "Test Source";
        c.SelectedTable = "People";
        return c;
    }

    // Runs the import into m_view, reachable as m_engine meanwhile; the totals as
    // "total,added,duplicates,illegal" in m_totals.
    bool run(const ImportChoices& choices)
    {
        ImportEngine engine(choices, *m_view);
        m_engine = &engine;
        m_error.clear();
        const bool ok = engine.DoImportJob(m_error);
        const ImportEngine::Totals t = engine.totals();
        m_totals =
            QString::asprintf("%d,%d,%d,%d", t.totalProcessed, t.added, t.duplicates, t.illegal);
        m_engine = nullptr;
        return ok && !engine.importRunning();
    }

    QStringList logLines() const
    {
        // The start and end lines carry the day and time: "Mon 13:45:10".
        static const QRegularExpression stamp("(Started: |Ended : )(Mon|Tue|Wed|Thu|Fri|Sat|Sun) "
                                              "\\d\\d:\\d\\d:\\d\\d\r\n");
        const QString text =
            QString::fromUtf8(m_folder->readFile(kLogName)).replace(stamp, "\\1<time>\r\n");
        if (!text.endsWith("\r\n") || text.count('\n') != text.count("\r\n") ||
            text.count('\r') != text.count("\r\n"))
            return {"<lines not ended by CR LF>"};
        return text.chopped(2).split("\r\n");
    }

    // The columns of every row of the Group, '|' between them, each shown through the wrap.
    QStringList groupRows(const QString& columns, const QString& wrap = "IFNULL(%1, '~')") const
    {
        QStringList parts;
        for (const QString& column : columns.split(','))
            parts << wrap.arg(column);
        return SqliteColumn(m_folder->filePath("G.gdb"), "SELECT " + parts.join(" || '|' || ") +
                                                             " FROM Recipients ORDER BY rowid");
    }

    std::unique_ptr<TempFolder> m_folder;
    ScriptedMessageBoxes m_boxes;
    std::optional<MessageBoxesGuard> m_guard;
    std::unique_ptr<RecordingView> m_view;
    ImportEngine* m_engine = nullptr;
    QString m_totals, m_error, m_launched;
    long m_launch = 32;
    OdbcEnvironment m_odbc;
};

QTEST_GUILESS_MAIN(tst_ImportEngine)
#include "tst_importengine.moc"
