#include "frmDBImport.h"
#include "ui_frmDBImport.h"

#include "fieldmappingarea.h"
#include "frmAddModGroup.h"
#include "frmDSN.h"
#include "screenfit.h"

#include "query/forms/frmQueryAdvanced.h"
#include "query/forms/frmQueryBuilder.h"

#include "app/connectionstore.h"
#include "app/importsettings.h"
#include "datasource/connectionstring.h"
#include "datasource/forms/frmExamineDSN.h"
#include "datasource/modADO.h"
#include "import/groups.h"
#include "import/importengine.h"
#include "import/samplerows.h"
#include "import/undojournal.h"
#include "query/selectsql.h"
#include "util/appglobals.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"
#include "util/mousepointer.h"
#include "util/nativepath.h"
#include "util/scriptedmessageboxes.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QHeaderView>
#include <QPainter>
#include <QPainterPath>
#include <QHBoxLayout>
#include <QPushButton>
#include <QStyle>
#include <QThread>

#include <array>
#include <functional>

namespace {

const QString kFormName = QStringLiteral("frmDBImport");
constexpr int kStepCount = 5;

struct StepBanner
{
    const char* description;
    const char* stepMofN;
};

const std::array<StepBanner, kStepCount> kBanners = {{
    {"Select the database connection to import the information from", "Step 1 of 5"},
    {"Specify the records to import into Veltrano", "Step 2 of 5"},
    {"Match the database fields to Veltrano fields", "Step 3 of 5"},
    {"Select the Group to import data into", "Step 4 of 5"},
    {"Import the data", "Step 5 of 5"},
}};

const QString kNextCaption = QStringLiteral("&Next >>");
const QString kStartCaption = QStringLiteral("S&tart");
const QString kCloseCaption = QStringLiteral("&Close");
const QString kCancelCaption = QStringLiteral("&Cancel");

// The connection list shows each string with its password hidden and keeps the exact one here.
constexpr int kConStringRole = Qt::UserRole;

QString rowConString(const QTreeWidgetItem* row)
{
    return row->data(1, kConStringRole).toString();
}

// The record loop's confirmation when it notices a stop request.
const QString kCancelConfirmation =
    QStringLiteral("You have chosen to cancel the import process, are you sure ?");

// VB's Str(): non-negative numbers get a leading blank where the sign would be.
QString signedNumberText(long number)
{
    return number >= 0 ? QLatin1Char(' ') + QString::number(number) : QString::number(number);
}

// A database drum for the banner, so the program needs no image files.
QPixmap bannerPixmap(int size, const QPalette& palette)
{
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor body = palette.color(QPalette::Highlight);
    const qreal w = size * 0.7;
    const qreal x = (size - w) / 2;
    const qreal capHeight = size * 0.22;
    const qreal top = size * 0.1;
    const qreal bottom = size * 0.9 - capHeight;
    painter.setPen(QPen(body.darker(140), 1.5));
    for (int band = 2; band >= 0; --band) {
        const qreal y = top + (bottom - top) * band / 2.0;
        QPainterPath path;
        path.moveTo(x, y + capHeight / 2);
        path.arcTo(QRectF(x, y, w, capHeight), 180, 180);
        path.lineTo(x + w, y + capHeight / 2 + (band < 2 ? (bottom - top) / 2 : 0));
        if (band < 2)
            path.arcTo(QRectF(x, y + (bottom - top) / 2, w, capHeight), 0, -180);
        path.closeSubpath();
        painter.setBrush(body.lighter(100 + band * 12));
        painter.drawPath(path);
    }
    painter.setBrush(body.lighter(150));
    painter.drawEllipse(QRectF(x, top, w, capHeight));
    return pixmap;
}

} // namespace

// The message boxes of a running import job. They pass everything on until the user has
// agreed to close the window during the import; from then on the job still has to stop:
// its cancel confirmation is answered Yes and its offer to show the log No, without showing
// either. Notices and failures still reach the user.
class ImportRunBoxes final : public MessageBoxes
{
public:
    // beforeShowing brings the step's counters up to date, so a box never shows stale ones.
    ImportRunBoxes(MessageBoxes& next, std::function<void()> beforeShowing)
        : m_next(next), m_beforeShowing(std::move(beforeShowing))
    {}
    void show(Icon icon, const QString& text, const QString& title) override
    {
        m_beforeShowing();
        m_next.show(icon, text, title);
    }
    bool ask(const QString& text, bool defaultYes, const QString& title) override
    {
        m_beforeShowing();
        if (m_closing)
            return text == kCancelConfirmation;
        return m_next.ask(text, defaultYes, title);
    }
    void beep() override { m_next.beep(); }

