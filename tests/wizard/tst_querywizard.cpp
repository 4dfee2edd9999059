// The records chosen in the query dialogs, carried through the wizard into the import, its
// log and the settings file.

#include "wizardfixture.h"

#include <QLineEdit>
#include <QPlainTextEdit>

using namespace wizardtest;

namespace {

void addRule(QWidget* builder, const QString& joiner, const QString& field, const QString& op,
             const QString& value)
{
    whenModal(u"frmImportFilters"_s, [=](QWidget* editor) {
        if (!joiner.isEmpty())
            combo(editor, "cmbLogicalOp")->setCurrentText(joiner);
        combo(editor, "cmbFields")->setCurrentText(field);
        combo(editor, "cmbOperand")->setCurrentText(op);
        control<QLineEdit>(editor, "txtValue")->setText(value);
        QTest::keyClick(editor, Qt::Key_Return); // Enter presses OK
        if (editor->isVisible())
            editor->close();
    });
    click(builder, "cmdAddFilter");
}

// "Town Equals Leeds Or Age is Greater Than 30", in this source's words; then a third rule
// dropped again by Cancel.
void buildRules(frmDBImport* f)
{
    whenModal(u"frmQueryBuilder"_s, [](QWidget* builder) {
        addRule(builder, {}, u"City"_s, u"Equals"_s, u"City 1"_s);
        addRule(builder, u"Or"_s, u"ID"_s, u"is Greater Than"_s, u"25"_s);
        click(builder, "cmdOK");
    });
    click(f, "cmdQueryBuilder");
    whenModal(u"frmQueryBuilder"_s, [](QWidget* builder) {
        addRule(builder, u"And"_s, u"Company"_s, u"Equals"_s, u"Company 1"_s);
        click(builder, "cmdCancel");
    });
    click(f, "cmdQueryBuilder");
}

// Typed with a line break, which Enter starts in the statement box; Ctrl+Return accepts.
void writeStatement(frmDBImport* f)
{
    click(f, "optFilterMethod_1");
    whenModal(u"frmQueryAdvanced"_s, [](QWidget* advanced) {
        auto* box = control<QPlainTextEdit>(advanced, "txtSQL");
        box->setFocus();
        QTest::keyClicks(box, u"select Email, City from Contacts"_s);
        QTest::keyClick(box, Qt::Key_Return);
        QTest::keyClicks(box, u"where ID < 4"_s);
        QTest::keyClick(box, Qt::Key_Return, Qt::ControlModifier);
        if (advanced->isVisible())
            advanced->close();
    });
    click(f, "cmdAdvancedQuery");
}

} // namespace

class tst_QueryWizard : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { verifyNothingOpen(); }

    void choicesReachImportAndSettings_data()
    {
        QTest::addColumn<bool>("rules");
        QTest::addColumn<QString>("sqlLine");
        QTest::addColumn<QByteArray>("saved");
        QTest::addColumn<int>("added");
        // The imported statement has two blanks after WHERE; apostrophes are kept as "¬".
        QTest::newRow("query builder")
            << true << u"#   SQL : select * from Contacts WHERE  City = 'City 1' Or ID > 25"_s
            << QByteArray("[Rules1]\r\nFieldName1=City\r\nOpDisplay1=Equals\r\nOpSQL1==\r\n"
                          "Value1=\xac"
                          "City 1\xac\r\nLogicalOp1=And\r\nFieldName2=ID\r\n"
                          "OpDisplay2=is Greater Than\r\nOpSQL2=>\r\nValue2=25\r\n"
                          "LogicalOp2=Or\r\n")
            << 5; // four in City 1, and of IDs 26 and 27 the one not already imported
        QTest::newRow("freeform SQL")
            << false << u"#   SQL : select Email, City from Contacts\xacwhere ID < 4"_s
            << QByteArray("FilterMethod=1\r\nSelectedTable=Contacts\r\n"
                          "AdvancedSQLString=select Email, City from Contacts\xacwhere ID < 4\r\n")
            << 3;
    }

    void choicesReachImportAndSettings()
    {
        QFETCH(bool, rules);
        QFETCH(QString, sqlLine);
        QFETCH(QByteArray, saved);
        QFETCH(int, added);
        Environment env;
        env.addSales(20);
        env.createGroups({u"Members"_s});
        env.saveChoices(contactsChoices(u"Sales"_s, u"Members"_s));
        auto form = openWizard(1);
        frmDBImport* f = form.get();
        rules ? buildRules(f) : writeStatement(f);
        if (rules) // the rule Cancel dropped is not counted
            QCOMPARE(text(f, "lblQueryBuilderRules"), u"2 filters defined"_s);
        QVERIFY(nextTo(f, 4));
        QCOMPARE(env.boxes.texts(), QStringList{u"Would you like to review the log file now?"_s});
        QVERIFY2(env.log().split(u"\r\n"_s).contains(sqlLine), qPrintable(env.log()));
        QVERIFY2(env.folder.readFile(u"dbimport.ini"_s).contains(saved),
                 env.folder.readFile(u"dbimport.ini"_s).constData());
        QCOMPARE(countRows(env.groupFile(u"Members"_s)), added);
        form->close();
    }
};

QTEST_MAIN(tst_QueryWizard)
#include "tst_querywizard.moc"
