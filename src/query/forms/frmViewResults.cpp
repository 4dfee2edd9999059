#include "frmViewResults.h"
#include "ui_frmViewResults.h"

#include "resultsmodel.h"

#include "datasource/readonlyguard.h"
#include "query/resultspool.h"
#include "util/apperror.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"
#include "util/mousepointer.h"

#include <QHeaderView>
#include <QResizeEvent>

namespace {

const QString kFormName = QStringLiteral("frmViewResults");

// Widths read from the first rows only: a column is not measured over a million rows.
constexpr int kMeasuredRows = 200;
constexpr int kWidestColumn = 320;

} // namespace

frmViewResults::frmViewResults(QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::frmViewResults>())
{
    ui->setupUi(this);
    RegisterLoadedForm(kFormName);
    QHeaderView* rows = ui->vsfgrdResults->verticalHeader();
    rows->setSectionResizeMode(QHeaderView::Fixed);
    rows->setDefaultSectionSize(fontMetrics().height() + 6);
    ui->vsfgrdResults->horizontalHeader()->setResizeContentsPrecision(kMeasuredRows);
    connect(ui->cmdClose, &QPushButton::clicked, this, &QDialog::accept);
    setMinimumSize(1, 1);
}

frmViewResults::~frmViewResults()
{
    // The model reads the spool; it goes first.
    ui->vsfgrdResults->setModel(nullptr);
    delete m_model;
    m_spool.reset();
    UnregisterLoadedForm(kFormName);
}

bool frmViewResults::RunQuery(QString& errorText)
{
    ui->vsfgrdResults->setModel(nullptr);
    delete m_model;
    m_model = nullptr;
    m_spool.reset();

    // The word anywhere in the text will do here; the read-only check below, the server's
    // read-only mode and the rolled-back transaction keep a disguised DELETE from writing.
    if (!SQLString.toUpper().contains(QLatin1String("SELECT"))) {
        errorText = QStringLiteral("The SQL must be a valid SELECT statement.");
        return false;
    }

    // Nothing that could write reaches the source, whatever the server would make of it.
    QString refused;
    if (!CheckReadOnlyStatement(SQLString, refused)) {
        errorText = AppError(AppError::DataSource, refused).numberAndDescription();
        ui->lblResults->setText(QStringLiteral("Error(s) Encountered ..."));
        return false;
    }

    MousePointer::busy();
    ui->lblResults->setText(QStringLiteral("Running Query ..."));
    m_spool = std::make_unique<ResultSpool>();
    if (!m_spool->start(DSNString, SQLString, errorText)) {
        MousePointer::normal();
        ui->lblResults->setText(QStringLiteral("Error(s) Encountered ..."));
        return false;
    }
    m_model = new ResultsModel(*m_spool, this);
    connect(m_model, &ResultsModel::countKnown, this, &frmViewResults::showCount);
    connect(m_model, &ResultsModel::readFailed, this,
            [this] { ui->lblResults->setText(QStringLiteral("Error(s) Encountered ...")); });
    ui->vsfgrdResults->setModel(m_model);
    fitColumns();
    if (m_spool->count() >= 0)
        showCount(m_spool->count());
    MousePointer::normal();
    return true;
}

void frmViewResults::ShowResults(QWidget* parent, const QString& dsnString, const QString& sql)
{
    auto viewer = std::make_unique<frmViewResults>(parent);
    viewer->DSNString = dsnString;
    viewer->SQLString = sql;
    QString errorText;
    if (!viewer->RunQuery(errorText)) {
        viewer.reset();
        MessageBoxes::instance().critical(errorText);
        return;
    }
    viewer->exec();
}

qint64 frmViewResults::loadedRows() const
{
    return m_model ? m_model->loadedRows() : 0;
}

void frmViewResults::showCount(qint64 count)
{
    ui->lblResults->setText(QString::number(count) + QStringLiteral(" Records Returned ..."));
}

void frmViewResults::fitColumns()
{
    QTableView* grid = ui->vsfgrdResults;
    grid->resizeColumnsToContents();
    for (int c = 0; c < m_model->columnCount(); ++c)
        grid->setColumnWidth(c, qMin(grid->columnWidth(c), kWidestColumn));
}

void frmViewResults::done(int result)
{
    // Closing ends the query at once, before the caller gets round to unloading the form.
    if (m_spool)
        m_spool->stop();
    QDialog::done(result);
}

void frmViewResults::resizeEvent(QResizeEvent* event)
{
    QDialog::resizeEvent(event);
    // Measured in twips as the layout was drawn: 1440 to the inch.
    const qreal perTwip = logicalDpiX() / 1440.0;
    auto px = [perTwip](int twips) { return qRound(twips * perTwip); };

    QWidget* footer = ui->picFooter;
    const int footerHeight = ui->cmdClose->sizeHint().height() + px(240);
    footer->setGeometry(0, height() - footerHeight, width(), footerHeight);

    const int gridWidth = footer->width() <= px(600) ? px(200) : footer->width() - px(400);
    const int gridHeight = footer->y() <= px(400) ? px(200) : footer->y() - px(200);
    ui->vsfgrdResults->setGeometry(px(200), px(200), gridWidth, gridHeight);

    const QSize button = ui->cmdClose->sizeHint();
    int buttonLeft = px(200) + gridWidth - button.width();
    if (buttonLeft <= px(100))
        buttonLeft = px(100);
    const int buttonTop = (footerHeight - button.height()) / 2;
    ui->cmdClose->setGeometry(buttonLeft, buttonTop, button.width(), button.height());
    ui->lblResults->setGeometry(px(200), buttonTop, qMax(0, buttonLeft - px(300)), button.height());
}