    void setClosing() { m_closing = true; }
    bool closing() const { return m_closing; }

private:
    MessageBoxes& m_next;
    std::function<void()> m_beforeShowing;
    bool m_closing = false;
};

frmDBImport::frmDBImport(QWidget* parent) : QWidget(parent), ui(std::make_unique<Ui::frmDBImport>())
{
    ui->setupUi(this);
    RegisterLoadedForm(kFormName);

    m_firstActivation = true;
    setWindowTitle(QStringLiteral("Veltrano - Database Import v") + AppVersion());

    // Banner: white strip, bold title, the drum picture.
    QPalette bannerPalette = ui->picBanner->palette();
    bannerPalette.setColor(QPalette::Window, bannerPalette.color(QPalette::Base));
    bannerPalette.setColor(QPalette::WindowText, bannerPalette.color(QPalette::Text));
    ui->picBanner->setPalette(bannerPalette);
    QFont titleFont = ui->lblBannerTitle->font();
    titleFont.setBold(true);
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.25);
    ui->lblBannerTitle->setFont(titleFont);
    ui->picBannerIcon->setPixmap(bannerPixmap(44, palette()));
    // The installed icon when there is one, else the banner's drum.
    setWindowIcon(QIcon::fromTheme(QStringLiteral("dbimport"), QIcon(bannerPixmap(32, palette()))));
    // The counters change every few records while an import runs; a fixed size keeps each
    // change from laying out the whole step again.
    const int counterWidth = fontMetrics().horizontalAdvance(QStringLiteral("-2147483648")) + 8;
    for (QLabel* counter : {ui->lblTotalProcessed, ui->lblAdded, ui->lblDuplicates, ui->lblIllegal})
        counter->setFixedSize(counterWidth, counter->sizeHint().height());
    QFont startFont = ui->lblStartImport->font();
    startFont.setBold(true);
    ui->lblStartImport->setFont(startFont);

    ui->lvwDSN->setHeaderLabels({QStringLiteral("Name"), QStringLiteral("Description")});
    ui->lvwDSN->header()->setStretchLastSection(true);
    ui->lvwDSN->setColumnWidth(0, 200);

    // The window fits small and scaled screens: pages scroll, long names are shortened.
    ScrollEachPage(ui->stkSteps);
    ElideLongItems(ui->icmbTables);
    ElideLongItems(ui->icmbGroups);
    ElidingLabel::replace(ui->lblImportingFrom);
    ElidingLabel::replace(ui->lblImportingTo);
    m_lblNoGroups = new QLabel(
        QStringLiteral("There are no Groups yet: click Create a New Group to make one."));
    m_lblNoGroups->setObjectName(QStringLiteral("lblNoGroups"));
    m_lblNoGroups->setWordWrap(true);
    m_lblNoGroups->setVisible(false);
    ui->layStep3->insertWidget(ui->layStep3->indexOf(ui->layGroups) + 1, m_lblNoGroups);
    // Start waits for a Group.
    connect(ui->icmbGroups, &QComboBox::currentIndexChanged, this, [this] { updateStartButton(); });
    ui->chkReplace->setText(QStringLiteral(
        "&Update existing recipients details with the new data in the database (Note: this "
        "will slow down the import process by a factor of 10)."));

    m_mapping = std::make_unique<FieldMappingArea>(ui->picScrollableContainer,
                                                   ui->picScrollableArea, ui->vscMapFields);
    ui->lblCaption_3->setBuddy(m_mapping->comboBox(0));

    connect(ui->cmdNext, &QPushButton::clicked, this, [this] { ChangeStep(1); });
    connect(ui->cmdPrev, &QPushButton::clicked, this, [this] { ChangeStep(-1); });
    connect(ui->cmdClose, &QPushButton::clicked, this, &frmDBImport::cmdClose_Click);
    connect(ui->optFilterMethod_0, &QRadioButton::clicked, this,
            [this] { optFilterMethod_Click(0); });
    connect(ui->optFilterMethod_1, &QRadioButton::clicked, this,
            [this] { optFilterMethod_Click(1); });
    connect(ui->cmdCreateNewGroup, &QPushButton::clicked, this,
            &frmDBImport::cmdCreateNewGroup_Click);
    // Double-click and Enter on a connection both move on.
    connect(ui->lvwDSN, &QTreeWidget::itemActivated, this, [this] { ChangeStep(1); });
    connect(ui->cmdNewDSN, &QPushButton::clicked, this, &frmDBImport::cmdNewDSN_Click);
    connect(ui->cmdEditDSN, &QPushButton::clicked, this, &frmDBImport::cmdEditDSN_Click);
    connect(ui->cmdDeleteDSN, &QPushButton::clicked, this, &frmDBImport::cmdDeleteDSN_Click);
    connect(ui->cmdExamine, &QPushButton::clicked, this, &frmDBImport::cmdExamine_Click);

    connect(ui->cmdQueryBuilder, &QPushButton::clicked, this, &frmDBImport::cmdQueryBuilder_Click);
    connect(ui->cmdAdvancedQuery, &QPushButton::clicked, this,
            &frmDBImport::cmdAdvancedQuery_Click);

    createExtraControls();

    ui->stkSteps->setCurrentIndex(0);
    optFilterMethod_Click(0);
    UpdateDSNList();
    ResetChoices();
}

