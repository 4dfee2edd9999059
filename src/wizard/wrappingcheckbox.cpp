#include "wrappingcheckbox.h"

#include <QStyleOptionButton>
#include <QStylePainter>

namespace {
constexpr int kTextFlags = Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap | Qt::TextShowMnemonic;
// The width the caption is laid out for when the layout asks for a preferred size.
constexpr int kPreferredTextWidth = 520;
constexpr int kMinimumTextWidth = 180;
} // namespace

WrappingCheckBox::WrappingCheckBox(QWidget* parent) : QCheckBox(parent)
{
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

int WrappingCheckBox::textIndent() const
{
    return style()->pixelMetric(QStyle::PM_IndicatorWidth, nullptr, this) +
           style()->pixelMetric(QStyle::PM_CheckBoxLabelSpacing, nullptr, this);
}

QRect WrappingCheckBox::textBounds(int width) const
{
    const int textWidth = qMax(1, width - textIndent());
    return fontMetrics().boundingRect(QRect(0, 0, textWidth, 100000), kTextFlags, text());
}

int WrappingCheckBox::heightForWidth(int width) const
{
    const int indicatorHeight = style()->pixelMetric(QStyle::PM_IndicatorHeight, nullptr, this);
    return qMax(indicatorHeight, textBounds(width).height()) + 4;
}

QSize WrappingCheckBox::sizeHint() const
{
    const int single = fontMetrics().horizontalAdvance(text());
    const int width = textIndent() + qMin(single, kPreferredTextWidth) + 4;
    return {width, heightForWidth(width)};
}

QSize WrappingCheckBox::minimumSizeHint() const
{
    const int width = textIndent() + kMinimumTextWidth;
    return {width, heightForWidth(width)};
}

bool WrappingCheckBox::hitButton(const QPoint& pos) const
{
    return rect().contains(pos);
}

void WrappingCheckBox::paintEvent(QPaintEvent*)
{
    QStylePainter painter(this);
    QStyleOptionButton option;
    initStyleOption(&option);

    // The box sits beside the first line of the caption, not in the middle of the block.
    const int indicatorWidth = style()->pixelMetric(QStyle::PM_IndicatorWidth, nullptr, this);
    const int indicatorHeight = style()->pixelMetric(QStyle::PM_IndicatorHeight, nullptr, this);
    const int lineHeight = fontMetrics().height();
    QStyleOptionButton indicator = option;
    indicator.rect =
        QRect(0, 2 + qMax(0, (lineHeight - indicatorHeight) / 2), indicatorWidth, indicatorHeight);
    painter.drawPrimitive(QStyle::PE_IndicatorCheckBox, indicator);

    const QRect textRect(textIndent(), 2, width() - textIndent(), height() - 2);
    painter.drawItemText(textRect, kTextFlags, palette(), isEnabled(), text(),
                         QPalette::WindowText);

    if (hasFocus()) {
        QStyleOptionFocusRect focus;
        focus.initFrom(this);
        focus.rect = textBounds(width()).translated(textIndent(), 2).adjusted(-2, -1, 2, 1);
        painter.drawPrimitive(QStyle::PE_FrameFocusRect, focus);
    }
}
