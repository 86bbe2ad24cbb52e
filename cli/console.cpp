#include "console.h"

#include "jobs/diagnostics.h"

#include <QTextStream>

#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <optional>
#include <thread>
#include <unistd.h>
#include <vector>

Q_LOGGING_CATEGORY(lcCli, "quire.cli", QtInfoMsg)

namespace Cli {

namespace {

std::mutex stderrMutex;
ProgressBar *activeBar = nullptr; // drawn at the bottom of stderr; guarded by stderrMutex

void writeStderr(const QString &line)
{
    const QByteArray bytes = line.toLocal8Bit() + '\n';
    std::lock_guard lock(stderrMutex);
    if (activeBar) {
        std::fputs("\r\033[K", stderr);
    }
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}

void logHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtDebugMsg && !qEnvironmentVariableIsSet("QUIRE_DEBUG")) {
        return;
    }
    writeStderr(QStringLiteral("quire: ") + message);
    if (type == QtFatalMsg) {
        std::abort();
    }
}

QString readAnswerLine()
{
    std::string line;
    if (!std::getline(std::cin, line)) {
        return {};
    }
    return QString::fromLocal8Bit(line).trimmed();
}

} // namespace

void installLogHandler()
{
    qInstallMessageHandler(logHandler);
}

void printResult(const QString &line)
{
    QTextStream out(stdout);
    out << line << '\n';
    out.flush();
}

void printError(const QString &line)
{
    writeStderr(QStringLiteral("quire: ") + line);
}

bool stdinIsTerminal()
{
    return ::isatty(STDIN_FILENO) == 1;
}

bool stderrIsTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

Naming::OverwriteAnswer askOverwriteOnTerminal(const QString &path)
{
    using Naming::OverwriteAnswer;
    for (;;) {
        writeStderr(Naming::OverwriteQuestion(path));
        {
            std::lock_guard lock(stderrMutex);
            std::fputs("[y] Yes, [Y] Yes to All, [n] No, [N] No to All: ", stderr);
            std::fflush(stderr);
        }
        if (!std::cin.good()) {
            return OverwriteAnswer::NoToAll;
        }
        const QString answer = readAnswerLine();
        if (!std::cin.good() && answer.isEmpty()) {
            return OverwriteAnswer::NoToAll;
        }
        const QString lower = answer.toLower();
        if (answer == QLatin1String("y") || lower == QLatin1String("yes")) {
            return OverwriteAnswer::Yes;
        }
        if (answer == QLatin1String("Y") || lower == QLatin1String("yes to all")) {
            return OverwriteAnswer::YesToAll;
        }
        if (answer == QLatin1String("n") || lower == QLatin1String("no")) {
            return OverwriteAnswer::No;
        }
        if (answer == QLatin1String("N") || lower == QLatin1String("no to all")) {
            return OverwriteAnswer::NoToAll;
        }
    }
}

bool confirmOnTerminal(const QString &question)
{
    for (;;) {
        {
            std::lock_guard lock(stderrMutex);
            const QByteArray bytes = (question + QStringLiteral(" [y/n]: ")).toLocal8Bit();
            std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
            std::fflush(stderr);
        }
        const QString answer = readAnswerLine().toLower();
        if (answer == QLatin1String("y") || answer == QLatin1String("yes")) {
            return true;
        }
        if (!std::cin.good() || answer == QLatin1String("n") || answer == QLatin1String("no")) {
            return false;
        }
    }
}

ProgressBar::ProgressBar(const QString &label, qint64 total, bool quiet)
    : m_label(label)
    , m_total(std::max<qint64>(total, 1))
    , m_enabled(!quiet && stderrIsTerminal())
{
    if (m_enabled) {
        std::lock_guard lock(stderrMutex);
        activeBar = this;
    }
    draw();
}

ProgressBar::~ProgressBar()
{
    finish();
}

void ProgressBar::advance(qint64 steps)
{
    m_done = std::min(m_total, m_done + steps);
    draw();
}

void ProgressBar::set(qint64 done)
{
    m_done = std::clamp<qint64>(done, 0, m_total);
    draw();
}

void ProgressBar::set(qint64 done, qint64 total)
{
    m_total = std::max<qint64>(total, 1);
    set(done);
}

void ProgressBar::finish()
{
    if (!m_enabled) {
        return;
    }
    std::lock_guard lock(stderrMutex);
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    activeBar = nullptr;
    m_enabled = false;
}

void ProgressBar::draw()
{
    if (!m_enabled) {
        return;
    }
    constexpr int width = 30;
    const int filled = int(width * m_done / m_total);
    if (filled == m_lastWidth && m_done != m_total) {
        return;
    }
    m_lastWidth = filled;
    const QString bar = QStringLiteral("\r%1 [%2%3] %4/%5")
                            .arg(m_label)
                            .arg(QString(filled, QLatin1Char('#')))
                            .arg(QString(width - filled, QLatin1Char(' ')))
                            .arg(m_done)
                            .arg(m_total);
    const QByteArray bytes = bar.toLocal8Bit();
    std::lock_guard lock(stderrMutex);
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}

void runInOrder(int count,
                int jobs,
                const std::function<bool(int)> &work,
                const std::function<void(int, bool)> &report)
{
    jobs = std::clamp(jobs, 1, std::max(count, 1));
    if (jobs == 1) {
        for (int i = 0; i < count; ++i) {
            report(i, work(i));
        }
        return;
    }
    struct Outcome
    {
        bool result = false;
        QStringList lines;
    };
    std::vector<std::optional<Outcome>> outcomes{size_t(count)};
    std::mutex mutex;
    std::condition_variable ready;
    int next = 0;
    std::vector<std::thread> workers;
    for (int w = 0; w < jobs; ++w) {
        workers.emplace_back([&] {
            for (;;) {
                int i;
                {
                    std::lock_guard lock(mutex);
                    if (next >= count) {
                        return;
                    }
                    i = next++;
                }
                Outcome outcome;
                {
                    Jobs::DiagnosticsCapture capture;
                    outcome.result = work(i);
                    outcome.lines = capture.take();
                }
                {
                    std::lock_guard lock(mutex);
                    outcomes[size_t(i)] = std::move(outcome);
                }
                ready.notify_all();
            }
        });
    }
    for (int i = 0; i < count; ++i) {
        Outcome outcome;
        {
            std::unique_lock lock(mutex);
            ready.wait(lock, [&] { return outcomes[size_t(i)].has_value(); });
            outcome = std::move(*outcomes[size_t(i)]);
        }
        Jobs::logMessages(outcome.lines);
        report(i, outcome.result);
    }
    for (auto &worker : workers) {
        worker.join();
    }
}

} // namespace Cli
