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
    QStringList statuses;
    QStringList counters; // "total,added,duplicates,illegal"
    QList<int> counterTotals;
    QList<int> yieldTotals; // the total processed shown when each yield came
    QList<QPair<int, int>> ranges;
    QList<int> values;
    QList<bool> visibility;
    QStringList notices;
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
        counters << QStringLiteral("%1,%2,%3,%4").arg(t).arg(a).arg(d).arg(i);
        counterTotals << t;
        currentTotal = t;
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

const QString kLogName = QStringLiteral("Database Import Log File.txt");

QString sqlText(const QString& value)
{
    return QLatin1Char('\'') + QString(value).replace(QLatin1Char('\''), QStringLiteral("''")) +
           QLatin1Char('\'');
}

} // namespace

class tst_ImportEngine : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void importsValidatesAndSkips_data();
    void importsValidatesAndSkips();
    void fullNameMacroAndOverrides();
    void sourceValuesBecomeText();
    void missingSourceFieldStopsTheRun();
    void groupThatIsNotAGroupFile_data();
    void groupThatIsNotAGroupFile();
    void cancelThenNoThenYes_data();
    void cancelThenNoThenYes();
    void twoRunsInARow();
    void cadenceOfUpdatesAndYields();
    void noRecords();
    void logThatCannotBeOpened_data();
    void logThatCannotBeOpened();
    void advancedSqlAndUnknownCount();
    void replaceTargetMissingWarns();
    void statementThatWouldChangeTheSource();
    void reviewOfTheLog_data();
    void reviewOfTheLog();
    void importFromPostgresOverOdbc();

private:
    QString createSource(const QStringList& rows, const QString& extraColumns = QString());
    QString createGroup(const QString& name, const QStringList& emails = {});
    ImportChoices choicesFor(const QString& source, const QString& group, bool replace);
    QStringList logLines() const;
    QStringList groupRows(const QString& group, const QString& expression) const;

    std::unique_ptr<TempFolder> m_folder;
    std::unique_ptr<ScriptedMessageBoxes> m_boxes;
    std::unique_ptr<MessageBoxesGuard> m_guard;
};

void tst_ImportEngine::init()
{
    m_folder = std::make_unique<TempFolder>();
    QVERIFY(m_folder->isValid());
    SetHostDataFolder(m_folder->hostPath());
    m_boxes = std::make_unique<ScriptedMessageBoxes>();
    m_guard = std::make_unique<MessageBoxesGuard>(m_boxes.get());
    SetShellLauncher([](const QString&, const QString&) { return 42L; });
}

void tst_ImportEngine::cleanup()
{
    SetShellLauncher({});
    m_guard.reset();
    m_boxes.reset();
    m_folder.reset();
}

// A table People(Email, First, Last, City, Full[, extra]) with the given VALUES rows.
QString tst_ImportEngine::createSource(const QStringList& rows, const QString& extraColumns)
{
    const QString file = m_folder->filePath(QStringLiteral("source.db"));
    QStringList statements{
        QStringLiteral("CREATE TABLE People (Email TEXT, First TEXT, Last TEXT, City TEXT, "
                       "\"Full Name\" TEXT%1)")
            .arg(extraColumns)};
    for (const QString& row : rows)
        statements << QStringLiteral("INSERT INTO People VALUES (%1)").arg(row);
    const QString error = BuildSqliteDatabase(file, statements);
    if (!error.isEmpty())
        qFatal("%s", qPrintable(error));
    return file;
}

QString tst_ImportEngine::createGroup(const QString& name, const QStringList& emails)
{
    const QString path = m_folder->filePath(name + QStringLiteral(".gdb"));
    GroupStore::createFile(path, GroupStore::groupFields());
    QStringList statements;
    for (const QString& email : emails)
        statements << QStringLiteral("INSERT INTO Recipients (EmailAddress, City, DateAdded) "
                                     "VALUES (%1, 'OldCity', '01/01/2001')")
                          .arg(sqlText(email));
    const QString error = BuildSqliteDatabase(path, statements);
    if (!error.isEmpty())
        qFatal("%s", qPrintable(error));
    return path;
}

ImportChoices tst_ImportEngine::choicesFor(const QString& source, const QString& group,
                                           bool replace)
{
    ImportChoices c;
    c.DSNName = QStringLiteral("Test Source");
    c.ConnectionString = QStringLiteral("Provider=SQLite;Data Source=") + source;
    c.FilterMethod = 0;
    c.SelectedTable = QStringLiteral("People");
    c.FieldMappings.Add(QStringLiteral("EMailAddress"), QStringLiteral("Email"));
    c.FieldMappings.Add(QStringLiteral("FirstName"), QStringLiteral("First"));
    c.FieldMappings.Add(QStringLiteral("LastName"), QStringLiteral("Last"));
    c.FieldMappings.Add(QStringLiteral("City"), QStringLiteral("City"));
    c.VTGroup = group;
    c.ReplaceExisting = replace;
    return c;
}

