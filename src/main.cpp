#include "app/settingslocation.h"
#include "app/startup.h"
#include "util/appglobals.h"
#include "wizard/frmDBImport.h"
#include "util/forms/overridecursorpointer.h"
#include "util/forms/qtmessageboxes.h"

#include <QApplication>
#include <QDir>
#include <QStringList>

#include <memory>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("dbimport"));
    QApplication::setApplicationVersion(AppVersion());

    QtMessageBoxes boxes;
    MessageBoxes::setInstance(&boxes);
    OverrideCursorPointer pointer;
    MousePointer::install(&pointer);

    // The host hands over its data folder in the argument text; Main reads it as one line.
    const QString argumentText = QCoreApplication::arguments().mid(1).join(QLatin1Char(' '));

    // An installed program keeps its settings in the user's folder, made here when missing.
    const QString settingsFolder = SettingsFolder(QCoreApplication::applicationDirPath());
    QDir().mkpath(settingsFolder);

    std::unique_ptr<frmDBImport> form;
    const bool shown = Main(argumentText, settingsFolder, [&form] {
        form = std::make_unique<frmDBImport>();
        form->show();
    });

    // The program lives as long as the wizard; without it there is nothing to run.
    const int result = shown ? app.exec() : 0;

    form.reset();
    MousePointer::install(nullptr);
    MessageBoxes::setInstance(nullptr);
    return result;
}
