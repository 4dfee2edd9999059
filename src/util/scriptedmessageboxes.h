#pragma once

#include "messageboxes.h"

#include <QList>
#include <QQueue>
#include <QString>

// Records every box shown and answers questions from a queue; when the queue is empty a
// question gets the fallback answer. Used by tests and, with its own fallback rules,
// by the command-line runner.
class ScriptedMessageBoxes : public MessageBoxes
{
public:
    struct Shown
    {
        Icon icon;
        QString text;
        QString title; // as passed (empty = the program's title)
        bool defaultYes = true; // questions only
    };

    void show(Icon icon, const QString& text, const QString& title = QString()) override;
    bool ask(const QString& text, bool defaultYes = true, const QString& title = QString()) override;
    void beep() override { ++m_beeps; }

    void queueAnswer(bool yes) { m_answers.enqueue(yes); }
    void setFallbackAnswer(bool yes) { m_fallback = yes; }

    const QList<Shown>& shown() const { return m_shown; }
    QStringList texts() const;
    int beeps() const { return m_beeps; }
    void clear();

private:
    QList<Shown> m_shown;
    QQueue<bool> m_answers;
    bool m_fallback = false;
    int m_beeps = 0;
};

// Installs a MessageBoxes for the lifetime of the guard, then restores the previous one.
class MessageBoxesGuard
{
public:
    explicit MessageBoxesGuard(MessageBoxes* box);
    ~MessageBoxesGuard();
    MessageBoxesGuard(const MessageBoxesGuard&) = delete;
    MessageBoxesGuard& operator=(const MessageBoxesGuard&) = delete;

private:
    MessageBoxes* m_previous;
};
