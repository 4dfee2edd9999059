#include "frmQueryBuilder.h"
#include "ui_frmQueryBuilder.h"

#include "frmImportFilters.h"
#include "frmViewResults.h"

#include "datasource/modADO.h"
#include "query/selectsql.h"
#include "util/apperror.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"

#include <QKeyEvent>

namespace {

const QString kFormName = QStringLiteral("frmQueryBuilder");

// The joiner is stored with the rule but deliberately not shown.
QString lineText(const CRule& rule)
{
    return rule.FieldName + QLatin1Char(' ') + rule.OpDisplay + QLatin1Char(' ') + rule.Value;
}

} // namespace

frmQueryBuilder::frmQueryBuilder(QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::frmQueryBuilder>())
{
    ui->setupUi(this);
    RegisterLoadedForm(kFormName);
    ui->lstFilters->installEventFilter(this);
    connect(ui->cmdAddFilter, &QPushButton::clicked, this, &frmQueryBuilder::cmdAddFilter_Click);
    connect(ui->cmdModifyFilter, &QPushButton::clicked, this,
            &frmQueryBuilder::cmdModifyFilter_Click);
    connect(ui->cmdRemoveFilter, &QPushButton::clicked, this,
            &frmQueryBuilder::cmdRemoveFilter_Click);
    connect(ui->cmdView, &QPushButton::clicked, this, &frmQueryBuilder::cmdView_Click);
    connect(ui->lstFilters, &QListWidget::itemDoubleClicked, this,
            &frmQueryBuilder::cmdModifyFilter_Click);
    connect(ui->cmdOK, &QPushButton::clicked, this, [this] {
        m_cancelled = false;
        accept();
    });
    connect(ui->cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
}

frmQueryBuilder::~frmQueryBuilder()
{
    UnregisterLoadedForm(kFormName);
}

void frmQueryBuilder::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    if (!m_loaded) {
        m_loaded = true;
        load();
    }
}

bool frmQueryBuilder::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == ui->lstFilters && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent*>(event)->key() == Qt::Key_Delete) {
        cmdRemoveFilter_Click();
        return true;
    }
    return QDialog::eventFilter(watched, event);
}

void frmQueryBuilder::load()
{
    QString message;
    if (!GetFields(DSNString, TableName, m_fields, m_types, message)) {
        // The dialog still opens; the editor then refuses every rule for want of a field.
        m_fields.clear();
        m_types.clear();
        MessageBoxes::instance().information(
            QStringLiteral("The list of fields could not be retrieved from the database for "
                           "the table <") +
            TableName + QStringLiteral(">, the following error occurred \r\n\r\n") +
            message.trimmed());
    }
    fillList();
    m_cancelled = true;
}

int frmQueryBuilder::selectedLine() const
{
    const QList<QListWidgetItem*> selected = ui->lstFilters->selectedItems();
    return selected.isEmpty() ? -1 : ui->lstFilters->row(selected.first());
}

void frmQueryBuilder::fillList()
{
    ui->lstFilters->clear();
    const CRules& rules = Rules();
    for (int i = 1; i <= rules.Count(); ++i)
        ui->lstFilters->addItem(lineText(*rules.Item(i)));
}

void frmQueryBuilder::cmdAddFilter_Click()
{
    {
        frmImportFilters editor(this);
        editor.PopulateCombos(m_fields, m_types);
        editor.DSNString = DSNString;
        editor.TableName = TableName;
        editor.FirstOne = ui->lstFilters->count() == 0;
        editor.exec();
        if (IsFormLoaded(QStringLiteral("frmImportFilters"))) {
            if (!editor.Cancelled()) {
                try {
                    Rules().Add(editor.FieldName, editor.OpDisplay, editor.OpSQL, editor.Value,
                                editor.LogicalOp);
                } catch (const AppError& e) {
                    // Only the duplicate is worth a word; anything else passes silently.
                    if (e.number() == AppError::DuplicateKey)
                        MessageBoxes::instance().information(QStringLiteral(
                            "This rule already exists - duplicates are not allowed."));
                }
            }
            fillList();
        }
    }
    ui->lstFilters->setFocus();
}

void frmQueryBuilder::cmdModifyFilter_Click()
{
    const int selected = selectedLine();
    if (selected < 0) {
        MessageBoxes::instance().information(QStringLiteral("Select a rule to Edit."));
        return;
    }
    {
        const int position = selected + 1;
        const CRule* rule = Rules().Item(position);
        if (!rule)
            return;
        frmImportFilters editor(this);
        editor.PopulateCombos(m_fields, m_types);
        editor.DSNString = DSNString;
        editor.TableName = TableName;
        editor.FieldName = rule->FieldName;
        editor.OpDisplay = rule->OpDisplay;
        editor.OpSQL = rule->OpSQL;
        editor.Value = rule->Value;
        editor.LogicalOp = rule->LogicalOp;
        editor.FirstOne = selected == 0;
        editor.exec();
        if (IsFormLoaded(QStringLiteral("frmImportFilters")) && !editor.Cancelled()) {
            CRule changed;
            changed.FieldName = editor.FieldName;
            changed.OpDisplay = editor.OpDisplay;
            changed.OpSQL = editor.OpSQL;
            changed.Value = editor.Value;
            changed.LogicalOp = editor.LogicalOp;
            Rules().Modify(position, changed);
            fillList();
            ui->lstFilters->setCurrentRow(selected);
        }
    }
    ui->lstFilters->setFocus();
}

void frmQueryBuilder::cmdRemoveFilter_Click()
{
    const int selected = selectedLine();
    if (selected < 0) {
        MessageBoxes::instance().information(
            QStringLiteral("A filter must be selected from the list in order to remove it."));
        return;
    }
    // The list is not refilled: the next rule keeps its joiner even when it becomes first.
    Rules().Remove(selected + 1);
    delete ui->lstFilters->takeItem(selected);
    ui->lstFilters->setFocus();
}

void frmQueryBuilder::cmdView_Click()
{
    const QString sql = BuildSelectSQL(TableName, Rules());
    if (sql.trimmed().isEmpty())
        return;
    frmViewResults::ShowResults(this, DSNString, sql);
}
