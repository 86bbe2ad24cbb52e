#pragma once

#include "app/toolwindow.h"
#include "engine/pdftools.h"

#include <memory>

namespace Ui {
class ViewControllerMerge;
}
class DocumentList;

// The Merge window: the documents of the list, in list order, joined into one new file chosen
// in a save panel, with their bookmarks kept as the pop-up under the list says.
class ViewControllerMerge : public ToolWindow
{
    Q_OBJECT

public:
    explicit ViewControllerMerge(Alerts &alerts, QWidget *parent = nullptr);
    ~ViewControllerMerge() override;

    DocumentList &documents() const { return *m_documents; }

    void OnMoveUp();
    void OnMoveDown();
    void OnMergePDF();
    // The pop-up's choice.
    PDFTools::BookmarkPolicy bookmarkPolicy() const;

private:
    std::unique_ptr<Ui::ViewControllerMerge> ui;
    DocumentList *m_documents;
};
