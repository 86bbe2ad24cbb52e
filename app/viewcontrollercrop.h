#pragma once

#include "app/toolwindow.h"
#include "jobs/cropsettings.h"

#include <memory>

namespace Ui {
class ViewControllerCrop;
}
class DocumentList;
class PreviewPane;
class QLineEdit;
class Stepper;

// The Crop window: every page, or the selected pages, of each listed document cut to one
// rectangle in points or in percent of the page, written into a folder under names made from a
// template, with a live preview of the selected page that dims what the crop leaves out.
class ViewControllerCrop : public ToolWindow
{
    Q_OBJECT

public:
    explicit ViewControllerCrop(Alerts &alerts, QWidget *parent = nullptr);
    ~ViewControllerCrop() override;

    DocumentList &documents() const { return *m_documents; }
    PreviewPane &preview() const;

    // The settings as the controls hold them: the fields, not the steppers, give the numbers,
    // read in single precision as the window always has.
    Jobs::CropSettings settings() const;
    void setSettings(const Jobs::CropSettings &settings);

    void ResetInterface() override;
    // The unit changed: the four values are converted against the previewed page, so that the
    // rectangle stays where it was (as they are when no page is previewed), and refreshed.
    void OnDefineUsingChanged();
    void OnCheckPageIntervalsSelected();
    // A rectangle drawn on the preview (points of the page as shown) becomes the four values.
    void OnRectangleDrawn(const QRectF &rect);
    void OnCropPDFDocuments();

protected:
    QString profileTool() const override { return QLatin1String(Jobs::CropSettings::Tool); }
    QJsonObject profileSettings() const override;
    bool
    applyProfileSettings(const QJsonObject &json, QString *error, QStringList *skipped) override;
    void setInterfaceEnabled(bool enabled) override;

private:
    // The stepper's limits for the unit: a page of 200 inches, or 100 %.
    void setStepperRanges(Jobs::CropUnit unit);

    std::unique_ptr<Ui::ViewControllerCrop> ui;
    DocumentList *m_documents;
    // The unit the four values were entered in (comboDefineUsingSelection).
    int m_comboDefineUsingSelection = 1;
};
