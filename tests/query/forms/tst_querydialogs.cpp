#include "query/forms/frmImportFilters.h"
#include "query/forms/frmQueryBuilder.h"
#include "query/forms/frmViewResults.h"

#include "query/selectsql.h"
#include "util/scriptedmessageboxes.h"

#include "datarow.h"
#include "formhelpers.h"
#include "odbcenvironment.h"
#include "testsource.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTableView>

namespace {

const QStringList kPeople = {"CREATE TABLE People (name TEXT, town TEXT, age INTEGER)",
                             "INSERT INTO People VALUES ('Ann', 'Leeds', 25), ('Bob', 'York', 41), "
                             "('SELECT', 'Leeds', 37), ('Cy', 'Hull', 30)"};

QString table(const QString& kind)
{
    return kind == "postgresql" ? "people" : "People";
}

// An empty joiner is left as the editor offers it.
void fillRule(QWidget* editor, const QString& joiner, const QString& field, const QString& op,
              const QString& value)
{
    if (!joiner.isEmpty())
        control<QComboBox>(editor, "cmbLogicalOp")->setCurrentText(joiner);
    control<QComboBox>(editor, "cmbFields")->setCurrentText(field);
    control<QComboBox>(editor, "cmbOperand")->setCurrentText(op);
    control<QLineEdit>(editor, "txtValue")->setText(value);
    QTest::mouseClick(control<QPushButton>(editor, "cmdOK"), Qt::LeftButton);
    if (editor->isVisible()) // refused: the test sees it in the rule list
        editor->close();
}

QStringList lines(const QListWidget* list)
{
    QStringList texts;
    for (int i = 0; i < list->count(); ++i)
        texts << list->item(i)->text();
    return texts;
}

QStringList ruleTexts(const CRules& rules)
{
    QStringList texts;
    for (const CRule& rule : rules)
        texts << rule.LogicalOp + '|' + rule.FieldName + '|' + rule.OpSQL + '|' + rule.Value;
    return texts;
}

} // namespace

