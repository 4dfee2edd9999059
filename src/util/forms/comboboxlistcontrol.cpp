#include "comboboxlistcontrol.h"

#include <QComboBox>

void ComboBoxListControl::clear()
{
    m_combo->clear();
}

void ComboBoxListControl::addItem(const QString& text)
{
    m_combo->addItem(text);
}

int ComboBoxListControl::count() const
{
    return m_combo->count();
}

QString ComboBoxListControl::itemText(int index) const
{
    return m_combo->itemText(index);
}

int ComboBoxListControl::currentIndex() const
{
    return m_combo->currentIndex();
}

void ComboBoxListControl::setCurrentIndex(int index)
{
    m_combo->setCurrentIndex(index >= 0 && index < m_combo->count() ? index : -1);
}

int ComboBoxListControl::findExact(const QString& text) const
{
    // MatchFixedString without MatchCaseSensitive: the whole text, any letter case.
    return m_combo->findText(text, Qt::MatchFixedString);
}