frmDBImport::~frmDBImport()
{
    // A sample still being read is waited for; its result is no longer wanted.
    for (QThread* thread : std::as_const(m_sampleThreads)) {
        thread->wait();
        delete thread;
    }
    UnregisterLoadedForm(kFormName);
}

QRadioButton* frmDBImport::optFilterMethod(int index) const
{
    return index == 0 ? ui->optFilterMethod_0 : ui->optFilterMethod_1;
}

void frmDBImport::UpdateDSNList()
{
    ui->lvwDSN->clear();
    const QList<DSNEntry> entries = UpdateDSNListFromIni();
    for (const DSNEntry& entry : entries) {
        auto* row = new QTreeWidgetItem(ui->lvwDSN,
                                        QStringList{entry.name, MaskPasswords(entry.conString)});
        row->setData(1, kConStringRole, entry.conString);
    }
    // Like a report list view, a filled list always has a selected row.
    if (ui->lvwDSN->topLevelItemCount() > 0)
        ui->lvwDSN->setCurrentItem(ui->lvwDSN->topLevelItem(0));
    FitFirstColumn(ui->lvwDSN);
}

QTreeWidgetItem* frmDBImport::selectedConnectionRow() const
{
    QTreeWidgetItem* row = ui->lvwDSN->currentItem();
    return row ? row : ui->lvwDSN->topLevelItem(0);
}

void frmDBImport::cmdNewDSN_Click()
{
    DSNDialogIsNew = true;
    {
        frmDSN dialog(this);
        dialog.exec();
    }
    if (!DSNDialogCancelled) {
        QString message;
        if (MaintainDSN(DSNDialogName, DSNDialogConString, ConnectionAction::Add, message))
            UpdateDSNList();
        else
            MessageBoxes::instance().critical(message);
    }
    ui->lvwDSN->setFocus();
}

void frmDBImport::cmdEditDSN_Click()
{
    MessageBoxes& boxes = MessageBoxes::instance();
    if (ui->lvwDSN->topLevelItemCount() == 0) {
        boxes.information(QStringLiteral("There are no database connections configured to Edit, "
                                         "select New to create one."));
        return;
    }
    const QTreeWidgetItem* row = selectedConnectionRow();
    const QString oldName = row->text(0);
    const QString oldConString = rowConString(row);
    // Kept as it always was: the notice does not stop the edit.
    if (oldName.trimmed().isEmpty() || oldConString.trimmed().isEmpty())
        boxes.information(
            QStringLiteral("Please select a datbase connection from the list to Edit."));
    DSNDialogIsNew = false;
    DSNDialogName = oldName;
    DSNDialogConString = oldConString;
    {
        frmDSN dialog(this);
        dialog.exec();
    }
    if (!DSNDialogCancelled) {
        QString message;
        if (MaintainDSN(DSNDialogName, DSNDialogConString, ConnectionAction::Modify, message,
                        oldName, oldConString))
            UpdateDSNList();
        else
            boxes.critical(message);
    }
    ui->lvwDSN->setFocus();
}

void frmDBImport::cmdDeleteDSN_Click()
{
    MessageBoxes& boxes = MessageBoxes::instance();
    if (ui->lvwDSN->topLevelItemCount() == 0) {
        boxes.information(
            QStringLiteral("There are no database connections configured to Delete."));
        return;
    }
    const QTreeWidgetItem* row = selectedConnectionRow();
    const QString name = row->text(0);
    const QString conString = rowConString(row);
    // Kept as it always was: the notice does not stop the delete.
    if (name.trimmed().isEmpty() || conString.trimmed().isEmpty())
        boxes.information(QStringLiteral("A database connection must be selected to Delete."));
    if (boxes.ask(QStringLiteral("Are you sure you want to remove the database connection - ") +
                  name + QStringLiteral(" ?"))) {
        QString message;
        if (MaintainDSN(name, conString, ConnectionAction::Delete, message)) {
            UpdateDSNList();
            if (name == m_choices.DSNName)
                ResetChoices();
        } else {
            boxes.information(message);
        }
    }
    ui->lvwDSN->setFocus();
}

