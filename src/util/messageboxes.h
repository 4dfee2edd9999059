#pragma once

#include <QString>

// The one seam every message box goes through. The wizard installs a QMessageBox-backed
// implementation, the command-line runner one that prints, and tests a scripted one.
class MessageBoxes
{
public:
    enum class Icon { Information, Exclamation, Critical, Question };

    virtual ~MessageBoxes() = default;

    // OK-only box. An empty title means the program's title.
    virtual void show(Icon icon, const QString& text, const QString& title = QString()) = 0;
    // Yes/No question; returns true for Yes. defaultYes picks the default button.
    virtual bool ask(const QString& text, bool defaultYes = true,
                     const QString& title = QString()) = 0;
    // The system beep that goes with refusing a key.
    virtual void beep() {}

    void information(const QString& text, const QString& title = QString())
    {
        show(Icon::Information, text, title);
    }
    void exclamation(const QString& text, const QString& title = QString())
    {
        show(Icon::Exclamation, text, title);
    }
    void critical(const QString& text, const QString& title = QString())
    {
        show(Icon::Critical, text, title);
    }

    // The process-wide instance. Never null: until one is installed, a silent
    // implementation answers No to every question.
    static MessageBoxes& instance();
    // Installs box (not owned); nullptr restores the silent default.
    static void setInstance(MessageBoxes* box);
};
