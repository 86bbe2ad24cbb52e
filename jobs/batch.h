#pragma once

#include "naming/intervals.h"
#include "naming/overwrite.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

// A batch is one run of a tool over a list of documents, in three steps that every front end
// takes in the same order:
//   1. plan: the outputs each document will write, every reason the run cannot start, and
//      every output that must not be written (check() the settings first, cheaply; then plan(),
//      which reads the documents and may run on any thread);
//   2. decide: the overwrite question for each output that exists already, asked through the
//      front end's question (a window's alert, the terminal, --overwrite all|none);
//   3. run: the plan on worker threads, one result per document with its reasons.
// A window and the command line differ only in how they ask and how they show what happened.
namespace Jobs {

// A reason why a run cannot start.
struct Blocker
{
    enum class Kind {
        NoDocuments,        // the list is empty
        NoFolder,           // no output folder was chosen
        RunsBelowOne,       // split: fewer than one page per run
        FolderMissing,      // the output folder does not exist
        FolderNotWritable,  // the output folder cannot be written to
        DocumentUnreadable, // a document no longer opens, or has no pages (see PlanOptions)
        NoInterval,         // split: no interval of the expression lies in a document
        NoBookmarks,        // split: a document has no bookmark of the level that leads to a page
        Unusable,           // the settings cannot be used as they are (detail says why)
    };
    Blocker(Kind kind, QString path = {}, qint64 pages = 0, QString detail = {})
        : kind(kind)
        , path(std::move(path))
        , pages(pages)
        , detail(std::move(detail))
    {}

    Kind kind;
    QString path;     // the folder or the document concerned
    qint64 pages = 0; // the document's page count (NoInterval, NoBookmarks, DocumentUnreadable)
    // The interval expression (NoInterval), the outline level (NoBookmarks), or why (Unusable).
    QString detail;
};

// One file a document will write.
struct PlannedOutput
{
    explicit PlannedOutput(QString path = {})
        : path(std::move(path))
    {}

    QString path;
    Naming::PageInterval interval; // split: the pages it holds
    Naming::OverwriteDecision decision = Naming::OverwriteDecision::Write;
    // The only listed document itself, or a folder (anything but a file): never written, and
    // the run fails for it; nobody is asked about it.
    bool refused = false;
    QString refusal; // why
    // Lands on a listed document that the run has yet to read: written beside it first and
    // moved over it once every document is done.
    bool deferred = false;
};

struct DocumentPlan
{
    explicit DocumentPlan(QString input = {})
        : input(std::move(input))
    {}

    QString input;
    qint64 pages = -1; // -1: not read while planning
    QList<PlannedOutput> outputs;
    // Pages an interval expression selects (crop, watermark); empty: every page.
    QList<qint64> selectedPages;
    // Said before the run, on its document's behalf ("no page of ... lies in ...").
    QStringList notes;
};

struct Plan
{
    QList<DocumentPlan> documents;
    QList<Blocker> blockers;
    // Two documents write the same file: they run one after the other, and the last one
    // listed wins.
    bool sharedOutputs = false;

    bool canStart() const { return blockers.isEmpty(); }
    qint64 outputCount() const;
};

// How the front end wants the plan made.
struct PlanOptions
{
    // Documents are read on up to this many threads.
    int jobs = 1;
    // A document that no longer opens, or has no pages, stops the run from starting (a window,
    // whose list was checked when the documents were added); otherwise the run goes on and
    // fails for it (the command line).
    bool requireReadableDocuments = false;
};

// What became of one document.
struct DocumentResult
{
    explicit DocumentResult(QString input = {})
        : input(std::move(input))
    {}

    QString input;
    bool processed = false; // false: skipped by the overwrite answers, or not reached (stop)
    bool success = true;    // false: it failed; messages say why
    QStringList written;    // the outputs written
    QStringList messages;   // diagnostics logged while it was processed
};

struct RunResult
{
    bool success = true; // the logical and of every document's result
    bool stopped = false;
    QList<DocumentResult> documents;

    int processedCount() const;
    // The documents that failed, each with its messages.
    QList<DocumentResult> failures() const;
};

struct RunOptions
{
    int jobs = 1;
    // Set by another thread to stop the run after the documents being processed.
    const std::atomic<bool> *stop = nullptr;
};

// Told how a run goes. Calls never overlap; documentStarted and stepsDone come from the run's
// worker threads, documentFinished from the thread that called run(), in document order.
class RunObserver
{
public:
    virtual ~RunObserver() = default;
    virtual void documentStarted(int /*index*/) {}
    // Steps are outputs for a split, documents for the other tools.
    virtual void stepsDone(qint64 /*done*/, qint64 /*total*/) {}
    virtual void documentFinished(int /*index*/, const DocumentResult & /*result*/) {}
};

class Batch
{
public:
    using Question = Naming::OverwritePass::Question;
    // Told of each decision as it is taken (the command line reports skips).
    using DecisionTaken = std::function<void(const QString &path, Naming::OverwriteDecision)>;

    explicit Batch(QStringList inputs);
    virtual ~Batch();
    Batch(const Batch &) = delete;
    Batch &operator=(const Batch &) = delete;

    const QStringList &inputs() const { return m_inputs; }
    const Plan &plan() const { return m_plan; }

    // The reasons the run cannot start that the settings alone give (no documents, no folder,
    // a folder that is not there); cheap, for the window to say before anything else happens.
    virtual QList<Blocker> check() const = 0;
    // Reads the documents and plans every output. Any thread.
    void plan(const PlanOptions &options);
    // The overwrite pass, in run order, with one remembered answer for the whole run.
    void decide(const Question &ask, const DecisionTaken &taken = {});
    // Runs the plan. Nothing is written for a plan that cannot start.
    virtual RunResult run(const RunOptions &options, RunObserver *observer = nullptr);

protected:
    // The tool's planning of one document (outputs and selected pages); called on several
    // threads at once, each for its own document.
    virtual void planDocument(DocumentPlan &document) const = 0;
    // Blockers the planned documents give (no interval, ...), after check()'s.
    virtual void checkPlan(Plan &) const {}

    // A part of one document's work: some of its outputs (none for a tool that writes no new
    // file), to be written at the paths given (which differ from the planned ones for deferred
    // outputs).
    struct Unit
    {
        int document = 0;
        QList<int> outputs; // indexes into the document's planned outputs
        QStringList paths;
        QList<bool> written;              // set by writeUnit, one per output
        std::function<void()> outputDone; // a split calls it after each output
    };
    // Does a unit's work; false when the document failed (its messages say why). Any thread.
    virtual bool writeUnit(Unit &unit) = 0;
    // Work a document into several units of consecutive outputs (so that one long document
    // keeps every thread busy); one unit by default.
    virtual int unitsFor(const DocumentPlan &document, int jobs, int documents) const;
    // Whether the tool's own input may be among its outputs without harm: a split reads its
    // document through a file it keeps open, so its pieces may replace it.
    virtual bool readsInputWhole() const { return false; }
    // Whether the only listed document is refused as an output (crop, watermark, merge).
    virtual bool guardsOnlyDocument() const { return true; }
    // Whether progress counts outputs (a split) rather than documents.
    virtual bool countsOutputs() const { return false; }

    // The output folder check shared by the tools that write into one.
    static void checkFolder(const QString &folder, QList<Blocker> &blockers);

    QStringList m_inputs;
    Plan m_plan;
};

} // namespace Jobs
