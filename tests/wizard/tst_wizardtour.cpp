// Walks the wizard through its five steps and the Group dialog and checks that every
// caption fits its control and the window fits the screen. With DBIMPORT_SCREENSHOT_DIR
// set it also saves a picture of each step there (scripts/screenshots.sh). With
// DBIMPORT_BENCH_ROWS and DBIMPORT_BENCH_DIR set, the timed import runs on a source of
// that many valid rows built in that folder, and leaves the settings there for the
// command-line runner to repeat the same import (scripts/bench-wizard.sh).

#include "wizardfixture.h"

#include "import/groups.h"
#include "import/hostfields.h"
#include "util/nativepath.h"

#include <QCheckBox>
#include <QDir>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QScreen>
#include <QScrollBar>
#include <QTreeWidget>

using namespace wizardtest;

namespace {

QString screenshotDir()
{
    return qEnvironmentVariable("DBIMPORT_SCREENSHOT_DIR");
}

void saveShot(QWidget* widget, const QString& name)
{
    const QString dir = screenshotDir();
    if (dir.isEmpty())
        return;
    QDir().mkpath(dir);
    QCoreApplication::processEvents();
    if (!widget->grab().save(QDir(dir).filePath(name + QStringLiteral(".png"))))
        QTest::qFail(qPrintable("cannot save " + name), __FILE__, __LINE__);
}

// Every caption shown on page is wide (or, wrapped, tall) enough for its text.
QStringList cutCaptions(const QWidget* window, const QWidget* page)
{
    QStringList cut;
    for (const QLabel* label : page->findChildren<QLabel*>()) {
        if (!label->isVisibleTo(window) || label->text().isEmpty())
            continue;
        // A label inside the scrolling mapping area may lie outside the visible part.
        const bool fits = label->wordWrap()
                              ? label->heightForWidth(label->width()) <= label->height()
                              : label->minimumSizeHint().width() <= label->width();
        if (!fits)
            cut << QStringLiteral("%1 (%2 of %3 wide)")
                       .arg(label->objectName())
                       .arg(label->width())
                       .arg(label->minimumSizeHint().width());
    }
    for (const QAbstractButton* button : page->findChildren<QAbstractButton*>()) {
        if (button->isVisibleTo(window) && button->minimumSizeHint().width() > button->width())
            cut << button->objectName();
    }
    for (const QComboBox* combo : page->findChildren<QComboBox*>()) {
        if (combo->isVisibleTo(window) && combo->minimumSizeHint().width() > combo->width())
            cut << combo->objectName();
    }
    return cut;
}

// A fresh demo-like set-up: one connection with its saved choices and three Groups.
void prepare(Environment& env, const QString& source, const QString& conString = QString())
{
    env.addConnection(QStringLiteral("Demo contacts"),
                      conString.isEmpty() ? Environment::sqliteConnection(source) : conString);
    env.addConnection(QStringLiteral("Members (PostgreSQL)"),
                      QStringLiteral("Provider=MSDASQL;Data Source=members"));
    for (const char* group : {"Customers", "Newsletter", "Search Results"}) {
        if (!CreateGroup(QString::fromLatin1(group), HostDataFolder()))
            QTest::qFail("cannot create a Group", __FILE__, __LINE__);
    }
    ImportChoices saved =
        contactsChoices(QStringLiteral("Demo contacts"), QStringLiteral("Customers"));
    env.saveChoices(saved);
}

} // namespace

class tst_WizardTour : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
    void everyStepFits();
    void groupDialogFits();
    void timedImport();
};

void tst_WizardTour::cleanup()
{
    for (QWidget* widget : QApplication::topLevelWidgets())
        QVERIFY2(!widget->isVisible(), qPrintable(widget->objectName() + " left open"));
}

