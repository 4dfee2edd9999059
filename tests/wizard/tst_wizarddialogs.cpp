// The dialogs the wizard opens from its steps: frmDSN behind the connection step's New, Edit,
// Delete and Examine buttons, with a connection made and imported from entirely through the
// wizard; and the Group dialog, on its own and from the Group step.

#include "wizardfixture.h"

#include "datarow.h"
#include "mariadbtestserver.h"
#include "odbcenvironment.h"

#include "wizard/frmAddModGroup.h"

#include <QLineEdit>

using namespace wizardtest;

namespace {

QStringList listed(const QWidget* form)
{
    QStringList rows;
    const QTreeWidget* list = control<QTreeWidget>(form, "lvwDSN");
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        rows << list->topLevelItem(i)->text(0) + u" | "_s + list->topLevelItem(i)->text(1);
    return rows;
}

void typeInto(QWidget* dialog, const char* name, const QString& text)
{
    auto* box = control<QLineEdit>(dialog, name);
    box->setFocus();
    box->selectAll();
    QTest::keyClick(box, Qt::Key_Delete);
    QTest::keyClicks(box, text);
}

// Presses button on the connection step, types name and string into frmDSN (null: leave as
// opened) and presses OK; a dialog that refuses is then cancelled. The boxes shown.
QStringList useDialog(const QWidget* form, Environment& env, const char* button,
                      const QString& name, const QString& conString, QString* shown = nullptr)
{
    env.boxes.clear();
    whenModal(u"frmDSN"_s, [&](QWidget* dialog) {
        require(QTest::qWaitForWindowActive(dialog), u"frmDSN is not active"_s);
        if (shown)
            *shown = control<QLineEdit>(dialog, "txtConStr")->text();
        if (!name.isNull())
            typeInto(dialog, "txtDSN", name);
        if (!conString.isNull())
            typeInto(dialog, "txtConStr", conString);
        click(dialog, "cmdOK");
        if (dialog->isVisible())
            click(dialog, "cmdClose");
    });
    click(form, button);
    return env.boxes.texts();
}

// Types text key by key; a character without a key of its own on a US keyboard arrives as
// a key event carrying just the character, as an input method delivers it.
void typeText(QWidget* widget, const QString& text)
{
    for (QChar c : text) {
        if (c.unicode() < 0x80)
            QTest::keyClick(widget, c.toLatin1());
        else
            QTest::sendKeyEvent(QTest::Click, widget, Qt::Key_unknown, QString(c), {});
    }
}

} // namespace

