#pragma once

#include "app/mainmenu.h"
#include "jobs/batch.h"

#include <QDialog>
#include <QJsonObject>
#include <QList>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>

class Alerts;
class DocumentList;
class QLabel;
class QLineEdit;
class QMenuBar;
class QProgressBar;
class QPushButton;

// What every tool window shares: the main menu, the window title with the profile in use, the
// profile commands, the document list's place in the window, and the batch run. A run hands the
// window's settings to a batch of the job layer, disables the window's input controls, plans and
// runs the batch on Qt's thread pool (the overwrite questions come back to the main thread), and
// hands progress and then one completion to the main thread in order. A run can be stopped after
// the document it is working on; closing the window or quitting during a run asks first.
class ToolWindow : public QDialog, public MenuCommands
{
    Q_OBJECT

public:
    ToolWindow(Tool tool, Alerts &alerts, QWidget *parent);
    ~ToolWindow() override;

    Alerts &alerts() const { return m_alerts; }
    DocumentList *documentList() const { return m_documents; }
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
    // During a run, asks whether to stop it and close; true when the application may quit.
    bool mayQuit() override;

    // Stops the run after the documents being processed (the Stop button).
    void stopRun();

    // The words of a run, and where its results are.
    struct RunTexts
    {
        QString verb;      // "split": "... and split again."
        QString emptyList; // "There are no PDF documents to crop."
        QString success;   // "PDF document(s) cropped successfully."
        QString failure;   // "Could not crop PDF document(s)."
        QString folder;    // what "Show in Folder" opens once files were written
        QString openFile;  // what "Open" opens (the merged file); empty: no such button
    };
    // Where the progress bar stands: after each document (i / n x 100 once document i, counted
    // from 0, is done), or as each document starts ((i + 1) / n x 100, the merge's).
    enum class ProgressRule { AfterEachDocument, AsEachDocumentStarts };

    // The question asked when a window with a run is closed, or the application quit.
    static constexpr auto StopQuestion = "A run is in progress. Stop it after the current "
                                         "document and close the window?";

signals:
    // A run ended: its completion message was shown, or, once it was planned, the reason it
    // could not start.
    void runFinished(bool success);
    // A run has begun a document (index in the list), as the line beside the bar says.
    void documentStarted(int index);

protected:
    // After setupUi: the menu bar, the controls DisableInterface and EnableInterface switch (in
    // order), the run's progress bar (shown only during a run, with a line that names the
    // document being processed and the Stop button beside it) and the document list.
    void finishSetup(const QList<QWidget *> &interfaceControls,
                     QProgressBar *progress,
                     DocumentList *documents);

    void DisableInterface() { setInterfaceEnabled(false); }
    void EnableInterface() { setInterfaceEnabled(true); }
    virtual void setInterfaceEnabled(bool enabled);

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

    // The line under the name template that shows the first output name of the selected (or
    // first) document with the settings as they stand, so that a template's mistake shows before
    // a run. firstOutput(document, pages) gives that output's path, empty for none; pages is the
    // document's page count, 0 while it is not known.
    using FirstOutput = std::function<QString(const QString &document, qint64 pages)>;
    void setNameExample(QLabel *label, FirstOutput firstOutput);
    void updateNameExample();
    // What the example says when the document gives no output.
    virtual QString noOutputText(const QString &document) const;

    // Settings of the tool's profile: the tool's name in the file, empty for no profiles.
    virtual QString profileTool() const { return {}; }
    virtual QJsonObject profileSettings() const { return {}; }
    // Puts the settings of a profile into the controls; keys the window does not know go to
    // skipped. False, with the controls as they were, when the settings cannot be used.
    virtual bool
    applyProfileSettings(const QJsonObject &settings, QString *error, QStringList *skipped);
    virtual void ResetInterface() {}

    // The window's menu bar (File and Help; a window may add its own menus).
    QMenuBar *windowMenuBar() const { return m_menuBar; }

    // Escape closes a window only while its list is empty; closing during a run asks first.
    void keyPressEvent(QKeyEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    // The window gives up on a run after it was planned: the interface is enabled again and
    // text says what to change.
    void abandonRun(const QString &text);
    void setProgress(double percent);
    void showDocument(int index, int count, const QString &path);
    void finishRun(const Jobs::RunResult &result, const RunTexts &texts);
    void showRunControls(bool running);
    void saveProfileTo(const QString &path);
    void updateWindowTitle();

    Tool m_tool;
    Alerts &m_alerts;
    QList<QWidget *> m_interfaceControls;
    DocumentList *m_documents = nullptr;
    QProgressBar *m_progress = nullptr;
    QLabel *m_runStatus = nullptr;
    QPushButton *m_stopButton = nullptr;
    QMenuBar *m_menuBar = nullptr;
    QLabel *m_nameExample = nullptr;
    FirstOutput m_firstOutput;
    QString m_currentProfilePath;
    bool m_running = false;
    std::shared_ptr<std::atomic<bool>> m_stop;
};
