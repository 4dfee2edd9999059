#include "commandlinerunner.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTextStream>

#include "clisummary.h"
#include "connectionstore.h"
#include "importsettings.h"
#include "import/groups.h"
#include "import/importchoices.h"
#include "import/importengine.h"
#include "import/importlog.h"
#include "import/importview.h"
#include "settingslocation.h"
#include "import/undojournal.h"
#include "util/appglobals.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"
#include "util/nativepath.h"
#include "util/scriptedmessageboxes.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// Kept in step with the manual page docs/dbimport-cli.1, which a test compares it with.
const char* const kUsage =
    "Usage:\n"
    "  dbimport-cli --data-folder DIR --connection NAME [--ini FILE] [--group NAME]\n"
    "               [--replace | --no-replace] [--dry-run] [--quiet] [--json]\n"
    "  dbimport-cli --data-folder DIR --create-group NAME [--ini FILE]\n"
    "  dbimport-cli --data-folder DIR --list-groups [--ini FILE]\n"
    "  dbimport-cli --data-folder DIR --undo-last --group NAME [--ini FILE]\n"
    "  dbimport-cli --list-connections [--ini FILE]\n"
    "  dbimport-cli --version | --help\n"
    "\n"
    "Runs the import choices last saved in the wizard for connection NAME into a Group of\n"
    "the host's data folder DIR, without changing the settings file.\n"
    "\n"
    "  --data-folder DIR   the host's data folder (a native folder)\n"
    "  --connection NAME   the named connection whose saved choices are run\n"
    "  --ini FILE          the settings file (default: see FILES in dbimport-cli(1))\n"
    "  --group NAME        import into this Group instead of the saved one\n"
    "  --replace           update recipients that are already in the Group\n"
    "  --no-replace        skip recipients that are already in the Group\n"
    "  --dry-run           a test run: what the import would do, writing nothing to the\n"
    "                      Group; its log is \"Database Import Test Log File.txt\"\n"
    "  --quiet             print nothing unless something goes wrong\n"
    "  --json              print the closing summary as one JSON object\n"
    "  --undo-last         undo the last import into the Group named by --group\n"
    "  --create-group NAME create a new, empty Group\n"
    "  --list-groups       print the Groups, one a line\n"
    "  --list-connections  print the names of the saved connections, one a line\n"
    "  --version           print the program's version\n"
    "  --help              print this help\n"
    "\n"
    "Exit codes: 0 success, 1 the job failed, 2 usage error.\n";

// Every box becomes a line on standard error, worded for a command line. A scheduled run
// cannot answer questions: it declines all of them except going on without a log, which
// only costs the log. Declining to open the log is no news, so a quiet run keeps it to itself.
class PrintingMessageBoxes final : public MessageBoxes
{
public:
    PrintingMessageBoxes(QTextStream& err, bool quiet) : m_err(err), m_quiet(quiet) {}

    void show(Icon icon, const QString& text, const QString& = QString()) override
    {
        const char* prefix = icon == Icon::Critical      ? "Error: "
                             : icon == Icon::Exclamation ? "Warning: "
                                                         : "";
        m_err << prefix << CommandLineWording(text) << Qt::endl;
    }

    bool ask(const QString& text, bool = true, const QString& = QString()) override
    {
        const bool yes = text.startsWith(QLatin1String("The log file cannot be opened"));
        if (yes || !m_quiet)
            m_err << CommandLineWording(text) << (yes ? " Yes" : " No") << Qt::endl;
        return yes;
    }

private:
    QTextStream& m_err;
    bool m_quiet;
};

// What a run prints while it works: status lines and plain progress lines on out for a log
// file or pipe, a bar redrawn in place on err for a person at a terminal, or nothing.
struct ProgressOutput
{
    bool statusLines = true;   // "Importing ..." and the like, on out
    bool plainProgress = true; // "  10% Importing ..." in steps of ten, on out
    bool bar = false;          // a bar on err, erased when its phase ends
};

class TerminalImportView final : public ImportView
{
public:
    TerminalImportView(QTextStream& out, QTextStream& err, ProgressOutput output)
        : m_out(out), m_err(err), m_output(output)
    {
        m_sinceDraw.start();
    }
    ~TerminalImportView() override { endBar(); }

