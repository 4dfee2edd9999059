// Walks the wizard from a connection to a finished import, checking that every caption and
// the window fit; saves pictures to DBIMPORT_SCREENSHOT_DIR when set (scripts/screenshots.sh).
// timedImport times one import for scripts/bench-wizard.sh.

#include "wizardfixture.h"

#include <QCheckBox>
#include <QElapsedTimer>
#include <QProcess>
#include <QProgressBar>
#include <QScreen>
#include <QTimer>
#include <QScrollBar>
#include <QTreeWidget>

using namespace wizardtest;

namespace {

// A demo-like set-up; with DBIMPORT_BENCH_ROWS and DBIMPORT_BENCH_DIR set, it goes in that
// folder instead, for the command-line runner to repeat the same import. Returns the source.
QString prepare(Environment& env, int validRows, const QString& connection = u"Demo contacts"_s,
                const QString& group = u"Customers"_s)
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
    env.addConnection(connection, Environment::sqlite(source));
    env.addConnection(u"Members (PostgreSQL)"_s, u"Provider=MSDASQL;Data Source=members"_s);
    env.createGroups({group, "Newsletter", "Search Results"});
    env.saveChoices(contactsChoices(connection, group));
    return source;
}

} // namespace

class tst_WizardTour : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }

    void everyStepFits_data()
    {
        QTest::addColumn<QString>("connection");
        QTest::addColumn<QString>("group");
        QTest::newRow("short names") << u"Demo contacts"_s << u"Customers"_s;
        const QString longer = u" with a name much longer than any window is wide"_s.repeated(3);
        QTest::newRow("long names") << u"Demo contacts"_s + longer << u"Customers"_s + longer;
    }

    // From a connection to the end of an import into a Group, every caption and the window
    // fitting the screen at every step; long names are shortened, not widening the window.
    void everyStepFits()
    {
        QFETCH(QString, connection);
        QFETCH(QString, group);
        const bool pictures = QTest::currentDataTag() == "short names"_L1;
        const int valid = 2500;
        const int total = valid + 4 + 3; // and four invalid addresses, three repeated ones
        Environment env;
        prepare(env, valid, connection, group);
        frmDBImport form;
        form.show();
        form.activateWindow(); // the focus check needs it; a bare X server activates nothing itself
        QVERIFY(QTest::qWaitForWindowActive(&form));
        // The version shown is the one the build's project declares.
        QCOMPARE(form.windowTitle(), u"Veltrano - Database Import v" DBIMPORT_VERSION_STRING ""_s);
        const QRect screen = form.screen()->availableGeometry();
        const int width = form.width();
        const auto fits = [&] {
            return screen.contains(form.frameGeometry()) && form.width() == width &&
                   screen.contains(QRect(button(&form, "cmdClose")->mapToGlobal(QPoint(0, 0)),
                                         button(&form, "cmdClose")->size()));
        };
        qInfo("window %dx%d on a free area of %dx%d", form.width(), form.height(), screen.width(),
              screen.height());
        auto* list = control<QTreeWidget>(&form, "lvwDSN");
        QCOMPARE(list->currentItem(), list->topLevelItem(0));
        if (!pictures && screen.width() > width + 200) {
            // Widened, the Name column takes room for the long name, leaving some to the other.
            const int narrow = list->columnWidth(0);
            form.resize(screen.width() - 40, form.height());
            QTRY_VERIFY(list->columnWidth(0) > narrow);
            QVERIFY(list->columnWidth(0) < list->viewport()->width() * 3 / 4);
            form.resize(width, form.height());
        }

        const char* shots[] = {"step1-connection", "step2-records", "step3-mapping", "step4-group",
                               "step5-import"};
        const char* next[] = {"&Next >>", "&Next >>", "&Next >>", "S&tart", "S&tart (off)"};
        for (int step = 0; step < 5; ++step) {
            QCOMPARE(shown(&form, {"cmdNext", "lblStepMofN"}, step),
                     (QStringList{next[step], u"Step %1 of 5"_s.arg(step + 1)}));
            // Layouts settle once the events of the step change have run.
            QTRY_VERIFY2(cutCaptions(&form).isEmpty(), qPrintable(cutCaptions(&form)));
            QVERIFY2(
                fits(),
                qPrintable(u"step %1: %2x%3"_s.arg(step + 1).arg(form.width()).arg(form.height())));
            saveShot(&form, pictures ? QString::fromLatin1(shots[step]) : QString());
            if (step == 2) { // a row out of sight comes into view by the scroll bar or the focus
                auto* bar = control<QScrollBar>(&form, "vscMapFields");
                auto* area = control<QWidget>(&form, "picScrollableArea");
                QVERIFY(bar->maximum() > 0);
                bar->setValue(bar->maximum());
                QCOMPARE(area->geometry().bottom(),
                         control<QWidget>(&form, "picScrollableContainer")->rect().bottom());
                saveShot(&form, pictures ? u"step3-mapping-scrolled"_s : QString());
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

        // A shortened name shows itself whole in the tool tip.
        QCOMPARE(shown(&form, {"lblImportingFrom", "lblImportingTo"})
                     << control<QLabel>(&form, "lblImportingTo")->toolTip(),
                 (QStringList{"Database - " + connection, "Veltrano Group - " + group,
                              pictures ? QString() : "Veltrano Group - " + group}));
        QCOMPARE(shown(&form, {"lblTotalProcessed", "lblAdded", "lblDuplicates", "lblIllegal"}),
                 (QStringList{QString::number(total), QString::number(valid), "3", "4"}));
        QCOMPARE(control<QProgressBar>(&form, "prgProcess")->value(), total);
        QCOMPARE(countRows(env.groupFile(group)), valid);
    }

    // The walk above on a 1366x768 laptop screen at 100%, 150% and 200% scaling, each in a
    // process of its own, since the scale is fixed when the application starts.
    void scaledScreens()
    {
        if (qEnvironmentVariableIsSet("QT_SCALE_FACTOR"))
            QSKIP("already running scaled");
        TempFolder folder;
        const QString config = folder.writeFile(
            u"screen.json"_s, R"({"screens": [{"name": "Laptop", "x": 0, "y": 0, "width": 1366,
            "height": 768, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1}]})");
        QProcess walk;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen:configfile="_s + config);
        environment.remove(u"DBIMPORT_SCREENSHOT_DIR"_s);
        walk.setProcessChannelMode(QProcess::MergedChannels);
        // The dialogs' own walk is in the program next to this one.
        const QString self = QCoreApplication::applicationFilePath();
        for (const QString& scale : {u"1"_s, u"1.5"_s, u"2"_s}) {
            environment.insert(u"QT_SCALE_FACTOR"_s, scale);
            walk.setProcessEnvironment(environment);
            QString output;
            for (const auto& [program, function] :
                 {std::pair{self, u"everyStepFits"_s},
                  std::pair{QFileInfo(self).dir().filePath(u"tst_dialogkeys"_s), u"dialogs"_s}}) {
                walk.start(program, {function});
                QVERIFY(walk.waitForFinished(300000));
                output += QString::fromLocal8Bit(walk.readAll());
                QVERIFY2(walk.exitStatus() == QProcess::NormalExit && walk.exitCode() == 0,
                         qPrintable(u"at "_s + scale + u": "_s + output));
            }
            const QRegularExpression size(u"window \\d+x\\d+ on a free area of \\d+x\\d+"_s);
            qInfo("at %s: %s", qPrintable(scale), qPrintable(size.match(output).captured()));
        }
    }

    void timedImport()
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
    }
};

QTEST_MAIN(tst_WizardTour)
#include "tst_wizardtour.moc"
