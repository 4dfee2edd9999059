#include "wizardfixture.h"

#include "util/modApplication.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QProgressBar>
#include <QRadioButton>
#include <QRegularExpression>
#include <QScrollBar>
#include <QTreeWidget>

using namespace wizardtest;

namespace {

const QString kStart = u"S&tart"_s;
const QString kNext = u"&Next >>"_s;
const QString kReviewQuestion = u"Would you like to review the log file now?"_s;
const QString kCancelQuestion = u"You have chosen to cancel the import process, are you sure ?"_s;
const QString kCloseQuestion = u"The import process is running are you sure you wish to close the "
                               "application before the import is completed ?"_s;

QAbstractButton* button(const QWidget* form, const char* name)
{
    return control<QAbstractButton>(form, name);
}

// Moves a combo to index the way a user does with the keyboard: each step is a pick.
void pickWithKeys(QComboBox* combo, int index)
{
    combo->setFocus();
    QTest::keyClick(combo, Qt::Key_Home);
    for (int i = 0; i < index; ++i)
        QTest::keyClick(combo, Qt::Key_Down);
}

QString exactly(const QString& text)
{
    return QRegularExpression::anchoredPattern(QRegularExpression::escape(text));
}

} // namespace

class tst_frmDBImport : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }

    void captionsAndMappingRows();
    void refusals_data();
    void refusals();
    void wholeImport();
    void savedChoicesAndAnotherConnection();
    void nameExclusion_data();
    void nameExclusion();
    void mappingAreaScrolls();
    void importProblems_data();
    void importProblems();
    void stopDuringImport_data();
    void stopDuringImport();
    void futureFeaturesSaySo_data();
    void futureFeaturesSaySo();
};

void tst_frmDBImport::captionsAndMappingRows()
{
    Environment env;
    auto form = openWizard();
    QCOMPARE(form->windowTitle(), u"Veltrano - Database Import v"_s + AppVersion());
    const struct
    {
        const char* name;
        const char* property;
        const char* value;
    } captions[] = {
        {"chkReplace", "text",
         "&Update existing recipients details with the new data in the database (Note: this "
         "will slow down the import process by a factor of 10)."},
        {"cmdCreateNewGroup", "toolTip", "Create a new destination group"},
        {"lblIllegal", "toolTip", "Illegal Email Addresses"},
        {"cmdClose", "text", "&Close"},
    };
    for (const auto& c : captions)
        QCOMPARE(control<QWidget>(form.get(), c.name)->property(c.property).toString(),
                 QString::fromUtf8(c.value));
    auto* list = control<QTreeWidget>(form.get(), "lvwDSN");
    QCOMPARE(list->headerItem()->text(0), u"Name"_s);
    QCOMPARE(list->headerItem()->text(1), u"Description"_s);
    QCOMPARE(mappingCombo(form.get(), "FullNameMacro")->toolTip(),
             QString::fromUtf8(kFullNameMacroToolTip));

    // One row per host field, in the table's order: caption left, combo right.
    QWidget* area = control<QWidget>(form.get(), "picScrollableArea");
    auto* grid = qobject_cast<QGridLayout*>(area->layout());
    QVERIFY(grid);
    int row = 0;
    for (const HostField& field : kHostFields) {
        auto* label = control<QLabel>(form.get(), field.labelName);
        auto* combo = control<QComboBox>(form.get(), field.comboName);
        QCOMPARE(label->text(), QString::fromUtf8(field.caption));
        QCOMPARE(label->buddy(), combo);
        QCOMPARE(grid->itemAtPosition(row, 0)->widget(), label);
        QCOMPARE(grid->itemAtPosition(row++, 1)->widget(), combo);
    }
    QCOMPARE(grid->rowCount(), row);
    form->close();
}

