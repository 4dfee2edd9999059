#pragma once

#include <QString>

// "DSNName3", "[FieldMap7]": the numbered keys and sections of the settings file, written in
// decimal without blanks or leading zeros.
inline QString numbered(const char* key, int n)
{
    return QLatin1String(key) + QString::number(n);
}
