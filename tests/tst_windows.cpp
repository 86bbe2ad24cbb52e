// The preview pane, and the Crop, Watermark and Edit PDF Properties windows, offscreen with
// scripted alerts: their controls, their previews, and whole runs to files on disk.

#include "app/documentlist.h"
#include "app/stepper.h"
#include "app/viewcontrollercrop.h"
#include "app/viewcontrollerproperties.h"
#include "app/viewcontrollerwatermark.h"
#include "engine/pdftools.h"
#include "jobs/profiles.h"
#include "preview/previewpane.h"
#include "scriptedalerts.h"
#include "testpdf.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QSlider>
#include <QStandardPaths>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

using Naming::OverwriteAnswer;
using TestPdf::row;

Q_DECLARE_METATYPE(ZoomAndPan)

namespace {

template <typename T = QWidget> T *child(QObject *window, const char *name)
{
    T *found = window->findChild<T *>(QString::fromLatin1(name));
    if (!found) {
        qFatal("no control %s", name);
    }
    return found;
}

void click(QObject *window, const char *button)
{
    QTest::mouseClick(child<QPushButton>(window, button), Qt::LeftButton);
}

ZoomAndPan fitted(double width, double height)
{
    return ZoomAndPan{0, 0, width, height, width, height};
}

} // namespace

class TestWindows : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void zoomAndPan_data();
    void zoomAndPan();
    void paneRefreshes();
    void cropControls();
    void cropRuns();
    void watermarkControls();
    void watermarkRuns();
    void propertiesLabelsAndTable();
    void propertiesRunsAndUndo();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    QString document(const QString &name, int pages = 1)
    {
        TestPdf::write(path(name), TestPdf::pages(pages, QFileInfo(name).completeBaseName()));
        return path(name);
    }
    DocumentList &list(QWidget &window, const QStringList &documents)
    {
        auto *documentList = window.findChild<DocumentList *>();
        m_alerts.pdfPanels << documents;
        documentList->OnAddPDFDocument();
        m_alerts.log.clear();
        return *documentList;
    }
    void waitForRun(ToolWindow &window)
    {
        QSignalSpy finished(&window, &ToolWindow::runFinished);
        QVERIFY(window.isRunning());
        QVERIFY(finished.wait(20000));
    }

    std::optional<QTemporaryDir> m_dir;
    ScriptedAlerts m_alerts;
};

void TestWindows::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestWindows::init()
{
    m_dir.emplace();
    m_alerts = ScriptedAlerts();
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_dir->filePath("settings"));
}

void TestWindows::zoomAndPan_data()
{
    // From a frame (x, y, iw, ih) over a visible area of 100 x 80, steps of zoom (+ in, - out,
    // 0 reset) and pan (pdx,dy), between blanks; the frame afterwards.
    QTest::addColumn<ZoomAndPan>("start");
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QRectF>("frame");
    const ZoomAndPan fit = fitted(100, 80);
    const ZoomAndPan twice{-50, -40, 200, 160, 100, 80};
    // clang-format off
    row("24 steps in stay below 10 x", fit, QString("+ ").repeated(24), QRectF());
    row("the 25th step is exactly 10 x", fit, QString("+ ").repeated(25), QRectF(-450, -360, 1000, 800));
    row("out from 1.05 x: the fitted size", ZoomAndPan{-2.5, -2, 105, 84, 100, 80}, "-",
        QRectF(0, 0, 100, 80));
    row("out at the fitted size stays there", fit, "-", QRectF(0, 0, 100, 80));
    row("reset", twice, "0", QRectF(0, 0, 100, 80));
    row("a pan within bounds", twice, "p10,5", QRectF(-40, -45, 200, 160));
    row("a pan that overshoots x moves y only", twice, "p60,5", QRectF(-50, -45, 200, 160));
    row("a pan that overshoots y moves x only", twice, "p-10,-50", QRectF(-60, -40, 200, 160));
    row("no pan at the fitted size", fit, "p5,5", QRectF(0, 0, 100, 80));
    row("zoomed to a corner, out keeps covering", ZoomAndPan{-100, -80, 200, 160, 100, 80}, "-",
        QRectF(-80, -64, 180, 144));
    // clang-format on
}

