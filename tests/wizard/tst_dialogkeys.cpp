// Every window worked from the keyboard alone: where the focus starts and where Tab takes
// it, the Alt letter of each stop, the button Enter presses and that Escape cancels; and
// each dialog's captions fit (pictures for the README, as in the wizard's tour).

#include "wizardfixture.h"

#include "datarow.h"

#include "datasource/forms/frmConnectionBuilder.h"
#include "datasource/forms/frmExamineDSN.h"
#include "query/forms/frmImportFilters.h"
#include "query/forms/frmQueryAdvanced.h"
#include "query/forms/frmQueryBuilder.h"
#include "wizard/frmAddModGroup.h"
#include "util/forms/qtmessageboxes.h"
#include "wizard/frmDSN.h"

#include <QDialog>
#include <QPushButton>

using namespace wizardtest;

namespace {

// The letter after a single '&', lower-cased; empty without one.
QString mnemonic(const QString& caption)
{
    const qsizetype at = QString(caption).replace(u"&&"_s, u"__"_s).indexOf(u'&');
    return at < 0 ? QString() : caption.mid(at + 1, 1).toLower();
}

// The stops Tab visits from the focus the window opens with, each as name:letter, the letter
// from the caption of a button or of the label that names the control.
QStringList tabStops(QWidget* window)
{
    QStringList stops;
    QWidget* first = QApplication::focusWidget();
    for (QWidget* at = first; at && stops.size() < 60;) {
        QString letter;
        if (const auto* button = qobject_cast<QAbstractButton*>(at))
            letter = mnemonic(button->text());
        else
            for (const QLabel* label : window->findChildren<QLabel*>())
                if (label->buddy() == at && label->isVisible())
                    letter = mnemonic(label->text());
        stops << at->objectName() + (letter.isEmpty() ? QString() : u':' + letter);
        QTest::keyClick(at, Qt::Key_Tab);
        at = QApplication::focusWidget();
        if (at == first)
            break;
    }
    return stops;
}

QString defaultButton(const QWidget* window)
{
    for (const QPushButton* button : window->findChildren<QPushButton*>())
        if (button->isDefault() && button->isVisible())
            return button->objectName();
    return {};
}

} // namespace

class tst_DialogKeys : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }
    void dialogs_data();
    void dialogs();
    void wizardSteps_data();
    void wizardSteps();
    void messageBoxes();
};

void tst_DialogKeys::dialogs_data()
{
    QTest::addColumn<QString>("dialog");
    QTest::addColumn<QString>("stops");
    QTest::addColumn<QString>("enter");
    QTest::addColumn<QString>("shot");
    DataRow("group", "frmAddModGroup", "txtGroupName:g cmdOK:o cmdCancel:c", "cmdOK",
            "group-dialog");
    DataRow("connection", "frmDSN", "txtDSN:p cmdEdit:r txtConStr:t cmdOK cmdClose:c", "cmdOK",
            "connection-dialog");
    DataRow("builder", "frmConnectionBuilder",
            "cmbKind:k cmbDriver:r txtServer:s txtPort:o txtDatabase:d txtUser:u txtPassword:w "
            "cmdTest:t cmdOK cmdCancel",
            "cmdOK", "connection-builder");
    DataRow("examine", "frmExamineDSN", "icmbConnections:o icmbTables:t lstFields:f cmdClose:c",
            "cmdClose", "");
    DataRow("rule", "frmImportFilters",
            "cmbLogicalOp:o cmbFields:w cmbOperand txtValue cmdOK "
            "cmdCancel:c",
            "cmdOK", "");
    DataRow("statement", "frmQueryAdvanced",
            "txtSQL:e cmdShow:s cmdSyntax:x cmdResults:v cmdOK cmdCancel:c", "", ""); // Ctrl+Return
    DataRow("rules", "frmQueryBuilder",
            "lstFilters:h cmdAddFilter:a cmdModifyFilter:m "
            "cmdRemoveFilter:r cmdView:v cmdOK cmdCancel:c",
            "cmdOK", "");
}

