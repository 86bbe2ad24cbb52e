#include "toolwindow.h"

#include "app/alerts.h"
#include "engine/pdftools.h"
#include "naming/outputnames.h"
#include "naming/profiles.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QLayout>
#include <QLineEdit>
#include <QMenuBar>
#include <QPointer>
#include <QProgressBar>
#include <QThreadPool>

ToolWindow::ToolWindow(Tool tool, Alerts &alerts, QWidget *parent)
    : QDialog(parent)
    , m_tool(tool)
    , m_alerts(alerts)
{
    setWindowFlag(Qt::WindowMaximizeButtonHint);
    setSizeGripEnabled(true);
}

ToolWindow::~ToolWindow() = default;

void ToolWindow::finishSetup(const QList<QWidget *> &interfaceControls, QProgressBar *progress)
{
    m_interfaceControls = interfaceControls;
    m_progress = progress;
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
    auto *menuBar = new QMenuBar(this);
    MainMenu::build(menuBar, this, m_alerts, this, m_tool);
    layout()->setMenuBar(menuBar);
    updateWindowTitle();
}

void ToolWindow::setInterfaceEnabled(bool enabled)
{
    for (QWidget *control : std::as_const(m_interfaceControls)) {
        control->setEnabled(enabled);
    }
    // Nor may the menu reset or reload the settings under a run.
    if (hasSettings()) {
        for (const char *name : {"actionNew", "actionLoadProfile"}) {
            if (auto *action = findChild<QAction *>(QString::fromLatin1(name))) {
                action->setEnabled(enabled);
            }
        }
    }
}

void ToolWindow::startJob(Job job, const QString &successText, const QString &failureText)
{
    DisableInterface();
    m_running = true;
    // The job holds copies of everything it reads. What it sends back goes through the
    // application object, which outlives the window, and is dropped once the window is gone.
    const QPointer<ToolWindow> window(this);
    QThreadPool::globalInstance()->start([job = std::move(job), window, successText, failureText] {
        const ReportProgress progress = [window](double percent) {
            QMetaObject::invokeMethod(
                qApp,
                [window, percent] {
                    if (window) {
                        window->setProgress(percent);
                    }
                },
                Qt::QueuedConnection);
        };
        const bool success = job(progress);
        QMetaObject::invokeMethod(
            qApp,
            [window, success, successText, failureText] {
                if (window) {
                    window->finishRun(success, successText, failureText);
                }
            },
            Qt::QueuedConnection);
    });
}

void ToolWindow::setProgress(double percent)
{
    m_progress->setValue(qRound(percent));
}

void ToolWindow::finishRun(bool success, const QString &successText, const QString &failureText)
{
    m_progress->setValue(0);
    EnableInterface();
    m_running = false;
    m_alerts.message(this, success ? successText : failureText);
    emit runFinished(success);
}

void ToolWindow::abandonRun(const QString &text)
{
    EnableInterface();
    m_alerts.message(this, text);
}

void ToolWindow::runPerDocument(
    const QStringList &inputs,
    const QString &folder,
    const RunTexts &texts,
    const std::function<QString(const QString &input)> &outputPath,
    std::function<bool(const QString &input, const QString &output)> step)
{
    if (inputs.isEmpty()) {
        m_alerts.message(this, texts.emptyList);
        return;
    }
    if (folder.isEmpty()) {
        m_alerts.message(this, QStringLiteral("Please select an output folder."));
        return;
    }
    DisableInterface();
    DocumentRun run;
    run.inputs = inputs;
    for (const QString &input : inputs) {
        run.outputs << outputPath(input);
    }
    // Every question is asked before anything is written.
    run.decisions = planOverwrites(run.outputs);
    run.step = [inputs, outputs = run.outputs, step = std::move(step)](int i) {
        return step(inputs[i], outputs[i]);
    };
    startJob([run](const ReportProgress &progress) { return runDocuments(run, progress); },
             texts.success,
             texts.failure);
}

