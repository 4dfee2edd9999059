// A new user's walk through what the wizard offers beyond the five steps: sample values
// and match by name on the mapping step, a test run, the real run and its undo.
#include "wizardfixture.h"

#include <QtTest>

using namespace wizardtest;

class tst_WizardExtras : public QObject
{
    Q_OBJECT

private slots:
    void sampleMatchTestRunAndUndo()
    {
        Environment env;
        env.addSales(3);
        env.createGroups({"G"});
        ImportChoices choices;
        choices.DSNName = "Sales";
        choices.SelectedTable = "Contacts";
        choices.FieldMappings.Add("EMailAddress", "Email");
        choices.FieldMappings.Add("Company", "City"); // the user's own, odd choice
        choices.VTGroup = "G";
        env.saveChoices(choices);
        auto form = openWizard(2);

        // Read in the background; the 4 invalid addresses of the 10 rows are counted.
        QTRY_VERIFY(text(form.get(), "lblSample_EMailAddress").startsWith("4 of 10 refused - "));
        QCOMPARE(text(form.get(), "lblSample_Company"), QString("City 0"));

        click(form.get(), "cmdMatchByName");
        QCOMPARE(env.boxes.texts().last(), QString("3 field(s) matched by name."));
        QStringList mapped;
        for (const char* name : {"cmbEmail", "cmbFirstName", "cmbLastName", "cmbCity",
                                 "cmbCompanyName", "cmbTelephone", "cmbFullNameMacro"})
            mapped << combo(form.get(), name)->currentText();
        QCOMPARE(mapped, QStringList({"Email", "First Name", "Last Name", "(blank)", "City",
                                      "Phone", "(blank)"}));
        combo(form.get(), "cmbFullNameMacro")->setCurrentText("Full Name");
        QCOMPARE(text(form.get(), "lblSample_FullNameMacro"),
                 QString("Title: Mr  First: Ann0  Initial:   Last: Lee"));

        QVERIFY(nextTo(form.get(), 3));
        combo(form.get(), "icmbGroups")->setCurrentText("G");
        const QByteArray before = env.folder.readFile("data/G.gdb");
        env.boxes.clear();
        click(form.get(), "cmdTestRun");
        QCOMPARE(env.folder.readFile("data/G.gdb"), before);
        QCOMPARE(currentStep(form.get()), 3);
        QVERIFY2(env.boxes.texts().last().startsWith(
                     "Test run complete: nothing was written to the Group.\r\n\r\nTotal "
                     "Processed: 10\r\nWould be added: 3\r\nDuplicates: 3\r\nIllegal: 4\r\n"),
                 qPrintable(env.boxes.texts().join('|')));

        click(form.get(), "cmdNext"); // Start
        QCOMPARE(countRows(env.groupFile("G")), 3);
        click(form.get(), "cmdPrev");
        env.boxes.queueAnswer(true);
        click(form.get(), "cmdUndoLastImport");
        QCOMPARE(env.boxes.texts().last(),
                 QString("The import was undone: 3 recipient(s) removed, 0 restored."));
        QCOMPARE(countRows(env.groupFile("G")), 0);
        click(form.get(), "cmdUndoLastImport");
        QCOMPARE(env.boxes.texts().last(),
                 QString("There is no import into the Group \"G\" to undo."));
    }
};

QTEST_MAIN(tst_WizardExtras)
#include "tst_wizardextras.moc"
