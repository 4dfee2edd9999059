#pragma once

#include "util/listcontrol.h"

class QComboBox;

// The program's view of a combo box list (selection by index, entry at an index, exact
// search ignoring case) over a QComboBox. The combo box is not owned.
class ComboBoxListControl final : public ListControl
{
public:
    explicit ComboBoxListControl(QComboBox* combo) : m_combo(combo) {}

    void clear() override;
    void addItem(const QString& text) override;
    int count() const override;
    QString itemText(int index) const override;
    int currentIndex() const override;
    void setCurrentIndex(int index) override;
    int findExact(const QString& text) const override;

    QComboBox* comboBox() const { return m_combo; }

private:
    QComboBox* m_combo;
};
