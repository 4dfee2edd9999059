#pragma once

#include <QString>
#include <QStringList>

// What the program asks of a combo box's list: selection by index, the entry at an
// index and the exact, case-insensitive search. Widgets and plain test lists both fit.
class ListControl
{
public:
    virtual ~ListControl() = default;
    virtual void clear() = 0;
    virtual void addItem(const QString& text) = 0;
    virtual int count() const = 0;
    virtual QString itemText(int index) const = 0; // empty for an index out of range
    virtual int currentIndex() const = 0;          // -1 when nothing is selected
    virtual void setCurrentIndex(int index) = 0;
    // First entry equal to the whole text, ignoring letter case; -1 when absent.
    virtual int findExact(const QString& text) const = 0;
};

// A ListControl over a plain list, for the engine's callers without widgets and for tests.
class StringListControl final : public ListControl
{
public:
    void clear() override;
    void addItem(const QString& text) override;
    int count() const override;
    QString itemText(int index) const override;
    int currentIndex() const override { return m_current; }
    void setCurrentIndex(int index) override;
    int findExact(const QString& text) const override;

private:
    QStringList m_items;
    int m_current = -1;
};
