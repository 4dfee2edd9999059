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

// The dialog as the wizard opens it on a source; the builder with a server's fields, its most.
template <class Dialog> std::unique_ptr<QDialog> opened(const QString& file)
{
    auto dialog = std::make_unique<Dialog>();
    if constexpr (std::is_same_v<Dialog, frmExamineDSN>) {
        dialog->AddConnection(u"Sales"_s, Environment::sqlite(file), true);
    } else if constexpr (std::is_same_v<Dialog, frmConnectionBuilder>) {
        QString message;
        require(dialog->setConnectionString(u"Provider=MSDASQL;Driver={MariaDB Unicode};Server="
                                            "db.example.com;Port=3306;Database=members;UID=ann;"
                                            "PWD=s3cret;"_s,
                                            message),
                message);
    } else {
        dialog->DSNString = Environment::sqlite(file);
        if constexpr (std::is_same_v<Dialog, frmQueryBuilder>)
            dialog->TableName = u"Contacts"_s;
    }
    return dialog;
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

    void dialogs_data()
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
                "txtSQL:e cmdShow:s cmdSyntax:x cmdResults:v cmdOK cmdCancel:c", "",
                ""); // Ctrl+Return
        DataRow("rules", "frmQueryBuilder",
                "lstFilters:h cmdAddFilter:a cmdModifyFilter:m "
                "cmdRemoveFilter:r cmdView:v cmdOK cmdCancel:c",
                "cmdOK", "");
    }

    void dialogs()
    {
        QFETCH(QString, dialog);
        QFETCH(QString, stops);
        QFETCH(QString, enter);
        QFETCH(QString, shot);
        Environment env;
        const QString sales = env.addSales(3);
        std::unique_ptr<QDialog> window;
        if (dialog == "frmAddModGroup"_L1)
            window = std::make_unique<frmAddModGroup>();
        else if (dialog == "frmDSN"_L1)
            window = std::make_unique<frmDSN>();
        else if (dialog == "frmImportFilters"_L1)
            window = std::make_unique<frmImportFilters>();
        else if (dialog == "frmExamineDSN"_L1)
            window = opened<frmExamineDSN>(sales);
        else if (dialog == "frmQueryAdvanced"_L1)
            window = opened<frmQueryAdvanced>(sales);
        else if (dialog == "frmQueryBuilder"_L1)
            window = opened<frmQueryBuilder>(sales);
        else
            window = opened<frmConnectionBuilder>(sales);
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

    void wizardSteps_data()
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

    void wizardSteps()
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
    void messageBoxes()
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
};

QTEST_MAIN(tst_DialogKeys)
#include "tst_dialogkeys.moc"
