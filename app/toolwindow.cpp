#include "toolwindow.h"

#include "app/alerts.h"
#include "jobs/profiles.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QLayout>
#include <QLineEdit>
#include <QMenuBar>
#include <QPointer>
#include <QProgressBar>
#include <QThread>
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

namespace {

// Hands the run's progress to the window, on the main thread.
class WindowProgress final : public Jobs::RunObserver
{
public:
    WindowProgress(std::function<void(double)> show, ToolWindow::ProgressRule rule, int documents)
        : m_show(std::move(show))
        , m_rule(rule)
        , m_documents(std::max(documents, 1))
    {}
    void documentStarted(int index) override
    {
        if (m_rule == ToolWindow::ProgressRule::AsEachDocumentStarts) {
            m_show(double(index + 1) / m_documents * 100.0);
        }
    }
    void documentFinished(int index, const Jobs::DocumentResult &) override
    {
        if (m_rule == ToolWindow::ProgressRule::AfterEachDocument) {
            m_show(double(index) / m_documents * 100.0);
        }
    }

private:
    std::function<void(double)> m_show;
    ToolWindow::ProgressRule m_rule;
    int m_documents;
};

} // namespace

QString ToolWindow::blockerText(const Jobs::Blocker &blocker, const RunTexts &texts) const
{
    using Kind = Jobs::Blocker::Kind;
    switch (blocker.kind) {
    case Kind::NoDocuments:
        return texts.emptyList;
    case Kind::NoFolder:
        return QStringLiteral("Please select an output folder.");
    case Kind::RunsBelowOne:
        return QStringLiteral("The number of pages per interval must be at least 1. Enter a "
                              "number of pages and %1 again.")
            .arg(texts.verb);
    case Kind::FolderMissing:
        return QStringLiteral("The output folder %1 does not exist. Choose another folder.")
            .arg(blocker.path);
    case Kind::FolderNotWritable:
        return QStringLiteral("The output folder %1 cannot be written to. Choose another folder.")
            .arg(blocker.path);
    case Kind::DocumentUnreadable:
        return QStringLiteral("The document %1 could not be opened: it was moved, deleted or "
                              "damaged after it was added. Remove it from the list and %2 again.")
            .arg(blocker.path, texts.verb);
    case Kind::NoInterval:
        return QStringLiteral("No page interval of \"%1\" lies within the %2 pages of %3. Change "
                              "the page intervals and %4 again.")
            .arg(blocker.detail)
            .arg(blocker.pages)
            .arg(blocker.path, texts.verb);
    }
    return {};
}

void ToolWindow::runBatch(std::shared_ptr<Jobs::Batch> batch,
                          const RunTexts &texts,
                          ProgressRule rule,
                          Jobs::Batch::Question question)
{
    const QList<Jobs::Blocker> blockers = batch->check();
    using Kind = Jobs::Blocker::Kind;
    if (!blockers.isEmpty()
        && (blockers.front().kind == Kind::NoDocuments
            || blockers.front().kind == Kind::NoFolder)) {
        m_alerts.message(this, blockerText(blockers.front(), texts));
        return;
    }
    DisableInterface();
    if (!blockers.isEmpty()) {
        EnableInterface();
        m_alerts.message(this, blockerText(blockers.front(), texts));
        return;
    }
    m_running = true;
    // The batch holds copies of everything it reads. What the run sends back goes through the
    // application object, which outlives the window, and is dropped once the window is gone.
    const QPointer<ToolWindow> window(this);
    const auto onMainThread = [window](auto work) {
        QMetaObject::invokeMethod(
            qApp,
            [window, work] {
                if (window) {
                    work(*window);
                }
            },
            Qt::QueuedConnection);
    };
    if (!question) {
        question = [window](const QString &path) {
            // Asked on the main thread while the run waits; a window that is gone leaves every
            // existing file as it is.
            Naming::OverwriteAnswer answer = Naming::OverwriteAnswer::NoToAll;
            QMetaObject::invokeMethod(
                qApp,
                [&] {
                    if (window) {
                        answer = window->alerts().askOverwrite(window, path);
                    }
                },
                Qt::BlockingQueuedConnection);
            return answer;
        };
    }
    QThreadPool::globalInstance()->start([batch, texts, rule, question, onMainThread] {
        const int jobs = QThread::idealThreadCount();
        batch->plan({jobs, true});
        if (!batch->plan().canStart()) {
            const Jobs::Blocker blocker = batch->plan().blockers.front();
            onMainThread(
                [blocker, texts](ToolWindow &w) { w.abandonRun(w.blockerText(blocker, texts)); });
            return;
        }
        batch->decide(question);
        WindowProgress progress(
            [onMainThread](double percent) {
                onMainThread([percent](ToolWindow &w) { w.setProgress(percent); });
            },
            rule,
            int(batch->plan().documents.size()));
        const Jobs::RunResult result = batch->run({jobs}, &progress);
        onMainThread([result, texts](ToolWindow &w) { w.finishRun(result, texts); });
    });
}

void ToolWindow::setProgress(double percent)
{
    m_progress->setValue(qRound(percent));
}

void ToolWindow::finishRun(const Jobs::RunResult &result, const RunTexts &texts)
{
    m_progress->setValue(0);
    EnableInterface();
    m_running = false;
    m_alerts.message(this, result.success ? texts.success : texts.failure);
    emit runFinished(result.success);
}

void ToolWindow::abandonRun(const QString &text)
{
    EnableInterface();
    m_running = false;
    m_alerts.message(this, text);
    emit runFinished(false);
}

void ToolWindow::OnBrowse(QLineEdit *field)
{
    const QString folder = m_alerts.chooseFolder(this, field->text());
    if (!folder.isEmpty()) {
        field->setText(QDir::cleanPath(folder));
    }
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
    if (!Jobs::Profiles::writeFile(path, profileTool(), profileSettings(), &error)) {
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
    const auto settings = Jobs::Profiles::readFile(path, profileTool(), &error);
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
