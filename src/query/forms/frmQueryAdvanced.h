#pragma once

#include <QDialog>
#include <QHash>
#include <QIcon>

#include <memory>

namespace Ui {
class frmQueryAdvanced;
}

// The hand-written SELECT statement that chooses the records to import. Beside the
// statement box it can list the connection's tables and a table's fields; picking a field
// writes a reference to it at the caret. The statement can be checked and its rows viewed
// before it is accepted. The statement keeps its line breaks in Windows form ("\r\n").
class frmQueryAdvanced final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmQueryAdvanced)

public:
    explicit frmQueryAdvanced(QWidget* parent = nullptr);
    ~frmQueryAdvanced() override;

    QString DSNString;
    QString SQLString;
    bool Cancelled() const { return m_cancelled; }

protected:
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void activateFirstTime();
    void layOut();
    void icmbTables_Click();
    void insertSelectedField();
    bool checkStatement(QString& message) const;
    QString statement() const;
    void cmdSyntax_Click();
    void cmdResults_Click();
    void cmdOK_Click();
    void cmdShow_Click();

    std::unique_ptr<Ui::frmQueryAdvanced> ui;
    QHash<QString, QIcon> m_pics; // the image list, by key
    bool m_cancelled = true;
    bool m_firstActivation = true;
    bool m_showFields = false;
};
