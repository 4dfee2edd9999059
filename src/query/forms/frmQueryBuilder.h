#pragma once

#include "query/crules.h"

#include <QDialog>
#include <QStringList>

#include <memory>

namespace Ui {
class frmQueryBuilder;
}

// The list of filter rules for one table: add, modify and remove rules, and view the
// records they select. The dialog edits the rule list it is given in place; a caller that
// wants Cancel to undo the edits hands over a copy.
class frmQueryBuilder final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmQueryBuilder)

public:
    explicit frmQueryBuilder(QWidget* parent = nullptr);
    ~frmQueryBuilder() override;

    QString DSNString;
    QString TableName;
    // The list being edited (not owned); without one the dialog edits an empty list of
    // its own.
    void setRules(CRules* rules) { m_rules = rules; }
    CRules& Rules() { return m_rules ? *m_rules : m_ownRules; }
    bool Cancelled() const { return m_cancelled; }

protected:
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void load();
    void fillList();
    int selectedLine() const; // -1 when no line is selected
    void cmdAddFilter_Click();
    void cmdModifyFilter_Click();
    void cmdRemoveFilter_Click();
    void cmdView_Click();

    std::unique_ptr<Ui::frmQueryBuilder> ui;
    CRules* m_rules = nullptr;
    CRules m_ownRules;
    QStringList m_fields;
    QStringList m_types;
    bool m_cancelled = true;
    bool m_loaded = false;
};
