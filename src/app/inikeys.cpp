#include "inikeys.h"

#include "util/apperror.h"
#include "util/windows1252.h"

void requireStorable(const QString& what, const QString& text)
{
    for (QChar c : text) {
        if (Windows1252::code(c) < 0)
            throw AppError(AppError::Encoding,
                           QStringLiteral("The %1 holds the character U+%2, which cannot be "
                                          "stored in the settings file (Windows-1252)")
                               .arg(what, QString::number(c.unicode(), 16)
                                              .toUpper()
                                              .rightJustified(4, QLatin1Char('0'))));
    }
}
