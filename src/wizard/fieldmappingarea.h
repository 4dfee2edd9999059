#pragma once

#include "import/fieldmapping.h"
#include "import/samplerows.h"

#include <QObject>

#include <array>
#include <memory>

class ComboBoxListControl;
class QComboBox;
class QLabel;
class QScrollBar;
class QWidget;

// The mapping step's rows: one label and combo per host recipient field, laid on an area
// that scrolls inside a clipping container, moved by a separate vertical scroll bar. Also
// keeps the full name and the name parts from being mapped together.
class FieldMappingArea final : public QObject, public MappingCombos
{
    Q_OBJECT

public:
    FieldMappingArea(QWidget* container, QWidget* area, QScrollBar* scrollBar);
    ~FieldMappingArea() override;

    ListControl& combo(int hostFieldIndex) override;
    QComboBox* comboBox(int hostFieldIndex) const;

    // Refills every combo with the record source's fields and shows the stored mapping.
    // Filling is not a user's choice, so the name exclusion stays out of it.
    void populate(const QStringList& fieldNames, const ImportChoices& choices);

    // Shows beside each combo what the sampled rows give for its choice ("Reading sample
    // values ..." while loading is true).
    void setSample(const SampleRows& sample, bool loading);
    QLabel* sampleLabel(int hostFieldIndex) const;
    // Maps unmapped fields to source columns of matching names; how many it mapped.
    int matchByName();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void buildRows();
    void updateScrollRange();
    void scrollTo(int value);
    void ensureVisible(QWidget* widget);
    void namePartActivated(int hostFieldIndex);
    void fullNameMacroChanged();
    void showSample(int hostFieldIndex);

    QWidget* m_container;
    QWidget* m_area;
    QScrollBar* m_scrollBar;
    std::array<std::unique_ptr<ComboBoxListControl>, 21> m_lists;
    bool m_filling = false;
    std::array<QLabel*, 21> m_samples{};
    SampleRows m_sample;
    bool m_sampleLoading = false;
};
