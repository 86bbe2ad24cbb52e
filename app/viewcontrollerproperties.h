#pragma once

#include "app/toolwindow.h"
#include "engine/pdftools.h"
#include "jobs/propertiessettings.h"

#include <QTimer>

#include <memory>

namespace Ui {
class ViewControllerProperties;
}
namespace Jobs {
class KeptOriginals;
}
class DocumentList;
class QLabel;

// The Edit PDF Properties window: the title, author, subject and keywords of every listed
// document rewritten from four templates, in place, after a warning that can be switched off.
// The selected document's values before and after show beside the templates, every document's
// in a table under them, all computed by the engine's own template resolution from values read
// off the window's thread; the last run can be undone while the window is open.
class ViewControllerProperties : public ToolWindow
{
    Q_OBJECT

public:
    explicit ViewControllerProperties(Alerts &alerts, QWidget *parent = nullptr);
    ~ViewControllerProperties() override;

    DocumentList &documents() const { return *m_documents; }

    Jobs::PropertiesSettings settings() const;
    void setSettings(const Jobs::PropertiesSettings &settings);

    void ResetInterface() override;
    // Refills the eight labels for the selected document (bare prefixes without one).
    void UpdatePropertiesPreview();
    // Refills the table of every document.
    void updateTable();
    void OnUpdateProperties();
    // Puts back the documents of the last run; says how many, and names those left alone.
    void OnUndo();

    // The user setting that shows the warning before a run.
    static constexpr auto ShowWarningMessage = "ShowWarningMessage";
    static constexpr auto WarningText = "You are about to modify the properties of the selected "
                                        "documents. Are you sure you want to continue?";

protected:
    QString profileTool() const override { return QLatin1String(Jobs::PropertiesSettings::Tool); }
    QJsonObject profileSettings() const override;
    bool
    applyProfileSettings(const QJsonObject &json, QString *error, QStringList *skipped) override;
    void setInterfaceEnabled(bool enabled) override;

private:
    // What the templates give for a document, from its values as read; nothing while they are
    // not known.
    std::optional<std::pair<PDFTools::DocumentProperties, PDFTools::DocumentProperties>>
    beforeAndAfter(const QString &path) const;

    std::unique_ptr<Ui::ViewControllerProperties> ui;
    DocumentList *m_documents;
    QString m_currentPDF;
    QTimer m_tableTimer;
    std::shared_ptr<Jobs::KeptOriginals> m_kept; // the last run's documents, as they were
};
