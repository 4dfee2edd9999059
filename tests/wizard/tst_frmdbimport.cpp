#include "wizardfixture.h"

#include "import/groups.h"
#include "import/hostfields.h"
#include "util/modApplication.h"

#include <QCheckBox>
#include <QFile>
#include <QGridLayout>
#include <QProgressBar>
#include <QRadioButton>
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

std::unique_ptr<frmDBImport> openForm()
{
    auto form = std::make_unique<frmDBImport>();
    form->resize(760, 560);
    form->show();
    if (!QTest::qWaitForWindowActive(form.get()))
        QTest::qFail("the wizard was not shown", __FILE__, __LINE__);
    return form;
}

// Presses Next until the wizard shows step; false when a step refused.
bool nextTo(const QWidget* form, int step)
{
    while (currentStep(form) < step) {
        const int before = currentStep(form);
        click(form, "cmdNext");
        if (currentStep(form) != before + 1)
            return false;
    }
    return currentStep(form) == step;
}

QComboBox* mappingCombo(const QWidget* form, const char* key)
{
    for (const HostField& field : kHostFields) {
        if (qstrcmp(field.key, key) == 0)
            return control<QComboBox>(form, field.comboName);
    }
    qFatal("no host field %s", key);
}

// Moves a combo to index the way a user does with the keyboard: each step is a pick.
void pickWithKeys(QComboBox* combo, int index)
{
    combo->setFocus();
    QTest::keyClick(combo, Qt::Key_Home);
    for (int i = 0; i < index; ++i)
        QTest::keyClick(combo, Qt::Key_Down);
}

int countRows(const QString& groupFile)
{
    const QStringList values =
        SqliteColumn(groupFile, QStringLiteral("SELECT count(*) FROM Recipients"));
    return values.size() == 1 ? values.first().toInt() : -1;
}

QString readLog(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromLatin1(file.readAll());
}

} // namespace

class tst_frmDBImport : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();

    void opensOnTheConnectionStep();
    void mappingRowsComeFromTheHostFieldTable();
    void nextWithoutConnectionsIsRefused();
    void unreadableConnectionIsRefused();
    void recordsStepRefusals_data();
    void recordsStepRefusals();
    void filterMethodEnablesItsControls();
    void tableWithBlankInItsName();
    void missingEmailMappingIsRefusedGoingOnly();
    void missingGroupIsRefused();
    void buttonsAndBannerFollowTheStep();
    void savedChoicesAreShown();
    void otherConnectionReplacesAllChoices();
    void nameExclusion_data();
    void nameExclusion();
    void mappingAreaScrolls();
    void wholeImport();
    void savedRuleNarrowsTheImport();
    void saveFailureAsksBeforeImporting_data();
    void saveFailureAsksBeforeImporting();
    void failedImportShowsItsError();
    void cancelDuringImport();
    void closeDuringImport();
    void closeSavesChoicesWhenIdle();
    void futureFeaturesSaySo_data();
    void futureFeaturesSaySo();
};

void tst_frmDBImport::cleanup()
{
    for (QWidget* widget : QApplication::topLevelWidgets())
        QVERIFY2(!widget->isVisible(), qPrintable(widget->objectName() + " left open"));
}