QStringList tst_ImportEngine::logLines() const
{
    const QByteArray bytes = m_folder->readFile(kLogName);
    if (bytes.isEmpty())
        return {};
    if (!bytes.endsWith("\r\n"))
        return {QStringLiteral("<log does not end in CR LF>")};
    QStringList lines = QString::fromUtf8(bytes).split(QStringLiteral("\r\n"));
    lines.removeLast();
    for (const QString& line : lines) {
        if (line.contains(QLatin1Char('\n')) || line.contains(QLatin1Char('\r')))
            return {QStringLiteral("<bare line break in log>")};
    }
    return lines;
}

QStringList tst_ImportEngine::groupRows(const QString& group, const QString& expression) const
{
    return SqliteColumn(m_folder->filePath(group + QStringLiteral(".gdb")),
                        QStringLiteral("SELECT %1 FROM Recipients ORDER BY rowid").arg(expression));
}

void tst_ImportEngine::importsValidatesAndSkips_data()
{
    QTest::addColumn<bool>("replace");
    QTest::newRow("add only") << false;
    QTest::newRow("replace existing") << true;
}

void tst_ImportEngine::importsValidatesAndSkips()
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
    createGroup(QStringLiteral("Customers"),
                {QStringLiteral("Dave@Example.ORG"), QStringLiteral("zed@example.com ")});

    const ImportChoices choices = choicesFor(source, QStringLiteral("Customers"), replace);
    RecordingView view;
    ImportEngine engine(choices, view);
    QString errorText;
    QVERIFY2(engine.DoImportJob(errorText), qPrintable(errorText));

    const ImportEngine::Totals totals = engine.totals();
    QCOMPARE(totals.totalProcessed, 10);
    QCOMPARE(totals.added, 3);
    QCOMPARE(totals.duplicates, 2);
    QCOMPARE(totals.illegal, 5);
    QVERIFY(!engine.importRunning());

    const QString today = QLocale::system().toString(QDate::currentDate(), QLocale::ShortFormat);
    const QStringList rows =
        groupRows(QStringLiteral("Customers"),
                  QStringLiteral("EmailAddress || '|' || IFNULL(FirstName, '-') || '|' || "
                                 "IFNULL(LastName, '-') || '|' || City || '|' || DateAdded"));
    if (replace) {
        QCOMPARE(rows, QStringList({"dave@example.org|Dave|New|Wells|01/01/2001",
                                    "zed@example.com |-|-|OldCity|01/01/2001",
                                    "ANN@EXAMPLE.COM|Annie|Lee-Smith|Bath|" + today,
                                    "bob@example.com|Bob|Ray|York|" + today,
                                    "zed@example.com|Zed|Zee|Truro|" + today}));
    } else {
        QCOMPARE(rows, QStringList({"Dave@Example.ORG|-|-|OldCity|01/01/2001",
                                    "zed@example.com |-|-|OldCity|01/01/2001",
                                    "ann@example.com|Ann|Lee|Leeds|" + today,
                                    "bob@example.com|Bob|Ray|York|" + today,
                                    "zed@example.com|Zed|Zee|Truro|" + today}));
    }

    const QStringList log = logLines();
    QStringList expected{
        "# Initialising Database Import...",
        "# Parameters",
        "#   DSN : Test Source",
        "#   Destination Group : Customers",
        QStringLiteral("#   Replace : ") + (replace ? "True" : "False"),
        "#   FilterMethod : Table",
        "#   Selected Table : People",
        "#     # Rules : 0",
        "#   SQL : select * from People",
        "<started>",
        "#   ",
        "#   2 entries in duplicate check list",
        "**  IGNORED: Invalid email (No @ sign) Email=invalid",
    };
    if (!replace)
        expected << "**  IGNORED: Duplicate email, Email=ANN@EXAMPLE.COM";
    expected
        << "**  IGNORED: Invalid email (Period within 2 characters of end) Email=carol@example.c"
        << "**  IGNORED: Invalid email (Blank) Email=";
    if (!replace)
        expected << "**  IGNORED: Duplicate email, Email=dave@example.org";
    expected << "**  IGNORED: Invalid email (No period after @ sign) Email=erin@example"
             << "**  IGNORED: Invalid email (Blank) Email="
             << "#   "
             << "#   Total Processed  : 10"
             << "#   Recipients Added : 3"
             << "#   Duplicates       : 2"
             << "#   Illegal          : 5"
             << "#   "
             << "<ended>";
    QCOMPARE(log.size(), expected.size());
    const QRegularExpression stamp(
        QStringLiteral("^(Mon|Tue|Wed|Thu|Fri|Sat|Sun) \\d\\d:\\d\\d:\\d\\d$"));
    for (int i = 0; i < expected.size(); ++i) {
        if (expected.at(i) == QLatin1String("<started>")) {
            QVERIFY(log.at(i).startsWith(QLatin1String("#   Database Import Started: ")));
            QVERIFY2(stamp.match(log.at(i).mid(29)).hasMatch(), qPrintable(log.at(i)));
        } else if (expected.at(i) == QLatin1String("<ended>")) {
            QVERIFY(log.at(i).startsWith(QLatin1String("#   Database Import Ended : ")));
            QVERIFY2(stamp.match(log.at(i).mid(28)).hasMatch(), qPrintable(log.at(i)));
        } else {
            QCOMPARE(log.at(i), expected.at(i));
        }
    }

    QCOMPARE(view.statuses,
             QStringList({"Resetting duplicate check list ...", "Loading existing Group ...",
                          "Retrieving records from Database ...", "Determining size of import ...",
                          "Importing ...", "Import Complete ..."}));
    QVERIFY(view.ranges.contains(qMakePair(0, 10))); // the bar's maximum is the record count
    QVERIFY(view.notices.isEmpty());
    // The only question is the offer to review the log; no warning was needed.
    QCOMPARE(m_boxes->texts(), QStringList{"Would you like to review the log file now?"});
    QCOMPARE(m_boxes->shown().first().icon, MessageBoxes::Icon::Question);
}

