#include "fieldmappingarea.h"

#include "util/forms/comboboxlistcontrol.h"

#include "import/hostfields.h"
#include "import/namematch.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QEvent>
#include <QGridLayout>
#include <QLabel>
#include <QScrollBar>
#include <QWheelEvent>

#include <algorithm>

namespace {

int indexOfKey(const char* key)
{
    for (int i = 0; i < static_cast<int>(kHostFields.size()); ++i) {
        if (qstrcmp(kHostFields[i].key, key) == 0)
            return i;
    }
    return -1;
}

const int kFullNameMacro = indexOfKey("FullNameMacro");
// In the order they are reset when a full name is chosen.
const std::array<int, 4> kNameParts = {indexOfKey("Title"), indexOfKey("FirstName"),
                                       indexOfKey("Initial"), indexOfKey("LastName")};

} // namespace

FieldMappingArea::FieldMappingArea(QWidget* container, QWidget* area, QScrollBar* scrollBar)
    : QObject(container), m_container(container), m_area(area), m_scrollBar(scrollBar)
{
    buildRows();
    m_container->installEventFilter(this);
    m_area->installEventFilter(this);
    connect(m_scrollBar, &QScrollBar::valueChanged, this, &FieldMappingArea::scrollTo);
    updateScrollRange();
}

FieldMappingArea::~FieldMappingArea() = default;

void FieldMappingArea::buildRows()
{
    auto* grid = new QGridLayout(m_area);
    grid->setContentsMargins(4, 4, 12, 4);
    grid->setHorizontalSpacing(12);
    grid->setVerticalSpacing(6);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(2, 0);

    for (int i = 0; i < static_cast<int>(kHostFields.size()); ++i) {
        const HostField& field = kHostFields[i];
        auto* label = new QLabel(QString::fromUtf8(field.caption), m_area);
        label->setObjectName(QString::fromUtf8(field.labelName));
        auto* combo = new QComboBox(m_area);
        combo->setObjectName(QString::fromUtf8(field.comboName));
        combo->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        combo->setMinimumContentsLength(24);
        combo->setMaxVisibleItems(20);
        // Wheel turns over the list scroll it; only a combo the user clicked into changes.
        combo->setFocusPolicy(Qt::StrongFocus);
        combo->installEventFilter(this);
        label->setBuddy(combo);
        grid->addWidget(label, i, 0);
        grid->addWidget(combo, i, 1);
        auto* sample = new QLabel(m_area);
        sample->setObjectName(QStringLiteral("lblSample_") + QString::fromUtf8(field.key));
        sample->setFixedWidth(260);
        sample->setTextFormat(Qt::PlainText);
        sample->setEnabled(false); // greyed: a hint, not a control
        grid->addWidget(sample, i, 2);
        m_samples[static_cast<size_t>(i)] = sample;
        connect(combo, &QComboBox::currentIndexChanged, this, [this, i](int) { showSample(i); });
        m_lists[static_cast<size_t>(i)] = std::make_unique<ComboBoxListControl>(combo);
    }

    comboBox(kFullNameMacro)->setToolTip(QString::fromUtf8(kFullNameMacroToolTip));

    // The name parts answer the user's pick from the list; the full name answers any change
    // of its selection.
    for (int part : kNameParts) {
        connect(comboBox(part), &QComboBox::activated, this,
                [this, part](int) { namePartActivated(part); });
    }
    connect(comboBox(kFullNameMacro), &QComboBox::currentIndexChanged, this,
            [this](int) { fullNameMacroChanged(); });
}

ListControl& FieldMappingArea::combo(int hostFieldIndex)
{
    return *m_lists.at(static_cast<size_t>(hostFieldIndex));
}

QComboBox* FieldMappingArea::comboBox(int hostFieldIndex) const
{
    return m_lists.at(static_cast<size_t>(hostFieldIndex))->comboBox();
}

void FieldMappingArea::populate(const QStringList& fieldNames, const ImportChoices& choices)
{
    m_filling = true;
    PopulateFieldCombos(*this, fieldNames);
    ShowFieldMapping(*this, choices);
    m_filling = false;
    updateScrollRange();
}

void FieldMappingArea::namePartActivated(int hostFieldIndex)
{
    if (m_filling)
        return;
    QComboBox* fullName = comboBox(kFullNameMacro);
    if (comboBox(hostFieldIndex)->currentIndex() != 0 && fullName->currentIndex() != 0)
        fullName->setCurrentIndex(0);
}

void FieldMappingArea::fullNameMacroChanged()
{
    if (m_filling || comboBox(kFullNameMacro)->currentIndex() == 0)
        return;
    for (int part : kNameParts) {
        QComboBox* combo = comboBox(part);
        if (combo->currentIndex() != 0)
            combo->setCurrentIndex(0);
    }
}

