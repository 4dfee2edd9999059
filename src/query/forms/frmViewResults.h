#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class frmViewResults;
}

class ResultSpool;
class ResultsModel;

// Runs one SELECT statement and shows what it returns in a grid, with a count, so that the
// user sees what a set of rules or a hand-written statement will import. The rows are read
// and counted on helper threads and the grid reads them as it scrolls, so the first rows
// show at once and the window stays responsive on a result of millions. Closing the window
// ends the query.
class frmViewResults final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmViewResults)

public:
    explicit frmViewResults(QWidget* parent = nullptr);
    ~frmViewResults() override;

    QString DSNString;
    QString SQLString;

    // Runs SQLString. False with errorText set when it is not a SELECT (nothing is sent
    // then) or the source refuses it; the caller shows the text and does not show the
    // dialog.
    bool RunQuery(QString& errorText);

    // What both query dialogs do: run the statement, show the error text with the
    // critical icon when it fails, otherwise show the rows until the user closes them.
    static void ShowResults(QWidget* parent, const QString& dsnString, const QString& sql);

    // For the benchmark and tests: rows read so far.
    qint64 loadedRows() const;

    void done(int result) override;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void showCount(qint64 count);
    void fitColumns();

    std::unique_ptr<Ui::frmViewResults> ui;
    std::unique_ptr<ResultSpool> m_spool;
    ResultsModel* m_model = nullptr;
};