void tst_ImportEngine::fullNameMacroAndOverrides()
{
    const QString source = createSource({
        "'a@x.org', NULL, NULL, 'C1', 'Mr John A Smith'",
        "'b@x.org', 'Sep', NULL, 'C2', 'Dr Alexander Benjamin Christopher'",
        "'c@x.org', NULL, 'Own', 'C3', NULL",
        "'d@x.org', NULL, NULL, 'C4', 'Cher'",
    });
    createGroup(QStringLiteral("Names"));
    ImportChoices choices;
    choices.DSNName = QStringLiteral("n");
    choices.ConnectionString = QStringLiteral("Provider=SQLite;Data Source=") + source;
    choices.SelectedTable = QStringLiteral("People");
    choices.VTGroup = QStringLiteral("Names");
    choices.FieldMappings.Add(QStringLiteral("EMailAddress"), QStringLiteral("Email"));
    choices.FieldMappings.Add(QStringLiteral("Title"),
                              QStringLiteral("City")); // overwritten by the split
    choices.FieldMappings.Add(QStringLiteral("FullNameMacro"), QStringLiteral("Full Name"));
    choices.FieldMappings.Add(QStringLiteral("LastName"),
                              QStringLiteral("Last")); // overwrites the split
    choices.FieldMappings.Add(QStringLiteral("Web"), QStringLiteral("City"));
    choices.FieldMappings.Add(QStringLiteral("FAX"), QStringLiteral("First"));
    RecordingView view;
    ImportEngine engine(choices, view);
    QString errorText;
    QVERIFY2(engine.DoImportJob(errorText), qPrintable(errorText));
    QCOMPARE(groupRows(
                 QStringLiteral("Names"),
                 QStringLiteral(
                     "Title || '|' || FirstName || '|' || Initial || '|' || LastName || '|' || WEB "
                     "|| '|' || FAX")),
             QStringList({"Mr|John|A||C1|", "Dr|Alexander|||C2|Sep", "|||Own|C3|", "|Cher|||C4|"}));
}

