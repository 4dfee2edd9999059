#include "query/crules.h"
#include "query/selectsql.h"

#include <QTest>

#include <array>

// The statements must stay character for character as they are: brackets only when the
// trimmed name holds a blank (a tab is none), names otherwise as given.
class TestSelectSql : public QObject
{
    Q_OBJECT

private slots:
    void tableAndCondition()
    {
        const QList<QPair<QString, QString>> tables = {
            {"  Customers  ", "select * from Customers"}, {"", "select * from "},
            {"  Order Lines ", "select * from [Order Lines]"}, {"   ", "select * from "},
            {"\tOrders ", "select * from \tOrders"}, {" \t Orders", "select * from [\t Orders]"}};
        for (const auto& [table, expected] : tables) {
            QCOMPARE(SelectFromTable(table), expected);
            QCOMPARE(BuildSelectSQL(table, CRules()), expected);
            QCOMPARE(BuildImportSQL(table, CRules()), expected);
            // The trial statement has its WHERE even with nothing to test.
            QCOMPARE(BuildTestSQL(table, "", "", ""), expected + " WHERE   ");
        }
        const QList<std::array<QString, 4>> conditions = { // field, op, value, condition
            {"First Name", "=", "'Bob'", "[First Name] = 'Bob'"},
            {" Age", "<", "5", " Age < 5"},
            {" Post Code ", "like", "'LS%'", "[ Post Code ] like 'LS%'"},
            {"e-mail.addr", "!=", "''", "e-mail.addr != ''"},
            {"A\tB", "=", "1", "A\tB = 1"},
            {"\t A", "=", "1", "[\t A] = 1"},
            {"Name", "=", "'O'Neil'", "Name = 'O'Neil'"},
            {"", "", "", "  "}};
        for (const auto& [field, op, value, expected] : conditions) {
            QCOMPARE(RuleCondition(field, op, value), expected);
            QCOMPARE(BuildTestSQL(" Customer List ", field, op, value),
                     "select * from [Customer List] WHERE " + expected);
        }
    }

    void statements()
    {
        // table, rules as "LogicalOp|FieldName|OpSQL|Value;...", the query builder's statement
        const QList<std::array<QString, 3>> cases = {
            {"Customer List", "And|Town|=|'Leeds';Or|Age|>|30",
             "select * from [Customer List] WHERE Town = 'Leeds' Or Age > 30"},
            {"T", "Or|A|=|1;And|B|<|2;Or|C Name|like|'x%'", // the first LogicalOp is never written
             "select * from T WHERE A = 1 And B < 2 Or [C Name] like 'x%'"},
            {"T", "And| Age|>|3", "select * from T WHERE  Age > 3"},
            {"", "And|A|=|1", "select * from  WHERE A = 1"},
            {"T", "|A|=|1;oR|B|=|2", "select * from T WHERE A = 1 oR B = 2"}};
        for (const auto& [table, rules, expected] : cases) {
            const CRules list = ruleList(rules);
            QCOMPARE(BuildSelectSQL(table, list), expected);
            // The imported and logged statement has a second blank after WHERE.
            QCOMPARE(BuildImportSQL(table, list), QString(expected).replace(" WHERE ", " WHERE  "));
        }
    }

    // For a source that does not take brackets every name is quoted with its driver's
    // character, an embedded one doubled, so no name can end the quote early.
    void quotedNames()
    {
        const QList<std::array<QString, 4>> cases = { // quote, table, rules, import statement
            {"\"", " Order ", "And|MixedCase|=|1;Or|with blank|<|2",
             "select * from \"Order\" WHERE  \"MixedCase\" = 1 Or \"with blank\" < 2"},
            {"\"", "t\";DELETE FROM t;--", "And|a\"b|=|1",
             "select * from \"t\"\";DELETE FROM t;--\" WHERE  \"a\"\"b\" = 1"},
            {"`", "my`table", "And| Age|>|3", "select * from `my``table` WHERE  ` Age` > 3"},
            {"\"", "  ", "And|A|=|1", "select * from  WHERE  \"A\" = 1"}};
        for (const auto& [quote, table, rules, expected] : cases)
            QCOMPARE(BuildImportSQL(table, ruleList(rules), quote), expected);
    }

private:
    // Rules as "LogicalOp|FieldName|OpSQL|Value;...".
    static CRules ruleList(const QString& rules)
    {
        CRules list;
        for (const QString& rule : rules.split(';')) {
            const QStringList p = rule.split('|');
            list.Add(p[1], "display " + p[2], p[2], p[3], p[0]);
        }
        return list;
    }
};

QTEST_GUILESS_MAIN(TestSelectSql)
#include "tst_selectsql.moc"
