#include "documentjobs.h"

#include "engine/pdftools.h"
#include "engine/watermarklayersource.h"
#include "naming/outputnames.h"

#include <QFileInfo>
#include <QLoggingCategory>
#include <QSet>

Q_DECLARE_LOGGING_CATEGORY(lcJobs)

namespace Jobs {

OnePerDocumentJob::OnePerDocumentJob(QStringList inputs,
                                     QString nameTemplate,
                                     QString folder,
                                     bool pagesEnabled,
                                     QString pages,
                                     const char *done)
    : Batch(std::move(inputs))
    , m_nameTemplate(std::move(nameTemplate))
    , m_folder(std::move(folder))
    , m_pagesEnabled(pagesEnabled)
    , m_pages(std::move(pages))
    , m_done(done)
{}

QList<Blocker> OnePerDocumentJob::check() const
{
    QList<Blocker> blockers;
    if (m_inputs.isEmpty()) {
        blockers << Blocker{Blocker::Kind::NoDocuments};
        return blockers;
    }
    checkFolder(m_folder, blockers);
    return blockers;
}

void OnePerDocumentJob::planDocument(DocumentPlan &document) const
{
    document.outputs << PlannedOutput{
        Naming::OutputPathForDocument(m_nameTemplate, m_folder, document.input)};
    if (!m_pagesEnabled) {
        return; // the page list is empty: every page
    }
    document.pages = PDFTools::GetPDFNumberOfPages(document.input);
    document.selectedPages = Naming::GenerateArrayOfPages(m_pages, document.pages);
    if (document.selectedPages.isEmpty()) {
        document.notes << QStringLiteral(
                              "no page of \"%1\" lies in %2 (%3 pages): every page is %4")
                              .arg(m_pages, document.input)
                              .arg(document.pages)
                              .arg(QLatin1String(m_done));
    }
}

CropJob::CropJob(QStringList inputs, CropSettings settings)
    : OnePerDocumentJob(std::move(inputs),
                        settings.nameTemplate,
                        settings.folder,
                        settings.pagesEnabled,
                        settings.pages,
                        "cropped")
    , m_settings(std::move(settings))
{}

bool CropJob::writeUnit(Unit &unit)
{
    const DocumentPlan &document = m_plan.documents[unit.document];
    unit.written[0] = PDFTools::CropPDF(document.input,
                                        document.selectedPages,
                                        unit.paths[0],
                                        m_settings.originX,
                                        m_settings.originY,
                                        m_settings.width,
                                        m_settings.height,
                                        m_settings.percents());
    return unit.written[0];
}

WatermarkJob::WatermarkJob(QStringList inputs,
                           WatermarkSettings settings,
                           std::shared_ptr<WatermarkLayerSource> layers)
    : OnePerDocumentJob(std::move(inputs),
                        settings.nameTemplate,
                        settings.folder,
                        settings.pagesEnabled,
                        settings.pages,
                        "watermarked")
    , m_settings(std::move(settings))
    , m_layers(std::move(layers))
    , m_folderSyncs(std::make_unique<FolderSyncs>())
{}

WatermarkJob::~WatermarkJob() = default;

RunResult WatermarkJob::run(const RunOptions &options, RunObserver *observer)
{
    RunResult result = Batch::run(options, observer);
    m_folderSyncs->finish();
    return result;
}

QList<Blocker> WatermarkJob::check() const
{
    QList<Blocker> blockers = OnePerDocumentJob::check();
    if (const QString problem = m_layers->problem(); !problem.isEmpty()) {
        blockers << Blocker{Blocker::Kind::Unusable, m_settings.image, 0, problem};
    }
    return blockers;
}

bool WatermarkJob::writeUnit(Unit &unit)
{
    const DocumentPlan &document = m_plan.documents[unit.document];
    const FolderSyncs::Scope folderSyncs(*m_folderSyncs);
    unit.written[0]
        = PDFTools::WatermarkPDF(document.input, document.selectedPages, *m_layers, unit.paths[0]);
    return unit.written[0];
}

PropertiesJob::PropertiesJob(QStringList inputs,
                             PropertiesSettings settings,
                             std::shared_ptr<KeptOriginals> kept)
    : Batch([&inputs] {
        // A second edit of the same file would take the first one's result as its [Original].
        QStringList documents;
        QSet<QString> seen;
        for (const QString &path : inputs) {
            const QString file = QFileInfo(path).canonicalFilePath();
            if (file.isEmpty() || !seen.contains(file)) {
                seen.insert(file);
                documents << path;
            }
        }
        return documents;
    }())
    , m_settings(std::move(settings))
    , m_kept(std::move(kept))
{}

QList<Blocker> PropertiesJob::check() const
{
    if (m_inputs.isEmpty()) {
        return {Blocker{Blocker::Kind::NoDocuments}};
    }
    return {};
}

bool PropertiesJob::writeUnit(Unit &unit)
{
    const QString &path = m_plan.documents[unit.document].input;
    QString error;
    if (m_kept && !m_kept->keep(path, &error)) {
        qCWarning(lcJobs).noquote().nospace() << path << " is left as it is: " << error;
        return false;
    }
    const bool saved = PDFTools::ChangedDocumentsPropertiesWithPdfPath(
        path, m_settings.title, m_settings.author, m_settings.subject, m_settings.keywords);
    if (saved && m_kept) {
        m_kept->noteWritten(path);
    }
    return saved;
}

} // namespace Jobs
