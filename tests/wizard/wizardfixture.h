#pragma once

// What the wizard's tests share: a private data folder, settings file and message boxes, a
// real SQLite contacts database, and helpers to reach, press and wait for the form's controls.

#include "formhelpers.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

#include "app/connectionstore.h"
#include "app/importsettings.h"
#include "import/groups.h"
#include "util/appglobals.h"
#include "util/scriptedmessageboxes.h"
#include "wizard/frmDBImport.h"

#include <QAbstractButton>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QStackedWidget>
#include <QTest>
#include <QTreeWidget>

namespace wizardtest {

using namespace Qt::StringLiterals;

inline void require(bool ok, const QString& message)
{
    if (!ok)
        QTest::qFail(qPrintable(message), __FILE__, __LINE__);
}

// "Contacts": validRows distinct valid addresses (person<i>@example<i%7>.com), then four
// invalid ones and three repeats of earlier ones (same text, other case, blanks around).
// "Other Table" has a blank in its name and two columns of its own.
inline QStringList contactsStatements(int validRows)
{
    return {
        u"CREATE TABLE Contacts (ID INTEGER PRIMARY KEY, Email TEXT, \"Full Name\" TEXT, "
        "\"First Name\" TEXT, \"Last Name\" TEXT, Company TEXT, City TEXT, Phone TEXT)"_s,
        u"WITH RECURSIVE seq(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM seq WHERE i < %1) "
        "INSERT INTO Contacts (Email, \"Full Name\", \"First Name\", \"Last Name\", Company, "
        "City, Phone) SELECT 'person' || i || '@example' || (i % 7) || '.com', 'Mr Ann' || i "
        "|| ' Lee', 'Ann' || i, 'Lee', 'Company ' || (i % 13), 'City ' || (i % 5), "
        "'+44 20 7946 ' || (1000 + i % 9000) FROM seq"_s.arg(validRows - 1),
        u"INSERT INTO Contacts (Email, \"Full Name\") VALUES ('no-at-sign.example.com', 'No At'), "
        "('user@nodot', 'No Dot'), ('user@host.c', 'Short End'), ('', 'Blank Mail'), "
        "('person0@example0.com', 'Again Zero'), ('PERSON1@EXAMPLE1.COM', 'Upper One'), "
        "(' person2@example2.com ', 'Spaced Two')"_s,
        u"CREATE TABLE \"Other Table\" (\"Mail Address\" TEXT, Name TEXT)"_s,
        u"INSERT INTO \"Other Table\" VALUES ('x@example.org', 'X'), ('y@example.org', 'Y')"_s,
    };
}

class Environment
{
public:
    Environment() : m_guard(&boxes)
    {
        QDir().mkpath(folder.filePath(u"data"_s));
        SetIniFilePath(folder.filePath(u"dbimport.ini"_s));
        SetHostDataFolder(HostForm(folder.filePath(u"data"_s)) + u'\\');
    }
    ~Environment()
    {
        SetIniFilePath({});
        SetHostDataFolder({});
    }
    static QString sqlite(const QString& file) { return u"Provider=SQLite;Data Source="_s + file; }

    void addConnection(const QString& name, const QString& conString)
    {
        QString message;
        require(MaintainDSN(name, conString, ConnectionAction::Add, message), message);
    }
    QString addSales(int validRows, const QString& name = u"Sales"_s)
    {
        const QString path = folder.filePath(name + u".db"_s);
        const QString error = BuildSqliteDatabase(path, contactsStatements(validRows));
        require(error.isEmpty(), error);
        addConnection(name, sqlite(path));
        return path;
    }
    void createGroups(const QStringList& groups)
    {
        for (const QString& group : groups)
            require(CreateGroup(group, HostDataFolder()), "cannot create " + group);
    }
    void saveChoices(ImportChoices choices)
    {
        long number = 0;
        QString message;
        require(SaveImportSettings(choices, number, message), message);
    }
    QString groupFile(const QString& g) const { return folder.filePath("data/" + g + ".gdb"); }
    QString log() const { return QString(folder.readFile("data/Database Import Log File.txt")); }

