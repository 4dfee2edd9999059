#include "nativepath.h"

QString NativePath(const QString& hostPath)
{
    QString path = hostPath;
    if (path.size() >= 2 && path.at(1) == QLatin1Char(':') && path.at(0).isLetter())
        path.remove(0, 2);
    path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    return path;
}
