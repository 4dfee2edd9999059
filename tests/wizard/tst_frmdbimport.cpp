#include "wizardfixture.h"

#include <QLineEdit>
#include <QPlainTextEdit>

using namespace wizardtest;

namespace {

// Moves a combo to index the way a user does with the keyboard: each step is a pick.
void pickWithKeys(QComboBox* combo, int index)
{
    combo->setFocus();
    QTest::keyClick(combo, Qt::Key_Home);
    for (int i = 0; i < index; ++i)
        QTest::keyClick(combo, Qt::Key_Down);
}

// Presses Next where it must be refused: the one message shown, its icon marked unless a notice.
QString refusal(const QWidget* form, ScriptedMessageBoxes& boxes)
{
    const int step = currentStep(form);
    boxes.clear();
    click(form, "cmdNext");
    if (currentStep(form) != step || boxes.shown().size() != 1)
        return u"not refused: "_s + boxes.texts().join(u'|');
    const ScriptedMessageBoxes::Shown& box = boxes.shown().first();
    const char* marks[] = {"", "exclamation: ", "critical: ", "question: "};
    return QString::fromLatin1(marks[int(box.icon)]) + box.text;
}

void addRule(QWidget* builder, const QString& joiner, const QString& field, const QString& op,
             const QString& value)
{
    whenModal(u"frmImportFilters"_s, [=](QWidget* editor) {
        if (!joiner.isEmpty())
            combo(editor, "cmbLogicalOp")->setCurrentText(joiner);
        combo(editor, "cmbFields")->setCurrentText(field);
        combo(editor, "cmbOperand")->setCurrentText(op);
        control<QLineEdit>(editor, "txtValue")->setText(value);
        QTest::keyClick(editor, Qt::Key_Return); // Enter presses OK
        if (editor->isVisible())
            editor->close();
    });
    click(builder, "cmdAddFilter");
}

} // namespace

