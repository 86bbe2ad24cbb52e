#pragma once

#include "batch.h"
#include "engine/pdftools.h"
#include "splitsettings.h"

namespace Jobs {

// Split: each document cut into runs of pages, at page intervals or at the bookmarks of one
// outline level, one file per piece, named from the template in the output folder. Every
// document is read to plan its pieces; a piece may replace its own document (the document is
// read through a file kept open), each piece of a document then replacing the one before.
// Names made from bookmark titles are unique within the run: a title met again gets the
// piece's number after it ("Exercises (Page4)").
class SplitJob final : public Batch
{
public:
    SplitJob(QStringList inputs, SplitSettings settings);

    const SplitSettings &settings() const { return m_settings; }
    QList<Blocker> check() const override;

    // The pieces a document of that many pages gives; at bookmarks, with that outline.
    static QList<PlannedOutput> outputsFor(const SplitSettings &settings,
                                           const QString &input,
                                           qint64 pages,
                                           const QList<PDFTools::OutlineEntry> &outline = {});

private:
    void planDocument(DocumentPlan &document) const override;
    void checkPlan(Plan &plan) const override;
    bool writeUnit(Unit &unit) override;
    int unitsFor(const DocumentPlan &document, int jobs, int documents) const override;
    bool readsInputWhole() const override { return true; }
    bool guardsOnlyDocument() const override { return false; }
    bool countsOutputs() const override { return true; }

    SplitSettings m_settings;
};

} // namespace Jobs
