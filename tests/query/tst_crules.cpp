#include "query/crules.h"

#include "util/apperror.h"

#include <QTest>

static QStringList fieldNames(const CRules& rules)
{
    QStringList walked;
    for (const CRule& rule : rules)
        walked << rule.FieldName;
    return walked;
}

class TestCRules : public QObject
{
    Q_OBJECT

private slots:
    void addAndPositions()
    {
        CRules rules;
        const CRule* rule = rules.Add("Town", "Equals", "=", "'Leeds'", "Or");
        QCOMPARE(QStringList({rule->FieldName, rule->OpDisplay, rule->OpSQL, rule->Value, rule->LogicalOp}),
                 QStringList({"Town", "Equals", "=", "'Leeds'", "Or"}));
        QCOMPARE(rule->key(), QString("OrTownEquals'Leeds'"));
        QCOMPARE(rules.Item(1), rule);
        rules.Add("B", "Equals", "=", "2", "And");
        rules.Add("C", "Equals", "=", "3", "And");
        rules.Remove(2);
        QCOMPARE(rules.Count(), 2);
        QCOMPARE(rules.Item(2)->FieldName, QString("C"));
        QVERIFY(!rules.Item(3));
        QCOMPARE(fieldNames(rules), QStringList({"Town", "C"}));
        // The freed key can be used again, and goes to the end.
        rules.Add("B", "Equals", "=", "2", "And");
        QCOMPARE(rules.Item(3)->FieldName, QString("B"));
        rules.Clear();
        QCOMPARE(rules.Count(), 0);
    }

    void duplicateKeys_data()
    {
        QTest::addColumn<QStringList>("first"); // field, display, sql, value, logical
        QTest::addColumn<QStringList>("second");
        QTest::addColumn<bool>("collides");
        const QStringList leeds = {"Town", "Equals", "=", "'Leeds'", "And"};
        QTest::newRow("identical") << leeds << leeds << true;
        QTest::newRow("value case") << leeds << QStringList{"Town", "Equals", "=", "'LEEDS'", "And"} << true;
        QTest::newRow("OpSQL not in the key")
            << leeds << QStringList{"Town", "Equals", "like", "'Leeds'", "And"} << true;
        QTest::newRow("LogicalOp differs")
            << leeds << QStringList{"Town", "Equals", "=", "'Leeds'", "Or"} << false;
        QTest::newRow("OpDisplay differs") << QStringList{"Age", "is Less Than", "<", "3", "And"}
                                           << QStringList{"Age", "is Greater Than", "<", "3", "And"} << false;
        // No separator in the key: parts that shift between fields still meet.
        QTest::newRow("same concatenation") << QStringList{"AB", "C", "=", "D", "X"}
                                            << QStringList{"A", "BC", "=", "D", "X"} << true;
    }

    void duplicateKeys()
    {
        QFETCH(QStringList, first);
        QFETCH(QStringList, second);
        QFETCH(bool, collides);
        CRules rules;
        rules.Add(first[0], first[1], first[2], first[3], first[4]);
        long thrown = 0;
        try {
            rules.Add(second[0], second[1], second[2], second[3], second[4]);
        } catch (const AppError& e) {
            thrown = e.number();
        }
        QCOMPARE(thrown, collides ? long(AppError::DuplicateKey) : 0L);
        QCOMPARE(rules.Count(), collides ? 1 : 2);
        QCOMPARE(rules.Item(1)->OpSQL, first[2]);
    }

    void keysIgnoreCase()
    {
        CRules rules;
        rules.Add("A", "Equals", "=", "1", "And");
        rules.Add("Age", "is Greater Than", ">", "30", "Or");
        QCOMPARE(rules.Item(QStringLiteral("ORAGEIS GREATER THAN30"))->Value, QString("30"));
        QVERIFY(!rules.Item(QStringLiteral("OrAgeis Greater Than31")));
        rules.Remove(QStringLiteral("andaequals1"));
        QCOMPARE(fieldNames(rules), QStringList{"Age"});
        try {
            rules.Remove(QStringLiteral("AndAEquals1"));
            QFAIL("removing a missing key must fail");
        } catch (const AppError& e) {
            QCOMPARE(e.number(), long(AppError::InvalidProcedureCall));
        }
    }

    void unknownIndex_data()
    {
        QTest::addColumn<int>("position");
        QTest::newRow("zero") << 0;
        QTest::newRow("negative") << -1;
        QTest::newRow("past the end") << 3;
    }

    void unknownIndex()
    {
        QFETCH(int, position);
        CRules rules;
        rules.Add("A", "Equals", "=", "1", "And");
        rules.Add("B", "Equals", "=", "2", "And");
        QVERIFY(!rules.Item(position));
        QVERIFY_THROWS_EXCEPTION(AppError, rules.Remove(position));
        QCOMPARE(rules.Count(), 2);
    }
};

QTEST_GUILESS_MAIN(TestCRules)
#include "tst_crules.moc"
