#pragma once

#include "util/messageboxes.h"

// The message boxes the user sees: modal Qt boxes over the active window.
class QtMessageBoxes final : public MessageBoxes
{
public:
    void show(Icon icon, const QString& text, const QString& title = QString()) override;
    bool ask(const QString& text, bool defaultYes = true,
             const QString& title = QString()) override;
    void beep() override;
};
