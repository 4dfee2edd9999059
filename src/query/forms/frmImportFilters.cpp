#include "frmImportFilters.h"
#include "ui_frmImportFilters.h"

#include "datasource/modADO.h"
#include "query/selectsql.h"
#include "util/forms/comboboxlistcontrol.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"

namespace {

const QString kFormName = QStringLiteral("frmImportFilters");

// Index i of one list belongs to index i of the other. Not-equal is written "!=" in every
// rule: it is what is stored with the rule and sent to the data source.
const QStringList kOperators = {QStringLiteral("Equals"), QStringLiteral("is Not Equal to"),
                                QStringLiteral("is Less Than"), QStringLiteral("is Greater Than"),
                                QStringLiteral("is like")};
const QStringList kSqlOperators = {QStringLiteral("="), QStringLiteral("!="), QStringLiteral("<"),
                                   QStringLiteral(">"), QStringLiteral("like")};

} // namespace

frmImportFilters::frmImportFilters(QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::frmImportFilters>())
{
    ui->setupUi(this);
    RegisterLoadedForm(kFormName);
    m_firstActivation = true;
    m_cancelled = true;
    ui->cmbLogicalOp->clear();
    ui->cmbLogicalOp->addItems({QStringLiteral("And"), QStringLiteral("Or")});
    connect(ui->cmdOK, &QPushButton::clicked, this, &frmImportFilters::cmdOK_Click);
    connect(ui->cmdCancel, &QPushButton::clicked, this, [this] {
        m_cancelled = true;
        reject();
    });
}

frmImportFilters::~frmImportFilters()
{
    UnregisterLoadedForm(kFormName);
}

void frmImportFilters::PopulateCombos(const QStringList& asFields, const QStringList& asTypes)
{
    for (qsizetype i = 0; i < asFields.size(); ++i) {
        ui->cmbFields->addItem(asFields.at(i));
        ui->cmbTypes->addItem(asTypes.value(i));
    }
    ui->cmbOperand->addItems(kOperators);
    ui->cmbSQLOperand->addItems(kSqlOperators);
}

void frmImportFilters::showEvent(QShowEvent* event)
{
    if (m_firstActivation) {
        m_firstActivation = false;
        activateFirstTime();
    }
    QDialog::showEvent(event);
}

void frmImportFilters::activateFirstTime()
{
    const ComboBoxListControl logicalOps(ui->cmbLogicalOp);
    ui->cmbLogicalOp->setCurrentIndex(
        LogicalOp.trimmed().isEmpty() ? 0 : static_cast<int>(FindComboItem(logicalOps, LogicalOp)));

    ui->cmbLogicalOp->setVisible(!FirstOne);
    ui->lblDash->setVisible(!FirstOne);
    // The caption's mnemonic leads to the first control that is shown.
    ui->lblCaption->setBuddy(FirstOne ? ui->cmbFields : ui->cmbLogicalOp);

    if (FieldName.trimmed().isEmpty()) {
        setWindowTitle(QStringLiteral("Create a new Import Filter"));
        if (ui->cmbFields->count() > 0)
            ui->cmbFields->setCurrentIndex(0);
    } else {
        const ComboBoxListControl fields(ui->cmbFields);
        ui->cmbFields->setCurrentIndex(static_cast<int>(FindComboItem(fields, FieldName)));
        setWindowTitle(QStringLiteral("Edit an existing Import Filter"));
    }

    if (!OpDisplay.trimmed().isEmpty()) {
        const ComboBoxListControl operators(ui->cmbOperand);
        ui->cmbOperand->setCurrentIndex(static_cast<int>(FindComboItem(operators, OpDisplay)));
    } else if (ui->cmbOperand->count() > 0) {
        ui->cmbOperand->setCurrentIndex(0);
    }

    ui->txtValue->setText(Value);
    (FirstOne ? ui->cmbFields : ui->cmbLogicalOp)->setFocus();
}

bool frmImportFilters::tryRule(long& errorNumber, QString& message) const
{
    errorNumber = 0;
    message.clear();
    return ValidateSQL(DSNString, BuildTestSQL(TableName, FieldName, OpSQL, Value), errorNumber,
                       message);
}

void frmImportFilters::cmdOK_Click()
{
    MessageBoxes& boxes = MessageBoxes::instance();
    // A value of blanks is a value; only an empty box is refused.
    if (ui->txtValue->text().isEmpty() || ui->cmbFields->currentIndex() < 0 ||
        ui->cmbOperand->currentIndex() < 0) {
        boxes.critical(QStringLiteral("A field, operand and value must be selected."));
        return;
    }
    FieldName = ui->cmbFields->currentText();
    OpDisplay = ui->cmbOperand->currentText();
    OpSQL = ui->cmbSQLOperand->itemText(ui->cmbOperand->currentIndex());
    Value = ui->txtValue->text();
    LogicalOp = ui->cmbLogicalOp->itemText(ui->cmbLogicalOp->currentIndex());

    // The value as typed, then quoted: the field's type is not consulted, so a value the
    // source refuses bare is taken for text. A refusal without a message ends the tries.
    const QString typed = Value;
    for (const QString& candidate :
         {typed, QString(QLatin1Char('\'') + typed + QLatin1Char('\''))}) {
        Value = candidate;
        long errorNumber = 0;
        QString message;
        if (tryRule(errorNumber, message)) {
            m_cancelled = false;
            accept();
            return;
        }
        if (message.trimmed().isEmpty()) {
            boxes.critical(QString::number(errorNumber) + QStringLiteral(" - ") + message);
            return;
        }
    }
    Value = typed;
    boxes.information(QStringLiteral("The syntax is not correct, ensure the Value specified "
                                     "matches the type of data contained in the field."));
}
