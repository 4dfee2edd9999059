#include "wizardfixture.h"

#include "import/groups.h"
#include "util/modApplication.h"
#include "wizard/frmAddModGroup.h"

#include <QClipboard>
#include <QFile>
#include <QFrame>
#include <QKeyEvent>
#include <QLineEdit>

using namespace wizardtest;

namespace {

const QString kCharacterRule =
    QStringLiteral("Please enter valid characters only.\r\n\r\nThese include: Spaces, letters a "
                   "to z and A to Z, Numbers 0 to 9 and Hyphens");

// Types text key by key; characters without a key of their own on a US keyboard arrive as
// a key event carrying just the character, as an input method delivers them.
void typeText(QWidget* widget, const QString& text)
{
    for (QChar c : text) {
        if (c.unicode() < 0x80) {
            QTest::keyClick(widget, c.toLatin1());
        } else {
            QKeyEvent press(QEvent::KeyPress, Qt::Key_unknown, Qt::NoModifier, QString(c));
            QKeyEvent release(QEvent::KeyRelease, Qt::Key_unknown, Qt::NoModifier, QString(c));
            QApplication::sendEvent(widget, &press);
            QApplication::sendEvent(widget, &release);
        }
    }
}

QStringList comboItems(const QComboBox* combo)
{
    QStringList items;
    for (int i = 0; i < combo->count(); ++i)
        items << combo->itemText(i);
    return items;
}

// The wizard on its Group step, with the Groups named already created.
std::unique_ptr<frmDBImport> wizardOnGroupStep(Environment& env, const QStringList& groups)
{
    env.addConnection(QStringLiteral("Sales"),
                      Environment::sqliteConnection(env.makeContacts(QStringLiteral("c"), 3)));
    ImportChoices saved = contactsChoices(QStringLiteral("Sales"), QString());
    env.saveChoices(saved);
    for (const QString& group : groups) {
        if (!CreateGroup(group, HostDataFolder()))
            QTest::qFail("cannot create a Group", __FILE__, __LINE__);
    }
    auto form = std::make_unique<frmDBImport>();
    form->show();
    if (!QTest::qWaitForWindowActive(form.get()))
        QTest::qFail("the wizard was not shown", __FILE__, __LINE__);
    for (int i = 0; i < 3; ++i)
        click(form.get(), "cmdNext");
    if (currentStep(form.get()) != 3)
        QTest::qFail("the wizard did not reach the Group step", __FILE__, __LINE__);
    return form;
}

// Opens the dialog from the Group step, types name into it and presses button there.
void createFromWizard(frmDBImport* form, const QString& name, const char* button)
{
    bool acted = false;
    whenModal(QStringLiteral("frmAddModGroup"), [&](QWidget* dialog) {
        auto* edit = control<QLineEdit>(dialog, "txtGroupName");
        QTest::keyClicks(edit, name);
        click(dialog, button);
        acted = true;
    });
    click(form, "cmdCreateNewGroup");
    QVERIFY(acted);
}

} // namespace

class tst_frmAddModGroup : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();

    void layoutAndStartingState();
    void typedCharacters_data();
    void typedCharacters();
    void pastedTextIsNotFiltered();
    void refusedNames_data();
    void refusedNames();
    void newGroupIsCreatedAndSelected();
    void lowerCaseReservedNameIsCreatedButNotListed();
    void cancelChangesNothing();
};

void tst_frmAddModGroup::cleanup()
{
    for (QWidget* widget : QApplication::topLevelWidgets())
        QVERIFY2(!widget->isVisible(), qPrintable(widget->objectName() + " left open"));
    QVERIFY(!IsFormLoaded(QStringLiteral("frmAddModGroup")));
}