void frmDBImport::cmdExamine_Click()
{
    if (ui->lvwDSN->topLevelItemCount() == 0) {
        MessageBoxes::instance().information(
            QStringLiteral("There are no database connections configured to Examine."));
        return;
    }
    frmExamineDSN dialog(this);
    const QTreeWidgetItem* selected = selectedConnectionRow();
    for (int i = 0; i < ui->lvwDSN->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* row = ui->lvwDSN->topLevelItem(i);
        dialog.AddConnection(row->text(0), rowConString(row), row == selected);
    }
    dialog.exec();
}

void frmDBImport::ResetChoices()
{
    m_choices.reset();
}

int frmDBImport::currentStep() const
{
    return ui->stkSteps->currentIndex();
}

void frmDBImport::ChangeStep(int direction)
{
    const int step = currentStep();
    if (direction != 0) {
        if (!leaveStep(step, direction))
            return;
        const int target = step + direction;
        if (target < 0 || target >= kStepCount)
            return;
        showStep(target);
    } else {
        showStep(step);
    }
}

bool frmDBImport::leaveStep(int step, int direction)
{
    switch (step) {
    case 0:
        return direction < 0 || leaveConnectionStep();
    case 1:
        return leaveRecordsStep(direction);
    case 2:
        return leaveMappingStep(direction);
    case 3:
        return leaveGroupStep(direction);
    default:
        return true;
    }
}

bool frmDBImport::leaveConnectionStep()
{
    MessageBoxes& boxes = MessageBoxes::instance();
    if (ui->lvwDSN->topLevelItemCount() == 0) {
        boxes.information(QStringLiteral(
            "A valid database connection must be selected/configured before proceeding."));
        return false;
    }
    QTreeWidgetItem* row = ui->lvwDSN->currentItem();
    if (!row)
        row = ui->lvwDSN->topLevelItem(0);

    // Nothing of an earlier connection may survive into this one's choices.
    ResetChoices();
    m_choices.DSNName = row->text(0);
    m_choices.ConnectionString = rowConString(row);
    QString message;
    if (!LoadImportSettings(m_choices, message))
        boxes.information(message);

    QStringList tables;
    if (!GetTables(tables, m_choices.ConnectionString, message)) {
        // An unexpected failure has been shown by the listing itself, with no message left.
        if (!message.isEmpty())
            boxes.critical(message);
        return false;
    }
    const QIcon tableIcon = style()->standardIcon(QStyle::SP_FileDialogDetailedView);
    ui->icmbTables->clear();
    for (const QString& table : tables)
        ui->icmbTables->addItem(tableIcon, table);
    const int saved = ui->icmbTables->findText(m_choices.SelectedTable, Qt::MatchFixedString);
    ui->icmbTables->setCurrentIndex(saved >= 0 ? saved : 0);

    ui->lblQueryBuilderRules->setText(QString::number(m_choices.Rules.Count()) +
                                      QStringLiteral(" filters defined"));
    const int method = m_choices.FilterMethod == 1 ? 1 : 0;
    optFilterMethod(method)->setChecked(true);
    optFilterMethod_Click(method);
    return true;
}

bool frmDBImport::leaveRecordsStep(int direction)
{
    QString tableSql;
    if (!ui->optFilterMethod_0->isChecked()) {
        m_choices.FilterMethod = 1;
    } else {
        m_choices.FilterMethod = 0;
        m_choices.SelectedTable = ui->icmbTables->currentText();
        tableSql = SelectFromTable(m_choices.SelectedTable);
    }
    if (direction < 0)
        return true;

    MessageBoxes& boxes = MessageBoxes::instance();
    if (m_choices.FilterMethod == 1 && m_choices.AdvancedSQLString.isEmpty()) {
        boxes.information(QStringLiteral("A valid SQL Statement must be entered."));
        return false;
    }
    if (m_choices.FilterMethod == 0 && (tableSql == QLatin1String("select * from ") ||
                                        tableSql == QLatin1String("select * from []"))) {
        boxes.information(QStringLiteral("A Table name must be selected from the list."));
        return false;
    }

    // The statement checked is the one the import will run, rules included, so that a
    // rule the source no longer accepts is reported here rather than halfway through.
    const QString sql = m_choices.FilterMethod == 0
                            ? BuildImportSQL(m_choices.SelectedTable, m_choices.Rules,
                                             IdentifierQuote(m_choices.ConnectionString))
                            : m_choices.AdvancedSQLString;
    long errorNumber = 0;
    QString message;
    if (!ValidateSQL(m_choices.ConnectionString, sql, errorNumber, message)) {
        boxes.critical(message);
        return false;
    }
    QStringList names;
    QStringList types;
    if (!GetFields(m_choices.ConnectionString, sql, names, types, message)) {
        boxes.critical(message);
        return false;
    }
    m_mapping->populate(names, m_choices);
    startSampleRead(sql, names);
    return true;
}

