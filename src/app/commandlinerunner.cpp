#include "commandlinerunner.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTextStream>

#include "connectionstore.h"
#include "importsettings.h"
#include "import/groups.h"
#include "import/importchoices.h"
#include "import/importengine.h"
#include "import/importlog.h"
#include "import/importview.h"
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

const char* const kUsage =
    "Usage:\n"
    "  dbimport-cli --data-folder DIR --connection NAME [--ini FILE] [--group NAME]\n"
    "               [--replace | --no-replace] [--quiet] [--dry-run]\n"
    "  dbimport-cli --data-folder DIR --create-group NAME [--ini FILE]\n"
    "  dbimport-cli --data-folder DIR --list-groups\n"
    "  dbimport-cli --data-folder DIR --undo-last --group NAME\n"
    "\n"
    "Runs the import choices last saved in the wizard for connection NAME into a Group of\n"
    "the host's data folder DIR, without changing the settings file.\n"
    "\n"
    "  --data-folder DIR   the host's data folder (a native folder)\n"
    "  --connection NAME   the named connection whose saved choices are run\n"
    "  --ini FILE          the settings file (default: dbimport.ini beside the program)\n"
    "  --group NAME        import into this Group instead of the saved one\n"
    "  --replace           update recipients that are already in the Group\n"
    "  --no-replace        skip recipients that are already in the Group\n"
    "  --quiet             no status or progress output\n"
    "  --dry-run           a test run: what the import would do, writing nothing to the\n"
    "                      Group; its log is \"Database Import Test Log File.txt\"\n"
    "  --undo-last         undo the last import into the Group named by --group\n"
    "  --create-group NAME create a new, empty Group\n"
    "  --list-groups       print the Groups, one a line\n"
    "\n"
    "Exit codes: 0 success, 1 the job failed, 2 usage error.\n";

QString oneLine(QString text)
{
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    return text;
}

// Every box becomes a line on standard error. A scheduled run cannot answer questions:
// it declines all of them except going on without a log, which only costs the log.
class PrintingMessageBoxes final : public MessageBoxes
{
public:
    explicit PrintingMessageBoxes(QTextStream& err) : m_err(err) {}

    void show(Icon icon, const QString& text, const QString& = QString()) override
    {
        const char* prefix = icon == Icon::Critical      ? "Error: "
                             : icon == Icon::Exclamation ? "Warning: "
                                                         : "";
        m_err << prefix << oneLine(text) << Qt::endl;
    }

    bool ask(const QString& text, bool = true, const QString& = QString()) override
    {
        const bool yes = text.startsWith(QLatin1String("The log file cannot be opened"));
        m_err << oneLine(text) << (yes ? " Yes" : " No") << Qt::endl;
        return yes;
    }

private:
    QTextStream& m_err;
};

class TerminalImportView final : public ImportView
{
public:
    TerminalImportView(QTextStream& out, QTextStream& err, bool terminal, bool quiet)
        : m_out(out), m_err(err), m_terminal(terminal), m_quiet(quiet)
    {
        m_sinceDraw.start();
    }
    ~TerminalImportView() override { endBar(); }

    // Ends a progress bar line before the closing figures are printed.
    void finish() { endBar(); }

    void setStatus(const QString& text) override
    {
        endBar();
        m_status = text;
        m_lastTenth = -1;
        if (!m_quiet)
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
        if (m_quiet || !m_visible || m_maximum <= m_minimum)
            return;
        const qint64 span = qint64(m_maximum) - m_minimum;
        const int percent =
            int(qBound(qint64(0), (qint64(value) - m_minimum) * 100 / span, qint64(100)));
        if (m_terminal) {
            // Redraw when the figure changes, and a few times a second for the counters.
            if (percent != m_lastPercent || m_sinceDraw.elapsed() >= 250 || value == m_maximum)
                drawBar(percent);
        } else if (percent / 10 > m_lastTenth && percent > 0) {
            m_lastTenth = percent / 10;
            m_out << "  " << m_lastTenth * 10 << "% " << m_status << Qt::endl;
        }
    }
    void setProgressVisible(bool visible) override { m_visible = visible; }
    void showNoProgressNotice(const QString& text) override
    {
        if (!m_quiet)
            m_out << text << Qt::endl;
    }
    void yieldToEvents() override
    {
        if (QCoreApplication::instance())
            QCoreApplication::processEvents();
        if (m_terminal && !m_quiet && !m_visible && m_sinceDraw.elapsed() >= 500) {
            m_err << "\r  " << m_total << " processed, " << m_added << " added, " << m_duplicates
                  << " duplicates, " << m_illegal << " illegal" << Qt::flush;
            m_barShown = true;
            m_sinceDraw.restart();
        }
    }

private:
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
        m_err << Qt::flush;
        m_barShown = true;
        m_lastPercent = percent;
        m_sinceDraw.restart();
    }
    void endBar()
    {
        if (m_barShown) {
            m_err << Qt::endl;
            m_barShown = false;
        }
        m_lastPercent = -1;
    }

    QTextStream& m_out;
    QTextStream& m_err;
    bool m_terminal;
    bool m_quiet;
    QString m_status;
    qint32 m_total = 0, m_added = 0, m_duplicates = 0, m_illegal = 0;
    int m_minimum = 0, m_maximum = 0;
    bool m_visible = true;
    bool m_barShown = false;
    int m_lastPercent = -1;
    int m_lastTenth = -1;
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

