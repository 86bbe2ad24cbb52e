#pragma once

#include "naming/overwrite.h"

#include <QLoggingCategory>
#include <QString>
#include <QStringList>

#include <functional>

// The terminal side of the command line: stdout carries results only; diagnostics, questions and
// the progress bar go to stderr.
Q_DECLARE_LOGGING_CATEGORY(lcCli)

namespace Cli {

// Routes Qt's log (the engine's diagnostics) to stderr as "quire: ..." lines, below the
// progress bar.
void installLogHandler();

// A line on stdout.
void printResult(const QString &line);
// A line on stderr, "quire: " first.
void printError(const QString &line);

bool stdinIsTerminal();
bool stderrIsTerminal();

// Asks the overwrite question on the terminal; end of input answers "No to All".
Naming::OverwriteAnswer askOverwriteOnTerminal(const QString &path);
// A yes/no question on the terminal; end of input answers no.
bool confirmOnTerminal(const QString &question);

// A one-line bar on stderr, drawn only when stderr is a terminal and not quiet.
class ProgressBar
{
public:
    ProgressBar(const QString &label, qint64 total, bool quiet);
    ~ProgressBar();
    void advance(qint64 steps = 1);
    void set(qint64 done);
    void set(qint64 done, qint64 total);
    void finish();

private:
    void draw();
    QString m_label;
    qint64 m_total;
    qint64 m_done = 0;
    bool m_enabled;
    int m_lastWidth = -1;
};

// Runs work(i) for every i below count on up to jobs threads, and report(i, result) on the
// calling thread in index order, each after the log lines that work(i) produced (held back
// meanwhile, so that the messages are the same for any number of jobs).
void runInOrder(int count,
                int jobs,
                const std::function<bool(int)> &work,
                const std::function<void(int, bool)> &report);

} // namespace Cli
