// E-mail validation and full-name splitting of the record loop.
#include <QtTest>

#include "import/importengine.h"
#include "util/scriptedmessageboxes.h"

class tst_EmailName : public QObject
{
    Q_OBJECT

private slots:
    void emailValidation_data()
    {
        QTest::addColumn<QString>("email");
        QTest::addColumn<QString>("reason"); // empty: valid
        auto row = [](const char* name, const QString& email, const QString& reason) {
            QTest::newRow(name) << email << reason;
        };
        const QString nearEnd = "Period within 2 characters of end";
        row("two after last period", "ann@example.co", "");
        row("three after period", "ann@example.com", "");
        row("one after last period", "ann@example.c", nearEnd);
        row("ends in period", "ann@example.", nearEnd);
        row("period only before at", "ann.lee@example", "No period after @ sign");
        row("no at", "ann.example.com", "No @ sign");
        row("empty", "", "Blank");
        row("blanks only", "    ", "Blank");
        row("several at signs pass", "a@b@c.de", "");
        row("blank inside passes", "a b@c.de", "");
        row("empty local part passes", "@c.de", "");
        row("period right after at", "a@.de", "");
        row("last period decides", "a@b.cd.e", nearEnd);
        row("period at end after good one", "a@b.com.", nearEnd);
        row("subdomains", "first.last@mail.example.org", "");
        row("non-ASCII", QString::fromUtf8("jürgen@müller.de"), "");
        // The length test counts the trimmed text while the searches run on the text as given.
        row("trailing blanks do not count", "a@b.c  ", nearEnd);
        row("case of at sign irrelevant", "A@B.CO", "");
    }

    void emailValidation()
    {
        QFETCH(QString, email);
        QFETCH(QString, reason);
        QString actual = "earlier"; // a valid address leaves the reason alone
        QCOMPARE(IsEmailValid(email, actual), reason.isEmpty());
        QCOMPARE(actual, reason.isEmpty() ? QString("earlier") : reason);
    }

    void splitName_data()
    {
        QTest::addColumn<QString>("fullName");
        QTest::addColumn<QString>("expected"); // title|first|initial|last
        auto row = [](const char* name, const QString& fullName, const QString& expected) {
            QTest::newRow(name) << fullName << expected;
        };
        row("empty", "", "|||");
        row("one word", "Madonna", "|Madonna||");
        row("leading blank", " Cher", "|||Cher");
        row("two words", "John Smith", "|John||Smith");
        row("title first last", "Mr John Smith", "Mr|John||Smith");
        row("three-letter title", "Mrs Jane Smith", "Mrs|Jane||Smith");
        row("first initial last", "John A Smith", "|John|A|Smith");
        row("two-letter initial", "John AB Smith", "|John|AB|Smith");
        row("four long words", "Alexander Benjamin Christopher Davidson",
            "|Alexander||Benjamin Christopher Davidson");
        row("title and three long words drops the middle", "Dr Alexander Benjamin Christopher",
            "Dr|Alexander||Christopher");
        row("title first initial last", "Mr John A Smith", "Mr|John|A|Smith");
        row("title and short first name", "Mr J Smith", "Mr|J||Smith");
        row("short first word counts as title", "Jo Smith Brown", "Jo|Smith||Brown");
        row("trailing blank counts", "John Smith ", "|John||Smith");
        row("first initial and two last names keeps the last", "John A Smith Jones",
            "|John|A|Jones");
        row("title initial initial last", "Mr J R Tolkien", "Mr|J|R|Tolkien");
        row("non-ASCII", QString::fromUtf8("Frau Jürgen Müller"),
            QString::fromUtf8("|Frau||Jürgen Müller"));
    }

    void splitName()
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

    void splitNameKeepsUnassignedOutputs()
    {
        QString name = "Mr John Smith", t, f, i = "keep", l;
        SplitName(name, t, f, i, l);
        QCOMPARE(QStringList({t, f, i, l}).join('|'), QString("Mr|John|keep|Smith"));
        QString single = "Prince", t2 = "x", f2, i2 = "y", l2 = "z";
        SplitName(single, t2, f2, i2, l2);
        QCOMPARE(QStringList({single, t2, f2, i2, l2}).join('|'), QString("Prince||Prince||"));
    }
};

QTEST_GUILESS_MAIN(tst_EmailName)
#include "tst_emailname.moc"