void TestWindows::zoomAndPan()
{
    QFETCH(ZoomAndPan, start);
    QFETCH(QString, steps);
    QFETCH(QRectF, frame);
    ZoomAndPan view = start;
    for (const QString &step : steps.split(' ', Qt::SkipEmptyParts)) {
        if (step == "+") {
            view.zoom(1.1);
        } else if (step == "-") {
            view.zoom(0.9);
        } else if (step == "0") {
            view.resetZoom();
        } else {
            const QStringList d = step.mid(1).split(',');
            view.pan(d[0].toDouble(), d[1].toDouble());
        }
    }
    if (frame.isNull()) {
        QVERIFY(view.iw < 10 * view.cw && view.iw > 9.8 * view.cw);
        return;
    }
    QCOMPARE(QRectF(view.x, view.y, view.iw, view.ih), frame);
}

void TestWindows::paneRefreshes()
{
    // A burst of changes gives one refresh half a second after the last; no document shows the
    // empty image at once; Next stops at the last page; the zoom survives a page change.
    TestPdf::Document three = TestPdf::pages(3);
    TestPdf::write(path("a.pdf"), three);
    PreviewPane pane;
    pane.resize(400, 500);
    pane.show();
    int drawn = 0;
    pane.setDrawingSource([&drawn]() -> PreviewPane::Drawing {
        ++drawn;
        return [](const QImage &page, const PageGeometry &) { return page; };
    });
    pane.showDocument(path("a.pdf"));
    QTRY_COMPARE(pane.refreshCount(), 1);
    QTRY_VERIFY(!pane.image().isNull());
    QCOMPARE(pane.image().size(), QSize(2448, 3168));
    for (int i = 0; i < 3; ++i) {
        pane.SchedulePreviewUpdate();
        QTest::qWait(100);
    }
    QCOMPARE(pane.refreshCount(), 1);
    QTRY_COMPARE(pane.refreshCount(), 2);
    pane.OnZoomIn();
    const ZoomAndPan zoomed = pane.zoomAndPan();
    for (int i = 0; i < 4; ++i) {
        pane.OnNextPage();
    }
    QCOMPARE(pane.currentPreviewPage(), 3);
    QCOMPARE(child<QLabel>(&pane, "labelPage")->text(), QStringLiteral("3"));
    QTRY_COMPARE(pane.refreshCount(), 3);
    QCOMPARE(pane.zoomAndPan().iw, zoomed.iw);
    pane.OnPreviousPage();
    QCOMPARE(pane.currentPreviewPage(), 2);

    pane.showDocument(QString());
    QVERIFY(pane.image().isNull());
    QCOMPARE(pane.currentPreviewPage(), 1);
    QVERIFY(!pane.refreshPending());
    pane.OnNextPage(); // no document: nothing
    QCOMPARE(pane.currentPreviewPage(), 1);
}

