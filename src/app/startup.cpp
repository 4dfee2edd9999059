#include "startup.h"

#include <exception>

#include "datasource/modADO.h"
#include "util/apperror.h"
#include "util/appglobals.h"
#include "util/messageboxes.h"

namespace {

QString withSeparator(const QString& folder)
{
    if (folder.endsWith(QLatin1Char('/')) || folder.endsWith(QLatin1Char('\\')))
        return folder;
    return folder + QLatin1Char('/');
}

bool run(const QString& cmd, const QString& programFolder, const std::function<void()>& showForm)
{
    // The host's command line carries its data folder after a "G". The test is loose on
    // purpose: any ":\" and any capital G anywhere in the line will do.
    if (!cmd.contains(QLatin1String(":\\"), Qt::CaseSensitive) ||
        !cmd.contains(QLatin1Char('G'), Qt::CaseSensitive)) {
        MessageBoxes::instance().critical(
            QStringLiteral("Sorry but this component can only be launched from the Plug-in "
                           "menu in Corbanis Veltrano Plus."));
        return false;
    }

    const qsizetype p = cmd.indexOf(QLatin1Char('G')) + 1;
    QString folder = cmd.right(cmd.size() - p);
    if (!folder.endsWith(QLatin1Char('\\')))
        folder += QLatin1Char('\\');
    SetHostDataFolder(folder);

    if (!IsADOInstalled()) {
        MessageBoxes::instance().critical(
            QStringLiteral("The application has detected that ADO is not installed, this is "
                           "required in order for the Veltrano database import plug-in to "
                           "run."));
        return false;
    }

    if (programFolder.isEmpty())
        throw AppError(AppError::PathNotFound,
                       QStringLiteral("The folder of the program could not be determined."));
    SetIniFilePath(withSeparator(programFolder) + QStringLiteral("dbimport.ini"));

    if (showForm)
        showForm();
    return true;
}

} // namespace

bool Main(const QString& argumentText, const QString& programFolder,
          const std::function<void()>& showForm)
{
    try {
        return run(argumentText, programFolder, showForm);
    } catch (const AppError& e) {
        MessageBoxes::instance().critical(e.description());
    } catch (const std::exception& e) {
        MessageBoxes::instance().critical(QString::fromUtf8(e.what()));
    }
    return false;
}