void tst_frmAddModGroup::layoutAndStartingState()
{
    Environment env;
    {
        frmAddModGroup dialog;
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Add New Group"));
        QVERIFY(dialog.cancelled());
        QVERIFY(dialog.newGroupName().isEmpty());
        QVERIFY(IsFormLoaded(QStringLiteral("frmAddModGroup")));
        auto* label = control<QLabel>(&dialog, "lblGroupName");
        auto* edit = control<QLineEdit>(&dialog, "txtGroupName");
        QCOMPARE(label->text(), QStringLiteral("&Group Name:"));
        QCOMPARE(label->buddy(), edit);
        QCOMPARE(edit->parentWidget(), control<QFrame>(&dialog, "fmeContainer"));
        QCOMPARE(control<QAbstractButton>(&dialog, "cmdOK")->text(), QStringLiteral("&OK"));
        QCOMPARE(control<QAbstractButton>(&dialog, "cmdCancel")->text(), QStringLiteral("&Cancel"));
    }
    QVERIFY(!IsFormLoaded(QStringLiteral("frmAddModGroup")));
}

void tst_frmAddModGroup::typedCharacters_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("kept");
    QTest::addColumn<int>("refused");
    QTest::newRow("letters, digits, blank, hyphen") << "Ab 19-zZ"
                                                    << "Ab 19-zZ" << 0;
    QTest::newRow("hash") << "a#b"
                          << "ab" << 1;
    QTest::newRow("underscore and full stop") << "x_y.z"
                                              << "xyz" << 2;
    QTest::newRow("accented letter") << QStringLiteral("caf\u00e9") << "caf" << 1;
    QTest::newRow("slash and backslash") << "a/b\\c"
                                         << "abc" << 2;
}

void tst_frmAddModGroup::typedCharacters()
{
    QFETCH(QString, typed);
    QFETCH(QString, kept);
    QFETCH(int, refused);
    Environment env;
    frmAddModGroup dialog;
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    auto* edit = control<QLineEdit>(&dialog, "txtGroupName");
    typeText(edit, typed);
    QCOMPARE(edit->text(), kept);
    QCOMPARE(env.boxes.beeps(), refused);
    QCOMPARE(env.boxes.shown().size(), refused);
    for (const ScriptedMessageBoxes::Shown& box : env.boxes.shown()) {
        QCOMPARE(box.icon, MessageBoxes::Icon::Information);
        QCOMPARE(box.text, kCharacterRule);
    }
    // Backspace is one of the keys a name may be edited with.
    QTest::keyClick(edit, Qt::Key_Backspace);
    QCOMPARE(edit->text(), kept.left(kept.size() - 1));
    QCOMPARE(env.boxes.shown().size(), refused);
    dialog.close();
}

void tst_frmAddModGroup::pastedTextIsNotFiltered()
{
    Environment env;
    QGuiApplication::clipboard()->setText(QStringLiteral("Club#7"));
    if (QGuiApplication::clipboard()->text() != QStringLiteral("Club#7"))
        QSKIP("this platform has no clipboard");
    frmAddModGroup dialog;
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    auto* edit = control<QLineEdit>(&dialog, "txtGroupName");
    edit->setFocus();
    QTest::keySequence(edit, QKeySequence::Paste);
    QCOMPARE(edit->text(), QStringLiteral("Club#7"));
    QVERIFY(env.boxes.shown().isEmpty());

    click(&dialog, "cmdOK");
    QVERIFY(!dialog.isVisible());
    QVERIFY(!dialog.cancelled());
    QCOMPARE(dialog.newGroupName(), QStringLiteral("Club#7"));
    QVERIFY(QFile::exists(env.groupFile(QStringLiteral("Club#7"))));
}

void tst_frmAddModGroup::refusedNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("icon");
    QTest::addColumn<QString>("message"); // the start of the message
    const int exclamation = static_cast<int>(MessageBoxes::Icon::Exclamation);
    const QString reserved = QStringLiteral("Sorry but this Group name cannot be used.");
    QTest::newRow("empty") << QString() << exclamation << "Please enter a Group name.";
    QTest::newRow("blanks only") << "   " << exclamation << "Please enter a Group name.";
    QTest::newRow("All Groups") << "All Groups" << exclamation << reserved;
    QTest::newRow("Search Results") << "Search Results" << exclamation << reserved;
    QTest::newRow("Exclusion List, blanks around")
        << "  Exclusion List " << exclamation << reserved;
    QTest::newRow("existing Group")
        << "Members" << static_cast<int>(MessageBoxes::Icon::Information)
        << "A Group by the name: Members\r\nalready exists.";
}

