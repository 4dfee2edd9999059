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
    u"Please enter valid characters only.\r\n\r\nThese include: Spaces, letters a "
    "to z and A to Z, Numbers 0 to 9 and Hyphens"_s;

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

} // namespace

class tst_frmAddModGroup : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();

    void layoutAndStartingState();
    void typedNames_data();
    void typedNames();
    void fromTheWizard_data();
    void fromTheWizard();
};

void tst_frmAddModGroup::cleanup()
{
    verifyNothingOpen();
    QVERIFY(!IsFormLoaded(u"frmAddModGroup"_s));
}

void tst_frmAddModGroup::layoutAndStartingState()
{
    Environment env;
    {
        frmAddModGroup dialog;
        QVERIFY(IsFormLoaded(u"frmAddModGroup"_s));
        QVERIFY(dialog.cancelled());
        QVERIFY(dialog.newGroupName().isEmpty());
        QCOMPARE(dialog.windowTitle(), u"Add New Group"_s);
        const char* captions[][2] = {
            {"lblGroupName", "&Group Name:"}, {"cmdOK", "&OK"}, {"cmdCancel", "&Cancel"}};
        for (const auto& c : captions)
            QCOMPARE(control<QWidget>(&dialog, c[0])->property("text").toString(),
                     QString::fromLatin1(c[1]));
        auto* edit = control<QLineEdit>(&dialog, "txtGroupName");
        QCOMPARE(control<QLabel>(&dialog, "lblGroupName")->buddy(), edit);
        QCOMPARE(edit->parentWidget(), control<QFrame>(&dialog, "fmeContainer"));
    }
    QVERIFY(!IsFormLoaded(u"frmAddModGroup"_s));
}

void tst_frmAddModGroup::typedNames_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("pasted");
    QTest::addColumn<QString>("kept");
    QTest::addColumn<int>("refusedKeys");
    QTest::addColumn<int>("icon");        // of the refusal of OK, -1: accepted
    QTest::addColumn<QString>("message"); // the start of the refusal's message

    const int exclamation = static_cast<int>(MessageBoxes::Icon::Exclamation);
    const QString reserved = u"Sorry but this Group name cannot be used."_s;
    const QString empty = u"Please enter a Group name."_s;
    QTest::newRow("letters, digits, blank, hyphen, backspace")
        << "Ab 19-zZx\b" << false << "Ab 19-zZ" << 0 << -1 << QString();
    QTest::newRow("hash") << "a#b" << false << "ab" << 1 << -1 << QString();
    QTest::newRow("underscore and full stop") << "x_y.z" << false << "xyz" << 2 << -1 << QString();
    QTest::newRow("accented letter") << u"caf\u00e9"_s << false << "caf" << 1 << -1 << QString();
    QTest::newRow("slash and backslash") << "a/b\\c" << false << "abc" << 2 << -1 << QString();
    QTest::newRow("pasted text is not filtered")
        << "Club#7" << true << "Club#7" << 0 << -1 << QString();
    QTest::newRow("empty") << QString() << false << QString() << 0 << exclamation << empty;
    QTest::newRow("blanks only") << "   " << false << "   " << 0 << exclamation << empty;
    QTest::newRow("All Groups") << "All Groups" << false << "All Groups" << 0 << exclamation
                                << reserved;
    QTest::newRow("Search Results")
        << "Search Results" << false << "Search Results" << 0 << exclamation << reserved;
    QTest::newRow("Exclusion List, blanks around")
        << "  Exclusion List " << false << "  Exclusion List " << 0 << exclamation << reserved;
    QTest::newRow("existing Group")
        << "Members" << false << "Members" << 0 << static_cast<int>(MessageBoxes::Icon::Information)
        << "A Group by the name: Members\r\nalready exists.";
}