void tst_frmDBImport::refusals_data()
{
    QTest::addColumn<QString>("connection"); // none, missing file, or Sales
    QTest::addColumn<bool>("mapped");
    QTest::addColumn<QString>("sql");
    QTest::addColumn<int>("step");
    QTest::addColumn<QByteArray>("press"); // before Next, on the step
    QTest::addColumn<int>("icon");
    QTest::addColumn<QString>("message"); // a pattern

    const int info = static_cast<int>(MessageBoxes::Icon::Information);
    const int critical = static_cast<int>(MessageBoxes::Icon::Critical);
    QTest::newRow("no connection")
        << "none" << true << QString() << 0 << QByteArray() << info
        << exactly("A valid database connection must be selected/configured before proceeding.");
    QTest::newRow("unreadable connection") << "missing" << true << QString() << 0 << QByteArray()
                                           << critical << "^modADO:GetTables Error .*missing\\.db";
    QTest::newRow("advanced without SQL")
        << "sales" << true << QString() << 1 << QByteArray("optFilterMethod_1") << info
        << exactly("A valid SQL Statement must be entered.");
    QTest::newRow("advanced not a SELECT")
        << "sales" << true << "delete from Contacts" << 1 << QByteArray("optFilterMethod_1")
        << critical << exactly("The SQL must be a valid SELECT statement.");
    QTest::newRow("advanced on a missing table")
        << "sales" << true << "select * from Nowhere" << 1 << QByteArray("optFilterMethod_1")
        << critical << "Nowhere";
    QTest::newRow("no table chosen")
        << "sales" << true << QString() << 1 << QByteArray("noTable") << info
        << exactly("A Table name must be selected from the list.");
    QTest::newRow("no e-mail mapping")
        << "sales" << false << QString() << 2 << QByteArray() << info
        << exactly("You must match up the Email Address field in the import database to the "
                   "Email Address field in the Veltrano database.");
    QTest::newRow("saved Group gone")
        << "sales" << true << QString() << 3 << QByteArray() << info
        << exactly("A Group must be selected to import the data into.");
}

void tst_frmDBImport::refusals()
{
    QFETCH(QString, connection);
    QFETCH(bool, mapped);
    QFETCH(QString, sql);
    QFETCH(int, step);
    QFETCH(QByteArray, press);
    QFETCH(int, icon);
    QFETCH(QString, message);

    Environment env;
    if (connection == QLatin1String("missing"))
        env.addConnection(u"Gone"_s,
                          Environment::sqliteConnection(env.folder.filePath("missing.db")));
    if (connection == QLatin1String("sales")) {
        env.addSales(3);
        env.createGroups({u"Members"_s});
        ImportChoices saved = contactsChoices(u"Sales"_s, u"Gone"_s);
        if (!mapped)
            saved.FieldMappings = CMappings();
        saved.AdvancedSQLString = sql;
        env.saveChoices(saved);
    }
    auto form = openWizard();
    QVERIFY(nextTo(form.get(), step));
    if (press == "noTable")
        control<QComboBox>(form.get(), "icmbTables")->setCurrentIndex(-1);
    else if (!press.isEmpty())
        click(form.get(), press.constData());
    if (step == 3) // the saved Group is gone: no stand-in is chosen
        QCOMPARE(control<QComboBox>(form.get(), "icmbGroups")->currentIndex(), -1);
    env.boxes.clear();
    click(form.get(), "cmdNext");

    QCOMPARE(currentStep(form.get()), step);
    QCOMPARE(env.boxes.shown().size(), 1);
    QCOMPARE(static_cast<int>(env.boxes.shown().first().icon), icon);
    QVERIFY2(QRegularExpression(message).match(env.boxes.shown().first().text).hasMatch(),
             qPrintable(env.boxes.shown().first().text));
    if (step > 0) { // going back is never refused
        click(form.get(), "cmdPrev");
        QCOMPARE(currentStep(form.get()), step - 1);
        QCOMPARE(env.boxes.shown().size(), 1);
    }
    form->close();
}

