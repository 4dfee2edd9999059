#include "blanks.h"

QString TrimBlanks(const QString& text)
{
    qsizetype first = 0;
    qsizetype last = text.size();
    while (first < last && text.at(first) == QLatin1Char(' '))
        ++first;
    while (last > first && text.at(last - 1) == QLatin1Char(' '))
        --last;
    return (first == 0 && last == text.size()) ? text : text.mid(first, last - first);
}