    // Takes the last bar off the screen before the closing figures are printed.
    void finish() { endBar(); }

    void setStatus(const QString& text) override
    {
        endBar();
        m_status = text;
        m_lastTenth = 0;
        if (m_output.statusLines)
            m_out << text << Qt::endl;
    }
    void setCounters(qint32 totalProcessed, qint32 added, qint32 duplicates,
                     qint32 illegal) override
    {
        m_total = totalProcessed;
        m_added = added;
        m_duplicates = duplicates;
        m_illegal = illegal;
    }
    void setProgressRange(int minimum, int maximum) override
    {
        m_minimum = minimum;
        m_maximum = maximum;
    }
    void setProgressValue(int value) override
    {
        if (!m_visible || m_maximum <= m_minimum)
            return;
        const qint64 span = qint64(m_maximum) - m_minimum;
        const int percent =
            int(qBound(qint64(0), (qint64(value) - m_minimum) * 100 / span, qint64(100)));
        if (m_output.bar) {
            // Redraw when the figure changes, and a few times a second for the counters.
            if (percent != m_lastPercent || m_sinceDraw.elapsed() >= 250 || value == m_maximum)
                drawBar(percent);
        } else if (m_output.plainProgress && percent / 10 > m_lastTenth) {
            // The first line comes at 10%: the status line has already said the phase began.
            m_lastTenth = percent / 10;
            m_out << "  " << m_lastTenth * 10 << "% " << m_status << Qt::endl;
        }
    }
    void setProgressVisible(bool visible) override { m_visible = visible; }
    void showNoProgressNotice(const QString& text) override
    {
        if (m_output.statusLines)
            m_out << text << Qt::endl;
    }
    void yieldToEvents() override
    {
        if (QCoreApplication::instance())
            QCoreApplication::processEvents();
        if (m_output.bar && !m_visible && m_sinceDraw.elapsed() >= 500) {
            m_err << "\r  " << m_total << " processed, " << m_added << " added, " << m_duplicates
                  << " duplicates, " << m_illegal << " illegal" << kEraseToEnd << Qt::flush;
            m_barShown = true;
            m_sinceDraw.restart();
        }
    }

private:
    // ANSI "erase to end of line": a shorter redraw leaves nothing of the longer one.
    static constexpr const char* kEraseToEnd = "\033[K";

    void drawBar(int percent)
    {
        constexpr int width = 40;
        const int filled = percent * width / 100;
        m_err << "\r  [" << QString(filled, QLatin1Char('#'))
              << QString(width - filled, QLatin1Char('.')) << "] " << qSetFieldWidth(3) << percent
              << qSetFieldWidth(0) << "%";
        if (m_status.startsWith(QLatin1String("Importing")))
            m_err << "  " << m_total << " processed, " << m_added << " added, " << m_duplicates
                  << " dup., " << m_illegal << " illegal";
        m_err << kEraseToEnd << Qt::flush;
        m_barShown = true;
        m_lastPercent = percent;
        m_sinceDraw.restart();
    }
    // A bar belongs to its phase: once the phase is over, the line is wiped so that no
    // half-drawn bar stays on the screen between the status lines.
    void endBar()
    {
        if (m_barShown) {
            m_err << "\r" << kEraseToEnd << Qt::flush;
            m_barShown = false;
        }
        m_lastPercent = -1;
    }

    QTextStream& m_out;
    QTextStream& m_err;
    ProgressOutput m_output;
    QString m_status;
    qint32 m_total = 0, m_added = 0, m_duplicates = 0, m_illegal = 0;
    int m_minimum = 0, m_maximum = 0;
    bool m_visible = true;
    bool m_barShown = false;
    int m_lastPercent = -1;
    int m_lastTenth = 0;
    QElapsedTimer m_sinceDraw;
};

int usageError(QTextStream& err, const QString& message)
{
    err << "dbimport-cli: " << message << Qt::endl << Qt::endl << kUsage << Qt::flush;
    return kExitUsage;
}

int listGroups(QTextStream& out)
{
    for (const QString& name : LoadVTGroups())
        out << name << Qt::endl;
    return kExitOk;
}

