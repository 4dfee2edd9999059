#pragma once

#include <QString>
#include <QStringList>

// What the ODBC driver manager knows: the data source names (user and system) and the
// installed drivers, as unixODBC reports them through the ODBC API, so that every place
// unixODBC reads its configuration from counts (ODBCSYSINI, ODBCINI, the user's ~/.odbc.ini).
struct OdbcDataSource
{
    QString name;
    QString driver; // the driver's description as the data source names it
};

// False with a message when the driver manager cannot be reached.
bool ListOdbcDataSources(QList<OdbcDataSource>& sources, QString& message);
bool ListOdbcDrivers(QStringList& drivers, QString& message);
