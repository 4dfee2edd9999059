// The mapping step's helpers: matching fields by column name, and the sample values read
// from the first rows of a real source.
#include <QtTest>

#include "import/hostfields.h"
#include "import/namematch.h"
#include "import/samplerows.h"

#include "datarow.h"
#include "sqlitefixture.h"
#include "tempfolder.h"

namespace {

int keyIndex(const QString& key)
{
    for (int i = 0; i < int(kHostFields.size()); ++i) {
        if (key == QLatin1String(kHostFields[size_t(i)].key))
            return i;
    }
    qFatal("no host field %s", qPrintable(key));
}

// "Key=Column" pairs, in host field order, of every mapped field.
QStringList pairs(const std::array<QString, 21>& mapping)
{
    QStringList result;
    for (int i = 0; i < int(mapping.size()); ++i) {
        if (!mapping[size_t(i)].isEmpty())
            result << QString::fromUtf8(kHostFields[size_t(i)].key) + '=' + mapping[size_t(i)];
    }
    return result;
}

} // namespace

class tst_MappingHelp : public QObject
{
    Q_OBJECT

private slots:
    void matchByName_data()
    {
        QTest::addColumn<QStringList>("columns");
        QTest::addColumn<QStringList>("userMapping");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<int>("matched");
        DataRow("german",
                QStringList{"E-Mail", "Anrede", "Vorname", "Nachname", "Straße", "PLZ", "Ort",
                            "Land", "Firma", "Telefon", "Telefax", "Webseite"},
                QStringList{},
                QStringList{"EMailAddress=E-Mail", "Title=Anrede", "FirstName=Vorname",
                            "LastName=Nachname", "Address1=Straße", "City=Ort", "Zip=PLZ",
                            "Country=Land", "Company=Firma", "Web=Webseite", "Telephone=Telefon",
                            "Fax=Telefax"},
                12);
        DataRow("mixed styles",
                QStringList{"ID", "e_mail", "FIRST_NAME", "last-name", "Address.Line.1",
                            "Postal Code", "tel", "Organisation", "Job Title", "URL", "County",
                            "fax", "Field1"},
                QStringList{},
                QStringList{"EMailAddress=e_mail", "FirstName=FIRST_NAME", "LastName=last-name",
                            "Address1=Address.Line.1", "State=County", "Zip=Postal Code",
                            "Company=Organisation", "JobTitle=Job Title", "Web=URL",
                            "Telephone=tel", "Fax=fax", "Field1=Field1"},
                12);
        // The user's choices stay, even odd ones, and a column they use is not taken twice.
        DataRow("user mapping kept", QStringList{"Email", "Surname", "Given Name", "City", "Town"},
                QStringList{"EMailAddress=Surname", "City=Town"},
                QStringList{"EMailAddress=Surname", "FirstName=Given Name", "City=Town"}, 1);
        // A full name is matched only when no name part is mapped, and keeps the parts out.
        DataRow("full name", QStringList{"Full Name", "Mail", "Phone"}, QStringList{},
                QStringList{"EMailAddress=Mail", "FullNameMacro=Full Name", "Telephone=Phone"}, 3);
        DataRow("name parts win", QStringList{"Name", "Forename", "Email Address"}, QStringList{},
                QStringList{"EMailAddress=Email Address", "FirstName=Forename"}, 2);
        DataRow("user full name", QStringList{"Name", "First Name", "EMail"},
                QStringList{"FullNameMacro=Name"},
                QStringList{"EMailAddress=EMail", "FullNameMacro=Name"}, 1);
        DataRow("nothing alike", QStringList{"A", "B"}, QStringList{}, QStringList{}, 0);
    }
    void matchByName()
    {
        QFETCH(QStringList, columns);
        QFETCH(QStringList, userMapping);
        QFETCH(QStringList, expected);
        QFETCH(int, matched);
        std::array<QString, 21> mapping;
        for (const QString& pair : userMapping)
            mapping[size_t(keyIndex(pair.section('=', 0, 0)))] = pair.section('=', 1);
        QCOMPARE(MatchFieldsByName(columns, mapping), matched);
        QCOMPARE(pairs(mapping), expected);
    }

    // Only the first 50 rows are read; the first non-empty value is shown, the e-mail
    // check counts what it would refuse, the full name splits as the import splits it.
    void sampleRows()
    {
        TempFolder folder;
        const QString file = folder.filePath("source.db");
        const QString error = BuildSqliteDatabase(
            file, {"CREATE TABLE People (Mail TEXT, \"Full Name\" TEXT, Note TEXT)",
                   "INSERT INTO People VALUES ('  ', '', NULL), ('bad', NULL, NULL), "
                   "(' a@x.com ', 'Dr Ann B Lee', NULL)",
                   "WITH RECURSIVE s(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM s WHERE i < 60) "
                   "INSERT INTO People SELECT CASE WHEN i > 44 THEN 'late' ELSE 'p' || i || "
                   "'@x.com' END, 'P ' || i, CASE WHEN i = 55 THEN 'too late' END FROM s"});
        QVERIFY2(error.isEmpty(), qPrintable(error));
        const QStringList columns{"Mail", "Full Name", "Note"};
        const SampleRows sample = SampleRows::read("Provider=SQLite;Data Source=" + file,
                                                   "select * from People", columns);
        QCOMPARE(sample.error, QString());
        QCOMPARE(sample.rows.size(), 50);
        QCOMPARE(sample.firstValue("Mail"), QString("bad"));
        QCOMPARE(sample.firstValue("Note"), QString());
        int sampled = 0;
        // Blank, "bad", and "late" in rows 48 to 50 of the 50.
        QCOMPARE(sample.refusedEmails("Mail", &sampled), 5);
        QCOMPARE(sampled, 50);
        QCOMPARE(sample.namePreview("Full Name"),
                 QString("Title: Dr  First: Ann  Initial: B  Last: Lee"));

        const SampleRows refused = SampleRows::read("Provider=SQLite;Data Source=" + file,
                                                    "select * from Nowhere", columns);
        QVERIFY(refused.error.contains("Nowhere"));
        QVERIFY(refused.rows.isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_MappingHelp)
#include "tst_mappinghelp.moc"
