// dbimport-gensource: writes a SQLite database with a table "Contacts" of made-up people,
// to import from in demos, tests and benchmarks. The same seed always gives the same file.
#include <sqlite3.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char* const kUsage =
    "Usage: dbimport-gensource OUTPUT.db ROWS [--seed N]\n"
    "\n"
    "Writes a SQLite database OUTPUT.db (replaced if it exists) holding one table \"Contacts\"\n"
    "of ROWS made-up people, the same for the same seed (default 1):\n"
    "\n"
    "  ContactID INTEGER PRIMARY KEY, \"Full Name\", Title, FirstName, Initial, LastName,\n"
    "  Email, Address1, Address2, City, State, Zip, Country, Company, JobTitle, Web,\n"
    "  Telephone, Fax, Notes (TEXT), Joined (DATE, yyyy-mm-dd), Score (REAL),\n"
    "  Active (BOOLEAN, 0 or 1)\n"
    "\n"
    "About 1 in 40 e-mail addresses is invalid (no @, no period after it, one letter after\n"
    "the last period, blanks only), 1 in 50 repeats an earlier address, 1 in 50 repeats one\n"
    "in other letter case, 1 in 100 is NULL and 1 in 50 has blanks around it. Address2, Fax\n"
    "and Notes are often NULL; some names are not ASCII. Every other address is unique.\n"
    "A summary line is printed on success:\n"
    "  rows=N invalid=N duplicate=N case_variant=N null_email=N\n"
    "\n"
    "Exit codes: 0 success, 1 failure, 2 usage error.\n";

// splitmix64: tiny, and the same sequence on every platform and compiler.
class Random
{
public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}
    std::uint64_t next()
    {
        std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    std::size_t below(std::size_t n) { return std::size_t(next() % n); }
    template <std::size_t N> const char* pick(const char* const (&items)[N])
    {
        return items[below(N)];
    }

private:
    std::uint64_t m_state;
};

const char* const kFirstNames[] = {
    "James",   "Mary",      "John",    "Patricia", "Robert",      "Jennifer",  "Michael", "Linda",
    "William", "Elizabeth", "David",   "Barbara",  "Richard",     "Susan",     "Joseph",  "Jessica",
    "Thomas",  "Sarah",     "Charles", "Karen",    "Oliver",      "Amelia",    "Harry",   "Isla",
    "George",  "Ava",       "Noah",    "Emily",    "Jack",        "Sophie",    "Leo",     "Grace",
    "Ann",     "Bob",       "Al",      "Jo",       "Christopher", "Alexandra", "José",    "Zoë",
    "Søren",   "Łukasz",    "Jürgen",  "Chloé",    "Björn",       "Renée"};
const char* const kLastNames[] = {
    "Smith",    "Johnson",  "Williams", "Brown",        "Jones",
    "Garcia",   "Miller",   "Davis",    "Wilson",       "Taylor",
    "Anderson", "Thomas",   "Moore",    "Martin",       "Jackson",
    "Thompson", "White",    "Harris",   "Clark",        "Lewis",
    "Walker",   "Hall",     "Young",    "King",         "Wright",
    "Scott",    "Green",    "Baker",    "Adams",        "Nelson",
    "Hill",     "Campbell", "Mitchell", "Roberts",      "Carter",
    "Phillips", "Evans",    "Turner",   "Müller",       "Østergaard",
    "Nuñez",    "Dvořák",   "O'Brien",  "Van der Berg", "Featherstonehaugh-Cholmondeley"};
const char* const kTitles[] = {"Mr", "Mrs", "Ms", "Dr", "Miss", "Prof"};
const char* const kStreets[] = {"High Street", "Station Road", "Main Street",   "Park Road",
                                "Church Lane", "Mill Lane",    "Victoria Road", "Green Lane",
                                "Manor Road",  "Kingsway",     "Elm Avenue",    "Oak Drive"};
const char* const kCities[] = {"London",  "Manchester", "Leeds",  "Bristol",  "York",    "Glasgow",
                               "Cardiff", "Belfast",    "Dublin", "New York", "Chicago", "Boston",
                               "Toronto", "Sydney",     "Köln",   "Zürich",   "Malmö",   "Kraków"};
const char* const kStates[] = {
    "Greater London", "Yorkshire", "Lancashire", "Avon", "NY", "IL", "MA", "ON", "NSW", "NRW", "ZH",
    "Skåne",          ""};
const char* const kCountries[] = {"United Kingdom", "Ireland",   "United States",
                                  "Canada",         "Australia", "Germany",
                                  "Switzerland",    "Sweden",    "Poland"};