class TestQueryDialogs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_odbc.isValid());
        MessageBoxes::setInstance(&m_boxes);
    }

    void cleanup()
    {
        verifyNothingOpen();
        m_boxes.clear();
    }

    // A rule is tried bare, then quoted; a value refused both ways is left as typed.
    void ruleEditor_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("outcome"); // the accepted value, or the message shown
        const QString syntax = "The syntax is not correct, ensure the Value specified matches "
                               "the type of data contained in the field.";
        for (const char* kind : {"sqlite", "postgresql"}) {
            const QByteArray k(kind);
            DataRow(k + " number bare", kind, "Age", "30", "30");
            DataRow(k + " text quoted", kind, "Town", "Leeds", "'Leeds'");
            DataRow(k + " own quotes kept", kind, "Town", "'Leeds'", "'Leeds'");
            DataRow(k + " blanks are a value", kind, "Town", "  ", "'  '");
        }
        DataRow("qsqlite fails both", "sqlite", "Town", "O'Brien", syntax);
        DataRow("postgres fails both", "postgresql", "Age", "abc", syntax);
        DataRow("qsqlite empty value", "sqlite", "Town", "",
                "critical: A field, operand and value must be selected.");
    }

    void ruleEditor()
    {
        QFETCH(QString, kind);
        QFETCH(QString, field);
        QFETCH(QString, value);
        QFETCH(QString, outcome);
        OPEN_TEST_SOURCE(source, kind, kPeople);
        frmImportFilters editor;
        editor.PopulateCombos({"Name", "Town", "Age"}, {"Text", "Text", "Number"});
        editor.DSNString = source.conString;
        editor.TableName = table(kind);
        editor.FirstOne = true;
        editor.show();
        fillRule(&editor, QString(), field, "is Greater Than", value);
        const bool accepted = !editor.Cancelled();
        QCOMPARE(accepted, m_boxes.shown().isEmpty());
        if (accepted) {
            // The joiner is hidden for a first rule, yet stored.
            QCOMPARE(editor.OpSQL + editor.LogicalOp + ' ' + editor.Value, ">And " + outcome);
        } else {
            const auto& box = m_boxes.shown().first();
            QCOMPARE(box.icon == MessageBoxes::Icon::Critical ? "critical: " + box.text : box.text,
                     outcome);
            QCOMPARE(control<QLineEdit>(&editor, "txtValue")->text(), value);
        }
    }

    // View with no rules shows the whole table; then add, a refused duplicate, the other
    // joiner, Remove of the first rule, on each source.
    void builderRules_data()
    {
        QTest::addColumn<QString>("kind");
        DataRow("sqlite", "sqlite");
        DataRow("postgresql", "postgresql");
    }
    void builderRules()
    {
        QFETCH(QString, kind);
        OPEN_TEST_SOURCE(source, kind, kPeople);
        CRules rules;
        frmQueryBuilder builder;
        builder.DSNString = source.conString;
        builder.TableName = table(kind);
        builder.setRules(&rules);
        builder.show();
        QString viewed;
        whenModal("frmViewResults", [&](QWidget* viewer) {
            auto* label = control<QLabel>(viewer, "lblResults");
            QTRY_VERIFY(label->text().contains("Returned"));
            viewed = label->text();
            viewer->close();
        });
        QTest::mouseClick(control<QPushButton>(&builder, "cmdView"), Qt::LeftButton);
        QCOMPARE(viewed, "4 Records Returned ...");
        auto* list = control<QListWidget>(&builder, "lstFilters");
        auto add = [&](const QString& joiner, const QString& field, const QString& op,
                       const QString& value) {
            // The first rule's joiner is hidden; later ones offer "And" first.
            QString offered;
            whenModal("frmImportFilters", [=, &offered](QWidget* editor) {
                const auto* logicalOp = control<QComboBox>(editor, "cmbLogicalOp");
                offered =
                    (logicalOp->isVisible() ? "shown " : "hidden ") + logicalOp->currentText();
                fillRule(editor, joiner, field, op, value);
            });
            const bool first = list->count() == 0;
            QTest::mouseClick(control<QPushButton>(&builder, "cmdAddFilter"), Qt::LeftButton);
            QCOMPARE(offered, first ? "hidden And" : "shown And");
        };
        const QString duplicate = "This rule already exists - duplicates are not allowed.";
        // Lower case names read the same on both sources.
        add("", "town", "Equals", "Leeds");
        add("Or", "age", "is Greater Than", "30");
        add("And", "town", "Equals", "'LEEDS'");           // keys ignore case: the same rule again
        QCOMPARE(m_boxes.texts(), QStringList{duplicate}); // and only that one refused
        add("Or", "town", "Equals", "'Leeds'");
        QCOMPARE(ruleTexts(rules),
                 (QStringList{"And|town|=|'Leeds'", "Or|age|>|30", "Or|town|=|'Leeds'"}));

        // Delete removes the selected rule; the new first rule keeps its stored joiner,
        // which the statement then leaves out.
        list->setCurrentRow(0);
        QTest::keyClick(list, Qt::Key_Delete);
        QCOMPARE(ruleTexts(rules), (QStringList{"Or|age|>|30", "Or|town|=|'Leeds'"}));
        QCOMPARE(lines(list), (QStringList{"age is Greater Than 30", "town Equals 'Leeds'"}));
        const QString sql = BuildSelectSQL(table(kind), rules);
        QCOMPARE(sql, "select * from " + table(kind) + " WHERE age > 30 Or town = 'Leeds'");
        QCOMPARE(source.column(QString(sql).replace("*", "name") + " ORDER BY name"),
                 (QStringList{"Ann", "Bob", "SELECT"}));

        // A double-click modifies the rule in place, under the key it was added with: its
        // old values are still refused, its new ones are not.
        QString opened;
        whenModal("frmImportFilters", [&opened](QWidget* editor) {
            opened = control<QComboBox>(editor, "cmbLogicalOp")->currentText() + ' ' +
                     control<QLineEdit>(editor, "txtValue")->text();
            fillRule(editor, QString(), "town", "Equals", "York");
        });
        const QRect second = list->visualItemRect(list->item(1));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, second.center());
        QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, second.center());
        QCOMPARE(opened, "Or 'Leeds'");
        QCOMPARE(lines(list), (QStringList{"age is Greater Than 30", "town Equals 'York'"}));
        m_boxes.clear();
        add("Or", "town", "Equals", "'Leeds'");
        add("Or", "town", "Equals", "'York'");
        QCOMPARE(m_boxes.texts(), QStringList{duplicate});
        QCOMPARE(ruleTexts(rules),
                 (QStringList{"Or|age|>|30", "Or|town|=|'York'", "Or|town|=|'York'"}));

        m_boxes.clear();
        list->clearSelection();
        QTest::mouseClick(control<QPushButton>(&builder, "cmdRemoveFilter"), Qt::LeftButton);
        QTest::mouseClick(control<QPushButton>(&builder, "cmdModifyFilter"), Qt::LeftButton);
        QCOMPARE(m_boxes.texts(),
                 (QStringList{"A filter must be selected from the list in order to remove it.",
                              "Select a rule to Edit."}));
        QCOMPARE(rules.Count(), 3);
    }

    // What the viewer sends, what it shows, and that the source is never changed.
    void viewer_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("sql");
        QTest::addColumn<QString>("outcome"); // the label, or the error text's start
        QTest::addColumn<int>("columns");
        const QString hiddenDelete = "delete from People where Name = 'SELECT'";
        DataRow("no SELECT word, nothing sent", "unreachable", "delete from People",
                "The SQL must be a valid SELECT statement.", 0);
        DataRow("lower case select", "sqlite", "select Name, Age from People where Age > 26",
                "3 Records Returned ...", 2);
        DataRow("empty result", "sqlite", "select * from People where 1 = 0",
                "0 Records Returned ...", 3);
        DataRow("postgres empty result", "postgresql", "select * from people where 1 = 0",
                "0 Records Returned ...", 3);
        DataRow("hidden delete refused", "sqlite", hiddenDelete, "3000 - ", 0);
        DataRow("postgres hidden delete refused", "postgresql", hiddenDelete, "3000 - ", 0);
        DataRow("source error", "postgresql", "select * from Nowhere", "1 - ", 0);
    }

    void viewer()
    {
        QFETCH(QString, kind);
        QFETCH(QString, sql);
        QFETCH(QString, outcome);
        QFETCH(int, columns);
        OPEN_TEST_SOURCE(source, kind == "unreachable" ? "sqlite" : kind, kPeople);
        frmViewResults viewer;
        viewer.DSNString = kind == "unreachable" ? "Provider=SQLite;Data Source=/nonexistent/x.db"
                                                 : source.conString;
        viewer.SQLString = sql;
        QString error;
        if (viewer.RunQuery(error)) {
            viewer.show();
            QTRY_COMPARE(control<QLabel>(&viewer, "lblResults")->text(), outcome);
            QCOMPARE(control<QTableView>(&viewer, "vsfgrdResults")->model()->columnCount(),
                     columns);
        } else {
            QVERIFY2(error.startsWith(outcome), qPrintable(error));
            QCOMPARE(control<QLabel>(&viewer, "lblResults")->text(),
                     error.contains(" - ") ? "Error(s) Encountered ..." : "");
        }
        QCOMPARE(source.column("select count(*) from People").join(','), "4");
    }

private:
    OdbcEnvironment m_odbc;
    ScriptedMessageBoxes m_boxes;
};

QTEST_MAIN(TestQueryDialogs)
#include "tst_querydialogs.moc"