void tst_frmDBImport::opensOnTheConnectionStep()
{
    Environment env;
    const QString source = env.makeContacts(QStringLiteral("contacts"), 3);
    env.addConnection(QStringLiteral("Sales"), Environment::sqliteConnection(source));
    env.addConnection(QStringLiteral("Members"),
                      QStringLiteral("Provider=SQLite;Data Source=/x.db"));

    auto form = openForm();
    QCOMPARE(form->windowTitle(), QStringLiteral("Veltrano - Database Import v") + AppVersion());
    QCOMPARE(currentStep(form.get()), 0);
    QCOMPARE(text(form.get(), "lblBannerTitle"), QStringLiteral("Database Import"));
    QCOMPARE(text(form.get(), "lblBannerDesc"),
             QStringLiteral("Select the database connection to import the information from"));
    QCOMPARE(text(form.get(), "lblStepMofN"), QStringLiteral("Step 1 of 5"));
    QVERIFY(!control<QAbstractButton>(form.get(), "cmdPrev")->isEnabled());
    QVERIFY(control<QAbstractButton>(form.get(), "cmdNext")->isEnabled());
    QCOMPARE(control<QAbstractButton>(form.get(), "cmdNext")->text(), kNext);
    QCOMPARE(control<QAbstractButton>(form.get(), "cmdClose")->text(), QStringLiteral("&Close"));

    auto* list = control<QTreeWidget>(form.get(), "lvwDSN");
    QCOMPARE(list->headerItem()->text(0), QStringLiteral("Name"));
    QCOMPARE(list->headerItem()->text(1), QStringLiteral("Description"));
    QCOMPARE(list->topLevelItemCount(), 2);
    QCOMPARE(list->topLevelItem(0)->text(0), QStringLiteral("Sales"));
    QCOMPARE(list->topLevelItem(0)->text(1), Environment::sqliteConnection(source));
    QCOMPARE(list->topLevelItem(1)->text(0), QStringLiteral("Members"));
    QCOMPARE(list->currentItem(), list->topLevelItem(0));
    QVERIFY(list->hasFocus());

    QCOMPARE(control<QCheckBox>(form.get(), "chkReplace")->text(),
             QStringLiteral("&Update existing recipients details with the new data in the "
                            "database (Note: this will slow down the import process by a "
                            "factor of 10)."));
    QCOMPARE(control<QAbstractButton>(form.get(), "cmdCreateNewGroup")->toolTip(),
             QStringLiteral("Create a new destination group"));
    QCOMPARE(control<QLabel>(form.get(), "lblIllegal")->toolTip(),
             QStringLiteral("Illegal Email Addresses"));
    QVERIFY(env.boxes.shown().isEmpty());
    form->close();
}

void tst_frmDBImport::mappingRowsComeFromTheHostFieldTable()
{
    Environment env;
    auto form = openForm();
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
        // One row per field, in the table's order: caption left, combo right.
        int r = -1, c = -1, rowSpan = 0, columnSpan = 0;
        grid->getItemPosition(grid->indexOf(label), &r, &c, &rowSpan, &columnSpan);
        QCOMPARE(QPoint(c, r), QPoint(0, row));
        grid->getItemPosition(grid->indexOf(combo), &r, &c, &rowSpan, &columnSpan);
        QCOMPARE(QPoint(c, r), QPoint(1, row));
        ++row;
    }
    QCOMPARE(grid->rowCount(), row);
    QCOMPARE(mappingCombo(form.get(), "FullNameMacro")->toolTip(),
             QString::fromUtf8(kFullNameMacroToolTip));
    form->close();
}

void tst_frmDBImport::nextWithoutConnectionsIsRefused()
{
    Environment env;
    auto form = openForm();
    click(form.get(), "cmdNext");
    QCOMPARE(currentStep(form.get()), 0);
    QCOMPARE(env.boxes.shown().size(), 1);
    QCOMPARE(env.boxes.shown().first().icon, MessageBoxes::Icon::Information);
    QCOMPARE(env.boxes.shown().first().text,
             QStringLiteral("A valid database connection must be selected/configured before "
                            "proceeding."));
    form->close();
}

void tst_frmDBImport::unreadableConnectionIsRefused()
{
    Environment env;
    env.addConnection(QStringLiteral("Gone"), Environment::sqliteConnection(env.folder.filePath(
                                                  QStringLiteral("missing.db"))));
    auto form = openForm();
    click(form.get(), "cmdNext");
    QCOMPARE(currentStep(form.get()), 0);
    // One failure box, from the table listing, naming the missing file.
    QCOMPARE(env.boxes.shown().size(), 1);
    QCOMPARE(env.boxes.shown().first().icon, MessageBoxes::Icon::Critical);
    QVERIFY2(env.boxes.shown().first().text.startsWith(QStringLiteral("modADO:GetTables Error ")),
             qPrintable(env.boxes.shown().first().text));
    QVERIFY(env.boxes.shown().first().text.contains(QStringLiteral("missing.db")));
    QCOMPARE(form->importChoices().DSNName, QStringLiteral("Gone"));
    form->close();
}

