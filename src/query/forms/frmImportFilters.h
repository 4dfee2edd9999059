#pragma once

#include <QDialog>
#include <QStringList>

#include <memory>

namespace Ui {
class frmImportFilters;
}

// Creates or edits one filter rule: field, operator, value and, for every rule but the
// first, the word joining it to the rule before. The rule is tried against the data source
// before it is accepted; a value the source refuses bare is tried again in quotes, which
// is how text values come to be quoted. The caller sets the properties, calls
// PopulateCombos once, runs the dialog and reads the properties when Cancelled() is false.
class frmImportFilters final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmImportFilters)

public:
    explicit frmImportFilters(QWidget* parent = nullptr);
    ~frmImportFilters() override;

    // Appends the fields (with their type names) and the five operators; call once.
    void PopulateCombos(const QStringList& asFields, const QStringList& asTypes);

    QString DSNString, TableName;
    bool FirstOne = false;
    QString LogicalOp, FieldName, OpDisplay, OpSQL, Value;
    bool Cancelled() const { return m_cancelled; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void activateFirstTime();
    void cmdOK_Click();
    bool tryRule(long& errorNumber, QString& message) const;

    std::unique_ptr<Ui::frmImportFilters> ui;
    bool m_cancelled = true;
    bool m_firstActivation = true;
};