class tst_WizardDialogs : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }

    void newConnectionChecks_data()
    {
        QTest::addColumn<int>("existing"); // connections stored before
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("conString");
        QTest::addColumn<QString>("message"); // empty: stored
        const QString invalid =
            u"The connection string you have entered does not appear to be valid."_s;
        DataRow("no keyword", 0, "Sales", "Driver={SQLite3};Database=/x.db", invalid);
        DataRow("empty string fails the keyword test first", 0, "Sales", "", invalid);
        DataRow("no name", 0, "  ", "DSN=Sales",
                "Please enter/create a descriptive name for this connection string.");
        DataRow("lower-case keyword, blanks trimmed", 0, "  Sales ", " dsn=Sales;pwd={a;b} ", "");
        DataRow("data source keyword", 0, "Sales", "Provider=SQLite;Data Source=/x.db", "");
        DataRow("every slot in use: silently not stored", 50, "Extra", "DSN=extra", "");
    }

    void newConnectionChecks()
    {
        QFETCH(int, existing);
        QFETCH(QString, name);
        QFETCH(QString, conString);
        QFETCH(QString, message);
        Environment env;
        for (int n = 1; n <= existing; ++n)
            env.addConnection(u"C%1"_s.arg(n), u"DSN=c%1"_s.arg(n));
        auto form = openWizard();
        const QByteArray before = env.folder.readFile(u"dbimport.ini"_s);
        QCOMPARE(useDialog(form.get(), env, "cmdNewDSN", name, conString),
                 message.isEmpty() ? QStringList() : QStringList(message));
        const QList<DSNEntry> stored = UpdateDSNListFromIni();
        const bool added = message.isEmpty() && existing < 50;
        QCOMPARE(u"%1 stored, %2 listed"_s.arg(stored.size()).arg(listed(form.get()).size()),
                 u"%1 stored, %1 listed"_s.arg(existing + added));
        if (added)
            QCOMPARE(stored.last().name + u'|' + stored.last().conString,
                     name.trimmed() + u'|' + conString.trimmed());
        else
            QCOMPARE(env.folder.readFile(u"dbimport.ini"_s), before);
    }

    // On an empty list the buttons only say so. The list and the dialog hide the password, yet
    // an edit stores the string as it was; an edit that changes nothing writes nothing; one the
    // builder cannot read is refused.
    void editKeepsTheExactString()
    {
        Environment env;
        auto form = openWizard();
        for (const char* name : {"cmdEditDSN", "cmdDeleteDSN", "cmdExamine"})
            click(form.get(), name);
        QCOMPARE(env.boxes.texts(),
                 QStringList({u"There are no database connections configured to Edit, select New "
                              "to create one."_s,
                              u"There are no database connections configured to Delete."_s,
                              u"There are no database connections configured to Examine."_s}));
        QVERIFY(std::all_of(env.boxes.shown().begin(), env.boxes.shown().end(),
                            [](auto& box) { return box.icon == MessageBoxes::Icon::Information; }));
        QVERIFY(!QFile::exists(env.folder.filePath(u"dbimport.ini"_s)));
        form->close();
        const QString secret = u"DSN=Sales;UID=ann;PWD={se;cr=et}"_s;
        env.addConnection(u"Broken"_s, u"DSN={Sales"_s);
        env.addConnection(u"Sales"_s, secret);
        form = openWizard();
        QTreeWidget* list = control<QTreeWidget>(form.get(), "lvwDSN");
        QCOMPARE(listed(form.get()),
                 QStringList({u"Broken | DSN={Sales"_s, u"Sales | DSN=Sales;UID=ann;PWD=•••"_s}));
        const QByteArray before = env.folder.readFile(u"dbimport.ini"_s);

        // Unchanged: nothing written, and the list is not even refilled (which would select the
        // first row).
        list->setCurrentItem(list->topLevelItem(1));
        QString shown;
        QCOMPARE(useDialog(form.get(), env, "cmdEditDSN", {}, {}, &shown), QStringList());
        QCOMPARE(shown, u"DSN=Sales;UID=ann;PWD=•••"_s);
        QCOMPARE(env.folder.readFile(u"dbimport.ini"_s), before);
        QCOMPARE(list->currentItem(), list->topLevelItem(1));

        QCOMPARE(useDialog(form.get(), env, "cmdEditDSN", u"Sales EU"_s, {}), QStringList());
        QCOMPARE(UpdateDSNListFromIni().at(1).name + u'|' + UpdateDSNListFromIni().at(1).conString,
                 u"Sales EU|"_s + secret);

        pickConnection(form.get(), 0);
        env.boxes.clear();
        whenModal(u"frmDSN"_s, [&](QWidget* dialog) {
            click(dialog, "cmdEdit");
            click(dialog, "cmdClose");
        });
        click(form.get(), "cmdEditDSN");
        QCOMPARE(env.boxes.texts(),
                 QStringList(u"An invalid ADO ConnectionString was detected. Please try again!"_s));
    }

    // Enter on the list, or a double-click on a row, moves on with that connection. On Delete,
    // No keeps the connection; Yes removes it, and when its choices were the ones loaded, the
    // wizard lets go of them too.
    void activateAndDelete()
    {
        Environment env;
        env.addSales(3, u"First"_s);
        env.addSales(3);
        env.saveChoices(contactsChoices(u"Sales"_s, u"Members"_s));
        auto form = openWizard();
        frmDBImport* f = form.get();
        auto* list = control<QTreeWidget>(f, "lvwDSN");
        const QRect row = list->visualItemRect(list->topLevelItem(0));
        // As by hand, the double-click follows a first click on the row.
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, row.center());
        QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, row.center());
        QCOMPARE(f->importChoices().DSNName + QString::number(currentStep(f)), "First1");
        click(f, "cmdPrev");
        pickConnection(f, 1);
        list->setFocus();
        QTest::keyClick(list, Qt::Key_Return);
        QCOMPARE(f->importChoices().DSNName + QString::number(currentStep(f)), "Sales1");
        click(f, "cmdPrev");

        env.boxes.clear();
        env.boxes.queueAnswer(false);
        click(f, "cmdDeleteDSN");
        QCOMPARE(
            env.boxes.texts(),
            QStringList(u"Are you sure you want to remove the database connection - Sales ?"_s));
        QCOMPARE(env.boxes.shown().first().icon, MessageBoxes::Icon::Question);
        QCOMPARE(listed(f).size(), 2);

        env.boxes.queueAnswer(true);
        click(f, "cmdDeleteDSN");
        QVERIFY(listed(f).size() == 1 && listed(f).first().startsWith(u"First | "_s));
        QCOMPARE(UpdateDSNListFromIni().size(), 1); // the store's own test checks the bytes
        QCOMPARE(f->importChoices().DSNName + f->importChoices().SelectedTable, QString());
    }

    // A MariaDB connection composed in the builder from the keyboard, stored and imported from.
    void mariaDbThroughTheWizard()
    {
        MariaDbTestServer server;
        DBIMPORT_REQUIRE_MARIADB(server);
        OdbcEnvironment odbc;
        QVERIFY(odbc.isValid());
        MariaDbTestDatabase database(server);
        QVERIFY2(database.error().isEmpty(), qPrintable(database.error()));
        QCOMPARE(
            database.run({u"CREATE TABLE Contacts (Email varchar(100), `Full Name` varchar(60))"_s,
                          u"INSERT INTO Contacts VALUES ('ann@example.com', 'Ms Ann Lee'), "
                          "('bob@example.org', 'Bob Ray'), ('not-an-address', 'X'), "
                          "('ANN@example.com', 'Again')"_s}),
            QString());
        Environment env;
        env.createGroups({u"Customers"_s});
        auto form = openWizard();
        frmDBImport* f = form.get();

        whenModal(u"frmDSN"_s, [&](QWidget* dialog) {
            typeInto(dialog, "txtDSN", u"Members"_s);
            whenModal(u"frmConnectionBuilder"_s, [&](QWidget* builder) {
                QComboBox* kind = combo(builder, "cmbKind");
                kind->setFocus();
                QTest::keyClick(kind, Qt::Key_Down);
                QTest::keyClick(kind, Qt::Key_Down);
                combo(builder, "cmbDriver")->setCurrentText(u"MariaDB Unicode"_s);
                typeInto(builder, "txtServer", server.host);
                typeInto(builder, "txtPort", QString::number(server.port));
                typeInto(builder, "txtDatabase", database.name());
                typeInto(builder, "txtUser", server.user);
                typeInto(builder, "txtPassword", server.password);
                click(builder, "cmdOK");
            });
            click(dialog, "cmdEdit");
            click(dialog, "cmdOK");
        });
        click(f, "cmdNewDSN");
        QCOMPARE(
            listed(f),
            QStringList(u"Members | Provider=MSDASQL;Driver={MariaDB Unicode};Server=%1;Port=%2;"
                        "Database=%3;UID=%4;PWD=•••;"_s.arg(server.host)
                            .arg(server.port)
                            .arg(database.name(), server.user)));

        // The extra mappings name columns this table lacks: they import as blanks.
        env.saveChoices(contactsChoices(u"Members"_s, u"Customers"_s));
        QVERIFY(nextTo(f, 4));
        QCOMPARE(SqliteColumn(env.groupFile(u"Customers"_s),
                              u"SELECT EmailAddress || ' ' || LastName FROM Recipients"_s),
                 (QStringList{"ann@example.com Lee", "bob@example.org Ray"}));
    }

    void refusedNamesEndOnOK()
    {
        Environment env;
        env.createGroups({u"Members"_s});
        const QByteArray membersBefore = env.folder.readFile(u"data/Members.gdb"_s);
        frmAddModGroup dialog;
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        auto* edit = control<QLineEdit>(&dialog, "txtGroupName");
        // A refused key leaves the box as it was, with a beep and the rule.
        typeText(edit, u"Ab#c_d.e/f\\g\u00e9 19-zZx\b"_s);
        const QString typed = u"Abcdefg 19-zZ"_s;
        QCOMPARE(edit->text(), typed);
        QCOMPARE(env.boxes.beeps(), 6);
        QCOMPARE(env.boxes.texts(),
                 QStringList(6,
                             u"Please enter valid characters only.\r\n\r\nThese include: Spaces, "
                             "letters a to z and A to Z, Numbers 0 to 9 and Hyphens"_s));

        const QString empty = u"Please enter a Group name."_s;
        const QString reserved = u"Sorry but this Group name cannot be used."_s;
        const std::pair<QString, QString> refused[] = {
            {QString(), empty},
            {u"   "_s, empty},
            {u"All Groups"_s, reserved},
            {u"Search Results"_s, reserved},
            {u"  Exclusion List "_s, reserved},
            {u"members"_s, u"A Group by the name: members\r\nalready exists.\r\n\r\nClick OK to "
                           "choose a new name"_s},
            // Pasted names, which no key filter sees: the command line's rules apply.
            {u"../escaped"_s, u"The Group name \"../escaped\" cannot be used: a Group name may not "
                              "hold \"/\", \"\\\" or control characters."_s},
            {u".."_s, u"The Group name \"..\" cannot be used: a Group name may not begin with a "
                      "period."_s},
            {u"\u0141\u00f3d\u017a"_s, u"The Group name \"\u0141\u00f3d\u017a\" cannot be used: "
                                       "the character \u0141 cannot be stored in the settings file "
                                       "(Windows-1252)."_s}};
        for (const auto& [name, message] : refused) {
            edit->setText(name);
            env.boxes.clear();
            click(&dialog, "cmdOK");
            QVERIFY(dialog.isVisible() && dialog.cancelled());
            QCOMPARE(edit->text(), name.trimmed());
            QCOMPARE(env.boxes.texts(), QStringList{message});
            QCOMPARE(env.boxes.shown().first().icon == MessageBoxes::Icon::Information,
                     message.startsWith(u"A Group by"));
        }
        QCOMPARE(LoadVTGroups(), QStringList{"Members"});
        QCOMPARE(QDir(env.folder.path()).entryList({u"*.gdb"_s}, QDir::Files | QDir::Hidden),
                 QStringList());
        QCOMPARE(env.folder.readFile(u"data/Members.gdb"_s), membersBefore);

        edit->clear();
        typeText(edit, u"  "_s + typed);
        click(&dialog, "cmdOK");
        QVERIFY(!dialog.isVisible() && !dialog.cancelled());
        QCOMPARE(dialog.newGroupName(), typed);
        QVERIFY(QFile::exists(env.groupFile(typed)));
    }

    void fromTheWizard()
    {
        Environment env;
        auto form = wizardOnGroupStep(env, 3, {u"Alpha"_s, u"Beta"_s}, u"Beta"_s);
        QComboBox* groups = combo(form.get(), "icmbGroups");
        const auto addGroup = [&](const QString& typed, const char* press) {
            whenModal(u"frmAddModGroup"_s, [=](QWidget* dialog) {
                QTest::keyClicks(control<QLineEdit>(dialog, "txtGroupName"), typed);
                click(dialog, press);
            });
            click(form.get(), "cmdCreateNewGroup");
            QTRY_VERIFY(!QApplication::activeModalWidget());
        };
        addGroup(u"Zeta"_s, "cmdCancel");
        QVERIFY(!QFile::exists(env.groupFile(u"Zeta"_s)));
        QCOMPARE(groups->currentText(), u"Beta"_s);
        // Created, but a reserved name in other case never shows in the list.
        addGroup(u"all groups"_s, "cmdOK");
        QVERIFY(QFile::exists(env.groupFile(u"all groups"_s)));
        QVERIFY(groups->count() == 2 && groups->currentIndex() == -1);
        // The new Group is the import's destination.
        addGroup(u"  New Leads "_s, "cmdOK");
        QVERIFY(groups->count() == 3 && groups->currentText() == u"New Leads"_s);
        QVERIFY(env.boxes.shown().isEmpty());
        click(form.get(), "cmdNext");
        QCOMPARE(countRows(env.groupFile(u"New Leads"_s)), 3);
    }
};

QTEST_MAIN(tst_WizardDialogs)
#include "tst_wizarddialogs.moc"
