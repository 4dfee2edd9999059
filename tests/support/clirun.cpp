#include "clirun.h"

#include "sqlitefixture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QThread>

#include <csignal>

int CliRun::figure(const QString& label) const
{
    const QRegularExpression re(QRegularExpression::escape(label) + " *: (\\d+)\\n");
    const auto m = re.match(out);
    return m.hasMatch() ? m.captured(1).toInt() : -1;
}

QString buildProgram(const QString& name)
{
    return QDir(qEnvironmentVariable("DBIMPORT_BIN_DIR")).filePath(name);
}

CliRun runProgram(const QString& program, const QStringList& arguments, const QString& filesFolder)
{
    QProcess process;
    if (!filesFolder.isEmpty()) {
        process.setStandardOutputFile(filesFolder + "/stdout.txt");
        process.setStandardErrorFile(filesFolder + "/stderr.txt");
    }
    process.start(program, arguments);
    CliRun run;
    if (process.waitForFinished(180000) && process.exitStatus() == QProcess::NormalExit)
        run.exitCode = process.exitCode();
    if (filesFolder.isEmpty()) {
        run.out = QString::fromUtf8(process.readAllStandardOutput());
        run.err = QString::fromUtf8(process.readAllStandardError());
    }
    for (auto [name, text] : {std::pair{"/stdout.txt", &run.out}, {"/stderr.txt", &run.err}}) {
        QFile file(filesFolder + name);
        if (!filesFolder.isEmpty() && file.open(QIODevice::ReadOnly))
            *text = QString::fromUtf8(file.readAll());
    }
    return run;
}

int killImportOnceGroupHolds(const QStringList& arguments, const QString& group, int rows)
{
    QProcess process;
    process.start(buildProgram("dbimport-cli"), arguments);
    if (!process.waitForStarted())
        return -1;
    QElapsedTimer timer;
    timer.start();
    int seen = 0;
    while (seen < rows && timer.elapsed() < 60000 && process.state() == QProcess::Running) {
        seen =
            std::max(seen, SqliteColumn(group, "SELECT count(*) FROM Recipients").value(0).toInt());
        QThread::msleep(5);
    }
    if (process.state() != QProcess::Running)
        return -1;
    ::kill(pid_t(process.processId()), SIGKILL);
    return process.waitForFinished() && process.exitStatus() == QProcess::CrashExit ? seen : -1;
}
