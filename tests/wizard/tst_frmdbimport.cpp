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

const QString kStart = QStringLiteral("S&tart");
const QString kNext = QStringLiteral("&Next >>");
const QString kReviewQuestion = QStringLiteral("Would you like to review the log file now?");
const QString kCancelQuestion =
    QStringLiteral("You have chosen to cancel the import process, are you sure ?");
const QString kCloseQuestion =
    QStringLiteral("The import process is running are you sure you wish to close the "
                   "application before the import is completed ?");

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

void addCityRule(ImportChoices& choices)
{
    choices.Rules.Add(QStringLiteral("City"), QStringLiteral("Equals"), QStringLiteral("="),
                      QStringLiteral("'City 1'"), QStringLiteral("And"));
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
    void savedChoicesNarrowTheImport();
    void otherConnectionReplacesAllChoices();
    void nameExclusion_data();
    void nameExclusion();
    void mappingAreaScrolls();
    void importProblems_data();
    void importProblems();
    void stopDuringImport_data();
    void stopDuringImport();
    void closeSavesChoicesWhenIdle();
    void futureFeaturesSaySo_data();
    void futureFeaturesSaySo();
};

void tst_frmDBImport::captionsAndMappingRows()
{
    Environment env;
    auto form = openWizard();
    QCOMPARE(form->windowTitle(), QStringLiteral("Veltrano - Database Import v") + AppVersion());
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
    QCOMPARE(list->headerItem()->text(0), QStringLiteral("Name"));
    QCOMPARE(list->headerItem()->text(1), QStringLiteral("Description"));
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
        QCOMPARE(combo->parentWidget(), area);
        int r = -1, c = -1, rowSpan = 0, columnSpan = 0;
        grid->getItemPosition(grid->indexOf(label), &r, &c, &rowSpan, &columnSpan);
        QCOMPARE(QPoint(c, r), QPoint(0, row));
        grid->getItemPosition(grid->indexOf(combo), &r, &c, &rowSpan, &columnSpan);
        QCOMPARE(QPoint(c, r), QPoint(1, row++));
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
        env.addConnection(QStringLiteral("Gone"),
                          Environment::sqliteConnection(env.folder.filePath("missing.db")));
    if (connection == QLatin1String("sales")) {
        env.addSales(3);
        env.createGroups({QStringLiteral("Members")});
        ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Gone"));
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
    env.addConnection(QStringLiteral("Members"),
                      QStringLiteral("Provider=SQLite;Data Source=/x.db"));
    env.createGroups({QStringLiteral("Members")});
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Members"));
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
    QCOMPARE(list->topLevelItem(0)->text(0), QStringLiteral("Sales"));
    QCOMPARE(list->topLevelItem(0)->text(1), Environment::sqliteConnection(source));
    QCOMPARE(list->topLevelItem(1)->text(0), QStringLiteral("Members"));
    QCOMPARE(list->currentItem(), list->topLevelItem(0));
    QVERIFY(list->hasFocus());
    for (int step = 0; step < 5; ++step) {
        QVERIFY(nextTo(form.get(), step));
        QCOMPARE(button(form.get(), "cmdPrev")->isEnabled(), step != 0);
        QCOMPARE(button(form.get(), "cmdNext")->isEnabled(), step != 4);
        QCOMPARE(button(form.get(), "cmdNext")->text(), step >= 3 ? kStart : kNext);
        QCOMPARE(text(form.get(), "lblBannerTitle"), QStringLiteral("Database Import"));
        QCOMPARE(text(form.get(), "lblBannerDesc"), descriptions.at(step));
        QCOMPARE(text(form.get(), "lblStepMofN"), QStringLiteral("Step %1 of 5").arg(step + 1));
    }

    QCOMPARE(text(form.get(), "lblImportingFrom"), QStringLiteral("Database - Sales"));
    QCOMPARE(text(form.get(), "lblImportingTo"), QStringLiteral("Veltrano Group - Members"));
    const int total = valid + kIllegalRows + kDuplicateRows;
    QCOMPARE(text(form.get(), "lblTotalProcessed"), QString::number(total));
    QCOMPARE(text(form.get(), "lblAdded"), QString::number(valid));
    QCOMPARE(text(form.get(), "lblDuplicates"), QString::number(kDuplicateRows));
    QCOMPARE(text(form.get(), "lblIllegal"), QString::number(kIllegalRows));
    QCOMPARE(text(form.get(), "lblCommand"), QStringLiteral("Import Complete ..."));
    auto* bar = control<QProgressBar>(form.get(), "prgProcess");
    QCOMPARE(bar->maximum(), total);
    QCOMPARE(bar->value(), total);
    QVERIFY(!control<QWidget>(form.get(), "lblNoProgress")->isVisible());
    QCOMPARE(button(form.get(), "cmdClose")->text(), QStringLiteral("&Close"));
    QCOMPARE(env.boxes.texts(), QStringList{kReviewQuestion});

    const QString group = env.groupFile(QStringLiteral("Members"));
    QCOMPARE(countRows(group), valid);
    QCOMPARE(SqliteColumn(
                 group, QStringLiteral("SELECT Title || '|' || FirstName || '|' || LastName || '|' "
                                       "|| Company || '|' || City || '|' || Telephone FROM "
                                       "Recipients WHERE EmailAddress = 'person12@example5.com'")),
             QStringList{"Mr|Ann12|Lee|Company 12|City 2|+44 20 7946 1012"});
    QCOMPARE(SqliteColumn(group, QStringLiteral("SELECT count(*) FROM Recipients WHERE "
                                                "lower(EmailAddress) = 'person1@example1.com'")),
             QStringList{"1"});
    const QString log = readLog(env.logFile());
    for (const QString& line :
         {QStringLiteral("#   DSN : Sales\r\n"),
          QStringLiteral("#   Destination Group : Members\r\n"),
          QStringLiteral("#   Total Processed  : %1\r\n").arg(total),
          QStringLiteral("#   Recipients Added : %1\r\n").arg(valid),
          QStringLiteral("**  IGNORED: Duplicate email, Email=PERSON1@EXAMPLE1.COM"),
          QStringLiteral("#   Database Import Ended : ")})
        QVERIFY2(log.contains(line), qPrintable(line));
    QCOMPARE(log.count(QStringLiteral("**  IGNORED: Invalid email (")), kIllegalRows);
    // Start saved the choices of the run for the connection.
    QCOMPARE(
        ReadIniString(IniFilePath(), QStringLiteral("DSN1"), QStringLiteral("VTGroup"), QString()),
        QStringLiteral("Members"));

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

void tst_frmDBImport::savedChoicesNarrowTheImport()
{
    const int valid = 100;
    Environment env;
    env.addSales(valid);
    env.createGroups({QStringLiteral("Alpha"), QStringLiteral("Members")});
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("members"));
    saved.ReplaceExisting = true;
    addCityRule(saved);
    env.saveChoices(saved);

    auto form = openWizard();
    QVERIFY(nextTo(form.get(), 1));
    QCOMPARE(control<QComboBox>(form.get(), "icmbTables")->currentText(),
             QStringLiteral("Contacts"));
    QCOMPARE(text(form.get(), "lblQueryBuilderRules"), QStringLiteral("1 filters defined"));
    QVERIFY(control<QRadioButton>(form.get(), "optFilterMethod_0")->isChecked());
    for (const bool advanced : {true, false}) {
        click(form.get(), advanced ? "optFilterMethod_1" : "optFilterMethod_0");
        for (const char* name : {"lblTableCaption", "icmbTables", "lblCaption_1", "cmdQueryBuilder",
                                 "lblQueryBuilderRules"})
            QVERIFY2(control<QWidget>(form.get(), name)->isEnabled() == !advanced, name);
        QCOMPARE(control<QWidget>(form.get(), "cmdAdvancedQuery")->isEnabled(), advanced);
    }

    QVERIFY(nextTo(form.get(), 2));
    const QStringList mapped = {"EMailAddress", "Email", "FullNameMacro", "Full Name",
                                "Telephone",    "Phone", "FirstName",     "(blank)"};
    for (int i = 0; i < mapped.size(); i += 2)
        QCOMPARE(mappingCombo(form.get(), qPrintable(mapped[i]))->currentText(), mapped[i + 1]);
    QVERIFY(nextTo(form.get(), 3));
    QCOMPARE(control<QComboBox>(form.get(), "icmbGroups")->currentText(),
             QStringLiteral("Members"));
    QVERIFY(control<QCheckBox>(form.get(), "chkReplace")->isChecked());

    QVERIFY(nextTo(form.get(), 4));
    QCOMPARE(text(form.get(), "lblAdded"), QString::number(valid / 5));
    QCOMPARE(countRows(env.groupFile(QStringLiteral("Members"))), valid / 5);
    QCOMPARE(SqliteColumn(env.groupFile(QStringLiteral("Members")),
                          QStringLiteral("SELECT DISTINCT City FROM Recipients")),
             QStringList{"City 1"});
    QCOMPARE(env.boxes.texts(), QStringList{kReviewQuestion});
    form->close();
}

void tst_frmDBImport::otherConnectionReplacesAllChoices()
{
    Environment env;
    env.addSales(3);
    env.addSales(3, QStringLiteral("Members"));
    env.createGroups({QStringLiteral("Alpha"), QStringLiteral("Beta")});
    ImportChoices first = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Alpha"));
    first.ReplaceExisting = true;
    addCityRule(first);
    env.saveChoices(first);
    ImportChoices second;
    second.DSNName = QStringLiteral("Members");
    second.SelectedTable = QStringLiteral("Other Table");
    second.FieldMappings.Add(QStringLiteral("EMailAddress"), QStringLiteral("Mail Address"));
    second.VTGroup = QStringLiteral("Beta");
    env.saveChoices(second);

    auto form = openWizard();
    QVERIFY(nextTo(form.get(), 3));
    QCOMPARE(form->importChoices().Rules.Count(), 1);
    for (int step = 2; step >= 0; --step)
        click(form.get(), "cmdPrev");
    QCOMPARE(currentStep(form.get()), 0);

    auto* list = control<QTreeWidget>(form.get(), "lvwDSN");
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      list->visualItemRect(list->topLevelItem(1)).center());
    QCOMPARE(list->currentItem(), list->topLevelItem(1));
    click(form.get(), "cmdNext");

    const ImportChoices& now = form->importChoices();
    QCOMPARE(now.DSNName, QStringLiteral("Members"));
    QCOMPARE(now.Rules.Count(), 0);
    QCOMPARE(now.FieldMappings.Count(), 1);
    QVERIFY(!now.ReplaceExisting);
    QCOMPARE(text(form.get(), "lblQueryBuilderRules"), QStringLiteral("0 filters defined"));
    auto* tables = control<QComboBox>(form.get(), "icmbTables");
    QCOMPARE(comboItems(tables), (QStringList{"Contacts", "Other Table"}));
    QCOMPARE(tables->currentText(), QStringLiteral("Other Table"));
    QVERIFY(nextTo(form.get(), 2));
    // The columns of a table with a blank in its name.
    QCOMPARE(comboItems(mappingCombo(form.get(), "EMailAddress")),
             (QStringList{"(blank)", "Mail Address", "Name"}));
    QCOMPARE(mappingCombo(form.get(), "EMailAddress")->currentText(),
             QStringLiteral("Mail Address"));
    QCOMPARE(mappingCombo(form.get(), "FullNameMacro")->currentIndex(), 0);
    QVERIFY(nextTo(form.get(), 3));
    QCOMPARE(control<QComboBox>(form.get(), "icmbGroups")->currentText(), QStringLiteral("Beta"));
    QVERIFY(!control<QCheckBox>(form.get(), "chkReplace")->isChecked());
    form->close();
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
    QCOMPARE(fullName->currentText(), QStringLiteral("Full Name"));
    pickWithKeys(partCombo, 4);
    QCOMPARE(partCombo->currentText(), QStringLiteral("First Name"));
    QCOMPARE(fullName->currentIndex(), 0);

    // Neither "(blank)" picked for a part nor a part set by the program clears it.
    pickWithKeys(fullName, 3);
    pickWithKeys(partCombo, 0);
    partCombo->setCurrentIndex(5);
    QCOMPARE(fullName->currentText(), QStringLiteral("Full Name"));

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
    QCOMPARE(partCombo->currentText(), QStringLiteral("First Name"));
    QVERIFY(nextTo(form.get(), 3));
    QCOMPARE(form->importChoices().FieldMappings.Item(QStringLiteral("FullNameMacro"))->DBField,
             QString());
    QCOMPARE(form->importChoices().FieldMappings.Item(part)->DBField, QStringLiteral("First Name"));
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
    auto form = wizardOnGroupStep(env, 20, {QStringLiteral("Members")}, QStringLiteral("Members"));
    const QString source = env.folder.filePath(QStringLiteral("Sales.db"));
    QString message;
    if (sourceGone)
        QVERIFY(QFile::remove(source));
    else
        QVERIFY(MaintainDSN(QStringLiteral("Sales"), Environment::sqliteConnection(source),
                            ConnectionAction::Delete, message));
    env.boxes.clear();
    env.boxes.queueAnswer(answer);
    click(form.get(), "cmdNext");

    QCOMPARE(currentStep(form.get()), 4);
    QCOMPARE(countRows(env.groupFile(QStringLiteral("Members"))), added);
    QCOMPARE(button(form.get(), "cmdClose")->text(), QStringLiteral("&Close"));
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
                 QStringLiteral("The following error occurred when attempting to save your "
                                "current settings to file :  0 - DSN not found, cannot save "
                                "associated data.. Do you wish to continue and Import the data ?"));
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
    auto form =
        wizardOnGroupStep(env, valid, {QStringLiteral("Members")}, QStringLiteral("Members"));
    env.boxes.clear();
    env.boxes.queueAnswer(false); // "are you sure" No: keeps running
    env.boxes.queueAnswer(true);  // asked again: Yes

    const auto stop = [&] { closing ? void(form->close()) : click(form.get(), "cmdClose"); };
    QString captionWhileRunning;
    int firstStopAt = 0;
    bool visibleAfterNo = false;
    QTimer* second = nullptr;
    QTimer* first = whenProcessed(form.get(), 100, [&] {
        captionWhileRunning = button(form.get(), "cmdClose")->text();
        firstStopAt = text(form.get(), "lblTotalProcessed").toInt();
        stop();
        visibleAfterNo = form->isVisible();
        second = whenTrue([] { return true; }, stop);
    });
    click(form.get(), "cmdNext");
    delete first;
    delete second;

    QCOMPARE(captionWhileRunning, QStringLiteral("&Cancel"));
    QVERIFY(visibleAfterNo);
    // Closing answers the job's own questions: neither the cancel check nor the log offer.
    const QStringList asked = closing
                                  ? QStringList{kCloseQuestion, kCloseQuestion}
                                  : QStringList{kCancelQuestion, kCancelQuestion, kReviewQuestion};
    QCOMPARE(env.boxes.texts(), asked);
    const int processed = text(form.get(), "lblTotalProcessed").toInt();
    QVERIFY2(processed > firstStopAt && processed < valid, qPrintable(QString::number(processed)));
    QCOMPARE(countRows(env.groupFile(QStringLiteral("Members"))),
             text(form.get(), "lblAdded").toInt());
    QVERIFY(readLog(env.logFile())
                .contains(QStringLiteral("#   Total Processed  : %1\r\n").arg(processed)));
    QVERIFY(!form->importInProgress());
    QCOMPARE(form->isVisible(), !closing);
    if (!closing) {
        QCOMPARE(text(form.get(), "lblCommand"), QStringLiteral("Import Complete ..."));
        QCOMPARE(button(form.get(), "cmdClose")->text(), QStringLiteral("&Close"));
        form->close();
    }
}

