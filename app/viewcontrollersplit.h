#pragma once

#include "app/toolwindow.h"
#include "jobs/profiles.h"
#include "jobs/splitsettings.h"

#include <memory>

namespace Ui {
class ViewControllerSplit;
}
class DocumentList;

// The Split window: each document of the list cut into several new files, by runs of a fixed
// number of pages, at typed page intervals or at the bookmarks of one outline level, written
// into a folder under names made from a template.
class ViewControllerSplit : public ToolWindow
{
    Q_OBJECT

public:
    explicit ViewControllerSplit(Alerts &alerts, QWidget *parent = nullptr);
    ~ViewControllerSplit() override;

    DocumentList &documents() const { return *m_documents; }

    // The settings as the controls hold them; the field, not the stepper, gives the number.
    Jobs::SplitSettings settings() const;
    void setSettings(const Jobs::SplitSettings &settings);

    void ResetInterface() override;
    void OnConsecutivePageSplitSelected();
    void OnIntervalSplitSelected();
    void OnBookmarkSplitSelected();
    void OnPagesPerIntervalChanged();
    void OnStepperPagesPerIntervalChanged();
    void OnSplitPDFDocuments();

protected:
    QString noOutputText(const QString &document) const override;
    QString profileTool() const override { return QLatin1String(Jobs::SplitSettings::Tool); }
    QJsonObject profileSettings() const override { return Jobs::Profiles::toJson(settings()); }
    bool
    applyProfileSettings(const QJsonObject &json, QString *error, QStringList *skipped) override;

private:
    std::unique_ptr<Ui::ViewControllerSplit> ui;
    DocumentList *m_documents;
};