void tst_frmDBImport::wholeImport()
{
    const int valid = 300;
    Environment env;
    const QString source = env.addSales(valid);
    env.addConnection(u"Members"_s, u"Provider=SQLite;Data Source=/x.db"_s);
    env.createGroups({u"Members"_s});
    ImportChoices saved = contactsChoices(u"Sales"_s, u"Members"_s);
    env.saveChoices(saved);
    const QStringList descriptions = {
        "Select the database connection to import the information from",
        "Specify the records to import into Veltrano",
        "Match the database fields to Veltrano fields",
        "Select the Group to import data into",
        "Import the data",
    };

    auto form = openWizard();
    auto* list = control<QTreeWidget>(form.get(), "lvwDSN");
    QCOMPARE(list->topLevelItemCount(), 2);
    QCOMPARE(list->topLevelItem(0)->text(0), u"Sales"_s);
    QCOMPARE(list->topLevelItem(0)->text(1), Environment::sqliteConnection(source));
    QCOMPARE(list->topLevelItem(1)->text(0), u"Members"_s);
    QCOMPARE(list->currentItem(), list->topLevelItem(0));
    QVERIFY(list->hasFocus());
    for (int step = 0; step < 5; ++step) {
        QVERIFY(nextTo(form.get(), step));
        QCOMPARE(button(form.get(), "cmdPrev")->isEnabled(), step != 0);
        QCOMPARE(button(form.get(), "cmdNext")->isEnabled(), step != 4);
        QCOMPARE(button(form.get(), "cmdNext")->text(), step >= 3 ? kStart : kNext);
        QCOMPARE(text(form.get(), "lblBannerTitle"), u"Database Import"_s);
        QCOMPARE(text(form.get(), "lblBannerDesc"), descriptions.at(step));
        QCOMPARE(text(form.get(), "lblStepMofN"), u"Step %1 of 5"_s.arg(step + 1));
    }

    QCOMPARE(text(form.get(), "lblImportingFrom"), u"Database - Sales"_s);
    QCOMPARE(text(form.get(), "lblImportingTo"), u"Veltrano Group - Members"_s);
    const int total = valid + kIllegalRows + kDuplicateRows;
    QCOMPARE(text(form.get(), "lblTotalProcessed"), QString::number(total));
    QCOMPARE(text(form.get(), "lblAdded"), QString::number(valid));
    QCOMPARE(text(form.get(), "lblDuplicates"), QString::number(kDuplicateRows));
    QCOMPARE(text(form.get(), "lblIllegal"), QString::number(kIllegalRows));
    QCOMPARE(text(form.get(), "lblCommand"), u"Import Complete ..."_s);
    auto* bar = control<QProgressBar>(form.get(), "prgProcess");
    QCOMPARE(bar->maximum(), total);
    QCOMPARE(bar->value(), total);
    QVERIFY(!control<QWidget>(form.get(), "lblNoProgress")->isVisible());
    QCOMPARE(button(form.get(), "cmdClose")->text(), u"&Close"_s);
    QCOMPARE(env.boxes.texts(), QStringList{kReviewQuestion});

    const QString group = env.groupFile(u"Members"_s);
    QCOMPARE(countRows(group), valid);
    QCOMPARE(SqliteColumn(group, u"SELECT Title || '|' || FirstName || '|' || LastName || '|' "
                                 "|| Company || '|' || City || '|' || Telephone FROM "
                                 "Recipients WHERE EmailAddress = 'person12@example5.com'"_s),
             QStringList{"Mr|Ann12|Lee|Company 12|City 2|+44 20 7946 1012"});
    const QString log = readLog(env.logFile());
    for (const QString& line : {u"#   DSN : Sales\r\n"_s, u"#   Destination Group : Members\r\n"_s,
                                u"#   Total Processed  : %1\r\n"_s.arg(total),
                                u"#   Recipients Added : %1\r\n"_s.arg(valid),
                                u"**  IGNORED: Duplicate email, Email=PERSON1@EXAMPLE1.COM"_s,
                                u"#   Database Import Ended : "_s})
        QVERIFY2(log.contains(line), qPrintable(line));
    QCOMPARE(log.count(u"**  IGNORED: Invalid email ("_s), kIllegalRows);
    // Start saved the choices of the run for the connection.
    QCOMPARE(ReadIniString(IniFilePath(), u"DSN1"_s, u"VTGroup"_s, QString()), u"Members"_s);

    // Back from the finished import to the Group step, ready to start again, and on down.
    for (int step = 3; step >= 0; --step) {
        click(form.get(), "cmdPrev");
        QCOMPARE(currentStep(form.get()), step);
        QCOMPARE(button(form.get(), "cmdNext")->text(), step == 3 ? kStart : kNext);
        QCOMPARE(text(form.get(), "lblBannerDesc"), descriptions.at(step));
    }
    QVERIFY(!button(form.get(), "cmdPrev")->isEnabled());
    form->close();
}