// Names only: the connection strings may hold passwords.
int listConnections(QTextStream& out)
{
    for (const DSNEntry& entry : UpdateDSNListFromIni())
        out << entry.name << Qt::endl;
    return kExitOk;
}

// The same rules as the create-group dialog's OK button.
int createGroup(const QString& requested, QTextStream& out)
{
    const QString name = requested.trimmed();
    MessageBoxes& boxes = MessageBoxes::instance();
    if (name.isEmpty()) {
        boxes.exclamation(QStringLiteral("Please enter a Group name."));
        return kExitFailed;
    }
    if (name == QLatin1String("All Groups") || name == QLatin1String("Search Results") ||
        name == QLatin1String("Exclusion List")) {
        boxes.exclamation(QStringLiteral("Sorry but this Group name cannot be used."));
        return kExitFailed;
    }
    if (!CreateGroup(name, HostDataFolder()))
        return kExitFailed;
    out << "Created Group " << name << Qt::endl;
    return kExitOk;
}

// A connection whose choices were never saved would run "select * from " and fail late;
// the wizard saves them when an import starts.
bool hasSavedChoices(const ImportChoices& choices)
{
    const CMapping* email = choices.FieldMappings.Item(QStringLiteral("EMailAddress"));
    const bool records = choices.FilterMethod == 1 ? !choices.AdvancedSQLString.trimmed().isEmpty()
                                                   : !choices.SelectedTable.trimmed().isEmpty();
    return records && email && !email->DBField.isEmpty();
}

// The undo messages are written for a box, with CR LF between their sentences.
QString withLineFeeds(QString text)
{
    return text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
}

// No question is asked: the command itself is the user's confirmation.
int undoLast(const QString& group, QTextStream& out)
{
    MessageBoxes& boxes = MessageBoxes::instance();
    const QString hostPath = GroupFilePath(group, HostDataFolder());
    const QString path = NativePath(hostPath);
    if (!FileExists(hostPath)) {
        boxes.critical(QStringLiteral("The Group \"") + group +
                       QStringLiteral("\" does not exist."));
        return kExitFailed;
    }
    ImportRunInfo info;
    QString errorText;
    if (!UndoJournal::lastRun(path, info, errorText)) {
        if (!errorText.isEmpty()) {
            boxes.critical(errorText);
            return kExitFailed;
        }
        out << UndoJournal::nothingToUndo(group) << Qt::endl;
        return kExitOk;
    }
    out << withLineFeeds(UndoJournal::describe(info, group)) << Qt::endl;
    UndoOutcome outcome;
    if (!UndoJournal::undoLast(path, info.run, outcome, errorText)) {
        boxes.critical(errorText);
        return kExitFailed;
    }
    out << withLineFeeds(UndoJournal::describe(outcome)) << Qt::endl;
    return kExitOk;
}

