#include "query/crules.h"

#include "util/apperror.h"

#include <QTest>

class TestCRules : public QObject
{
    Q_OBJECT

private slots:
    void addSetsEveryProperty();
    void positionsFollowAdditionAndCloseGaps();
    void duplicateKeys_data();
    void duplicateKeys();
    void itemByKeyIgnoresCase();
    void unknownIndex_data();
    void unknownIndex();
    void removeByKey();
};

void TestCRules::addSetsEveryProperty()
{
    CRules rules;
    const CRule* rule = rules.Add("Town", "Equals", "=", "'Leeds'", "Or");
    QVERIFY(rule);
    QCOMPARE(rule->FieldName, QString("Town"));
    QCOMPARE(rule->OpDisplay, QString("Equals"));
    QCOMPARE(rule->OpSQL, QString("="));
    QCOMPARE(rule->Value, QString("'Leeds'"));
    QCOMPARE(rule->LogicalOp, QString("Or"));
    QCOMPARE(rule->key(), QString("OrTownEquals'Leeds'"));
    QCOMPARE(rules.Count(), 1);
    QCOMPARE(rules.Item(1), rule);
}

void TestCRules::positionsFollowAdditionAndCloseGaps()
{
    CRules rules;
    rules.Add("A", "Equals", "=", "1", "And");
    rules.Add("B", "Equals", "=", "2", "And");
    rules.Add("C", "Equals", "=", "3", "And");
    rules.Remove(2);
    QCOMPARE(rules.Count(), 2);
    QCOMPARE(rules.Item(1)->FieldName, QString("A"));
    QCOMPARE(rules.Item(2)->FieldName, QString("C"));
    QVERIFY(!rules.Item(3));

    QStringList walked;
    for (const CRule& rule : rules)
        walked << rule.FieldName;
    QCOMPARE(walked, QStringList({"A", "C"}));

    // The freed key can be used again, and goes to the end.
    rules.Add("B", "Equals", "=", "2", "And");
    QCOMPARE(rules.Item(3)->FieldName, QString("B"));
}

void TestCRules::duplicateKeys_data()
{
    QTest::addColumn<QStringList>("first"); // field, display, sql, value, logical
    QTest::addColumn<QStringList>("second");
    QTest::addColumn<bool>("collides");

    QTest::newRow("identical") << QStringList{"Town", "Equals", "=", "'Leeds'", "And"}
                               << QStringList{"Town", "Equals", "=", "'Leeds'", "And"} << true;
    QTest::newRow("value differs in case")
        << QStringList{"Town", "Equals", "=", "'Leeds'", "And"}
        << QStringList{"Town", "Equals", "=", "'LEEDS'", "And"} << true;
    QTest::newRow("only OpSQL differs, not part of the key")
        << QStringList{"Town", "Equals", "=", "'Leeds'", "And"}
        << QStringList{"Town", "Equals", "like", "'Leeds'", "And"} << true;
    QTest::newRow("only LogicalOp differs")
        << QStringList{"Town", "Equals", "=", "'Leeds'", "And"}
        << QStringList{"Town", "Equals", "=", "'Leeds'", "Or"} << false;
    QTest::newRow("only OpDisplay differs")
        << QStringList{"Age", "is Less Than", "<", "3", "And"}
        << QStringList{"Age", "is Greater Than", "<", "3", "And"} << false;
    // No separator in the key: parts that shift between fields still meet.
    QTest::newRow("same concatenation")
        << QStringList{"AB", "C", "=", "D", "X"} << QStringList{"A", "BC", "=", "D", "X"} << true;
}

void TestCRules::duplicateKeys()
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

void TestCRules::itemByKeyIgnoresCase()
{
    CRules rules;
    rules.Add("Town", "Equals", "=", "'Leeds'", "And");
    rules.Add("Age", "is Greater Than", ">", "30", "Or");
    const CRule* rule = rules.Item(QStringLiteral("ORAGEIS GREATER THAN30"));
    QVERIFY(rule);
    QCOMPARE(rule->Value, QString("30"));
    QVERIFY(!rules.Item(QStringLiteral("OrAgeis Greater Than31")));
}

void TestCRules::unknownIndex_data()
{
    QTest::addColumn<int>("position");
    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -1;
    QTest::newRow("past the end") << 3;
}

void TestCRules::unknownIndex()
{
    QFETCH(int, position);
    CRules rules;
    rules.Add("A", "Equals", "=", "1", "And");
    rules.Add("B", "Equals", "=", "2", "And");
    QVERIFY(!rules.Item(position));
    QVERIFY_THROWS_EXCEPTION(AppError, rules.Remove(position));
    QCOMPARE(rules.Count(), 2);
}

void TestCRules::removeByKey()
{
    CRules rules;
    rules.Add("A", "Equals", "=", "1", "And");
    rules.Add("B", "Equals", "=", "2", "Or");
    rules.Remove(QStringLiteral("andaequals1"));
    QCOMPARE(rules.Count(), 1);
    QCOMPARE(rules.Item(1)->FieldName, QString("B"));
    try {
        rules.Remove(QStringLiteral("AndAEquals1"));
        QFAIL("removing a missing key must fail");
    } catch (const AppError& e) {
        QCOMPARE(e.number(), long(AppError::InvalidProcedureCall));
    }
    rules.Clear();
    QCOMPARE(rules.Count(), 0);
}

QTEST_GUILESS_MAIN(TestCRules)
#include "tst_crules.moc"