void tst_frmDBImport::savedChoicesAndAnotherConnection()
{
    const int valid = 100;
    Environment env;
    env.addSales(valid);
    env.addSales(3, u"Members"_s);
    env.createGroups({u"Alpha"_s, u"Beta"_s});
    ImportChoices first = contactsChoices(u"Sales"_s, u"alpha"_s);
    first.ReplaceExisting = true;
    first.Rules.Add(u"City"_s, u"Equals"_s, u"="_s, u"'City 1'"_s, u"And"_s);
    env.saveChoices(first);
    ImportChoices second;
    second.DSNName = u"Members"_s;
    second.SelectedTable = u"Other Table"_s;
    second.FieldMappings.Add(u"EMailAddress"_s, u"Mail Address"_s);
    second.VTGroup = u"Beta"_s;
    env.saveChoices(second);

    // The first connection's saved choices show on every step and narrow its import.
    auto form = openWizard();
    frmDBImport* f = form.get();
    QVERIFY(nextTo(f, 1));
    QCOMPARE(control<QComboBox>(f, "icmbTables")->currentText(), u"Contacts"_s);
    QCOMPARE(text(f, "lblQueryBuilderRules"), u"1 filters defined"_s);
    QVERIFY(control<QRadioButton>(f, "optFilterMethod_0")->isChecked());
    for (const bool advanced : {true, false}) {
        click(f, advanced ? "optFilterMethod_1" : "optFilterMethod_0");
        for (const char* name : {"lblTableCaption", "icmbTables", "lblCaption_1", "cmdQueryBuilder",
                                 "lblQueryBuilderRules"})
            QVERIFY2(control<QWidget>(f, name)->isEnabled() == !advanced, name);
        QCOMPARE(control<QWidget>(f, "cmdAdvancedQuery")->isEnabled(), advanced);
    }
    QVERIFY(nextTo(f, 2));
    const char* mapped[][2] = {{"EMailAddress", "Email"},
                               {"FullNameMacro", "Full Name"},
                               {"Telephone", "Phone"},
                               {"FirstName", "(blank)"}};
    for (const auto& m : mapped)
        QCOMPARE(mappingCombo(f, m[0])->currentText(), QString::fromLatin1(m[1]));
    QVERIFY(nextTo(f, 3));
    QCOMPARE(control<QComboBox>(f, "icmbGroups")->currentText(), u"Alpha"_s);
    QVERIFY(control<QCheckBox>(f, "chkReplace")->isChecked());
    QVERIFY(nextTo(f, 4));
    QCOMPARE(text(f, "lblAdded"), QString::number(valid / 5));
    QCOMPARE(SqliteColumn(env.groupFile(u"Alpha"_s), u"SELECT DISTINCT City FROM Recipients"_s),
             QStringList{"City 1"});
    QCOMPARE(countRows(env.groupFile(u"Alpha"_s)), valid / 5);

    // Another connection replaces all of them.
    for (int step = 3; step >= 0; --step)
        click(f, "cmdPrev");
    auto* list = control<QTreeWidget>(f, "lvwDSN");
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      list->visualItemRect(list->topLevelItem(1)).center());
    QCOMPARE(list->currentItem(), list->topLevelItem(1));
    QVERIFY(nextTo(f, 1));
    const ImportChoices& now = form->importChoices();
    QCOMPARE(now.DSNName, u"Members"_s);
    QCOMPARE(now.Rules.Count(), 0);
    QCOMPARE(now.FieldMappings.Count(), 1);
    QVERIFY(!now.ReplaceExisting);
    QCOMPARE(text(f, "lblQueryBuilderRules"), u"0 filters defined"_s);
    auto* tables = control<QComboBox>(f, "icmbTables");
    QCOMPARE(comboItems(tables), (QStringList{"Contacts", "Other Table"}));
    QCOMPARE(tables->currentText(), u"Other Table"_s);
    QVERIFY(nextTo(f, 2));
    // The columns of a table with a blank in its name.
    QCOMPARE(form->importChoices().SelectedTable, u"Other Table"_s);
    QCOMPARE(comboItems(mappingCombo(f, "EMailAddress")),
             (QStringList{"(blank)", "Mail Address", "Name"}));
    QCOMPARE(mappingCombo(f, "EMailAddress")->currentText(), u"Mail Address"_s);
    QCOMPARE(mappingCombo(f, "FullNameMacro")->currentIndex(), 0);
    QVERIFY(nextTo(f, 3));
    QCOMPARE(control<QComboBox>(f, "icmbGroups")->currentText(), u"Beta"_s);
    QVERIFY(!control<QCheckBox>(f, "chkReplace")->isChecked());

    // Closing when idle saves what is chosen.
    control<QComboBox>(f, "icmbGroups")->setCurrentIndex(0);
    click(f, "chkReplace");
    click(f, "cmdPrev");
    env.boxes.clear();
    click(f, "cmdClose");
    QVERIFY(!form->isVisible());
    QVERIFY(env.boxes.shown().isEmpty());
    const auto saved = [](const char* key) {
        return ReadIniString(IniFilePath(), u"DSN2"_s, QString::fromLatin1(key), QString());
    };
    QCOMPARE(saved("VTGroup"), u"Alpha"_s);
    QCOMPARE(saved("ReplaceExisting"), u"True"_s);
}

