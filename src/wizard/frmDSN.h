#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class frmDSN;
}

// What the connection step and frmDSN hand each other. The caller sets DSNDialogIsNew
// (and for Edit the name and string) before showing the dialog and reads the rest after.
extern bool DSNDialogIsNew;
extern QString DSNDialogName;
extern QString DSNDialogConString;
extern bool DSNDialogCancelled; // true when there is nothing to store

// Asks for a descriptive name and a connection string, typed or composed with the
// connection builder. A password in the string is shown hidden while the string is not
// being edited; what is stored is the string exactly as typed.
class frmDSN final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmDSN)

public:
    explicit frmDSN(QWidget* parent = nullptr);
    ~frmDSN() override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QString conString() const;
    void setConString(const QString& text);
    void showMasked();
    void updateEditCaption();
    void cmdEdit_Click();
    void cmdOK_Click();
    void cmdClose_Click();

    std::unique_ptr<Ui::frmDSN> ui;
    QString m_conString; // the string as typed, kept while txtConStr shows it masked
    bool m_showingMask = false;
    QString m_openedName;
    QString m_openedConString;
};