void tst_frmDBImport::recordsStepRefusals_data()
{
    QTest::addColumn<bool>("advanced");
    QTest::addColumn<QString>("sql");
    QTest::addColumn<bool>("noTable");
    QTest::addColumn<int>("icon");
    QTest::addColumn<QString>("message"); // empty: the data source's own text

    const int info = static_cast<int>(MessageBoxes::Icon::Information);
    const int critical = static_cast<int>(MessageBoxes::Icon::Critical);
    QTest::newRow("advanced without SQL")
        << true << QString() << false << info
        << QStringLiteral("A valid SQL Statement must be entered.");
    QTest::newRow("advanced not a SELECT")
        << true << QStringLiteral("delete from Contacts") << false << critical
        << QStringLiteral("The SQL must be a valid SELECT statement.");
    QTest::newRow("advanced on a missing table")
        << true << QStringLiteral("select * from Nowhere") << false << critical << QString();
    QTest::newRow("no table chosen")
        << false << QString() << true << info
        << QStringLiteral("A Table name must be selected from the list.");
}

void tst_frmDBImport::recordsStepRefusals()
{
    QFETCH(bool, advanced);
    QFETCH(QString, sql);
    QFETCH(bool, noTable);
    QFETCH(int, icon);
    QFETCH(QString, message);

    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    ImportChoices saved;
    saved.DSNName = QStringLiteral("Sales");
    saved.AdvancedSQLString = sql;
    env.saveChoices(saved);

    auto form = openForm();
    QVERIFY(nextTo(form.get(), 1));
    if (advanced)
        click(form.get(), "optFilterMethod_1");
    if (noTable)
        control<QComboBox>(form.get(), "icmbTables")->setCurrentIndex(-1);
    env.boxes.clear();
    click(form.get(), "cmdNext");

    QCOMPARE(currentStep(form.get()), 1);
    QCOMPARE(env.boxes.shown().size(), 1);
    QCOMPARE(static_cast<int>(env.boxes.shown().first().icon), icon);
    if (!message.isEmpty())
        QCOMPARE(env.boxes.shown().first().text, message);
    QCOMPARE(form->importChoices().FilterMethod, advanced ? 1L : 0L);
    form->close();
}

void tst_frmDBImport::filterMethodEnablesItsControls()
{
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    auto form = openForm();
    QVERIFY(nextTo(form.get(), 1));
    const char* tableControls[] = {"lblTableCaption", "icmbTables", "lblCaption_1",
                                   "cmdQueryBuilder", "lblQueryBuilderRules"};
    for (int pass = 0; pass < 2; ++pass) {
        const bool advanced = pass == 0;
        click(form.get(), advanced ? "optFilterMethod_1" : "optFilterMethod_0");
        for (const char* name : tableControls)
            QVERIFY2(control<QWidget>(form.get(), name)->isEnabled() == !advanced, name);
        QCOMPARE(control<QWidget>(form.get(), "cmdAdvancedQuery")->isEnabled(), advanced);
    }
    form->close();
}

void tst_frmDBImport::tableWithBlankInItsName()
{
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    auto form = openForm();
    QVERIFY(nextTo(form.get(), 1));
    auto* tables = control<QComboBox>(form.get(), "icmbTables");
    QCOMPARE(tables->count(), 2);
    tables->setCurrentIndex(tables->findText(QStringLiteral("Other Table")));
    click(form.get(), "cmdNext");
    QCOMPARE(currentStep(form.get()), 2);
    QCOMPARE(form->importChoices().SelectedTable, QStringLiteral("Other Table"));
    QComboBox* email = mappingCombo(form.get(), "EMailAddress");
    QStringList items;
    for (int i = 0; i < email->count(); ++i)
        items << email->itemText(i);
    QCOMPARE(items, (QStringList{"(blank)", "Mail Address", "Name"}));
    form->close();
}