const char* const kCompanies[] = {"Acme Ltd",
                                  "Globex Corporation",
                                  "Initech",
                                  "Umbrella plc",
                                  "Stark Industries",
                                  "Wayne Enterprises",
                                  "Hooli",
                                  "Vandelay Industries",
                                  "Soylent Green & Co",
                                  "Müller Maschinenbau GmbH",
                                  "Northwind Traders"};
const char* const kJobs[] = {"Director",       "Sales Manager", "Engineer",
                             "Accountant",     "Buyer",         "Marketing Executive",
                             "Office Manager", "Consultant",    "Chief Executive Officer"};
const char* const kDomains[] = {"example.com",        "example.org",     "example.net",
                                "mail.example.co.uk", "post.example.de", "example.ie"};
const char* const kNotes[] = {"Met at trade fair", "Prefers post",      "VIP customer",
                              "Newsletter only",   "Ask about renewal", "Ünïcödé note ✓"};

std::string lowerAscii(const std::string& text)
{
    std::string out;
    for (char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (u >= 0x80)
            continue; // keep addresses ASCII apart from the deliberate variants
        if (c == ' ' || c == '\'')
            continue;
        out += (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
    }
    return out.empty() ? std::string("x") : out;
}

std::string changeCase(const std::string& text, Random& random)
{
    std::string out = text;
    for (char& c : out) {
        if (c >= 'a' && c <= 'z' && random.below(2) == 0)
            c = char(c - 'a' + 'A');
        else if (c >= 'A' && c <= 'Z' && random.below(2) == 0)
            c = char(c - 'A' + 'a');
    }
    if (out == text) {
        for (char& c : out) {
            if (c >= 'a' && c <= 'z') {
                c = char(c - 'a' + 'A');
                break;
            }
        }
    }
    return out;
}

bool check(int rc, sqlite3* db, const char* what)
{
    if (rc == SQLITE_OK || rc == SQLITE_DONE || rc == SQLITE_ROW)
        return true;
    std::fprintf(stderr, "dbimport-gensource: %s: %s\n", what,
                 db ? sqlite3_errmsg(db) : "out of memory");
    return false;
}

} // namespace

