// The name splitter and the e-mail check of the record loop on arbitrary text.
#include <QString>

#include <cstdint>
#include <cstdlib>

#include "import/importengine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(bytes), qsizetype(size));

    QString reason;
    if (IsEmailValid(text, reason)) {
        // A valid address has an '@' and, after it, a period followed by two characters.
        const qsizetype at = text.indexOf(u'@');
        const qsizetype dot = text.lastIndexOf(u'.');
        if (at < 0 || dot < at)
            abort();
    } else if (reason.isEmpty()) {
        abort();
    }

    QString fullName = text, title, firstName, initial, lastName;
    SplitName(fullName, title, firstName, initial, lastName);
    // Every piece comes out of the name: nothing is made up.
    for (const QString* piece : {&title, &firstName, &initial, &lastName}) {
        if (!text.contains(*piece))
            abort();
    }
    return 0;
}
