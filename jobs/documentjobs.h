#pragma once

#include "batch.h"
#include "cropsettings.h"
#include "keptoriginals.h"
#include "propertiessettings.h"
#include "watermarksettings.h"

#include <functional>
#include <memory>

class FolderSyncs;
class WatermarkLayerSource;

namespace Jobs {

// The tools that make one new document from each listed one, named from a template in the
// output folder: the checks, the output paths and the page selection they share.
class OnePerDocumentJob : public Batch
{
public:
    QList<Blocker> check() const override;

protected:
    OnePerDocumentJob(QStringList inputs,
                      QString nameTemplate,
                      QString folder,
                      bool pagesEnabled,
                      QString pages,
                      const char *done);
    void planDocument(DocumentPlan &document) const override;

private:
    QString m_nameTemplate;
    QString m_folder;
    bool m_pagesEnabled;
    QString m_pages;
    const char *m_done; // "cropped", "watermarked"
};

// Crop: every page, or the selected ones, of each document cut to one rectangle.
class CropJob final : public OnePerDocumentJob
{
public:
    CropJob(QStringList inputs, CropSettings settings);
    const CropSettings &settings() const { return m_settings; }

private:
    bool writeUnit(Unit &unit) override;
    CropSettings m_settings;
};

// Watermark: the text and the picture stamped on every page, or the selected ones, of each
// document. The layers are drawn by the drawing side, once for the whole run.
class WatermarkJob final : public OnePerDocumentJob
{
public:
    WatermarkJob(QStringList inputs,
                 WatermarkSettings settings,
                 std::shared_ptr<WatermarkLayerSource> layers);
    ~WatermarkJob() override;
    const WatermarkSettings &settings() const { return m_settings; }
    // A picture that cannot be read stops the run from starting: a run without it would not be
    // what was asked for.
    QList<Blocker> check() const override;
    // The output folder is synced once, when every document is written.
    RunResult run(const RunOptions &options, RunObserver *observer = nullptr) override;

private:
    bool writeUnit(Unit &unit) override;
    WatermarkSettings m_settings;
    std::shared_ptr<WatermarkLayerSource> m_layers;
    std::unique_ptr<FolderSyncs> m_folderSyncs;
};

// Edit PDF Properties: each document's title, author, subject and keywords rewritten from the
// templates, in place. No new file, no overwrite question; a document reached by two paths (a
// link and its target) is edited once.
class PropertiesJob final : public Batch
{
public:
    // With kept, each document's file is kept aside before it is edited (a document that
    // cannot be kept is not edited), so that the run can be undone.
    PropertiesJob(QStringList inputs,
                  PropertiesSettings settings,
                  std::shared_ptr<KeptOriginals> kept = {});
    const PropertiesSettings &settings() const { return m_settings; }
    QList<Blocker> check() const override;

private:
    void planDocument(DocumentPlan &) const override {}
    bool writeUnit(Unit &unit) override;
    PropertiesSettings m_settings;
    std::shared_ptr<KeptOriginals> m_kept;
};

} // namespace Jobs
