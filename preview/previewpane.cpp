#include "previewpane.h"

#include "drawing/pagetransforms.h"
#include "engine/pdftools.h"
#include "imagetools.h"

#include <QBoxLayout>
#include <QHash>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QWheelEvent>

#include <cmath>
#include <list>
#include <mutex>

PreviewImageView::PreviewImageView(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("imageViewPDFPreview"));
    setAttribute(Qt::WA_OpaquePaintEvent, false);
}

void PreviewImageView::setImage(const QImage &image)
{
    m_image = image;
    m_halvings.clear();
    m_scaled = QImage();
    update();
}

QRectF PreviewImageView::imageRect() const
{
    if (m_image.isNull()) {
        return {};
    }
    QSizeF size = m_image.size();
    size.scale(QSizeF(this->size()), Qt::KeepAspectRatio);
    return QRectF(QPointF((width() - size.width()) / 2, (height() - size.height()) / 2), size);
}

void PreviewImageView::setSelection(const QRectF &selection)
{
    m_selection = selection;
    update();
}

const QImage &PreviewImageView::imageFor(QSize deviceSize)
{
    // Enlarged, or one to one: the image itself, smoothly filtered.
    if (deviceSize.width() >= m_image.width() || deviceSize.isEmpty()) {
        return m_image;
    }
    // Shrunk: every device pixel the average of the image pixels it covers. Drawn straight
    // from a page image many times larger, bilinear filtering reads four pixels for each one
    // drawn, and thin lines and small text come out broken. The image is averaged down to the
    // screen's pixels once for each size shown, from its last halving still as large (zooming
    // in steps stays quick).
    if (m_scaled.size() != deviceSize) {
        const QImage *source = &m_image;
        for (std::size_t level = 0; source->width() / 2 >= deviceSize.width(); ++level) {
            if (level == m_halvings.size()) {
                m_halvings.push_back(source->scaled(source->width() / 2,
                                                    std::max(source->height() / 2, 1),
                                                    Qt::IgnoreAspectRatio,
                                                    Qt::SmoothTransformation));
            }
            source = &m_halvings[level];
        }
        m_scaled = source->scaled(deviceSize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    return m_scaled;
}

void PreviewImageView::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    painter.fillRect(event->rect(), palette().color(QPalette::Dark));
    if (!m_image.isNull()) {
        // Device pixels: on a dense screen (a device pixel ratio of 2) the page is drawn from
        // twice the pixels.
        const QRectF target = imageRect();
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        const QSize device = (target.size() * devicePixelRatioF()).toSize();
        painter.drawImage(target, imageFor(device));
    }
    if (!m_selection.isEmpty()) {
        painter.setPen(QPen(palette().color(QPalette::Highlight), 1, Qt::DashLine));
        painter.drawRect(m_selection);
    }
}

namespace {

// How many page images the pane keeps (some 31 MB each for a letter page).
constexpr int KeptPages = 4;

} // namespace

// Page images and geometries, made and read on the pane's thread only.
struct PreviewPane::Cache
{
    struct Page
    {
        QString path;
        qint64 number;
        QImage image;
        PageGeometry geometry;
    };
    std::mutex mutex;
    std::list<Page> pages; // the one used last first

    // The image and geometry of a page, made when not kept; nothing when the document does not
    // open or has no such page.
    std::optional<Page> page(const QString &path, qint64 number)
    {
        {
            std::lock_guard lock(mutex);
            for (auto it = pages.begin(); it != pages.end(); ++it) {
                if (it->path == path && it->number == number) {
                    pages.splice(pages.begin(), pages, it);
                    return pages.front();
                }
            }
        }
        const auto geometry = PDFTools::GetPDFPageGeometry(path, number);
        if (!geometry) {
            return std::nullopt;
        }
        QImage image = ImageTools::PDFPageToImageWithPdfPath(path, number - 1);
        if (image.isNull()) {
            return std::nullopt;
        }
        std::lock_guard lock(mutex);
        pages.push_front({path, number, image, *geometry});
        while (pages.size() > KeptPages) {
            pages.pop_back();
        }
        return pages.front();
    }

    void clear()
    {
        std::lock_guard lock(mutex);
        pages.clear();
    }
};

void ZoomAndPan::zoom(double factor)
{
    const double ow = iw;
    const double oh = ih;
    const double r = iw / cw * factor;
    if (r < 1.0) {
        iw = cw;
        ih = ch;
    } else if (r > 10.0) {
        iw = 10 * cw;
        ih = 10 * ch;
    } else {
        iw *= factor;
        ih *= factor;
    }
    // The centre stays in place.
    x -= (iw - ow) / 2;
    y -= (ih - oh) / 2;
    RepositionImageInVisibleArea();
}

void ZoomAndPan::resetZoom()
{
    iw = cw;
    ih = ch;
    RepositionImageInVisibleArea();
}

void ZoomAndPan::RepositionImageInVisibleArea()
{
    if (cw - iw > x) {
        x = cw - iw;
    }
    if (x > 0) {
        x = 0;
    }
    if (ch - ih > y) {
        y = ch - ih;
    }
    if (y > 0) {
        y = 0;
    }
}

void ZoomAndPan::pan(double deltaX, double deltaY)
{
    const double nx = x + deltaX;
    if (cw - iw <= nx && nx <= 0) {
        x = nx;
    }
    // Pointer events report a downward move as a positive deltaY; the frame's y grows upward.
    const double ny = y - deltaY;
    if (ch - ih <= ny && ny <= 0) {
        y = ny;
    }
}

void ZoomAndPan::resizeVisibleArea(double width, double height)
{
    const double zoomLevel = iw / cw;
    x *= width / cw;
    y *= height / ch;
    cw = width;
    ch = height;
    iw = zoomLevel * cw;
    ih = zoomLevel * ch;
    RepositionImageInVisibleArea();
}

PreviewPane::PreviewPane(QWidget *parent)
    : QFrame(parent)
    , m_cache(std::make_shared<Cache>())
{
    setObjectName(QStringLiteral("boxImage"));
    setFrameShape(QFrame::StyledPanel);
    // Renders go one at a time: the page renderer serialises them anyway.
    m_pool.setMaxThreadCount(1);

    m_visibleArea = new QWidget(this);
    m_visibleArea->setObjectName(QStringLiteral("customViewPDFPreview"));
    m_visibleArea->setMinimumSize(160, 160);
    m_visibleArea->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    m_visibleArea->setAutoFillBackground(true);
    m_visibleArea->setBackgroundRole(QPalette::Dark);
    m_imageView = new PreviewImageView(m_visibleArea);
    m_imageView->setFocusPolicy(Qt::ClickFocus);
    m_imageView->installEventFilter(this);
    m_visibleArea->installEventFilter(this);

    const auto button = [this](const char *name, const QString &text, const QString &tip) {
        auto *b = new QPushButton(text, this);
        b->setObjectName(QLatin1String(name));
        b->setToolTip(tip);
        b->setAutoDefault(false);
        return b;
    };
    m_previous = button("buttonPreviousPage", QStringLiteral("◀"), tr("Previous page"));
    m_next = button("buttonNextPage", QStringLiteral("▶"), tr("Next page"));
    m_zoomOut = button("buttonZoomOut", QStringLiteral("−"), tr("Zoom out"));
    m_zoomIn = button("buttonZoomIn", QStringLiteral("+"), tr("Zoom in (Ctrl+wheel)"));
    m_resetZoom = button("buttonResetZoom", tr("Fit"), tr("Show the whole page"));
    m_labelPage = new QLabel(this);
    m_labelPage->setObjectName(QStringLiteral("labelPage"));
    m_labelPage->setAlignment(Qt::AlignCenter);
    m_labelPage->setMinimumWidth(
        m_labelPage->fontMetrics().horizontalAdvance(QStringLiteral("00000")));

    auto *bar = new QHBoxLayout;
    bar->addWidget(m_previous);
    bar->addWidget(m_labelPage);
    bar->addWidget(m_next);
    bar->addStretch(1);
    bar->addWidget(m_zoomOut);
    bar->addWidget(m_zoomIn);
    bar->addWidget(m_resetZoom);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_visibleArea, 1);
    layout->addLayout(bar);

    connect(m_previous, &QPushButton::clicked, this, &PreviewPane::OnPreviousPage);
    connect(m_next, &QPushButton::clicked, this, &PreviewPane::OnNextPage);
    connect(m_zoomIn, &QPushButton::clicked, this, &PreviewPane::OnZoomIn);
    connect(m_zoomOut, &QPushButton::clicked, this, &PreviewPane::OnZoomOut);
    connect(m_resetZoom, &QPushButton::clicked, this, &PreviewPane::OnResetZoom);

    m_timer.setSingleShot(true);
    m_timer.setInterval(500);
    connect(&m_timer, &QTimer::timeout, this, &PreviewPane::UpdatePreview);
    reset();
}