void tst_ImportEngine::sourceValuesBecomeText()
{
    const QString longText = QString(80, QLatin1Char('L'));
    const QString source = createSource(
        {
            QStringLiteral(
                "'a@x.org', NULL, 'x', 'y', NULL, X'4869C3A4', 1, '2024-02-29', 3.25, 12345"),
            QStringLiteral(
                "'b@x.org', 'Jürgen', 'Ørsted-Ñúñez', '%1', NULL, X'00FF10', 0, NULL, 1e20, -7")
                .arg(longText),
            QStringLiteral("' c@x.org ', '', '', '', NULL, NULL, NULL, 'x', NULL, NULL"),
        },
        QStringLiteral(", Data BLOB, Flag BOOLEAN, Joined DATE, Amount REAL, Qty INTEGER"));
    createGroup(QStringLiteral("Values"));
    ImportChoices choices = choicesFor(source, QStringLiteral("Values"), false);
    choices.FieldMappings.Add(QStringLiteral("Field1"), QStringLiteral("Data"));
    choices.FieldMappings.Add(QStringLiteral("Field2"), QStringLiteral("Flag"));
    choices.FieldMappings.Add(QStringLiteral("Field3"), QStringLiteral("Joined"));
    choices.FieldMappings.Add(QStringLiteral("Field4"), QStringLiteral("Amount"));
    choices.FieldMappings.Add(QStringLiteral("Telephone"), QStringLiteral("Qty"));
    RecordingView view;
    ImportEngine engine(choices, view);
    QString errorText;
    QVERIFY2(engine.DoImportJob(errorText), qPrintable(errorText));
    QCOMPARE(engine.totals().added, 3);
    // NULL and empty text are written as empty text; numbers as decimal text; a blob holding
    // UTF-8 as its text, any other as hex; over-long text cut to the field (City: 30).
    QCOMPARE(
        groupRows(
            QStringLiteral("Values"),
            QStringLiteral(
                "quote(EmailAddress) || '|' || quote(FirstName) || '|' || quote(LastName) || '|' "
                "|| quote(City) || '|' || quote(Field1) || '|' || quote(Field2) || '|' || "
                "quote(Field3) || '|' || quote(Field4) || '|' || quote(Telephone)")),
        QStringList({"'a@x.org'|''|'x'|'y'|'" + QString::fromUtf8("Hiä") +
                         "'|'1'|'2024-02-29'|'3.25'|'12345'",
                     "'b@x.org'|'" + QString::fromUtf8("Jürgen") + "'|'" +
                         QString::fromUtf8("Ørsted-Ñúñez") + "'|'" + longText.left(30) +
                         "'|'0x00FF10'|'0'|''|'1e+20'|'-7'",
                     "'c@x.org'|''|''|''|''|''|'x'|''|''"}));
}

void tst_ImportEngine::missingSourceFieldStopsTheRun()
{
    const QString source =
        createSource({"'a@x.org', 'A', 'B', 'C', NULL", "'b@x.org', 'A', 'B', 'C', NULL"});
    createGroup(QStringLiteral("G"));
    ImportChoices choices = choicesFor(source, QStringLiteral("G"), false);
    choices.FieldMappings.Add(QStringLiteral("Company"), QStringLiteral("Employer"));
    RecordingView view;
    ImportEngine engine(choices, view);
    QString errorText;
    QVERIFY(!engine.DoImportJob(errorText));
    QVERIFY2(errorText.startsWith(QLatin1String("3265 - ")), qPrintable(errorText));
    QVERIFY(errorText.contains(QLatin1String("Employer")));
    QCOMPARE(view.statuses.last(), QStringLiteral("Import Terminated due to error ..."));
    const QStringList log = logLines();
    QCOMPARE(log.last(), QStringLiteral("#   Import failed"));
    QVERIFY(!log.join(QLatin1Char('\n')).contains(QLatin1String("Total Processed")));
    // No review offer after a failure, and the Group is closed and readable.
    QVERIFY(m_boxes->texts().isEmpty());
    QVERIFY(GroupStore::checkFile(m_folder->filePath(QStringLiteral("G.gdb"))));
}

void tst_ImportEngine::groupThatIsNotAGroupFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("text file") << QByteArray("Title,FirstName\r\nMr,Bob\r\n");
    QTest::newRow("no file") << QByteArray();
}

void tst_ImportEngine::groupThatIsNotAGroupFile()
{
    QFETCH(QByteArray, content);
    const QString source =
        createSource({"'bad', 'A', 'B', 'C', NULL", "'a@x.org', 'A', 'B', 'C', NULL"});
    if (!content.isEmpty())
        m_folder->writeFile(QStringLiteral("Broken.gdb"), content);
    RecordingView view;
    const ImportChoices choices = choicesFor(source, QStringLiteral("Broken"), false);
    ImportEngine engine(choices, view);
    QString errorText;
    // Opening reports success; the run fails at the first write to the Group.
    QVERIFY(!engine.DoImportJob(errorText));
    QVERIFY2(errorText.startsWith(QLatin1String("3100 - ")), qPrintable(errorText));
    const QStringList log = logLines();
    QVERIFY(log.contains(QStringLiteral("#   0 entries in duplicate check list")));
    QVERIFY(log.contains(QStringLiteral("**  IGNORED: Invalid email (No @ sign) Email=bad")));
    QCOMPARE(log.last(), QStringLiteral("#   Import failed"));
    QCOMPARE(engine.totals().illegal, 1);
    if (!content.isEmpty())
        QCOMPARE(m_folder->readFile(QStringLiteral("Broken.gdb")), content);
    else
        QVERIFY(!QFileInfo::exists(m_folder->filePath(QStringLiteral("Broken.gdb"))));
}

void tst_ImportEngine::cancelThenNoThenYes_data()
{
    QTest::addColumn<bool>("confirm");
    QTest::newRow("No: goes on") << false;
    QTest::newRow("Yes: stops") << true;
}

