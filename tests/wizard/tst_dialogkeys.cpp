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
    if constexpr (std::is_same_v<Dialog, frmAddModGroup> || std::is_same_v<Dialog, frmDSN> ||
                  std::is_same_v<Dialog, frmImportFilters>) {
        return dialog; // these open empty
    } else if constexpr (std::is_same_v<Dialog, frmExamineDSN>) {
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

using Opener = std::unique_ptr<QDialog> (*)(const QString&);

QString defaultButton(const QWidget* window)
{
    for (const QPushButton* button : window->findChildren<QPushButton*>())
        if (button->isDefault() && button->isVisible())
            return button->objectName();
    return {};
}

} // namespace

Q_DECLARE_METATYPE(Opener)

class tst_DialogKeys : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }

    void dialogs_data()
    {
        QTest::addColumn<Opener>("open");
        QTest::addColumn<QString>("stops");
        QTest::addColumn<QString>("enter");
        QTest::addColumn<QString>("shot");
        DataRow("group", &opened<frmAddModGroup>, "txtGroupName:g cmdOK:o cmdCancel:c", "cmdOK",
                "group-dialog");
        DataRow("connection", &opened<frmDSN>, "txtDSN:p cmdEdit:r txtConStr:t cmdOK cmdClose:c",
                "cmdOK", "connection-dialog");
        DataRow("builder", &opened<frmConnectionBuilder>,
                "cmbKind:k cmbDriver:r txtServer:s txtPort:o txtDatabase:d txtUser:u txtPassword:w "
                "cmdTest:t cmdOK cmdCancel:c",
                "cmdOK", "connection-builder");
        DataRow("examine", &opened<frmExamineDSN>,
                "icmbConnections:o icmbTables:t lstFields:f cmdClose:c", "cmdClose", "");
        DataRow("rule", &opened<frmImportFilters>,
                "cmbLogicalOp:o cmbFields:w cmbOperand txtValue cmdOK cmdCancel:c", "cmdOK", "");
        DataRow("statement", &opened<frmQueryAdvanced>, // Enter starts a line; Ctrl+Return is OK
                "txtSQL:e cmdShow:s cmdSyntax:x cmdResults:v cmdOK cmdCancel:c", "", "");
        DataRow("rules", &opened<frmQueryBuilder>,
                "lstFilters:h cmdAddFilter:a cmdModifyFilter:m cmdRemoveFilter:r cmdView:v cmdOK "
                "cmdCancel:c",
                "cmdOK", "");
    }

    void dialogs()
    {
        QFETCH(Opener, open);
        QFETCH(QString, stops);
        QFETCH(QString, enter);
        QFETCH(QString, shot);
        Environment env;
        std::unique_ptr<QDialog> window = open(env.addSales(3));
        window->show();
        QVERIFY(QTest::qWaitForWindowActive(window.get()));
        QTRY_VERIFY2(cutCaptions(window.get()).isEmpty(), qPrintable(cutCaptions(window.get())));
        saveShot(window.get(), shot);
        QCOMPARE(tabStops(window.get()).join(u' '), stops);
        QCOMPARE(defaultButton(window.get()), enter);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
        QVERIFY(!window->isVisible() && window->result() == QDialog::Rejected);
        QVERIFY(env.boxes.shown().isEmpty());
    }

    // Each step is read from where Tab after Close lands.
    void wizardSteps()
    {
        const QString footer = u"cmdPrev:p cmdNext:n cmdClose:c"_s;
        const QStringList expected = {
            u"lvwDSN:s cmdNewDSN:e cmdEditDSN:d cmdDeleteDSN:l cmdExamine:x cmdNext:n cmdClose:c"_s,
            "optFilterMethod_0:t icmbTables:a cmdQueryBuilder:q " + footer,
            "cmbEmail:e cmbFullNameMacro:f cmbTitle:t cmbFirstName:i cmbInitial:a cmbLastName:s "
            "cmbAddress1:1 cmbAddress2:2 cmbCity:y cmbState:o cmbZip:z cmbCountry:u "
            "cmbCompanyName:m cmbJobTitle:j cmbWebURL:w cmbTelephone:h cmbFax:x "
            "cmbAdditionalField1 "
            "cmbAdditionalField2 cmbAdditionalField3 cmbAdditionalField4 cmdMatchByName:b " +
                footer,
            u"icmbGroups:s cmdCreateNewGroup:r chkReplace:u cmdTestRun:e cmdUndoLastImport:l "
            "cmdPrev:p cmdNext:t cmdClose:c"_s,
            u"cmdPrev:p cmdClose:c"_s};
        Environment env;
        auto form = wizardOnGroupStep(env, 3, {u"Members"_s}, u"Members"_s, 0);
        QStringList stops;
        for (int step = 0; step < 5; ++step) {
            QVERIFY(nextTo(form.get(), step));
            button(form.get(), "cmdClose")->setFocus();
            QTest::keyClick(button(form.get(), "cmdClose"), Qt::Key_Tab);
            stops << tabStops(form.get()).join(u' ');
        }
        QCOMPARE(stops, expected);
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
        const QString lines = u"A Group by the name: X\nalready exists.\n\nClick OK"_s;
        answer();
        boxes.show(MessageBoxes::Icon::Exclamation, text);
        QCOMPARE(seen, (QStringList{AppTitle(), lines, "Warning", "OK"}));
        for (const bool defaultYes : {true, false}) {
            answer();
            QCOMPARE(boxes.ask(text, defaultYes, u"AddToFieldMap : City"_s), defaultYes);
            QCOMPARE(seen, (QStringList{"AddToFieldMap : City", lines, "Question", "No/Yes"}));
        }
    }
};

QTEST_MAIN(tst_DialogKeys)
#include "tst_dialogkeys.moc"
