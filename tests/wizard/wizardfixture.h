#pragma once

// What the wizard's tests share: a private data folder and settings file, a real SQLite
// contacts database, and helpers to reach, press and wait for the form's controls.

#include "sqlitefixture.h"
#include "tempfolder.h"

#include "app/connectionstore.h"
#include "app/importsettings.h"
#include "import/groups.h"
#include "import/hostfields.h"
#include "import/importchoices.h"
#include "util/appglobals.h"
#include "util/scriptedmessageboxes.h"
#include "wizard/frmDBImport.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QStackedWidget>
#include <QTest>
#include <QTimer>

#include <functional>
#include <memory>

namespace wizardtest {

using namespace Qt::StringLiterals;

// Rows of the "Contacts" table besides the valid, distinct addresses.
constexpr int kIllegalRows = 4;
constexpr int kDuplicateRows = 3;

// "Contacts": validRows distinct valid addresses (person<i>@example<i%7>.com), then four
// invalid ones and three that repeat earlier ones (same text, other case, blanks around).
// "Other Table" has a blank in its name and two columns of its own.
inline QStringList contactsStatements(int validRows)
{
    return {
        u"CREATE TABLE Contacts (ID INTEGER PRIMARY KEY, Email TEXT, "
        "\"Full Name\" TEXT, \"First Name\" TEXT, \"Last Name\" TEXT, "
        "Company TEXT, City TEXT, Phone TEXT)"_s,
        u"WITH RECURSIVE seq(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM seq "
        "WHERE i < %1) "
        "INSERT INTO Contacts (Email, \"Full Name\", \"First Name\", \"Last Name\", "
        "Company, City, Phone) SELECT 'person' || i || '@example' || (i % 7) || "
        "'.com', 'Mr Ann' || i || ' Lee', 'Ann' || i, 'Lee', 'Company ' || (i % 13), "
        "'City ' || (i % 5), '+44 20 7946 ' || (1000 + i % 9000) FROM seq"_s.arg(validRows - 1),
        u"INSERT INTO Contacts (Email, \"Full Name\") VALUES "
        "('no-at-sign.example.com', 'No At'), ('user@nodot', 'No Dot'), "
        "('user@host.c', 'Short End'), ('', 'Blank Mail'), "
        "('person0@example0.com', 'Again Zero'), "
        "('PERSON1@EXAMPLE1.COM', 'Upper One'), "
        "(' person2@example2.com ', 'Spaced Two')"_s,
        u"CREATE TABLE \"Other Table\" (\"Mail Address\" TEXT, Name TEXT)"_s,
        u"INSERT INTO \"Other Table\" VALUES ('x@example.org', 'X'), "
        "('y@example.org', 'Y')"_s,
    };
}

// A private data folder, settings file and message boxes for one test.
class Environment
{
public:
    Environment() : m_guard(&boxes)
    {
        QDir().mkpath(folder.filePath(u"data"_s));
        SetIniFilePath(folder.filePath(u"dbimport.ini"_s));
        SetHostDataFolder(HostForm(folder.filePath(u"data"_s)) + QLatin1Char('\\'));
    }
    ~Environment()
    {
        SetIniFilePath(QString());
        SetHostDataFolder(QString());
    }
    static QString sqliteConnection(const QString& file)
    {
        return u"Provider=SQLite;Data Source="_s + file;
    }

    void addConnection(const QString& name, const QString& conString)
    {
        QString message;
        if (!MaintainDSN(name, conString, ConnectionAction::Add, message))
            QTest::qFail(qPrintable(message), __FILE__, __LINE__);
    }

    // A connection (by default "Sales") on a new contacts database; returns its path.
    QString addSales(int validRows, const QString& name = u"Sales"_s)
    {
        const QString path = folder.filePath(name + u".db"_s);
        const QString error = BuildSqliteDatabase(path, contactsStatements(validRows));
        if (!error.isEmpty())
            QTest::qFail(qPrintable(error), __FILE__, __LINE__);
        addConnection(name, sqliteConnection(path));
        return path;
    }

    void createGroups(const QStringList& groups)
    {
        for (const QString& group : groups) {
            if (!CreateGroup(group, HostDataFolder()))
                QTest::qFail(qPrintable("cannot create " + group), __FILE__, __LINE__);
        }
    }

    // Saves choices for a connection already added.
    void saveChoices(ImportChoices& choices)
    {
        long number = 0;
        QString message;
        if (!SaveImportSettings(choices, number, message))
            QTest::qFail(qPrintable(message), __FILE__, __LINE__);
    }

    QString groupFile(const QString& group) const
    {
        return folder.filePath(u"data/"_s + group + u".gdb"_s);
    }
    QString logFile() const { return folder.filePath(u"data/Database Import Log File.txt"_s); }

