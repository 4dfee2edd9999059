#include "listcontrol.h"

void StringListControl::clear()
{
    m_items.clear();
    m_current = -1;
}

void StringListControl::addItem(const QString& text) { m_items.append(text); }

int StringListControl::count() const { return static_cast<int>(m_items.size()); }

QString StringListControl::itemText(int index) const { return m_items.value(index); }

void StringListControl::setCurrentIndex(int index)
{
    m_current = (index >= 0 && index < m_items.size()) ? index : -1;
}

int StringListControl::findExact(const QString& text) const
{
    for (int i = 0; i < m_items.size(); ++i) {
        if (m_items.at(i).compare(text, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}