void tst_frmDBImport::missingEmailMappingIsRefusedGoingOnly()
{
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    auto form = openForm();
    QVERIFY(nextTo(form.get(), 2));
    QCOMPARE(mappingCombo(form.get(), "EMailAddress")->currentText(), QStringLiteral("(blank)"));
    pickWithKeys(mappingCombo(form.get(), "City"), 7); // "City"
    env.boxes.clear();

    click(form.get(), "cmdNext");
    QCOMPARE(currentStep(form.get()), 2);
    QCOMPARE(env.boxes.texts(),
             QStringList{"You must match up the Email Address field in the import database "
                         "to the Email Address field in the Veltrano database."});
    QCOMPARE(env.boxes.shown().first().icon, MessageBoxes::Icon::Information);

    // Going back is never refused, and what was chosen is kept for the return.
    click(form.get(), "cmdPrev");
    QCOMPARE(currentStep(form.get()), 1);
    QCOMPARE(env.boxes.shown().size(), 1);
    QCOMPARE(form->importChoices().FieldMappings.Item(QStringLiteral("City"))->DBField,
             QStringLiteral("City"));
    click(form.get(), "cmdNext");
    QCOMPARE(mappingCombo(form.get(), "City")->currentText(), QStringLiteral("City"));
    form->close();
}

void tst_frmDBImport::missingGroupIsRefused()
{
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Gone Group"));
    env.saveChoices(saved);
    QVERIFY(CreateGroup(QStringLiteral("Members"), HostDataFolder()));

    auto form = openForm();
    QVERIFY(nextTo(form.get(), 3));
    auto* groups = control<QComboBox>(form.get(), "icmbGroups");
    QCOMPARE(groups->count(), 1);
    QCOMPARE(groups->currentIndex(), -1); // the saved Group is gone: no stand-in is chosen
    env.boxes.clear();
    click(form.get(), "cmdNext");
    QCOMPARE(currentStep(form.get()), 3);
    QCOMPARE(env.boxes.texts(), QStringList{"A Group must be selected to import the data into."});
    QCOMPARE(countRows(env.groupFile(QStringLiteral("Members"))), 0);
    form->close();
}

void tst_frmDBImport::buttonsAndBannerFollowTheStep()
{
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QString());
    env.saveChoices(saved);

    const QStringList descriptions = {
        "Select the database connection to import the information from",
        "Specify the records to import into Veltrano",
        "Match the database fields to Veltrano fields",
        "Select the Group to import data into",
    };
    auto form = openForm();
    auto* prev = control<QAbstractButton>(form.get(), "cmdPrev");
    auto* next = control<QAbstractButton>(form.get(), "cmdNext");
    for (int step = 0; step < 4; ++step) {
        if (step > 0)
            QVERIFY(nextTo(form.get(), step));
        QCOMPARE(prev->isEnabled(), step != 0);
        QVERIFY(next->isEnabled());
        QCOMPARE(next->text(), step == 3 ? kStart : kNext);
        QCOMPARE(text(form.get(), "lblBannerDesc"), descriptions.at(step));
        QCOMPARE(text(form.get(), "lblStepMofN"), QStringLiteral("Step %1 of 5").arg(step + 1));
        QCOMPARE(text(form.get(), "lblBannerTitle"), QStringLiteral("Database Import"));
    }
    for (int step = 2; step >= 0; --step) {
        click(form.get(), "cmdPrev");
        QCOMPARE(currentStep(form.get()), step);
        QCOMPARE(next->text(), kNext);
        QCOMPARE(text(form.get(), "lblBannerDesc"), descriptions.at(step));
    }
    QVERIFY(!prev->isEnabled());
    QVERIFY(env.boxes.shown().isEmpty());
    form->close();
}

