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
    void splitName_data();
    void splitName();
    void splitNameKeepsUnassignedOutputs();
};

void tst_EmailName::emailValidation_data()
{
    QTest::addColumn<QString>("email");
    QTest::addColumn<QString>("reason"); // empty: valid
    const QString nearEnd = "Period within 2 characters of end";
    QTest::newRow("two after last period") << "ann@example.co"
                                           << "";
    QTest::newRow("three after period") << "ann@example.com"
                                        << "";
    QTest::newRow("one after last period") << "ann@example.c" << nearEnd;
    QTest::newRow("ends in period") << "ann@example." << nearEnd;
    QTest::newRow("period only before at") << "ann.lee@example"
                                           << "No period after @ sign";
    QTest::newRow("no at") << "ann.example.com"
                           << "No @ sign";
    QTest::newRow("empty") << ""
                           << "Blank";
    QTest::newRow("blanks only") << "    "
                                 << "Blank";
    QTest::newRow("several at signs pass") << "a@b@c.de"
                                           << "";
    QTest::newRow("blank inside passes") << "a b@c.de"
                                         << "";
    QTest::newRow("empty local part passes") << "@c.de"
                                             << "";
    QTest::newRow("period right after at") << "a@.de"
                                           << "";
    QTest::newRow("last period decides") << "a@b.cd.e" << nearEnd;
    QTest::newRow("period at end after good one") << "a@b.com." << nearEnd;
    QTest::newRow("subdomains") << "first.last@mail.example.org"
                                << "";
    QTest::newRow("non-ASCII") << QString::fromUtf8("jürgen@müller.de") << "";
    // The length test counts the trimmed text while the searches run on the text as given.
    QTest::newRow("trailing blanks do not count") << "a@b.c  " << nearEnd;
    QTest::newRow("case of at sign irrelevant") << "A@B.CO"
                                                << "";
}

void tst_EmailName::emailValidation()
{
    QFETCH(QString, email);
    QFETCH(QString, reason);
    QString actual = "earlier"; // a valid address leaves the reason alone
    QCOMPARE(IsEmailValid(email, actual), reason.isEmpty());
    QCOMPARE(actual, reason.isEmpty() ? QString("earlier") : reason);
}

void tst_EmailName::splitName_data()
{
    QTest::addColumn<QString>("fullName");
    QTest::addColumn<QString>("expected"); // title|first|initial|last
    QTest::newRow("empty") << ""
                           << "|||";
    QTest::newRow("one word") << "Madonna"
                              << "|Madonna||";
    QTest::newRow("leading blank") << " Cher"
                                   << "|||Cher";
    QTest::newRow("two words") << "John Smith"
                               << "|John||Smith";
    QTest::newRow("title first last") << "Mr John Smith"
                                      << "Mr|John||Smith";
    QTest::newRow("three-letter title") << "Mrs Jane Smith"
                                        << "Mrs|Jane||Smith";
    QTest::newRow("first initial last") << "John A Smith"
                                        << "|John|A|Smith";
    QTest::newRow("two-letter initial") << "John AB Smith"
                                        << "|John|AB|Smith";
    QTest::newRow("four long words") << "Alexander Benjamin Christopher Davidson"
                                     << "|Alexander||Benjamin Christopher Davidson";
    QTest::newRow("title and three long words drops the middle")
        << "Dr Alexander Benjamin Christopher"
        << "Dr|Alexander||Christopher";
    QTest::newRow("title first initial last") << "Mr John A Smith"
                                              << "Mr|John|A|Smith";
    QTest::newRow("title and short first name") << "Mr J Smith"
                                                << "Mr|J||Smith";
    QTest::newRow("short first word counts as title") << "Jo Smith Brown"
                                                      << "Jo|Smith||Brown";
    QTest::newRow("trailing blank counts") << "John Smith "
                                           << "|John||Smith";
    QTest::newRow("first initial and two last names keeps the last") << "John A Smith Jones"
                                                                     << "|John|A|Jones";
    QTest::newRow("title initial initial last") << "Mr J R Tolkien"
                                                << "Mr|J|R|Tolkien";
    QTest::newRow("non-ASCII") << QString::fromUtf8("Frau Jürgen Müller")
                               << QString::fromUtf8("|Frau||Jürgen Müller");
}

void tst_EmailName::splitName()
{
    QFETCH(QString, fullName);
    QFETCH(QString, expected);
    ScriptedMessageBoxes boxes;
    MessageBoxesGuard guard(&boxes);
    QString t, f, i, l;
    SplitName(fullName, t, f, i, l);
    QCOMPARE(QStringList({t, f, i, l}).join('|'), expected);
    QVERIFY2(boxes.shown().isEmpty(), qPrintable(boxes.texts().join('|')));
}

void tst_EmailName::splitNameKeepsUnassignedOutputs()
{
    QString name = "Mr John Smith", t, f, i = "keep", l;
    SplitName(name, t, f, i, l);
    QCOMPARE(QStringList({t, f, i, l}).join('|'), QString("Mr|John|keep|Smith"));
    QString single = "Prince", t2 = "x", f2, i2 = "y", l2 = "z";
    SplitName(single, t2, f2, i2, l2);
    QCOMPARE(QStringList({single, t2, f2, i2, l2}).join('|'), QString("Prince||Prince||"));
}

QTEST_GUILESS_MAIN(tst_EmailName)
#include "tst_emailname.moc"
