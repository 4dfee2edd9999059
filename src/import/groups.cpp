#include "groups.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "groupstore.h"
#include "util/apperror.h"
#include "util/appglobals.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"
#include "util/mousepointer.h"
#include "util/nativepath.h"
#include "util/windows1252.h"

namespace {

// The file name without its four-character extension and without any folder.
QString CleanFilename(const QString& path)
{
    const QString rest = path.left(path.size() - 4);
    const int slash = int(rest.lastIndexOf(QLatin1Char('\\')));
    return slash < 0 ? rest : rest.mid(slash + 1);
}

const QString kGroupExtension = QStringLiteral(".gdb");

} // namespace

bool IsUsableGroupName(const QString& name, QString& message)
{
    for (const QChar c : name) {
        if (c == u'/' || c == u'\\' || c.unicode() < 0x20 || c.unicode() == 0x7F) {
            message = QStringLiteral("The Group name \"%1\" cannot be used: a Group name may "
                                     "not hold \"/\", \"\\\" or control characters.")
                          .arg(name);
            return false;
        }
        if (Windows1252::code(c) < 0) {
            message = QStringLiteral("The Group name \"%1\" cannot be used: the character %2 "
                                     "cannot be stored in the settings file (Windows-1252).")
                          .arg(name, c);
            return false;
        }
    }
    // "..", ".." with blanks and ".x" would name a folder above or a hidden file.
    if (name.trimmed().startsWith(QLatin1Char('.'))) {
        message = QStringLiteral("The Group name \"%1\" cannot be used: a Group name may not "
                                 "begin with a period.")
                      .arg(name);
        return false;
    }
    return true;
}

QString GroupFilePath(const QString& name, const QString& folder)
{
    const QString path = folder + name + kGroupExtension;
    if (FileExists(path))
        return path;
    QStringList files;
    if (ListFiles(folder, QStringLiteral("gdb"), files)) {
        for (const QString& file : files) {
            if (CleanFilename(file).compare(name, Qt::CaseInsensitive) == 0 &&
                file.endsWith(kGroupExtension, Qt::CaseInsensitive))
                return folder + file;
        }
    }
    return path;
}

QStringList LoadVTGroups()
{
    QStringList groups;
    try {
        QStringList files;
        if (ListFiles(HostDataFolder(), QStringLiteral("gdb"), files)) {
            for (const QString& file : files) {
                const QString name = CleanFilename(file);
                const QString upper = name.toUpper();
                // The host's own lists live beside the Groups but are not Groups.
                if (upper == QLatin1String("EXCLUSION LIST") ||
                    upper == QLatin1String("ALL GROUPS"))
                    continue;
                groups << name;
            }
        }
    } catch (const AppError& e) {
        MessageBoxes::instance().critical(e.numberAndDescription() +
                                          QStringLiteral(" - LoadVTGroups"));
    }
    return groups;
}

bool CreateGroup(const QString& name, const QString& folder)
{
    QString message;
    if (!IsUsableGroupName(name, message)) {
        MessageBoxes::instance().exclamation(message);
        return false;
    }
    const QString path = folder + name + kGroupExtension;
    try {
        if (FileExists(GroupFilePath(name, folder))) {
            MessageBoxes::instance().information(QStringLiteral("A Group by the name: ") + name +
                                                 QStringLiteral("\r\nalready exists.\r\n\r\n") +
                                                 QStringLiteral("Click OK to choose a new name"));
            return false;
        }
        MousePointer::busy();
        GroupStore::createFile(NativePath(path), GroupStore::groupFields());
        MousePointer::normal();
        return true;
    } catch (const AppError& e) {
        MousePointer::normal();
        MessageBoxes::instance().critical(QStringLiteral("CreateGroupError: ") +
                                          e.numberAndDescription());
        return false;
    }
}

bool PurgeGroup(const QString& groupName)
{
    try {
        const QString base = HostDataFolder() + groupName;
        for (const QString& extension : {kGroupExtension, QStringLiteral(".vtp")}) {
            const QString native = NativePath(base + extension);
            if (QFile::exists(native) && !QFile::remove(native))
                return false;
        }
        return CreateGroup(groupName, HostDataFolder());
    } catch (const AppError&) {
        return false;
    }
}