    TempFolder folder;
    ScriptedMessageBoxes boxes;

private:
    MessageBoxesGuard m_guard;
};

// The usual choices: the Contacts table with e-mail, full name, company, city and phone.
inline ImportChoices contactsChoices(const QString& connection, const QString& group)
{
    ImportChoices choices;
    choices.DSNName = connection;
    choices.SelectedTable = u"Contacts"_s;
    for (const char* pair : {"EMailAddress=Email", "FullNameMacro=Full Name", "Company=Company",
                             "City=City", "Telephone=Phone"}) {
        const QStringList parts = QString::fromLatin1(pair).split(QLatin1Char('='));
        choices.FieldMappings.Add(parts[0], parts[1]);
    }
    choices.VTGroup = group;
    return choices;
}

// Used as every test's cleanup: a test closes whatever it opened.
inline void verifyNothingOpen()
{
    for (QWidget* widget : QApplication::topLevelWidgets())
        QVERIFY2(!widget->isVisible(), qPrintable(widget->objectName() + " left open"));
}

template <class T> T* control(const QWidget* form, const char* name)
{
    T* widget = form->findChild<T*>(QString::fromLatin1(name));
    if (!widget)
        qFatal("the form has no %s named %s", T::staticMetaObject.className(), name);
    return widget;
}

inline int currentStep(const QWidget* form)
{
    return control<QStackedWidget>(form, "stkSteps")->currentIndex();
}

inline void click(const QWidget* form, const char* button)
{
    auto* target = control<QAbstractButton>(form, button);
    // An option button or check box reacts on its indicator and caption, not on the empty
    // width a layout may give it: press its indicator.
    if (target->inherits("QRadioButton") || target->inherits("QCheckBox"))
        QTest::mouseClick(target, Qt::LeftButton, {}, QPoint(6, target->height() / 2));
    else
        QTest::mouseClick(target, Qt::LeftButton);
}

inline QString text(const QWidget* form, const char* label)
{
    return control<QLabel>(form, label)->text();
}

// Runs action on the modal window named objectName as soon as it is up (the caller then
// opens it); gives up after five seconds so a missing dialog fails instead of hanging.
inline void whenModal(const QString& objectName, std::function<void(QWidget*)> action)
{
    auto* timer = new QTimer(qApp);
    const QDeadlineTimer deadline(5000);
    QObject::connect(timer, &QTimer::timeout, timer, [=] {
        QWidget* modal = QApplication::activeModalWidget();
        const bool up = modal && modal->objectName() == objectName;
        if (!up && !deadline.hasExpired())
            return;
        timer->stop();
        timer->deleteLater();
        if (up)
            action(modal);
        else if (modal) // whatever else is open would keep the test waiting for ever
            modal->close();
        if (!up)
            QTest::qFail(qPrintable(objectName + " did not open"), __FILE__, __LINE__);
    });
    timer->start(10);
}

// Calls action once, at the first turn of the event loop on which condition holds (during an
// import: at one of its yields); returns the polling timer so the test can delete it.
inline QTimer* whenTrue(std::function<bool()> condition, std::function<void()> action)
{
    auto* timer = new QTimer(qApp);
    QObject::connect(timer, &QTimer::timeout, timer, [=] {
        if (condition()) {
            timer->stop();
            action();
        }
    });
    timer->start(0);
    return timer;
}

inline std::unique_ptr<frmDBImport> openWizard()
{
    auto form = std::make_unique<frmDBImport>();
    form->resize(760, 560);
    form->show();
    if (!QTest::qWaitForWindowActive(form.get()))
        QTest::qFail("the wizard was not shown", __FILE__, __LINE__);
    return form;
}

// Presses Next until the wizard shows step; false when a step refused.
inline bool nextTo(const QWidget* form, int step)
{
    while (currentStep(form) < step) {
        const int before = currentStep(form);
        click(form, "cmdNext");
        if (currentStep(form) != before + 1)
            return false;
    }
    return currentStep(form) == step;
}

// The wizard on the Group step for "Sales" (validRows contacts), the Groups created and the
// usual choices saved with destination group.
inline std::unique_ptr<frmDBImport>
wizardOnGroupStep(Environment& env, int validRows, const QStringList& groups, const QString& group)
{
    env.addSales(validRows);
    env.createGroups(groups);
    ImportChoices saved = contactsChoices(u"Sales"_s, group);
    env.saveChoices(saved);
    auto form = openWizard();
    if (!nextTo(form.get(), 3))
        QTest::qFail("the wizard did not reach the Group step", __FILE__, __LINE__);
    return form;
}

inline QComboBox* mappingCombo(const QWidget* form, const char* key)
{
    for (const HostField& field : kHostFields) {
        if (qstrcmp(field.key, key) == 0)
            return control<QComboBox>(form, field.comboName);
    }
    qFatal("no host field %s", key);
}

inline QStringList comboItems(const QComboBox* combo)
{
    QStringList items;
    for (int i = 0; i < combo->count(); ++i)
        items << combo->itemText(i);
    return items;
}

inline int countRows(const QString& groupFile)
{
    const QStringList values = SqliteColumn(groupFile, u"SELECT count(*) FROM Recipients"_s);
    return values.size() == 1 ? values.first().toInt() : -1;
}

inline QString readLog(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()) : QString();
}

} // namespace wizardtest
