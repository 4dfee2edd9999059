#pragma once

#include <QString>

// Removes leading and trailing blanks only: a tab or line break at either end belongs to
// the text (names, values and addresses are trimmed of blanks and nothing else).
QString TrimBlanks(const QString& text);
