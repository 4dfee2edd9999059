// dbimport-cli: the saved import choices of one connection, run without the wizard.
#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>
#include <unistd.h>

#include "app/commandlinerunner.h"

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dbimport-cli"));
    QTextStream out(stdout);
    QTextStream err(stderr);
    return RunCommandLine(QCoreApplication::arguments(), out, err, ::isatty(STDERR_FILENO) == 1);
}
