#include "importengine.h"

#include <QDate>
#include <QDateTime>
#include <QLocale>
#include <QSqlQuery>
#include <QTime>

#include <algorithm>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "duplicatelist.h"
#include "groupstore.h"
#include "importchoices.h"
#include "importlog.h"
#include "importview.h"
#include "pgcopyrows.h"
#include "readahead.h"
#include "sourcerows.h"
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
    DuplicateCheckList duplicates;
    qint32 listedAtClose = 0;
    std::unique_ptr<SourceConnection> source;
    std::unique_ptr<SourceRows> records;
    qint64 recordCount = -1;
    bool importRunning = false;
    Totals totals;

    void log(const QString& line) { WriteLogLine(LogFileNumber(), line); }

    QString importSql() const
    {
        return choices.FilterMethod == 1 ? choices.AdvancedSQLString
                                         : BuildImportSQL(choices.SelectedTable, choices.Rules);
    }

    bool OpenVTDatabase(QString& errorText);
    bool BuildDuplicateCheckList(QString& errorText);
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
    int titleIndex = -1, firstNameIndex = -1, initialIndex = -1, lastNameIndex = -1;

    void prepareCopy();
    void prepareWriting(int emailSource, const QString& emailField);
    QString sourceValue(const QString& field, int index) const;
    void setGroupField(const QString& name, int index, const QString& value);
    void copyMappedFields(const QString& email);
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

bool ImportEngine::DoImportJob(QString& errorText)
{
    const QString logPath = HostDataFolder() + kLogFileName;
    if (!OpenLogFile(logPath, LogFileNumber(), false, errorText)) {
        if (!MessageBoxes::instance().ask(
                QStringLiteral("The log file cannot be opened, Error: ") + errorText +
                QStringLiteral(". Do you wist to continue with the import ?"))) {
            d->CloseImportResources();
            return false;
        }
    }

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
    if (!d->DoImport(errorText)) {
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

bool ImportEngine::Private::OpenVTDatabase(QString& errorText)
{
    try {
        const QString path =
            NativePath(HostDataFolder() + choices.VTGroup + QStringLiteral(".gdb"));
        // A missing Group is not refused here: the first store operation fails instead.
        if (GroupStore::checkFile(path))
            store.open(path);
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
    if (count > 0) {
        view.setProgressRange(0, count);
        view.setProgressValue(0);
        try {
            store.moveFirst();
        } catch (const AppError&) {
        }
        const QString emailField = QStringLiteral("EmailAddress");
        const int emailIndex = store.fieldIndex(emailField);
        for (qint32 i = 1; i <= count; ++i) {
            try {
                // Plain ASCII, as nearly every address is, goes in without a conversion.
                if (emailIndex >= 0) {
                    store.getFieldUtf8(emailIndex, utf8Value);
                    if (DuplicateCheckList::isAscii(utf8Value))
                        duplicates.addAscii(utf8Value, store.currentRowid());
                    else
                        duplicates.add(store.getField(emailIndex));
                } else {
                    duplicates.add(store.getField(emailField));
                }
            } catch (const std::exception&) {
            }
            view.setProgressValue(i);
            try {
                if (!store.atEnd())
                    store.moveNext();
            } catch (const AppError&) {
            }
        }
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
    // Qt SQL reports no size for these drivers; count first so that the bar can show.
    QString inner = sql.trimmed();
    while (inner.endsWith(QLatin1Char(';')))
        inner = inner.chopped(1).trimmed();
    {
        QSqlQuery count(source->database());
        count.setForwardOnly(true);
        if (count.exec(QStringLiteral("SELECT COUNT(*) FROM (") + inner +
                       QStringLiteral(") AS dbimport_count")) &&
            count.next())
            recordCount = count.value(0).toLongLong();
    }
    if (recordCount < 0) {
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
        if (!records)
            records = SourceRows::open(source->database(), sql);
    } catch (const SourceFailure& e) {
        return failed(e.text);
    }
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
    if (index >= 0)
        store.setField(index, value);
    else
        store.setField(name, value); // raises the store's own error
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
            if (step.sourceIndex >= 0 && step.groupIndex >= 0) {
                // Copied as the UTF-8 both sides keep.
                records->utf8(step.sourceIndex, utf8Value);
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
    if (store.isOpen() && !choices.ReplaceExisting && (existing == 0 || recordCount > existing)) {
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
        const int dateAddedIndex =
            store.isOpen() ? store.fieldIndex(QStringLiteral("DateAdded")) : -1;
        const QString today =
            QLocale::system().toString(QDate::currentDate(), QLocale::ShortFormat);
        const std::string todayUtf8 = today.toStdString();
        MessageBoxes& boxes = MessageBoxes::instance();

        while (hasRecord) {
            const QString email = TrimBlanks((sourceValue(emailField, emailSource)));
            QString reason;
            if (!IsEmailValid(email, reason)) {
                ++totals.illegal;
                log(QStringLiteral("**  IGNORED: Invalid email (") + reason +
                    QStringLiteral(") Email=") + email);
            } else if (!IsDuplicateEmail(email)) {
                store.addRecord();
                copyMappedFields(email);
                if (dateAddedIndex >= 0) {
                    utf8Value = todayUtf8;
                    store.setFieldUtf8(dateAddedIndex, utf8Value);
                } else {
                    setGroupField(QStringLiteral("DateAdded"), dateAddedIndex, today);
                }
                ++totals.added;
            } else {
                ++totals.duplicates;
                if (!choices.ReplaceExisting) {
                    log(QStringLiteral("**  IGNORED: Duplicate email, Email=") + email);
                } else {
                    // An ASCII address matches (without regard to case) only the ASCII
                    // addresses the list holds, whose first record is the one kept.
                    const qint64 rowid = duplicates.foundRowid();
                    if (rowid <= 0 || !isAscii(email) || !store.moveToRowid(rowid))
                        store.find(QStringLiteral("EmailAddress"), QStringLiteral("="), email);
                    if (store.noMatch())
                        boxes.exclamation(QStringLiteral(
                            "Warning: A record was found in the duplicates list, but could not be "
                            "found in the Veltrano database to replace."));
                    else
                        copyMappedFields(email);
                }
            }

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
        showCounters();
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
    importRunning = false;
    view.setStatus(QStringLiteral("Import Terminated due to error ..."));
    return false;
}

void ImportEngine::Private::CloseImportResources()
{
    importRunning = false;
    // Not needed any more, and its memory is better spent on building the Group's index;
    // a next run on this engine still shows the entries it resets.
    listedAtClose = duplicates.count();
    duplicates.clear();
    if (store.isOpen()) {
        try {
            store.close();
        } catch (const AppError& e) {
            // The last batch could not be written: the user must hear of it.
            MessageBoxes::instance().critical(e.numberAndDescription());
        }
    }
    if (LogFileNumber() != 0)
        CloseLogFile(LogFileNumber());
    MousePointer::normal();
    records.reset();
    if (source) {
        source->close();
        source.reset();
    }
}