PreviewPane::~PreviewPane()
{
    m_pool.clear();
    m_pool.waitForDone();
}

QList<QWidget *> PreviewPane::controls() const
{
    return {m_zoomIn, m_zoomOut, m_resetZoom, m_previous, m_next};
}

void PreviewPane::reset()
{
    m_timer.stop();
    m_currentPDF.clear();
    m_currentPreviewPage = 1;
    showPageLabel();
    setImage(QImage());
}

void PreviewPane::clearPreview()
{
    m_timer.stop();
    m_currentPDF.clear();
    setImage(QImage());
    m_labelPage->setText(QStringLiteral("1"));
    m_currentPreviewPage = 0;
}

void PreviewPane::showDocument(const QString &path)
{
    m_currentPreviewPage = 1;
    showPageLabel();
    if (path.isEmpty()) {
        m_timer.stop();
        m_currentPDF.clear();
        ++m_generation; // a refresh under way is not shown
        setImage(QImage());
        return;
    }
    m_currentPDF = path;
    readPageCount(path);
    SchedulePreviewUpdate();
}

void PreviewPane::readPageCount(const QString &path)
{
    if (m_pageCounts.contains(path)) {
        return;
    }
    m_pageCounts.insert(path, 0); // being read
    const QPointer<PreviewPane> self(this);
    m_pool.start([self, path] {
        const qint64 pages = PDFTools::GetPDFNumberOfPages(path);
        QMetaObject::invokeMethod(
            self,
            [self, path, pages] { self->m_pageCounts.insert(path, pages); },
            Qt::QueuedConnection);
    });
}

