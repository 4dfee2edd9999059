#include "wizardfixture.h"

#include "wizard/comboboxlistcontrol.h"
#include "wizard/overridecursorpointer.h"
#include "wizard/qtmessageboxes.h"
#include "wizard/wrappingcheckbox.h"

#include <QPushButton>

using namespace wizardtest;

namespace {

// What a shown box looked like, read through its widgets.
struct SeenBox
{
    QString title;
    QString text;
    int icon = -1;
    QStringList buttons;
    QString defaultButton;
};

// Reads the box named "messageBox" once it is up and presses the button whose caption
// (without its mnemonic) is press.
void readAndPress(SeenBox& seen, const QString& press)
{
    whenModal(u"messageBox"_s, [&seen, press](QWidget* box) {
        seen.title = box->windowTitle();
        seen.icon = box->property("icon").toInt();
        if (auto* label = box->findChild<QLabel*>(u"qt_msgbox_label"_s))
            seen.text = label->text();
        QPushButton* target = nullptr;
        for (QPushButton* button : box->findChildren<QPushButton*>()) {
            const QString caption = button->text().remove(QLatin1Char('&'));
            seen.buttons << caption;
            if (button->isDefault())
                seen.defaultButton = caption;
            if (caption == press)
                target = button;
        }
        seen.buttons.sort();
        if (target)
            QTest::mouseClick(target, Qt::LeftButton);
    });
}

} // namespace

class tst_WizardWidgets : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }

    void boxes_data();
    void boxes();
    void comboSearch_data();
    void comboSearch();
    void busyPointerIsAState();
    void wrappingCheckBoxWrapsAndToggles();
};

void tst_WizardWidgets::boxes_data()
{
    QTest::addColumn<int>("kind"); // -1: a question
    QTest::addColumn<QString>("title");
    QTest::addColumn<bool>("defaultYes");
    QTest::addColumn<QString>("press");
    QTest::addColumn<int>("qtIcon"); // information 1, warning 2, critical 3, question 4
    QTest::newRow("information, program title")
        << static_cast<int>(MessageBoxes::Icon::Information) << QString() << false << "OK" << 1;
    QTest::newRow("exclamation, own title") << static_cast<int>(MessageBoxes::Icon::Exclamation)
                                            << "AddToFieldMap : City" << false << "OK" << 2;
    QTest::newRow("critical") << static_cast<int>(MessageBoxes::Icon::Critical) << QString()
                              << false << "OK" << 3;
    for (const bool defaultYes : {true, false}) {
        for (const char* press : {"Yes", "No"})
            QTest::addRow("question, default %s, pressed %s", defaultYes ? "Yes" : "No", press)
                << -1 << QString() << defaultYes << press << 4;
    }
}

void tst_WizardWidgets::boxes()
{
    QFETCH(int, kind);
    QFETCH(QString, title);
    QFETCH(bool, defaultYes);
    QFETCH(QString, press);
    QFETCH(int, qtIcon);
    QtMessageBoxes boxes;
    SeenBox seen;
    readAndPress(seen, press);
    const QString text = u"A Group by the name: X\r\nalready exists.\r\n\r\nClick OK"_s;
    if (kind < 0)
        QCOMPARE(boxes.ask(text, defaultYes), press == QLatin1String("Yes"));
    else
        boxes.show(static_cast<MessageBoxes::Icon>(kind), text, title);

    QCOMPARE(seen.title, title.isEmpty() ? AppTitle() : title);
    QCOMPARE(seen.icon, qtIcon);
    QCOMPARE(seen.buttons, (kind < 0 ? QStringList{"No", "Yes"} : QStringList{"OK"}));
    if (kind < 0)
        QCOMPARE(seen.defaultButton, QString::fromLatin1(defaultYes ? "Yes" : "No"));
    // Windows line breaks show as line breaks, not as stray carriage returns.
    QCOMPARE(seen.text, u"A Group by the name: X\nalready exists.\n\nClick OK"_s);
}

void tst_WizardWidgets::comboSearch_data()
{
    QTest::addColumn<QString>("wanted");
    QTest::addColumn<int>("found");
    QTest::newRow("same text") << "City" << 1;
    QTest::newRow("other case") << "CITY" << 1;
    QTest::newRow("blank entry in capitals") << "(BLANK)" << 0;
    QTest::newRow("prefix only") << "Cit" << -1;
    QTest::newRow("longer text") << "City2x" << -1;
    QTest::newRow("first of two equal") << "name" << 3;
    QTest::newRow("empty") << "" << -1;
}

void tst_WizardWidgets::comboSearch()
{
    QFETCH(QString, wanted);
    QFETCH(int, found);
    QComboBox combo;
    ComboBoxListControl list(&combo);
    for (const char* item : {"(blank)", "City", "City2", "Name", "NAME"})
        list.addItem(QString::fromLatin1(item));
    QCOMPARE(list.findExact(wanted), found);
    // Selecting what was found; nothing when it was not, and no entry out of range.
    list.setCurrentIndex(found < 0 ? 7 : found);
    QCOMPARE(list.currentIndex(), found);
    QCOMPARE(combo.currentText(), list.itemText(found));
    QCOMPARE(list.itemText(found), found < 0 ? QString() : combo.itemText(found));
    list.clear();
    QCOMPARE(combo.count(), 0);
}

void tst_WizardWidgets::busyPointerIsAState()
{
    // Someone else's override cursor must survive the busy pointer's comings and goings.
    QApplication::setOverrideCursor(Qt::PointingHandCursor);
    {
        OverrideCursorPointer pointer;
        MousePointer::install(&pointer);
        MousePointer::busy();
        MousePointer::busy();
        QVERIFY(QApplication::overrideCursor());
        QCOMPARE(QApplication::overrideCursor()->shape(), Qt::WaitCursor);
        MousePointer::normal();
        QCOMPARE(QApplication::overrideCursor()->shape(), Qt::PointingHandCursor);
        MousePointer::normal();
        QVERIFY(QApplication::overrideCursor());
        QCOMPARE(QApplication::overrideCursor()->shape(), Qt::PointingHandCursor);
        // Going away while busy gives the pointer back.
        MousePointer::busy();
        MousePointer::install(nullptr);
    }
    QVERIFY(QApplication::overrideCursor());
    QCOMPARE(QApplication::overrideCursor()->shape(), Qt::PointingHandCursor);
    QApplication::restoreOverrideCursor();
    QVERIFY(!QApplication::overrideCursor());
}

void tst_WizardWidgets::wrappingCheckBoxWrapsAndToggles()
{
    QWidget window;
    auto* box = new WrappingCheckBox(&window);
    box->setText(u"&Update existing recipients details with the new data in the "
                 "database (Note: this will slow down the import process by a "
                 "factor of 10)."_s);
    const int oneLine = box->heightForWidth(4000);
    QVERIFY(box->heightForWidth(220) > oneLine);
    QVERIFY(box->minimumSizeHint().width() < box->fontMetrics().horizontalAdvance(box->text()));

    box->setGeometry(0, 0, 220, box->heightForWidth(220));
    window.resize(240, box->height() + 10);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    // The second line of the caption is part of the button.
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(box->width() / 2, box->height() - 4));
    QVERIFY(box->isChecked());
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(4, 4));
    QVERIFY(!box->isChecked());
    window.close();
}

QTEST_MAIN(tst_WizardWidgets)
#include "tst_wizardwidgets.moc"