QList<Naming::OverwriteDecision> ToolWindow::planOverwrites(const QStringList &outputs)
{
    Naming::OverwritePass pass(
        [this](const QString &path) { return m_alerts.askOverwrite(this, path); });
    QList<Naming::OverwriteDecision> decisions;
    decisions.reserve(outputs.size());
    for (const QString &output : outputs) {
        decisions << pass.decide(output);
    }
    return decisions;
}

void ToolWindow::OnBrowse(QLineEdit *field)
{
    const QString folder = m_alerts.chooseFolder(this, field->text());
    if (!folder.isEmpty()) {
        field->setText(QDir::cleanPath(folder));
    }
}

bool ToolWindow::runDocuments(const DocumentRun &run, const ReportProgress &progress)
{
    bool result = true;
    const qsizetype n = run.inputs.size();
    for (qsizetype i = 0; i < n; ++i) {
        // Moved, deleted or damaged since it was listed: the run ends here.
        if (PDFTools::GetPDFNumberOfPages(run.inputs[i]) == 0) {
            return false;
        }
        if (run.decisions.value(i) == Naming::OverwriteDecision::Skip) {
            // left as it is
        } else if (Naming::OverwritesInput(run.outputs[i], run.inputs)) {
            result = false;
        } else {
            result = run.step(int(i)) && result;
        }
        progress(double(i) / double(n) * 100.0);
    }
    return result;
}

void ToolWindow::OnFileNew()
{
    if (!hasSettings()) {
        return;
    }
    ResetInterface();
    m_currentProfilePath.clear();
    updateWindowTitle();
}

void ToolWindow::OnSaveProfile()
{
    if (!hasSettings()) {
        return;
    }
    if (m_currentProfilePath.isEmpty()) {
        OnSaveProfileAs();
    } else {
        saveProfileTo(m_currentProfilePath);
    }
}

void ToolWindow::OnSaveProfileAs()
{
    if (!hasSettings()) {
        return;
    }
    const QString proposed = m_currentProfilePath.isEmpty()
                                 ? QDir::home().filePath(profileTool() + QStringLiteral(".json"))
                                 : m_currentProfilePath;
    const QString path = m_alerts.chooseSaveFile(this,
                                                 QStringLiteral("Save Profile"),
                                                 proposed,
                                                 QStringLiteral("Quire profiles (*.json)"),
                                                 QStringLiteral("json"));
    if (!path.isEmpty()) {
        saveProfileTo(path);
    }
}

void ToolWindow::saveProfileTo(const QString &path)
{
    QString error;
    if (!Profiles::write(path, profileTool(), profileSettings(), &error)) {
        m_alerts.message(this, QStringLiteral("The profile could not be saved: %1.").arg(error));
        return;
    }
    m_currentProfilePath = path;
    updateWindowTitle();
}

void ToolWindow::OnLoadProfile()
{
    if (!hasSettings()) {
        return;
    }
    const QString start = m_currentProfilePath.isEmpty()
                              ? QDir::homePath()
                              : QFileInfo(m_currentProfilePath).absolutePath();
    const QString path = m_alerts.chooseOpenFile(
        this, QStringLiteral("Load Profile"), start, QStringLiteral("Quire profiles (*.json)"));
    if (path.isEmpty()) {
        return;
    }
    QString error;
    const auto settings = Profiles::read(path, profileTool(), &error);
    if (!settings || !applyProfileSettings(*settings, &error)) {
        m_alerts.message(this, QStringLiteral("The profile could not be loaded: %1.").arg(error));
        return;
    }
    m_currentProfilePath = path;
    updateWindowTitle();
}

bool ToolWindow::applyProfileSettings(const QJsonObject &, QString *)
{
    return false;
}

void ToolWindow::updateWindowTitle()
{
    const QString title = MainMenu::toolTitle(m_tool);
    setWindowTitle(m_currentProfilePath.isEmpty() ? title
                                                  : QFileInfo(m_currentProfilePath).fileName()
                                                        + QStringLiteral(" — ") + title);
}
