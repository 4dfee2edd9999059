#include "screenfit.h"

#include <QComboBox>
#include <QEvent>
#include <QHeaderView>
#include <QLayout>
#include <QPainter>
#include <QScreen>
#include <QScrollArea>
#include <QStackedWidget>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QStylePainter>
#include <QTreeWidget>

#include <memory>

namespace {

// Room for a title bar and borders before the window manager has told us their size.
constexpr int kGuessedFrameWidth = 16;
constexpr int kGuessedFrameHeight = 48;

// Keeps a tree's first column fitted whenever its viewport changes size.
class FirstColumnFitter final : public QObject
{
public:
    explicit FirstColumnFitter(QTreeWidget* list) : QObject(list), m_list(list) {}

    void fit()
    {
        for (int i = 0; i < m_list->topLevelItemCount(); ++i) {
            QTreeWidgetItem* item = m_list->topLevelItem(i);
            item->setToolTip(0, item->text(0));
        }
        const int room = m_list->viewport()->width() * 2 / 3;
        // Text plus the view's cell padding on both sides.
        const int padding = 2 * (m_list->style()->pixelMetric(QStyle::PM_FocusFrameHMargin) + 1) +
                            m_list->fontMetrics().averageCharWidth();
        // Never narrower than the list was designed with, room allowing.
        int wanted = std::max(m_list->header()->sectionSizeHint(0), 200);
        for (int i = 0; i < m_list->topLevelItemCount(); ++i)
            wanted = std::max(
                wanted, m_list->fontMetrics().horizontalAdvance(m_list->topLevelItem(i)->text(0)) +
                            padding);
        m_list->setColumnWidth(0, std::max(std::min(wanted, room), std::min(wanted, 120)));
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Resize)
            fit();
        return QObject::eventFilter(watched, event);
    }

private:
    QTreeWidget* m_list;
};

// Paints a combo box's shown text shortened with "..." when the box is narrower than it.
class ComboElider final : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        auto* combo = static_cast<QComboBox*>(watched);
        if (event->type() != QEvent::Paint || combo->isEditable())
            return QObject::eventFilter(watched, event);
        QStylePainter painter(combo);
        painter.setPen(combo->palette().color(QPalette::Text));
        QStyleOptionComboBox option;
        // What QComboBox itself fills in for a box that is not editable.
        option.initFrom(combo);
        option.subControls = QStyle::SC_All;
        option.frame = combo->hasFrame();
        option.currentText = combo->currentText();
        option.currentIcon = combo->itemIcon(combo->currentIndex());
        option.iconSize = combo->iconSize();
        painter.drawComplexControl(QStyle::CC_ComboBox, option);
        const QRect field = combo->style()->subControlRect(QStyle::CC_ComboBox, &option,
                                                           QStyle::SC_ComboBoxEditField, combo);
        const int iconRoom = option.currentIcon.isNull() ? 0 : option.iconSize.width() + 4;
        option.currentText = combo->fontMetrics().elidedText(option.currentText, Qt::ElideRight,
                                                             field.width() - iconRoom - 2);
        painter.drawControl(QStyle::CE_ComboBoxLabel, option);
        return true;
    }
};

} // namespace

void ScrollEachPage(QStackedWidget* steps)
{
    for (int i = 0; i < steps->count(); ++i) {
        QWidget* page = steps->widget(i);
        steps->removeWidget(page);
        auto* area = new QScrollArea;
        area->setObjectName(page->objectName() + QStringLiteral("_scroll"));
        area->setFrameShape(QFrame::NoFrame);
        area->setWidgetResizable(true);
        // The keys move between the page's controls, not onto the area around them.
        area->setFocusPolicy(Qt::NoFocus);
        area->setWidget(page);
        steps->insertWidget(i, area);
    }
}

void FitToScreen(QWidget* window)
{
    const QScreen* screen = window->screen();
    if (!screen)
        return;
    const QRect free = screen->availableGeometry();
    QSize frame = window->frameGeometry().size() - window->geometry().size();
    // Before the window manager has framed the window its frame is unknown: guess.
    if (frame.isEmpty())
        frame = QSize(kGuessedFrameWidth, kGuessedFrameHeight);
    const QSize size = window->size().boundedTo(free.size() - frame);
    window->resize(size.expandedTo(window->minimumSizeHint()));
    const QSize outer = window->size() + frame;
    window->move(free.x() + std::max(0, (free.width() - outer.width()) / 2),
                 free.y() + std::max(0, (free.height() - outer.height()) / 2));
}

void ElideLongItems(QComboBox* combo)
{
    combo->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    combo->setMinimumContentsLength(12);
    const auto tips = [combo] {
        combo->setToolTip(combo->currentText());
        for (int i = 0; i < combo->count(); ++i)
            combo->setItemData(i, combo->itemText(i), Qt::ToolTipRole);
    };
    combo->installEventFilter(new ComboElider(combo));
    QObject::connect(combo, &QComboBox::currentTextChanged, combo, tips);
    QObject::connect(combo->model(), &QAbstractItemModel::rowsInserted, combo, tips);
}

void FitFirstColumn(QTreeWidget* list)
{
    // Found by name: the fitter has no meta-object of its own for findChild to tell it by.
    const QString name = QStringLiteral("firstColumnFitter");
    auto* fitter = static_cast<FirstColumnFitter*>(
        list->findChild<QObject*>(name, Qt::FindDirectChildrenOnly));
    if (!fitter) {
        fitter = new FirstColumnFitter(list);
        fitter->setObjectName(name);
        list->viewport()->installEventFilter(fitter);
    }
    fitter->fit();
}

ElidingLabel::ElidingLabel(QWidget* parent) : QLabel(parent)
{
    setSizePolicy(QSizePolicy::Ignored, sizePolicy().verticalPolicy());
}

void ElidingLabel::replace(QLabel*& label)
{
    auto* eliding = new ElidingLabel(label->parentWidget());
    eliding->setObjectName(label->objectName());
    eliding->setText(label->text());
    eliding->setFont(label->font());
    eliding->setToolTip(label->toolTip());
    if (QLayout* layout = label->parentWidget()->layout()) {
        std::unique_ptr<QLayoutItem> old(
            layout->replaceWidget(label, eliding, Qt::FindChildrenRecursively));
    }
    delete label;
    label = eliding;
}

QSize ElidingLabel::minimumSizeHint() const
{
    const QSize full = QLabel::minimumSizeHint();
    return QSize(
        std::min(full.width(), fontMetrics().horizontalAdvance(QStringLiteral("Wwwwwwww..."))),
        full.height());
}

void ElidingLabel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    const QRect box = contentsRect();
    const QString shown = fontMetrics().elidedText(text(), Qt::ElideRight, box.width());
    // QLabel has no hook for a new text, and it is only seen when painted.
    const QString tip = shown == text() ? QString() : text();
    if (toolTip() != tip)
        setToolTip(tip);
    style()->drawItemText(&painter, box, int(alignment()) | Qt::TextSingleLine, palette(),
                          isEnabled(), shown, foregroundRole());
}