void tst_DialogKeys::dialogs()
{
    QFETCH(QString, dialog);
    QFETCH(QString, stops);
    QFETCH(QString, enter);
    QFETCH(QString, shot);
    Environment env;
    const QString sales = env.addSales(3);
    std::unique_ptr<QDialog> window;
    if (dialog == "frmAddModGroup"_L1) {
        window = std::make_unique<frmAddModGroup>();
    } else if (dialog == "frmDSN"_L1) {
        DSNDialogIsNew = true;
        window = std::make_unique<frmDSN>();
    } else if (dialog == "frmConnectionBuilder"_L1) { // a server's fields are the most
        auto builder = std::make_unique<frmConnectionBuilder>();
        QString message;
        QVERIFY(builder->setConnectionString(
            u"Provider=MSDASQL;Driver={MariaDB Unicode};Server=db.example.com;Port=3306;"
            "Database=members;UID=ann;PWD=s3cret;"_s,
            message));
        window = std::move(builder);
    } else if (dialog == "frmExamineDSN"_L1) {
        auto examine = std::make_unique<frmExamineDSN>();
        examine->AddConnection(u"Sales"_s, Environment::sqlite(sales), true);
        window = std::move(examine);
    } else if (dialog == "frmImportFilters"_L1) {
        auto filters = std::make_unique<frmImportFilters>();
        filters->PopulateCombos({u"Email"_s, u"ID"_s}, {u"Text"_s, u"Number"_s});
        filters->DSNString = Environment::sqlite(sales);
        filters->TableName = u"Contacts"_s;
        window = std::move(filters);
    } else if (dialog == "frmQueryAdvanced"_L1) {
        auto advanced = std::make_unique<frmQueryAdvanced>();
        advanced->DSNString = Environment::sqlite(sales);
        window = std::move(advanced);
    } else {
        auto builder = std::make_unique<frmQueryBuilder>();
        builder->DSNString = Environment::sqlite(sales);
        builder->TableName = u"Contacts"_s;
        window = std::move(builder);
    }
    window->show();
    QVERIFY(QTest::qWaitForWindowActive(window.get()));
    QTRY_VERIFY2(cutCaptions(window.get()).isEmpty(), qPrintable(cutCaptions(window.get())));
    if (!shot.isEmpty())
        saveShot(window.get(), shot);
    QCOMPARE(tabStops(window.get()).join(u' '), stops);
    QCOMPARE(defaultButton(window.get()), enter);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
    QVERIFY(!window->isVisible());
    QCOMPARE(window->result(), int(QDialog::Rejected));
    QVERIFY(env.boxes.shown().isEmpty());
}

void tst_DialogKeys::wizardSteps_data()
{
    QTest::addColumn<int>("step");
    QTest::addColumn<QString>("stops");
    const QString footer = u"cmdPrev:p cmdNext:n cmdClose:c"_s;
    DataRow("connection", 0,
            "lvwDSN:s cmdNewDSN:e cmdEditDSN:d cmdDeleteDSN:l cmdExamine:x "
            "cmdNext:n cmdClose:c");
    DataRow("records", 1, "optFilterMethod_0:t icmbTables:a cmdQueryBuilder:q " + footer);
    DataRow("mapping", 2,
            "cmbEmail:e cmbFullNameMacro:f cmbTitle:t cmbFirstName:i cmbInitial:a "
            "cmbLastName:s cmbAddress1:1 cmbAddress2:2 cmbCity:y cmbState:o cmbZip:z "
            "cmbCountry:u cmbCompanyName:m cmbJobTitle:j cmbWebURL:w cmbTelephone:h cmbFax:x "
            "cmbAdditionalField1 cmbAdditionalField2 cmbAdditionalField3 cmbAdditionalField4 "
            "cmdMatchByName:b " +
                footer);
    DataRow("group", 3,
            "icmbGroups:s cmdCreateNewGroup:r chkReplace:u cmdTestRun:e "
            "cmdUndoLastImport:l cmdPrev:p cmdNext:t cmdClose:c");
    DataRow("import", 4, "cmdPrev:p cmdClose:c");
}

void tst_DialogKeys::wizardSteps()
{
    QFETCH(int, step);
    QFETCH(QString, stops);
    Environment env;
    auto form = wizardOnGroupStep(env, 3, {u"Members"_s}, u"Members"_s);
    while (currentStep(form.get()) > step)
        click(form.get(), "cmdPrev");
    QVERIFY(nextTo(form.get(), step));
    // A step is read from where Tab after Close lands.
    button(form.get(), "cmdClose")->setFocus();
    QTest::keyClick(button(form.get(), "cmdClose"), Qt::Key_Tab);
    QCOMPARE(tabStops(form.get()).join(u' '), stops);
    form->close();
}

// The boxes read as a user sees them (title, text, icon, buttons) and Enter presses the
// button the caller made the default.
void tst_DialogKeys::messageBoxes()
{
    QStringList seen;
    const auto answer = [&seen] {
        whenModal(u"messageBox"_s, [&seen](QWidget* box) {
            QStringList buttons;
            for (const QPushButton* button : box->findChildren<QPushButton*>())
                buttons << button->text().remove(u'&');
            buttons.sort();
            seen = QStringList{box->windowTitle(), box->property("text").toString(),
                               box->property("icon").toString(), buttons.join(u'/')};
            QTest::keyClick(box, Qt::Key_Return);
        });
    };
    QtMessageBoxes boxes;
    const QString text = u"A Group by the name: X\r\nalready exists.\r\n\r\nClick OK"_s;
    // Windows line breaks show as line breaks, not as stray carriage returns.
    const QString shown = u"A Group by the name: X\nalready exists.\n\nClick OK"_s;
    answer();
    boxes.show(MessageBoxes::Icon::Exclamation, text);
    QCOMPARE(seen, (QStringList{AppTitle(), shown, "Warning", "OK"}));
    for (const bool defaultYes : {true, false}) {
        answer();
        QCOMPARE(boxes.ask(text, defaultYes, u"AddToFieldMap : City"_s), defaultYes);
        QCOMPARE(seen, (QStringList{"AddToFieldMap : City", shown, "Question", "No/Yes"}));
    }
}

QTEST_MAIN(tst_DialogKeys)
#include "tst_dialogkeys.moc"
