#include "frmConnectionBuilder.h"
#include "ui_frmConnectionBuilder.h"

#include "datasource/connectionprobe.h"
#include "datasource/connectionfields.h"
#include "datasource/connectionstring.h"
#include "datasource/odbccatalog.h"
#include "util/messageboxes.h"
#include "util/nativepath.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QKeyEvent>

namespace {

using Kind = ConnectionFields::Kind;

frmConnectionBuilder::FileChooser& fileChooser()
{
    static frmConnectionBuilder::FileChooser chooser;
    return chooser;
}

QString chooseFile(QWidget* parent, const QString& current)
{
    if (fileChooser())
        return fileChooser()(parent, current);
    return QFileDialog::getOpenFileName(
        parent, QStringLiteral("Choose a SQLite Database File"), current,
        QStringLiteral("SQLite databases (*.db *.sqlite *.sqlite3 *.db3);;All files (*)"));
}

// Selects text in combo, adding it first when the driver manager does not list it, so a
// string naming a data source or driver of another machine keeps that name.
void selectOrAdd(QComboBox* combo, const QString& text)
{
    if (text.isEmpty())
        return;
    int index = combo->findText(text, Qt::MatchFixedString | Qt::MatchCaseSensitive);
    if (index < 0) {
        combo->addItem(text);
        index = combo->count() - 1;
    }
    combo->setCurrentIndex(index);
}

} // namespace

void frmConnectionBuilder::setFileChooser(FileChooser chooser)
{
    fileChooser() = std::move(chooser);
}

frmConnectionBuilder::frmConnectionBuilder(QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::frmConnectionBuilder>())
{
    ui->setupUi(this);
    ui->cmbKind->addItems({QStringLiteral("SQLite database file"),
                           QStringLiteral("ODBC data source name"), QStringLiteral("ODBC driver"),
                           QStringLiteral("Connection string (text)")});
    fillOdbcLists(QString(), QString());
    m_poll.setInterval(50);
    connect(&m_poll, &QTimer::timeout, this, &frmConnectionBuilder::pollTest);
    connect(ui->cmbKind, &QComboBox::currentIndexChanged, this,
            &frmConnectionBuilder::cmbKind_Change);
    connect(ui->cmdBrowse, &QPushButton::clicked, this, &frmConnectionBuilder::cmdBrowse_Click);
    connect(ui->cmdTest, &QPushButton::clicked, this, &frmConnectionBuilder::cmdTest_Click);
    connect(ui->cmdOK, &QPushButton::clicked, this, &frmConnectionBuilder::cmdOK_Click);
    connect(ui->cmdCancel, &QPushButton::clicked, this, &frmConnectionBuilder::reject);
    ui->txtRaw->installEventFilter(this);
    cmbKind_Change(0);
}

frmConnectionBuilder::~frmConnectionBuilder()
{
    if (m_probe)
        QGuiApplication::restoreOverrideCursor();
}

