#include "batch.h"

#include "diagnostics.h"
#include "engine/pdftools.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLoggingCategory>
#include <QSet>
#include <QTemporaryFile>

#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>

Q_LOGGING_CATEGORY(lcJobs, "quire.jobs", QtInfoMsg)

namespace Jobs {

namespace {

// Runs work(i) for every i below count on up to jobs threads (the calling thread alone for
// one), taking the indexes in order.
void forEachOnThreads(int count, int jobs, const std::function<void(int)> &work)
{
    jobs = std::clamp(jobs, 1, std::max(count, 1));
    if (jobs == 1) {
        for (int i = 0; i < count; ++i) {
            work(i);
        }
        return;
    }
    std::atomic<int> next{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < jobs; ++t) {
        threads.emplace_back([&] {
            for (int i = next++; i < count; i = next++) {
                work(i);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
}

// The file a path names, as one key whichever way the path reaches it.
QString fileKey(const QString &path)
{
    const QFileInfo info(path);
    const QString canonical = info.exists() ? info.canonicalFilePath() : QString();
    return canonical.isEmpty() ? QDir::cleanPath(path) : canonical;
}

// A new empty file beside target, to write an output that is moved over target later.
QString reserveBeside(const QString &target)
{
    const QFileInfo info(target);
    // Named as the engine names its temporary files, so that one a killed run left is removed
    // by the next run as theirs are.
    QTemporaryFile file(info.dir().filePath(QStringLiteral(".%1.quire-%2-XXXXXX")
                                                .arg(info.fileName())
                                                .arg(QCoreApplication::applicationPid())));
    file.setAutoRemove(false);
    return file.open() ? file.fileName() : QString();
}

} // namespace

qint64 Plan::outputCount() const
{
    qint64 count = 0;
    for (const DocumentPlan &document : documents) {
        count += document.outputs.size();
    }
    return count;
}

int RunResult::processedCount() const
{
    return int(std::count_if(
        documents.begin(), documents.end(), [](const DocumentResult &d) { return d.processed; }));
}

QList<DocumentResult> RunResult::failures() const
{
    QList<DocumentResult> failed;
    for (const DocumentResult &document : documents) {
        if (!document.success) {
            failed << document;
        }
    }
    return failed;
}

Batch::Batch(QStringList inputs)
    : m_inputs(std::move(inputs))
{}

Batch::~Batch() = default;

void Batch::checkFolder(const QString &folder, QList<Blocker> &blockers)
{
    if (folder.isEmpty()) {
        blockers << Blocker{Blocker::Kind::NoFolder, folder};
        return;
    }
    const QFileInfo info(folder);
    if (!info.isDir()) {
        blockers << Blocker{Blocker::Kind::FolderMissing, folder};
    } else if (!info.isWritable()) {
        blockers << Blocker{Blocker::Kind::FolderNotWritable, folder};
    }
}

int Batch::unitsFor(const DocumentPlan &, int, int) const
{
    return 1;
}

void Batch::plan(const PlanOptions &options)
{
    m_plan = Plan{};
    m_plan.blockers = check();
    if (!m_plan.blockers.isEmpty()) {
        return;
    }
    for (const QString &input : std::as_const(m_inputs)) {
        m_plan.documents << DocumentPlan{input};
    }
    forEachOnThreads(int(m_plan.documents.size()), options.jobs, [this](int i) {
        planDocument(m_plan.documents[i]);
    });
    if (options.requireReadableDocuments) {
        for (const DocumentPlan &document : std::as_const(m_plan.documents)) {
            if (document.pages == 0) {
                m_plan.blockers << Blocker{Blocker::Kind::DocumentUnreadable, document.input};
            }
        }
    }
    checkPlan(m_plan);
    if (!m_plan.blockers.isEmpty()) {
        return;
    }

    // The listed documents by file, to find outputs that land on one of them.
    QHash<QString, int> listed;
    for (int i = 0; i < m_inputs.size(); ++i) {
        listed.insert(fileKey(m_inputs[i]), i);
    }
    QHash<QString, int> writer; // output file -> the first document that writes it
    for (int d = 0; d < m_plan.documents.size(); ++d) {
        for (PlannedOutput &output : m_plan.documents[d].outputs) {
            const QString key = fileKey(output.path);
            const int input = listed.value(key, -1);
            const QFileInfo existing(output.path);
            if (existing.exists() && !existing.isFile()) {
                output.refused = true;
                output.refusal = QStringLiteral("%1 is a folder, not a file: it is not written")
                                     .arg(output.path);
            } else if (input >= 0 && m_inputs.size() == 1 && guardsOnlyDocument()) {
                output.refused = true;
                output.refusal = QStringLiteral("%1 is the only document listed: it is not "
                                                "written over")
                                     .arg(output.path);
            } else if (input >= 0 && input != d) {
                output.deferred = true;
            }
            const auto first = writer.constFind(key);
            if (first == writer.constEnd()) {
                writer.insert(key, d);
            } else if (first.value() != d) {
                m_plan.sharedOutputs = true;
            }
        }
    }
}

void Batch::decide(const Question &ask, const DecisionTaken &taken)
{
    Naming::OverwritePass pass(ask);
    for (DocumentPlan &document : m_plan.documents) {
        for (PlannedOutput &output : document.outputs) {
            if (output.refused && !QFileInfo(output.path).isFile()) {
                continue; // a folder is not to be overwritten: nobody is asked
            }
            output.decision = pass.decide(output.path);
            if (taken) {
                taken(output.path, output.decision);
            }
        }
    }
}

RunResult Batch::run(const RunOptions &options, RunObserver *observer)
{
    RunResult result;
    if (!m_plan.canStart()) {
        result.success = false;
        return result;
    }
    const int documents = int(m_plan.documents.size());
    const int jobs = m_plan.sharedOutputs ? 1 : std::max(1, options.jobs);
    // What an earlier run that was killed left half-written beside the files this one writes
    // goes first (the documents themselves, for a tool that edits them in place).
    QSet<QString> folders;
    for (const DocumentPlan &document : std::as_const(m_plan.documents)) {
        result.documents << DocumentResult{document.input};
        folders.insert(QFileInfo(document.input).absolutePath());
        for (const PlannedOutput &output : document.outputs) {
            folders.insert(QFileInfo(output.path).absolutePath());
        }
    }
    for (const QString &folder : std::as_const(folders)) {
        PDFTools::RemoveStaleTemporaryFiles(folder);
    }

    // The work, in document order: each document's outputs that are to be written, in one unit
    // or in several.
    std::vector<Unit> units;
    std::vector<int> unitsOf(size_t(documents), 0); // units of each document, in order
    qint64 totalSteps = 0;
    for (int d = 0; d < documents; ++d) {
        const DocumentPlan &document = m_plan.documents[d];
        DocumentResult &documentResult = result.documents[d];
        QList<int> writable;
        for (int o = 0; o < document.outputs.size(); ++o) {
            const PlannedOutput &output = document.outputs[o];
            if (output.decision == Naming::OverwriteDecision::Skip) {
                continue; // left as it is
            }
            if (output.refused) {
                documentResult.processed = true;
                documentResult.success = false;
                documentResult.messages << output.refusal;
                continue;
            }
            writable << o;
        }
        if (writable.isEmpty() && !document.outputs.isEmpty()) {
            continue; // every output skipped or refused
        }
        const int count
            = writable.isEmpty()
                  ? 1
                  : std::clamp(unitsFor(document, jobs, documents), 1, int(writable.size()));
        for (int u = 0; u < count; ++u) {
            Unit unit;
            unit.document = d;
            const qsizetype first = writable.size() * u / count;
            const qsizetype last = writable.size() * (u + 1) / count;
            unit.outputs = writable.mid(first, last - first);
            for (const int o : std::as_const(unit.outputs)) {
                const PlannedOutput &output = document.outputs[o];
                unit.paths << (output.deferred ? reserveBeside(output.path) : output.path);
            }
            unit.written = QList<bool>(unit.outputs.size(), false);
            units.push_back(std::move(unit));
        }
        unitsOf[size_t(d)] = count;
        totalSteps += countsOutputs() ? writable.size() : 1;
    }

    // Workers take the units in order; this thread reports each document, in order, once its
    // units are done.
    struct Outcome
    {
        bool done = false;
        bool success = false;
        QStringList messages;
    };
    std::vector<Outcome> outcomes(units.size());
    std::mutex mutex;
    std::condition_variable changed;
    size_t next = 0;
    int running = 0;
    qint64 stepsDone = 0;
    std::vector<bool> started(size_t(documents), false);
    const auto step = [&](qint64 steps) {
        std::lock_guard lock(mutex);
        stepsDone += steps;
        if (observer) {
            observer->stepsDone(stepsDone, totalSteps);
        }
    };
    // The next unit to do, or none once every unit is taken, or the run is stopped and the
    // documents begun are done (a document is never left half done).
    const auto take = [&]() -> std::optional<size_t> {
        std::lock_guard lock(mutex);
        if (next >= units.size()
            || (options.stop && options.stop->load() && !started[size_t(units[next].document)])) {
            return std::nullopt;
        }
        const size_t u = next++;
        const int document = units[u].document;
        if (!started[size_t(document)]) {
            started[size_t(document)] = true;
            if (observer) {
                observer->documentStarted(document);
            }
        }
        return u;
    };
    const auto process = [&](size_t u) {
        Unit &unit = units[u];
        unit.outputDone = [&] {
            if (countsOutputs()) {
                step(1);
            }
        };
        DiagnosticsCapture capture;
        const bool success = writeUnit(unit);
        if (!countsOutputs()) {
            step(1);
        }
        std::lock_guard lock(mutex);
        outcomes[u] = Outcome{true, success, capture.take()};
        changed.notify_all();
    };

    // Reports the documents whose units are all done, in order; with wait, waits for them until
    // no worker is left.
    int reportedDocuments = 0;
    size_t reportedUnits = 0;
    const auto report = [&](bool wait) {
        std::unique_lock lock(mutex);
        while (reportedDocuments < documents) {
            const int d = reportedDocuments;
            const size_t end = reportedUnits + size_t(unitsOf[size_t(d)]);
            bool ready = true;
            for (size_t u = reportedUnits; u < end; ++u) {
                ready = ready && outcomes[u].done;
            }
            if (!ready) {
                if (!wait || running == 0) {
                    return;
                }
                changed.wait(lock);
                continue;
            }
            DocumentResult &documentResult = result.documents[d];
            for (size_t u = reportedUnits; u < end; ++u) {
                const Unit &unit = units[u];
                documentResult.processed = true;
                documentResult.success = documentResult.success && outcomes[u].success;
                documentResult.messages << outcomes[u].messages;
                for (qsizetype k = 0; k < unit.outputs.size(); ++k) {
                    if (unit.written.value(k)) {
                        documentResult.written << m_plan.documents[d].outputs[unit.outputs[k]].path;
                    }
                }
            }
            reportedUnits = end;
            ++reportedDocuments;
            if (observer) {
                lock.unlock();
                observer->documentFinished(d, documentResult);
                lock.lock();
            }
        }
    };

    if (jobs == 1) {
        report(false);
        while (const auto u = take()) {
            process(*u);
            report(false);
        }
    } else {
        std::vector<std::thread> threads;
        running = jobs;
        for (int t = 0; t < jobs; ++t) {
            threads.emplace_back([&] {
                while (const auto u = take()) {
                    process(*u);
                }
                std::lock_guard lock(mutex);
                --running;
                changed.notify_all();
            });
        }
        report(true);
        for (auto &thread : threads) {
            thread.join();
        }
    }
    result.stopped = reportedDocuments < documents;

    // Outputs written beside a listed document take its place now that every document has been
    // read, unless a later document wrote the same file.
    for (size_t u = 0; u < units.size(); ++u) {
        const Unit &unit = units[u];
        for (qsizetype k = 0; k < unit.outputs.size(); ++k) {
            const PlannedOutput &output = m_plan.documents[unit.document].outputs[unit.outputs[k]];
            if (!output.deferred) {
                continue;
            }
            const QString &temporary = unit.paths[k];
            bool overtaken = false;
            for (size_t later = u + 1; later < units.size() && !overtaken; ++later) {
                for (const int o : units[later].outputs) {
                    overtaken
                        = overtaken
                          || (outcomes[later].done
                              && fileKey(m_plan.documents[units[later].document].outputs[o].path)
                                     == fileKey(output.path));
                }
            }
            if (!outcomes[u].done || !unit.written.value(k) || overtaken) {
                QFile::remove(temporary);
                continue;
            }
            if (std::rename(QFile::encodeName(temporary).constData(),
                            QFile::encodeName(output.path).constData())
                != 0) {
                DocumentResult &documentResult = result.documents[unit.document];
                documentResult.success = false;
                documentResult.messages
                    << QStringLiteral("Cannot write %1: %2")
                           .arg(output.path, QString::fromLocal8Bit(std::strerror(errno)));
                documentResult.written.removeAll(output.path);
                QFile::remove(temporary);
            }
        }
    }
    for (const DocumentResult &documentResult : std::as_const(result.documents)) {
        result.success = result.success && documentResult.success;
    }
    return result;
}

} // namespace Jobs