void tst_frmDBImport::nameExclusion_data()
{
    QTest::addColumn<QString>("part");
    for (const char* part : {"Title", "FirstName", "Initial", "LastName"})
        QTest::newRow(part) << QString::fromLatin1(part);
}

void tst_frmDBImport::nameExclusion()
{
    QFETCH(QString, part);
    Environment env;
    env.addSales(3);
    auto form = openWizard();
    QVERIFY(nextTo(form.get(), 2));
    // Contacts columns: ID, Email, Full Name, First Name, Last Name, Company, City, Phone.
    QComboBox* fullName = mappingCombo(form.get(), "FullNameMacro");
    QComboBox* partCombo = mappingCombo(form.get(), part.toLatin1().constData());

    // A name part picked by the user clears the full name.
    pickWithKeys(fullName, 3);
    QCOMPARE(fullName->currentText(), u"Full Name"_s);
    pickWithKeys(partCombo, 4);
    QCOMPARE(partCombo->currentText(), u"First Name"_s);
    QCOMPARE(fullName->currentIndex(), 0);

    // Neither a part set by the program nor "(blank)" picked for it clears the full name.
    pickWithKeys(fullName, 3);
    partCombo->setCurrentIndex(5);
    QCOMPARE(fullName->currentText(), u"Full Name"_s);
    pickWithKeys(partCombo, 0);
    QCOMPARE(partCombo->currentIndex(), 0);
    QCOMPARE(fullName->currentText(), u"Full Name"_s);

    // The full name clears every name part that is set, whichever way it changes.
    for (const char* key : {"Title", "FirstName", "Initial", "LastName"})
        mappingCombo(form.get(), key)->setCurrentIndex(5);
    fullName->setCurrentIndex(0);
    fullName->setCurrentIndex(3);
    for (const char* key : {"Title", "FirstName", "Initial", "LastName"})
        QCOMPARE(mappingCombo(form.get(), key)->currentIndex(), 0);

    // What the user leaves on the step is stored, and shown again on the way back.
    pickWithKeys(partCombo, 4);
    pickWithKeys(mappingCombo(form.get(), "EMailAddress"), 2);
    click(form.get(), "cmdPrev");
    QVERIFY(nextTo(form.get(), 2));
    QCOMPARE(partCombo->currentText(), u"First Name"_s);
    QVERIFY(nextTo(form.get(), 3));
    QCOMPARE(form->importChoices().FieldMappings.Item(u"FullNameMacro"_s)->DBField, QString());
    QCOMPARE(form->importChoices().FieldMappings.Item(part)->DBField, u"First Name"_s);
    form->close();
}