void PreviewPane::showPageLabel()
{
    m_labelPage->setText(QString::number(m_currentPreviewPage));
}

void PreviewPane::OnPreviousPage()
{
    if (m_currentPreviewPage >= 2) {
        --m_currentPreviewPage;
        showPageLabel();
        SchedulePreviewUpdate();
    }
}

void PreviewPane::OnNextPage()
{
    if (m_currentPDF.isEmpty()) {
        return;
    }
    // The count was read once, off this thread; until it is in, or when the document does not
    // open, Next does nothing.
    const qint64 pages = m_pageCounts.value(m_currentPDF);
    if (pages <= 0) {
        return;
    }
    const bool changed = m_currentPreviewPage < pages;
    if (changed) {
        ++m_currentPreviewPage;
    }
    showPageLabel();
    if (changed) {
        SchedulePreviewUpdate();
    }
}

void PreviewPane::OnZoomIn()
{
    m_view.zoom(1.1);
    placeImageView();
}

void PreviewPane::OnZoomOut()
{
    m_view.zoom(0.9);
    placeImageView();
}

void PreviewPane::OnResetZoom()
{
    m_view.resetZoom();
    placeImageView();
}

void PreviewPane::SchedulePreviewUpdate()
{
    m_timer.start(); // a pending refresh is replaced: one refresh after the last change
}

void PreviewPane::UpdatePreview()
{
    if (m_currentPDF.isEmpty() || !m_drawingSource) {
        return;
    }
    Drawing drawing = m_drawingSource();
    if (!drawing) {
        return;
    }
    ++m_refreshes;
    const quint64 generation = ++m_generation;
    const QPointer<PreviewPane> self(this);
    const auto cache = m_cache;
    const QString path = m_currentPDF;
    const qint64 number = m_currentPreviewPage;
    m_pool.start([self, cache, path, number, drawing, generation] {
        const auto page = cache->page(path, number);
        if (!page) {
            return; // the image view keeps what it shows
        }
        const QImage image = drawing(page->image, page->geometry);
        if (image.isNull()) {
            return; // nothing to show for this page: the image view keeps what it shows
        }
        const PageGeometry geometry = page->geometry;
        QMetaObject::invokeMethod(
            self,
            [self, image, geometry, generation] {
                // An older refresh that ends after a newer one is not shown.
                if (generation != self->m_generation) {
                    return;
                }
                self->m_geometry = geometry;
                self->setImage(image);
                emit self->previewShown();
            },
            Qt::QueuedConnection);
    });
}