void tst_frmDBImport::savedChoicesAreShown()
{
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    QVERIFY(CreateGroup(QStringLiteral("Alpha"), HostDataFolder()));
    QVERIFY(CreateGroup(QStringLiteral("Members"), HostDataFolder()));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("members"));
    saved.ReplaceExisting = true;
    saved.Rules.Add(QStringLiteral("City"), QStringLiteral("Equals"), QStringLiteral("="),
                    QStringLiteral("'City 1'"), QStringLiteral("And"));
    env.saveChoices(saved);

    auto form = openForm();
    QVERIFY(nextTo(form.get(), 1));
    QCOMPARE(control<QComboBox>(form.get(), "icmbTables")->currentText(),
             QStringLiteral("Contacts"));
    QCOMPARE(text(form.get(), "lblQueryBuilderRules"), QStringLiteral("1 filters defined"));
    QVERIFY(control<QRadioButton>(form.get(), "optFilterMethod_0")->isChecked());

    QVERIFY(nextTo(form.get(), 2));
    QCOMPARE(mappingCombo(form.get(), "EMailAddress")->currentText(), QStringLiteral("Email"));
    QCOMPARE(mappingCombo(form.get(), "FullNameMacro")->currentText(), QStringLiteral("Full Name"));
    QCOMPARE(mappingCombo(form.get(), "Telephone")->currentText(), QStringLiteral("Phone"));
    QCOMPARE(mappingCombo(form.get(), "FirstName")->currentText(), QStringLiteral("(blank)"));

    QVERIFY(nextTo(form.get(), 3));
    QCOMPARE(control<QComboBox>(form.get(), "icmbGroups")->currentText(),
             QStringLiteral("Members"));
    QVERIFY(control<QCheckBox>(form.get(), "chkReplace")->isChecked());
    QVERIFY(env.boxes.shown().isEmpty());
    form->close();
}

void tst_frmDBImport::otherConnectionReplacesAllChoices()
{
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("a"), 3)));
    env.addConnection(QStringLiteral("Members"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("b"), 3)));
    QVERIFY(CreateGroup(QStringLiteral("Alpha"), HostDataFolder()));
    QVERIFY(CreateGroup(QStringLiteral("Beta"), HostDataFolder()));
    ImportChoices first = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Alpha"));
    first.ReplaceExisting = true;
    first.Rules.Add(QStringLiteral("City"), QStringLiteral("Equals"), QStringLiteral("="),
                    QStringLiteral("'City 1'"), QStringLiteral("And"));
    env.saveChoices(first);
    ImportChoices second;
    second.DSNName = QStringLiteral("Members");
    second.SelectedTable = QStringLiteral("Other Table");
    second.FieldMappings.Add(QStringLiteral("EMailAddress"), QStringLiteral("Mail Address"));
    second.VTGroup = QStringLiteral("Beta");
    env.saveChoices(second);

    auto form = openForm();
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
    QCOMPARE(control<QComboBox>(form.get(), "icmbTables")->currentText(),
             QStringLiteral("Other Table"));
    QVERIFY(nextTo(form.get(), 3));
    QCOMPARE(mappingCombo(form.get(), "FullNameMacro")->currentIndex(), 0);
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
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    auto form = openForm();
    QVERIFY(nextTo(form.get(), 2));
    // Contacts columns: ID, Email, Full Name, First Name, Last Name, Company, City, Phone.
    QComboBox* fullName = mappingCombo(form.get(), "FullNameMacro");
    QComboBox* partCombo = mappingCombo(form.get(), part.toLatin1().constData());
    QList<QComboBox*> parts;
    for (const char* key : {"Title", "FirstName", "Initial", "LastName"})
        parts << mappingCombo(form.get(), key);

    // A name part picked by the user clears the full name.
    pickWithKeys(fullName, 3);
    QCOMPARE(fullName->currentText(), QStringLiteral("Full Name"));
    pickWithKeys(partCombo, 4);
    QCOMPARE(partCombo->currentText(), QStringLiteral("First Name"));
    QCOMPARE(fullName->currentIndex(), 0);

    // Picking "(blank)" for a part leaves a chosen full name alone.
    pickWithKeys(fullName, 3);
    pickWithKeys(partCombo, 0);
    QCOMPARE(fullName->currentText(), QStringLiteral("Full Name"));

    // A part set by the program, not picked by the user, does not react.
    partCombo->setCurrentIndex(5);
    QCOMPARE(fullName->currentText(), QStringLiteral("Full Name"));

    // The full name clears every name part that is set, whichever way it changes.
    for (QComboBox* combo : parts)
        combo->setCurrentIndex(5);
    fullName->setCurrentIndex(0);
    fullName->setCurrentIndex(3);
    for (QComboBox* combo : parts)
        QCOMPARE(combo->currentIndex(), 0);

    // What the user leaves on the step is what is stored.
    pickWithKeys(partCombo, 4);
    pickWithKeys(mappingCombo(form.get(), "EMailAddress"), 2);
    QVERIFY(nextTo(form.get(), 3));
    QCOMPARE(form->importChoices().FieldMappings.Item(QStringLiteral("FullNameMacro"))->DBField,
             QString());
    QCOMPARE(form->importChoices().FieldMappings.Item(part)->DBField, QStringLiteral("First Name"));
    form->close();
}

