// Walks the wizard from a connection to a finished import, and the Group dialog, checking
// that every caption and the window fit; saves pictures to DBIMPORT_SCREENSHOT_DIR when set
// (scripts/screenshots.sh). timedImport times one import for scripts/bench-wizard.sh.

#include "wizardfixture.h"

#include "wizard/frmAddModGroup.h"

#include <QCheckBox>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QProgressBar>
#include <QScreen>
#include <QTimer>
#include <QScrollBar>
#include <QTreeWidget>

using namespace wizardtest;

namespace {

void saveShot(QWidget* widget, const QString& name)
{
    const QString dir = qEnvironmentVariable("DBIMPORT_SCREENSHOT_DIR");
    if (dir.isEmpty())
        return;
    QDir().mkpath(dir);
    QCoreApplication::processEvents();
    require(widget->grab().save(QDir(dir).filePath(name + u".png"_s)), "cannot save " + name);
}

// The shown labels, buttons and combos of window too small for their text: too narrow, or
// for wrapping text too low.
QString cutCaptions(const QWidget* window)
{
    QStringList cut;
    for (const QWidget* w : window->findChildren<QWidget*>()) {
        const auto* label = qobject_cast<const QLabel*>(w);
        if (!w->isVisibleTo(window) || (label && label->text().isEmpty()) ||
            !(label || w->inherits("QAbstractButton") || w->inherits("QComboBox")))
            continue;
        if (w->hasHeightForWidth() ? w->heightForWidth(w->width()) > w->height()
                                   : w->minimumSizeHint().width() > w->width())
            cut << u"%1 (%2x%3)"_s.arg(w->objectName()).arg(w->width()).arg(w->height());
    }
    return cut.join(u", ");
}

// A demo-like set-up; with DBIMPORT_BENCH_ROWS and DBIMPORT_BENCH_DIR set, it goes in that
// folder instead, for the command-line runner to repeat the same import. Returns the source.
QString prepare(Environment& env, int validRows)
{
    const int benchRows = qEnvironmentVariableIntValue("DBIMPORT_BENCH_ROWS");
    const QString benchDir = qEnvironmentVariable("DBIMPORT_BENCH_DIR");
    QString source = env.folder.filePath(u"contacts.db"_s);
    if (benchRows > 0 && !benchDir.isEmpty()) {
        QDir(benchDir).removeRecursively();
        QDir().mkpath(benchDir + u"/data"_s);
        SetIniFilePath(benchDir + u"/dbimport.ini"_s);
        SetHostDataFolder(HostForm(benchDir + u"/data"_s) + u'\\');
        source = benchDir + u"/contacts.db"_s;
        validRows = benchRows;
    }
    const QString error = BuildSqliteDatabase(source, contactsStatements(validRows));
    require(error.isEmpty(), error);
    env.addConnection(u"Demo contacts"_s, Environment::sqlite(source));
    env.addConnection(u"Members (PostgreSQL)"_s, u"Provider=MSDASQL;Data Source=members"_s);
    env.createGroups({"Customers", "Newsletter", "Search Results"});
    env.saveChoices(contactsChoices(u"Demo contacts"_s, u"Customers"_s));
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

// From a connection to the end of an import into a Group, every caption and the window fitting.
void tst_WizardTour::everyStepFits()
{
    const int valid = 2500;
    const int total = valid + 4 + 3; // and four invalid addresses, three repeated ones
    Environment env;
    prepare(env, valid);
    frmDBImport form;
    form.show();
    form.activateWindow(); // the focus check needs it; a bare X server activates nothing itself
    QVERIFY(QTest::qWaitForWindowActive(&form));
    QVERIFY(form.screen()->availableGeometry().contains(form.frameGeometry()));
    auto* list = control<QTreeWidget>(&form, "lvwDSN");
    QCOMPARE(list->currentItem(), list->topLevelItem(0));

    const char* shots[] = {"step1-connection", "step2-records", "step3-mapping", "step4-group",
                           "step5-import"};
    for (int step = 0; step < 5; ++step) {
        QVERIFY(nextTo(&form, step));
        QCOMPARE(button(&form, "cmdPrev")->isEnabled(), step != 0);
        QCOMPARE(button(&form, "cmdNext")->isEnabled(), step != 4);
        QCOMPARE(button(&form, "cmdNext")->text(), step >= 3 ? u"S&tart"_s : u"&Next >>"_s);
        QCOMPARE(text(&form, "lblStepMofN"), u"Step %1 of 5"_s.arg(step + 1));
        // Layouts settle once the events of the step change have run.
        QTRY_VERIFY2(cutCaptions(&form).isEmpty(), qPrintable(cutCaptions(&form)));
        saveShot(&form, QString::fromLatin1(shots[step]));
        if (step == 2) { // a row out of sight comes into view by the scroll bar or the focus
            auto* bar = control<QScrollBar>(&form, "vscMapFields");
            auto* area = control<QWidget>(&form, "picScrollableArea");
            QVERIFY(bar->maximum() > 0);
            bar->setValue(bar->maximum());
            QCOMPARE(area->geometry().bottom(),
                     control<QWidget>(&form, "picScrollableContainer")->rect().bottom());
            saveShot(&form, u"step3-mapping-scrolled"_s);
            combo(&form, "cmbEmail")->setFocus();
            QTRY_COMPARE(area->y(), 0);
        }
        if (step == 3) { // the replace option wraps, and its second line is part of it
            auto* replace = control<QCheckBox>(&form, "chkReplace");
            QVERIFY(replace->heightForWidth(replace->width()) > replace->heightForWidth(4000));
            const QPoint secondLine(replace->width() / 2, replace->height() - 4);
            QTest::mouseClick(replace, Qt::LeftButton, {}, secondLine);
            QVERIFY(replace->isChecked());
            QTest::mouseClick(replace, Qt::LeftButton, {}, secondLine);
        }
    }

    QCOMPARE(text(&form, "lblImportingFrom"), u"Database - Demo contacts"_s);
    QCOMPARE(text(&form, "lblImportingTo"), u"Veltrano Group - Customers"_s);
    QCOMPARE(text(&form, "lblTotalProcessed"), QString::number(total));
    QCOMPARE(text(&form, "lblAdded"), QString::number(valid));
    QCOMPARE(text(&form, "lblDuplicates"), u"3"_s);
    QCOMPARE(text(&form, "lblIllegal"), u"4"_s);
    QCOMPARE(text(&form, "lblCommand"), u"Import Complete ..."_s);
    QCOMPARE(control<QProgressBar>(&form, "prgProcess")->value(), total);
    QCOMPARE(button(&form, "cmdClose")->text(), u"&Close"_s);
    QCOMPARE(env.boxes.texts(), QStringList{u"Would you like to review the log file now?"_s});

    const QString group = env.groupFile(u"Customers"_s);
    QCOMPARE(countRows(group), valid);
    QCOMPARE(SqliteColumn(group, u"SELECT Title || '|' || FirstName || '|' || LastName || '|' "
                                 "|| Company || '|' || City || '|' || Telephone FROM "
                                 "Recipients WHERE EmailAddress = 'person12@example5.com'"_s),
             QStringList{"Mr|Ann12|Lee|Company 12|City 2|+44 20 7946 1012"});
    form.close();
}

void tst_WizardTour::groupDialogFits()
{
    Environment env;
    frmAddModGroup dialog;
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    QTest::keyClicks(control<QLineEdit>(&dialog, "txtGroupName"), u"Spring Leads 2024"_s);
    QTRY_VERIFY2(cutCaptions(&dialog).isEmpty(), qPrintable(cutCaptions(&dialog)));
    saveShot(&dialog, u"group-dialog"_s);
    dialog.close();
}

void tst_WizardTour::timedImport()
{
    Environment env;
    const QString source = prepare(env, 5000);
    auto form = openWizard(3);
    // The longest the window went without handling events: a repaint or Cancel waits that long.
    QElapsedTimer sinceTick;
    qint64 longestWait = 0;
    QTimer ticker;
    ticker.setInterval(5);
    QObject::connect(&ticker, &QTimer::timeout,
                     [&] { longestWait = std::max(longestWait, sinceTick.restart()); });
    QElapsedTimer timer;
    timer.start();
    sinceTick.start();
    ticker.start();
    click(form.get(), "cmdNext");
    const qint64 elapsed = timer.elapsed();
    ticker.stop();
    const QString read = text(form.get(), "lblTotalProcessed");
    QCOMPARE(read, SqliteColumn(source, u"SELECT count(*) FROM Contacts"_s).value(0));
    QCOMPARE(text(form.get(), "lblCommand"), u"Import Complete ..."_s);
    qInfo("wizard import: %s records in %lld ms", qPrintable(read), elapsed);
    qInfo("wizard longest wait for events: %lld ms", longestWait);
    form->close();
}

QTEST_MAIN(tst_WizardTour)
#include "tst_wizardtour.moc"