void tst_frmAddModGroup::refusedNames()
{
    QFETCH(QString, name);
    QFETCH(int, icon);
    QFETCH(QString, message);
    Environment env;
    QVERIFY(CreateGroup(QStringLiteral("Members"), HostDataFolder()));
    const QByteArray membersBefore = env.folder.readFile(QStringLiteral("data/Members.gdb"));
    env.boxes.clear();

    frmAddModGroup dialog;
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    auto* edit = control<QLineEdit>(&dialog, "txtGroupName");
    QTest::keyClicks(edit, name);
    click(&dialog, "cmdOK");

    QVERIFY(dialog.isVisible());
    QVERIFY(dialog.cancelled());
    QCOMPARE(edit->text(), name.trimmed());
    QCOMPARE(env.boxes.shown().size(), 1);
    QCOMPARE(static_cast<int>(env.boxes.shown().first().icon), icon);
    QVERIFY2(env.boxes.shown().first().text.startsWith(message),
             qPrintable(env.boxes.shown().first().text));
    QCOMPARE(LoadVTGroups(), QStringList{"Members"});
    QCOMPARE(env.folder.readFile(QStringLiteral("data/Members.gdb")), membersBefore);
    dialog.close();
}

void tst_frmAddModGroup::newGroupIsCreatedAndSelected()
{
    Environment env;
    auto form = wizardOnGroupStep(env, {QStringLiteral("Alpha"), QStringLiteral("Beta")});
    auto* groups = control<QComboBox>(form.get(), "icmbGroups");
    groups->setCurrentIndex(0);

    createFromWizard(form.get(), QStringLiteral("  New Leads "), "cmdOK");
    QVERIFY(!QTest::currentTestFailed());
    QTRY_VERIFY(!QApplication::activeModalWidget());
    QVERIFY(QFile::exists(env.groupFile(QStringLiteral("New Leads"))));
    QCOMPARE(groups->count(), 3);
    QCOMPARE(groups->currentText(), QStringLiteral("New Leads"));
    QVERIFY(comboItems(groups).contains(QStringLiteral("Alpha")));
    QVERIFY(env.boxes.shown().isEmpty());

    // The new Group is the import's destination.
    click(form.get(), "cmdNext");
    QCOMPARE(currentStep(form.get()), 4);
    QCOMPARE(form->importChoices().VTGroup, QStringLiteral("New Leads"));
    QCOMPARE(SqliteColumn(env.groupFile(QStringLiteral("New Leads")),
                          QStringLiteral("SELECT count(*) FROM Recipients")),
             QStringList{"3"});
    form->close();
}

void tst_frmAddModGroup::lowerCaseReservedNameIsCreatedButNotListed()
{
    Environment env;
    auto form = wizardOnGroupStep(env, {QStringLiteral("Alpha")});
    auto* groups = control<QComboBox>(form.get(), "icmbGroups");
    groups->setCurrentIndex(0);

    createFromWizard(form.get(), QStringLiteral("all groups"), "cmdOK");
    QVERIFY(!QTest::currentTestFailed());
    QTRY_VERIFY(!QApplication::activeModalWidget());
    QVERIFY(QFile::exists(env.groupFile(QStringLiteral("all groups"))));
    QCOMPARE(comboItems(groups), QStringList{"Alpha"});
    QCOMPARE(groups->currentIndex(), -1);
    form->close();
}

void tst_frmAddModGroup::cancelChangesNothing()
{
    Environment env;
    auto form = wizardOnGroupStep(env, {QStringLiteral("Alpha"), QStringLiteral("Beta")});
    auto* groups = control<QComboBox>(form.get(), "icmbGroups");
    groups->setCurrentIndex(1);
    const QStringList before = comboItems(groups);

    createFromWizard(form.get(), QStringLiteral("Zeta"), "cmdCancel");
    QVERIFY(!QTest::currentTestFailed());
    QTRY_VERIFY(!QApplication::activeModalWidget());
    QVERIFY(!QFile::exists(env.groupFile(QStringLiteral("Zeta"))));
    QCOMPARE(comboItems(groups), before);
    QCOMPARE(groups->currentIndex(), 1);
    form->close();
}

QTEST_MAIN(tst_frmAddModGroup)
#include "tst_frmaddmodgroup.moc"
