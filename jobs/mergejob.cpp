#include "mergejob.h"

#include "diagnostics.h"
#include "engine/pdftools.h"

#include <QFileInfo>

namespace Jobs {

MergeJob::MergeJob(QStringList inputs, QString output, BookmarkPolicy bookmarks)
    : Batch(std::move(inputs))
    , m_output(std::move(output))
    , m_bookmarks(bookmarks)
{}

QList<Blocker> MergeJob::check() const
{
    if (m_inputs.isEmpty()) {
        return {Blocker{Blocker::Kind::NoDocuments}};
    }
    return {};
}

void MergeJob::planDocument(DocumentPlan &document) const
{
    if (document.input == m_inputs.front()) {
        document.outputs << PlannedOutput{m_output};
    }
}

RunResult MergeJob::run(const RunOptions &options, RunObserver *observer)
{
    RunResult result;
    if (!m_plan.canStart()) {
        result.success = false;
        return result;
    }
    for (const QString &input : std::as_const(m_inputs)) {
        result.documents << DocumentResult{input};
    }
    const PlannedOutput &output = m_plan.documents.front().outputs.front();
    const auto finish = [&] {
        for (qsizetype i = 0; i < result.documents.size(); ++i) {
            result.success = result.success && result.documents[i].success;
            if (observer) {
                observer->documentFinished(int(i), result.documents[i]);
            }
        }
        return result;
    };
    const bool folder = output.refused && !QFileInfo(m_output).isFile();
    if (!folder && output.decision == Naming::OverwriteDecision::Skip) {
        return finish(); // the existing file is left as it is
    }
    if (output.refused) {
        result.documents.front().processed = true;
        result.documents.front().success = false;
        result.documents.front().messages
            << (folder ? output.refusal
                       : QStringLiteral("%1 is the only input: it is not merged into itself")
                             .arg(m_output));
        return finish();
    }

    const qint64 total = m_inputs.size();
    DiagnosticsCapture capture;
    const bool merged = PDFTools::MergePdfs(
        m_inputs,
        m_output,
        [&](int mergedFiles) {
            if (observer) {
                observer->documentStarted(mergedFiles - 1);
                observer->stepsDone(mergedFiles - 1, total);
            }
        },
        [&] { return options.stop && options.stop->load(); },
        m_bookmarks);
    result.stopped = !merged && options.stop && options.stop->load();
    // The engine names the document a message is about; what names none (the output's write)
    // goes with the first.
    const QStringList messages = capture.take();
    for (DocumentResult &document : result.documents) {
        document.processed = !result.stopped;
        for (const QString &message : messages) {
            if (message.contains(document.input)) {
                document.messages << message;
                document.success = false;
            }
        }
    }
    DocumentResult &first = result.documents.front();
    for (const QString &message : messages) {
        if (std::none_of(result.documents.begin(),
                         result.documents.end(),
                         [&](const DocumentResult &d) { return d.messages.contains(message); })) {
            first.messages << message;
        }
    }
    if (!merged
        && std::all_of(result.documents.begin(),
                       result.documents.end(),
                       [](const DocumentResult &d) { return d.success; })) {
        first.success = false;
    }
    if (merged) {
        first.written << m_output;
    }
    return finish();
}

} // namespace Jobs