void tst_frmDBImport::mappingAreaScrolls()
{
    Environment env;
    env.addSales(3);
    auto form = openWizard();
    form->resize(720, 460);
    QVERIFY(nextTo(form.get(), 2));
    auto* bar = control<QScrollBar>(form.get(), "vscMapFields");
    auto* area = control<QWidget>(form.get(), "picScrollableArea");
    auto* container = control<QWidget>(form.get(), "picScrollableContainer");
    QTRY_VERIFY(bar->maximum() > 0);
    QCOMPARE(area->height() - container->height(), bar->maximum());

    const auto inSight = [&](QWidget* w) {
        return container->rect().contains(QRect(w->mapTo(container, QPoint(0, 0)), w->size()));
    };
    QComboBox* last = mappingCombo(form.get(), "Field4");
    QVERIFY(!inSight(last));
    bar->setValue(bar->maximum());
    QCOMPARE(area->y(), -bar->maximum());
    QVERIFY(inSight(last));

    // Moving the focus to a row out of sight brings it into view.
    QComboBox* first = mappingCombo(form.get(), "EMailAddress");
    QVERIFY(!inSight(first));
    first->setFocus();
    QTRY_VERIFY(inSight(first));
    QCOMPARE(area->y(), -bar->value());
    form->close();
}

void tst_frmDBImport::importProblems_data()
{
    QTest::addColumn<bool>("sourceGone"); // else the connection leaves the settings file
    QTest::addColumn<bool>("answer");
    QTest::addColumn<int>("added");
    QTest::newRow("settings lost, No keeps the wizard") << false << false << 0;
    QTest::newRow("settings lost, Yes imports all the same") << false << true << 20;
    QTest::newRow("source database gone") << true << true << 0;
}

void tst_frmDBImport::importProblems()
{
    QFETCH(bool, sourceGone);
    QFETCH(bool, answer);
    QFETCH(int, added);
    Environment env;
    auto form = wizardOnGroupStep(env, 20, {u"Members"_s}, u"Members"_s);
    const QString source = env.folder.filePath(u"Sales.db"_s);
    QString message;
    if (sourceGone)
        QVERIFY(QFile::remove(source));
    else
        QVERIFY(MaintainDSN(u"Sales"_s, Environment::sqliteConnection(source),
                            ConnectionAction::Delete, message));
    env.boxes.clear();
    env.boxes.queueAnswer(answer);
    click(form.get(), "cmdNext");

    QCOMPARE(currentStep(form.get()), 4);
    QCOMPARE(countRows(env.groupFile(u"Members"_s)), added);
    QCOMPARE(button(form.get(), "cmdClose")->text(), u"&Close"_s);
    QVERIFY(button(form.get(), "cmdPrev")->isEnabled());
    QVERIFY(!env.boxes.shown().isEmpty());
    if (sourceGone) {
        QCOMPARE(env.boxes.shown().last().icon, MessageBoxes::Icon::Critical);
        QVERIFY(!env.boxes.shown().last().text.isEmpty());
        QVERIFY(!env.boxes.texts().contains(kReviewQuestion));
    } else {
        const ScriptedMessageBoxes::Shown& question = env.boxes.shown().first();
        QCOMPARE(question.icon, MessageBoxes::Icon::Question);
        QVERIFY(!question.defaultYes);
        QCOMPARE(question.text,
                 u"The following error occurred when attempting to save your "
                 "current settings to file :  0 - DSN not found, cannot save "
                 "associated data.. Do you wish to continue and Import the data ?"_s);
        QCOMPARE(QFile::exists(env.logFile()), answer);
    }
    form->close();
}

void tst_frmDBImport::stopDuringImport_data()
{
    QTest::addColumn<bool>("closing"); // else Cancel is pressed
    QTest::newRow("Cancel") << false;
    QTest::newRow("close the window") << true;
}