void TestWindows::cropControls()
{
    TestPdf::Document document = TestPdf::pages(2);
    TestPdf::write(path("a.pdf"), document);
    ViewControllerCrop window(m_alerts);
    DocumentList &documents = list(window, {path("a.pdf")});
    auto *width = child<QLineEdit>(&window, "textFieldWidth");
    auto *stepper = child<Stepper>(&window, "stepperWidth");
    auto *pages = child<QLineEdit>(&window, "textFieldPagesIntervals");
    // Defaults.
    QCOMPARE(child<QComboBox>(&window, "comboDefineUsing")->currentText(),
             QStringLiteral("Points"));
    QCOMPARE(child<QLineEdit>(&window, "textFieldNames")->text(),
             QStringLiteral("[FileName]_Cropped"));
    QVERIFY(!pages->isEnabled());
    // A field sets its stepper; a stepper writes its field as a whole number.
    width->clear();
    QTest::keyClicks(width, "150.6");
    QCOMPARE(stepper->value(), 150.6f);
    stepper->stepUp();
    QCOMPARE(width->text(), QStringLiteral("152"));
    // The page-interval field follows its box, also when the window is enabled again.
    child<QCheckBox>(&window, "checkPagesIntervals")->setChecked(true);
    QVERIFY(pages->isEnabled());
    child<QCheckBox>(&window, "checkPagesIntervals")->setChecked(false);
    QVERIFY(!pages->isEnabled());

    // The unit changes the values against the previewed page: the rectangle stays put.
    documents.selectRow(0);
    QTRY_VERIFY(window.preview().pageGeometry().has_value());
    for (const char *name :
         {"textFieldOriginX", "textFieldOriginY", "textFieldWidth", "textFieldHeight"}) {
        child<QLineEdit>(&window, name)->setText("306");
    }
    auto *unit = child<QComboBox>(&window, "comboDefineUsing");
    unit->setCurrentIndex(0);
    window.OnDefineUsingChanged();
    QCOMPARE(child<QLineEdit>(&window, "textFieldOriginX")->text(), QStringLiteral("50"));
    QCOMPARE(child<QLineEdit>(&window, "textFieldOriginY")->text(), QStringLiteral("38.63636"));
    const Jobs::CropSettings settings = window.settings();
    QCOMPARE(settings.unit, Jobs::CropUnit::Percents);

    // A rectangle drawn on the page sets the four values in the unit shown.
    unit->setCurrentIndex(1);
    window.OnDefineUsingChanged();
    window.OnRectangleDrawn(QRectF(100, 200, 300, 400));
    QCOMPARE(window.settings().originX, 100.0);
    QCOMPARE(window.settings().height, 400.0);

    // A profile keeps the settings, not the folder, and says what it does not know.
    m_alerts.folders << m_dir->path();
    click(&window, "buttonBrowse");
    m_alerts.saveFiles << path("crop.json");
    child<QAction>(&window, "actionSaveProfileAs")->trigger();
    QVERIFY(!TestPdf::contents(path("crop.json")).contains("folder"));
    child<QAction>(&window, "actionNew")->trigger();
    QCOMPARE(window.settings().width, 0.0);
    QByteArray json = TestPdf::contents(path("crop.json"));
    json.replace("\"width\"", "\"futureSetting\": 1, \"width\"");
    TestPdf::writeBytes(path("crop.json"), json);
    m_alerts.openFiles << path("crop.json");
    m_alerts.log.clear();
    child<QAction>(&window, "actionLoadProfile")->trigger();
    QCOMPARE(window.settings().originY, 200.0);
    QVERIFY2(m_alerts.log.last().contains("futureSetting"), qPrintable(m_alerts.log.join('\n')));
}

void TestWindows::cropRuns()
{
    // Two documents cropped into their own folder under "[FileName]", "Yes to All": both cropped
    // in place, and no other file.
    TestPdf::write(path("a.pdf"), TestPdf::pages(2, "a"));
    TestPdf::write(path("b.pdf"), TestPdf::pages(1, "b"));
    ViewControllerCrop window(m_alerts);
    list(window, {path("a.pdf"), path("b.pdf")});
    Jobs::CropSettings settings;
    settings.width = 200;
    settings.height = 100;
    settings.nameTemplate = "[FileName]";
    settings.folder = m_dir->path();
    window.setSettings(settings);
    m_alerts.answers << OverwriteAnswer::YesToAll;
    click(&window, "buttonCropPDFDocuments");
    waitForRun(window);
    QCOMPARE(
        m_alerts.log,
        (QStringList{"ask|" + path("a.pdf"), "message|PDF document(s) cropped successfully."}));
    QCOMPARE(TestPdf::files(m_dir->path()).filter(".pdf"), (QStringList{"a.pdf", "b.pdf"}));
    for (const char *name : {"a.pdf", "b.pdf"}) {
        for (const auto &page : TestPdf::read(path(name)).pages) {
            QCOMPARE(page.mediaBox, QRectF(0, 0, 200, 100));
        }
    }
    // The only document into itself is refused, after the question.
    ViewControllerCrop one(m_alerts);
    list(one, {path("b.pdf")});
    one.setSettings(settings);
    m_alerts.answers << OverwriteAnswer::Yes;
    click(&one, "buttonCropPDFDocuments");
    waitForRun(one);
    QCOMPARE(m_alerts.log.last(), QStringLiteral("message|Could not crop PDF document(s)."));
}

