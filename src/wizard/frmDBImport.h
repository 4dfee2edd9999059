#pragma once

#include "import/importchoices.h"
#include "import/importview.h"

#include <QElapsedTimer>
#include <QWidget>

#include <memory>

namespace Ui {
class frmDBImport;
}

class ImportRunBoxes;
class FieldMappingArea;
class ImportEngine;
class QLabel;
class QPushButton;
class QRadioButton;
class QThread;
class QTreeWidgetItem;

// The program's main window: the five-step import wizard. It holds the user's choices for
// the run, checks each step when the user moves on, and shows the import job's progress.
class frmDBImport final : public QWidget, public ImportView
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmDBImport)

public:
    explicit frmDBImport(QWidget* parent = nullptr);
    ~frmDBImport() override;

    // 1 = Next, -1 = Previous, 0 = show the current step again.
    void ChangeStep(int direction);
    // Empties the choices of the run.
    void ResetChoices();

    const ImportChoices& importChoices() const { return m_choices; }
    // True while an import job runs (from Start until the job returns).
    bool importInProgress() const { return m_engine != nullptr; }

    // ImportView
    void setStatus(const QString& text) override;
    void setCounters(qint32 totalProcessed, qint32 added, qint32 duplicates,
                     qint32 illegal) override;
    void setProgressRange(int minimum, int maximum) override;
    void setProgressValue(int value) override;
    void setProgressVisible(bool visible) override;
    void showNoProgressNotice(const QString& text) override;
    void yieldToEvents() override;

protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    int currentStep() const;
    bool leaveStep(int step, int direction);
    bool leaveConnectionStep();
    bool leaveRecordsStep(int direction);
    bool leaveMappingStep(int direction);
    bool leaveGroupStep(int direction);
    void showStep(int step);
    void StartImport();
    void UpdateDSNList();
    QTreeWidgetItem* selectedConnectionRow() const;
    void cmdNewDSN_Click();
    void cmdEditDSN_Click();
    void cmdDeleteDSN_Click();
    void cmdExamine_Click();
    void LoadGroups();
    void updateStartButton();
    void optFilterMethod_Click(int index);
    void cmdClose_Click();
    void cmdQueryBuilder_Click();
    void cmdAdvancedQuery_Click();
    void cmdCreateNewGroup_Click();
    QRadioButton* optFilterMethod(int index) const;

    // Sample values, match by name, test run and undo of the last import.
    void createExtraControls();
    void startSampleRead(const QString& sql, const QStringList& names);
    void cmdMatchByName_Click();
    void cmdTestRun_Click();
    void cmdUndoLastImport_Click();
    QPushButton* m_cmdMatchByName = nullptr;
    QPushButton* m_cmdTestRun = nullptr;
    QPushButton* m_cmdUndoLastImport = nullptr;
    quint64 m_sampleGeneration = 0;
    QList<QThread*> m_sampleThreads;

    std::unique_ptr<Ui::frmDBImport> ui;
    std::unique_ptr<FieldMappingArea> m_mapping;
    ImportChoices m_choices;
    bool m_firstActivation = true;
    QLabel* m_lblNoGroups = nullptr;      // step 4's hint when the data folder holds no Group
    ImportEngine* m_engine = nullptr;     // the running job, for Cancel
    ImportRunBoxes* m_runBoxes = nullptr; // the job's message boxes while it runs

    // While a job runs, counters and bar position are kept here and drawn a few dozen
    // times a second, not every ten records; anything else the job shows draws them first.
    void showPendingProgress();
    struct PendingProgress
    {
        bool counters = false;
        qint32 totalProcessed = 0, added = 0, duplicates = 0, illegal = 0;
        bool value = false;
        int progressValue = 0;
    } m_pending;
    QElapsedTimer m_sinceShown;
};
