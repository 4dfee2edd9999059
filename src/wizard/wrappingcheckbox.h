#pragma once

#include <QCheckBox>

// A check box whose caption wraps onto further lines instead of widening the window; the
// Group step's replace option carries a whole sentence.
class WrappingCheckBox final : public QCheckBox
{
    Q_OBJECT

public:
    explicit WrappingCheckBox(QWidget* parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    bool hitButton(const QPoint& pos) const override;

private:
    int textIndent() const;
    QRect textBounds(int width) const;
};
