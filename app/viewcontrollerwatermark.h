#pragma once

#include "app/toolwindow.h"
#include "jobs/watermarksettings.h"

#include <QColor>

#include <memory>

namespace Ui {
class ViewControllerWatermark;
}
class DocumentList;
class PreviewPane;
class QLineEdit;
class Stepper;

// The Watermark window: a text and a picture stamped on every page, or the selected pages, of
// each listed document, each at one of five places with offsets, opacity, shadow, outline, size
// and turn, written into a folder under names made from a template, with a live preview that
// shows what the output will hold.
class ViewControllerWatermark : public ToolWindow
{
    Q_OBJECT

public:
    explicit ViewControllerWatermark(Alerts &alerts, QWidget *parent = nullptr);
    ~ViewControllerWatermark() override;

    DocumentList &documents() const { return *m_documents; }
    PreviewPane &preview() const;

    // The settings as the controls hold them: the fields, not the steppers, give the numbers,
    // read in single precision.
    Jobs::WatermarkSettings settings() const;
    void setSettings(const Jobs::WatermarkSettings &settings);
    QColor color() const { return m_color; }
    void setColor(const QColor &color);

    void ResetInterface() override;
    // The text tab's controls to their defaults, and the picture tab's; each leaves the other
    // tab, the pages, the names and the folder as they are.
    void OnTextReset();
    void OnImageReset();
    void OnColorChosen();
    void OnImageBrowse();
    void OnWatermarkPDFDocuments();

protected:
    QString profileTool() const override { return QLatin1String(Jobs::WatermarkSettings::Tool); }
    QJsonObject profileSettings() const override;
    bool
    applyProfileSettings(const QJsonObject &json, QString *error, QStringList *skipped) override;
    void setInterfaceEnabled(bool enabled) override;

private:
    void setTextSettings(const Jobs::WatermarkSettings &settings);
    void setImageSettings(const Jobs::WatermarkSettings &settings);

    std::unique_ptr<Ui::ViewControllerWatermark> ui;
    DocumentList *m_documents;
    QColor m_color = Qt::black;
};