void tst_frmDBImport::closeSavesChoicesWhenIdle()
{
    Environment env;
    auto form = wizardOnGroupStep(env, 3, {QStringLiteral("Members")}, QString());
    control<QComboBox>(form.get(), "icmbGroups")->setCurrentIndex(0);
    click(form.get(), "chkReplace");
    click(form.get(), "cmdPrev");
    click(form.get(), "cmdClose");

    QVERIFY(!form->isVisible());
    QVERIFY(env.boxes.shown().isEmpty());
    const QString ini = IniFilePath();
    QCOMPARE(ReadIniString(ini, QStringLiteral("DSN1"), QStringLiteral("VTGroup"), QString()),
             QStringLiteral("Members"));
    QCOMPARE(
        ReadIniString(ini, QStringLiteral("DSN1"), QStringLiteral("ReplaceExisting"), QString()),
        QStringLiteral("True"));
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
    const QByteArray iniBefore = env.folder.readFile(QStringLiteral("dbimport.ini"));
    env.boxes.clear();

    click(form.get(), button.constData());
    QCOMPARE(env.boxes.shown().size(), 1);
    QCOMPARE(env.boxes.shown().first().icon, MessageBoxes::Icon::Information);
    QVERIFY2(env.boxes.shown().first().text.endsWith(
                 QStringLiteral(" is not available in this version yet.")),
             qPrintable(env.boxes.shown().first().text));
    QCOMPARE(currentStep(form.get()), step);
    QCOMPARE(env.folder.readFile(QStringLiteral("dbimport.ini")), iniBefore);
    QCOMPARE(control<QTreeWidget>(form.get(), "lvwDSN")->topLevelItemCount(), 1);
    form->close();
}

QTEST_MAIN(tst_frmDBImport)
#include "tst_frmdbimport.moc"