void tst_frmDBImport::mappingAreaScrolls()
{
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    auto form = openForm();
    form->resize(720, 460);
    QVERIFY(nextTo(form.get(), 2));
    auto* bar = control<QScrollBar>(form.get(), "vscMapFields");
    auto* area = control<QWidget>(form.get(), "picScrollableArea");
    auto* container = control<QWidget>(form.get(), "picScrollableContainer");
    QTRY_VERIFY(bar->maximum() > 0);
    QCOMPARE(area->height() - container->height(), bar->maximum());

    QComboBox* last = mappingCombo(form.get(), "Field4");
    const auto visibleInContainer = [&](QWidget* w) {
        const QRect r(w->mapTo(container, QPoint(0, 0)), w->size());
        return container->rect().contains(r);
    };
    QVERIFY(!visibleInContainer(last));
    bar->setValue(bar->maximum());
    QCOMPARE(area->y(), -bar->maximum());
    QVERIFY(visibleInContainer(last));

    // Moving the focus to a row out of sight brings it into view.
    QComboBox* first = mappingCombo(form.get(), "EMailAddress");
    QVERIFY(!visibleInContainer(first));
    first->setFocus();
    QTRY_VERIFY(visibleInContainer(first));
    QCOMPARE(area->y(), -bar->value());
    form->close();
}

void tst_frmDBImport::wholeImport()
{
    const int valid = 300;
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), valid)));
    QVERIFY(CreateGroup(QStringLiteral("Members"), HostDataFolder()));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Members"));
    env.saveChoices(saved);

    auto form = openForm();
    QVERIFY(nextTo(form.get(), 3));
    QCOMPARE(control<QAbstractButton>(form.get(), "cmdNext")->text(), kStart);
    click(form.get(), "cmdNext");

    QCOMPARE(currentStep(form.get()), 4);
    QCOMPARE(text(form.get(), "lblBannerDesc"), QStringLiteral("Import the data"));
    QCOMPARE(text(form.get(), "lblStepMofN"), QStringLiteral("Step 5 of 5"));
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
    QCOMPARE(control<QAbstractButton>(form.get(), "cmdClose")->text(), QStringLiteral("&Close"));
    QVERIFY(control<QAbstractButton>(form.get(), "cmdPrev")->isEnabled());
    QVERIFY(!control<QAbstractButton>(form.get(), "cmdNext")->isEnabled());
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
    QVERIFY(log.contains(QStringLiteral("#   DSN : Sales\r\n")));
    QVERIFY(log.contains(QStringLiteral("#   Destination Group : Members\r\n")));
    QVERIFY(log.contains(QStringLiteral("#   Total Processed  : %1\r\n").arg(total)));
    QVERIFY(log.contains(QStringLiteral("#   Recipients Added : %1\r\n").arg(valid)));
    QCOMPARE(log.count(QStringLiteral("**  IGNORED: Invalid email (")), kIllegalRows);
    QVERIFY(
        log.contains(QStringLiteral("**  IGNORED: Duplicate email, Email=PERSON1@EXAMPLE1.COM")));
    QVERIFY(log.contains(QStringLiteral("#   Database Import Ended : ")));

    // Start saved the choices of the run for the connection.
    QCOMPARE(
        ReadIniString(IniFilePath(), QStringLiteral("DSN1"), QStringLiteral("VTGroup"), QString()),
        QStringLiteral("Members"));

    // Back from the finished import: the Group step, still ready to start again.
    click(form.get(), "cmdPrev");
    QCOMPARE(currentStep(form.get()), 3);
    QCOMPARE(control<QAbstractButton>(form.get(), "cmdNext")->text(), kStart);
    form->close();
}

