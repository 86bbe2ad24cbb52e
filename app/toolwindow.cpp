#include "toolwindow.h"

#include "app/alerts.h"
#include "app/documentlist.h"
#include "jobs/profiles.h"

#include <QAction>
#include <QApplication>
#include <QBoxLayout>
#include <QCloseEvent>
#include <QDir>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QThread>
#include <QThreadPool>

namespace {

// The box layout that holds widget, among the layouts of its window.
QBoxLayout *layoutHolding(QWidget *widget)
{
    QList<QLayout *> layouts{widget->parentWidget()->layout()};
    while (!layouts.isEmpty()) {
        QLayout *layout = layouts.takeFirst();
        if (!layout) {
            continue;
        }
        if (layout->indexOf(widget) >= 0) {
            return qobject_cast<QBoxLayout *>(layout);
        }
        for (int i = 0; i < layout->count(); ++i) {
            layouts << layout->itemAt(i)->layout();
        }
    }
    return nullptr;
}

} // namespace

ToolWindow::ToolWindow(Tool tool, Alerts &alerts, QWidget *parent)
    : QDialog(parent)
    , m_tool(tool)
    , m_alerts(alerts)
{
    setWindowFlag(Qt::WindowMaximizeButtonHint);
    setSizeGripEnabled(true);
}

ToolWindow::~ToolWindow() = default;

void ToolWindow::finishSetup(const QList<QWidget *> &interfaceControls,
                             QProgressBar *progress,
                             DocumentList *documents)
{
    m_interfaceControls = interfaceControls;
    m_documents = documents;
    m_progress = progress;
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
    // Beside the bar, during a run: the document being processed, and the Stop button.
    m_runStatus = new QLabel(this);
    m_runStatus->setObjectName(QStringLiteral("labelRunStatus"));
    m_runStatus->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_stopButton = new QPushButton(tr("St&op"), this);
    m_stopButton->setObjectName(QStringLiteral("buttonStop"));
    m_stopButton->setToolTip(tr("Stop after the document being processed; the documents done "
                                "stay done"));
    connect(m_stopButton, &QPushButton::clicked, this, &ToolWindow::stopRun);
    if (QBoxLayout *row = layoutHolding(progress)) {
        const int at = row->indexOf(progress);
        row->insertWidget(at, m_runStatus, 2);
        row->setStretchFactor(progress, 1);
        row->insertWidget(at + 2, m_stopButton);
        // Idle, the row holds the run button alone, at its right end.
        row->insertStretch(at + 3, 0);
    }
    showRunControls(false);
    // A field that cannot be typed into looks so: the window's colour, not the text fields'.
    for (QLineEdit *field : findChildren<QLineEdit *>()) {
        if (field->isReadOnly()) {
            QPalette palette = field->palette();
            palette.setColor(QPalette::Base, palette.color(QPalette::Window));
            field->setPalette(palette);
        }
    }
    m_menuBar = new QMenuBar(this);
    MainMenu::build(m_menuBar, this, m_alerts, this, m_tool);
    layout()->setMenuBar(m_menuBar);
    updateWindowTitle();
}

void ToolWindow::setNameExample(QLabel *label, FirstOutput firstOutput)
{
    m_nameExample = label;
    m_firstOutput = std::move(firstOutput);
    if (m_documents) {
        connect(m_documents, &DocumentList::listChanged, this, &ToolWindow::updateNameExample);
        connect(
            m_documents, &DocumentList::currentPDFChanged, this, &ToolWindow::updateNameExample);
        connect(&m_documents->facts(),
                &Jobs::DocumentFacts::factsRead,
                this,
                &ToolWindow::updateNameExample);
    }
    updateNameExample();
}

