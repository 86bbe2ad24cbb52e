#pragma once

#include "app/mainmenu.h"
#include "jobs/batch.h"

#include <QDialog>
#include <QJsonObject>
#include <QList>
#include <QStringList>

#include <functional>
#include <memory>

class Alerts;
class QLineEdit;
class QProgressBar;

// What every tool window shares: the main menu, the window title with the profile in use, the
// profile commands, and the batch run. A run hands the window's settings to a batch of the job
// layer, disables the window's input controls, plans and runs the batch on Qt's thread pool
// (the overwrite questions come back to the main thread), and hands progress and then one
// completion to the main thread in order. A window closed during a run is gone: the run goes on
// to its end (existing files left as they are if it had yet to ask), but its progress and
// completion reach no control.
class ToolWindow : public QDialog, public MenuCommands
{
    Q_OBJECT

public:
    ToolWindow(Tool tool, Alerts &alerts, QWidget *parent);
    ~ToolWindow() override;

    Alerts &alerts() const { return m_alerts; }
    bool isRunning() const { return m_running; }
    const QString &currentProfilePath() const { return m_currentProfilePath; }

    // The tools with settings have File > New and profiles; Merge has neither.
    bool hasSettings() const override { return !profileTool().isEmpty(); }
    // Resets every setting and the list, forgets the profile file and sets the plain title.
    void OnFileNew() override;
    // Saves to the profile file in use; without one, asks for a file like Save Profile As.
    void OnSaveProfile() override;
    void OnSaveProfileAs() override;
    void OnLoadProfile() override;

    // The words of a run.
    struct RunTexts
    {
        QString verb;      // "split": "... and split again."
        QString emptyList; // "There are no PDF documents to crop."
        QString success;   // "PDF document(s) cropped successfully."
        QString failure;   // "Could not crop PDF document(s)."
    };
    // Where the progress bar stands: after each document (i / n x 100 once document i, counted
    // from 0, is done), or as each document starts ((i + 1) / n x 100, the merge's).
    enum class ProgressRule { AfterEachDocument, AsEachDocumentStarts };

signals:
    // The completion of a run reached the window (after the completion message).
    void runFinished(bool success);

protected:
    // After setupUi: the menu bar, the controls DisableInterface and EnableInterface switch (in
    // order) and the run's progress bar.
    void finishSetup(const QList<QWidget *> &interfaceControls, QProgressBar *progress);

    void DisableInterface() { setInterfaceEnabled(false); }
    void EnableInterface() { setInterfaceEnabled(true); }
    void setInterfaceEnabled(bool enabled);

    // The whole run of a batch: an empty list or a missing folder is said at once; otherwise
    // the interface is disabled, the batch is planned (any reason it cannot start is said and
    // the interface enabled again), the existing outputs are asked about (question; by default
    // the overwrite alert), and the batch runs, ending with texts.success or texts.failure.
    void runBatch(std::shared_ptr<Jobs::Batch> batch,
                  const RunTexts &texts,
                  ProgressRule rule = ProgressRule::AfterEachDocument,
                  Jobs::Batch::Question question = {});
    // What a reason the run cannot start says in this window.
    QString blockerText(const Jobs::Blocker &blocker, const RunTexts &texts) const;

    // The folder panel; the chosen folder goes into field, a cancelled panel leaves it.
    void OnBrowse(QLineEdit *field);

    // Settings of the tool's profile: the tool's name in the file, empty for no profiles.
    virtual QString profileTool() const { return {}; }
    virtual QJsonObject profileSettings() const { return {}; }
    virtual bool applyProfileSettings(const QJsonObject &settings, QString *error);
    virtual void ResetInterface() {}

private:
    // The window gives up on a run after it was planned: the interface is enabled again and
    // text says what to change.
    void abandonRun(const QString &text);
    void setProgress(double percent);
    void finishRun(const Jobs::RunResult &result, const RunTexts &texts);
    void saveProfileTo(const QString &path);
    void updateWindowTitle();

    Tool m_tool;
    Alerts &m_alerts;
    QList<QWidget *> m_interfaceControls;
    QProgressBar *m_progress = nullptr;
    QString m_currentProfilePath;
    bool m_running = false;
};