void tst_frmDBImport::savedRuleNarrowsTheImport()
{
    const int valid = 100;
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), valid)));
    QVERIFY(CreateGroup(QStringLiteral("Members"), HostDataFolder()));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Members"));
    saved.Rules.Add(QStringLiteral("City"), QStringLiteral("Equals"), QStringLiteral("="),
                    QStringLiteral("'City 1'"), QStringLiteral("And"));
    env.saveChoices(saved);

    auto form = openForm();
    QVERIFY(nextTo(form.get(), 4));
    int expected = 0;
    for (int i = 0; i < valid; ++i)
        expected += i % 5 == 1 ? 1 : 0;
    QCOMPARE(text(form.get(), "lblAdded"), QString::number(expected));
    QCOMPARE(countRows(env.groupFile(QStringLiteral("Members"))), expected);
    QCOMPARE(SqliteColumn(env.groupFile(QStringLiteral("Members")),
                          QStringLiteral("SELECT DISTINCT City FROM Recipients")),
             QStringList{"City 1"});
    form->close();
}

void tst_frmDBImport::saveFailureAsksBeforeImporting_data()
{
    QTest::addColumn<bool>("answer");
    QTest::newRow("No keeps the wizard") << false;
    QTest::newRow("Yes imports all the same") << true;
}

void tst_frmDBImport::saveFailureAsksBeforeImporting()
{
    QFETCH(bool, answer);
    const int valid = 20;
    Environment env;
    const QString conString =
        Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), valid));
    env.addConnection(QStringLiteral("Sales"), conString);
    QVERIFY(CreateGroup(QStringLiteral("Members"), HostDataFolder()));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Members"));
    env.saveChoices(saved);

    auto form = openForm();
    QVERIFY(nextTo(form.get(), 3));
    // The connection disappears from the settings file while the wizard runs.
    QString message;
    QVERIFY(MaintainDSN(QStringLiteral("Sales"), conString, ConnectionAction::Delete, message));
    env.boxes.clear();
    env.boxes.queueAnswer(answer);
    click(form.get(), "cmdNext");

    QVERIFY(!env.boxes.shown().isEmpty());
    const ScriptedMessageBoxes::Shown& question = env.boxes.shown().first();
    QCOMPARE(question.icon, MessageBoxes::Icon::Question);
    QVERIFY(!question.defaultYes);
    QCOMPARE(question.text,
             QStringLiteral("The following error occurred when attempting to save your current "
                            "settings to file :  0 - DSN not found, cannot save associated "
                            "data.. Do you wish to continue and Import the data ?"));
    QCOMPARE(currentStep(form.get()), 4);
    QCOMPARE(countRows(env.groupFile(QStringLiteral("Members"))), answer ? valid : 0);
    QCOMPARE(QFile::exists(env.logFile()), answer);
    QCOMPARE(control<QAbstractButton>(form.get(), "cmdClose")->text(), QStringLiteral("&Close"));
    QVERIFY(control<QAbstractButton>(form.get(), "cmdPrev")->isEnabled());
    form->close();
}

void tst_frmDBImport::failedImportShowsItsError()
{
    Environment env;
    const QString source = env.makeContacts(QStringLiteral("c"), 10);
    env.addConnection(QStringLiteral("Sales"), Environment::sqliteConnection(source));
    QVERIFY(CreateGroup(QStringLiteral("Members"), HostDataFolder()));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Members"));
    env.saveChoices(saved);

    auto form = openForm();
    QVERIFY(nextTo(form.get(), 3));
    QVERIFY(QFile::remove(source));
    env.boxes.clear();
    click(form.get(), "cmdNext");

    QCOMPARE(currentStep(form.get()), 4);
    QVERIFY(!env.boxes.shown().isEmpty());
    QCOMPARE(env.boxes.shown().last().icon, MessageBoxes::Icon::Critical);
    QVERIFY(!env.boxes.shown().last().text.isEmpty());
    QVERIFY(!env.boxes.texts().contains(kReviewQuestion));
    QCOMPARE(countRows(env.groupFile(QStringLiteral("Members"))), 0);
    QCOMPARE(control<QAbstractButton>(form.get(), "cmdClose")->text(), QStringLiteral("&Close"));
    form->close();
}

