#pragma once

#include "util/mousepointer.h"

// The busy pointer as the application's override cursor. Busy is a state, not a count:
// asking for it twice and for the default once leaves the default pointer.
class OverrideCursorPointer final : public MousePointer
{
public:
    ~OverrideCursorPointer() override;
    void setBusy(bool busy) override;

private:
    bool m_busy = false;
};