int main(int argc, char* argv[])
{
    std::vector<std::string> positional;
    std::uint64_t seed = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (arg == "--seed" && i + 1 < argc) {
            char* end = nullptr;
            seed = std::strtoull(argv[++i], &end, 10);
            if (!end || *end) {
                std::fprintf(stderr, "dbimport-gensource: --seed needs a number\n\n%s", kUsage);
                return 2;
            }
        } else if (!arg.empty() && arg[0] == '-') {
            std::fprintf(stderr, "dbimport-gensource: unknown option %s\n\n%s", arg.c_str(),
                         kUsage);
            return 2;
        } else {
            positional.push_back(arg);
        }
    }
    if (positional.size() != 2) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    char* end = nullptr;
    const long long rows = std::strtoll(positional[1].c_str(), &end, 10);
    if (!end || *end || rows < 0) {
        std::fprintf(stderr, "dbimport-gensource: ROWS must be a number of 0 or more\n\n%s",
                     kUsage);
        return 2;
    }
    const std::string output = positional[0];
    std::remove(output.c_str());

    sqlite3* db = nullptr;
    if (!check(sqlite3_open(output.c_str(), &db), db, "cannot create the database")) {
        sqlite3_close(db);
        return 1;
    }
    const char* schema =
        "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
        "CREATE TABLE Contacts (ContactID INTEGER PRIMARY KEY, \"Full Name\" TEXT, Title TEXT, "
        "FirstName TEXT, Initial TEXT, LastName TEXT, Email TEXT, Address1 TEXT, Address2 TEXT, "
        "City TEXT, State TEXT, Zip TEXT, Country TEXT, Company TEXT, JobTitle TEXT, Web TEXT, "
        "Telephone TEXT, Fax TEXT, Notes TEXT, Joined DATE, Score REAL, Active BOOLEAN);"
        "BEGIN;";
    if (!check(sqlite3_exec(db, schema, nullptr, nullptr, nullptr), db,
               "cannot create the table")) {
        sqlite3_close(db);
        return 1;
    }
    sqlite3_stmt* insert = nullptr;
    if (!check(
            sqlite3_prepare_v2(db,
                               "INSERT INTO Contacts VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, "
                               "?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17, ?18, ?19, ?20, ?21, ?22)",
                               -1, &insert, nullptr),
            db, "cannot prepare the insert")) {
        sqlite3_close(db);
        return 1;
    }

    Random random(seed);
    std::vector<std::string> earlier; // a sample of good addresses to repeat
    long long invalid = 0, duplicate = 0, caseVariant = 0, nullEmail = 0;
    auto text = [&](int column, const std::string& value) {
        sqlite3_bind_text(insert, column, value.c_str(), int(value.size()), SQLITE_TRANSIENT);
    };
    for (long long row = 1; row <= rows; ++row) {
        const std::string first = random.pick(kFirstNames);
        const std::string last = random.pick(kLastNames);
        const bool withTitle = random.below(3) == 0;
        const bool withInitial = random.below(4) == 0;
        const std::string title = withTitle ? random.pick(kTitles) : "";
        const std::string initial = withInitial ? std::string(1, char('A' + random.below(26))) : "";
        std::string full = title.empty() ? "" : title + " ";
        full += first + " " + (initial.empty() ? "" : initial + " ") + last;

        std::string email;
        bool emailNull = false;
        const std::size_t kind = random.below(1000);
        if (kind < 25) {
            ++invalid;
            switch (random.below(4)) {
            case 0:
                email = lowerAscii(first) + "." + lowerAscii(last) + std::to_string(row) +
                        ".example.com";
                break;
            case 1:
                email = lowerAscii(first) + std::to_string(row) + "@localhost";
                break;
            case 2:
                email = lowerAscii(last) + std::to_string(row) + "@example.c";
                break;
            default:
                email = "   ";
                break;
            }
        } else if (kind < 45 && !earlier.empty()) {
            ++duplicate;
            email = earlier[random.below(earlier.size())];
        } else if (kind < 65 && !earlier.empty()) {
            ++caseVariant;
            email = changeCase(earlier[random.below(earlier.size())], random);
        } else if (kind < 75) {
            ++nullEmail;
            emailNull = true;
        } else {
            email = lowerAscii(first) + "." + lowerAscii(last) + "." + std::to_string(row) + "@" +
                    random.pick(kDomains);
            if (earlier.size() < 5000)
                earlier.push_back(email);
            else if (random.below(20) == 0)
                earlier[random.below(earlier.size())] = email;
            if (kind < 95)
                email = " " + email + "  "; // blanks around: still valid once trimmed
        }

        sqlite3_bind_int64(insert, 1, row);
        text(2, full);
        if (title.empty())
            sqlite3_bind_null(insert, 3);
        else
            text(3, title);
        text(4, first);
        if (initial.empty())
            sqlite3_bind_null(insert, 5);
        else
            text(5, initial);
        text(6, last);
        if (emailNull)
            sqlite3_bind_null(insert, 7);
        else
            text(7, email);
        text(8, std::to_string(1 + random.below(250)) + " " + random.pick(kStreets));
        if (random.below(3) == 0)
            text(9, "Flat " + std::to_string(1 + random.below(40)));
        else
            sqlite3_bind_null(insert, 9);
        text(10, random.pick(kCities));
        text(11, random.pick(kStates));
        char zip[16];
        std::snprintf(zip, sizeof zip, "%05u", unsigned(random.below(100000)));
        text(12, zip);
        text(13, random.pick(kCountries));
        const std::string company = random.pick(kCompanies);
        text(14, company);
        text(15, random.pick(kJobs));
        text(16, "https://www." + lowerAscii(company) + ".example.com/");
        char phone[32];
        std::snprintf(phone, sizeof phone, "+44 %03u %04u %04u", unsigned(random.below(1000)),
                      unsigned(random.below(10000)), unsigned(random.below(10000)));
        text(17, phone);
        if (random.below(2) == 0)
            text(18, phone);
        else
            sqlite3_bind_null(insert, 18);
        if (random.below(5) == 0)
            text(19, random.pick(kNotes));
        else
            sqlite3_bind_null(insert, 19);
        char joined[16];
        std::snprintf(joined, sizeof joined, "%04u-%02u-%02u", unsigned(1995 + random.below(30)),
                      unsigned(1 + random.below(12)), unsigned(1 + random.below(28)));
        text(20, joined);
        sqlite3_bind_double(insert, 21, double(random.below(100000)) / 100.0);
        sqlite3_bind_int(insert, 22, random.below(5) != 0 ? 1 : 0);

        if (!check(sqlite3_step(insert), db, "cannot insert a row")) {
            sqlite3_finalize(insert);
            sqlite3_close(db);
            return 1;
        }
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    if (!check(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), db, "cannot commit")) {
        sqlite3_close(db);
        return 1;
    }
    if (!check(sqlite3_close(db), db, "cannot close the database"))
        return 1;
    std::printf("rows=%lld invalid=%lld duplicate=%lld case_variant=%lld null_email=%lld\n", rows,
                invalid, duplicate, caseVariant, nullEmail);
    return 0;
}
