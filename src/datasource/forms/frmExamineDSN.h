#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class frmExamineDSN;
}

// "Examine a Database connection": the tables of a configured connection and the fields of
// one table with their type names. It changes nothing. The caller adds the connections
// with AddConnection and shows the dialog.
class frmExamineDSN final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmExamineDSN)

public:
    explicit frmExamineDSN(QWidget* parent = nullptr);
    ~frmExamineDSN() override;

    void AddConnection(const QString& name, const QString& conString, bool select);
    bool LoadTables(const QString& conString);
    bool LoadFields(const QString& table, const QString& conString);

protected:
    void showEvent(QShowEvent* event) override;

private:
    QString selectedConnectionString() const;
    void icmbConnections_Click();
    void icmbTables_Click();

    std::unique_ptr<Ui::frmExamineDSN> ui;
    bool m_firstActivation = true;
    bool m_loading = false; // combo changes made while filling are no clicks
};