void FieldMappingArea::updateScrollRange()
{
    const int areaHeight = std::max(m_area->sizeHint().height(), m_container->height());
    m_area->resize(m_container->width(), areaHeight);
    const int hidden = std::max(0, areaHeight - m_container->height());
    m_scrollBar->setRange(0, hidden);
    m_scrollBar->setPageStep(std::max(1, m_container->height()));
    m_scrollBar->setSingleStep(std::max(1, comboBox(0)->sizeHint().height() + 6));
    m_scrollBar->setEnabled(hidden > 0);
    scrollTo(m_scrollBar->value());
}

void FieldMappingArea::scrollTo(int value)
{
    m_area->move(0, -value);
}

void FieldMappingArea::ensureVisible(QWidget* widget)
{
    const QRect row = widget->geometry(); // in the area's coordinates
    const int top = m_scrollBar->value();
    const int bottom = top + m_container->height();
    if (row.top() - 4 < top)
        m_scrollBar->setValue(row.top() - 4);
    else if (row.bottom() + 4 > bottom)
        m_scrollBar->setValue(row.bottom() + 4 - m_container->height());
}

bool FieldMappingArea::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_container || watched == m_area) {
        if (event->type() == QEvent::Resize || event->type() == QEvent::LayoutRequest ||
            event->type() == QEvent::Show) {
            if (watched == m_container || event->type() == QEvent::LayoutRequest)
                updateScrollRange();
        } else if (event->type() == QEvent::Wheel) {
            QCoreApplication::sendEvent(m_scrollBar, event);
            return true;
        }
        return false;
    }
    auto* combo = qobject_cast<QComboBox*>(watched);
    if (!combo)
        return false;
    if (event->type() == QEvent::Wheel && !combo->hasFocus()) {
        QCoreApplication::sendEvent(m_scrollBar, event);
        return true;
    }
    if (event->type() == QEvent::FocusIn)
        ensureVisible(combo);
    return false;
}

QLabel* FieldMappingArea::sampleLabel(int hostFieldIndex) const
{
    return m_samples.at(static_cast<size_t>(hostFieldIndex));
}

void FieldMappingArea::setSample(const SampleRows& sample, bool loading)
{
    m_sample = sample;
    m_sampleLoading = loading;
    for (int i = 0; i < static_cast<int>(kHostFields.size()); ++i)
        showSample(i);
}

void FieldMappingArea::showSample(int hostFieldIndex)
{
    QLabel* label = sampleLabel(hostFieldIndex);
    QComboBox* box = comboBox(hostFieldIndex);
    QString text;
    QString tip;
    if (box->currentIndex() > 0) {
        const QString column = box->itemText(box->currentIndex());
        if (m_sampleLoading) {
            text = QStringLiteral("Reading sample values ...");
        } else if (!m_sample.error.isEmpty()) {
            text = QStringLiteral("No sample: ") + m_sample.error;
        } else {
            const QString key = QString::fromUtf8(kHostFields[size_t(hostFieldIndex)].key);
            text = m_sample.firstValue(column);
            tip = text;
            if (key == QLatin1String("FullNameMacro") && !text.isEmpty()) {
                tip = text + QLatin1Char('\n') + m_sample.namePreview(column);
                text = m_sample.namePreview(column);
            } else if (key == QLatin1String("EMailAddress")) {
                int sampled = 0;
                const int refused = m_sample.refusedEmails(column, &sampled);
                const QString count = QStringLiteral("%1 of %2 refused").arg(refused).arg(sampled);
                tip = text + QLatin1Char('\n') + count +
                      QStringLiteral(" by the e-mail check in the first rows");
                text = count + QStringLiteral(" - ") + text;
            }
            if (text.isEmpty())
                text = QStringLiteral("(empty in the first %1 rows)").arg(m_sample.rows.size());
        }
    }
    label->setToolTip(tip);
    label->setText(label->fontMetrics().elidedText(text, Qt::ElideRight, label->width() - 4));
}

int FieldMappingArea::matchByName()
{
    std::array<QString, 21> mapping;
    QStringList columns;
    QComboBox* first = comboBox(0);
    for (int i = 1; i < first->count(); ++i)
        columns << first->itemText(i);
    for (int i = 0; i < static_cast<int>(kHostFields.size()); ++i) {
        QComboBox* box = comboBox(i);
        if (box->currentIndex() > 0)
            mapping[size_t(i)] = box->itemText(box->currentIndex());
    }
    const std::array<QString, 21> before = mapping;
    const int matched = MatchFieldsByName(columns, mapping);
    for (int i = 0; i < static_cast<int>(kHostFields.size()); ++i) {
        if (mapping[size_t(i)] != before[size_t(i)]) {
            QComboBox* box = comboBox(i);
            const int at = box->findText(mapping[size_t(i)], Qt::MatchExactly);
            if (at > 0)
                box->setCurrentIndex(at);
        }
    }
    return matched;
}