bool frmDBImport::leaveMappingStep(int direction)
{
    QString message;
    if (!StoreFieldMapping(*m_mapping, m_choices.FieldMappings, message) && direction > 0) {
        MessageBoxes::instance().information(message);
        return false;
    }
    LoadGroups();
    // A saved Group that is gone is not replaced by another: the user picks one.
    ui->icmbGroups->setCurrentIndex(
        m_choices.VTGroup.isEmpty()
            ? -1
            : ui->icmbGroups->findText(m_choices.VTGroup, Qt::MatchFixedString));
    ui->chkReplace->setChecked(m_choices.ReplaceExisting);
    if (direction > 0)
        ui->cmdNext->setText(kStartCaption);
    return true;
}

bool frmDBImport::leaveGroupStep(int direction)
{
    m_choices.VTGroup = ui->icmbGroups->currentText();
    if (direction > 0 && m_choices.VTGroup.isEmpty()) {
        MessageBoxes::instance().information(
            QStringLiteral("A Group must be selected to import the data into."));
        return false;
    }
    m_choices.ReplaceExisting = ui->chkReplace->isChecked();
    if (direction > 0) {
        ui->prgProcess->setRange(0, 100);
        ui->prgProcess->setValue(0);
        ui->prgProcess->setVisible(true);
        ui->lblNoProgress->setVisible(false);
        ui->lblCommand->clear();
        for (QLabel* counter :
             {ui->lblTotalProcessed, ui->lblAdded, ui->lblDuplicates, ui->lblIllegal})
            counter->setText(QStringLiteral("0"));
        ui->lblImportingFrom->setText(QStringLiteral("Database - ") + m_choices.DSNName);
        ui->lblImportingTo->setText(QStringLiteral("Veltrano Group - ") + m_choices.VTGroup);
    } else {
        ui->cmdNext->setText(kNextCaption);
    }
    return true;
}

void frmDBImport::showStep(int step)
{
    ui->stkSteps->setCurrentIndex(step);
    ui->cmdPrev->setEnabled(step != 0);
    ui->cmdNext->setEnabled(step != kStepCount - 1);
    updateStartButton();

    const StepBanner& banner = kBanners.at(static_cast<size_t>(step));
    ui->lblBannerTitle->setText(QStringLiteral("Database Import"));
    ui->lblBannerDesc->setText(QString::fromUtf8(banner.description));
    ui->lblStepMofN->setText(QString::fromUtf8(banner.stepMofN));

    if (step == kStepCount - 1)
        StartImport();
}

void frmDBImport::StartImport()
{
    ui->cmdClose->setText(kCancelCaption);
    ui->cmdPrev->setEnabled(false);

    MessageBoxes& boxes = MessageBoxes::instance();
    bool run = true;
    long errorNumber = 0;
    QString message;
    if (!SaveImportSettings(m_choices, errorNumber, message)) {
        run = boxes.ask(QStringLiteral("The following error occurred when attempting to save "
                                       "your current settings to file : ") +
                            signedNumberText(errorNumber) + QStringLiteral(" - ") + message +
                            QStringLiteral(". Do you wish to continue and Import the data ?"),
                        false);
    }

    if (run) {
        ImportRunBoxes runBoxes(boxes, [this] { showPendingProgress(); });
        QString errorText;
        bool ok = false;
        {
            MessageBoxesGuard guard(&runBoxes);
            ImportEngine engine(m_choices, *this);
            m_engine = &engine;
            m_runBoxes = &runBoxes;
            m_sinceShown.start();
            ok = engine.DoImportJob(errorText);
            m_engine = nullptr;
            m_runBoxes = nullptr;
            showPendingProgress();
        }
        if (!ok)
            boxes.critical(errorText);
    }

    ui->cmdClose->setText(kCloseCaption);
    ui->cmdPrev->setEnabled(true);
}

void frmDBImport::updateStartButton()
{
    if (currentStep() != 3)
        return;
    m_lblNoGroups->setVisible(ui->icmbGroups->count() == 0);
    ui->cmdNext->setEnabled(ui->icmbGroups->currentIndex() >= 0);
}

