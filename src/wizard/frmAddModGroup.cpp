#include "frmAddModGroup.h"
#include "ui_frmAddModGroup.h"

#include "import/groups.h"
#include "util/apperror.h"
#include "util/appglobals.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"

#include <QKeyEvent>

namespace {

const QString kFormName = QStringLiteral("frmAddModGroup");

// The host keeps these lists itself; a Group may not take their names.
const QStringList kReservedNames = {QStringLiteral("All Groups"), QStringLiteral("Search Results"),
                                    QStringLiteral("Exclusion List")};

bool isAllowedCharacter(QChar c)
{
    const char16_t u = c.unicode();
    return u == u' ' || u == u'-' || (u >= u'0' && u <= u'9') || (u >= u'A' && u <= u'Z') ||
           (u >= u'a' && u <= u'z') || u == u'\b';
}

} // namespace

frmAddModGroup::frmAddModGroup(QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::frmAddModGroup>())
{
    ui->setupUi(this);
    m_cancelled = true;
    ui->txtGroupName->installEventFilter(this);
    connect(ui->cmdOK, &QPushButton::clicked, this, &frmAddModGroup::cmdOK_Click);
    connect(ui->cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    RegisterLoadedForm(kFormName);
}

frmAddModGroup::~frmAddModGroup()
{
    UnregisterLoadedForm(kFormName);
}

bool frmAddModGroup::acceptTypedCharacter(QChar character)
{
    if (isAllowedCharacter(character))
        return true;
    MessageBoxes& boxes = MessageBoxes::instance();
    boxes.beep();
    boxes.information(
        QStringLiteral("Please enter valid characters only.\r\n\r\nThese include: ") +
        QStringLiteral("Spaces, letters a to z and A to Z, Numbers 0 to 9 and Hyphens"));
    return false;
}

bool frmAddModGroup::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == ui->txtGroupName && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        const QString text = key->text();
        // Only typed characters are checked: editing keys, Enter and shortcuts such as
        // paste carry no printable text and pass, so pasted text is not filtered.
        const bool typed = text.size() == 1 && (text.at(0).isPrint() || text.at(0) == u'\b') &&
                           !(key->modifiers() & (Qt::ControlModifier | Qt::MetaModifier));
        if (typed && !acceptTypedCharacter(text.at(0)))
            return true;
    }
    return QDialog::eventFilter(watched, event);
}

void frmAddModGroup::cmdOK_Click()
{
    try {
        ui->txtGroupName->setText(ui->txtGroupName->text().trimmed());
        const QString name = ui->txtGroupName->text();
        if (name.isEmpty()) {
            MessageBoxes::instance().exclamation(QStringLiteral("Please enter a Group name."));
            return;
        }
        // Deliberately exact: the Group list hides these names in any case, but only the
        // exact spelling is refused here.
        if (kReservedNames.contains(name)) {
            MessageBoxes::instance().exclamation(
                QStringLiteral("Sorry but this Group name cannot be used."));
            return;
        }
        if (CreateGroup(name, HostDataFolder())) {
            m_newGroupName = name;
            m_cancelled = false;
            accept();
        } else {
            ui->txtGroupName->setFocus();
        }
    } catch (const AppError& e) {
        MessageBoxes::instance().critical(QStringLiteral("Error Creating Group\n") +
                                          e.numberAndDescription());
    }
}
