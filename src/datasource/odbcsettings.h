#pragma once

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

// What an ODBC connection string gives its driver, read the way the driver manager reads
// it: each keyword from the string itself, else from the data source it names (odbc.ini).
// For a route that talks to the same server without the driver, and must know every setting
// the driver would have acted on.
class OdbcSettings final
{
public:
    // False when conString is not an ODBC string or cannot be parsed.
    bool read(const QString& conString);
    // The value of the first of these keywords that has one (without regard to case); empty
    // when none has.
    QString value(const QStringList& names) const;
    // Every keyword set, in the string and in its data source.
    QStringList keys() const;

private:
    QList<QPair<QString, QString>> m_pairs;
    QString m_dsn;
};