void printTestRun(QTextStream& out, const ImportEngine::Totals& totals, bool replace)
{
    out << "Test run: nothing was written to the Group" << Qt::endl
        << "Total Processed  : " << totals.totalProcessed << Qt::endl
        << "Would be added   : " << totals.added << Qt::endl
        << "Duplicates       : " << totals.duplicates << Qt::endl
        << "Illegal          : " << totals.illegal << Qt::endl;
    if (replace) {
        out << "Would change     : " << totals.updated << Qt::endl;
        for (auto it = totals.changedFields.cbegin(); it != totals.changedFields.cend(); ++it)
            out << "  " << it.key() << ": " << it.value() << Qt::endl;
    }
}

// No question is asked: the command itself is the user's confirmation.
int undoLast(const QString& group, QTextStream& out)
{
    MessageBoxes& boxes = MessageBoxes::instance();
    const QString path = NativePath(HostDataFolder() + group + QStringLiteral(".gdb"));
    if (!FileExists(HostDataFolder() + group + QStringLiteral(".gdb"))) {
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
    out << oneLine(UndoJournal::describe(info, group)) << Qt::endl;
    UndoOutcome outcome;
    if (!UndoJournal::undoLast(path, info.run, outcome, errorText)) {
        boxes.critical(errorText);
        return kExitFailed;
    }
    out << oneLine(UndoJournal::describe(outcome)) << Qt::endl;
    return kExitOk;
}

int runImport(const QCommandLineParser& parser, QTextStream& out, QTextStream& err, bool terminal)
{
    const QString connection = parser.value(QStringLiteral("connection"));

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
    if (!found) {
        err << "dbimport-cli: there is no connection named \"" << connection << "\" in "
            << IniFilePath() << Qt::endl;
        return kExitFailed;
    }
    QString message;
    if (!LoadImportSettings(choices, message)) {
        err << "dbimport-cli: cannot load the saved choices of \"" << choices.DSNName
            << "\": " << message << Qt::endl;
        return kExitFailed;
    }
    if (parser.isSet(QStringLiteral("group")))
        choices.VTGroup = parser.value(QStringLiteral("group"));
    if (parser.isSet(QStringLiteral("replace")))
        choices.ReplaceExisting = true;
    if (parser.isSet(QStringLiteral("no-replace")))
        choices.ReplaceExisting = false;

    if (choices.VTGroup.trimmed().isEmpty()) {
        err << "dbimport-cli: no destination Group is saved for \"" << choices.DSNName
            << "\"; name one with --group" << Qt::endl;
        return kExitFailed;
    }
    if (!FileExists(HostDataFolder() + choices.VTGroup + QStringLiteral(".gdb"))) {
        err << "dbimport-cli: the Group \"" << choices.VTGroup << "\" does not exist in "
            << HostDataFolder() << " (create it with --create-group)" << Qt::endl;
        return kExitFailed;
    }

    const bool quiet = parser.isSet(QStringLiteral("quiet"));
    TerminalImportView view(out, err, terminal, quiet);
    ImportEngine engine(choices, view);
    const bool testRun = parser.isSet(QStringLiteral("dry-run"));
    engine.setTestRun(testRun);
    QString errorText;
    const bool ok = engine.DoImportJob(errorText);
    view.finish();
    if (!ok) {
        err << "dbimport-cli: the import failed: " << errorText << Qt::endl;
        return kExitFailed;
    }
    const ImportEngine::Totals totals = engine.totals();
    if (LogFileNumber() != 0)
        out << "Log file         : " << HostDataFolder() << engine.logFileName() << Qt::endl;
    else
        out << "Log file         : (none)" << Qt::endl;
    if (testRun) {
        printTestRun(out, totals, choices.ReplaceExisting);
        return kExitOk;
    }
    out << "Total Processed  : " << totals.totalProcessed << Qt::endl
        << "Recipients Added : " << totals.added << Qt::endl
        << "Duplicates       : " << totals.duplicates << Qt::endl
        << "Illegal          : " << totals.illegal << Qt::endl;
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
    const QCommandLineOption createGroupOption(QStringLiteral("create-group"), QString(),
                                               QStringLiteral("NAME"));
    const QCommandLineOption listGroupsOption(QStringLiteral("list-groups"));
    const QCommandLineOption dryRun(QStringLiteral("dry-run"));
    const QCommandLineOption undoLastOption(QStringLiteral("undo-last"));
    const QCommandLineOption help(QStringList{QStringLiteral("h"), QStringLiteral("help")});
    parser.addOptions({dataFolder, connection, ini, group, replace, noReplace, quiet,
                       createGroupOption, listGroupsOption, dryRun, undoLastOption, help});

    if (!parser.parse(arguments))
        return usageError(err, parser.errorText());
    if (parser.isSet(help)) {
        out << kUsage << Qt::flush;
        return kExitOk;
    }
    if (!parser.positionalArguments().isEmpty())
        return usageError(err, QStringLiteral("unexpected argument ") +
                                   parser.positionalArguments().first());
    const int actions = int(parser.isSet(connection)) + int(parser.isSet(createGroupOption)) +
                        int(parser.isSet(listGroupsOption)) + int(parser.isSet(undoLastOption));
    if (actions != 1)
        return usageError(err, QStringLiteral("give exactly one of --connection, --create-group, "
                                              "--list-groups and --undo-last"));
    if (parser.isSet(dryRun) && !parser.isSet(connection))
        return usageError(err, QStringLiteral("--dry-run goes with --connection"));
    if (parser.isSet(undoLastOption) &&
        (!parser.isSet(group) || parser.value(group).trimmed().isEmpty()))
        return usageError(err, QStringLiteral("--undo-last needs --group NAME"));
    if (!parser.isSet(dataFolder) || parser.value(dataFolder).isEmpty())
        return usageError(err, QStringLiteral("--data-folder is required"));
    if (parser.isSet(replace) && parser.isSet(noReplace))
        return usageError(err, QStringLiteral("--replace and --no-replace exclude each other"));
    if (!parser.isSet(connection) &&
        ((parser.isSet(group) && !parser.isSet(undoLastOption)) || parser.isSet(replace) ||
         parser.isSet(noReplace) || parser.isSet(quiet)))
        return usageError(
            err,
            QStringLiteral("--group, --replace, --no-replace and --quiet go with --connection"));
    if (parser.isSet(listGroupsOption) && parser.isSet(ini))
        return usageError(err, QStringLiteral("--list-groups reads no settings file"));

    QString folder = parser.value(dataFolder);
    if (!QFileInfo(folder).isDir()) {
        err << "dbimport-cli: the data folder " << folder << " does not exist" << Qt::endl;
        return kExitFailed;
    }
    if (!folder.endsWith(QLatin1Char('/')))
        folder += QLatin1Char('/');
    SetHostDataFolder(folder);
    SetIniFilePath(parser.isSet(ini) ? parser.value(ini)
                                     : QDir(QCoreApplication::applicationDirPath())
                                           .filePath(QStringLiteral("dbimport.ini")));

    PrintingMessageBoxes boxes(err);
    MessageBoxesGuard guard(&boxes);
    int result;
    if (parser.isSet(listGroupsOption))
        result = listGroups(out);
    else if (parser.isSet(undoLastOption))
        result = undoLast(parser.value(group), out);
    else if (parser.isSet(createGroupOption))
        result = createGroup(parser.value(createGroupOption), out);
    else
        result = runImport(parser, out, err, terminal);
    out.flush();
    err.flush();
    return result;
}
