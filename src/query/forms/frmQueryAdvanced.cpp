#include "frmQueryAdvanced.h"
#include "ui_frmQueryAdvanced.h"

#include "frmViewResults.h"
#include "sqlhighlighter.h"

#include "datasource/modADO.h"
#include "query/fieldreference.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"

#include <QFontDatabase>
#include <QKeyEvent>
#include <QStyle>

namespace {

const QString kFormName = QStringLiteral("frmQueryAdvanced");
const QString kEmptyStatement = QStringLiteral("A valid SQL statement must be entered.");
const QString kWindowsBreak = QStringLiteral("\r\n");

} // namespace

frmQueryAdvanced::frmQueryAdvanced(QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::frmQueryAdvanced>())
{
    ui->setupUi(this);
    RegisterLoadedForm(kFormName);

    QStyle* s = style();
    m_pics = {{QStringLiteral("GoodConnection"), s->standardIcon(QStyle::SP_DialogApplyButton)},
              {QStringLiteral("BadConnection"), s->standardIcon(QStyle::SP_DialogCancelButton)},
              {QStringLiteral("Connection"), s->standardIcon(QStyle::SP_DriveNetIcon)},
              {QStringLiteral("CreateConnection"), s->standardIcon(QStyle::SP_FileDialogNewFolder)},
              {QStringLiteral("Databases"), s->standardIcon(QStyle::SP_DriveHDIcon)},
              {QStringLiteral("Field"), s->standardIcon(QStyle::SP_FileIcon)},
              {QStringLiteral("Table"), s->standardIcon(QStyle::SP_FileDialogDetailedView)},
              {QStringLiteral("Tables"), s->standardIcon(QStyle::SP_DirIcon)}};

    ui->txtSQL->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    ui->txtSQL->setMinimumSize(ui->txtSQL->fontMetrics().horizontalAdvance(QLatin1Char('x')) * 64,
                               ui->txtSQL->fontMetrics().lineSpacing() * 9);
    new SqlHighlighter(ui->txtSQL->document());
    ui->txtSQL->installEventFilter(this);
    ui->lvwFields->installEventFilter(this);

    connect(ui->icmbTables, &QComboBox::activated, this, &frmQueryAdvanced::icmbTables_Click);
    connect(ui->lvwFields, &QTreeWidget::itemDoubleClicked, this,
            &frmQueryAdvanced::insertSelectedField);
    connect(ui->cmdShow, &QPushButton::clicked, this, &frmQueryAdvanced::cmdShow_Click);
    connect(ui->cmdSyntax, &QPushButton::clicked, this, &frmQueryAdvanced::cmdSyntax_Click);
    connect(ui->cmdResults, &QPushButton::clicked, this, &frmQueryAdvanced::cmdResults_Click);
    connect(ui->cmdOK, &QPushButton::clicked, this, &frmQueryAdvanced::cmdOK_Click);
    connect(ui->cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    layOut();
}

frmQueryAdvanced::~frmQueryAdvanced()
{
    UnregisterLoadedForm(kFormName);
}

void frmQueryAdvanced::showEvent(QShowEvent* event)
{
    if (m_firstActivation) {
        m_firstActivation = false;
        activateFirstTime();
    }
    QDialog::showEvent(event);
}

void frmQueryAdvanced::activateFirstTime()
{
    ui->txtSQL->setPlainText(QString(SQLString).replace(kWindowsBreak, QStringLiteral("\n")));
    ui->txtSQL->moveCursor(QTextCursor::End);
    layOut();

    QStringList tables;
    QString message;
    if (GetTables(tables, DSNString, message)) {
        for (const QString& table : tables)
            ui->icmbTables->addItem(m_pics.value(QStringLiteral("Table")), table);
        ui->icmbTables->setCurrentIndex(-1);
    } else if (!message.isEmpty()) {
        MessageBoxes::instance().information(message);
    }
    ui->txtSQL->setFocus();
}

void frmQueryAdvanced::layOut()
{
    for (QWidget* w :
         {static_cast<QWidget*>(ui->lblCaption_1), static_cast<QWidget*>(ui->icmbTables),
          static_cast<QWidget*>(ui->lblCaption_2), static_cast<QWidget*>(ui->lvwFields)})
        w->setVisible(m_showFields);
    // The frame ends at the lower guide with the fields shown and at the upper one without;
    // the buttons below it follow, and the window takes the height it needs.
    layout()->activate();
    resize(width(), sizeHint().height());
}

void frmQueryAdvanced::cmdShow_Click()
{
    m_showFields = !m_showFields;
    layOut();
    ui->cmdShow->setText(m_showFields ? QStringLiteral("&Hide Fields")
                                      : QStringLiteral("&Show Fields"));
}

void frmQueryAdvanced::icmbTables_Click()
{
    ui->lvwFields->clear();
    const QString table = ui->icmbTables->currentText();
    if (ui->icmbTables->currentIndex() < 0 || table.isEmpty())
        return;
    QStringList names;
    QStringList types;
    QString message;
    if (!GetFields(DSNString, table, names, types, message)) {
        MessageBoxes::instance().critical(message);
        return;
    }
    const QIcon fieldIcon = m_pics.value(QStringLiteral("Field"));
    for (qsizetype i = 0; i < names.size(); ++i) {
        auto* row = new QTreeWidgetItem(ui->lvwFields, {names.at(i), types.value(i)});
        row->setIcon(0, fieldIcon);
    }
}

void frmQueryAdvanced::insertSelectedField()
{
    const QTreeWidgetItem* row = ui->lvwFields->currentItem();
    const QString field = row ? row->text(0).trimmed() : QString();
    if (field.isEmpty())
        return;
    const QString tableName =
        ui->icmbTables->currentIndex() >= 0 ? ui->icmbTables->currentText() : QString();
    const QString reference = FieldReference(tableName, field);

    QTextCursor cursor = ui->txtSQL->textCursor();
    int caret = 0;
    const QString text =
        InsertFieldReference(ui->txtSQL->toPlainText(), cursor.position(), reference, caret);
    // One edit of the whole text, so that a single undo takes the insertion back.
    cursor.select(QTextCursor::Document);
    cursor.insertText(text);
    cursor.setPosition(caret);
    ui->txtSQL->setTextCursor(cursor);
}

bool frmQueryAdvanced::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == ui->txtSQL) {
        if (event->type() == QEvent::FocusIn) {
            // Enter starts a new line in the statement instead of pressing OK.
            ui->cmdOK->setDefault(false);
        } else if (event->type() == QEvent::FocusOut) {
            ui->cmdOK->setDefault(true);
        } else if (event->type() == QEvent::KeyPress) {
            const auto* key = static_cast<QKeyEvent*>(event);
            if ((key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) &&
                (key->modifiers() & Qt::ControlModifier)) {
                cmdOK_Click();
                return true;
            }
        }
    } else if (watched == ui->lvwFields && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
            insertSelectedField();
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

QString frmQueryAdvanced::statement() const
{
    return ui->txtSQL->toPlainText().replace(QLatin1Char('\n'), kWindowsBreak);
}

bool frmQueryAdvanced::checkStatement(QString& message) const
{
    long errorNumber = 0;
    return ValidateSQL(DSNString, statement(), errorNumber, message);
}

void frmQueryAdvanced::cmdSyntax_Click()
{
    MessageBoxes& boxes = MessageBoxes::instance();
    if (statement().trimmed().isEmpty()) {
        boxes.information(kEmptyStatement);
        return;
    }
    QString message;
    boxes.information(checkStatement(message) ? QStringLiteral("The SQL statement is valid.")
                                              : message);
}

void frmQueryAdvanced::cmdResults_Click()
{
    if (statement().trimmed().isEmpty()) {
        MessageBoxes::instance().information(kEmptyStatement);
        return;
    }
    frmViewResults::ShowResults(this, DSNString, statement());
}

void frmQueryAdvanced::cmdOK_Click()
{
    MessageBoxes& boxes = MessageBoxes::instance();
    if (statement().trimmed().isEmpty()) {
        boxes.information(kEmptyStatement);
        ui->txtSQL->setFocus();
        return;
    }
    QString message;
    if (!checkStatement(message)) {
        boxes.information(message);
        ui->txtSQL->setFocus();
        return;
    }
    SQLString = statement();
    m_cancelled = false;
    accept();
}