void TestWindows::watermarkControls()
{
    ViewControllerWatermark window(m_alerts);
    // Defaults, and the lists.
    Jobs::WatermarkSettings defaults;
    defaults.folder.clear();
    QCOMPARE(Jobs::Profiles::toJson(window.settings()), Jobs::Profiles::toJson(defaults));
    QCOMPARE(child<QComboBox>(&window, "comboFont")->count(), 20);
    QCOMPARE(child<QComboBox>(&window, "comboImagePosition")->itemText(4),
             QStringLiteral("Center"));
    // The resets touch their own tab only.
    child<QLineEdit>(&window, "textFieldText")->setText("Draft");
    child<QLineEdit>(&window, "textFieldImage")->setText("/logo.png");
    child<QLineEdit>(&window, "textFieldNames")->setText("x");
    click(&window, "buttonTextReset");
    QCOMPARE(window.settings().text, defaults.text);
    QCOMPARE(window.settings().image, QStringLiteral("/logo.png"));
    child<QLineEdit>(&window, "textFieldText")->setText("Draft");
    click(&window, "buttonImageReset");
    QCOMPARE(window.settings().image, QString());
    QCOMPARE(window.settings().text, QStringLiteral("Draft"));
    QCOMPARE(window.settings().nameTemplate, QStringLiteral("x"));
    // Steppers write whole numbers; a change on either tab refreshes the preview.
    child<Stepper>(&window, "stepperSize")->stepUp();
    QCOMPARE(child<QLineEdit>(&window, "textFieldSize")->text(), QStringLiteral("31"));
    QVERIFY(window.preview().refreshPending());
    QTRY_VERIFY(!window.preview().refreshPending());
    child<QSlider>(&window, "sliderRotate")->setValue(45);
    QVERIFY(window.preview().refreshPending());
    // The colour chooser's colour is the one the settings carry.
    m_alerts.colors << QColor(Qt::red);
    click(&window, "colorWellColor");
    QCOMPARE(window.settings().color, QStringLiteral("#ff0000"));
    m_alerts.colors << QColor(); // cancelled
    click(&window, "colorWellColor");
    QCOMPARE(window.settings().color, QStringLiteral("#ff0000"));
}

void TestWindows::watermarkRuns()
{
    // A picture that cannot be read stops the run with the failure message; without it, every
    // page is stamped.
    document("a.pdf", 2);
    ViewControllerWatermark window(m_alerts);
    list(window, {path("a.pdf")});
    m_alerts.folders << m_dir->path();
    click(&window, "buttonBrowse");
    child<QLineEdit>(&window, "textFieldImage")->setText(path("missing.png"));
    click(&window, "buttonWatermarkPDFDocuments");
    QVERIFY(m_alerts.log.last().startsWith("message|Could not watermark PDF document(s)."));
    QVERIFY(!QFileInfo::exists(path("a_Watermarked.pdf")));
    child<QLineEdit>(&window, "textFieldImage")->clear();
    click(&window, "buttonWatermarkPDFDocuments");
    waitForRun(window);
    QCOMPARE(m_alerts.log.last(),
             QStringLiteral("message|PDF document(s) watermarked successfully."));
    for (const auto &page : TestPdf::read(path("a_Watermarked.pdf")).pages) {
        QCOMPARE(page.images.size(), 1);
    }
}

void TestWindows::propertiesLabelsAndTable()
{
    // The labels show the selected document's values and what the engine will write, also
    // where the engine and a plain reading of the templates disagree.
    TestPdf::Document report = TestPdf::pages(1);
    report.title = "Sales";
    report.keywords = "Finance, 2019";
    report.author = "[FileName]"; // a present value that holds a placeholder
    TestPdf::write(path("Q3 Report.pdf"), report);
    ViewControllerProperties window(m_alerts);
    DocumentList &documents = list(window, {path("Q3 Report.pdf")});
    documents.selectRow(0);
    const auto label = [&](const char *name) { return child<QLabel>(&window, name)->text(); };
    QTRY_COMPARE(label("labelOriginalTitle"), QStringLiteral("Title: Sales"));
    QCOMPARE(label("labelOutputTitle"), QStringLiteral("Title: Q3 Report"));
    QCOMPARE(label("labelOriginalKeywords"), QStringLiteral("Keywords: Finance, 2019"));
    QCOMPARE(label("labelOutputAuthor"), QStringLiteral("Author: Q3 Report"));
    QCOMPARE(child<QLabel>(&window, "labelOutputTitle")->toolTip(), label("labelOutputTitle"));
    child<QLineEdit>(&window, "textFieldTitle")->setText("[FileName] - [Original]");
    child<QLineEdit>(&window, "textFieldKeywords")->setText("[Original] draft x[Original]");
    QCOMPARE(label("labelOutputTitle"), QStringLiteral("Title: Q3 Report - Sales"));
    QCOMPARE(label("labelOutputKeywords"),
             QStringLiteral("Keywords: Finance, 2019, draft, x[Original]"));
    // The table: one row a document, "before → after" where the run changes something.
    auto *table = child<QTableWidget>(&window, "tablePropertiesPreview");
    QTRY_COMPARE(table->item(0, 1)->text(), QStringLiteral("Sales → Q3 Report - Sales"));
    QVERIFY(table->item(0, 1)->font().bold());
    QVERIFY(!table->item(0, 3)->font().bold());
    // The list's commands empty the labels.
    documents.OnRemoveSelected();
    QCOMPARE(label("labelOriginalTitle"), QStringLiteral("Title: "));
    QCOMPARE(label("labelOutputKeywords"), QStringLiteral("Keywords: "));
}

