#pragma once

#include <QLabel>

class QComboBox;
class QStackedWidget;
class QTreeWidget;
class QWidget;

// Keeping the wizard on the screen it opens on, whatever its size and scaling: tall pages
// scroll instead of pushing the buttons off the screen, and long names are shortened with
// "..." (the whole name in a tool tip) instead of widening the window.

// Puts every page of steps into a frameless scroll area of its own, so a page taller than
// the screen leaves room for the rest of the window. Page indexes stay as they were.
void ScrollEachPage(QStackedWidget* steps);

// Sizes window to no more than the free area of its screen, leaving room for the window
// frame, and centres it there.
void FitToScreen(QWidget* window);

// A combo box as wide as its layout gives it, not as its longest item: the shown text is
// shortened, and it and every item carry their whole text as a tool tip.
void ElideLongItems(QComboBox* combo);

// Gives the first column of list as much width as its longest entry needs, up to two thirds
// of the list, now and whenever the list is resized; each entry's whole text is its tool tip.
void FitFirstColumn(QTreeWidget* list);

// A one-line label that shortens its text with "..." when it has less room than the text
// needs, and then shows the whole text as its tool tip. text() stays the whole text.
class ElidingLabel final : public QLabel
{
    Q_OBJECT

public:
    explicit ElidingLabel(QWidget* parent = nullptr);

    // Puts an ElidingLabel with the same name, text and font in label's place in its layout.
    // (A label of the form's design becomes one this way, leaving the design as drawn.)
    static void replace(QLabel*& label);

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
};