void PreviewPane::forgetPages()
{
    m_pageCounts.clear();
    const auto cache = m_cache;
    m_pool.start([cache] { cache->clear(); });
}

void PreviewPane::setImage(const QImage &image)
{
    m_image = image;
    m_imageView->setImage(image);
}

void PreviewPane::resizeEvent(QResizeEvent *event)
{
    QFrame::resizeEvent(event);
    placeImageView();
}

void PreviewPane::placeImageView()
{
    const QSize area = m_visibleArea->size();
    if (area.width() != int(m_view.cw) || area.height() != int(m_view.ch)) {
        m_view.resizeVisibleArea(std::max(area.width(), 1), std::max(area.height(), 1));
    }
    // From the arithmetic's bottom-left origin to the widget's top-left one.
    m_imageView->setGeometry(QRect(int(std::lround(m_view.x)),
                                   int(std::lround(m_view.ch - m_view.y - m_view.ih)),
                                   int(std::lround(m_view.iw)),
                                   int(std::lround(m_view.ih))));
}

std::optional<QPointF> PreviewPane::pagePoint(QPoint pos) const
{
    const QRectF shown = m_imageView->imageRect();
    if (!m_geometry || shown.isEmpty() || m_image.isNull()) {
        return std::nullopt;
    }
    // View pixels to image pixels, then to the page as shown.
    const QPointF pixel((pos.x() - shown.x()) * m_image.width() / shown.width(),
                        (pos.y() - shown.y()) * m_image.height() / shown.height());
    const AffineMatrix toImage
        = m_geometry->cropToUser().then(m_geometry->userToImage(ImageTools::Scale));
    return toImage.inverted().map(pixel);
}

bool PreviewPane::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_imageView && watched != m_visibleArea) {
        return QFrame::eventFilter(watched, event);
    }
    switch (event->type()) {
    case QEvent::KeyPress:
    case QEvent::KeyRelease: {
        auto *key = static_cast<QKeyEvent *>(event);
        if (key->key() == Qt::Key_Space && !key->isAutoRepeat()) {
            m_spaceHeld = event->type() == QEvent::KeyPress;
            return true;
        }
        break;
    }
    case QEvent::MouseButtonPress: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        const QPoint pos
            = m_imageView->mapFrom(static_cast<QWidget *>(watched), mouse->position().toPoint());
        m_lastDrag = mouse->globalPosition().toPoint();
        m_rectangleStart.reset();
        if (m_drawRectangles && mouse->button() == Qt::LeftButton && !m_spaceHeld) {
            m_rectangleStart = pos;
        }
        return true;
    }
    case QEvent::MouseMove: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->buttons() == Qt::NoButton) {
            break;
        }
        const QPoint global = mouse->globalPosition().toPoint();
        if (m_rectangleStart) {
            const QPoint pos = m_imageView->mapFromGlobal(global);
            m_imageView->setSelection(QRectF(*m_rectangleStart, QPointF(pos)).normalized());
            return true;
        }
        // Panning: only while the pointer is within the pane.
        if (rect().contains(mapFromGlobal(global))) {
            const QPoint delta = global - m_lastDrag;
            m_view.pan(delta.x(), delta.y());
            placeImageView();
        }
        m_lastDrag = global;
        return true;
    }
    case QEvent::MouseButtonRelease: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (m_rectangleStart) {
            const QPoint end = m_imageView->mapFromGlobal(mouse->globalPosition().toPoint());
            const auto a = pagePoint(m_rectangleStart->toPoint());
            const auto b = pagePoint(end);
            m_rectangleStart.reset();
            m_imageView->setSelection({});
            if (a && b && *a != *b) {
                emit rectangleDrawn(QRectF(*a, *b).normalized());
            }
        }
        return true;
    }
    case QEvent::Wheel: {
        auto *wheel = static_cast<QWheelEvent *>(event);
        if (wheel->modifiers() & Qt::ControlModifier) {
            if (wheel->angleDelta().y() > 0) {
                OnZoomIn();
            } else if (wheel->angleDelta().y() < 0) {
                OnZoomOut();
            }
            return true;
        }
        break;
    }
    default:
        break;
    }
    return QFrame::eventFilter(watched, event);
}
