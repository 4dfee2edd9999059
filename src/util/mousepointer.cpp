#include "mousepointer.h"

namespace {
MousePointer* g_handler = nullptr;
}

void MousePointer::install(MousePointer* handler) { g_handler = handler; }

void MousePointer::busy()
{
    if (g_handler)
        g_handler->setBusy(true);
}

void MousePointer::normal()
{
    if (g_handler)
        g_handler->setBusy(false);
}
