#pragma once

#include "engine/pagegeometry.h"

#include <QFrame>
#include <QHash>
#include <QImage>
#include <QPointer>
#include <QRectF>
#include <QSizeF>
#include <QThreadPool>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QLabel;
class QPushButton;

// The image view: the preview image scaled into its frame, its aspect kept (letterboxed), sharp at
// any size and device pixel ratio: shrunk, it is averaged down to the screen's device pixels.
class PreviewImageView final : public QWidget
{
public:
    explicit PreviewImageView(QWidget *parent);

    void setImage(const QImage &image);
    // Where the image lies in the view.
    QRectF imageRect() const;
    // A selection drawn over the image (view pixels); empty for none.
    void setSelection(const QRectF &selection);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    // What to draw over a screen area of deviceSize device pixels.
    const QImage &imageFor(QSize deviceSize);

    QImage m_image;
    std::vector<QImage> m_halvings; // made as a smaller size asks for them
    QImage m_scaled;                // the last size drawn
    QRectF m_selection;
};

// The zoom and pan of the preview's image view inside its visible area, in the coordinates the
// arithmetic is written in: origin at the bottom left, y upward. The image view's frame is
// (x, y, iw, ih); the visible area is cw x ch. The zoom is iw / cw: 1 when the page fits, at
// most 10. After every zoom, reset or pan step the image view covers the visible area.
struct ZoomAndPan
{
    double x = 0;
    double y = 0;
    double iw = 1;
    double ih = 1;
    double cw = 1;
    double ch = 1;

    // Zoom in (factor 1.1) or out (0.9) about the centre: below the fitted size it is the
    // fitted size, above 10 x it is 10 x (both comparisons strict).
    void zoom(double factor);
    // The fitted size at the origin.
    void resetZoom();
    // The four steps, in order, that keep the image view over the visible area.
    void RepositionImageInVisibleArea();
    // A drag step (deltaY downward, as pointer events report it); a step that would overshoot
    // an edge is dropped whole along that axis.
    void pan(double deltaX, double deltaY);
    // The visible area's new size, the zoom kept.
    void resizeVisibleArea(double width, double height);
};

// The preview of the Crop and Watermark windows: one page of the selected document with the
// tool's settings drawn on it, the page label with previous and next page, zoom in, zoom out and
// reset zoom, panning by dragging, and a refresh debounced by half a second.
//
// The GUI thread never opens, renders or decodes a document: a page's image (4 pixels a point)
// and its geometry are made on a thread of the pane's own, kept for a few pages while the window
// is open, so that a change of the settings only draws them again over the kept image; a
// document's page count is read once. The last refresh asked for wins, not the last worker to
// finish.
class PreviewPane : public QFrame
{
    Q_OBJECT

public:
    // Draws the tool's settings over a page's image; made on the GUI thread from the settings as
    // they stand, called on the pane's thread.
    using Drawing = std::function<QImage(const QImage &page, const PageGeometry &geometry)>;
    // Gives the drawing for a refresh, from the window's settings; null: nothing is refreshed.
    using DrawingSource = std::function<Drawing()>;

    explicit PreviewPane(QWidget *parent = nullptr);
    ~PreviewPane() override;

    void setDrawingSource(DrawingSource source) { m_drawingSource = std::move(source); }
    // The controls the window's DisableInterface and EnableInterface switch, in the window's
    // order: zoom in, zoom out, reset zoom, previous page, next page.
    QList<QWidget *> controls() const;

    const QString &currentPDF() const { return m_currentPDF; }
    qint64 currentPreviewPage() const { return m_currentPreviewPage; }
    const ZoomAndPan &zoomAndPan() const { return m_view; }
    // The image shown: null for the empty image.
    const QImage &image() const { return m_image; }
    // The geometry of the page shown, once it is known.
    std::optional<PageGeometry> pageGeometry() const { return m_geometry; }
    bool refreshPending() const { return m_timer.isActive(); }
    // Refreshes started (a test counts them).
    int refreshCount() const { return m_refreshes; }

    // The document list's selection changed: page 1 of the document, or the empty image at once
    // when none is selected (empty path). The zoom stays.
    void showDocument(const QString &path);
    // Remove Selected or Remove All: no document, the empty image, page 1 (currentPreviewPage 0).
    void clearPreview();
    // The window's reset: no document, the empty image, page 1.
    void reset();

    void OnPreviousPage();
    void OnNextPage();
    void OnZoomIn();
    void OnZoomOut();
    void OnResetZoom();
    // Something the preview shows changed: refreshes half a second after the last such call.
    void SchedulePreviewUpdate();
    // What the timer calls.
    void UpdatePreview();

    // The left button draws a rectangle on the page (Crop) instead of panning; the right and
    // middle buttons, and the left with Space held, still pan.
    void setRectangleDrawing(bool enabled) { m_drawRectangles = enabled; }
    // Drops the kept page images and page counts (File > New, a window that closes).
    void forgetPages();

signals:
    // A rectangle was drawn on the page: in crop coordinates (points, y up on the page as shown).
    void rectangleDrawn(const QRectF &rect);
    // The refreshed image is shown.
    void previewShown();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    struct Cache;
    void placeImageView();
    void setImage(const QImage &image);
    void showPageLabel();
    void readPageCount(const QString &path);
    // A point of the image view (widget pixels) in crop coordinates of the page shown.
    std::optional<QPointF> pagePoint(QPoint pos) const;

    QWidget *m_visibleArea;
    PreviewImageView *m_imageView;
    QLabel *m_labelPage;
    QPushButton *m_previous;
    QPushButton *m_next;
    QPushButton *m_zoomIn;
    QPushButton *m_zoomOut;
    QPushButton *m_resetZoom;
    ZoomAndPan m_view;
    QString m_currentPDF;
    qint64 m_currentPreviewPage = 1;
    QImage m_image;
    std::optional<PageGeometry> m_geometry;
    QTimer m_timer;
    DrawingSource m_drawingSource;
    int m_refreshes = 0;
    quint64 m_generation = 0;
    bool m_drawRectangles = false;
    bool m_spaceHeld = false;
    QPoint m_lastDrag;
    std::optional<QPointF> m_rectangleStart;
    std::shared_ptr<Cache> m_cache;
    QHash<QString, qint64> m_pageCounts; // read once per document; 0 while being read
    QThreadPool m_pool;
};