void tst_frmDBImport::cancelDuringImport()
{
    const int valid = 60000; // long enough to be pressed Cancel on while it runs
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), valid)));
    QVERIFY(CreateGroup(QStringLiteral("Members"), HostDataFolder()));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Members"));
    env.saveChoices(saved);

    auto form = openForm();
    QVERIFY(nextTo(form.get(), 3));
    env.boxes.clear();
    env.boxes.queueAnswer(false); // first Cancel: "are you sure ?" No
    env.boxes.queueAnswer(true);  // second Cancel: Yes

    QString captionWhileRunning;
    int firstCancelAt = 0;
    QTimer* second = nullptr;
    QTimer* first = whenProcessed(form.get(), 100, [&] {
        captionWhileRunning = control<QAbstractButton>(form.get(), "cmdClose")->text();
        firstCancelAt = text(form.get(), "lblTotalProcessed").toInt();
        click(form.get(), "cmdClose");
        // Pressed again once the first press has been answered No.
        second = whenTrue([&] { return !env.boxes.shown().isEmpty(); },
                          [&] { click(form.get(), "cmdClose"); });
    });
    click(form.get(), "cmdNext");
    delete first;
    delete second;

    QCOMPARE(captionWhileRunning, QStringLiteral("&Cancel"));
    QCOMPARE(env.boxes.texts(), (QStringList{kCancelQuestion, kCancelQuestion, kReviewQuestion}));
    const int processed = text(form.get(), "lblTotalProcessed").toInt();
    const int added = text(form.get(), "lblAdded").toInt();
    QVERIFY2(processed > firstCancelAt, qPrintable(QString::number(processed)));
    QVERIFY2(processed < valid, qPrintable(QString::number(processed)));
    QCOMPARE(countRows(env.groupFile(QStringLiteral("Members"))), added);
    QCOMPARE(text(form.get(), "lblCommand"), QStringLiteral("Import Complete ..."));
    QVERIFY(readLog(env.logFile())
                .contains(QStringLiteral("#   Total Processed  : %1\r\n").arg(processed)));
    QCOMPARE(control<QAbstractButton>(form.get(), "cmdClose")->text(), QStringLiteral("&Close"));
    QVERIFY(form->isVisible());
    form->close();
}

void tst_frmDBImport::closeDuringImport()
{
    const int valid = 60000; // long enough to be pressed Cancel on while it runs
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), valid)));
    QVERIFY(CreateGroup(QStringLiteral("Members"), HostDataFolder()));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QStringLiteral("Members"));
    env.saveChoices(saved);

    auto form = openForm();
    QVERIFY(nextTo(form.get(), 3));
    env.boxes.clear();
    env.boxes.queueAnswer(false); // "are you sure you wish to close" No: keeps running
    env.boxes.queueAnswer(true);  // then Yes

    bool visibleAfterNo = false;
    QTimer* second = nullptr;
    QTimer* first = whenProcessed(form.get(), 100, [&] {
        form->close();
        visibleAfterNo = form->isVisible();
        second = whenProcessed(form.get(), 0, [&] { form->close(); });
    });
    click(form.get(), "cmdNext");
    delete first;
    delete second;

    QVERIFY(visibleAfterNo);
    QVERIFY(!form->isVisible());
    // Closing answered the job's own questions: neither the cancel check nor the log offer.
    QCOMPARE(env.boxes.texts(), (QStringList{kCloseQuestion, kCloseQuestion}));
    const int processed = text(form.get(), "lblTotalProcessed").toInt();
    QVERIFY2(processed >= 100 && processed < valid, qPrintable(QString::number(processed)));
    QCOMPARE(countRows(env.groupFile(QStringLiteral("Members"))),
             text(form.get(), "lblAdded").toInt());
    QVERIFY(!form->importInProgress());
}

void tst_frmDBImport::closeSavesChoicesWhenIdle()
{
    Environment env;
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    QVERIFY(CreateGroup(QStringLiteral("Members"), HostDataFolder()));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QString());
    env.saveChoices(saved);

    auto form = openForm();
    QVERIFY(nextTo(form.get(), 3));
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
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    auto form = openForm();
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
