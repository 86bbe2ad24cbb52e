#pragma once

#include "batch.h"

namespace Jobs {

// Merge: the documents, in list order, joined into one file. The merged file is planned as the
// first document's output; the only listed document is never merged into itself, and a merge
// over one of several listed documents replaces it only once every document has been read.
class MergeJob final : public Batch
{
public:
    MergeJob(QStringList inputs, QString output);

    const QString &output() const { return m_output; }
    QList<Blocker> check() const override;
    RunResult run(const RunOptions &options, RunObserver *observer = nullptr) override;

private:
    void planDocument(DocumentPlan &document) const override;
    bool writeUnit(Unit &) override { return false; }

    QString m_output;
};

} // namespace Jobs