void tst_ImportEngine::cancelThenNoThenYes()
{
    QFETCH(bool, confirm);
    QStringList rows;
    for (int i = 1; i <= 120; ++i)
        rows << QStringLiteral("'p%1@x.org', 'F', 'L', 'C', NULL").arg(i);
    const QString source = createSource(rows);
    createGroup(QStringLiteral("G"));
    RecordingView view;
    const ImportChoices choices = choicesFor(source, QStringLiteral("G"), false);
    ImportEngine engine(choices, view);
    // The Cancel button is pressed while the loop yields after record 50.
    view.onYield = [&] {
        if (engine.importRunning() && view.currentTotal == 50)
            engine.requestStop();
    };
    m_boxes->queueAnswer(confirm);
    QString errorText;
    QVERIFY2(engine.DoImportJob(errorText), qPrintable(errorText));

    const QString question =
        QStringLiteral("You have chosen to cancel the import process, are you sure ?");
    QCOMPARE(m_boxes->texts().count(question), 1);
    const int expected = confirm ? 50 : 120;
    QCOMPARE(engine.totals().totalProcessed, expected);
    QCOMPARE(engine.totals().added, expected);
    QCOMPARE(groupRows(QStringLiteral("G"), QStringLiteral("COUNT(*)")).first().toInt(), expected);
    QCOMPARE(groupRows(QStringLiteral("G"), QStringLiteral("EmailAddress")).last(),
             QStringLiteral("p%1@x.org").arg(expected));
    if (confirm) {
        QCOMPARE(view.statuses.mid(view.statuses.size() - 2),
                 QStringList({"Import Terminated by user ...", "Import Complete ..."}));
    } else {
        QVERIFY(!view.statuses.contains(QStringLiteral("Import Terminated by user ...")));
    }
    QVERIFY(logLines().contains(QStringLiteral("#   Total Processed  : %1").arg(expected)));
}

void tst_ImportEngine::twoRunsInARow()
{
    const QString source =
        createSource({"'a@x.org', 'A', 'B', 'C', NULL", "'b@x.org', 'A', 'B', 'C', NULL",
                      "'A@X.ORG', 'A', 'B', 'C', NULL"});
    createGroup(QStringLiteral("G"), {QStringLiteral("old@x.org")});
    const ImportChoices choices = choicesFor(source, QStringLiteral("G"), false);
    RecordingView view;
    ImportEngine engine(choices, view);
    QString errorText;
    QVERIFY(engine.DoImportJob(errorText));
    QCOMPARE(engine.totals().added, 2);
    QVERIFY(logLines().contains(QStringLiteral("#   1 entries in duplicate check list")));

    // The second run starts from an emptied list reloaded from the Group, and its log
    // replaces the first.
    QVERIFY(engine.DoImportJob(errorText));
    QCOMPARE(engine.totals().added, 0);
    QCOMPARE(engine.totals().duplicates, 3);
    const QStringList log = logLines();
    QCOMPARE(log.count(QStringLiteral("# Initialising Database Import...")), 1);
    QVERIFY(log.contains(QStringLiteral("#   3 entries in duplicate check list")));
    QCOMPARE(groupRows(QStringLiteral("G"), QStringLiteral("COUNT(*)")), QStringList{"3"});
    // The list was emptied position by position down from its three entries.
    QVERIFY(view.ranges.contains(qMakePair(0, 3)));
}

void tst_ImportEngine::cadenceOfUpdatesAndYields()
{
    QStringList rows;
    for (int i = 1; i <= 100; ++i)
        rows << (i % 7 == 0 ? QStringLiteral("'bad%1', 'F', 'L', 'C', NULL").arg(i)
                            : QStringLiteral("'p%1@x.org', 'F', 'L', 'C', NULL").arg(i));
    const QString source = createSource(rows);
    createGroup(QStringLiteral("G"));
    RecordingView view;
    const ImportChoices choices = choicesFor(source, QStringLiteral("G"), false);
    ImportEngine engine(choices, view);
    QString errorText;
    QVERIFY(engine.DoImportJob(errorText));
    // The zeroing at the start, every tenth record, and the final write after the loop.
    QCOMPARE(view.counterTotals, QList<int>({0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 100}));
    QCOMPARE(view.counters.at(5), QStringLiteral("50,43,0,7"));
    // Two yields while the duplicate list is built, then after records 50 and 100.
    QCOMPARE(view.yieldTotals, QList<int>({0, 0, 50, 100}));
    const int firstLoopValue = int(view.values.indexOf(10));
    QVERIFY(firstLoopValue >= 0);
    QCOMPARE(view.values.mid(firstLoopValue),
             QList<int>({10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 100}));
}