void frmDBImport::LoadGroups()
{
    const QIcon groupIcon = style()->standardIcon(QStyle::SP_DirIcon);
    ui->icmbGroups->clear();
    for (const QString& group : LoadVTGroups())
        ui->icmbGroups->addItem(groupIcon, group);
    // A refilled list has no selection until the caller picks the Group it wants.
    ui->icmbGroups->setCurrentIndex(-1);
}

void frmDBImport::optFilterMethod_Click(int index)
{
    const bool table = index == 0;
    for (QWidget* w :
         {static_cast<QWidget*>(ui->lblTableCaption), static_cast<QWidget*>(ui->icmbTables),
          static_cast<QWidget*>(ui->lblCaption_1), static_cast<QWidget*>(ui->cmdQueryBuilder),
          static_cast<QWidget*>(ui->lblQueryBuilderRules)})
        w->setEnabled(table);
    ui->cmdAdvancedQuery->setEnabled(!table);
}

void frmDBImport::cmdQueryBuilder_Click()
{
    // The builder edits a copy: Cancel leaves the rules as they were before it opened.
    CRules rules = m_choices.Rules;
    frmQueryBuilder builder(this);
    builder.DSNString = m_choices.ConnectionString;
    builder.TableName = ui->icmbTables->currentText();
    builder.setRules(&rules);
    builder.exec();
    if (IsFormLoaded(QStringLiteral("frmQueryBuilder")) && !builder.Cancelled()) {
        m_choices.Rules = rules;
        ui->lblQueryBuilderRules->setText(QString::number(m_choices.Rules.Count()) +
                                          QStringLiteral(" filters defined"));
    }
}

void frmDBImport::cmdAdvancedQuery_Click()
{
    frmQueryAdvanced advanced(this);
    advanced.DSNString = m_choices.ConnectionString;
    advanced.SQLString = m_choices.AdvancedSQLString;
    advanced.exec();
    if (IsFormLoaded(QStringLiteral("frmQueryAdvanced")) && !advanced.Cancelled()) {
        m_choices.AdvancedSQLString = advanced.SQLString;
        optFilterMethod(1)->setChecked(true);
        optFilterMethod_Click(1);
    }
}

void frmDBImport::cmdClose_Click()
{
    if (ui->cmdClose->text() != kCancelCaption)
        close();
    else if (m_engine)
        m_engine->requestStop();
}

void frmDBImport::cmdCreateNewGroup_Click()
{
    frmAddModGroup dialog(this);
    // Cancel closes the dialog without a Group; nothing changes then.
    if (dialog.exec() != QDialog::Accepted)
        return;
    if (dialog.cancelled())
        return;
    LoadGroups();
    const QString wanted = dialog.newGroupName().trimmed().toUpper();
    for (int i = 0; i < ui->icmbGroups->count(); ++i) {
        if (ui->icmbGroups->itemText(i).trimmed().toUpper() == wanted) {
            ui->icmbGroups->setCurrentIndex(i);
            break;
        }
    }
}

void frmDBImport::showEvent(QShowEvent* event)
{
    if (m_firstActivation)
        FitToScreen(this);
    QWidget::showEvent(event);
    if (m_firstActivation) {
        m_firstActivation = false;
        ChangeStep(0);
        ui->lvwDSN->setFocus();
    }
}

void frmDBImport::closeEvent(QCloseEvent* event)
{
    if (m_engine) {
        if (!MessageBoxes::instance().ask(
                QStringLiteral("The import process is running are you sure you wish to close "
                               "the application before the import is completed ?"))) {
            event->ignore();
            return;
        }
        m_runBoxes->setClosing();
        m_engine->requestStop();
        event->accept();
        return;
    }
    long errorNumber = 0;
    QString message;
    SaveImportSettings(m_choices, errorNumber, message);
    event->accept();
}

void frmDBImport::setStatus(const QString& text)
{
    showPendingProgress();
    ui->lblCommand->setText(text);
}

void frmDBImport::setCounters(qint32 totalProcessed, qint32 added, qint32 duplicates,
                              qint32 illegal)
{
    m_pending.counters = true;
    m_pending.totalProcessed = totalProcessed;
    m_pending.added = added;
    m_pending.duplicates = duplicates;
    m_pending.illegal = illegal;
    if (!m_engine)
        showPendingProgress();
}

void frmDBImport::setProgressRange(int minimum, int maximum)
{
    showPendingProgress();
    ui->prgProcess->setRange(minimum, maximum);
}

