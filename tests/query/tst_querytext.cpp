// The text the query step builds: SELECT statements, the rule list behind them and the
// field references inserted into a typed statement.
#include "query/crules.h"
#include "query/fieldreference.h"
#include "query/selectsql.h"

#include "util/apperror.h"

#include <QTest>

#include <array>
#include <tuple>

namespace {

// Rules as "LogicalOp|FieldName|OpSQL|Value;...".
CRules ruleList(const QString& rules)
{
    CRules list;
    for (const QString& rule : rules.split(';')) {
        const QStringList p = rule.split('|');
        list.Add(p[1], "display " + p[2], p[2], p[3], p[0]);
    }
    return list;
}

// A rule from "FieldName|OpDisplay|OpSQL|Value|LogicalOp".
void add(CRules& rules, const QString& text)
{
    const QStringList p = text.split('|');
    rules.Add(p[0], p[1], p[2], p[3], p[4]);
}

// The number of the AppError the call throws, 0 when it throws none.
template <typename Call> long thrown(Call call)
{
    try {
        call();
    } catch (const AppError& e) {
        return e.number();
    }
    return 0;
}

} // namespace

class TestQueryText : public QObject
{
    Q_OBJECT

private slots:
    // The statements must stay character for character as they are: brackets only when the
    // trimmed name holds a blank (a tab is none), names otherwise as given.
    void tableAndCondition()
    {
        const QList<QPair<QString, QString>> tables = {
            {"  Customers  ", "select * from Customers"},
            {"", "select * from "},
            {"  Order Lines ", "select * from [Order Lines]"},
            {"   ", "select * from "},
            {"\tOrders ", "select * from \tOrders"},
            {" \t Orders", "select * from [\t Orders]"}};
        for (const auto& [table, expected] : tables) {
            QCOMPARE(SelectFromTable(table), expected);
            QCOMPARE(BuildSelectSQL(table, CRules()), expected);
            QCOMPARE(BuildImportSQL(table, CRules()), expected);
            // The trial statement has its WHERE even with nothing to test.
            QCOMPARE(BuildTestSQL(table, "", "", ""), expected + " WHERE   ");
        }
        const QList<std::array<QString, 4>> conditions = {
            // field, op, value, condition
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

    // The query builder's statement, and with an identifier quote the import's: for a source
    // that does not take brackets every name is quoted with its driver's character, an
    // embedded one doubled, so no name can end the quote early.
    void statements()
    {
        const QList<std::array<QString, 4>> cases = {
            // quote, table, rules, statement
            {"", "Customer List", "And|Town|=|'Leeds';Or|Age|>|30",
             "select * from [Customer List] WHERE Town = 'Leeds' Or Age > 30"},
            {"", "T",
             "Or|A|=|1;And|B|<|2;Or|C Name|like|'x%'", // the first LogicalOp is never written
             "select * from T WHERE A = 1 And B < 2 Or [C Name] like 'x%'"},
            {"", "T", "And| Age|>|3", "select * from T WHERE  Age > 3"},
            {"", "", "And|A|=|1", "select * from  WHERE A = 1"},
            {"", "T", "|A|=|1;oR|B|=|2", "select * from T WHERE A = 1 oR B = 2"},
            {"\"", " Order ", "And|MixedCase|=|1;Or|with blank|<|2",
             "select * from \"Order\" WHERE  \"MixedCase\" = 1 Or \"with blank\" < 2"},
            {"\"", "t\";DELETE FROM t;--", "And|a\"b|=|1",
             "select * from \"t\"\";DELETE FROM t;--\" WHERE  \"a\"\"b\" = 1"},
            {"`", "my`table", "And| Age|>|3", "select * from `my``table` WHERE  ` Age` > 3"},
            {"\"", "  ", "And|A|=|1", "select * from  WHERE  \"A\" = 1"}};
        for (const auto& [quote, table, rules, expected] : cases) {
            const CRules list = ruleList(rules);
            if (!quote.isEmpty()) {
                QCOMPARE(BuildImportSQL(table, list, quote), expected);
                continue;
            }
            QCOMPARE(BuildSelectSQL(table, list), expected);
            // The imported and logged statement has a second blank after WHERE.
            QCOMPARE(BuildImportSQL(table, list), QString(expected).replace(" WHERE ", " WHERE  "));
        }
    }

    void ruleKeys()
    {
        // Keys ignore case, leave OpSQL out and have no separator between their parts.
        const QString leeds = "Town|Equals|=|'Leeds'|And";
        const QList<std::tuple<QString, QString, bool>> cases = {
            // first, second, collides
            {leeds, leeds, true},
            {leeds, "Town|Equals|=|'LEEDS'|And", true},
            {leeds, "Town|Equals|like|'Leeds'|And", true},
            {leeds, "Town|Equals|=|'Leeds'|Or", false},
            {"Age|is Less Than|<|3|And", "Age|is Greater Than|<|3|And", false},
            {"AB|C|=|D|X", "A|BC|=|D|X", true}};
        for (const auto& [first, second, collides] : cases) {
            CRules rules;
            add(rules, first);
            QCOMPARE(thrown([&] { add(rules, second); }), collides ? 457L : 0L);
            QCOMPARE(rules.Count(), collides ? 1 : 2);
            QCOMPARE(rules.Item(1)->OpSQL, first.section('|', 2, 2)); // the first one is kept
        }

        CRules rules;
        for (const char* rule :
             {"Town|Equals|=|'Leeds'|Or", "B|Equals|=|2|And", "C|is Greater Than|>|3|And"})
            add(rules, rule);
        rules.Remove(2);
        add(rules, "B|Equals|=|2|And"); // a freed key can be used again, and goes to the end
        QCOMPARE(rules.Item(2)->FieldName + rules.Item(3)->FieldName, "CB");
        QCOMPARE(rules.Item(QStringLiteral("ANDCIS GREATER THAN3"))->Value, "3");
        QVERIFY(!rules.Item(QStringLiteral("AndCis Greater Than4")));
        rules.Remove(QStringLiteral("orTOWNequals'leeds'"));
        // Unknown keys and positions (1-based) change nothing.
        const long invalid = AppError::InvalidProcedureCall;
        QCOMPARE(thrown([&] { rules.Remove(QStringLiteral("OrTownEquals'Leeds'")); }), invalid);
        for (int position : {0, -1, 3}) {
            QVERIFY(!rules.Item(position));
            QCOMPARE(thrown([&] { rules.Remove(position); }), invalid);
        }
        QCOMPARE(rules.Item(1)->FieldName + rules.Item(2)->FieldName, "CB");
        // (A rule changed in place keeps its key: the query builder's test edits one.)
        QCOMPARE(thrown([&] { rules.Modify(3, *rules.Item(1)); }), invalid);
        QCOMPARE(rules.Count(), 2);
    }

    // "|" marks the caret before and after the field is picked. A comma goes only after a
    // bracket, a blank after plain text; text after the caret is moved apart unless a blank
    // already parts it.
    void insertAtCaret()
    {
        const QList<std::array<QString, 4>> cases = {
            // table, field, before, after
            {"Customers", "City", "|", "Customers.City |"},
            {"Customers", "Last Name", "select |", "select Customers.[Last Name]|"},
            {"Customers", "City", "select Customers.[Last Name]|",
             "select Customers.[Last Name], Customers.City |"},
            {"Customers", "City", "select Customers.City |",
             "select Customers.City Customers.City |"},
            {"Customers", "City", "select|", "select Customers.City |"},
            {"Order Details", "Unit Price", "select |", "select [Order Details].[Unit Price]|"},
            {"Order Details", "Quantity", "select |", "select [Order Details].Quantity |"},
            {"", "Total", "select |", "select .Total |"},
            {"Customers", "Email", "select |from Customers",
             "select Customers.Email | from Customers"},
            {"Customers", "Last Name", "select | from Customers",
             "select Customers.[Last Name]| from Customers"},
            {"Customers", "City", "|select", "Customers.City | select"},
            {" Customers ", " City ", "select |", "select Customers.City |"},
            {"Customers", "City", "select\n|", "select\n Customers.City |"}};
        for (const auto& [table, field, before, after] : cases) {
            int newCaret = -1;
            QString text =
                InsertFieldReference(QString(before).remove('|'), int(before.indexOf('|')),
                                     FieldReference(table, field), newCaret);
            QCOMPARE(text.insert(newCaret, '|'), after);
        }
    }
};

QTEST_GUILESS_MAIN(TestQueryText)
#include "tst_querytext.moc"