void tst_ImportEngine::noRecords()
{
    const QString source = createSource({});
    createGroup(QStringLiteral("G"));
    RecordingView view;
    const ImportChoices choices = choicesFor(source, QStringLiteral("G"), false);
    ImportEngine engine(choices, view);
    QString errorText;
    QVERIFY(engine.DoImportJob(errorText));
    QCOMPARE(m_boxes->texts(),
             QStringList({"The criteria specified did not return any records from the database.",
                          "Would you like to review the log file now?"}));
    QCOMPARE(m_boxes->shown().first().icon, MessageBoxes::Icon::Information);
    const QStringList log = logLines();
    QCOMPARE(log.size(), 13);
    QCOMPARE(log.at(11), QStringLiteral("#   0 entries in duplicate check list"));
    QVERIFY(log.at(12).startsWith(QLatin1String("#   Database Import Ended : ")));
    QCOMPARE(view.statuses.last(), QStringLiteral("Determining size of import ..."));
}

void tst_ImportEngine::logThatCannotBeOpened_data()
{
    QTest::addColumn<bool>("goOn");
    QTest::newRow("declined") << false;
    QTest::newRow("without a log") << true;
}

void tst_ImportEngine::logThatCannotBeOpened()
{
    QFETCH(bool, goOn);
    const QString source =
        createSource({"'a@x.org', 'A', 'B', 'C', NULL", "'bad', 'A', 'B', 'C', NULL"});
    createGroup(QStringLiteral("G"));
    // A folder where the log file should be: it cannot be replaced by a file.
    QVERIFY(QDir(m_folder->path()).mkpath(kLogName + QStringLiteral("/keep")));
    m_boxes->queueAnswer(goOn);
    RecordingView view;
    const ImportChoices choices = choicesFor(source, QStringLiteral("G"), false);
    ImportEngine engine(choices, view);
    QString errorText;
    QCOMPARE(engine.DoImportJob(errorText), goOn);
    QVERIFY(!errorText.isEmpty());
    const QString first = m_boxes->texts().value(0);
    QVERIFY2(first.startsWith(QStringLiteral("The log file cannot be opened, Error: ") + errorText),
             qPrintable(first));
    QVERIFY(first.endsWith(QLatin1String(". Do you wist to continue with the import ?")));
    QCOMPARE(LogFileNumber(), qint16(0));
    if (goOn) {
        QCOMPARE(engine.totals().added, 1);
        QCOMPARE(m_boxes->texts().last(),
                 QStringLiteral("Would you like to review the log file now?"));
    } else {
        QCOMPARE(m_boxes->texts().size(), 1);
        QCOMPARE(groupRows(QStringLiteral("G"), QStringLiteral("COUNT(*)")), QStringList{"0"});
        QVERIFY(view.statuses.isEmpty());
    }
    QVERIFY(QFileInfo(m_folder->filePath(kLogName)).isDir());
}

void tst_ImportEngine::advancedSqlAndUnknownCount()
{
    const QString source = createSource({"'a@x.org', 'A', 'B', 'C', NULL"});
    createGroup(QStringLiteral("G"));
    ImportChoices choices = choicesFor(source, QStringLiteral("G"), false);
    choices.FilterMethod = 1;
    choices.SelectedTable = QStringLiteral("Elsewhere");
    choices.Rules.Add(QStringLiteral("City"), QStringLiteral("Equals"), QStringLiteral("="),
                      QStringLiteral("'C'"), QStringLiteral("And"));
    // A statement that cannot be counted as a sub-query: the import goes on without a bar.
    choices.AdvancedSQLString = QStringLiteral("PRAGMA table_info(People)");
    choices.FieldMappings.Clear();
    choices.FieldMappings.Add(QStringLiteral("EMailAddress"), QStringLiteral("name"));
    choices.FieldMappings.Add(QStringLiteral("Company"), QStringLiteral("type"));
    RecordingView view;
    ImportEngine engine(choices, view);
    QString errorText;
    QVERIFY2(engine.DoImportJob(errorText), qPrintable(errorText));
    QCOMPARE(view.notices,
             QStringList{"Progress bar not displayed - Record Count is not available."});
    QVERIFY(view.visibility.contains(false));
    QVERIFY(view.ranges.contains(qMakePair(0, 1000000)));
    QCOMPARE(engine.totals().totalProcessed, 5); // the five columns of People
    QCOMPARE(engine.totals().illegal, 5);
    const QStringList log = logLines();
    QCOMPARE(log.at(5), QStringLiteral("#   FilterMethod : User inputted SQL"));
    QCOMPARE(log.at(6), QStringLiteral("#   Selected Table : Elsewhere"));
    QCOMPARE(log.at(7), QStringLiteral("#     # Rules : 1"));
    QCOMPARE(log.at(8), QStringLiteral("#   SQL : PRAGMA table_info(People)"));
}

