#include "splitjob.h"

#include "engine/pdftools.h"

#include <QLoggingCategory>
#include <QSet>

Q_DECLARE_LOGGING_CATEGORY(lcJobs)

namespace Jobs {

SplitJob::SplitJob(QStringList inputs, SplitSettings settings)
    : Batch(std::move(inputs))
    , m_settings(std::move(settings))
{}

QList<Blocker> SplitJob::check() const
{
    QList<Blocker> blockers;
    if (m_inputs.isEmpty()) {
        blockers << Blocker{Blocker::Kind::NoDocuments};
    }
    if (m_settings.folder.isEmpty()) {
        blockers << Blocker{Blocker::Kind::NoFolder};
    }
    if (!blockers.isEmpty()) {
        return blockers;
    }
    // The interval mode makes the same test, although it does not use the number.
    if (m_settings.pagesPerInterval < 1) {
        blockers << Blocker{Blocker::Kind::RunsBelowOne};
        return blockers;
    }
    if (m_settings.mode == Naming::SplitMode::Bookmarks && m_settings.bookmarkLevel < 1) {
        blockers << Blocker{Blocker::Kind::Unusable,
                            {},
                            0,
                            QStringLiteral("the bookmark level must be at least 1")};
        return blockers;
    }
    checkFolder(m_settings.folder, blockers);
    return blockers;
}

QList<PlannedOutput> SplitJob::outputsFor(const SplitSettings &settings,
                                          const QString &input,
                                          qint64 pages,
                                          const QList<PDFTools::OutlineEntry> &outline)
{
    QList<Naming::TitledInterval> pieces;
    if (settings.mode == Naming::SplitMode::Bookmarks) {
        QList<Naming::BookmarkStart> starts;
        for (const PDFTools::OutlineEntry &entry : outline) {
            if (entry.level == settings.bookmarkLevel && entry.page > 0) {
                starts << Naming::BookmarkStart{entry.page, entry.title};
            }
        }
        // The pages before the first bookmark are named after the document.
        pieces = Naming::GenerateBookmarkIntervals(pages, starts, Naming::BaseName(input));
    } else {
        const QList<Naming::PageInterval> intervals
            = settings.mode == Naming::SplitMode::Consecutive
                  ? Naming::GenerateConsecutiveIntervals(pages, settings.pagesPerInterval)
                  : Naming::GenerateArrayOfIntervals(settings.expression, pages);
        for (const Naming::PageInterval &interval : intervals) {
            pieces << Naming::TitledInterval{interval, {}};
        }
    }
    QList<PlannedOutput> outputs;
    for (qsizetype k = 0; k < pieces.size(); ++k) {
        PlannedOutput output;
        output.interval = pieces[k].interval;
        output.path = Naming::OutputPathForInterval(settings.nameTemplate,
                                                    settings.folder,
                                                    input,
                                                    settings.mode,
                                                    k + 1,
                                                    output.interval.start,
                                                    output.interval.end,
                                                    pieces[k].title);
        outputs << output;
    }
    return outputs;
}

void SplitJob::planDocument(DocumentPlan &document) const
{
    if (m_settings.mode == Naming::SplitMode::Bookmarks) {
        const PDFTools::DocumentOutline outline = PDFTools::GetPDFOutline(document.input);
        document.pages = outline.pages;
        document.outputs = outputsFor(m_settings, document.input, document.pages, outline.entries);
        return;
    }
    document.pages = PDFTools::GetPDFNumberOfPages(document.input);
    document.outputs = outputsFor(m_settings, document.input, document.pages);
}

void SplitJob::checkPlan(Plan &plan) const
{
    if (m_settings.mode == Naming::SplitMode::Consecutive) {
        return;
    }
    const bool bookmarks = m_settings.mode == Naming::SplitMode::Bookmarks;
    for (const DocumentPlan &document : std::as_const(plan.documents)) {
        if (!document.outputs.isEmpty()) {
            continue;
        }
        if (!bookmarks) {
            plan.blockers << Blocker{
                Blocker::Kind::NoInterval, document.input, document.pages, m_settings.expression};
        } else if (document.pages > 0) {
            // A document that does not open or has no pages fails as it does in other modes.
            plan.blockers << Blocker{Blocker::Kind::NoBookmarks,
                                     document.input,
                                     document.pages,
                                     QString::number(m_settings.bookmarkLevel)};
        }
    }
    if (!bookmarks || !m_settings.nameTemplate.contains(QLatin1String(Naming::BookmarkNameToken))) {
        return;
    }
    // Titles repeat (every chapter's "Exercises", or two documents' "Introduction"): a name
    // met before gets the piece's number, and a count when even that was met.
    QSet<QString> taken;
    for (DocumentPlan &document : plan.documents) {
        for (qsizetype k = 0; k < document.outputs.size(); ++k) {
            QString &path = document.outputs[k].path;
            if (taken.contains(path)) {
                const QString base = path.chopped(4) + Naming::PieceSuffix(k + 1); // ".pdf" off
                path = base + QStringLiteral(".pdf");
                for (int n = 2; taken.contains(path); ++n) {
                    path = base + QStringLiteral(" (%1).pdf").arg(n);
                }
            }
            taken.insert(path);
        }
    }
}

int SplitJob::unitsFor(const DocumentPlan &document, int jobs, int documents) const
{
    // With fewer documents than jobs, a long document's pieces go in as many runs as there are
    // jobs, each run reading the document once, so that every core has work.
    constexpr qsizetype shortest = 16;
    const qsizetype outputs = document.outputs.size();
    return documents < jobs && outputs >= 2 * shortest
               ? int(std::min<qsizetype>(jobs, outputs / shortest))
               : 1;
}

bool SplitJob::writeUnit(Unit &unit)
{
    const DocumentPlan &document = m_plan.documents[unit.document];
    // Parsed once for all the unit's pieces.
    PdfSource source(document.input);
    if (source.pageCount() == 0) {
        if (unit.outputs.isEmpty() || unit.outputs.front() == 0) {
            qCWarning(lcJobs).noquote().nospace() << document.input << " has no pages to split";
        }
        for (qsizetype k = 0; k < unit.outputs.size(); ++k) {
            unit.outputDone();
        }
        return false;
    }
    bool result = true;
    // The pieces reach the disk together when the unit ends, rather than one sync each.
    OutputCommitGroup pieces;
    for (qsizetype k = 0; k < unit.outputs.size(); ++k) {
        const PlannedOutput &output = document.outputs[unit.outputs[k]];
        unit.written[k]
            = PDFTools::SplitPdf(source, unit.paths[k], output.interval.start, output.interval.end);
        result = result && unit.written[k];
        unit.outputDone();
    }
    for (const OutputCommitGroup::Failure &failure : pieces.finish()) {
        qCWarning(lcJobs).noquote().nospace()
            << "Cannot write " << failure.target << ": " << failure.reason;
        const qsizetype k = unit.paths.indexOf(failure.target);
        if (k >= 0) {
            unit.written[k] = false;
        }
        result = false;
    }
    return result;
}

} // namespace Jobs
