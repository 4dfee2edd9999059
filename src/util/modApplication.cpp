#include "modApplication.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QUrl>

#include <exception>

#include "apperror.h"
#include "listcontrol.h"
#include "messageboxes.h"
#include "nativepath.h"
#include "profilefile.h"
#include "windows1252.h"

namespace {

// The profile reader's buffer is 512 characters, its last one the terminating NUL.
constexpr qsizetype ReadBufferChars = 512;

// Names are joined with this and split again, so a name holding it comes back in two.
const QChar ListSeparator(0x00AC);

QHash<QString, int> g_loadedForms; // upper-cased name -> number of loaded instances
ShellLauncher g_launcher;

QString formKey(const QString& name)
{
    return name.trimmed().toUpper();
}

// What the shell's launcher reports: above 32 when the document was handed to its
// program, 2 when the file does not exist, 31 when no program takes it.
long desktopLaunch(const QString& nativeFile, const QString& /*verb*/)
{
    constexpr long Launched = 33;
    constexpr long FileNotFound = 2;
    constexpr long NoAssociation = 31;
    if (!QFileInfo::exists(nativeFile))
        return FileNotFound;
    return QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(nativeFile).absoluteFilePath()))
               ? Launched
               : NoAssociation;
}

QString shifted(const QString& text, int delta)
{
    QString result;
    result.reserve(text.size());
    for (const QChar c : text) {
        const int code = Windows1252::code(c);
        const int next = code + delta;
        if (code < 0 || next < 0 || next > 255)
            return QString();
        result.append(Windows1252::character(next));
    }
    return result;
}

} // namespace

QString ReadIniString(const QString& file, const QString& section, const QString& key,
                      const QString& defaultValue)
{
    QString value = ProfileFile::read(NativePath(file), section, key);
    const qsizetype nul = value.indexOf(QChar(0));
    if (nul >= 0)
        value.truncate(nul);
    if (value.isEmpty())
        return defaultValue;
    return value.left(ReadBufferChars - 1);
}

void WriteIniString(const QString& file, const QString& section, const QString& key,
                    const QString& value)
{
    ProfileFile::write(NativePath(file), section, key, value);
}

QString ScrambleConString(const QString& text)
{
    return shifted(text, +1);
}

QString UnscrambleConString(const QString& text)
{
    return shifted(text, -1);
}

bool ListFiles(const QString& folder, const QString& extension, QStringList& names)
{
    QString hostFolder = folder;
    if (!hostFolder.trimmed().isEmpty() && !hostFolder.endsWith(QLatin1Char('\\')))
        hostFolder += QLatin1Char('\\');
    const QString native = NativePath(hostFolder);
    const QDir dir(native.isEmpty() ? QStringLiteral(".") : native);

    // Windows compares names without regard to case, so "*.gdb" finds "A.GDB" too.
    const QStringList found = dir.entryList({QStringLiteral("*.") + extension},
                                            QDir::Files | QDir::Hidden, QDir::Unsorted);
    if (found.isEmpty())
        return false;
    names = found.join(ListSeparator).split(ListSeparator);
    return true;
}

bool FileExists(const QString& path)
{
    const QFileInfo info(NativePath(path));
    return info.exists() && info.isFile();
}

QString GetShortName(const QString& /*path*/)
{
    return QString();
}

long FindComboItem(const ListControl& combo, const QString& text)
{
    try {
        return combo.findExact(text);
    } catch (const AppError& e) {
        MessageBoxes::instance().critical(e.numberAndDescription() +
                                          QStringLiteral(" - FindComboItem"));
    } catch (const std::exception& e) {
        MessageBoxes::instance().critical(QString::number(AppError::InvalidProcedureCall) +
                                          QStringLiteral(" - ") + QString::fromUtf8(e.what()) +
                                          QStringLiteral(" - FindComboItem"));
    }
    return -1;
}

bool IsFormLoaded(const QString& formName)
{
    return g_loadedForms.value(formKey(formName)) > 0;
}

void RegisterLoadedForm(const QString& formName)
{
    ++g_loadedForms[formKey(formName)];
}

void UnregisterLoadedForm(const QString& formName)
{
    const QString key = formKey(formName);
    auto it = g_loadedForms.find(key);
    if (it == g_loadedForms.end())
        return;
    if (--*it <= 0)
        g_loadedForms.erase(it);
}

long ShellOpen(const QString& file, const QString& /*parameters*/, int /*showMode*/,
               const QString& /*directory*/, const QString& verb, void* /*ownerWindow*/)
{
    const QString native = NativePath(file);
    return g_launcher ? g_launcher(native, verb) : desktopLaunch(native, verb);
}

void SetShellLauncher(ShellLauncher launcher)
{
    g_launcher = std::move(launcher);
}
