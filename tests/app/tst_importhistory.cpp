// What dbimport-cli leaves beside a run: the test run, the report file and the undo of
// the last import, on a real settings file, source database and Group file.
#include <QtTest>

#include "import/groupstore.h"
#include "import/importchoices.h"
#include "util/appglobals.h"

#include "clirun.h"
#include "settingsfixture.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

namespace {

// RFC 4180 as a spreadsheet reads it: quoted fields may hold commas, doubled quotes and
// line breaks; records end in CR LF.
QList<QStringList> readCsv(const QString& text, bool* wellFormed)
{
    QList<QStringList> records;
    QStringList record;
    QString field;
    bool quoted = false, atFieldStart = true;
    *wellFormed = true;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (quoted) {
            if (c == '"' && i + 1 < text.size() && text.at(i + 1) == '"') {
                field += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                field += c;
            }
        } else if (c == '"' && atFieldStart) {
            quoted = true;
            atFieldStart = false;
        } else if (c == ',') {
            record << field;
            field.clear();
            atFieldStart = true;
        } else if (c == '\r' && i + 1 < text.size() && text.at(i + 1) == '\n') {
            record << field;
            records << record;
            record.clear();
            field.clear();
            atFieldStart = true;
            ++i;
        } else if (c == '"' || c == '\r' || c == '\n') {
            *wellFormed = false; // a bare quote or line break outside quotes
        } else {
            field += c;
            atFieldStart = false;
        }
    }
    if (quoted || !record.isEmpty() || !field.isEmpty())
        *wellFormed = false; // the last record must end in CR LF
    return records;
}

} // namespace

class tst_ImportHistory : public QObject
{
    Q_OBJECT

    std::unique_ptr<TempFolder> m_folder;
    QString m_data, m_ini, m_group, m_source;