class tst_frmDBImport : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }

    void refusals()
    {
        Environment env;
        auto form = openWizard();
        QCOMPARE(refusal(form.get(), env.boxes),
                 u"A valid database connection must be selected/configured before proceeding."_s);
        form->close();

        env.addConnection(u"Gone"_s, Environment::sqlite(env.folder.filePath(u"missing.db"_s)));
        env.addSales(3, u"Bare"_s); // nothing saved: no SQL statement
        env.addSales(3);
        env.createGroups({u"Members"_s});
        ImportChoices saved = contactsChoices(u"Sales"_s, u"Gone"_s);
        saved.AdvancedSQLString = u"delete from Contacts"_s;
        env.saveChoices(saved);
        form = openWizard();
        frmDBImport* f = form.get();
        const QString gone = refusal(f, env.boxes);
        QVERIFY2(gone.startsWith(u"critical: modADO:GetTables Error "_s), qPrintable(gone));

        pickConnection(f, 1);
        QVERIFY(nextTo(f, 1));
        click(f, "optFilterMethod_1");
        QCOMPARE(refusal(f, env.boxes), u"A valid SQL Statement must be entered."_s);
        click(f, "cmdPrev"); // going back is never refused
        QCOMPARE(currentStep(f), 0);
        pickConnection(f, 2);
        QVERIFY(nextTo(f, 1));
        click(f, "optFilterMethod_1");
        QCOMPARE(refusal(f, env.boxes), u"critical: The SQL must be a valid SELECT statement."_s);
        click(f, "optFilterMethod_0");
        combo(f, "icmbTables")->setCurrentIndex(-1);
        QCOMPARE(refusal(f, env.boxes), u"A Table name must be selected from the list."_s);
        combo(f, "icmbTables")->setCurrentIndex(0);

        QVERIFY(nextTo(f, 2));
        combo(f, "cmbEmail")->setCurrentIndex(0);
        QCOMPARE(refusal(f, env.boxes),
                 u"You must match up the Email Address field in the import database to the Email "
                 "Address field in the Veltrano database."_s);
        click(f, "cmdPrev");
        QVERIFY(nextTo(f, 2));
        combo(f, "cmbEmail")->setCurrentIndex(2);
        // The saved Group is gone: no stand-in is chosen, and Start waits for a pick. With no
        // Group at all the step says how to make one.
        const QString hint = u"There are no Groups yet: click Create a New Group to make one."_s;
        QCOMPARE(shown(f, {"icmbGroups", "cmdNext", "lblNoGroups"}, 3),
                 (QStringList{"", "S&tart (off)", hint + " (hidden)"}));
        combo(f, "icmbGroups")->setCurrentIndex(0);
        QCOMPARE(shown(f, {"cmdNext"}), QStringList{"S&tart"});
        click(f, "cmdPrev");
        QVERIFY(QFile::remove(env.groupFile(u"Members"_s)));
        QCOMPARE(shown(f, {"cmdNext", "lblNoGroups"}, 3), (QStringList{"S&tart (off)", hint}));
        // Asked to go on without a Group all the same, the step still refuses.
        env.boxes.clear();
        f->ChangeStep(1);
        QCOMPARE(currentStep(f), 3);
        QCOMPARE(env.boxes.texts(),
                 QStringList{u"A Group must be selected to import the data into."_s});
    }

    void savedChoicesComeBack()
    {
        const int valid = 100;
        Environment env;
        env.addSales(valid);
        env.addSales(3, u"Members"_s);
        env.createGroups({u"Alpha"_s, u"Beta"_s});
        ImportChoices first = contactsChoices(u"Sales"_s, u"alpha"_s);
        first.ReplaceExisting = true;
        first.Rules.Add(u"City"_s, u"Equals"_s, u"="_s, u"'City 1'"_s, u"And"_s);
        first.FieldMappings.Add(u"Fax"_s, u"full NAME"_s);
        env.saveChoices(first);
        ImportChoices second;
        second.DSNName = u"Members"_s;
        second.SelectedTable = u"Other Table"_s;
        second.FieldMappings.Add(u"EMailAddress"_s, u"Mail Address"_s);
        second.VTGroup = u"Beta"_s;
        env.saveChoices(second);

        // The first connection's saved choices show on every step and narrow its import.
        auto form = openWizard(1);
        frmDBImport* f = form.get();
        QCOMPARE(shown(f, {"icmbTables", "lblQueryBuilderRules"}),
                 (QStringList{"Contacts", "1 filters defined"}));
        QCOMPARE(
            shown(f, {"cmbEmail", "cmbFullNameMacro", "cmbTelephone", "cmbFax", "cmbTitle"}, 2),
            (QStringList{"Email", "Full Name", "Phone", "Full Name", "(blank)"}));
        QCOMPARE(shown(f, {"icmbGroups", "chkReplace"}, 3), (QStringList{"Alpha", "[x]"}));
        QVERIFY(nextTo(f, 4));
        QCOMPARE(countRows(env.groupFile(u"Alpha"_s)), valid / 5);

        // Nothing of them survives into another connection's, a table with a blank in its name.
        for (int step = 4; step > 0; --step)
            click(f, "cmdPrev");
        pickConnection(f, 1);
        QCOMPARE(shown(f, {"icmbTables", "lblQueryBuilderRules"}, 1),
                 (QStringList{"Other Table", "0 filters defined"}));
        QCOMPARE(shown(f, {"cmbEmail", "cmbFullNameMacro"}, 2),
                 (QStringList{"Mail Address", "(blank)"}));
        QCOMPARE(shown(f, {"icmbGroups", "chkReplace"}, 3), (QStringList{"Beta", "[ ]"}));

        // Closing when idle saves what is chosen, without asking; the next wizard shows it.
        combo(f, "icmbGroups")->setCurrentIndex(0);
        click(f, "chkReplace");
        click(f, "cmdPrev");
        env.boxes.clear();
        click(f, "cmdClose");
        QVERIFY(!form->isVisible() && env.boxes.shown().isEmpty());
        form = openWizard();
        pickConnection(form.get(), 1);
        QCOMPARE(shown(form.get(), {"icmbGroups", "chkReplace"}, 3), (QStringList{"Alpha", "[x]"}));
    }

    void queryChoicesReachTheImport_data()
    {
        QTest::addColumn<bool>("rules");
        QTest::addColumn<QString>("sqlLine");
        QTest::addColumn<int>("added");
        // The imported statement has two blanks after WHERE; a line break is kept as "¬".
        QTest::newRow("query builder")
            << true << u"#   SQL : select * from Contacts WHERE  City = 'City 1' Or ID > 25"_s
            << 5; // four in City 1, and of IDs 26 and 27 the one not already imported
        QTest::newRow("freeform SQL")
            << false << u"#   SQL : select Email, City from Contacts\xacwhere ID < 4"_s << 3;
    }

    // "Town Equals Leeds Or Age is Greater Than 30" in this source's words, and a third rule
    // dropped again by Cancel; or a statement typed with a line break (Enter starts one in
    // the statement box, Ctrl+Return accepts).
    void queryChoicesReachTheImport()
    {
        QFETCH(bool, rules);
        QFETCH(QString, sqlLine);
        QFETCH(int, added);
        Environment env;
        auto form = wizardOnGroupStep(env, 20, {u"Members"_s}, u"Members"_s, 1);
        frmDBImport* f = form.get();
        if (rules) {
            whenModal(u"frmQueryBuilder"_s, [](QWidget* builder) {
                addRule(builder, {}, u"City"_s, u"Equals"_s, u"City 1"_s);
                addRule(builder, u"Or"_s, u"ID"_s, u"is Greater Than"_s, u"25"_s);
                click(builder, "cmdOK");
            });
            click(f, "cmdQueryBuilder");
            whenModal(u"frmQueryBuilder"_s, [](QWidget* builder) {
                addRule(builder, u"And"_s, u"Company"_s, u"Equals"_s, u"Company 1"_s);
                click(builder, "cmdCancel");
            });
            click(f, "cmdQueryBuilder");
            QCOMPARE(text(f, "lblQueryBuilderRules"), u"2 filters defined"_s);
        } else {
            click(f, "optFilterMethod_1");
            whenModal(u"frmQueryAdvanced"_s, [](QWidget* advanced) {
                auto* box = control<QPlainTextEdit>(advanced, "txtSQL");
                box->setFocus();
                QTest::keyClicks(box, u"select Email, City from Contacts"_s);
                QTest::keyClick(box, Qt::Key_Return);
                QTest::keyClicks(box, u"where ID < 4"_s);
                QTest::keyClick(box, Qt::Key_Return, Qt::ControlModifier);
                if (advanced->isVisible())
                    advanced->close();
            });
            click(f, "cmdAdvancedQuery");
        }
        QVERIFY(nextTo(f, 4));
        QVERIFY2(env.log().split(u"\r\n"_s).contains(sqlLine), qPrintable(env.log()));
        QCOMPARE(countRows(env.groupFile(u"Members"_s)), added);
    }

    void importProblems()
    {
        Environment env;
        auto form = wizardOnGroupStep(env, 20, {u"Members"_s}, u"Members"_s);
        frmDBImport* f = form.get();
        const QString source = env.folder.filePath(u"Sales.db"_s);
        const QString members = env.groupFile(u"Members"_s);
        QString message;
        QVERIFY(MaintainDSN(u"Sales"_s, Environment::sqlite(source), ConnectionAction::Delete,
                            message));

        // Choices that cannot be saved: No keeps the wizard without importing.
        env.boxes.queueAnswer(false);
        click(f, "cmdNext");
        QCOMPARE(currentStep(f), 4);
        const ScriptedMessageBoxes::Shown question = env.boxes.shown().value(0);
        QVERIFY(question.icon == MessageBoxes::Icon::Question && !question.defaultYes);
        QCOMPARE(question.text,
                 u"The following error occurred when attempting to save your current "
                 "settings to file :  0 - DSN not found, cannot save associated "
                 "data.. Do you wish to continue and Import the data ?"_s);
        QCOMPARE(countRows(members), 0);
        QVERIFY(env.log().isEmpty());
        // Asked again, Yes imports all the same.
        env.boxes.queueAnswer(true);
        click(f, "cmdPrev");
        click(f, "cmdNext");
        QCOMPARE(countRows(members), 20);
        QVERIFY(!env.log().isEmpty());

        // A source gone by the start is told, offers no log and leaves the Group as it was.
        QVERIFY(QFile::remove(source));
        env.boxes.clear();
        env.boxes.queueAnswer(true);
        click(f, "cmdPrev");
        click(f, "cmdNext");
        QCOMPARE(env.boxes.shown().size(), 2);
        QCOMPARE(env.boxes.shown().last().icon, MessageBoxes::Icon::Critical);
        QCOMPARE(countRows(members), 20);
        QCOMPARE(shown(f, {"cmdClose", "cmdPrev"}), (QStringList{"&Close", "<< &Previous"}));
    }

    // Sample values, match by name and how the full name and its parts exclude each other on the
    // mapping step; a test run, the real run and its undo.
    void mappingTestRunAndUndo()
    {
        Environment env;
        env.addSales(3);
        env.createGroups({u"G"_s});
        ImportChoices choices = contactsChoices(u"Sales"_s, u"G"_s);
        choices.FieldMappings.Clear();
        choices.FieldMappings.Add(u"EMailAddress"_s, u"Email"_s);
        choices.FieldMappings.Add(u"Company"_s, u"City"_s); // the user's own, odd choice
        env.saveChoices(choices);
        auto form = openWizard(2);
        frmDBImport* f = form.get();
        // Read in the background; the 4 invalid addresses of the 10 rows are counted.
        QTRY_VERIFY(text(f, "lblSample_EMailAddress").startsWith(u"4 of 10 refused - "_s));
        QCOMPARE(text(f, "lblSample_Company"), u"City 0"_s);
        click(f, "cmdMatchByName");
        QCOMPARE(env.boxes.texts().last(), u"3 field(s) matched by name."_s);
        QCOMPARE(shown(f, {"cmbFirstName", "cmbCity", "cmbCompanyName", "cmbFullNameMacro"}),
                 (QStringList{"First Name", "(blank)", "City", "(blank)"}));
        combo(f, "cmbFullNameMacro")->setCurrentText(u"Full Name"_s);
        QCOMPARE(text(f, "lblSample_FullNameMacro"),
                 u"Title: Mr  First: Ann0  Initial:   Last: Lee"_s);

        // Listed: (blank), ID, Email, Full Name, First Name, Last Name, Company, City, Phone.
        QComboBox* fullName = combo(f, "cmbFullNameMacro");
        const char* parts[] = {"cmbTitle", "cmbFirstName", "cmbInitial", "cmbLastName"};
        for (const char* part : parts) { // a name part the user picks clears the full name
            fullName->setCurrentIndex(3);
            pickWithKeys(combo(f, part), 4);
            QVERIFY2(fullName->currentIndex() == 0, part);
        }
        // The full name clears every part that is set; a part set by the program, or "(blank)"
        // picked for it, leaves the full name.
        for (const char* part : parts)
            combo(f, part)->setCurrentIndex(5);
        fullName->setCurrentIndex(3);
        for (const char* part : parts)
            QCOMPARE(combo(f, part)->currentIndex(), 0);
        combo(f, "cmbTitle")->setCurrentIndex(5);
        pickWithKeys(combo(f, "cmbTitle"), 0);
        QCOMPARE(fullName->currentIndex(), 3);

        // What the user leaves on the step is stored, also on the way back.
        pickWithKeys(combo(f, "cmbInitial"), 4);
        click(f, "cmdPrev");
        QCOMPARE(shown(f, {"cmbInitial"}, 2), QStringList{"First Name"});

        QVERIFY(nextTo(f, 3));
        const QByteArray before = env.folder.readFile(u"data/G.gdb"_s);
        click(f, "cmdTestRun");
        QCOMPARE(env.folder.readFile(u"data/G.gdb"_s), before);
        QVERIFY2(
            env.boxes.texts().last().startsWith(
                u"Test run complete: nothing was written to the Group.\r\n\r\nTotal Processed: "
                "10\r\nWould be added: 3\r\nDuplicates: 3\r\nIllegal: 4\r\n"_s),
            qPrintable(env.boxes.texts().last()));
        click(f, "cmdNext"); // Start
        QCOMPARE(countRows(env.groupFile(u"G"_s)), 3);
        click(f, "cmdPrev");
        env.boxes.queueAnswer(true);
        click(f, "cmdUndoLastImport");
        QCOMPARE(env.boxes.texts().last(),
                 u"The import was undone: 3 recipient(s) removed, 0 restored."_s);
        QCOMPARE(countRows(env.groupFile(u"G"_s)), 0);
        click(f, "cmdUndoLastImport");
        QCOMPARE(env.boxes.texts().last(), u"There is no import into the Group \"G\" to undo."_s);
    }

    void stopDuringImport_data()
    {
        QTest::addColumn<bool>("closing"); // else Cancel is pressed
        QTest::newRow("Cancel") << false;
        QTest::newRow("close the window") << true;
    }

    void stopDuringImport()
    {
        QFETCH(bool, closing);
        const int valid = 60000; // long enough to be stopped while it runs
        Environment env;
        auto form = wizardOnGroupStep(env, valid, {u"Members"_s}, u"Members"_s);
        env.boxes.queueAnswer(false); // "are you sure" No: keeps running
        env.boxes.queueAnswer(true);  // asked again: Yes

        const auto processed = [&] { return text(form.get(), "lblTotalProcessed").toInt(); };
        QString atFirstStop; // Close's caption, and the window after No
        int firstStopAt = 0;
        const auto stop = [&] { closing ? void(form->close()) : click(form.get(), "cmdClose"); };
        // Polled at the import's yields: stops after 100 records, and again at the next yield.
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            if (firstStopAt > 0) {
                poll.stop();
                return stop();
            }
            if (processed() < 100)
                return;
            atFirstStop = button(form.get(), "cmdClose")->text();
            firstStopAt = processed();
            stop();
            atFirstStop += form->isVisible() ? " shown" : " gone";
        });
        poll.start(0);
        click(form.get(), "cmdNext");

        QCOMPARE(atFirstStop, u"&Cancel shown"_s);
        // Closing answers the job's own questions: neither the cancel check nor the log offer.
        const QString cancel = u"You have chosen to cancel the import process, are you sure ?"_s;
        const QString close = u"The import process is running are you sure you wish to close the "
                              "application before the import is completed ?"_s;
        const QString review = u"Would you like to review the log file now?"_s;
        QCOMPARE(env.boxes.texts(),
                 (closing ? QStringList{close, close} : QStringList{cancel, cancel, review}));
        QVERIFY(processed() > firstStopAt && processed() < valid);
        QCOMPARE(countRows(env.groupFile(u"Members"_s)), text(form.get(), "lblAdded").toInt());
        QVERIFY(env.log().contains(u"#   Total Processed  : %1\r\n"_s.arg(processed())));
        QVERIFY(!form->importInProgress());
        QCOMPARE(form->isVisible(), !closing);
        if (!closing)
            QCOMPARE(shown(form.get(), {"lblCommand", "cmdClose"}),
                     (QStringList{"Import Complete ...", "&Close"}));
    }
};

QTEST_MAIN(tst_frmDBImport)
#include "tst_frmdbimport.moc"