void tst_ImportEngine::replaceTargetMissingWarns()
{
    // The Group's row is removed behind the engine's back after the list was loaded, so the
    // list knows the address but the Group cannot find it.
    const QString source =
        createSource({"'a@x.org', 'A', 'B', 'C', NULL", "'q@x.org', 'Q', 'Q', 'Q', NULL"});
    const QString group = createGroup(QStringLiteral("G"), {QStringLiteral("q@x.org")});
    RecordingView view;
    const ImportChoices choices = choicesFor(source, QStringLiteral("G"), true);
    ImportEngine engine(choices, view);
    view.onStatus = [&](const QString& status) {
        // The list is loaded by now: remove the Group's only row.
        if (status == QLatin1String("Retrieving records from Database ..."))
            QCOMPARE(BuildSqliteDatabase(group, {QStringLiteral("DELETE FROM Recipients")}),
                     QString());
    };
    QString errorText;
    QVERIFY2(engine.DoImportJob(errorText), qPrintable(errorText));
    QCOMPARE(engine.totals().duplicates, 1);
    QCOMPARE(engine.totals().added, 1);
    QCOMPARE(m_boxes->shown().first().icon, MessageBoxes::Icon::Exclamation);
    QCOMPARE(
        m_boxes->texts().first(),
        QStringLiteral(
            "Warning: A record was found in the duplicates list, but could not be found in the "
            "Veltrano database to replace."));
}

void tst_ImportEngine::statementThatWouldChangeTheSource()
{
    const QString source = createSource({"'a@x.org', 'A', 'B', 'C', NULL"});
    createGroup(QStringLiteral("G"));
    ImportChoices choices = choicesFor(source, QStringLiteral("G"), false);
    choices.FilterMethod = 1;
    choices.AdvancedSQLString = QStringLiteral("DELETE FROM People");
    RecordingView view;
    ImportEngine engine(choices, view);
    QString errorText;
    QVERIFY(!engine.DoImportJob(errorText));
    QVERIFY(!errorText.isEmpty());
    QCOMPARE(logLines().last(), QStringLiteral("#   Error - Retrieval of records from DSN failed"));
    QCOMPARE(view.statuses.last(), QStringLiteral("Import Terminated due to error ..."));
    QCOMPARE(SqliteColumn(source, QStringLiteral("SELECT COUNT(*) FROM People")), QStringList{"1"});
}

void tst_ImportEngine::reviewOfTheLog_data()
{
    QTest::addColumn<long>("launcherResult");
    QTest::addColumn<bool>("warned");
    QTest::newRow("32 is success") << 32L << false;
    QTest::newRow("31 is failure") << 31L << true;
}

void tst_ImportEngine::reviewOfTheLog()
{
    QFETCH(long, launcherResult);
    QFETCH(bool, warned);
    QString launched;
    SetShellLauncher([&](const QString& file, const QString&) {
        launched = file;
        return launcherResult;
    });
    const QString source = createSource({"'a@x.org', 'A', 'B', 'C', NULL"});
    createGroup(QStringLiteral("G"));
    m_boxes->queueAnswer(true);
    RecordingView view;
    const ImportChoices choices = choicesFor(source, QStringLiteral("G"), false);
    ImportEngine engine(choices, view);
    QString errorText;
    QVERIFY(engine.DoImportJob(errorText));
    QCOMPARE(launched, m_folder->filePath(kLogName));
    QCOMPARE(m_boxes->texts().size(), warned ? 2 : 1);
    if (warned) {
        QCOMPARE(m_boxes->shown().last().icon, MessageBoxes::Icon::Exclamation);
        QCOMPARE(
            m_boxes->texts().last(),
            QStringLiteral(
                "Unable to launch the default text editor for your system.\r\nTo view the details "
                "please open the following file:\r\n\r\n") +
                m_folder->hostPath() + kLogName);
    }
}

