#include "frmDSN.h"
#include "ui_frmDSN.h"

#include "datasource/connectionstring.h"
#include "datasource/forms/frmConnectionBuilder.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"

#include <QEvent>

bool DSNDialogIsNew = true;
QString DSNDialogName;
QString DSNDialogConString;
bool DSNDialogCancelled = true;

namespace {

const QString kFormName = QStringLiteral("frmDSN");
const QString kCreateCaption = QStringLiteral("C&reate...");
const QString kModifyCaption = QStringLiteral("&Modify...");

} // namespace

frmDSN::frmDSN(QWidget* parent) : QDialog(parent), ui(std::make_unique<Ui::frmDSN>())
{
    ui->setupUi(this);
    DSNDialogCancelled = true;
    if (DSNDialogIsNew) {
        setWindowTitle(QStringLiteral("Create a new Database Connection"));
        ui->cmdEdit->setText(kCreateCaption);
    } else {
        setWindowTitle(QStringLiteral("Modify an Existing Database Connection"));
        ui->cmdEdit->setText(kModifyCaption);
        m_openedName = DSNDialogName;
        m_openedConString = DSNDialogConString;
        ui->txtDSN->setText(DSNDialogName);
        setConString(DSNDialogConString);
    }
    ui->txtConStr->installEventFilter(this);
    connect(ui->txtConStr, &QLineEdit::textChanged, this, &frmDSN::updateEditCaption);
    connect(ui->cmdEdit, &QPushButton::clicked, this, &frmDSN::cmdEdit_Click);
    connect(ui->cmdOK, &QPushButton::clicked, this, &frmDSN::cmdOK_Click);
    connect(ui->cmdClose, &QPushButton::clicked, this, &frmDSN::cmdClose_Click);
    RegisterLoadedForm(kFormName);
}

frmDSN::~frmDSN()
{
    UnregisterLoadedForm(kFormName);
}

QString frmDSN::conString() const
{
    return m_showingMask ? m_conString : ui->txtConStr->text();
}

void frmDSN::setConString(const QString& text)
{
    m_conString = text;
    m_showingMask = false;
    if (ui->txtConStr->hasFocus())
        ui->txtConStr->setText(text);
    else
        showMasked();
}

void frmDSN::showMasked()
{
    const QString masked = MaskPasswords(m_conString);
    ui->txtConStr->setText(masked);
    ui->txtConStr->setCursorPosition(0); // the start says most about the connection
    m_showingMask = masked != m_conString;
}

bool frmDSN::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == ui->txtConStr) {
        // The password is in plain sight only while the user works on the string.
        if (event->type() == QEvent::FocusIn && m_showingMask) {
            m_showingMask = false;
            ui->txtConStr->setText(m_conString);
        } else if (event->type() == QEvent::FocusOut && !m_showingMask) {
            m_conString = ui->txtConStr->text();
            showMasked();
            updateEditCaption();
        }
    }
    return QDialog::eventFilter(watched, event);
}

void frmDSN::updateEditCaption()
{
    ui->cmdEdit->setText(ui->txtConStr->text().isEmpty() ? kCreateCaption : kModifyCaption);
}

void frmDSN::cmdEdit_Click()
{
    frmConnectionBuilder builder(this);
    QString message;
    if (!builder.setConnectionString(conString(), message)) {
        MessageBoxes::instance().information(
            QStringLiteral("An invalid ADO ConnectionString was detected. Please try again!"));
        return;
    }
    if (builder.exec() == QDialog::Accepted)
        setConString(builder.connectionString());
}

void frmDSN::cmdOK_Click()
{
    MessageBoxes& boxes = MessageBoxes::instance();
    setConString(conString().trimmed());
    ui->txtDSN->setText(ui->txtDSN->text().trimmed());
    const QString text = conString();
    const QString name = ui->txtDSN->text();

    const QString upper = text.toUpper();
    if (!upper.contains(QLatin1String("PROVIDER=")) &&
        !upper.contains(QLatin1String("DATA SOURCE=")) && !upper.contains(QLatin1String("DSN="))) {
        boxes.exclamation(
            QStringLiteral("The connection string you have entered does not appear to be valid."));
        return;
    }
    if (text.isEmpty()) {
        boxes.exclamation(QStringLiteral(
            "Please enter/create a connection string for the Database you wish to use."));
        return;
    }
    if (name.isEmpty()) {
        boxes.exclamation(
            QStringLiteral("Please enter/create a descriptive name for this connection string."));
        return;
    }
    if (!DSNDialogIsNew && text == m_openedConString && name == m_openedName) {
        DSNDialogCancelled = true;
        accept();
        return;
    }
    DSNDialogName = name;
    DSNDialogConString = text;
    DSNDialogCancelled = false;
    accept();
}

void frmDSN::cmdClose_Click()
{
    DSNDialogCancelled = true;
    reject();
}
