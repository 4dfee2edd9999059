#pragma once

#include "mariadbtestserver.h"
#include "pgtestserver.h"
#include "tempfolder.h"

#include <memory>

// The same statements run on a real source of the kind named: "sqlite" (a file, read by the
// program's own SQLite provider), "sqlite-odbc" (that file through the ODBC driver),
// "postgresql" or "mariadb" (a fresh database on the test server, names in ANSI quotes).
class TestSource final
{
public:
    TestSource(const QString& kind, const QStringList& statements);
    Q_DISABLE_COPY_MOVE(TestSource)

    QString skipReason() const { return m_skip; }     // a server kind without its test server
    QString error() const { return m_error; }         // empty when every statement ran
    QString run(const QStringList& statements) const; // outside the code under test
    QStringList column(const QString& query) const;   // as SqliteColumn / PgTestDatabase::column
    QString file() const { return m_folder.filePath("source.db"); }

    QString conString;

private:
    TempFolder m_folder;
    QString m_skip;
    QString m_error;
    std::unique_ptr<PgTestDatabase> m_pg;
    std::unique_ptr<MariaDbTestDatabase> m_maria;
};

// Declares name as a TestSource; skips the test when its server is missing, fails when it
// cannot be built.
#define OPEN_TEST_SOURCE(name, kind, statements)                                                   \
    TestSource name(kind, statements);                                                             \
    if (!name.skipReason().isEmpty())                                                              \
        QSKIP(qPrintable(name.skipReason()));                                                      \
    QVERIFY2(name.error().isEmpty(), qPrintable(name.error()))
