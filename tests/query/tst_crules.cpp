#include "query/crules.h"

#include "util/apperror.h"

#include <QTest>

#include <tuple>

// The number of the AppError the call throws, 0 when it throws none.
template <typename Call> static long thrown(Call call)
{
    try {
        call();
    } catch (const AppError& e) {
        return e.number();
    }
    return 0;
}

// A rule from "FieldName|OpDisplay|OpSQL|Value|LogicalOp".
static void add(CRules& rules, const QString& text)
{
    const QStringList p = text.split('|');
    rules.Add(p[0], p[1], p[2], p[3], p[4]);
}

class TestCRules : public QObject
{
    Q_OBJECT

private slots:
    void duplicateKeys()
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
    }

    void positionsAndKeys()
    {
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
};

QTEST_GUILESS_MAIN(TestCRules)
#include "tst_crules.moc"
