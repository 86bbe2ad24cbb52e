#pragma once

#include "batch.h"
#include "engine/pdftools.h"

namespace Jobs {

// Merge: the documents, in list order, joined into one file, their bookmarks kept as the policy
// says. The merged file is planned as the first document's output; the only listed document is
// never merged into itself, and a merge over one of several listed documents replaces it only
// once every document has been read.
class MergeJob final : public Batch
{
public:
    using BookmarkPolicy = PDFTools::BookmarkPolicy;
    MergeJob(QStringList inputs, QString output, BookmarkPolicy bookmarks = BookmarkPolicy::Keep);

    const QString &output() const { return m_output; }
    BookmarkPolicy bookmarks() const { return m_bookmarks; }
    QList<Blocker> check() const override;
    RunResult run(const RunOptions &options, RunObserver *observer = nullptr) override;

private:
    void planDocument(DocumentPlan &document) const override;
    bool writeUnit(Unit &) override { return false; }

    QString m_output;
    BookmarkPolicy m_bookmarks;
};

} // namespace Jobs