// Runs the job and fills summary; on failure summary.error holds the reason.
int runImport(const QCommandLineParser& parser, ProgressOutput output, QTextStream& out,
              QTextStream& err, CliRunSummary& summary)
{
    const QString connection = parser.value(QStringLiteral("connection"));
    summary.connection = connection;
    const auto fail = [&summary](const QString& reason) {
        summary.error = reason;
        return kExitFailed;
    };

    // Exactly what leaving the wizard's connection step does: reset, then the saved choices.
    ImportChoices choices;
    choices.reset();
    bool found = false;
    const QList<DSNEntry> entries = UpdateDSNListFromIni();
    for (int pass = 0; pass < 2 && !found; ++pass) {
        for (const DSNEntry& entry : entries) {
            const bool same = pass == 0 ? entry.name == connection
                                        : entry.name.compare(connection, Qt::CaseInsensitive) == 0;
            if (same) {
                choices.DSNName = entry.name;
                choices.ConnectionString = entry.conString;
                found = true;
                break;
            }
        }
    }
    if (!found)
        return fail(QStringLiteral("there is no connection named \"") + connection +
                    QStringLiteral("\" in ") + IniFilePath());
    summary.connection = choices.DSNName;
    QString message;
    if (!LoadImportSettings(choices, message))
        return fail(QStringLiteral("cannot load the saved choices of \"") + choices.DSNName +
                    QStringLiteral("\": ") + CommandLineWording(message));
    if (parser.isSet(QStringLiteral("group")))
        choices.VTGroup = parser.value(QStringLiteral("group"));
    if (parser.isSet(QStringLiteral("replace")))
        choices.ReplaceExisting = true;
    if (parser.isSet(QStringLiteral("no-replace")))
        choices.ReplaceExisting = false;
    summary.group = choices.VTGroup;
    summary.replace = choices.ReplaceExisting;

    if (!hasSavedChoices(choices))
        return fail(QStringLiteral("the connection \"") + choices.DSNName +
                    QStringLiteral("\" has no saved import choices: open it once in the wizard "
                                   "and start an import"));
    if (choices.VTGroup.trimmed().isEmpty())
        return fail(QStringLiteral("no destination Group is saved for \"") + choices.DSNName +
                    QStringLiteral("\"; name one with --group"));
    if (!FileExists(GroupFilePath(choices.VTGroup, HostDataFolder())))
        return fail(QStringLiteral("the Group \"") + choices.VTGroup +
                    QStringLiteral("\" does not exist in ") + HostDataFolder() +
                    QStringLiteral(" (create it with --create-group)"));

    TerminalImportView view(out, err, output);
    ImportEngine engine(choices, view);
    const bool testRun = parser.isSet(QStringLiteral("dry-run"));
    engine.setTestRun(testRun);
    QString errorText;
    QElapsedTimer clock;
    clock.start();
    const QDateTime started = QDateTime::currentDateTime().addSecs(-1);
    const bool ok = engine.DoImportJob(errorText);
    view.finish();
    summary.seconds = double(clock.nsecsElapsed()) / 1e9;
    const ImportEngine::Totals totals = engine.totals();
    summary.processed = totals.totalProcessed;
    summary.added = totals.added;
    summary.duplicates = totals.duplicates;
    summary.illegal = totals.illegal;
    if (LogFileNumber() != 0)
        summary.logPath = NativePath(HostDataFolder() + engine.logFileName());
    const QString report =
        NativePath(HostDataFolder() + QStringLiteral("Database Import Report.csv"));
    // Only a report this run wrote; one left by an earlier run says nothing about this one.
    if (QFileInfo(report).isFile() && QFileInfo(report).lastModified() >= started)
        summary.reportPath = report;
    if (!ok)
        return fail(QStringLiteral("the import failed: ") + CommandLineWording(errorText));
    summary.testRun = testRun;
    summary.updated = totals.updated;
    summary.changedFields = totals.changedFields;
    return kExitOk;
}

} // namespace

