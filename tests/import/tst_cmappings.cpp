#include "import/cmappings.h"

#include "util/apperror.h"

#include <QTest>

class TestCMappings : public QObject
{
    Q_OBJECT

private slots:
    void addKeepsOrderAndValues()
    {
        CMappings list;
        const CMapping* first = list.Add("EMailAddress", " Email ");
        QCOMPARE(first->VTField, QString("EMailAddress"));
        QCOMPARE(first->DBField, QString(" Email "));
        list.Add("City", "");
        list.Add("Title", "Salutation");
        QCOMPARE(list.Count(), 3);
        QStringList keys;
        for (const CMapping& m : list)
            keys << m.VTField + '=' + m.DBField;
        QCOMPARE(keys, QStringList({"EMailAddress= Email ", "City=", "Title=Salutation"}));
    }

    void duplicateKey_data()
    {
        QTest::addColumn<QString>("second");
        QTest::newRow("same") << "City";
        QTest::newRow("other case") << "CITY";
    }

    void duplicateKey()
    {
        QFETCH(QString, second);
        CMappings list;
        list.Add("City", "Town");
        try {
            list.Add(second, "Other");
            QFAIL("a second entry for the same key must be refused");
        } catch (const AppError& e) {
            QCOMPARE(e.number(), long(AppError::DuplicateKey));
        }
        QCOMPARE(list.Count(), 1);
        QCOMPARE(list.Item(1)->DBField, QString("Town"));
    }

    void itemAndDelete()
    {
        CMappings list;
        list.Add("EMailAddress", "Mail");
        list.Add("City", "Town");
        list.Add("Zip", "Postcode");
        QCOMPARE(list.Item("city")->DBField, QString("Town"));
        QCOMPARE(list.Item(3)->VTField, QString("Zip"));
        list.Delete("CITY");
        QCOMPARE(list.Count(), 2);
        QCOMPARE(list.Item(2)->VTField, QString("Zip"));
        list.Delete(1);
        QCOMPARE(list.Item(1)->VTField, QString("Zip"));
        QVERIFY(!list.Item("EMailAddress"));
    }

    void unknownIndex_data()
    {
        QTest::addColumn<int>("position");
        QTest::addColumn<QString>("key");
        QTest::newRow("zero") << 0 << "Fax";
        QTest::newRow("past end") << 2 << "";
        QTest::newRow("negative") << -5 << "EMailAddress ";
    }

    void unknownIndex()
    {
        QFETCH(int, position);
        QFETCH(QString, key);
        CMappings list;
        list.Add("EMailAddress", "Mail");
        QVERIFY(!list.Item(position));
        QVERIFY(!list.Item(key));
        QVERIFY_THROWS_EXCEPTION(AppError, list.Delete(position));
        QVERIFY_THROWS_EXCEPTION(AppError, list.Delete(key));
        QCOMPARE(list.Count(), 1);
    }
};

QTEST_GUILESS_MAIN(TestCMappings)
#include "tst_cmappings.moc"
