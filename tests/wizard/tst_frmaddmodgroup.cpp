#include "wizardfixture.h"

#include "wizard/frmAddModGroup.h"

#include <QLineEdit>

using namespace wizardtest;

namespace {

// Types text key by key; a character without a key of its own on a US keyboard arrives as
// a key event carrying just the character, as an input method delivers it.
void typeText(QWidget* widget, const QString& text)
{
    for (QChar c : text) {
        if (c.unicode() < 0x80)
            QTest::keyClick(widget, c.toLatin1());
        else
            QTest::sendKeyEvent(QTest::Click, widget, Qt::Key_unknown, QString(c), {});
    }
}

} // namespace

class tst_frmAddModGroup : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }

    void refusedNamesEndOnOK()
    {
        Environment env;
        env.createGroups({u"Members"_s});
        const QByteArray membersBefore = env.folder.readFile(u"data/Members.gdb"_s);
        frmAddModGroup dialog;
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        auto* edit = control<QLineEdit>(&dialog, "txtGroupName");
        // A refused key leaves the box as it was, with a beep and the rule.
        typeText(edit, u"Ab#c_d.e/f\\g\u00e9 19-zZx\b"_s);
        const QString typed = u"Abcdefg 19-zZ"_s;
        QCOMPARE(edit->text(), typed);
        QCOMPARE(env.boxes.beeps(), 6);
        QCOMPARE(env.boxes.texts(),
                 QStringList(6,
                             u"Please enter valid characters only.\r\n\r\nThese include: Spaces, "
                             "letters a to z and A to Z, Numbers 0 to 9 and Hyphens"_s));

        const QString empty = u"Please enter a Group name."_s;
        const QString reserved = u"Sorry but this Group name cannot be used."_s;
        const std::pair<QString, QString> refused[] = {
            {QString(), empty},
            {u"   "_s, empty},
            {u"All Groups"_s, reserved},
            {u"Search Results"_s, reserved},
            {u"  Exclusion List "_s, reserved},
            {u"members"_s, u"A Group by the name: members\r\nalready exists.\r\n\r\nClick OK to "
                           "choose a new name"_s},
            // Pasted names, which no key filter sees: the command line's rules apply.
            {u"../escaped"_s, u"The Group name \"../escaped\" cannot be used: a Group name may not "
                              "hold \"/\", \"\\\" or control characters."_s},
            {u".."_s, u"The Group name \"..\" cannot be used: a Group name may not begin with a "
                      "period."_s},
            {u"\u0141\u00f3d\u017a"_s, u"The Group name \"\u0141\u00f3d\u017a\" cannot be used: "
                                       "the character \u0141 cannot be stored in the settings file "
                                       "(Windows-1252)."_s}};
        for (const auto& [name, message] : refused) {
            edit->setText(name);
            env.boxes.clear();
            click(&dialog, "cmdOK");
            QVERIFY(dialog.isVisible() && dialog.cancelled());
            QCOMPARE(edit->text(), name.trimmed());
            QCOMPARE(env.boxes.texts(), QStringList{message});
            QCOMPARE(env.boxes.shown().first().icon, message.startsWith(u"A Group by")
                                                         ? MessageBoxes::Icon::Information
                                                         : MessageBoxes::Icon::Exclamation);
        }
        QCOMPARE(LoadVTGroups(), QStringList{"Members"});
        QCOMPARE(QDir(env.folder.path()).entryList({u"*.gdb"_s}, QDir::Files | QDir::Hidden),
                 QStringList());
        QCOMPARE(env.folder.readFile(u"data/Members.gdb"_s), membersBefore);

        edit->clear();
        typeText(edit, u"  "_s + typed);
        click(&dialog, "cmdOK");
        QVERIFY(!dialog.isVisible());
        QVERIFY(!dialog.cancelled());
        QCOMPARE(dialog.newGroupName(), typed);
        QVERIFY(QFile::exists(env.groupFile(typed)));
    }

    void fromTheWizard()
    {
        Environment env;
        auto form = wizardOnGroupStep(env, 3, {u"Alpha"_s, u"Beta"_s}, u"Beta"_s);
        QComboBox* groups = combo(form.get(), "icmbGroups");
        const auto addGroup = [&](const QString& typed, const char* press) {
            whenModal(u"frmAddModGroup"_s, [=](QWidget* dialog) {
                QTest::keyClicks(control<QLineEdit>(dialog, "txtGroupName"), typed);
                click(dialog, press);
            });
            click(form.get(), "cmdCreateNewGroup");
            QTRY_VERIFY(!QApplication::activeModalWidget());
        };
        addGroup(u"Zeta"_s, "cmdCancel");
        QVERIFY(!QFile::exists(env.groupFile(u"Zeta"_s)));
        QCOMPARE(groups->currentText(), u"Beta"_s);
        // Created, but a reserved name in other case never shows in the list.
        addGroup(u"all groups"_s, "cmdOK");
        QVERIFY(QFile::exists(env.groupFile(u"all groups"_s)));
        QCOMPARE(groups->count(), 2);
        QCOMPARE(groups->currentIndex(), -1);
        // The new Group is the import's destination.
        addGroup(u"  New Leads "_s, "cmdOK");
        QCOMPARE(groups->count(), 3);
        QCOMPARE(groups->currentText(), u"New Leads"_s);
        QVERIFY(env.boxes.shown().isEmpty());
        click(form.get(), "cmdNext");
        QCOMPARE(countRows(env.groupFile(u"New Leads"_s)), 3);
        form->close();
    }
};

QTEST_MAIN(tst_frmAddModGroup)
#include "tst_frmaddmodgroup.moc"
