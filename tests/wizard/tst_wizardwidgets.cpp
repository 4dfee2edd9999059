#include "wizardfixture.h"

#include "util/forms/qtmessageboxes.h"

#include <QPushButton>

using namespace wizardtest;

class tst_WizardWidgets : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }

    void boxes();
};

void tst_WizardWidgets::boxes()
{
    // Reads the box once it is up (title, text, icon, buttons, default button) and presses
    // the button captioned press.
    const auto answer = [](QStringList& seen, const QString& press) {
        whenModal(u"messageBox"_s, [&seen, press](QWidget* box) {
            QStringList buttons;
            QString defaultButton;
            QPushButton* target = nullptr;
            for (QPushButton* button : box->findChildren<QPushButton*>()) {
                buttons << button->text().remove(u'&');
                if (button->isDefault())
                    defaultButton = buttons.last();
                if (buttons.last() == press)
                    target = button;
            }
            buttons.sort();
            seen = QStringList{box->windowTitle(), box->property("text").toString(),
                               box->property("icon").toString(), buttons.join(u'/'), defaultButton};
            target ? QTest::mouseClick(target, Qt::LeftButton) : void(box->close());
        });
    };
    QtMessageBoxes boxes;
    const QString text = u"A Group by the name: X\r\nalready exists.\r\n\r\nClick OK"_s;
    // Windows line breaks show as line breaks, not as stray carriage returns.
    const QString shown = u"A Group by the name: X\nalready exists.\n\nClick OK"_s;
    QStringList seen;
    answer(seen, u"OK"_s);
    boxes.show(MessageBoxes::Icon::Exclamation, text);
    QCOMPARE(seen, (QStringList{AppTitle(), shown, "Warning", "OK", "OK"}));
    for (const bool defaultYes : {true, false}) {
        answer(seen, defaultYes ? u"No"_s : u"Yes"_s);
        QCOMPARE(boxes.ask(text, defaultYes, u"AddToFieldMap : City"_s), !defaultYes);
        QCOMPARE(seen, (QStringList{"AddToFieldMap : City", shown, "Question", "No/Yes",
                                    defaultYes ? "Yes" : "No"}));
    }
}

QTEST_MAIN(tst_WizardWidgets)
#include "tst_wizardwidgets.moc"
