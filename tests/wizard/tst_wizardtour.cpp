// Walks the five steps and the Group dialog checking that every caption fits and the window
// fits the screen; saves pictures to DBIMPORT_SCREENSHOT_DIR when set (scripts/screenshots.sh).
// timedImport times one import for scripts/bench-wizard.sh.

#include "wizardfixture.h"

#include "util/nativepath.h"
#include "wizard/frmAddModGroup.h"

#include <QElapsedTimer>
#include <QLineEdit>
#include <QScreen>
#include <QScrollBar>

using namespace wizardtest;

namespace {

void saveShot(QWidget* widget, const QString& name)
{
    const QString dir = qEnvironmentVariable("DBIMPORT_SCREENSHOT_DIR");
    if (dir.isEmpty())
        return;
    QDir().mkpath(dir);
    QCoreApplication::processEvents();
    if (!widget->grab().save(QDir(dir).filePath(name + u".png"_s)))
        QTest::qFail(qPrintable("cannot save " + name), __FILE__, __LINE__);
}

// The shown labels, buttons and combos of window too narrow (a wrapped label: too low) for
// their text.
QStringList cutCaptions(const QWidget* window)
{
    QStringList cut;
    for (const QWidget* w : window->findChildren<QWidget*>()) {
        if (!w->isVisibleTo(window))
            continue;
        const auto* label = qobject_cast<const QLabel*>(w);
        bool fits = w->minimumSizeHint().width() <= w->width();
        if (label && label->wordWrap())
            fits = label->heightForWidth(label->width()) <= label->height();
        if ((label && !label->text().isEmpty()) || w->inherits("QAbstractButton") ||
            w->inherits("QComboBox"))
            if (!fits)
                cut << u"%1 (%2 of %3 wide)"_s.arg(w->objectName())
                           .arg(w->width())
                           .arg(w->minimumSizeHint().width());
    }
    return cut;
}

// A demo-like set-up: one connection on validRows contacts with its saved choices, another
// one and three Groups. With DBIMPORT_BENCH_ROWS and DBIMPORT_BENCH_DIR set, everything goes
// in that folder instead, for the command-line runner to repeat the same import. Returns the
// source database's path.
QString prepare(Environment& env, int validRows)
{
    const int benchRows = qEnvironmentVariableIntValue("DBIMPORT_BENCH_ROWS");
    const QString benchDir = qEnvironmentVariable("DBIMPORT_BENCH_DIR");
    QString source;
    if (benchRows > 0 && !benchDir.isEmpty()) {
        QDir(benchDir).removeRecursively();
        QDir().mkpath(benchDir + u"/data"_s);
        source = benchDir + u"/contacts.db"_s;
        const QString error = BuildSqliteDatabase(source, contactsStatements(benchRows));
        if (!error.isEmpty())
            QTest::qFail(qPrintable(error), __FILE__, __LINE__);
        SetIniFilePath(benchDir + u"/dbimport.ini"_s);
        SetHostDataFolder(HostForm(benchDir + u"/data"_s) + QLatin1Char('\\'));
        env.addConnection(u"Demo contacts"_s, Environment::sqliteConnection(source));
    } else {
        source = env.addSales(validRows, u"Demo contacts"_s);
    }
    env.addConnection(u"Members (PostgreSQL)"_s, u"Provider=MSDASQL;Data Source=members"_s);
    env.createGroups({"Customers", "Newsletter", "Search Results"});
    ImportChoices saved = contactsChoices(u"Demo contacts"_s, u"Customers"_s);
    env.saveChoices(saved);
    return source;
}

} // namespace

class tst_WizardTour : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }
    void everyStepFits();
    void groupDialogFits();
    void timedImport();
};

void tst_WizardTour::everyStepFits()
{
    Environment env;
    prepare(env, 2500);
    frmDBImport form;
    form.show();
    QVERIFY(QTest::qWaitForWindowExposed(&form));
    const QRect screen = form.screen()->availableGeometry();
    QVERIFY2(screen.contains(form.frameGeometry()),
             qPrintable(u"%1x%2 on a %3x%4 screen"_s.arg(form.frameGeometry().width())
                            .arg(form.frameGeometry().height())
                            .arg(screen.width())
                            .arg(screen.height())));

    const char* shots[] = {"step1-connection", "step2-records", "step3-mapping", "step4-group",
                           "step5-import"};
    for (int step = 0; step < 5; ++step) {
        if (step > 0)
            click(&form, "cmdNext");
        QCOMPARE(currentStep(&form), step);
        // Layouts settle once the events of the step change have run.
        QTRY_VERIFY2(cutCaptions(&form).isEmpty(), qPrintable(cutCaptions(&form).join(", ")));
        saveShot(&form, QString::fromLatin1(shots[step]));
        if (step == 2) {
            auto* bar = control<QScrollBar>(&form, "vscMapFields");
            QVERIFY(bar->maximum() > 0);
            bar->setValue(bar->maximum());
            saveShot(&form, u"step3-mapping-scrolled"_s);
            bar->setValue(0);
        }
    }
    QCOMPARE(text(&form, "lblAdded"), u"2500"_s);
    form.close();
}

void tst_WizardTour::groupDialogFits()
{
    Environment env;
    frmAddModGroup dialog;
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    QTest::keyClicks(control<QLineEdit>(&dialog, "txtGroupName"), u"Spring Leads 2024"_s);
    QTRY_VERIFY2(cutCaptions(&dialog).isEmpty(), qPrintable(cutCaptions(&dialog).join(", ")));
    saveShot(&dialog, u"group-dialog"_s);
    dialog.close();
}

void tst_WizardTour::timedImport()
{
    Environment env;
    const QString source = prepare(env, 5000);
    auto form = openWizard();
    QVERIFY(nextTo(form.get(), 3));

    QElapsedTimer timer;
    timer.start();
    click(form.get(), "cmdNext");
    const qint64 elapsed = timer.elapsed();

    const QStringList count = SqliteColumn(source, u"SELECT count(*) FROM Contacts"_s);
    QCOMPARE(count.size(), 1);
    QCOMPARE(text(form.get(), "lblTotalProcessed"), count.first());
    QCOMPARE(text(form.get(), "lblCommand"), u"Import Complete ..."_s);
    QCOMPARE(countRows(NativePath(HostDataFolder()) + u"Customers.gdb"_s),
             text(form.get(), "lblAdded").toInt());
    qInfo("wizard import: %s records in %lld ms", qPrintable(count.first()), elapsed);
    form->close();
}

QTEST_MAIN(tst_WizardTour)
#include "tst_wizardtour.moc"