void ToolWindow::updateNameExample()
{
    if (!m_nameExample || !m_firstOutput) {
        return;
    }
    QString document = m_documents ? m_documents->currentPDF() : QString();
    if (document.isEmpty() && m_documents && !m_documents->listPdfPaths().isEmpty()) {
        document = m_documents->listPdfPaths().front();
    }
    qint64 pages = 0;
    if (document.isEmpty()) {
        document = QStringLiteral("document.pdf");
    } else if (const auto facts = m_documents->facts().facts(document)) {
        pages = facts->pages;
    }
    const QString output = m_firstOutput(document, pages);
    m_nameExample->setText(output.isEmpty() ? noOutputText(document)
                                            : tr("e.g. %1").arg(QFileInfo(output).fileName()));
}

QString ToolWindow::noOutputText(const QString &document) const
{
    return tr("No file: no page interval lies within %1.").arg(QFileInfo(document).fileName());
}

void ToolWindow::showRunControls(bool running)
{
    // Idle, the bar would look like an empty text field under the list.
    m_progress->setVisible(running);
    m_runStatus->setVisible(running);
    m_stopButton->setVisible(running);
    m_stopButton->setEnabled(running);
    m_stopButton->setText(tr("St&op"));
    m_runStatus->clear();
}

void ToolWindow::setInterfaceEnabled(bool enabled)
{
    for (QWidget *control : std::as_const(m_interfaceControls)) {
        control->setEnabled(enabled);
    }
    if (enabled && m_documents) {
        m_documents->updateButtons();
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

void ToolWindow::stopRun()
{
    if (!m_running || !m_stop) {
        return;
    }
    m_stop->store(true);
    m_stopButton->setEnabled(false);
    m_stopButton->setText(tr("Stopping…"));
}

bool ToolWindow::mayQuit()
{
    if (!m_running) {
        return true;
    }
    if (!m_alerts.askChoice(
            this, QLatin1String(StopQuestion), tr("Stop and Close"), tr("Keep Running"))) {
        return false;
    }
    stopRun();
    return true;
}

void ToolWindow::keyPressEvent(QKeyEvent *event)
{
    // Escape would close the window and lose the list it holds.
    if (event->key() == Qt::Key_Escape && m_documents && !m_documents->listPdfPaths().isEmpty()) {
        event->accept();
        return;
    }
    QDialog::keyPressEvent(event);
}

void ToolWindow::closeEvent(QCloseEvent *event)
{
    if (!mayQuit()) {
        event->ignore();
        return;
    }
    QDialog::closeEvent(event);
}

namespace {

// Hands the run's progress to the window, on the main thread.
class WindowProgress final : public Jobs::RunObserver
{
public:
    WindowProgress(std::function<void(double)> show,
                   std::function<void(int)> started,
                   ToolWindow::ProgressRule rule,
                   int documents)
        : m_show(std::move(show))
        , m_started(std::move(started))
        , m_rule(rule)
        , m_documents(std::max(documents, 1))
    {}
    void documentStarted(int index) override
    {
        m_started(index);
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
    std::function<void(int)> m_started;
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
    case Kind::Unusable:
        return QStringLiteral("%1\n\nThe run did not start: %2.")
            .arg(texts.failure, blocker.detail);
    case Kind::NoInterval:
        return QStringLiteral("No page interval of \"%1\" lies within the %2 pages of %3. Change "
                              "the page intervals and %4 again.")
            .arg(blocker.detail)
            .arg(blocker.pages)
            .arg(blocker.path, texts.verb);
    case Kind::NoBookmarks:
        return QStringLiteral("The document %1 has no bookmark of level %2 that leads to one of "
                              "its pages. Choose another level or another way to split, and %3 "
                              "again.")
            .arg(blocker.path, blocker.detail, texts.verb);
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
    m_stop = std::make_shared<std::atomic<bool>>(false);
    showRunControls(true);
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
    const std::shared_ptr<std::atomic<bool>> stop = m_stop;
    QThreadPool::globalInstance()->start([batch, texts, rule, question, onMainThread, stop] {
        const int jobs = QThread::idealThreadCount();
        batch->plan({jobs, true});
        if (!batch->plan().canStart()) {
            const Jobs::Blocker blocker = batch->plan().blockers.front();
            onMainThread(
                [blocker, texts](ToolWindow &w) { w.abandonRun(w.blockerText(blocker, texts)); });
            return;
        }
        batch->decide(question);
        const int count = int(batch->plan().documents.size());
        WindowProgress progress(
            [onMainThread](double percent) {
                onMainThread([percent](ToolWindow &w) { w.setProgress(percent); });
            },
            [onMainThread, batch, count](int index) {
                const QString path = batch->plan().documents[index].input;
                onMainThread(
                    [index, count, path](ToolWindow &w) { w.showDocument(index, count, path); });
            },
            rule,
            count);
        const Jobs::RunResult result = batch->run({jobs, stop.get()}, &progress);
        onMainThread([result, texts](ToolWindow &w) { w.finishRun(result, texts); });
    });
}

void ToolWindow::setProgress(double percent)
{
    m_progress->setValue(qRound(percent));
}

void ToolWindow::showDocument(int index, int count, const QString &path)
{
    m_runStatus->setText(
        tr("Document %1 of %2: %3").arg(index + 1).arg(count).arg(QFileInfo(path).fileName()));
    emit documentStarted(index);
}

void ToolWindow::finishRun(const Jobs::RunResult &result, const RunTexts &texts)
{
    m_progress->setValue(0);
    showRunControls(false);
    EnableInterface();
    m_running = false;

    Alerts::Notice notice;
    notice.text = result.success ? texts.success : texts.failure;
    if (result.stopped) {
        notice.text += tr("\n\nThe run was stopped: %1 of %2 documents were done.")
                           .arg(result.processedCount())
                           .arg(result.documents.size());
    }
    notice.icon = result.success && !result.stopped ? Alerts::Notice::Icon::Information
                                                    : Alerts::Notice::Icon::Warning;
    QStringList details;
    for (const Jobs::DocumentResult &failed : result.failures()) {
        const QString reason = failed.messages.isEmpty()
                                   ? tr("it could not be processed")
                                   : failed.messages.join(QStringLiteral("; "));
        details << QStringLiteral("%1: %2").arg(QFileInfo(failed.input).fileName(), reason);
    }
    notice.details = details.join(QLatin1Char('\n'));
    const bool written
        = std::any_of(result.documents.begin(),
                      result.documents.end(),
                      [](const Jobs::DocumentResult &d) { return !d.written.isEmpty(); });
    const QString showInFolder = tr("Show in Folder");
    const QString open = tr("Open");
    if (written && !texts.folder.isEmpty()) {
        notice.buttons << showInFolder;
    }
    if (written && !texts.openFile.isEmpty()) {
        notice.buttons << open;
    }
    const int answer = m_alerts.notify(this, notice);
    const QString chosen = notice.buttons.value(answer);
    if (chosen == showInFolder) {
        m_alerts.open(this, QUrl::fromLocalFile(texts.folder));
    } else if (chosen == open) {
        m_alerts.open(this, QUrl::fromLocalFile(texts.openFile));
    }
    emit runFinished(result.success);
}

void ToolWindow::abandonRun(const QString &text)
{
    showRunControls(false);
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
    // A profile holds the settings, not the folder the files of one run went to.
    QJsonObject settings = profileSettings();
    settings.remove(QStringLiteral("folder"));
    if (!Jobs::Profiles::writeFile(path, profileTool(), settings, &error)) {
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
    QStringList skipped;
    const auto settings = Jobs::Profiles::readFile(path, profileTool(), &error);
    if (!settings || !applyProfileSettings(*settings, &error, &skipped)) {
        m_alerts.message(this, QStringLiteral("The profile could not be loaded: %1.").arg(error));
        return;
    }
    m_currentProfilePath = path;
    updateWindowTitle();
    if (!skipped.isEmpty()) {
        m_alerts.message(this,
                         QStringLiteral("The profile %1 holds settings that this version of "
                                        "Quire does not know; they were left out: %2.")
                             .arg(QFileInfo(path).fileName(), skipped.join(QStringLiteral(", "))));
    }
}

bool ToolWindow::applyProfileSettings(const QJsonObject &, QString *, QStringList *)
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
