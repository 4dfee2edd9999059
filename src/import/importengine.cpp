#include "importengine.h"

#include <QDate>
#include <QDateTime>
#include <QLocale>
#include <QSqlQuery>
#include <QTime>

#include <QHash>

#include <algorithm>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "duplicatelist.h"
#include "groupclaim.h"
#include "groups.h"
#include "groupstore.h"
#include "hostfields.h"
#include "importchoices.h"
#include "importlog.h"
#include "importreport.h"
#include "importview.h"
#include "mariadbrows.h"
#include "pgcopyrows.h"
#include "readahead.h"
#include "sourcerows.h"
#include "datasource/readonlyguard.h"
#include "undojournal.h"
#include "datasource/sourceconnection.h"
#include "query/selectsql.h"
#include "util/blanks.h"
#include "util/apperror.h"
#include "util/appglobals.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"
#include "util/mousepointer.h"
#include "util/nativepath.h"

namespace {

const QString kLogFileName = QStringLiteral("Database Import Log File.txt");
// How long a run waits for another run to finish with the same Group before giving up.
constexpr int kGroupClaimWaitMs = 3000;

const QString kTestLogFileName = QStringLiteral("Database Import Test Log File.txt");
const QString kReportFileName = QStringLiteral("Database Import Report.csv");

// The Group field a mapping key fills; the full name keeps its key, as it fills several.
QString groupFieldOf(const QString& key)
{
    if (key == QLatin1String("EMailAddress"))
        return QStringLiteral("EmailAddress");
    if (key == QLatin1String("Web"))
        return QStringLiteral("WEB");
    if (key == QLatin1String("Fax"))
        return QStringLiteral("FAX");
    return key;
}

// Characters of UTF-8 text as a Group field counts them: every byte that does not continue
// a character starts one.
qsizetype utf8CharacterCount(const std::string& text)
{
    return qsizetype(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

// Characters as a Group field counts them: a surrogate pair is one.
qsizetype characterCount(const QString& text)
{
    qsizetype count = text.size();
    for (qsizetype i = 0; i + 1 < text.size(); ++i) {
        if (text.at(i).isHighSurrogate() && text.at(i + 1).isLowSurrogate()) {
            --count;
            ++i;
        }
    }
    return count;
}

// The text a field of that length keeps.
QString cutTo(const QString& text, int length)
{
    if (length <= 0 || text.size() <= length)
        return text;
    qsizetype i = 0;
    for (int characters = 0; i < text.size() && characters < length; ++characters)
        i += text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()
                 ? 2
                 : 1;
    return text.left(i);
}

// The record loop's field list. Its order matters: a full name split overwrites a mapped
// Title, and mapped FirstName, Initial and LastName overwrite the split in turn.
QStringList recipientFieldNames()
{
    return (QStringLiteral("Title,FullNameMacro,FirstName,Initial,LastName,EMailAddress,Address1,"
                           "Address2,City,State,Zip,Country,") +
            QStringLiteral("Company,JobTitle,Web,Telephone,FAX,Field1,Field2,Field3,Field4"))
        .split(QLatin1Char(','));
}

bool isAscii(const QString& text)
{
    for (const QChar c : text) {
        if (c.unicode() >= 0x80)
            return false;
    }
    return true;
}

QString timeStamp()
{
    return QLocale::c().toString(QDateTime::currentDateTime(), QStringLiteral("ddd hh:mm:ss"));
}

} // namespace

bool IsEmailValid(const QString& email, QString& reason)
{
    try {
        const QString trimmed = TrimBlanks(email);
        if (trimmed.isEmpty()) {
            reason = QStringLiteral("Blank");
            return false;
        }
        // Positions are 1-based, as the rules read.
        const qsizetype at = email.indexOf(QLatin1Char('@')) + 1;
        if (at == 0) {
            reason = QStringLiteral("No @ sign");
            return false;
        }
        qsizetype dot = email.indexOf(QLatin1Char('.'), at - 1) + 1;
        if (dot == 0) {
            reason = QStringLiteral("No period after @ sign");
            return false;
        }
        for (qsizetype next = email.indexOf(QLatin1Char('.'), dot); next >= 0;
             next = email.indexOf(QLatin1Char('.'), dot))
            dot = next + 1;
        if (dot + 2 > trimmed.size()) {
            reason = QStringLiteral("Period within 2 characters of end");
            return false;
        }
        return true;
    } catch (...) {
        reason = QStringLiteral("Error during validation");
        return false;
    }
}

void SplitName(QString& fullName, QString& title, QString& firstName, QString& initial,
               QString& lastName)
{
    try {
        if (fullName.isEmpty()) {
            title.clear();
            firstName.clear();
            initial.clear();
            lastName.clear();
            return;
        }
        const qsizetype length = fullName.size();
        // 1-based position of the first blank from 1-based start, 0 when none.
        auto blankFrom = [](const QString& text, qsizetype start) {
            return text.indexOf(QLatin1Char(' '), start - 1) + 1;
        };
        // The text up to (not including) 1-based position pos; all of it when pos is 0.
        auto upTo = [](const QString& text, qsizetype pos) {
            return pos == 0 ? text.trimmed() : text.left(pos - 1).trimmed();
        };
        auto after = [](const QString& text, qsizetype pos) {
            return pos == 0 ? QString() : text.mid(pos).trimmed();
        };

        const qsizetype p = blankFrom(fullName, 1);
        if (p == 0) {
            title.clear();
            initial.clear();
            lastName.clear();
            firstName = fullName;
            return;
        }
        int blanks = 1;
        for (qsizetype pos = p; pos < length;) {
            pos = blankFrom(fullName, pos + 1);
            if (pos == 0)
                break;
            ++blanks;
        }

        if (blanks == 1) {
            title.clear();
            initial.clear();
            firstName = upTo(fullName, p);
            lastName = after(fullName, p);
            fullName.clear();
            return;
        }

        if (p == 3 || p == 4)
            title = upTo(fullName, p);
        else
            firstName = upTo(fullName, p);
        QString s = after(fullName, p);
        bool lastNameSet = false;

        const qsizetype q = blankFrom(s, 1);
        if (q == 2 || q == 3) {
            if (firstName.isEmpty())
                firstName = upTo(s, q);
            else
                initial = upTo(s, q);
            s = after(s, q);
        } else if (!firstName.isEmpty()) {
            lastName = s;
            lastNameSet = true;
            s.clear();
        } else {
            firstName = upTo(s, q);
            s = after(s, q);
        }

        if (blanks == 2) {
            if (!lastNameSet)
                lastName = s;
            fullName = s;
            return;
        }

        const qsizetype r = blankFrom(s, 1);
        if (r == 2 || r == 3) {
            if (initial.isEmpty()) {
                initial = upTo(s, r);
                lastName = after(s, r);
            } else {
                lastName = s;
            }
        } else if (!(s.isEmpty() && r == 0)) {
            // The words between the second blank and the last one taken here are dropped.
            lastName = r == 0 ? s : after(s, r);
        }
        fullName = s;
    } catch (const std::exception& e) {
        MessageBoxes::instance().critical(QStringLiteral("SplitName Error: ") +
                                          QString::fromUtf8(e.what()) + QStringLiteral(" - 5"));
    }
}

class ImportEngine::Private
{
public:
    Private(const ImportChoices& c, ImportView& v) : choices(c), view(v) {}

    const ImportChoices& choices;
    ImportView& view;
    GroupStore store;
    GroupClaim claim;
    bool storeWasOpen = false;
    DuplicateCheckList duplicates;
    qint32 listedAtClose = 0;
    std::unique_ptr<SourceConnection> source;
    std::unique_ptr<SourceRows> records;
    qint64 recordCount = -1;
    bool importRunning = false;
    Totals totals;

    bool testRun = false;
    ImportReport report;
    std::unique_ptr<UndoJournal> journal;
    // Per Group field: its length (0 = none) and name.
    std::vector<int> fieldLengths;
    QStringList groupNames;
    // Source column of each report column, -1 when the source has none.
    std::vector<int> reportSources;
    // The record being copied: its cut fields and, when collecting, what was set.
    QStringList cuts;
    bool collect = false;
    std::vector<std::pair<int, QString>> written;
    // A test run writes nothing, so a later duplicate of an address the run added or
    // replaced is checked against what the run would have written: per address, a hash of
    // each copy target's value (0 for NULL), small enough for a million addresses.
    using Values = std::vector<quint64>;
    QHash<QString, Values> testAdded;
    static quint64 valueHash(const QString* value)
    {
        return value ? (quint64(qHash(*value, 0x5eed)) << 1) | 1u : 0u;
    }
    // The Group fields a copy may set, for the snapshot taken before a replace.
    std::vector<int> copyTargets;
    std::vector<int> copyTargetIndexes();
    // Whether the duplicate list keeps a digest of each listed record's copy targets, so
    // that a replace reads only the records it changes.
    bool digestsKept = false;

    void log(const QString& line) { WriteLogLine(LogFileNumber(), line); }

    QString importSql() const
    {
        // Saving the choices at Start leaves the record's statement with its line breaks
        // as "¬" (the log shows it so); the source gets the statement as the user typed it,
        // as it would after the choices were loaded again. Table names go in as the open
        // source quotes them; the bracket form before it is open.
        return choices.FilterMethod == 1
                   ? QString(choices.AdvancedSQLString)
                         .replace(QChar(0x00AC), QStringLiteral("\r\n"))
                   : BuildImportSQL(choices.SelectedTable, choices.Rules,
                                    source ? source->identifierQuote() : QString());
    }

    bool ClaimGroup(QString& errorText);
    bool CloseVTDatabase(QString& errorText);
    void settleTotals();
    bool OpenVTDatabase(QString& errorText);
    bool BuildDuplicateCheckList(QString& errorText);
    // The list is not needed once the last record is in, and its memory is better spent on
    // building the Group's index; a next run on this engine still shows the entries it
    // resets.
    bool duplicatesListed = false;
    void releaseDuplicates()
    {
        if (duplicatesListed) {
            listedAtClose = duplicates.count();
            duplicates.clear();
            duplicatesListed = false;
        }
    }
    bool IsDuplicateEmail(const QString& email);
    bool RetrieveRecords(QString& errorText);
    bool DoImport(QString& errorText);
    void CloseImportResources();
    void showCounters();

    // One step of copying a record into the Group.
    struct CopyStep
    {
        enum Kind
        {
            Plain,
            Email,
            FullName
        } kind = Plain;
        QString groupField;
        int groupIndex = -1;
        QString sourceField;
        int sourceIndex = -1;
    };
    std::vector<CopyStep> copySteps;
    std::string utf8Value;
    std::string reportValue;
    int titleIndex = -1, firstNameIndex = -1, initialIndex = -1, lastNameIndex = -1;

    void prepareCopy();
    void openReport();
    void reportRow(const QString& outcome, const QString& reason);
    void addRecord(const QString& email);
    bool replaceRecord(const QString& email, Values* before, qint64 rowid);
    void collectChanges(Values& hashes, std::vector<UndoJournal::Change>* changes);
    void prepareWriting(int emailSource, const QString& emailField);
    QString sourceValue(const QString& field, int index) const;
    void setGroupField(const QString& name, int index, const QString& value);
    void copyMappedFields(const QString& email);
    int dateAddedIndex = -1;
    QString today;
    std::string todayUtf8; // the same, as the Group keeps it
};

ImportEngine::ImportEngine(const ImportChoices& choices, ImportView& view)
    : d(std::make_unique<Private>(choices, view))
{}

ImportEngine::~ImportEngine()
{
    d->records.reset();
    d->source.reset();
}

bool ImportEngine::importRunning() const
{
    return d->importRunning;
}
void ImportEngine::requestStop()
{
    d->importRunning = false;
}
ImportEngine::Totals ImportEngine::totals() const
{
    return d->totals;
}

void ImportEngine::setTestRun(bool testRun)
{
    d->testRun = testRun;
}

QString ImportEngine::logFileName() const
{
    return d->testRun ? kTestLogFileName : kLogFileName;
}

QString ImportEngine::reportFileName()
{
    return kReportFileName;
}

bool ImportEngine::DoImportJob(QString& errorText)
{
    d->storeWasOpen = false;
    // Before the log: a run that finds the Group taken leaves the other run's log alone.
    if (!d->ClaimGroup(errorText))
        return false;
    const QString logPath = HostDataFolder() + logFileName();
    if (!OpenLogFile(logPath, LogFileNumber(), false, errorText)) {
        if (!MessageBoxes::instance().ask(
                QStringLiteral("The log file cannot be opened, Error: ") + errorText +
                QStringLiteral(". Do you wist to continue with the import ?"))) {
            d->CloseImportResources();
            return false;
        }
    }
    d->openReport();

    const ImportChoices& c = d->choices;
    d->log(QStringLiteral("# Initialising Database Import..."));
    d->log(QStringLiteral("# Parameters"));
    d->log(QStringLiteral("#   DSN : ") + c.DSNName);
    d->log(QStringLiteral("#   Destination Group : ") + c.VTGroup);
    d->log(QStringLiteral("#   Replace : ") +
           (c.ReplaceExisting ? QStringLiteral("True") : QStringLiteral("False")));
    d->log(QStringLiteral("#   FilterMethod : ") +
           (c.FilterMethod == 0 ? QStringLiteral("Table") : QStringLiteral("User inputted SQL")));
    d->log(QStringLiteral("#   Selected Table : ") + c.SelectedTable);
    d->log(QStringLiteral("#     # Rules : ") + QString::number(c.Rules.Count()));
    const QString builtSql = BuildImportSQL(c.SelectedTable, c.Rules);
    d->log(QStringLiteral("#   SQL : ") + (c.FilterMethod == 0 ? builtSql : c.AdvancedSQLString));
    d->log(QStringLiteral("#   Database Import Started: ") + timeStamp());
    d->log(QStringLiteral("#   "));

    MousePointer::busy();
    if (!d->OpenVTDatabase(errorText)) {
        d->log(QStringLiteral("#   Error - Opening Veltrano Database failed"));
        d->CloseImportResources();
        return false;
    }
    MousePointer::busy();
    if (!d->BuildDuplicateCheckList(errorText)) {
        d->log(QStringLiteral("#   Error - Building duplicate check list failed"));
        d->CloseImportResources();
        return false;
    }
    if (!d->RetrieveRecords(errorText)) {
        d->log(QStringLiteral("#   Error - Retrieval of records from DSN failed"));
        d->CloseImportResources();
        return false;
    }
    if (!d->DoImport(errorText) || !d->CloseVTDatabase(errorText)) {
        d->log(QStringLiteral("#   Import failed"));
        d->CloseImportResources();
        return false;
    }
    d->log(QStringLiteral("#   Database Import Ended : ") + timeStamp());
    d->CloseImportResources();

    if (MessageBoxes::instance().ask(
            QStringLiteral("Would you like to review the log file now?"))) {
        if (ShellOpen(logPath) < 32) {
            MessageBoxes::instance().exclamation(
                QStringLiteral("Unable to launch the default text editor for your system.\r\n"
                               "To view the details please open the following file:\r\n\r\n") +
                logPath);
        }
    }
    return true;
}

bool ImportEngine::Private::ClaimGroup(QString& errorText)
{
    QString message;
    if (!IsUsableGroupName(choices.VTGroup, message)) {
        errorText = message;
        return false;
    }
    if (!claim.acquire(NativePath(GroupFilePath(choices.VTGroup, HostDataFolder())),
                       kGroupClaimWaitMs)) {
        errorText = QStringLiteral("The Group ") + choices.VTGroup +
                    QStringLiteral(" is being imported into by another run");
        return false;
    }
    return true;
}

// Closing writes the last records: a failure here is the run's failure.
bool ImportEngine::Private::CloseVTDatabase(QString& errorText)
{
    releaseDuplicates();
    try {
        store.close();
        settleTotals();
        return true;
    } catch (const AppError& e) {
        errorText = e.numberAndDescription();
        settleTotals();
        return false;
    }
}

// After a failed write the counters claim no record the Group does not hold.
void ImportEngine::Private::settleTotals()
{
    // A test run commits nothing; its counters say what a real run would add.
    if (!storeWasOpen || testRun)
        return;
    const qint64 committed = store.committedNewRecords();
    if (totals.added > committed) {
        totals.added = qint32(committed);
        view.setCounters(totals.totalProcessed, totals.added, totals.duplicates, totals.illegal);
    }
}

bool ImportEngine::Private::OpenVTDatabase(QString& errorText)
{
    try {
        const QString path = NativePath(GroupFilePath(choices.VTGroup, HostDataFolder()));
        // A missing Group is not refused here: the first store operation fails instead.
        if (GroupStore::checkFile(path)) {
            store.open(path);
            storeWasOpen = true;
        }
        return true;
    } catch (const AppError&) {
        errorText = QStringLiteral("Unable to open the desitination Group: ") + choices.VTGroup;
        return false;
    }
}

bool ImportEngine::Private::BuildDuplicateCheckList(QString&)
{
    view.setStatus(QStringLiteral("Resetting duplicate check list ..."));
    view.yieldToEvents();
    const qint32 entries = std::max(duplicates.count(), listedAtClose);
    view.setProgressRange(0, entries);
    view.setProgressValue(0);
    for (qint32 position = entries; position >= 1; --position)
        view.setProgressValue(position);
    duplicates.clear();
    duplicatesListed = true;
    // Replacing finds the duplicate's record by its number where that is sure to be the
    // record a find would give.
    duplicates.keepRowids(choices.ReplaceExisting);

    view.setStatus(QStringLiteral("Loading existing Group ..."));
    view.yieldToEvents();

    // Each failing step costs only its own entry; the list is built from what can be read.
    qint32 count = 0;
    try {
        count = store.recordCount();
    } catch (const AppError&) {
        count = 0;
    }
    // A real replace compares what it would write with a digest of each record, and reads
    // only the records that differ.
    digestsKept = choices.ReplaceExisting && !testRun && store.isOpen();
    // The list holds in memory what the Group holds plus a million new addresses (two
    // million at most), so that a replace finds the Group's recipients without a read. Past
    // that it moves what it holds to a temporary file: a source of any size runs in the
    // same memory.
    constexpr qint64 kNewInMemory = 1000000;
    constexpr qint64 kMostInMemory = 2000000;
    duplicates.setMemoryLimit(std::min(std::max<qint64>(count, 0) + kNewInMemory, kMostInMemory));
    if (count > 0) {
        view.setProgressRange(0, count);
        view.setProgressValue(0);
        duplicates.reserve(count);
        const int emailIndex = store.fieldIndex(QStringLiteral("EmailAddress"));
        qint32 read = 0;
        try {
            if (emailIndex < 0)
                throw AppError(3265, QStringLiteral("The Group has no field EmailAddress"));
            store.setDigestFields(digestsKept ? copyTargetIndexes() : std::vector<int>());
            store.scan(emailIndex, [&](qint64 rowid, const char* text, int size, quint64 digest) {
                try {
                    // Plain ASCII, as nearly every address is, goes in without a conversion.
                    if (DuplicateCheckList::isAscii(text, std::size_t(size)))
                        duplicates.addAsciiSoon(text, std::size_t(size), rowid, digest);
                    else
                        duplicates.add(QString::fromUtf8(text, size));
                } catch (const std::exception&) {
                }
                view.setProgressValue(++read);
                // A big Group takes a while to list: the window keeps drawing meanwhile.
                if (read % 4096 == 0)
                    view.yieldToEvents();
            });
        } catch (const AppError&) {
            digestsKept = false;
        }
        try {
            duplicates.settle();
        } catch (const std::exception&) {
        }
        for (qint32 i = read + 1; i <= count; ++i)
            view.setProgressValue(i);
    }
    view.setProgressValue(0);
    log(QStringLiteral("#   ") + QString::number(duplicates.count()) +
        QStringLiteral(" entries in duplicate check list"));
    return true;
}

bool ImportEngine::Private::IsDuplicateEmail(const QString& email)
{
    try {
        return !duplicates.add(email);
    } catch (...) {
        // An address that cannot be listed is skipped rather than risk importing it twice.
        return true;
    }
}

bool ImportEngine::Private::RetrieveRecords(QString& errorText)
{
    view.setStatus(QStringLiteral("Retrieving records from Database ..."));
    MousePointer::busy();
    records.reset();
    source = std::make_unique<SourceConnection>();
    recordCount = -1;

    auto failed = [&](const QString& text) {
        errorText = text;
        view.setStatus(QStringLiteral("Import Terminated due to error ..."));
        MousePointer::normal();
        return false;
    };

    QString message;
    if (!source->open(choices.ConnectionString, message))
        return failed(message);

    const QString sql = importSql();
    if (choices.FilterMethod != 1 && sql != BuildImportSQL(choices.SelectedTable, choices.Rules))
        log(QStringLiteral("#   SQL as sent to the source : ") + sql);
    if (!CheckReadOnlyStatement(sql, message))
        return failed(AppError(AppError::DataSource, message).numberAndDescription());

    // Only a source that cannot set anything off is counted by a statement of its own: a
    // SQLite file (read-only, without functions that change anything) or a server that has
    // confirmed the transaction is read-only. Any other source runs the statement once, so
    // that nothing it sets off happens twice, and the driver's row count serves the bar.
    const bool sqlite = source->database().driverName() == QLatin1String("QSQLITE") ||
                        source->dbmsName().contains(QLatin1String("SQLite"), Qt::CaseInsensitive);
    const bool countable = sqlite || source->serverReadOnly();
    QString inner = sql.trimmed();
    while (inner.endsWith(QLatin1Char(';')))
        inner = inner.chopped(1).trimmed();
    if (countable) {
        QSqlQuery count(source->database());
        count.setForwardOnly(true);
        if (count.exec(QStringLiteral("SELECT COUNT(*) FROM (") + inner +
                       QStringLiteral(") AS dbimport_count")) &&
            count.next())
            recordCount = count.value(0).toLongLong();
    }
    if (countable && recordCount < 0) {
        // Some servers abandon the whole transaction after a failed statement: start afresh.
        source->close();
        source = std::make_unique<SourceConnection>();
        if (!source->open(choices.ConnectionString, message))
            return failed(message);
    }

    try {
        // A faster route for a big PostgreSQL read; anything it cannot take goes on as always.
        if (PgCopyRows::pays(recordCount))
            records = PgCopyRows::open(choices.ConnectionString, sql);
        if (!records && MariaDbRows::pays(recordCount))
            records = MariaDbRows::open(choices.ConnectionString, sql);
        if (!records)
            records = SourceRows::open(source->database(), sql);
    } catch (const SourceFailure& e) {
        return failed(e.text);
    }
    if (!countable)
        recordCount = records->knownCount();
    MousePointer::normal();
    return records != nullptr;
}

void ImportEngine::Private::showCounters()
{
    view.setCounters(totals.totalProcessed, totals.added, totals.duplicates, totals.illegal);
    view.setProgressValue(totals.totalProcessed);
}

void ImportEngine::Private::prepareCopy()
{
    copySteps.clear();
    auto sourceIndex = [&](const QString& field) { return records->indexOf(field); };
    for (const QString& name : recipientFieldNames()) {
        const CMapping* mapping = choices.FieldMappings.Item(name);
        if (!mapping || mapping->DBField.isEmpty())
            continue;
        CopyStep step;
        step.sourceField = mapping->DBField;
        step.sourceIndex = sourceIndex(mapping->DBField);
        step.groupField = name;
        if (name == QLatin1String("FullNameMacro")) {
            step.kind = CopyStep::FullName;
        } else {
            step.kind = name.compare(QLatin1String("EMailAddress"), Qt::CaseInsensitive) == 0
                            ? CopyStep::Email
                            : CopyStep::Plain;
            step.groupIndex = store.isOpen() ? store.fieldIndex(name) : -1;
        }
        copySteps.push_back(step);
    }
    titleIndex = store.isOpen() ? store.fieldIndex(QStringLiteral("Title")) : -1;
    firstNameIndex = store.isOpen() ? store.fieldIndex(QStringLiteral("FirstName")) : -1;
    initialIndex = store.isOpen() ? store.fieldIndex(QStringLiteral("Initial")) : -1;
    lastNameIndex = store.isOpen() ? store.fieldIndex(QStringLiteral("LastName")) : -1;

    groupNames = store.isOpen() ? store.fieldNames() : QStringList();
    fieldLengths.assign(size_t(groupNames.size()), 0);
    for (int i = 0; i < groupNames.size(); ++i)
        fieldLengths[size_t(i)] = store.fieldLength(i);
    copyTargets = copyTargetIndexes();
}

// The Group fields the copy sets, in the file's order: every mapped field, and the four
// the full name fills.
std::vector<int> ImportEngine::Private::copyTargetIndexes()
{
    std::vector<int> targets;
    if (!store.isOpen())
        return targets;
    auto target = [&](const QString& name) {
        const int index = store.fieldIndex(name);
        if (index >= 0 && std::find(targets.begin(), targets.end(), index) == targets.end())
            targets.push_back(index);
    };
    for (const QString& name : recipientFieldNames()) {
        const CMapping* mapping = choices.FieldMappings.Item(name);
        if (!mapping || mapping->DBField.isEmpty())
            continue;
        if (name == QLatin1String("FullNameMacro")) {
            for (const char* part : {"Title", "FirstName", "Initial", "LastName"})
                target(QString::fromLatin1(part));
        } else {
            target(name);
        }
    }
    std::sort(targets.begin(), targets.end());
    return targets;
}

void ImportEngine::Private::openReport()
{
    QStringList columns;
    reportSources.clear();
    for (const HostField& field : kHostFields) {
        const CMapping* mapping = choices.FieldMappings.Item(QString::fromUtf8(field.key));
        if (!mapping || mapping->DBField.isEmpty())
            continue;
        columns << groupFieldOf(QString::fromUtf8(field.key));
        reportSources.push_back(-1);
    }
    report.open(NativePath(HostDataFolder() + kReportFileName), columns);
}

void ImportEngine::Private::reportRow(const QString& outcome, const QString& reason)
{
    if (!report.isOpen())
        return;
    report.beginRow(outcome, reason);
    for (int index : reportSources) {
        if (index >= 0)
            records->utf8(index, reportValue);
        else
            reportValue.clear();
        report.addFieldUtf8(reportValue);
    }
    report.endRow();
}

void ImportEngine::Private::addRecord(const QString& email)
{
    cuts.clear();
    collect = testRun && choices.ReplaceExisting;
    written.clear();
    if (!testRun || !store.isOpen())
        store.addRecord(); // a test run fails where a real one would
    copyMappedFields(email);
    if (dateAddedIndex >= 0 && !testRun && !collect) {
        utf8Value = todayUtf8;
        store.setFieldUtf8(dateAddedIndex, utf8Value);
    } else {
        setGroupField(QStringLiteral("DateAdded"), dateAddedIndex, today);
    }
    if (collect) {
        Values& hashes = testAdded[email.toLower()];
        hashes.assign(copyTargets.size(), 0);
        collectChanges(hashes, nullptr);
    }
    collect = false;
    if (!cuts.isEmpty())
        reportRow(QStringLiteral("Cut"), cuts.join(QStringLiteral("; ")));
}

// A test run's copy (in written): the fields whose value differs from the hashes, which
// then take the new values' hashes.
void ImportEngine::Private::collectChanges(Values& hashes,
                                           std::vector<UndoJournal::Change>* changes)
{
    std::vector<const QString*> latest(size_t(groupNames.size()), nullptr);
    for (const auto& [index, value] : written)
        latest[size_t(index)] = &value;
    for (size_t k = 0; k < copyTargets.size(); ++k) {
        const int index = copyTargets[k];
        if (!latest[size_t(index)])
            continue;
        const QString value = cutTo(*latest[size_t(index)], fieldLengths[size_t(index)]);
        const quint64 hash = valueHash(&value);
        if (hashes[k] != hash && changes)
            changes->push_back({index, std::nullopt, value});
        hashes[k] = hash;
    }
}

// before (test runs only): the hashes of what the run would have written to the address
// earlier; else the store's current record is the one replaced.
bool ImportEngine::Private::replaceRecord(const QString& email, Values* before, qint64 rowid)
{
    cuts.clear();
    std::vector<UndoJournal::Change> changes;
    if (!testRun) {
        // The store knows which fields the copy changed and what they held; a record that
        // is gone since the list was built is looked for again by its address.
        copyMappedFields(email);
        if (!store.confirmCurrent())
            return false;
        std::optional<QString> was;
        for (int index : copyTargets) {
            if (!store.changedSinceFound(index, was))
                continue;
            QString value = store.getField(index);
            if (!was || *was != value)
                changes.push_back({index, was, std::move(value)});
        }
    } else {
        Values& hashes = before ? *before : testAdded[email.toLower()];
        if (!before) {
            hashes.assign(copyTargets.size(), 0);
            for (size_t k = 0; k < copyTargets.size(); ++k) {
                if (!store.isNull(copyTargets[k])) {
                    const QString value = store.getField(copyTargets[k]);
                    hashes[k] = valueHash(&value);
                }
            }
        }
        collect = true;
        written.clear();
        copyMappedFields(email);
        collect = false;
        collectChanges(hashes, &changes);
    }
    if (changes.empty()) {
        if (!cuts.isEmpty())
            reportRow(QStringLiteral("Cut"), cuts.join(QStringLiteral("; ")));
        return true;
    }
    ++totals.updated;
    QStringList names;
    for (const auto& c : changes) {
        names << groupNames.at(c.index);
        ++totals.changedFields[groupNames.at(c.index)];
    }
    if (journal)
        journal->noteReplaced(rowid, changes);
    // A later row with the same address compares with what the record holds now.
    if (digestsKept)
        duplicates.setFoundDigest(store.currentDigest());
    QStringList reasons{QStringLiteral("Changed: ") + names.join(QStringLiteral(", "))};
    reasons += cuts;
    reportRow(QStringLiteral("Updated"), reasons.join(QStringLiteral("; ")));
    return true;
}

QString ImportEngine::Private::sourceValue(const QString& field, int index) const
{
    if (index < 0)
        throw AppError(3265, QStringLiteral("Item cannot be found in the collection corresponding "
                                            "to the requested name or ordinal. (") +
                                 field + QLatin1Char(')'));
    return records->text(index);
}

void ImportEngine::Private::setGroupField(const QString& name, int index, const QString& value)
{
    if (index < 0) {
        store.setField(name, value); // raises the store's own error
        return;
    }
    const int length = index < int(fieldLengths.size()) ? fieldLengths[size_t(index)] : 0;
    if (length > 0 && value.size() > length && characterCount(value) > length)
        cuts << QStringLiteral("%1 cut to %2 characters").arg(groupNames.at(index)).arg(length);
    if (collect)
        written.emplace_back(index, value);
    if (!testRun)
        store.setField(index, value);
}

void ImportEngine::Private::copyMappedFields(const QString& email)
{
    for (const CopyStep& step : copySteps) {
        switch (step.kind) {
        case CopyStep::FullName: {
            QString fullName = (sourceValue(step.sourceField, step.sourceIndex));
            QString title, firstName, initial, lastName;
            SplitName(fullName, title, firstName, initial, lastName);
            setGroupField(QStringLiteral("Title"), titleIndex, title);
            setGroupField(QStringLiteral("FirstName"), firstNameIndex, firstName);
            setGroupField(QStringLiteral("Initial"), initialIndex, initial);
            setGroupField(QStringLiteral("LastName"), lastNameIndex, lastName);
            break;
        }
        case CopyStep::Email:
            // A missing field fails here as it does for any other mapping; the value itself
            // is not needed, since the validated address is written.
            if (step.sourceIndex < 0)
                sourceValue(step.sourceField, step.sourceIndex);
            setGroupField(step.groupField, step.groupIndex, email);
            break;
        case CopyStep::Plain:
            if (step.sourceIndex >= 0 && step.groupIndex >= 0 && !testRun && !collect) {
                // Copied as the UTF-8 both sides keep.
                records->utf8(step.sourceIndex, utf8Value);
                const int length = fieldLengths[size_t(step.groupIndex)];
                if (length > 0 && utf8Value.size() > size_t(length) &&
                    utf8CharacterCount(utf8Value) > length)
                    cuts << QStringLiteral("%1 cut to %2 characters")
                                .arg(groupNames.at(step.groupIndex))
                                .arg(length);
                store.setFieldUtf8(step.groupIndex, utf8Value);
            } else {
                setGroupField(step.groupField, step.groupIndex,
                              (sourceValue(step.sourceField, step.sourceIndex)));
            }
            break;
        }
    }
}

// Speed for big runs; nothing here changes what is written or reported.
void ImportEngine::Private::prepareWriting(int emailSource, const QString& emailField)
{
    // Keeping the indexes up to date row by row costs more than building them once, unless
    // the Group is much bigger than what comes in. Replacing needs them for every find.
    const qint32 existing = duplicates.count();
    if (store.isOpen() && !testRun && !choices.ReplaceExisting &&
        (existing == 0 || recordCount > existing)) {
        store.deferIndexes();
        // Only a big index takes long enough to build for the window to notice.
        if (recordCount >= 10000)
            store.setIndexBuildYield([this] { view.yieldToEvents(); });
    }

    if (ReadAheadRows::pays(*records, recordCount)) {
        std::vector<int> columns{emailSource};
        QStringList names{emailField};
        for (const CopyStep& step : copySteps) {
            columns.push_back(step.sourceIndex);
            names << step.sourceField;
        }
        records = std::make_unique<ReadAheadRows>(std::move(records), columns, names);
    }
}

bool ImportEngine::Private::DoImport(QString& errorText)
{
    totals = Totals();
    // Whether a failure would interrupt a record half-way; one that comes while the next
    // row is read leaves the record before it whole, to be kept.
    bool midRecord = false;
    try {
        view.setCounters(0, 0, 0, 0);
        view.setStatus(QStringLiteral("Determining size of import ..."));

        bool hasRecord = records->next();
        if (!hasRecord) {
            MessageBoxes::instance().information(QStringLiteral(
                "The criteria specified did not return any records from the database."));
            return true;
        }

        view.setProgressRange(0, 0);
        view.setProgressValue(0);
        if (recordCount < 1) {
            view.setProgressRange(0, 1000000);
            view.setProgressVisible(false);
            view.showNoProgressNotice(
                QStringLiteral("Progress bar not displayed - Record Count is not available."));
        } else {
            view.setProgressRange(0,
                                  int(qMin<qint64>(recordCount, std::numeric_limits<int>::max())));
            view.setProgressVisible(true);
        }

        view.setStatus(QStringLiteral("Importing ..."));
        importRunning = true;

        prepareCopy();
        const CMapping* emailMapping = choices.FieldMappings.Item(QStringLiteral("EMailAddress"));
        const QString emailField = emailMapping ? emailMapping->DBField : QString();
        const int emailSource = records->indexOf(emailField);
        prepareWriting(emailSource, emailField);
        dateAddedIndex = store.isOpen() ? store.fieldIndex(QStringLiteral("DateAdded")) : -1;
        today = QLocale::system().toString(QDate::currentDate(), QLocale::ShortFormat);
        todayUtf8 = today.toStdString();
        // An address is never cut to fit: two long ones would become one, without an '@'.
        const int emailLimit =
            store.isOpen() ? store.fieldLength(store.fieldIndex(QStringLiteral("EmailAddress")))
                           : 0;
        auto fitsGroup = [emailLimit](const QString& email, QString& reason) {
            if (emailLimit <= 0 || email.size() <= emailLimit ||
                email.toUcs4().size() <= emailLimit)
                return true;
            reason = QStringLiteral("Longer than %1 characters").arg(emailLimit);
            return false;
        };
        MessageBoxes& boxes = MessageBoxes::instance();
        {
            qsizetype column = 0;
            for (const HostField& field : kHostFields) {
                const CMapping* mapping = choices.FieldMappings.Item(QString::fromUtf8(field.key));
                if (mapping && !mapping->DBField.isEmpty() &&
                    column < qsizetype(reportSources.size()))
                    reportSources[size_t(column++)] = records->indexOf(mapping->DBField);
            }
        }
        testAdded.clear();
        if (!testRun && store.isOpen()) {
            journal = std::make_unique<UndoJournal>(store);
            journal->beginRun(choices.DSNName, choices.ReplaceExisting);
        }

        while (hasRecord) {
            midRecord = true;
            const QString email = TrimBlanks((sourceValue(emailField, emailSource)));
            // The duplicate check's memory is fetched while the address is validated.
            duplicates.prefetch(email);
            QString reason;
            if (!IsEmailValid(email, reason) || !fitsGroup(email, reason)) {
                ++totals.illegal;
                log(QStringLiteral("**  IGNORED: Invalid email (") + reason +
                    QStringLiteral(") Email=") + email);
                reportRow(QStringLiteral("Refused"),
                          QStringLiteral("Invalid email (") + reason + QLatin1Char(')'));
            } else if (!IsDuplicateEmail(email)) {
                addRecord(email);
                ++totals.added;
            } else {
                ++totals.duplicates;
                if (!choices.ReplaceExisting) {
                    log(QStringLiteral("**  IGNORED: Duplicate email, Email=") + email);
                    reportRow(QStringLiteral("Refused"), QStringLiteral("Duplicate email"));
                } else {
                    Values* pending = nullptr;
                    if (testRun) {
                        const auto it = testAdded.find(email.toLower());
                        pending = it == testAdded.end() ? nullptr : &it.value();
                    }
                    // An ASCII address matches (without regard to case) only the ASCII
                    // addresses the list holds, whose first record is the one kept.
                    const qint64 rowid = pending ? 0 : duplicates.foundRowid();
                    const bool byRowid = rowid > 0 && isAscii(email);
                    bool replaced = false;
                    if (pending) {
                        replaced = replaceRecord(email, pending, -1);
                    } else if (byRowid && digestsKept) {
                        store.expectRowid(rowid, duplicates.foundDigest());
                        replaced = replaceRecord(email, nullptr, rowid);
                    }
                    if (!replaced) {
                        if (!byRowid || !store.moveToRowid(rowid))
                            store.find(QStringLiteral("EmailAddress"), QStringLiteral("="), email);
                        if (store.noMatch())
                            boxes.exclamation(QStringLiteral(
                                "Warning: A record was found in the duplicates list, but could "
                                "not be found in the Veltrano database to replace."));
                        else
                            replaceRecord(email, nullptr, store.currentRowid());
                    }
                }
            }

            midRecord = false;
            ++totals.totalProcessed;
            if (totals.totalProcessed % 10 == 0)
                showCounters();
            if (totals.totalProcessed % 50 == 0)
                view.yieldToEvents();
            hasRecord = records->next();

            if (!importRunning) {
                showCounters();
                if (boxes.ask(QStringLiteral(
                        "You have chosen to cancel the import process, are you sure ?"))) {
                    view.setStatus(QStringLiteral("Import Terminated by user ..."));
                    break;
                }
                importRunning = true;
            }
        }

        importRunning = false;
        if (journal)
            journal->endRun();
        showCounters();
        // Every record goes to the file before the totals claim it.
        if (store.isOpen())
            store.commit();
        log(QStringLiteral("#   "));
        log(QStringLiteral("#   Total Processed  : ") + QString::number(totals.totalProcessed));
        log(QStringLiteral("#   Recipients Added : ") + QString::number(totals.added));
        log(QStringLiteral("#   Duplicates       : ") + QString::number(totals.duplicates));
        log(QStringLiteral("#   Illegal          : ") + QString::number(totals.illegal));
        log(QStringLiteral("#   "));
        view.setStatus(QStringLiteral("Import Complete ..."));
        return true;
    } catch (const AppError& e) {
        errorText = e.numberAndDescription();
    } catch (const SourceFailure& e) {
        errorText = e.text;
    } catch (const std::bad_alloc&) {
        errorText = QStringLiteral("7 - Out of memory");
    }
    // A record the failure interrupted is not written half.
    if (midRecord)
        store.discardChanges();
    importRunning = false;
    view.setStatus(QStringLiteral("Import Terminated due to error ..."));
    return false;
}

void ImportEngine::Private::CloseImportResources()
{
    importRunning = false;
    if (journal && store.isOpen()) {
        // A run that failed half-way is still undone as far as it got.
        try {
            journal->endRun();
        } catch (const AppError&) {
        }
    }
    report.close();
    releaseDuplicates();
    if (store.isOpen()) {
        try {
            store.close();
        } catch (const AppError&) {
            // Only a run that has already failed gets here with records to write; its own
            // error is what the user hears, and the counters say what is in the file.
        }
    }
    journal.reset();
    settleTotals();
    claim.release();
    if (LogFileNumber() != 0)
        CloseLogFile(LogFileNumber());
    MousePointer::normal();
    records.reset();
    if (source) {
        source->close();
        source.reset();
    }
}
