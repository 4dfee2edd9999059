#include "namematch.h"

#include "hostfields.h"

#include <QHash>
#include <QSet>

#include <algorithm>

namespace {

// Usual spellings per host field key, normalised; the key itself and the Group field name
// always count.
const QHash<QString, QStringList>& synonyms()
{
    static const QHash<QString, QStringList> table = {
        {"EMailAddress",
         {"email", "mail", "emailaddress", "emailadresse", "mailaddress", "emailaddr"}},
        {"FullNameMacro", {"fullname", "name", "contactname", "contact", "vollständigername"}},
        {"Title", {"title", "salutation", "anrede", "titel"}},
        {"FirstName", {"firstname", "forename", "givenname", "first", "vorname"}},
        {"Initial", {"initial", "middleinitial", "middlename", "initials"}},
        {"LastName", {"lastname", "surname", "familyname", "last", "nachname", "familienname"}},
        {"Address1",
         {"address1", "addressline1", "street", "address", "streetaddress", "strasse", "straße",
          "adresse"}},
        {"Address2", {"address2", "addressline2", "adresszusatz"}},
        {"City", {"city", "town", "ort", "stadt", "wohnort"}},
        {"State", {"state", "county", "region", "province", "bundesland", "stateorcounty"}},
        {"Zip", {"zip", "zipcode", "postcode", "postalcode", "plz", "postleitzahl"}},
        {"Country", {"country", "land", "countryname"}},
        {"Company",
         {"company", "companyname", "organisation", "organization", "firma", "unternehmen"}},
        {"JobTitle", {"jobtitle", "position", "job", "role", "funktion"}},
        {"Web", {"web", "website", "url", "weburl", "homepage", "webseite", "internet"}},
        {"Telephone", {"telephone", "phone", "tel", "phonenumber", "telefon", "telefonnummer"}},
        {"Fax", {"fax", "faxnumber", "telefax"}},
        {"Field1", {"field1"}},
        {"Field2", {"field2"}},
        {"Field3", {"field3"}},
        {"Field4", {"field4"}},
    };
    return table;
}

const char* const kGroupNames[] = {"EmailAddress", "WEB", "FAX"};

int keyIndex(const char* key)
{
    for (int i = 0; i < int(kHostFields.size()); ++i) {
        if (qstrcmp(kHostFields[size_t(i)].key, key) == 0)
            return i;
    }
    return -1;
}

} // namespace

QString NormalisedFieldName(const QString& name)
{
    QString result;
    result.reserve(name.size());
    for (QChar c : name) {
        if (c.isSpace() || c == QLatin1Char('_') || c == QLatin1Char('-') || c == QLatin1Char('.'))
            continue;
        result += c.toLower();
    }
    return result;
}

int MatchFieldsByName(const QStringList& columns, std::array<QString, 21>& mapping)
{
    QSet<QString> used;
    for (const QString& column : mapping) {
        if (!column.isEmpty())
            used.insert(column.toLower());
    }
    const int fullName = keyIndex("FullNameMacro");
    const std::array<int, 4> parts = {keyIndex("Title"), keyIndex("FirstName"), keyIndex("Initial"),
                                      keyIndex("LastName")};
    auto anyPartMapped = [&] {
        for (int p : parts) {
            if (!mapping[size_t(p)].isEmpty())
                return true;
        }
        return false;
    };

    auto matchOne = [&](int index) {
        if (!mapping[size_t(index)].isEmpty())
            return 0;
        const QString key = QString::fromUtf8(kHostFields[size_t(index)].key);
        QStringList names = synonyms().value(key);
        names << NormalisedFieldName(key);
        for (const char* groupName : kGroupNames) {
            if (key.compare(QLatin1String(groupName), Qt::CaseInsensitive) == 0 ||
                (key == QLatin1String("EMailAddress") && qstrcmp(groupName, "EmailAddress") == 0))
                names << NormalisedFieldName(QString::fromUtf8(groupName));
        }
        // The first spelling in the list wins over later ones, then the column order.
        for (const QString& wanted : names) {
            for (const QString& column : columns) {
                if (used.contains(column.toLower()) || NormalisedFieldName(column) != wanted)
                    continue;
                mapping[size_t(index)] = column;
                used.insert(column.toLower());
                return 1;
            }
        }
        return 0;
    };

    int matched = 0;
    for (int i = 0; i < int(kHostFields.size()); ++i) {
        if (i == fullName)
            continue;
        const bool isPart = std::find(parts.begin(), parts.end(), i) != parts.end();
        if (isPart && !mapping[size_t(fullName)].isEmpty())
            continue;
        matched += matchOne(i);
    }
    if (!anyPartMapped())
        matched += matchOne(fullName);
    return matched;
}