void frmDBImport::setProgressValue(int value)
{
    m_pending.value = true;
    m_pending.progressValue = value;
    if (!m_engine)
        showPendingProgress();
}

void frmDBImport::setProgressVisible(bool visible)
{
    showPendingProgress();
    ui->prgProcess->setVisible(visible);
}

void frmDBImport::showNoProgressNotice(const QString& text)
{
    showPendingProgress();
    QFont bold = ui->lblNoProgress->font();
    bold.setBold(true);
    ui->lblNoProgress->setFont(bold);
    ui->lblNoProgress->setText(text);
    ui->lblNoProgress->setVisible(true);
}

void frmDBImport::showPendingProgress()
{
    if (m_pending.counters) {
        ui->lblTotalProcessed->setText(QString::number(m_pending.totalProcessed));
        ui->lblAdded->setText(QString::number(m_pending.added));
        ui->lblDuplicates->setText(QString::number(m_pending.duplicates));
        ui->lblIllegal->setText(QString::number(m_pending.illegal));
    }
    if (m_pending.value) {
        QProgressBar* bar = ui->prgProcess;
        bar->setValue(qBound(bar->minimum(), m_pending.progressValue, bar->maximum()));
    }
    m_pending.counters = false;
    m_pending.value = false;
    m_sinceShown.restart();
}

void frmDBImport::yieldToEvents()
{
    // About 30 pictures a second is all the eye can follow; drawing more slows the import.
    constexpr qint64 kRedrawMs = 33;
    if (m_sinceShown.elapsed() >= kRedrawMs)
        showPendingProgress();
    QCoreApplication::processEvents();
    // A close agreed to before the record loop began must still stop the loop.
    if (m_runBoxes && m_runBoxes->closing() && m_engine->importRunning())
        m_engine->requestStop();
}

void frmDBImport::createExtraControls()
{
    m_cmdMatchByName = new QPushButton(QStringLiteral("Match &by name"), ui->fmeHolder_2);
    m_cmdMatchByName->setObjectName(QStringLiteral("cmdMatchByName"));
    m_cmdMatchByName->setToolTip(
        QStringLiteral("Map every field still on (blank) to a column of the same name"));
    auto* matchRow = new QHBoxLayout;
    matchRow->addStretch(1);
    matchRow->addWidget(m_cmdMatchByName);
    ui->layStep2->insertLayout(2, matchRow);
    connect(m_cmdMatchByName, &QPushButton::clicked, this, &frmDBImport::cmdMatchByName_Click);
    QWidget::setTabOrder(m_mapping->comboBox(20), m_cmdMatchByName);

    m_cmdTestRun = new QPushButton(QStringLiteral("T&est run..."), ui->fmeHolder_3);
    m_cmdTestRun->setObjectName(QStringLiteral("cmdTestRun"));
    m_cmdTestRun->setToolTip(
        QStringLiteral("Run the import without writing to the Group, to see what it would do"));
    m_cmdUndoLastImport =
        new QPushButton(QStringLiteral("Undo &last import into this Group..."), ui->fmeHolder_3);
    m_cmdUndoLastImport->setObjectName(QStringLiteral("cmdUndoLastImport"));
    auto* groupRow = new QHBoxLayout;
    groupRow->addWidget(m_cmdTestRun);
    groupRow->addWidget(m_cmdUndoLastImport);
    groupRow->addStretch(1);
    ui->layStep3->insertLayout(3, groupRow);
    connect(m_cmdTestRun, &QPushButton::clicked, this, &frmDBImport::cmdTestRun_Click);
    connect(m_cmdUndoLastImport, &QPushButton::clicked, this,
            &frmDBImport::cmdUndoLastImport_Click);
    QWidget::setTabOrder(ui->chkReplace, m_cmdTestRun);
    QWidget::setTabOrder(m_cmdTestRun, m_cmdUndoLastImport);
    QWidget::setTabOrder(m_cmdUndoLastImport, ui->cmdPrev);
    // The mapping lists are made after the form's own controls, so they followed Previous in
    // the focus chain: Tab on the mapping step went from Close to Previous and only then into
    // the lists. Previous belongs after the last control of every step.
    QWidget::setTabOrder(m_cmdMatchByName, ui->cmdPrev);
}