void tst_frmDBImport::stopDuringImport()
{
    QFETCH(bool, closing);
    const int valid = 60000; // long enough to be stopped while it runs
    Environment env;
    auto form = wizardOnGroupStep(env, valid, {u"Members"_s}, u"Members"_s);
    env.boxes.clear();
    env.boxes.queueAnswer(false); // "are you sure" No: keeps running
    env.boxes.queueAnswer(true);  // asked again: Yes

    const auto stop = [&] { closing ? void(form->close()) : click(form.get(), "cmdClose"); };
    QString captionWhileRunning;
    int firstStopAt = 0;
    bool visibleAfterNo = false;
    QTimer* second = nullptr;
    QTimer* first = whenTrue([&] { return text(form.get(), "lblTotalProcessed").toInt() >= 100; },
                             [&] {
                                 captionWhileRunning = button(form.get(), "cmdClose")->text();
                                 firstStopAt = text(form.get(), "lblTotalProcessed").toInt();
                                 stop();
                                 visibleAfterNo = form->isVisible();
                                 second = whenTrue([] { return true; }, stop);
                             });
    click(form.get(), "cmdNext");
    delete first;
    delete second;

    QCOMPARE(captionWhileRunning, u"&Cancel"_s);
    QVERIFY(visibleAfterNo);
    // Closing answers the job's own questions: neither the cancel check nor the log offer.
    const QStringList asked = closing
                                  ? QStringList{kCloseQuestion, kCloseQuestion}
                                  : QStringList{kCancelQuestion, kCancelQuestion, kReviewQuestion};
    QCOMPARE(env.boxes.texts(), asked);
    const int processed = text(form.get(), "lblTotalProcessed").toInt();
    QVERIFY2(processed > firstStopAt && processed < valid, qPrintable(QString::number(processed)));
    QCOMPARE(countRows(env.groupFile(u"Members"_s)), text(form.get(), "lblAdded").toInt());
    QVERIFY(readLog(env.logFile()).contains(u"#   Total Processed  : %1\r\n"_s.arg(processed)));
    QVERIFY(!form->importInProgress());
    QCOMPARE(form->isVisible(), !closing);
    if (!closing) {
        QCOMPARE(text(form.get(), "lblCommand"), u"Import Complete ..."_s);
        QCOMPARE(button(form.get(), "cmdClose")->text(), u"&Close"_s);
        form->close();
    }
}

void tst_frmDBImport::futureFeaturesSaySo_data()
{
    QTest::addColumn<QByteArray>("button");
    QTest::addColumn<int>("step");
    for (const char* name : {"cmdNewDSN", "cmdEditDSN", "cmdDeleteDSN", "cmdExamine"})
        QTest::newRow(name) << QByteArray(name) << 0;
    for (const char* name : {"cmdQueryBuilder", "cmdAdvancedQuery"})
        QTest::newRow(name) << QByteArray(name) << 1;
}

void tst_frmDBImport::futureFeaturesSaySo()
{
    QFETCH(QByteArray, button);
    QFETCH(int, step);
    Environment env;
    env.addSales(3);
    auto form = openWizard();
    QVERIFY(nextTo(form.get(), step));
    if (button == "cmdAdvancedQuery")
        click(form.get(), "optFilterMethod_1");
    const QByteArray iniBefore = env.folder.readFile(u"dbimport.ini"_s);
    env.boxes.clear();

    click(form.get(), button.constData());
    QCOMPARE(env.boxes.shown().size(), 1);
    QCOMPARE(env.boxes.shown().first().icon, MessageBoxes::Icon::Information);
    QVERIFY2(env.boxes.shown().first().text.endsWith(u" is not available in this version yet."_s),
             qPrintable(env.boxes.shown().first().text));
    QCOMPARE(currentStep(form.get()), step);
    QCOMPARE(env.folder.readFile(u"dbimport.ini"_s), iniBefore);
    QCOMPARE(control<QTreeWidget>(form.get(), "lvwDSN")->topLevelItemCount(), 1);
    form->close();
}

QTEST_MAIN(tst_frmDBImport)
#include "tst_frmdbimport.moc"
