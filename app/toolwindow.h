#pragma once

#include "app/mainmenu.h"
#include "naming/overwrite.h"

#include <QDialog>
#include <QJsonObject>
#include <QList>
#include <QStringList>

#include <functional>

class Alerts;
class QLineEdit;
class QProgressBar;

// What every tool window shares: the main menu, the window title with the profile in use, the
// profile commands, and the batch run. A run copies its settings into its job, disables the
// window's input controls, runs the job on Qt's thread pool, and hands progress and then one
// completion to the main thread in order. A window closed during a run is gone: the job goes on
// to its end, but its progress and completion reach no control.
class ToolWindow : public QDialog, public MenuCommands
{
    Q_OBJECT

public:
    // Called on the job's thread with a percentage from 0 to 100.
    using ReportProgress = std::function<void(double percent)>;
    // The run's work, on the job's thread; the run's result.
    using Job = std::function<bool(const ReportProgress &)>;

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

    // The per-document run of Crop, Watermark and Edit PDF Properties: for each document in
    // order, unless its decision is Skip, step(i) writes outputs[i]. A document that no longer
    // opens ends the loop and fails the run; an output that is one of the inputs is never
    // written and fails the run. Progress is i / n x 100 after document i.
    struct DocumentRun
    {
        QStringList inputs;
        QStringList outputs;
        QList<Naming::OverwriteDecision> decisions;
        std::function<bool(int i)> step;
    };
    static bool runDocuments(const DocumentRun &run, const ReportProgress &progress);

    // The words of a run that writes one file per document into a folder.
    struct RunTexts
    {
        QString emptyList; // "There are no PDF documents to crop."
        QString success;   // "PDF document(s) cropped successfully."
        QString failure;   // "Could not crop PDF document(s)."
    };

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

    // Disables the interface and starts the job; its completion sets the bar to 0, enables the
    // interface and shows successText or failureText.
    void startJob(Job job, const QString &successText, const QString &failureText);
    // The window gives up on a run before its job: the interface is enabled again and text says
    // what to change.
    void abandonRun(const QString &text);

    // The whole run of a tool that writes one file per document into a folder (Crop,
    // Watermark): the checks and their alerts, the overwrite questions, then runDocuments on the
    // job's thread. outputPath(i) names document i's output; step(input, output) writes it, on
    // the job's thread, from settings it holds by value.
    void runPerDocument(const QStringList &inputs,
                        const QString &folder,
                        const RunTexts &texts,
                        const std::function<QString(const QString &input)> &outputPath,
                        std::function<bool(const QString &input, const QString &output)> step);

    // The overwrite pass before a run: one decision per output, asking about existing files.
    QList<Naming::OverwriteDecision> planOverwrites(const QStringList &outputs);
    // The folder panel; the chosen folder goes into field, a cancelled panel leaves it.
    void OnBrowse(QLineEdit *field);

    // Settings of the tool's profile: the tool's name in the file, empty for no profiles.
    virtual QString profileTool() const { return {}; }
    virtual QJsonObject profileSettings() const { return {}; }
    virtual bool applyProfileSettings(const QJsonObject &settings, QString *error);
    virtual void ResetInterface() {}

private:
    void setProgress(double percent);
    void finishRun(bool success, const QString &successText, const QString &failureText);
    void saveProfileTo(const QString &path);
    void updateWindowTitle();

    Tool m_tool;
    Alerts &m_alerts;
    QList<QWidget *> m_interfaceControls;
    QProgressBar *m_progress = nullptr;
    QString m_currentProfilePath;
    bool m_running = false;
};
