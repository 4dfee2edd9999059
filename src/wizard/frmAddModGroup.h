#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class frmAddModGroup;
}

// "Add New Group": asks for a Group name and creates the Group's file in the host's data
// folder. The caller reads cancelled() and newGroupName() after exec().
class frmAddModGroup final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmAddModGroup)

public:
    explicit frmAddModGroup(QWidget* parent = nullptr);
    ~frmAddModGroup() override;

    // True until a Group was created.
    bool cancelled() const { return m_cancelled; }
    QString newGroupName() const { return m_newGroupName; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void cmdOK_Click();
    // False (after the beep and the rule) for a typed character a Group name may not hold.
    bool acceptTypedCharacter(QChar character);

    std::unique_ptr<Ui::frmAddModGroup> ui;
    bool m_cancelled = true;
    QString m_newGroupName;
};