    CliRun cli(const QStringList& arguments) const
    {
        return runProgram(buildProgram("dbimport-cli"),
                          QStringList{"--data-folder", m_data} + arguments);
    }
    CliRun job(const QStringList& extra = {}) const
    {
        return cli(QStringList{"--ini", m_ini, "--connection", "People"} + extra);
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

    void sql(const QString& file, const QStringList& statements) const
    {
        const QString error = BuildSqliteDatabase(file, statements);
        QVERIFY2(error.isEmpty(), qPrintable(error));
    }

    // The source table People and saved choices for the connection "People" that import it
    // into the Group "G", which holds the given INSERT value lists already.
    void prepare(const QStringList& sourceRows, const QStringList& groupRows = {})
    {
        QStringList statements{"CREATE TABLE People (Email TEXT, First TEXT, Last TEXT, "
                               "City TEXT, Company TEXT, Notes TEXT)"};
        for (const QString& values : sourceRows)
            statements << "INSERT INTO People VALUES (" + values + ")";
        sql(m_source, statements);
        ImportChoices c;
        c.DSNName = "People";
        c.ConnectionString = "Provider=SQLite;Data Source=" + m_source;
        c.SelectedTable = "People";
        for (const QString pair : {"EMailAddress=Email", "FirstName=First", "LastName=Last",
                                   "City=City", "Company=Company", "Field1=Notes"})
            c.FieldMappings.Add(pair.section('=', 0, 0), pair.section('=', 1));
        c.VTGroup = "G";
        const QString error = saveConnectionChoices(m_ini, c);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(cli({"--create-group", "G"}).exitCode, 0);
        QStringList inserts;
        for (const QString& values : groupRows)
            inserts << "INSERT INTO Recipients (EmailAddress, FirstName, City, Company, "
                       "DateAdded) VALUES (" +
                           values + ")";
        sql(m_group, inserts);
    }

    QString logBody(const QString& name) const
    {
        static const QRegularExpression stamp("(Started: |Ended : )\\w{3} \\d\\d:\\d\\d:\\d\\d");
        return QString::fromUtf8(QFile(QDir(m_data).filePath(name)).exists()
                                     ? m_folder->readFile("data/" + name)
                                     : QByteArray("<none>"))
            .replace(stamp, "\\1<time>");
    }

    QList<QStringList> report() const
    {
        bool wellFormed = false;
        const auto rows = readCsv(
            QString::fromUtf8(m_folder->readFile("data/Database Import Report.csv")), &wellFormed);
        return wellFormed ? rows : QList<QStringList>{{"<not RFC 4180>"}};
    }

private slots:
    void init()
    {
        m_folder = std::make_unique<TempFolder>();
        m_data = m_folder->filePath("data");
        QVERIFY(QDir().mkpath(m_data));
        m_ini = m_folder->filePath("dbimport.ini");
        m_group = QDir(m_data).filePath("G.gdb");
        m_source = m_folder->filePath("source.db");
    }

    // A test run says what the real run then does, logs the same lines to its own log and
    // leaves the Group file as it was, byte for byte.
    void testRunPredictsTheRealRun_data()
    {
        QTest::addColumn<bool>("replace");
        QTest::addColumn<int>("wouldChange");
        QTest::newRow("add") << false << -1;
        QTest::newRow("replace") << true << 3;
    }
    void testRunPredictsTheRealRun()
    {
        QFETCH(bool, replace);
        QFETCH(int, wouldChange);
        // old@ changes its city (and then, coming again, nothing), same@ only gains empty
        // texts where it had NULLs, new@ comes twice: its second row overwrites the first,
        // which a test run never wrote.
        prepare({"'old@x.com', 'Old', 'O', 'Leeds', NULL, NULL",
                 "'same@x.com', 'Sam', NULL, NULL, NULL, NULL",
                 "'new@x.com', 'New', 'N', 'York', NULL, NULL",
                 "'bad', 'B', NULL, NULL, NULL, NULL",
                 "'NEW@x.com', 'Newer', 'N', 'York', NULL, NULL",
                 "'fresh@x.com', NULL, NULL, NULL, NULL, NULL",
                 "'old@x.com', 'Old', 'O', 'Leeds', NULL, NULL"},
                {"'old@x.com', 'Old', 'Hull', NULL, '01/01/2001'",
                 "'same@x.com', 'Sam', NULL, NULL, '01/01/2001'"});
        const QStringList mode{replace ? "--replace" : "--no-replace"};
        const QByteArray before = m_folder->readFile("data/G.gdb");

        const CliRun test = job(mode + QStringList{"--dry-run"});
        QCOMPARE(test.exitCode, 0);
        QCOMPARE(m_folder->readFile("data/G.gdb"), before);
        QCOMPARE(logBody("Database Import Log File.txt"), QString("<none>"));
        const QString testLog = logBody("Database Import Test Log File.txt");
        QCOMPARE(test.figure("Would change"), wouldChange);

        const CliRun real = job(mode);
        QCOMPARE(real.exitCode, 0);
        QCOMPARE(QList<int>({test.figure("Total Processed"), test.figure("Would be added"),
                             test.figure("Duplicates"), test.figure("Illegal")}),
                 QList<int>({real.figure("Total Processed"), real.figure("Recipients Added"),
                             real.figure("Duplicates"), real.figure("Illegal")}));
        QCOMPARE(real.figure("Recipients Added"), 2);
        QCOMPARE(logBody("Database Import Log File.txt"), testLog);
        // What the test run named as changing is what the real run reports as updated.
        int updated = 0;
        for (const QStringList& r : report())
            updated += r.value(0) == "Updated";
        QCOMPARE(updated, std::max(wouldChange, 0));
    }

    // The report file, read back as a spreadsheet would: every refusal with the log's
    // reason, cut values with the field and its length, updates with the changed fields,
    // values with commas, quotes and line breaks kept whole.
    void reportFile_data()
    {
        QTest::addColumn<bool>("replace");
        QTest::addColumn<QStringList>("expected");
        const QString head = "Outcome|Reason|EmailAddress|FirstName|LastName|City|Company|Field1";
        const QString refused = "Refused|Invalid email (No @ sign)|no-at|A|||,;\"x\"|";
        const QString blank = "Refused|Invalid email (Blank)|  |B|||x|";
        const QString cut =
            "Cut|City cut to 30 characters; Company cut to 50 characters|long@x.com|L||" +
            QString(31, 'c') + "|" + QString(51, 'k') + "|";
        QTest::newRow("add") << false
                             << QStringList{head,
                                            refused,
                                            blank,
                                            cut,
                                            "Refused|Duplicate email|in@x.com|\"Quoted\", Name||"
                                            "Line 1\r\nLine 2|A, B|",
                                            "Refused|Duplicate email|long@x.com|Again||||"};
        QTest::newRow("replace")
            << true
            << QStringList{head,
                           refused,
                           blank,
                           cut,
                           "Updated|Changed: FirstName, LastName, City, Company, Field1|in@x.com|"
                           "\"Quoted\", Name||Line 1\r\nLine 2|A, B|",
                           "Updated|Changed: FirstName, City, Company|long@x.com|Again||||"};
    }
    void reportFile()
    {
        QFETCH(bool, replace);
        QFETCH(QStringList, expected);
        prepare({"'no-at', 'A', NULL, NULL, ',;\"x\"', NULL", "'  ', 'B', NULL, NULL, 'x', NULL",
                 "'long@x.com', 'L', NULL, '" + QString(31, 'c') + "', '" + QString(51, 'k') +
                     "', NULL",
                 "'in@x.com', '\"Quoted\", Name', NULL, 'Line 1' || char(13, 10) || 'Line 2', "
                 "'A, B', NULL",
                 "'long@x.com', 'Again', NULL, NULL, NULL, NULL"},
                {"'in@x.com', 'Old', 'Hull', NULL, '01/01/2001'"});
        QCOMPARE(job({replace ? "--replace" : "--no-replace"}).exitCode, 0);
        QStringList rows;
        for (const QStringList& r : report())
            rows << r.join('|');
        QCOMPARE(rows, expected);

        // A run with nothing to report leaves the header alone.
        sql(m_source, {"DELETE FROM People",
                       "INSERT INTO People VALUES ('z@x.com', NULL, NULL, NULL, NULL, NULL)"});
        QCOMPARE(job().exitCode, 0);
        QCOMPARE(report(), QList<QStringList>{expected.first().split('|')});
    }

    // Undo puts the Group back as it was before the last run, row for row, NULLs included:
    // after a run that added and replaced, and twice in a row for the two last runs (after a
    // run killed half-way: tst_Cli). Recipients edited since are left alone and counted.
    void undoLastImport_data()
    {
        QTest::addColumn<QString>("scenario");
        for (const char* s : {"add and replace", "twice", "edited"})
            QTest::newRow(s) << QString(s);
    }
    void undoLastImport()
    {
        QFETCH(QString, scenario);
        prepare({"'a@x.com', 'Ann', NULL, 'Leeds', NULL, 'n1'",
                 "'old@x.com', 'Olga', 'O', NULL, NULL, NULL",
                 "'b@x.com', 'Bob', NULL, NULL, NULL, NULL"},
                {"'old@x.com', 'Old', NULL, 'Acme', '01/01/2001'",
                 "'other@x.com', NULL, 'Ely', NULL, '01/01/2001'"});
        const QStringList original = groupRows();
        QCOMPARE(cli({"--undo-last", "--group", "G"}).out,
                 QString("There is no import into the Group \"G\" to undo.\n"));

        QString leftAlone;
        QCOMPARE(job({"--replace"}).exitCode, 0);
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
            QCOMPARE(job({"--replace"}).exitCode, 0);
            const CliRun undo = cli({"--undo-last", "--group", "G"});
            QVERIFY2(undo.out.contains("1 recipient(s) removed, 3 restored."),
                     qPrintable(undo.out));
            QCOMPARE(groupRows(), between);
        }

        const CliRun undo = cli({"--undo-last", "--group", "G"});
        QCOMPARE(undo.exitCode, 0);
        QVERIFY2(undo.out.contains("from the connection \"People\" into the Group \"G\"?"),
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
        QCOMPARE(cli({"--undo-last", "--group", "G"}).out,
                 QString("There is no import into the Group \"G\" to undo.\n"));
    }
};

QTEST_GUILESS_MAIN(tst_ImportHistory)
#include "tst_importhistory.moc"