void frmDBImport::startSampleRead(const QString& sql, const QStringList& names)
{
    // Read on a helper thread with a connection of its own: a slow server never holds up
    // the step. Only the newest read is shown.
    const quint64 generation = ++m_sampleGeneration;
    m_mapping->setSample(SampleRows{names, {}, {}}, true);
    auto result = std::make_shared<SampleRows>();
    const QString conString = m_choices.ConnectionString;
    QThread* thread = QThread::create(
        [result, conString, sql, names] { *result = SampleRows::read(conString, sql, names); });
    m_sampleThreads << thread;
    connect(thread, &QThread::finished, this, [this, thread, result, generation] {
        m_sampleThreads.removeOne(thread);
        thread->deleteLater();
        if (generation == m_sampleGeneration)
            m_mapping->setSample(*result, false);
    });
    thread->start(QThread::LowPriority);
}

void frmDBImport::cmdMatchByName_Click()
{
    const int matched = m_mapping->matchByName();
    MessageBoxes::instance().information(
        matched == 0 ? QStringLiteral("No field was matched by name.")
                     : QStringLiteral("%1 field(s) matched by name.").arg(matched));
}

void frmDBImport::cmdTestRun_Click()
{
    // The checks of Start, and the import step as Start shows it; nothing is saved.
    if (!leaveGroupStep(1))
        return;
    ui->stkSteps->setCurrentIndex(kStepCount - 1);
    const StepBanner& banner = kBanners.at(kStepCount - 1);
    ui->lblBannerDesc->setText(QString::fromUtf8(banner.description));
    ui->lblStepMofN->setText(QString::fromUtf8(banner.stepMofN));
    const QString startText = ui->lblStartImport->text();
    ui->lblStartImport->setText(QStringLiteral("Test run: nothing is written to the Group"));
    ui->cmdPrev->setEnabled(false);
    ui->cmdNext->setEnabled(false);
    ui->cmdClose->setText(kCancelCaption);

    MessageBoxes& boxes = MessageBoxes::instance();
    QString errorText;
    bool ok = false;
    ImportEngine::Totals totals;
    QString logName;
    {
        ImportRunBoxes runBoxes(boxes, [this] { showPendingProgress(); });
        MessageBoxesGuard guard(&runBoxes);
        ImportEngine engine(m_choices, *this);
        engine.setTestRun(true);
        logName = engine.logFileName();
        m_engine = &engine;
        m_runBoxes = &runBoxes;
        m_sinceShown.start();
        ok = engine.DoImportJob(errorText);
        totals = engine.totals();
        m_engine = nullptr;
        m_runBoxes = nullptr;
        showPendingProgress();
    }
    ui->cmdClose->setText(kCloseCaption);
    ui->lblStartImport->setText(startText);
    if (!ok) {
        boxes.critical(errorText);
    } else {
        QString text = QStringLiteral("Test run complete: nothing was written to the Group.\r\n\r\n"
                                      "Total Processed: %1\r\nWould be added: %2\r\n"
                                      "Duplicates: %3\r\nIllegal: %4")
                           .arg(totals.totalProcessed)
                           .arg(totals.added)
                           .arg(totals.duplicates)
                           .arg(totals.illegal);
        if (m_choices.ReplaceExisting) {
            QStringList fields;
            for (auto it = totals.changedFields.cbegin(); it != totals.changedFields.cend(); ++it)
                fields << QStringLiteral("%1 (%2)").arg(it.key()).arg(it.value());
            text += QStringLiteral("\r\nRecipients that would change: %1").arg(totals.updated);
            if (!fields.isEmpty())
                text += QStringLiteral("\r\nFields: ") + fields.join(QStringLiteral(", "));
        }
        text += QStringLiteral("\r\n\r\nLog: ") + HostDataFolder() + logName +
                QStringLiteral("\r\nReport: ") + HostDataFolder() + ImportEngine::reportFileName();
        boxes.information(text);
    }
    showStep(kStepCount - 2);
}

void frmDBImport::cmdUndoLastImport_Click()
{
    MessageBoxes& boxes = MessageBoxes::instance();
    const QString group = ui->icmbGroups->currentText();
    if (group.isEmpty()) {
        boxes.information(QStringLiteral("Select the Group whose last import is to be undone."));
        return;
    }
    const QString path = NativePath(HostDataFolder() + group + QStringLiteral(".gdb"));
    ImportRunInfo info;
    QString errorText;
    if (!UndoJournal::lastRun(path, info, errorText)) {
        if (errorText.isEmpty())
            boxes.information(UndoJournal::nothingToUndo(group));
        else
            boxes.critical(errorText);
        return;
    }
    if (!boxes.ask(UndoJournal::describe(info, group), false))
        return;
    UndoOutcome outcome;
    MousePointer::busy();
    const bool undone = UndoJournal::undoLast(path, info.run, outcome, errorText);
    MousePointer::normal();
    if (undone)
        boxes.information(UndoJournal::describe(outcome));
    else
        boxes.critical(errorText);
}