int RunCommandLine(const QStringList& arguments, QTextStream& out, QTextStream& err, bool terminal)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption dataFolder(QStringLiteral("data-folder"), QString(),
                                        QStringLiteral("DIR"));
    const QCommandLineOption connection(QStringLiteral("connection"), QString(),
                                        QStringLiteral("NAME"));
    const QCommandLineOption ini(QStringLiteral("ini"), QString(), QStringLiteral("FILE"));
    const QCommandLineOption group(QStringLiteral("group"), QString(), QStringLiteral("NAME"));
    const QCommandLineOption replace(QStringLiteral("replace"));
    const QCommandLineOption noReplace(QStringLiteral("no-replace"));
    const QCommandLineOption quiet(QStringLiteral("quiet"));
    const QCommandLineOption json(QStringLiteral("json"));
    const QCommandLineOption createGroupOption(QStringLiteral("create-group"), QString(),
                                               QStringLiteral("NAME"));
    const QCommandLineOption listGroupsOption(QStringLiteral("list-groups"));
    const QCommandLineOption listConnectionsOption(QStringLiteral("list-connections"));
    const QCommandLineOption dryRun(QStringLiteral("dry-run"));
    const QCommandLineOption undoLastOption(QStringLiteral("undo-last"));
    const QCommandLineOption version(QStringLiteral("version"));
    const QCommandLineOption help(QStringList{QStringLiteral("h"), QStringLiteral("help")});
    parser.addOptions({dataFolder, connection, ini, group, replace, noReplace, quiet, json,
                       createGroupOption, listGroupsOption, listConnectionsOption, dryRun,
                       undoLastOption, version, help});

    if (!parser.parse(arguments))
        return usageError(err, parser.errorText());
    if (parser.isSet(help)) {
        out << kUsage << Qt::flush;
        return kExitOk;
    }
    if (parser.isSet(version)) {
        out << "dbimport-cli " << AppVersion() << Qt::endl;
        return kExitOk;
    }
    if (!parser.positionalArguments().isEmpty())
        return usageError(err, QStringLiteral("unexpected argument ") +
                                   parser.positionalArguments().first());
    const int actions = int(parser.isSet(connection)) + int(parser.isSet(createGroupOption)) +
                        int(parser.isSet(listGroupsOption)) +
                        int(parser.isSet(listConnectionsOption)) +
                        int(parser.isSet(undoLastOption));
    if (actions != 1)
        return usageError(err, QStringLiteral("give exactly one of --connection, --create-group, "
                                              "--list-groups, --list-connections and --undo-last"));
    if (parser.isSet(dryRun) && !parser.isSet(connection))
        return usageError(err, QStringLiteral("--dry-run goes with --connection"));
    if (parser.isSet(undoLastOption) &&
        (!parser.isSet(group) || parser.value(group).trimmed().isEmpty()))
        return usageError(err, QStringLiteral("--undo-last needs --group NAME"));
    const bool needsFolder = !parser.isSet(listConnectionsOption);
    if (needsFolder && (!parser.isSet(dataFolder) || parser.value(dataFolder).isEmpty()))
        return usageError(err, QStringLiteral("--data-folder is required"));
    if (parser.isSet(replace) && parser.isSet(noReplace))
        return usageError(err, QStringLiteral("--replace and --no-replace exclude each other"));
    if (!parser.isSet(connection) &&
        ((parser.isSet(group) && !parser.isSet(undoLastOption)) || parser.isSet(replace) ||
         parser.isSet(noReplace) || parser.isSet(quiet) || parser.isSet(json)))
        return usageError(err, QStringLiteral("--group, --replace, --no-replace, --quiet and "
                                              "--json go with --connection"));

    if (needsFolder) {
        // Absolute, so that the paths printed at the end can be used from anywhere.
        QString folder = parser.value(dataFolder);
        if (!QFileInfo(folder).isDir()) {
            err << "dbimport-cli: the data folder " << folder << " does not exist" << Qt::endl;
            return kExitFailed;
        }
        folder = QFileInfo(folder).absoluteFilePath();
        if (!folder.endsWith(QLatin1Char('/')))
            folder += QLatin1Char('/');
        SetHostDataFolder(folder);
    }
    SetIniFilePath(parser.isSet(ini) ? parser.value(ini)
                                     : SettingsFilePath(QCoreApplication::applicationDirPath()));

    const bool quietRun = parser.isSet(quiet);
    const bool jsonRun = parser.isSet(json);
    PrintingMessageBoxes boxes(err, quietRun);
    MessageBoxesGuard guard(&boxes);
    int result;
    if (parser.isSet(listGroupsOption)) {
        result = listGroups(out);
    } else if (parser.isSet(listConnectionsOption)) {
        result = listConnections(out);
    } else if (parser.isSet(undoLastOption)) {
        result = undoLast(parser.value(group), out);
    } else if (parser.isSet(createGroupOption)) {
        result = createGroup(parser.value(createGroupOption), out);
    } else {
        ProgressOutput output;
        output.statusLines = !quietRun && !jsonRun;
        output.plainProgress = output.statusLines && !terminal;
        output.bar = !quietRun && terminal;
        CliRunSummary summary;
        result = runImport(parser, output, out, err, summary);
        summary.exitStatus = result;
        if (!summary.error.isEmpty())
            err << "dbimport-cli: " << summary.error << Qt::endl;
        if (jsonRun)
            out << SummaryJson(summary);
        else if (result == kExitOk && !quietRun)
            out << SummaryText(summary);
    }
    out.flush();
    err.flush();
    return result;
}
