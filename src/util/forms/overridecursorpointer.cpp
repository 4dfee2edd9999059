#include "overridecursorpointer.h"

#include <QApplication>

OverrideCursorPointer::~OverrideCursorPointer()
{
    if (m_busy)
        QApplication::restoreOverrideCursor();
}

void OverrideCursorPointer::setBusy(bool busy)
{
    if (busy == m_busy)
        return;
    m_busy = busy;
    if (busy)
        QApplication::setOverrideCursor(Qt::WaitCursor);
    else
        QApplication::restoreOverrideCursor();
}
