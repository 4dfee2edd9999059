#pragma once

#include <QString>

// "DSNName3", "[FieldMap7]": the numbered keys and sections of the settings file, written in
// decimal without blanks or leading zeros.
inline QString numbered(const char* key, int n)
{
    return QLatin1String(key) + QString::number(n);
}

// Throws AppError naming `what` and the first character of text that the settings file
// cannot hold. Routines that write several keys call it before their first write, so a
// refused value never leaves the file half old, half new.
void requireStorable(const QString& what, const QString& text);