bool frmConnectionBuilder::eventFilter(QObject* watched, QEvent* event)
{
    // A connection string is one line: Enter in the text box means OK, as everywhere else.
    if (watched == ui->txtRaw && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if ((key == Qt::Key_Return || key == Qt::Key_Enter) && ui->cmdOK->isEnabled()) {
            cmdOK_Click();
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

void frmConnectionBuilder::fillOdbcLists(const QString& dataSource, const QString& driver)
{
    QString message;
    QList<OdbcDataSource> sources;
    ui->cmbDataSource->clear();
    if (ListOdbcDataSources(sources, message)) {
        for (const OdbcDataSource& source : sources)
            ui->cmbDataSource->addItem(source.name);
    }
    QStringList drivers;
    ui->cmbDriver->clear();
    if (ListOdbcDrivers(drivers, message))
        ui->cmbDriver->addItems(drivers);
    selectOrAdd(ui->cmbDataSource, dataSource);
    selectOrAdd(ui->cmbDriver, driver);
}

bool frmConnectionBuilder::setConnectionString(const QString& conString, QString& message)
{
    ConnectionFields fields;
    if (!ParseConnectionFields(conString, fields, message))
        return false;
    fillOdbcLists(fields.dataSource, fields.driver);
    ui->txtFile->setText(fields.file);
    const bool viaDataSource = fields.kind == Kind::OdbcDataSource;
    ui->txtDsnUser->setText(viaDataSource ? fields.user : QString());
    ui->txtDsnPassword->setText(viaDataSource ? fields.password : QString());
    ui->txtServer->setText(fields.server);
    ui->txtPort->setText(fields.port);
    ui->txtDatabase->setText(fields.database);
    ui->txtUser->setText(viaDataSource ? QString() : fields.user);
    ui->txtPassword->setText(viaDataSource ? QString() : fields.password);
    ui->txtRaw->setPlainText(fields.raw);
    ui->cmbKind->setCurrentIndex(static_cast<int>(fields.kind));
    cmbKind_Change(ui->cmbKind->currentIndex());
    setWindowTitle(conString.trimmed().isEmpty()
                       ? QStringLiteral("Database Connection Builder - New Connection")
                       : QStringLiteral("Database Connection Builder - Modify Connection"));
    return true;
}

QString frmConnectionBuilder::connectionString() const
{
    ConnectionFields fields;
    fields.kind = static_cast<Kind>(ui->cmbKind->currentIndex());
    switch (fields.kind) {
    case Kind::SqliteFile:
        fields.file = ui->txtFile->text().trimmed();
        break;
    case Kind::OdbcDataSource:
        fields.dataSource = ui->cmbDataSource->currentText();
        fields.user = ui->txtDsnUser->text();
        fields.password = ui->txtDsnPassword->text();
        break;
    case Kind::OdbcDriver:
        fields.driver = ui->cmbDriver->currentText();
        fields.server = ui->txtServer->text().trimmed();
        fields.port = ui->txtPort->text().trimmed();
        fields.database = ui->txtDatabase->text().trimmed();
        fields.user = ui->txtUser->text();
        fields.password = ui->txtPassword->text();
        break;
    case Kind::Raw:
        fields.raw = ui->txtRaw->toPlainText().trimmed();
        break;
    }
    return ComposeConnectionString(fields);
}

void frmConnectionBuilder::cmbKind_Change(int index)
{
    ui->stkPages->setCurrentIndex(index);
    ui->lblTestResult->clear();
}

void frmConnectionBuilder::cmdBrowse_Click()
{
    const QString chosen = chooseFile(this, ui->txtFile->text());
    if (!chosen.isEmpty())
        ui->txtFile->setText(chosen);
}

void frmConnectionBuilder::cmdTest_Click()
{
    if (m_probe)
        return;
    ui->lblTestResult->setText(QStringLiteral("Testing the connection ..."));
    ui->cmdTest->setEnabled(false);
    ui->cmdOK->setEnabled(false);
    QGuiApplication::setOverrideCursor(Qt::BusyCursor);
    m_probe = std::make_unique<ConnectionProbe>(connectionString());
    m_testClock.start();
    m_poll.start();
}

void frmConnectionBuilder::pollTest()
{
    if (!m_probe)
        return;
    if (m_probe->finished()) {
        const ConnectionProbe::Result result = m_probe->result();
        finishTest(result.ok ? QStringLiteral("Test connection succeeded: %1 table(s) found.")
                                   .arg(result.tableCount)
                             : QStringLiteral("Test connection failed: ") +
                                   MaskPasswords(result.message));
    } else if (m_testClock.elapsed() >= m_testTimeout) {
        finishTest(QStringLiteral("Test connection failed: the data source did not answer "
                                  "within %1 seconds.")
                       .arg(m_testTimeout / 1000.0));
    }
}

void frmConnectionBuilder::finishTest(const QString& report)
{
    // A probe still waiting on its driver finishes in the background, unheard.
    m_probe.reset();
    m_poll.stop();
    QGuiApplication::restoreOverrideCursor();
    ui->cmdTest->setEnabled(true);
    ui->cmdOK->setEnabled(true);
    ui->lblTestResult->setText(report);
}

void frmConnectionBuilder::cmdOK_Click()
{
    if (ui->cmbKind->currentIndex() == static_cast<int>(Kind::SqliteFile)) {
        const QString file = ui->txtFile->text().trimmed();
        if (file.isEmpty() || !QFileInfo(NativePath(file)).isFile()) {
            MessageBoxes::instance().information(
                file.isEmpty()
                    ? QStringLiteral("Please choose the SQLite database file.")
                    : QStringLiteral("The SQLite database file \"%1\" does not exist.").arg(file));
            ui->txtFile->setFocus();
            return;
        }
    }
    accept();
}

void frmConnectionBuilder::reject()
{
    if (m_probe)
        finishTest(QString());
    QDialog::reject();
}
