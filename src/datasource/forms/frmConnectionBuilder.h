#pragma once

#include <QDialog>
#include <QElapsedTimer>
#include <QTimer>

#include <functional>
#include <memory>

namespace Ui {
class frmConnectionBuilder;
}

class ConnectionProbe;

// Composes a connection string from its parts: a SQLite database file, an ODBC data source
// name or an ODBC driver with server and login, or the string itself as text. Test
// Connection opens the source read-only off the UI thread and reports what it found. The
// caller reads connectionString() after an accepted exec().
class frmConnectionBuilder final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmConnectionBuilder)

public:
    // Picks a SQLite file for the Browse button: parent, the current path; an empty result
    // means the user cancelled. Tests install their own; nullptr restores the file dialog.
    using FileChooser = std::function<QString(QWidget*, const QString&)>;
    static void setFileChooser(FileChooser chooser);

    explicit frmConnectionBuilder(QWidget* parent = nullptr);
    ~frmConnectionBuilder() override;

    // Fills the fields from conString (empty: a new connection). A string no page can
    // represent opens as text; false with a message when it cannot be split at all.
    bool setConnectionString(const QString& conString, QString& message);
    QString connectionString() const;

    // How long Test Connection waits for the driver before it reports a failure.
    void setTestTimeout(int milliseconds) { m_testTimeout = milliseconds; }

    void reject() override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void cmbKind_Change(int index);
    void cmdBrowse_Click();
    void cmdTest_Click();
    void cmdOK_Click();
    void pollTest();
    void finishTest(const QString& report);
    void fillOdbcLists(const QString& dataSource, const QString& driver);

    std::unique_ptr<Ui::frmConnectionBuilder> ui;
    std::unique_ptr<ConnectionProbe> m_probe;
    QTimer m_poll;
    QElapsedTimer m_testClock;
    int m_testTimeout = 20000;
};