    TempFolder folder;
    ScriptedMessageBoxes boxes;

private:
    MessageBoxesGuard m_guard;
};

inline ImportChoices contactsChoices(const QString& connection, const QString& group)
{
    ImportChoices choices;
    choices.DSNName = connection;
    choices.SelectedTable = u"Contacts"_s;
    for (const QString& pair : {u"EMailAddress=Email"_s, u"FullNameMacro=Full Name"_s,
                                u"Company=Company"_s, u"City=City"_s, u"Telephone=Phone"_s})
        choices.FieldMappings.Add(pair.section(u'=', 0, 0), pair.section(u'=', 1));
    choices.VTGroup = group;
    return choices;
}

inline QComboBox* combo(const QWidget* form, const char* name)
{
    return control<QComboBox>(form, name);
}

inline QAbstractButton* button(const QWidget* form, const char* name)
{
    return control<QAbstractButton>(form, name);
}

inline int currentStep(const QWidget* form)
{
    return control<QStackedWidget>(form, "stkSteps")->currentIndex();
}

inline void click(const QWidget* form, const char* name)
{
    QAbstractButton* target = button(form, name);
    // An option button or check box reacts on its indicator and caption only, not on the
    // empty width a layout may give it.
    const bool indicator = target->inherits("QRadioButton") || target->inherits("QCheckBox");
    QTest::mouseClick(target, Qt::LeftButton, {},
                      indicator ? QPoint(6, target->height() / 2) : QPoint());
}

inline QString text(const QWidget* form, const char* label)
{
    return control<QLabel>(form, label)->text();
}

inline void pickConnection(const QWidget* form, int row)
{
    auto* list = control<QTreeWidget>(form, "lvwDSN");
    list->setCurrentItem(list->topLevelItem(row));
}

// Presses Next until the wizard shows step; false when a step refused.
inline bool nextTo(const QWidget* form, int step)
{
    for (int before = currentStep(form); before < step; before = currentStep(form)) {
        click(form, "cmdNext");
        if (currentStep(form) != before + 1)
            return false;
    }
    return currentStep(form) == step;
}

// What the named controls show: a combo's or label's text, a check box as [x] or [ ], a button's
// caption, each marked when it cannot be used or is hidden; on step, reached by Next, if given.
inline QStringList shown(QWidget* form, std::initializer_list<const char*> names, int step = -1)
{
    if (step >= 0 && !nextTo(form, step))
        return {u"step %1 refused"_s.arg(currentStep(form))};
    QStringList texts;
    for (const char* name : names) {
        const QWidget* w = control<QWidget>(form, name);
        const auto* b = qobject_cast<const QAbstractButton*>(w);
        if (const auto* box = qobject_cast<const QComboBox*>(w))
            texts << box->currentText();
        else
            texts << (b ? (b->isCheckable() ? b->isChecked() ? "[x]" : "[ ]" : b->text())
                        : text(form, name));
        texts.last() +=
            QString(w->isEnabled() ? "" : " (off)") + (w->isVisible() ? "" : " (hidden)");
    }
    return texts;
}

inline void saveShot(QWidget* widget, const QString& name)
{
    const QString dir = qEnvironmentVariable("DBIMPORT_SCREENSHOT_DIR");
    if (dir.isEmpty() || name.isEmpty())
        return;
    QDir().mkpath(dir);
    QCoreApplication::processEvents();
    require(widget->grab().save(QDir(dir).filePath(name + u".png"_s)), "cannot save " + name);
}

// The shown labels, buttons and combos of window too small for their text: too narrow, or
// for wrapping text too low.
inline QString cutCaptions(const QWidget* window)
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

inline std::unique_ptr<frmDBImport> openWizard(int step = 0)
{
    auto form = std::make_unique<frmDBImport>();
    form->resize(760, 560);
    form->show();
    require(QTest::qWaitForWindowActive(form.get()), u"the wizard was not shown"_s);
    require(nextTo(form.get(), step), u"the wizard did not reach step %1"_s.arg(step));
    return form;
}

inline std::unique_ptr<frmDBImport> wizardOnGroupStep(Environment& env, int validRows,
                                                      const QStringList& groups,
                                                      const QString& group, int step = 3)
{
    env.addSales(validRows);
    env.createGroups(groups);
    env.saveChoices(contactsChoices(u"Sales"_s, group));
    return openWizard(step);
}

inline int countRows(const QString& groupFile)
{
    const QStringList values = SqliteColumn(groupFile, u"SELECT count(*) FROM Recipients"_s);
    return values.size() == 1 ? values.first().toInt() : -1;
}

} // namespace wizardtest
