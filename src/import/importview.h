#pragma once

#include <QString>

// How the import engine shows what it does. The wizard's import step and the
// command-line runner implement it; the engine never touches a widget.
class ImportView
{
public:
    virtual ~ImportView() = default;

    // The status line (the step's lblCommand).
    virtual void setStatus(const QString& text) = 0;
    // The four counter labels.
    virtual void setCounters(qint32 totalProcessed, qint32 added, qint32 duplicates,
                             qint32 illegal) = 0;
    virtual void setProgressRange(int minimum, int maximum) = 0;
    virtual void setProgressValue(int value) = 0;
    virtual void setProgressVisible(bool visible) = 0;
    // The bold notice shown in place of the bar when no record count is known.
    virtual void showNoProgressNotice(const QString& text) = 0;
    // Let pending user-interface events run (the Cancel button among them).
    virtual void yieldToEvents() = 0;
};