void tst_WizardTour::everyStepFits()
{
    Environment env;
    prepare(env, env.makeContacts(QStringLiteral("contacts"), 2500));

    frmDBImport form;
    form.show();
    QVERIFY(QTest::qWaitForWindowExposed(&form));
    const QRect screen = form.screen()->availableGeometry();
    QVERIFY2(screen.contains(form.frameGeometry()),
             qPrintable(QStringLiteral("%1x%2 on a %3x%4 screen")
                            .arg(form.frameGeometry().width())
                            .arg(form.frameGeometry().height())
                            .arg(screen.width())
                            .arg(screen.height())));

    const char* shots[] = {"step1-connection", "step2-records", "step3-mapping", "step4-group",
                           "step5-import"};
    for (int step = 0; step < 5; ++step) {
        if (step > 0)
            click(&form, "cmdNext");
        QCOMPARE(currentStep(&form), step);
        QWidget* page = control<QWidget>(
            &form, QByteArray("fmeHolder_" + QByteArray::number(step)).constData());
        // Layouts settle once the events of the step change have run.
        const auto cutOnStep = [&] {
            return cutCaptions(&form, page) +
                   cutCaptions(&form, control<QWidget>(&form, "picBanner"));
        };
        QTRY_VERIFY2(cutOnStep().isEmpty(), qPrintable(cutOnStep().join(QStringLiteral(", "))));
        QCOMPARE(control<QAbstractButton>(&form, "cmdNext")->minimumSizeHint().width() <=
                     control<QAbstractButton>(&form, "cmdNext")->width(),
                 true);
        if (step == 2) {
            // The rows line up in two columns and the list scrolls.
            int labelX = -1;
            int comboX = -1;
            for (const HostField& field : kHostFields) {
                const int lx = control<QLabel>(&form, field.labelName)->x();
                const int cx = control<QComboBox>(&form, field.comboName)->x();
                QVERIFY(labelX < 0 || lx == labelX);
                QVERIFY(comboX < 0 || cx == comboX);
                labelX = lx;
                comboX = cx;
            }
            QVERIFY(labelX < comboX);
            auto* bar = control<QScrollBar>(&form, "vscMapFields");
            QVERIFY(bar->maximum() > 0);
            saveShot(&form, QString::fromLatin1(shots[step]));
            bar->setValue(bar->maximum());
            saveShot(&form, QStringLiteral("step3-mapping-scrolled"));
            bar->setValue(0);
            continue;
        }
        saveShot(&form, QString::fromLatin1(shots[step]));
    }
    QCOMPARE(text(&form, "lblAdded"), QStringLiteral("2500"));
    form.close();
}

void tst_WizardTour::groupDialogFits()
{
    Environment env;
    prepare(env, env.makeContacts(QStringLiteral("contacts"), 3));
    frmDBImport form;
    form.show();
    QVERIFY(QTest::qWaitForWindowExposed(&form));
    for (int i = 0; i < 3; ++i)
        click(&form, "cmdNext");
    QCOMPARE(currentStep(&form), 3);

    QStringList cut{"not checked"};
    whenModal(QStringLiteral("frmAddModGroup"), [&](QWidget* dialog) {
        QTest::keyClicks(control<QLineEdit>(dialog, "txtGroupName"),
                         QStringLiteral("Spring Leads 2024"));
        cut = cutCaptions(dialog, dialog);
        saveShot(dialog, QStringLiteral("group-dialog"));
        click(dialog, "cmdCancel");
    });
    click(&form, "cmdCreateNewGroup");
    QTRY_VERIFY(!QApplication::activeModalWidget());
    QVERIFY2(cut.isEmpty(), qPrintable(cut.join(QStringLiteral(", "))));
    form.close();
}

void tst_WizardTour::timedImport()
{
    const int benchRows = qEnvironmentVariableIntValue("DBIMPORT_BENCH_ROWS");
    const QString benchDir = qEnvironmentVariable("DBIMPORT_BENCH_DIR");
    Environment env;
    QString source;
    if (benchRows <= 0 || benchDir.isEmpty()) {
        source = env.makeContacts(QStringLiteral("contacts"), 5000);
    } else {
        // Everything in benchDir, for the command-line runner to repeat the same import.
        QDir(benchDir).removeRecursively();
        QVERIFY(QDir().mkpath(benchDir + QStringLiteral("/data")));
        source = benchDir + QStringLiteral("/contacts.db");
        QCOMPARE(BuildSqliteDatabase(source, contactsStatements(benchRows)), QString());
        SetIniFilePath(benchDir + QStringLiteral("/dbimport.ini"));
        SetHostDataFolder(HostForm(benchDir + QStringLiteral("/data")) + QLatin1Char('\\'));
    }
    prepare(env, source);

    frmDBImport form;
    form.show();
    QVERIFY(QTest::qWaitForWindowExposed(&form));
    for (int i = 0; i < 3; ++i)
        click(&form, "cmdNext");
    QCOMPARE(currentStep(&form), 3);

    QElapsedTimer timer;
    timer.start();
    click(&form, "cmdNext");
    const qint64 elapsed = timer.elapsed();

    const QStringList count = SqliteColumn(source, QStringLiteral("SELECT count(*) FROM Contacts"));
    QCOMPARE(count.size(), 1);
    QCOMPARE(text(&form, "lblTotalProcessed"), count.first());
    QCOMPARE(text(&form, "lblCommand"), QStringLiteral("Import Complete ..."));
    QCOMPARE(SqliteColumn(HostDataFolder().isEmpty()
                              ? QString()
                              : NativePath(HostDataFolder()) + QStringLiteral("Customers.gdb"),
                          QStringLiteral("SELECT count(*) FROM Recipients")),
             QStringList{text(&form, "lblAdded")});
    qInfo("wizard import: %s records in %lld ms", qPrintable(count.first()), elapsed);
    form.close();
}

QTEST_MAIN(tst_WizardTour)
#include "tst_wizardtour.moc"
