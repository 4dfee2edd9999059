#include "frmExamineDSN.h"
#include "ui_frmExamineDSN.h"

#include "datasource/connectionstring.h"
#include "datasource/modADO.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"
#include "util/mousepointer.h"

#include <QHeaderView>
#include <QStyle>

namespace {

const QString kFormName = QStringLiteral("frmExamineDSN");

// Resets a flag when the scope ends, however it ends.
class Flag final
{
public:
    explicit Flag(bool& flag) : m_flag(flag) { m_flag = true; }
    ~Flag() { m_flag = false; }
    Flag(const Flag&) = delete;
    Flag& operator=(const Flag&) = delete;

private:
    bool& m_flag;
};

} // namespace

frmExamineDSN::frmExamineDSN(QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::frmExamineDSN>())
{
    ui->setupUi(this);
    m_firstActivation = true;
    ui->lstFields->header()->setStretchLastSection(true);
    ui->lstFields->setColumnWidth(0, 220);
    connect(ui->icmbConnections, &QComboBox::currentIndexChanged, this,
            &frmExamineDSN::icmbConnections_Click);
    connect(ui->icmbTables, &QComboBox::currentIndexChanged, this,
            &frmExamineDSN::icmbTables_Click);
    connect(ui->cmdClose, &QPushButton::clicked, this, &QDialog::accept);
    RegisterLoadedForm(kFormName);
}

frmExamineDSN::~frmExamineDSN()
{
    UnregisterLoadedForm(kFormName);
}

void frmExamineDSN::AddConnection(const QString& name, const QString& conString, bool select)
{
    const Flag loading(m_loading);
    const QIcon icon = style()->standardIcon(QStyle::SP_DriveNetIcon);
    ui->icmbConnections->addItem(icon, name);
    // The string is shown only as a hint, and never with its password.
    ui->icmbConnections->setItemData(ui->icmbConnections->count() - 1, MaskPasswords(conString),
                                     Qt::ToolTipRole);
    ui->cmbConnectionStrings->addItem(conString);
    if (select)
        ui->icmbConnections->setCurrentIndex(ui->icmbConnections->count() - 1);
}

QString frmExamineDSN::selectedConnectionString() const
{
    const int index = ui->icmbConnections->currentIndex();
    return index >= 0 ? ui->cmbConnectionStrings->itemText(index) : QString();
}

bool frmExamineDSN::LoadTables(const QString& conString)
{
    const Flag loading(m_loading);
    QStringList tables;
    QString message;
    if (!GetTables(tables, conString, message)) {
        // A connection that cannot be opened has been reported by the listing itself.
        if (!message.isEmpty())
            MessageBoxes::instance().critical(message);
        return false;
    }
    const QIcon icon = style()->standardIcon(QStyle::SP_FileDialogDetailedView);
    for (const QString& table : tables)
        ui->icmbTables->addItem(icon, table);
    ui->icmbTables->setCurrentIndex(0);
    return true;
}

bool frmExamineDSN::LoadFields(const QString& table, const QString& conString)
{
    MousePointer::busy();
    ui->lstFields->clear();
    QStringList names;
    QStringList types;
    QString message;
    const bool ok = GetFields(conString, table, names, types, message);
    if (!ok) {
        MessageBoxes::instance().critical(
            QStringLiteral("The following error occurred when retrieving the list of fields "
                           "from the table: ") +
            table + message);
    } else {
        for (int i = 0; i < names.size(); ++i)
            new QTreeWidgetItem(ui->lstFields, {names.at(i), types.value(i)});
    }
    MousePointer::normal();
    return ok;
}

void frmExamineDSN::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    if (!m_firstActivation)
        return;
    m_firstActivation = false;
    if (LoadTables(selectedConnectionString())) {
        ui->lstFields->clear();
        LoadFields(ui->icmbTables->currentText(), selectedConnectionString());
    }
}

void frmExamineDSN::icmbConnections_Click()
{
    if (m_loading || m_firstActivation)
        return;
    {
        const Flag loading(m_loading);
        ui->icmbTables->clear();
    }
    ui->lstFields->clear();
    if (LoadTables(selectedConnectionString()))
        LoadFields(ui->icmbTables->currentText(), selectedConnectionString());
}

void frmExamineDSN::icmbTables_Click()
{
    if (m_loading || m_firstActivation)
        return;
    ui->lstFields->clear();
    LoadFields(ui->icmbTables->currentText(), selectedConnectionString());
}
