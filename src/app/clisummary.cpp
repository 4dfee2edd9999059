#include "clisummary.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

QJsonValue pathOrNull(const QString& path)
{
    return path.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(path);
}

} // namespace

QString SummaryText(const CliRunSummary& s)
{
    const QString mode = s.replace ? QStringLiteral("replace (existing recipients updated)")
                                   : QStringLiteral("add (existing recipients kept)");
    QString text;
    text += QStringLiteral("Connection       : ") + s.connection + QLatin1Char('\n');
    text += QStringLiteral("Group            : ") + s.group + QLatin1Char('\n');
    text += QStringLiteral("Mode             : ") + mode + QLatin1Char('\n');
    text += QStringLiteral("Log file         : ") +
            (s.logPath.isEmpty() ? QStringLiteral("(none)") : s.logPath) + QLatin1Char('\n');
    if (!s.reportPath.isEmpty())
        text += QStringLiteral("Report           : ") + s.reportPath + QLatin1Char('\n');
    if (s.testRun)
        text += QStringLiteral("Test run: nothing was written to the Group\n");
    text +=
        QStringLiteral("Total Processed  : ") + QString::number(s.processed) + QLatin1Char('\n');
    text += (s.testRun ? QStringLiteral("Would be added   : ")
                       : QStringLiteral("Recipients Added : ")) +
            QString::number(s.added) + QLatin1Char('\n');
    text +=
        QStringLiteral("Duplicates       : ") + QString::number(s.duplicates) + QLatin1Char('\n');
    text += QStringLiteral("Illegal          : ") + QString::number(s.illegal) + QLatin1Char('\n');
    if (s.testRun && s.replace) {
        text +=
            QStringLiteral("Would change     : ") + QString::number(s.updated) + QLatin1Char('\n');
        for (auto it = s.changedFields.cbegin(); it != s.changedFields.cend(); ++it)
            text += QStringLiteral("  ") + it.key() + QStringLiteral(": ") +
                    QString::number(it.value()) + QLatin1Char('\n');
    }
    text += QStringLiteral("Time             : ") + QString::number(s.seconds, 'f', 1) +
            QStringLiteral(" s\n");
    return text;
}

QByteArray SummaryJson(const CliRunSummary& s)
{
    QJsonObject o;
    o.insert(QStringLiteral("connection"), s.connection);
    o.insert(QStringLiteral("group"), s.group);
    o.insert(QStringLiteral("replace"), s.replace);
    o.insert(QStringLiteral("processed"), s.processed);
    o.insert(QStringLiteral("added"), s.added);
    o.insert(QStringLiteral("duplicates"), s.duplicates);
    o.insert(QStringLiteral("illegal"), s.illegal);
    o.insert(QStringLiteral("testRun"), s.testRun);
    if (s.testRun && s.replace)
        o.insert(QStringLiteral("wouldChange"), s.updated);
    o.insert(QStringLiteral("log"), pathOrNull(s.logPath));
    o.insert(QStringLiteral("report"), pathOrNull(s.reportPath));
    o.insert(QStringLiteral("seconds"), qRound(s.seconds * 1000) / 1000.0);
    o.insert(QStringLiteral("exitStatus"), s.exitStatus);
    o.insert(QStringLiteral("error"),
             s.error.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(s.error));
    return QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
}

// "70 - Permission denied" becomes "Permission denied (error 70)": the sentence first,
// the number last for whoever looks it up.
QString numberLast(const QString& text)
{
    static const QRegularExpression numbered(QStringLiteral("^(-?\\d+) - (.+)$"),
                                             QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpressionMatch m = numbered.match(text);
    return m.hasMatch()
               ? m.captured(2) + QStringLiteral(" (error ") + m.captured(1) + QLatin1Char(')')
               : text;
}

QString CommandLineWording(const QString& message)
{
    QString text = message;
    // Advice for a dialog that stays open; a command line just ends.
    static const QRegularExpression clickOk(
        QStringLiteral("\\s*Click OK to choose a new name\\s*$"));
    text.remove(clickOk);
    // The routine names the boxes carry say which step failed; say it in words.
    static const QString createPrefix = QStringLiteral("CreateGroupError: ");
    static const QString listSuffix = QStringLiteral(" - LoadVTGroups");
    if (text.startsWith(createPrefix))
        text =
            QStringLiteral("cannot create the Group: ") + numberLast(text.mid(createPrefix.size()));
    else if (text.endsWith(listSuffix))
        text = QStringLiteral("cannot list the Groups: ") +
               numberLast(text.chopped(listSuffix.size()));
    else
        text = numberLast(text);
    // One message, one line.
    static const QRegularExpression lineBreaks(QStringLiteral("\\s*\\r?\\n\\s*"));
    text.replace(lineBreaks, QStringLiteral(" "));
    return text.trimmed();
}
