// E-mail validation and full-name splitting of the record loop.
#include <QtTest>

#include "import/importengine.h"
#include "util/scriptedmessageboxes.h"

class tst_EmailName : public QObject
{
    Q_OBJECT

private slots:
    void emailValidation_data();
    void emailValidation();
    void emailReasonUntouchedWhenValid();
    void splitName_data();
    void splitName();
    void splitNameKeepsUnassignedOutputs();
};

void tst_EmailName::emailValidation_data()
{
    QTest::addColumn<QString>("email");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QString>("reason");

    QTest::newRow("two after last period") << "ann@example.co" << true << "";
    QTest::newRow("three after period") << "ann@example.com" << true << "";
    QTest::newRow("one after last period")
        << "ann@example.c" << false << "Period within 2 characters of end";
    QTest::newRow("ends in period")
        << "ann@example." << false << "Period within 2 characters of end";
    QTest::newRow("period only before at")
        << "ann.lee@example" << false << "No period after @ sign";
    QTest::newRow("no at") << "ann.example.com" << false << "No @ sign";
    QTest::newRow("empty") << "" << false << "Blank";
    QTest::newRow("blanks only") << "    " << false << "Blank";
    QTest::newRow("several at signs pass") << "a@b@c.de" << true << "";
    QTest::newRow("blank inside passes") << "a b@c.de" << true << "";
    QTest::newRow("empty local part passes") << "@c.de" << true << "";
    QTest::newRow("period right after at") << "a@.de" << true << "";
    QTest::newRow("last period decides")
        << "a@b.cd.e" << false << "Period within 2 characters of end";
    QTest::newRow("period at end after good one")
        << "a@b.com." << false << "Period within 2 characters of end";
    QTest::newRow("subdomains") << "first.last@mail.example.org" << true << "";
    QTest::newRow("non-ASCII") << QString::fromUtf8("jürgen@müller.de") << true << "";
    // The length test counts the trimmed text while the searches run on the text as given.
    QTest::newRow("trailing blanks do not count")
        << "a@b.c  " << false << "Period within 2 characters of end";
    QTest::newRow("case of at sign irrelevant") << "A@B.CO" << true << "";
}

void tst_EmailName::emailValidation()
{
    QFETCH(QString, email);
    QFETCH(bool, valid);
    QFETCH(QString, reason);
    QString actualReason;
    QCOMPARE(IsEmailValid(email, actualReason), valid);
    QCOMPARE(actualReason, reason);
}

void tst_EmailName::emailReasonUntouchedWhenValid()
{
    QString reason = QStringLiteral("earlier");
    QVERIFY(IsEmailValid(QStringLiteral("x@y.zz"), reason));
    QCOMPARE(reason, QStringLiteral("earlier"));
    QVERIFY(!IsEmailValid(QStringLiteral("x@y"), reason));
    QCOMPARE(reason, QStringLiteral("No period after @ sign"));
}

void tst_EmailName::splitName_data()
{
    QTest::addColumn<QString>("fullName");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("firstName");
    QTest::addColumn<QString>("initial");
    QTest::addColumn<QString>("lastName");

    QTest::newRow("empty") << ""
                           << ""
                           << ""
                           << ""
                           << "";
    QTest::newRow("one word") << "Madonna"
                              << ""
                              << "Madonna"
                              << ""
                              << "";
    QTest::newRow("leading blank") << " Cher"
                                   << ""
                                   << ""
                                   << ""
                                   << "Cher";
    QTest::newRow("two words") << "John Smith"
                               << ""
                               << "John"
                               << ""
                               << "Smith";
    QTest::newRow("title first last") << "Mr John Smith"
                                      << "Mr"
                                      << "John"
                                      << ""
                                      << "Smith";
    QTest::newRow("three-letter title") << "Mrs Jane Smith"
                                        << "Mrs"
                                        << "Jane"
                                        << ""
                                        << "Smith";
    QTest::newRow("first initial last") << "John A Smith"
                                        << ""
                                        << "John"
                                        << "A"
                                        << "Smith";
    QTest::newRow("two-letter initial") << "John AB Smith"
                                        << ""
                                        << "John"
                                        << "AB"
                                        << "Smith";
    QTest::newRow("four long words") << "Alexander Benjamin Christopher Davidson"
                                     << ""
                                     << "Alexander"
                                     << ""
                                     << "Benjamin Christopher Davidson";
    QTest::newRow("title and three long words drops the middle")
        << "Dr Alexander Benjamin Christopher"
        << "Dr"
        << "Alexander"
        << ""
        << "Christopher";
    QTest::newRow("title first initial last") << "Mr John A Smith"
                                              << "Mr"
                                              << "John"
                                              << "A"
                                              << "Smith";
    QTest::newRow("title and short first name") << "Mr J Smith"
                                                << "Mr"
                                                << "J"
                                                << ""
                                                << "Smith";
    QTest::newRow("short first word counts as title") << "Jo Smith Brown"
                                                      << "Jo"
                                                      << "Smith"
                                                      << ""
                                                      << "Brown";
    QTest::newRow("trailing blank counts") << "John Smith "
                                           << ""
                                           << "John"
                                           << ""
                                           << "Smith";
    QTest::newRow("first initial and two last names keeps the last") << "John A Smith Jones"
                                                                     << ""
                                                                     << "John"
                                                                     << "A"
                                                                     << "Jones";
    QTest::newRow("title initial initial last") << "Mr J R Tolkien"
                                                << "Mr"
                                                << "J"
                                                << "R"
                                                << "Tolkien";
    QTest::newRow("non-ASCII") << QString::fromUtf8("Frau Jürgen Müller") << ""
                               << "Frau"
                               << "" << QString::fromUtf8("Jürgen Müller");
}

void tst_EmailName::splitName()
{
    QFETCH(QString, fullName);
    QFETCH(QString, title);
    QFETCH(QString, firstName);
    QFETCH(QString, initial);
    QFETCH(QString, lastName);

    ScriptedMessageBoxes boxes;
    MessageBoxesGuard guard(&boxes);
    QString name = fullName;
    QString t, f, i, l;
    SplitName(name, t, f, i, l);
    QCOMPARE(t, title);
    QCOMPARE(f, firstName);
    QCOMPARE(i, initial);
    QCOMPARE(l, lastName);
    QVERIFY2(boxes.shown().isEmpty(), qPrintable(boxes.texts().join(QLatin1Char('|'))));
}

void tst_EmailName::splitNameKeepsUnassignedOutputs()
{
    // Outputs a path does not assign keep the caller's values.
    QString name = QStringLiteral("Mr John Smith");
    QString t, f, i = QStringLiteral("keep"), l;
    SplitName(name, t, f, i, l);
    QCOMPARE(i, QStringLiteral("keep"));
    QCOMPARE(f, QStringLiteral("John"));

    QString single = QStringLiteral("Prince");
    QString t2 = QStringLiteral("x"), f2, i2 = QStringLiteral("y"), l2 = QStringLiteral("z");
    SplitName(single, t2, f2, i2, l2);
    QCOMPARE(single, QStringLiteral("Prince"));
    QCOMPARE(f2, QStringLiteral("Prince"));
    QVERIFY(t2.isEmpty() && i2.isEmpty() && l2.isEmpty());
}

QTEST_GUILESS_MAIN(tst_EmailName)
#include "tst_emailname.moc"
