#pragma once

#include "batch.h"
#include "splitsettings.h"

namespace Jobs {

// Split: each document cut into runs of pages or at page intervals, one file per piece, named
// from the template in the output folder. Every document is read to plan its pieces; a piece
// may replace its own document (the document is read through a file kept open), each piece of
// a document then replacing the one before.
class SplitJob final : public Batch
{
public:
    SplitJob(QStringList inputs, SplitSettings settings);

    const SplitSettings &settings() const { return m_settings; }
    QList<Blocker> check() const override;

    // The pieces a document of that many pages gives.
    static QList<PlannedOutput>
    outputsFor(const SplitSettings &settings, const QString &input, qint64 pages);

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