void tst_ImportEngine::importFromPostgresOverOdbc()
{
    PgTestServer server;
    DBIMPORT_REQUIRE_PG(server);
    OdbcEnvironment odbc;
    QVERIFY(odbc.isValid());
    PgTestDatabase database(server);
    QVERIFY2(database.error().isEmpty(), qPrintable(database.error()));
    const QString failed = database.run({
        QStringLiteral(
            "CREATE TABLE contacts (id serial PRIMARY KEY, email varchar(200), full_name text, "
            "city text, joined date, seen timestamp, active boolean, score numeric(8,2), "
            "visits integer, photo bytea)"),
        QStringLiteral(
            "INSERT INTO contacts (email, full_name, city, joined, seen, active, score, visits, "
            "photo) VALUES "
            "('ann@example.com', 'Mrs Ann Lee', 'Leeds', '2024-02-29', '2024-03-01 13:45:10', "
            "true, 12.50, 7, "
            "'\\x414243'),"
            "(' Ann@Example.com ', 'Ann Two', 'Bath', NULL, NULL, false, NULL, NULL, NULL),"
            "('zoë@exämple.de', 'Zoë Ørsted', 'Köln', '1999-12-31', NULL, NULL, -3.75, -1, NULL),"
            "('ZOË@EXÄMPLE.DE', 'Zoe Again', 'Bonn', NULL, NULL, NULL, NULL, NULL, NULL),"
            "('no-at-sign', 'Bad Row', 'Hull', NULL, NULL, NULL, NULL, NULL, NULL),"
            "(NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL),"
            "('dup@example.com', 'Pre Existing', 'York', NULL, NULL, NULL, NULL, NULL, NULL)"),
    });
    QVERIFY2(failed.isEmpty(), qPrintable(failed));
    createGroup(QStringLiteral("PG"), {QStringLiteral("DUP@example.com")});

    for (bool replace : {false, true}) {
        ImportChoices choices;
        choices.DSNName = QStringLiteral("Postgres");
        choices.ConnectionString = server.driverString(database.name());
        choices.FilterMethod = 1;
        choices.AdvancedSQLString = QStringLiteral("SELECT * FROM contacts ORDER BY id");
        choices.FieldMappings.Add(QStringLiteral("EMailAddress"), QStringLiteral("email"));
        choices.FieldMappings.Add(QStringLiteral("FullNameMacro"), QStringLiteral("full_name"));
        choices.FieldMappings.Add(QStringLiteral("City"), QStringLiteral("city"));
        choices.FieldMappings.Add(QStringLiteral("Field1"), QStringLiteral("joined"));
        choices.FieldMappings.Add(QStringLiteral("Field2"), QStringLiteral("active"));
        choices.FieldMappings.Add(QStringLiteral("Field3"), QStringLiteral("score"));
        choices.FieldMappings.Add(QStringLiteral("Field4"), QStringLiteral("photo"));
        choices.FieldMappings.Add(QStringLiteral("Telephone"), QStringLiteral("visits"));
        choices.FieldMappings.Add(QStringLiteral("Address1"), QStringLiteral("seen"));
        choices.VTGroup = QStringLiteral("PG");
        choices.ReplaceExisting = replace;
        RecordingView view;
        ImportEngine engine(choices, view);
        QString errorText;
        QVERIFY2(engine.DoImportJob(errorText), qPrintable(errorText));
        QVERIFY(view.notices.isEmpty()); // the count came from COUNT(*)
        QVERIFY(view.ranges.contains(qMakePair(0, 7)));
        QCOMPARE(engine.totals().totalProcessed, 7);
        QCOMPARE(engine.totals().illegal, 2);
        if (!replace) {
            QCOMPARE(engine.totals().added, 2);
            QCOMPARE(engine.totals().duplicates, 3);
            const QStringList added = groupRows(
                QStringLiteral("PG"),
                QStringLiteral(
                    "EmailAddress || '|' || Title || '|' || FirstName || '|' || LastName || '|' || "
                    "City || '|' "
                    "|| Field1 || '|' || Field2 || '|' || Field3 || '|' || Field4 || '|' || "
                    "Telephone || '|' "
                    "|| Address1 FROM Recipients WHERE DateAdded IS NOT '01/01/2001' --"));
            // Dates, time stamps, numbers and a byte string holding text, as text.
            QCOMPARE(added,
                     QStringList({"ann@example.com|Mrs|Ann|Lee|Leeds|2024-02-29|1|12.5|ABC|7|2024-"
                                  "03-01 13:45:10",
                                  QString::fromUtf8(
                                      "zoë@exämple.de||Zoë|Ørsted|Köln|1999-12-31||-3.75||-1|")}));
        } else {
            QCOMPARE(engine.totals().added, 0);
            QCOMPARE(engine.totals().duplicates, 5);
        }
    }
    // After the replace run every duplicate carries its last source row.
    const QStringList rows = groupRows(
        QStringLiteral("PG"), QStringLiteral("EmailAddress || '|' || Title || '|' || FirstName || "
                                             "'|' || LastName || '|' || City || '|' || "
                                             "Field1 || '|' || Field2 || '|' || Field3 || '|' || "
                                             "Field4 || '|' || Telephone || '|' || Address1"));
    QCOMPARE(rows.size(), 3);
    QCOMPARE(rows.at(0), QStringLiteral("dup@example.com||Pre|Existing|York||||||"));
    // The PostgreSQL driver hands booleans over as the characters 0 and 1.
    QCOMPARE(rows.at(1), QStringLiteral("Ann@Example.com||Ann|Two|Bath||0||||"));
    QCOMPARE(rows.at(2), QString::fromUtf8("ZOË@EXÄMPLE.DE||Zoe|Again|Bonn||||||"));
    const QStringList log = logLines();
    QVERIFY(
        log.contains(QStringLiteral("**  IGNORED: Invalid email (No @ sign) Email=no-at-sign")));
}

QTEST_GUILESS_MAIN(tst_ImportEngine)
#include "tst_importengine.moc"
