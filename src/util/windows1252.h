#pragma once

#include <QByteArray>
#include <QChar>
#include <QString>

// Windows-1252, the ANSI code page the settings file and the stored connection strings
// use. Exact both ways: the five bytes the code page leaves undefined (0x81, 0x8D, 0x8F,
// 0x90, 0x9D) map to the C1 control of the same number, as Windows maps them.
namespace Windows1252 {

// The code of a character, or -1 when the code page has none for it.
int code(QChar c);
// The character of a code 0-255.
QChar character(int code);

QString decode(const QByteArray& bytes);
// False, out untouched, when a character has no code; firstBad (if given) is then the
// index of the first such character.
bool encode(const QString& text, QByteArray& out, qsizetype* firstBad = nullptr);

} // namespace Windows1252