void tst_frmAddModGroup::typedNames()
{
    QFETCH(QString, typed);
    QFETCH(bool, pasted);
    QFETCH(QString, kept);
    QFETCH(int, refusedKeys);
    QFETCH(int, icon);
    QFETCH(QString, message);
    Environment env;
    env.createGroups({u"Members"_s});
    const QByteArray membersBefore = env.folder.readFile(u"data/Members.gdb"_s);
    frmAddModGroup dialog;
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    auto* edit = control<QLineEdit>(&dialog, "txtGroupName");
    if (pasted) {
        QGuiApplication::clipboard()->setText(typed);
        if (QGuiApplication::clipboard()->text() != typed) {
            dialog.close();
            QSKIP("this platform has no clipboard");
        }
        edit->setFocus();
        QTest::keySequence(edit, QKeySequence::Paste);
    } else {
        typeText(edit, typed);
    }
    QCOMPARE(edit->text(), kept);
    QCOMPARE(env.boxes.beeps(), refusedKeys);
    QCOMPARE(env.boxes.shown().size(), refusedKeys);
    for (const ScriptedMessageBoxes::Shown& box : env.boxes.shown()) {
        QCOMPARE(box.icon, MessageBoxes::Icon::Information);
        QCOMPARE(box.text, kCharacterRule);
    }
    env.boxes.clear();
    click(&dialog, "cmdOK");

    const QString name = kept.trimmed();
    if (icon < 0) { // OK takes the box as it is
        QVERIFY(env.boxes.shown().isEmpty());
        QVERIFY(!dialog.isVisible());
        QVERIFY(!dialog.cancelled());
        QCOMPARE(dialog.newGroupName(), name);
        QVERIFY(QFile::exists(env.groupFile(name)));
        return;
    }
    QVERIFY(dialog.isVisible());
    QVERIFY(dialog.cancelled());
    QCOMPARE(edit->text(), name);
    QCOMPARE(env.boxes.shown().size(), 1);
    QCOMPARE(static_cast<int>(env.boxes.shown().first().icon), icon);
    QVERIFY2(env.boxes.shown().first().text.startsWith(message),
             qPrintable(env.boxes.shown().first().text));
    QCOMPARE(LoadVTGroups(), QStringList{"Members"});
    QCOMPARE(env.folder.readFile(u"data/Members.gdb"_s), membersBefore);
    dialog.close();
}

void tst_frmAddModGroup::fromTheWizard_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QByteArray>("press");
    QTest::addColumn<bool>("created");
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<QString>("current");
    QTest::newRow("new Group, blanks around")
        << "  New Leads " << QByteArray("cmdOK") << true
        << QStringList{"Alpha", "Beta", "New Leads"} << "New Leads";
    // Created, but a reserved name in other case never shows in the list.
    QTest::newRow("reserved name in lower case")
        << "all groups" << QByteArray("cmdOK") << true << QStringList{"Alpha", "Beta"} << QString();
    QTest::newRow("cancelled") << "Zeta" << QByteArray("cmdCancel") << false
                               << QStringList{"Alpha", "Beta"} << "Beta";
}

void tst_frmAddModGroup::fromTheWizard()
{
    QFETCH(QString, typed);
    QFETCH(QByteArray, press);
    QFETCH(bool, created);
    QFETCH(QStringList, listed);
    QFETCH(QString, current);
    Environment env;
    auto form = wizardOnGroupStep(env, 3, {u"Alpha"_s, u"Beta"_s}, u"Beta"_s);
    auto* groups = control<QComboBox>(form.get(), "icmbGroups");
    QCOMPARE(groups->currentText(), u"Beta"_s);

    bool acted = false;
    whenModal(u"frmAddModGroup"_s, [&](QWidget* dialog) {
        QTest::keyClicks(control<QLineEdit>(dialog, "txtGroupName"), typed);
        click(dialog, press.constData());
        acted = true;
    });
    click(form.get(), "cmdCreateNewGroup");
    QVERIFY(acted);
    QTRY_VERIFY(!QApplication::activeModalWidget());
    QCOMPARE(QFile::exists(env.groupFile(typed.trimmed())), created);
    QStringList items = comboItems(groups);
    items.sort();
    QCOMPARE(items, listed);
    QCOMPARE(groups->currentText(), current);
    QVERIFY(env.boxes.shown().isEmpty());
    if (current == QLatin1String("New Leads")) { // the new Group is the import's destination
        click(form.get(), "cmdNext");
        QCOMPARE(currentStep(form.get()), 4);
        QCOMPARE(form->importChoices().VTGroup, current);
        QCOMPARE(countRows(env.groupFile(current)), 3);
    }
    form->close();
}

QTEST_MAIN(tst_frmAddModGroup)
#include "tst_frmaddmodgroup.moc"
