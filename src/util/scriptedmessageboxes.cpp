#include "scriptedmessageboxes.h"

void ScriptedMessageBoxes::show(Icon icon, const QString& text, const QString& title)
{
    m_shown.append({icon, text, title, true});
}

bool ScriptedMessageBoxes::ask(const QString& text, bool defaultYes, const QString& title)
{
    m_shown.append({Icon::Question, text, title, defaultYes});
    return m_answers.isEmpty() ? m_fallback : m_answers.dequeue();
}

QStringList ScriptedMessageBoxes::texts() const
{
    QStringList result;
    for (const Shown& s : m_shown)
        result.append(s.text);
    return result;
}

void ScriptedMessageBoxes::clear()
{
    m_shown.clear();
    m_answers.clear();
    m_beeps = 0;
}

MessageBoxesGuard::MessageBoxesGuard(MessageBoxes* box) : m_previous(&MessageBoxes::instance())
{
    MessageBoxes::setInstance(box);
}

MessageBoxesGuard::~MessageBoxesGuard() { MessageBoxes::setInstance(m_previous); }
