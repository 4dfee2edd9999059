#pragma once

// The busy (hourglass) and default mouse pointer, behind a seam so that the data and
// engine layers can switch it without linking Widgets. The wizard installs a handler that
// sets the application's override cursor; without one these calls do nothing.
class MousePointer
{
public:
    virtual ~MousePointer() = default;
    virtual void setBusy(bool busy) = 0;

    static void install(MousePointer* handler); // not owned; nullptr removes it
    static void busy();
    static void normal();
};