void TestWindows::propertiesRunsAndUndo()
{
    TestPdf::write(path("a.pdf"), TestPdf::pages(1, "a"));
    TestPdf::write(path("readonly.pdf"), TestPdf::pages(1, "r"));
    QFile::setPermissions(path("readonly.pdf"), QFileDevice::ReadOwner);
    const QByteArray before = TestPdf::contents(path("a.pdf"));
    ViewControllerProperties window(m_alerts);
    DocumentList &documents = list(window, {path("readonly.pdf"), path("a.pdf")});
    documents.selectRow(int(documents.listPdfPaths().indexOf(path("a.pdf"))));
    QTRY_COMPARE(child<QLabel>(&window, "labelOutputTitle")->text(), QStringLiteral("Title: a"));
    const QString warning = QString("yesno|") + ViewControllerProperties::WarningText;
    // Ticked and answered "No": nothing happens, and no later run asks.
    m_alerts.yesNo << false;
    m_alerts.checkBoxes << true;
    click(&window, "buttonUpdateProperties");
    QCOMPARE(m_alerts.log, QStringList{warning});
    QCOMPARE(QSettings().value(ViewControllerProperties::ShowWarningMessage).toString(),
             QStringLiteral("No"));
    child<QLineEdit>(&window, "textFieldAuthor")->setText("Bo");
    click(&window, "buttonUpdateProperties");
    waitForRun(window);
    // One document that cannot be saved does not stop the other.
    QCOMPARE(m_alerts.log.last(),
             QStringLiteral("message|Could not update PDF document(s) properties."));
    QCOMPARE(TestPdf::read(path("a.pdf")).author, QStringLiteral("Bo"));
    // The labels show the values from before the run.
    QCOMPARE(child<QLabel>(&window, "labelOriginalAuthor")->text(), QStringLiteral("Author: "));
    // Undo puts the document back byte for byte.
    QVERIFY(child<QPushButton>(&window, "buttonUndo")->isEnabled());
    click(&window, "buttonUndo");
    QCOMPARE(TestPdf::contents(path("a.pdf")), before);
    QVERIFY(m_alerts.log.last().startsWith("message|1 document(s) put back"));
    QVERIFY(!child<QPushButton>(&window, "buttonUndo")->isEnabled());

    // A deleted setting shows the warning again; a document changed after the run is left
    // alone by Undo.
    QSettings().remove(ViewControllerProperties::ShowWarningMessage);
    documents.selectRows({int(documents.listPdfPaths().indexOf(path("readonly.pdf")))});
    documents.OnRemoveSelected();
    m_alerts.yesNo << true;
    m_alerts.checkBoxes << false;
    click(&window, "buttonUpdateProperties");
    waitForRun(window);
    QVERIFY(m_alerts.log.contains(warning));
    QTest::qWait(20);
    TestPdf::write(path("a.pdf"), TestPdf::pages(2, "changed"));
    click(&window, "buttonUndo");
    QVERIFY2(m_alerts.log.last().contains("left as they are:\n" + path("a.pdf")),
             qPrintable(m_alerts.log.last()));
    QCOMPARE(TestPdf::read(path("a.pdf")).pages.size(), 2);
}

QTEST_MAIN(TestWindows)
#include "tst_windows.moc"
