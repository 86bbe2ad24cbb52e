// The windows as a user drives them: scripted alerts and panels, simulated drops, whole runs to
// the files on disk.

#include "app/documentlist.h"
#include "app/stepper.h"
#include "app/viewcontroller.h"
#include "app/viewcontrollercrop.h"
#include "app/viewcontrollermerge.h"
#include "app/viewcontrollerproperties.h"
#include "app/viewcontrollersplit.h"
#include "app/viewcontrollerwatermark.h"
#include "engine/pdftools.h"
#include "jobs/profiles.h"
#include "scriptedalerts.h"
#include "testpdf.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSpinBox>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <QTimer>

using Naming::OverwriteAnswer;
using TestPdf::row;

namespace {

const QString mergedText = "message|PDF document(s) merged successfully.";
const QString splitText = "message|PDF document(s) split successfully.";

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

// The files of a folder with their markers: "a.pdf=a1 a2; b.pdf=b1".
QString listing(const QString &folder)
{
    QStringList files;
    for (const QString &name : TestPdf::files(folder)) {
        files << name + "=" + TestPdf::read(folder + "/" + name).markers().join(' ');
    }
    return files.join("; ");
}

} // namespace

class TestApp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void init();
    void admitFiles_data();
    void admitFiles();
    void dropPosition_data();
    void dropPosition();
    void listCommands();
    void mergeRuns_data();
    void mergeRuns();
    void mergeBookmarkChoices();
    void splitRuns_data();
    void splitRuns();
    void splitSettingsAndProfiles();
    void windowClosedDuringARun();
    void launcherAndMenus();
    void launcherWithDocuments();
    void tableOfManyDocuments();
    void stoppedRuns_data();
    void stoppedRuns();
    void closingAndEscape();
    void resultsNameFailuresAndFiles();
    void mnemonicsAreUnique();
    void keyboardReachesEveryControl();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    // The paths of the files named by letters: "abC" is a.pdf, b.pdf, C.PDF.
    QStringList paths(const QString &letters) const;
    // A document of n pages with markers "<name>1" ... "<name>n".
    QString document(const QString &name, int pages = 1);
    // Lists the documents in the window, in the order given; the log starts afresh.
    DocumentList &listDocuments(QWidget &window, const QStringList &documents);
    // Chooses the output folder of the Split window through its panel.
    void chooseFolder(QWidget &window, const QString &folder);
    static void waitForRun(ToolWindow &window);

    std::optional<QTemporaryDir> m_dir;
    ScriptedAlerts m_alerts;
};

void TestApp::init()
{
    m_dir.emplace();
    m_alerts = ScriptedAlerts();
}

QString TestApp::document(const QString &name, int pages)
{
    TestPdf::write(path(name), TestPdf::pages(pages, QFileInfo(name).completeBaseName()));
    return path(name);
}

QStringList TestApp::paths(const QString &letters) const
{
    QStringList result;
    for (const QChar letter : letters) {
        result << path(letter + QString(letter.isUpper() ? ".PDF" : ".pdf"));
    }
    return result;
}

DocumentList &TestApp::listDocuments(QWidget &window, const QStringList &documents)
{
    // Dropped below the last row: in the order given (the open panel sorts what it is given).
    auto *list = window.findChild<DocumentList *>();
    QList<QUrl> urls;
    for (const QString &document : documents) {
        urls << QUrl::fromLocalFile(document);
    }
    list->acceptDrop(urls, list->rowCount());
    m_alerts.log.clear();
    return *list;
}

void TestApp::chooseFolder(QWidget &window, const QString &folder)
{
    m_alerts.folders << folder;
    click(&window, "buttonBrowse");
    m_alerts.log.clear();
}

void TestApp::waitForRun(ToolWindow &window)
{
    QSignalSpy finished(&window, &ToolWindow::runFinished);
    QVERIFY(window.isRunning());
    QVERIFY(finished.wait(20000));
}

void TestApp::admitFiles_data()
{
    // a, b and c are listed; files are chosen in the open panel, or dropped above a row. F.PDF
    // has an upper-case extension.
    QTest::addColumn<int>("row");            // -1: the panel; -2: the panel, cancelled
    QTest::addColumn<QStringList>("chosen"); // file names
    QTest::addColumn<QString>("expected");   // the list, by letter
    QTest::addColumn<QString>("message");    // the one alert, if any
    using Files = QStringList;
    const QString rejected = QString::fromLatin1(RejectedDocumentsText);
    // clang-format off
    row("panel cancelled", -2, Files{}, "abc", "");
    row("panel confirmed without a file", -1, Files{}, "abc", "The pdf could not be loaded.");
    row("panel: in natural order, listed files and empty paths skipped",
        -1, Files{"e.pdf", "", "a.pdf", "d.pdf", "e.pdf"}, "abcde", "");
    row("panel: damaged, encrypted and locked files rejected with one alert that names them",
        -1, Files{"d.pdf", "damaged.pdf", "encrypted.pdf", "locked.pdf", "e.pdf"}, "abcde",
        rejected + "\n\ndamaged.pdf: not a PDF document, or damaged\nencrypted.pdf: it is "
        "encrypted\nlocked.pdf: it needs a password to open");
    row("drop: a block above row 1; folder, text, missing and listed files skipped",
        1, Files{"e.pdf", "folder", "F.PDF", "notes.txt", "gone.pdf", "b.pdf", "d.pdf"}, "aeFdbc",
        "");
    row("drop: a damaged file brings the alert after the drop",
        2, Files{"d.pdf", "damaged.pdf", "e.pdf"}, "abdec",
        rejected + "\n\ndamaged.pdf: not a PDF document, or damaged");
    // clang-format on
}

void TestApp::admitFiles()
{
    QFETCH(int, row);
    QFETCH(QStringList, chosen);
    QFETCH(QString, expected);
    QFETCH(QString, message);
    for (const QString &document : paths("abcdeF")) {
        TestPdf::write(document, TestPdf::pages(1));
    }
    TestPdf::writeBytes(path("damaged.pdf"), "%PDF-1.4\nthis is not a document\n");
    TestPdf::writeBytes(path("notes.txt"), "notes\n");
    QDir(m_dir->path()).mkdir("folder");
    auto locked = TestPdf::pages(1);
    locked.encrypt = true;
    TestPdf::write(path("encrypted.pdf"), locked);
    locked.userPassword = true;
    TestPdf::write(path("locked.pdf"), locked);

    ViewControllerSplit window(m_alerts);
    DocumentList &list = listDocuments(window, paths("abc"));
    QStringList files;
    QList<QUrl> urls;
    for (const QString &name : chosen) {
        files << (name.isEmpty() ? QString() : path(name));
        urls << QUrl::fromLocalFile(files.back());
    }
    const QStringList alert = message.isEmpty() ? QStringList{} : QStringList{"message|" + message};
    if (row >= 0) {
        list.acceptDrop(urls, row);
        QCOMPARE(m_alerts.log, QStringList{}); // never inside the drop itself
        QTest::qWait(message.isEmpty() ? 600 : 0);
        QTRY_COMPARE(m_alerts.log, alert);
    } else {
        m_alerts.pdfPanels << (row == -1 ? std::optional(files) : std::nullopt);
        click(&window, "buttonAddPDFDocument");
        QCOMPARE(m_alerts.log, QStringList{"pdfs"} + alert);
    }
    QCOMPARE(list.listPdfPaths(), paths(expected));
}

void TestApp::dropPosition_data()
{
    QTest::addColumn<int>("rowUnderPointer");  // -1: the empty space below the rows
    QTest::addColumn<double>("fractionOfRow"); // 0 the row's top edge, 1 its bottom edge
    QTest::addColumn<QString>("expected");
    row("top edge of row 1: before it", 1, 0.05, "adbc");
    row("bottom edge of row 1: after it", 1, 0.95, "abdc");
    row("onto row 1: refused", 1, 0.5, "abc");
    row("empty space below the rows: at the end", -1, 0.0, "abcd");
}

void TestApp::dropPosition()
{
    QFETCH(int, rowUnderPointer);
    QFETCH(double, fractionOfRow);
    QFETCH(QString, expected);
    for (const char *name : {"a.pdf", "b.pdf", "c.pdf", "d.pdf"}) {
        document(name);
    }
    ViewControllerMerge window(m_alerts);
    window.resize(600, 400);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    listDocuments(window, paths("abc"));

    auto *table = child<PdfTableView>(&window, "tableViewPDF");
    QPoint pos(20, table->viewport()->height() - 5);
    if (rowUnderPointer >= 0) {
        const QRect rect = table->visualRect(table->model()->index(rowUnderPointer, 0));
        pos = QPoint(rect.center().x(), rect.top() + int(fractionOfRow * rect.height()));
    }
    QMimeData mime;
    mime.setUrls({QUrl::fromLocalFile(path("d.pdf"))});
    // A file manager offers to move: the table copies.
    const auto actions = Qt::CopyAction | Qt::MoveAction;
    QDragEnterEvent enter(pos, actions, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(table->viewport(), &enter);
    QVERIFY(enter.isAccepted());
    QCOMPARE(enter.dropAction(), Qt::CopyAction);
    QDragMoveEvent move(pos, actions, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(table->viewport(), &move);
    QDropEvent event(pos, actions, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(table->viewport(), &event);
    QCOMPARE(move.isAccepted(), event.isAccepted());
    QCOMPARE(window.documents().listPdfPaths(), paths(expected));
    if (event.isAccepted()) {
        // A copy: a file manager must never delete the dropped file.
        QCOMPARE(event.dropAction(), Qt::CopyAction);
    }
    // Rows dragged from a table are not files.
    QVERIFY(!PdfTableView::acceptsDrag(&mime, table, nullptr));
}

void TestApp::listCommands()
{
    // The tooltip tells the pages and the file's size, as the file is now.
    TestPdf::Document twelve = TestPdf::pages(12);
    twelve.pages[0].mediaBox = QRectF(0, 0, 595.9, 842.2);
    TestPdf::write(path("a.pdf"), twelve);
    ViewControllerMerge window(m_alerts);
    DocumentList &list = window.documents();
    QSignalSpy cleared(&list, &DocumentList::previewCleared);
    QSignalSpy current(&list, &DocumentList::currentPDFChanged);
    // Nothing to remove: no question, nothing cleared.
    list.OnRemoveAll();
    list.OnRemoveSelected();
    QCOMPARE(cleared.count(), 0);

    listDocuments(window, {path("a.pdf"), document("b.pdf"), document("c.pdf")});
    // The facts are read on a thread of their own; the tooltip shows them once they are in.
    const QString size = PDFTools::FileSizeText(quint64(QFileInfo(path("a.pdf")).size()));
    QTRY_COMPARE(list.data(list.index(0, 0), Qt::ToolTipRole).toString(),
                 "Number of Pages: 12\nFile Size: " + size);
    QCOMPARE(list.tooltipText(PDFTools::SummarizeDocument(path("gone.pdf"))),
             "Number of Pages: 0\nFile Size: 0 B");
    QTest::qWait(1100); // a modification time the file system can tell apart
    TestPdf::write(path("a.pdf"), TestPdf::pages(3, "a"));
    QTRY_VERIFY(
        list.data(list.index(0, 0), Qt::ToolTipRole).toString().startsWith("Number of Pages: 3\n"));
    list.OnTableViewDoubleClick(); // nothing selected, nothing opened
    // A move takes the selection along; at the ends or without a selection nothing moves.
    QString order = "abc";
    const QList<std::tuple<int, const char *, const char *>> moves{{-1, "Down", "abc"},
                                                                   {0, "Up", "abc"},
                                                                   {2, "Down", "abc"},
                                                                   {1, "Up", "bac"},
                                                                   {0, "Down", "abc"}};
    for (const auto &[row, direction, after] : moves) {
        list.selectRow(row);
        const QChar selected = row < 0 ? QChar() : order[row];
        click(&window, QByteArray("buttonMove") + direction);
        order = after;
        QCOMPARE(list.listPdfPaths(), paths(order));
        QCOMPARE(list.selectedRow(), row < 0 ? -1 : int(order.indexOf(selected)));
    }

    list.selectRow(-1);
    list.OnRemoveSelected();
    QCOMPARE(list.listPdfPaths(), paths("abc"));
    QCOMPARE(cleared.count(), 1);
    list.selectRow(0);
    QCOMPARE(current.last().at(0).toString(), path("a.pdf"));
    list.OnTableViewDoubleClick();
    list.OnRemoveSelected();
    QCOMPARE(list.listPdfPaths(), paths("bc"));
    QCOMPARE(cleared.count(), 2);
    QCOMPARE(current.last().at(0).toString(), QString()); // the preview follows: no selection
    m_alerts.yesNo = {false, true};
    list.OnRemoveAll();
    QCOMPARE(list.listPdfPaths(), paths("bc"));
    list.OnRemoveAll();
    QCOMPARE(list.listPdfPaths(), QStringList{});
    QCOMPARE(cleared.count(), 3);
    const QString question
        = "yesno|Are you sure you want to remove all PDF documents from the list?";
    QCOMPARE(
        m_alerts.log,
        (QStringList{"url|" + QUrl::fromLocalFile(path("a.pdf")).toString(), question, question}));
}

void TestApp::mergeRuns_data()
{
    // a.pdf (2 pages), b.pdf and c.pdf (3 pages) listed in that order; the file chosen in the
    // save panel (empty: cancelled); the alerts, the output's pages and the progress shown.
    QTest::addColumn<QString>("listed");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("alerts");
    QTest::addColumn<QString>("markers");
    QTest::addColumn<QList<int>>("progress");
    const QString save = "save|<dir>/document.pdf";
    // clang-format off
    row("in list order, a name without extension", "acb", "out/joined",
        save + " | " + mergedText, "a1 a2 c1 c2 c3 b1", QList{33, 67, 100, 0});
    row("empty list", "", "", "message|Select a document first.", "", QList<int>{});
    row("save panel cancelled", "ab", "", save, "", QList<int>{});
    row("the only document as its own output", "a", "a.pdf",
        save + " | message|Could not merge PDF documents.", "a1 a2", QList<int>{});
    row("one of several documents as output: replaced once read", "ab", "a.pdf",
        save + " | " + mergedText, "a1 a2 b1", QList{50, 100, 0});
    // clang-format on
}

void TestApp::mergeRuns()
{
    QFETCH(QString, listed);
    QFETCH(QString, output);
    QFETCH(QString, alerts);
    QFETCH(QString, markers);
    QFETCH(QList<int>, progress);
    document("a.pdf", 2);
    document("b.pdf");
    document("c.pdf", 3);
    QDir(m_dir->path()).mkdir("out");
    ViewControllerMerge window(m_alerts);
    listDocuments(window, paths(listed));
    m_alerts.saveFiles << (output.isEmpty() ? QString() : path(output));
    QSignalSpy bar(child<QProgressBar>(&window, "progressIndicatorMerge"),
                   &QProgressBar::valueChanged);
    click(&window, "buttonMergePDF");
    if (window.isRunning()) {
        for (const char *name : {"tableViewPDF",
                                 "buttonAddPDF",
                                 "buttonRemoveSelected",
                                 "buttonRemoveAll",
                                 "buttonMoveUp",
                                 "buttonMergePDF"}) {
            QVERIFY2(!child(&window, name)->isEnabled(), name);
        }
        waitForRun(window);
    }
    QVERIFY(child(&window, "buttonMergePDF")->isEnabled());
    QCOMPARE(m_alerts.log.join(" | "), alerts.replace("<dir>", m_dir->path()));
    const QString target = output.endsWith(".pdf") ? output : output + ".pdf";
    QCOMPARE(TestPdf::read(path(target)).markers().join(' '), markers);
    QList<int> shown;
    for (const auto &arguments : bar) {
        shown << arguments.at(0).toInt();
    }
    QCOMPARE(shown, progress);
    QCOMPARE(window.documents().listPdfPaths(), paths(listed)); // the list survives the run
}

void TestApp::mergeBookmarkChoices()
{
    // a.pdf has the bookmark "A" to its page 2; b.pdf has none. Each choice of the pop-up, in
    // its order, and the merged outline.
    TestPdf::Document a = TestPdf::pages(2, "a");
    a.outline = {{1, "A", 1}};
    TestPdf::write(path("a.pdf"), a);
    document("b.pdf");
    ViewControllerMerge window(m_alerts);
    listDocuments(window, paths("ab"));
    auto *choices = child<QComboBox>(&window, "comboBookmarks");
    const QStringList outlines{"A>a2", "a>a1 b>b1", "a>a1+ -A>a2 b>b1", ""};
    QCOMPARE(choices->count(), outlines.size());
    for (int i = 0; i < choices->count(); ++i) {
        choices->setCurrentIndex(i);
        m_alerts.saveFiles << path(QStringLiteral("out%1.pdf").arg(i));
        click(&window, "buttonMergePDF");
        QVERIFY(!choices->isEnabled());
        waitForRun(window);
        QVERIFY(choices->isEnabled());
        QCOMPARE(TestPdf::read(path(QStringLiteral("out%1.pdf").arg(i))).outline.join(' '),
                 outlines[i]);
    }
}

void TestApp::splitRuns_data()
{
    // a.pdf (3 pages, bookmarks "First" to page 1 and "Second" to page 2) and b.pdf (2 pages)
    // are listed ("ab"), b deleted after that ("a"), a alone ("A"), or none is. The folder chosen:
    // out, none, ".", or one deleted after that ("missing"); the listed files of out exist before
    // the run, holding "old1". The fields as typed (empty: left as they are); the alerts in order;
    // the output folder afterwards.
    QTest::addColumn<QString>("listed");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("existing");
    QTest::addColumn<QList<OverwriteAnswer>>("answers");
    QTest::addColumn<QString>("perInterval");
    QTest::addColumn<QString>("expression"); // empty: consecutive runs; "level N": bookmarks
    QTest::addColumn<QString>("names");
    QTest::addColumn<QString>("alerts");
    QTest::addColumn<QString>("files");
    using A = QList<OverwriteAnswer>;
    const QString perInterval = "message|The number of pages per interval must be at least 1. "
                                "Enter a number of pages and split again.";
    // clang-format off
    row("runs of 2 pages, the last shorter", "ab", "out", "", A{}, "2", "",
        "[FileName](Page[IntervalIndex])", splitText,
        "a(Page1).pdf=a1 a2; a(Page2).pdf=a3; b(Page1).pdf=b1 b2");
    row("page intervals, a repeated page twice", "ab", "out", "", A{}, "1", "[1-2],2,2",
        "[FileName]_[IntervalIndex]", splitText,
        "a_1.pdf=a1 a2; a_2.pdf=a2; a_3.pdf=a2; b_1.pdf=b1 b2; b_2.pdf=b2; b_3.pdf=b2");
    row("No to All holds for the next document", "ab", "out", "a(Page2) b(Page1)",
        A{OverwriteAnswer::NoToAll}, "1", "", "", "ask|<out>/a(Page2).pdf | " + splitText,
        "a(Page1).pdf=a1; a(Page2).pdf=old1; a(Page3).pdf=a3; b(Page1).pdf=old1; b(Page2).pdf=b2");
    row("over the listed documents: asked, then written from the originals", "ab", ".", "",
        A{OverwriteAnswer::Yes, OverwriteAnswer::No}, "1", "1", "[FileName]",
        "ask|<a> | ask|<b> | " + splitText, "a.pdf=a1; b.pdf=b1 b2");
    row("empty list", "", "out", "", A{}, "1", "", "", "message|Select a document first.", "");
    row("no folder", "ab", "", "", A{}, "1", "", "", "message|Please select an output folder.", "");
    row("pages per interval below 1", "ab", "out", "", A{}, "0", "", "", perInterval, "");
    row("pages per interval checked in interval mode too", "ab", "out", "", A{}, "", "1", "",
        perInterval, "");
    row("a document without an interval", "ab", "out", "", A{}, "1", "[3-4]", "",
        "message|No page interval of \"[3-4]\" lies within the 2 pages of <b>. Change the page "
        "intervals and split again.", "");
    row("at bookmarks, named after them", "A", "out", "", A{}, "1", "level 1", "", splitText,
        "a - First.pdf=a1; a - Second.pdf=a2 a3");
    row("a document without bookmarks of the level", "ab", "out", "", A{}, "1", "level 1", "",
        "message|The document <b> has no bookmark of level 1 that leads to one of its pages. "
        "Choose another level or another way to split, and split again.", "");
    row("a document deleted after it was listed", "a", "out", "", A{}, "1", "", "",
        "message|The document <b> could not be opened: it was moved, deleted or damaged after "
        "it was added. Remove it from the list and split again.", "");
    row("a folder that is gone", "ab", "missing", "", A{}, "1", "", "",
        "message|The output folder <missing> does not exist. Choose another folder.", "");
    // clang-format on
}

void TestApp::splitRuns()
{
    QFETCH(QString, listed);
    QFETCH(QString, folder);
    QFETCH(QString, existing);
    QFETCH(QList<OverwriteAnswer>, answers);
    QFETCH(QString, perInterval);
    QFETCH(QString, expression);
    QFETCH(QString, names);
    QFETCH(QString, alerts);
    QFETCH(QString, files);
    TestPdf::Document a = TestPdf::pages(3, "a");
    a.outline = {{1, "First", 0}, {1, "Second", 1}};
    TestPdf::write(path("a.pdf"), a);
    const QStringList both{path("a.pdf"), document("b.pdf", 2)};
    QDir(m_dir->path()).mkdir("out");
    QDir(m_dir->path()).mkdir("missing");
    for (const QString &name : existing.split(' ', Qt::SkipEmptyParts)) {
        TestPdf::write(path("out/" + name + ".pdf"), TestPdf::pages(1, "old"));
    }
    ViewControllerSplit window(m_alerts);
    listDocuments(window, listed.isEmpty() ? QStringList() : listed == "A" ? both.mid(0, 1) : both);
    if (listed == "a") {
        QFile::remove(both[1]);
    }
    if (!folder.isEmpty()) {
        chooseFolder(window, folder == "." ? m_dir->path() : path(folder));
    }
    QDir(path("missing")).removeRecursively();
    if (expression.startsWith("level ")) {
        QTest::mouseClick(child<QRadioButton>(&window, "radioBookmarkSplit"), Qt::LeftButton);
        child<QSpinBox>(&window, "spinBookmarkLevel")->setValue(expression.mid(6).toInt());
    } else if (!expression.isEmpty()) {
        QTest::mouseClick(child<QRadioButton>(&window, "radioIntervalSplit"), Qt::LeftButton);
        child<QLineEdit>(&window, "textFieldPagesIntervals")->setText(expression);
    }
    child<QLineEdit>(&window, "textFieldPagesPerInterval")->setText(perInterval);
    if (!names.isEmpty()) {
        child<QLineEdit>(&window, "textFieldNames")->setText(names);
    }
    m_alerts.answers = answers;
    click(&window, "buttonSplitPDFDocuments");
    if (window.isRunning()) {
        QVERIFY(!child(&window, "textFieldNames")->isEnabled());
        QVERIFY(!child<QAction>(&window, "actionNew")->isEnabled());
        QVERIFY(!child<QAction>(&window, "actionLoadProfile")->isEnabled());
        waitForRun(window);
    }
    QVERIFY(child(&window, "textFieldNames")->isEnabled()
            && child(&window, "buttonSplitPDFDocuments")->isEnabled()
            && child<QAction>(&window, "actionNew")->isEnabled());
    alerts.replace("<a>", both[0]).replace("<b>", both[1]);
    alerts.replace("<out>", path("out")).replace("<missing>", path("missing"));
    QCOMPARE(m_alerts.log.join(" | "), alerts);
    QCOMPARE(listing(folder == "." ? m_dir->path() : path("out")), files);
}

void TestApp::splitSettingsAndProfiles()
{
    ViewControllerSplit window(m_alerts);
    const auto trigger = [&](const char *action) { child<QAction>(&window, action)->trigger(); };
    auto *field = child<QLineEdit>(&window, "textFieldPagesPerInterval");
    auto *names = child<QLineEdit>(&window, "textFieldNames");
    auto *intervals = child<QRadioButton>(&window, "radioIntervalSplit");
    // The stepper and the field agree; the field takes whole numbers only.
    child<Stepper>(&window, "stepperPagesPerInterval")->stepUp();
    QCOMPARE(field->text(), QStringLiteral("2"));
    field->clear();
    QTest::keyClicks(field, "x-.0");
    QCOMPARE(field->text(), QStringLiteral("0"));
    // A name typed for intervals stays until the mode changes back.
    intervals->click();
    names->setText("part[IntervalStart]");
    intervals->click();
    QCOMPARE(names->text(), QStringLiteral("part[IntervalStart]"));
    child<QRadioButton>(&window, "radioConsecutivePageSplit")->click();
    QCOMPARE(names->text(), QStringLiteral("[FileName](Page[IntervalIndex])"));
    // At bookmarks, the default names become the bookmarks' titles; the example shows the
    // first piece once the document's outline is read.
    TestPdf::Document a = TestPdf::pages(3, "a");
    a.outline = {{1, "Preface", 0}, {1, "Chapter 1", 1}, {2, "Section 1.1", 2}};
    TestPdf::write(path("a.pdf"), a);
    listDocuments(window, {path("a.pdf")});
    auto *example = child<QLabel>(&window, "labelNamesExample");
    child<QRadioButton>(&window, "radioBookmarkSplit")->click();
    QCOMPARE(names->text(), QStringLiteral("[FileName] - [BookmarkName]"));
    QTRY_COMPARE(example->text(), QStringLiteral("e.g. a - Preface.pdf"));
    child<QSpinBox>(&window, "spinBookmarkLevel")->setValue(2);
    QCOMPARE(example->text(), QStringLiteral("e.g. a - a.pdf"));
    child<QSpinBox>(&window, "spinBookmarkLevel")->setValue(3);
    QCOMPARE(example->text(), QStringLiteral("No file: a.pdf has no bookmark of level 3."));

    Jobs::SplitSettings custom;
    custom.mode = Naming::SplitMode::Bookmarks;
    custom.bookmarkLevel = 2;
    custom.pagesPerInterval = 4;
    custom.expression = "1,[2-5]";
    custom.nameTemplate = "[FileName]-[IntervalIndex]";
    custom.folder = m_dir->path();
    window.setSettings(custom);
    // Save Profile without a file in use asks for one.
    m_alerts.saveFiles << path("book.json");
    trigger("actionSaveProfile");
    QCOMPARE(window.windowTitle(), QStringLiteral("book.json — Split PDF Documents"));
    // File > New: every setting, the list, the profile and the title.
    trigger("actionNew");
    QCOMPARE(window.documents().listPdfPaths(), QStringList{});
    QCOMPARE(Jobs::Profiles::toJson(window.settings()),
             Jobs::Profiles::toJson(Jobs::SplitSettings{}));
    QCOMPARE(window.windowTitle(), QStringLiteral("Split PDF Documents"));
    m_alerts.openFiles << path("book.json");
    trigger("actionLoadProfile");
    // A profile holds no folder: the window keeps the one it has (none, after File > New).
    Jobs::SplitSettings loaded = custom;
    loaded.folder.clear();
    QCOMPARE(Jobs::Profiles::toJson(window.settings()), Jobs::Profiles::toJson(loaded));
    QCOMPARE(field->text(), QStringLiteral("4"));
    QCOMPARE(window.windowTitle(), QStringLiteral("book.json — Split PDF Documents"));
    // Save Profile writes the file in use without asking.
    child<QLineEdit>(&window, "textFieldPagesIntervals")->setText("7");
    trigger("actionSaveProfile");
    QVERIFY(TestPdf::contents(path("book.json")).contains("\"expression\": \"7\""));
    // A file that is not a split profile changes nothing.
    TestPdf::writeBytes(path("crop.json"), R"({"tool": "crop", "settings": {}})");
    m_alerts.openFiles << path("crop.json");
    trigger("actionLoadProfile");
    QCOMPARE(m_alerts.log.size(), 4); // save, open, open, message
    QVERIFY(m_alerts.log.last().startsWith("message|The profile could not be loaded"));
    QCOMPARE(window.currentProfilePath(), path("book.json"));
    QCOMPARE(window.settings().expression, QStringLiteral("7"));
}

void TestApp::windowClosedDuringARun()
{
    QDir(m_dir->path()).mkdir("out");
    auto window = std::make_unique<ViewControllerSplit>(m_alerts);
    listDocuments(*window, {document("a.pdf", 40), document("b.pdf", 40), document("c.pdf", 40)});
    chooseFolder(*window, path("out"));
    window->OnSplitPDFDocuments();
    QVERIFY(window->isRunning());
    window.reset();

    // The run ends on its own; what it sends back finds no window and is dropped.
    QTRY_COMPARE_WITH_TIMEOUT(TestPdf::files(path("out")).size(), 120, 20000);
    QThreadPool::globalInstance()->waitForDone();
    QTest::qWait(50);
    QCOMPARE(m_alerts.log, QStringList{});
}

void TestApp::launcherAndMenus()
{
    // Each tool opens as a fresh modal window.
    ViewController launcher(m_alerts);
    QStringList opened;
    connect(&launcher, &ViewController::toolWindowOpened, this, [&](ToolWindow *window) {
        opened << window->windowTitle()
                      + QString::number(window->findChild<DocumentList *>()->listPdfPaths().size());
        window->findChild<DocumentList *>()->acceptDrop({QUrl::fromLocalFile(document("a.pdf"))},
                                                        0);
        QTimer::singleShot(0, window, [window] {
            QCOMPARE(QApplication::activeModalWidget(), window);
            window->close();
        });
    });
    launcher.openTool(Tool::Split);
    launcher.openTool(Tool::Split);
    launcher.openTool(Tool::Merge);
    QCOMPARE(opened,
             (QStringList{"Split PDF Documents0", "Split PDF Documents0", "Merge PDF Documents0"}));
    QCOMPARE(QApplication::activeModalWidget(), nullptr);

    // The launcher has no settings: File > New and the profiles have no receiver there.
    QVERIFY(!child<QAction>(&launcher, "actionNew")->isEnabled());
    QVERIFY(!child<QAction>(&launcher, "actionLoadProfile")->isEnabled());
    ViewControllerSplit split(m_alerts);
    QVERIFY(child<QAction>(&split, "actionNew")->isEnabled());
    // Every tool has a page that ships with the program; F1 opens the window's own.
    for (Tool tool : {Tool::Merge, Tool::Split, Tool::Crop, Tool::Watermark, Tool::Properties}) {
        QVERIFY(QFileInfo(MainMenu::helpPagePath(tool)).isFile());
    }
    QCOMPARE(child<QAction>(&split, "actionHowToSplitPDFDocuments")->shortcut(),
             QKeySequence(QKeySequence::HelpContents));
    child<QAction>(&launcher, "actionHowToCropPDFDocuments")->trigger();
    const QUrl page = QUrl::fromLocalFile(MainMenu::helpPagePath(Tool::Crop));
    QCOMPARE(m_alerts.log, QStringList{"url|" + page.toString()});
}

void TestApp::launcherWithDocuments()
{
    // quire FILE... or "Open With": the next tool opened lists the documents that pass the load
    // test, in the order given, and names the others once its window is up; the tool after it
    // starts empty.
    TestPdf::writeBytes(path("damaged.pdf"), "%PDF-1.4\nthis is not a document\n");
    const QStringList given{
        document("b.pdf"), path("damaged.pdf"), document("a.pdf"), path("gone.pdf")};
    ViewController launcher(m_alerts);
    launcher.setPendingDocuments(given);
    auto *label = child<QLabel>(&launcher, "labelPendingDocuments");
    QVERIFY(!label->isHidden());
    QCOMPARE(label->text(),
             "Ready for the next tool you open: b.pdf, damaged.pdf, a.pdf and 1 more.");

    QList<QStringList> listed;
    QList<qsizetype> alertsBeforeShown;
    connect(&launcher, &ViewController::toolWindowOpened, this, [&](ToolWindow *window) {
        listed << window->documentList()->listPdfPaths();
        alertsBeforeShown << m_alerts.log.size();
        QTimer::singleShot(0, window, [window] { window->close(); });
    });
    launcher.openTool(Tool::Crop);
    QCOMPARE(m_alerts.log,
             QStringList{"message|" + QString::fromLatin1(RejectedDocumentsText)
                         + "\n\ndamaged.pdf: not a PDF document, or damaged\ngone.pdf: no such "
                           "file, or it cannot be read"});
    QVERIFY(label->isHidden());
    m_alerts.log.clear();
    launcher.openTool(Tool::Merge);
    QCOMPARE(listed, (QList<QStringList>{{given[0], given[2]}, {}}));
    QCOMPARE(alertsBeforeShown, (QList<qsizetype>{0, 0}));
    QCOMPARE(m_alerts.log, QStringList{});
}

void TestApp::tableOfManyDocuments()
{
    // Files chosen together are added as people count; a selection moves as a block, keeping
    // its order and staying selected, and stops at either end.
    QStringList names{"scan10", "Scan2", "scan1", "a", "b"};
    QStringList chosen;
    for (const QString &name : names) {
        chosen << document(name + ".pdf");
    }
    ViewControllerMerge window(m_alerts);
    DocumentList &list = window.documents();
    m_alerts.pdfPanels << chosen;
    list.OnAddPDFDocument();
    m_alerts.log.clear();
    const auto order = [&] {
        QStringList shown;
        for (const QString &path : list.listPdfPaths()) {
            shown << QFileInfo(path).completeBaseName();
        }
        return shown.join(' ');
    };
    QCOMPARE(order(), QStringLiteral("a b scan1 Scan2 scan10"));
    QTRY_COMPARE(list.countText(), QStringLiteral("5 documents, 5 pages"));

    auto *up = child<QPushButton>(&window, "buttonMoveUp");
    auto *down = child<QPushButton>(&window, "buttonMoveDown");
    // clang-format off
    const QList<std::tuple<QList<int>, const char *, const char *, QList<int>>> moves{
        {{1, 3}, "Up", "b a Scan2 scan1 scan10", {0, 2}},
        {{0, 2}, "Up", "b a Scan2 scan1 scan10", {0, 2}},   // the first row holds it
        {{0, 2}, "Down", "a b scan1 Scan2 scan10", {1, 3}},
        {{3, 4}, "Down", "a b scan1 Scan2 scan10", {3, 4}}, // the last row holds it
        {{3, 4}, "Up", "a b Scan2 scan10 scan1", {2, 3}},
    };
    // clang-format on
    for (const auto &[rows, direction, after, selected] : moves) {
        list.selectRows(rows);
        QCOMPARE(up->isEnabled(), rows.front() > 0);
        QCOMPARE(down->isEnabled(), rows.back() < 4);
        list.moveSelected(QByteArray(direction) == "Up" ? -1 : 1);
        QCOMPARE(order(), QString::fromLatin1(after));
        QCOMPARE(list.selectedRows(), selected);
    }
    // Rows dragged within the table land, in order, before the row they are dropped on.
    list.selectRows({0, 4});
    list.moveSelectedTo(3);
    QCOMPARE(order(), QStringLiteral("b Scan2 a scan1 scan10"));
    QCOMPARE(list.selectedRows(), (QList<int>{2, 3}));
    // Delete removes the selection.
    QTest::keyClick(child(&window, "tableViewPDF"), Qt::Key_Delete);
    QCOMPARE(order(), QStringLiteral("b Scan2 scan10"));

    // Rejected files are named with their reason.
    TestPdf::writeBytes(path("bad.pdf"), "not a PDF");
    m_alerts.pdfPanels << QStringList{path("bad.pdf"), path("missing.pdf")};
    list.OnAddPDFDocument();
    QCOMPARE(m_alerts.log.size(), 2);
    QVERIFY2(m_alerts.log[1].contains("bad.pdf: ") && m_alerts.log[1].contains("missing.pdf: "),
             qPrintable(m_alerts.log[1]));
}

void TestApp::stoppedRuns_data()
{
    QTest::addColumn<QString>("tool");
    row("split", "split");
    row("merge", "merge");
}

void TestApp::stoppedRuns()
{
    // Stopped during its first documents, a split ends after them: their pieces and nothing
    // else, no temporary file, and a message that says so; a stopped merge writes nothing.
    QFETCH(QString, tool);
    QDir(m_dir->path()).mkdir("out");
    QStringList documents;
    for (const char *name : {"a.pdf", "b.pdf", "c.pdf"}) {
        documents << document(name, 300);
    }
    std::unique_ptr<ToolWindow> window;
    if (tool == "split") {
        window = std::make_unique<ViewControllerSplit>(m_alerts);
        listDocuments(*window, documents);
        chooseFolder(*window, path("out"));
    } else {
        window = std::make_unique<ViewControllerMerge>(m_alerts);
        listDocuments(*window, documents);
        m_alerts.saveFiles << path("out/all.pdf");
    }
    QSignalSpy started(window.get(), &ToolWindow::documentStarted);
    click(window.get(), tool == "split" ? "buttonSplitPDFDocuments" : "buttonMergePDF");
    QVERIFY(window->isRunning());
    QVERIFY(child(window.get(), "buttonStop")->isVisibleTo(window.get()));
    QVERIFY(started.wait(20000));
    window->stopRun();
    waitForRun(*window);
    const QString result = m_alerts.log.last();
    QVERIFY2(result.contains("The run was stopped"), qPrintable(result));
    const QStringList written = TestPdf::files(path("out"));
    if (tool == "merge") {
        QCOMPARE(written, QStringList{});
    } else {
        // Whole documents only: a's pieces, and b's if b had started before the stop.
        QVERIFY2(written.size() == 300 || written.size() == 600, qPrintable(written.join(' ')));
        QVERIFY(written.filter("c(").isEmpty() && written.filter(".quire").isEmpty());
    }
    QVERIFY(!child(window.get(), "buttonStop")->isVisibleTo(window.get()));
}

void TestApp::closingAndEscape()
{
    // Escape leaves a window with documents open; an empty one closes.
    ViewControllerSplit empty(m_alerts);
    empty.show();
    QTest::keyClick(&empty, Qt::Key_Escape);
    QVERIFY(!empty.isVisible());
    ViewControllerSplit listed(m_alerts);
    listed.show();
    listDocuments(listed, {document("a.pdf")});
    QTest::keyClick(&listed, Qt::Key_Escape);
    QVERIFY(listed.isVisible());

    // Closing during a run asks: "Keep Running" keeps it open, "Stop and Close" stops the run
    // after its document and closes.
    QDir(m_dir->path()).mkdir("out");
    listDocuments(listed, {document("b.pdf", 80), document("c.pdf", 80)});
    chooseFolder(listed, path("out"));
    click(&listed, "buttonSplitPDFDocuments");
    QVERIFY(listed.isRunning());
    const QString question = QString("choice|") + ToolWindow::StopQuestion;
    m_alerts.yesNo = {false, true};
    QVERIFY(!listed.close());
    QVERIFY(listed.isVisible());
    QVERIFY(listed.close());
    QCOMPARE(m_alerts.log, (QStringList{question, question}));
    QThreadPool::globalInstance()->waitForDone();
    QVERIFY(TestPdf::files(path("out")).size() < 161);
}

void TestApp::resultsNameFailuresAndFiles()
{
    // A run that fails for one document names it and why, and offers the folder of what was
    // written; a success is told with the information icon.
    QDir(m_dir->path()).mkdir("out");
    ViewControllerSplit window(m_alerts);
    listDocuments(window, {document("a.pdf", 2), document("b.pdf", 2)});
    chooseFolder(window, path("out"));
    child<QLineEdit>(&window, "textFieldNames")->setText("[FileName]/[IntervalIndex]");
    QDir(path("out")).mkdir("a"); // b's pieces have no folder to go to
    QCOMPARE(child<QLabel>(&window, "labelNamesExample")->text(), QStringLiteral("e.g. 1.pdf"));
    m_alerts.noticeAnswers << 0; // "Show in Folder"
    click(&window, "buttonSplitPDFDocuments");
    waitForRun(window);
    const Alerts::Notice &failed = m_alerts.notices.last();
    QCOMPARE(failed.text, QStringLiteral("Could not split PDF document(s)."));
    QCOMPARE(failed.icon, Alerts::Notice::Icon::Warning);
    QVERIFY2(failed.details.startsWith("b.pdf: ") && !failed.details.contains("a.pdf"),
             qPrintable(failed.details));
    QCOMPARE(failed.buttons, QStringList{"Show in Folder"});
    QCOMPARE(m_alerts.log.last(), "url|" + QUrl::fromLocalFile(path("out")).toString());

    child<QLineEdit>(&window, "textFieldNames")->setText("[FileName]-[IntervalIndex]");
    QCOMPARE(child<QLabel>(&window, "labelNamesExample")->text(), QStringLiteral("e.g. a-1.pdf"));
    m_alerts.desktopOpens = false;
    m_alerts.noticeAnswers << 0;
    click(&window, "buttonSplitPDFDocuments");
    waitForRun(window);
    QCOMPARE(m_alerts.notices[m_alerts.notices.size() - 2].icon, Alerts::Notice::Icon::Information);
    // The desktop could not open the folder: said, with the path.
    QVERIFY(m_alerts.log.last().startsWith("message|The desktop could not open " + path("out")));
}

void TestApp::keyboardReachesEveryControl()
{
    // Tab from the first control visits every control a key can reach once, then comes back;
    // in the list windows, in reading order.
    ViewController launcher(m_alerts);
    ViewControllerMerge merge(m_alerts);
    ViewControllerSplit split(m_alerts);
    ViewControllerCrop crop(m_alerts);
    ViewControllerWatermark watermark(m_alerts);
    ViewControllerProperties properties(m_alerts);
    const QMap<QWidget *, QStringList> orders{
        {&merge,
         {"tableViewPDF",
          "buttonAddPDF",
          "buttonRemoveSelected",
          "buttonRemoveAll",
          "buttonMoveUp",
          "buttonMoveDown",
          "comboBookmarks",
          "buttonMergePDF"}},
        {&split,
         {"tableViewPDF",
          "buttonAddPDFDocument",
          "buttonRemoveSelected",
          "buttonRemoveAll",
          "radioConsecutivePageSplit",
          "textFieldPagesPerInterval",
          "radioIntervalSplit",
          "textFieldPagesIntervals",
          "radioBookmarkSplit",
          "spinBookmarkLevel",
          "textFieldNames",
          "textFieldFolder",
          "buttonBrowse",
          "buttonSplitPDFDocuments"}},
    };
    for (QWidget *window : std::initializer_list<QWidget *>{
             &launcher, &merge, &split, &crop, &watermark, &properties}) {
        window->show();
        QVERIFY(QTest::qWaitForWindowActive(window));
        // Of a group of radio buttons, Tab reaches the chosen one; the arrows move between them.
        QList<QWidget *> reachable;
        for (QWidget *widget : window->findChildren<QWidget *>()) {
            const auto *radio = qobject_cast<QRadioButton *>(widget);
            if (widget->isVisible() && widget->isEnabled() && (widget->focusPolicy() & Qt::TabFocus)
                && !widget->focusProxy() && !(radio && !radio->isChecked())) {
                reachable << widget;
            }
        }
        QWidget *first = window->nextInFocusChain();
        while (!reachable.contains(first)) {
            first = first->nextInFocusChain();
        }
        first->setFocus(Qt::TabFocusReason);
        QList<QWidget *> visited{first};
        for (int step = 0; step < 2 * reachable.size(); ++step) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            if (QApplication::focusWidget() == first) {
                break;
            }
            visited << QApplication::focusWidget();
        }
        const auto names = [](const QList<QWidget *> &widgets) {
            QStringList result;
            for (const QWidget *widget : widgets) {
                result << widget->metaObject()->className() + QString(":") + widget->objectName();
            }
            return result;
        };
        QCOMPARE(QApplication::focusWidget(), first);
        QStringList expected = names(reachable);
        if (orders.contains(window)) {
            expected.clear();
            for (const QString &name : orders[window]) {
                auto *widget = window->findChild<QWidget *>(name);
                if (reachable.contains(widget)) {
                    expected << names({widget});
                }
            }
            QCOMPARE(names(visited).join(" "), expected.join(" "));
        } else {
            QStringList got = names(visited);
            got.sort();
            expected.sort();
            QCOMPARE(got.join(" "), expected.join(" "));
        }
        window->hide();
    }
}

void TestApp::mnemonicsAreUnique()
{
    // Within each window, every letter after "&" belongs to one control.
    ViewController launcher(m_alerts);
    ViewControllerMerge merge(m_alerts);
    ViewControllerSplit split(m_alerts);
    ViewControllerCrop crop(m_alerts);
    ViewControllerWatermark watermark(m_alerts);
    ViewControllerProperties properties(m_alerts);
    for (QWidget *window : std::initializer_list<QWidget *>{
             &launcher, &merge, &split, &crop, &watermark, &properties}) {
        QMap<QChar, QString> owners;
        const auto claim = [&](const QString &text, const QString &owner) {
            static const QRegularExpression mnemonic("&([^&])");
            const auto match = mnemonic.match(text);
            if (!match.hasMatch()) {
                return;
            }
            const QChar key = match.captured(1).at(0).toLower();
            QVERIFY2(!owners.contains(key),
                     qPrintable(QString("%1: %2 and %3 share Alt+%4")
                                    .arg(window->objectName(), owners[key], owner, key)));
            owners[key] = owner;
        };
        for (auto *button : window->findChildren<QAbstractButton *>()) {
            claim(button->text(), button->objectName());
        }
        for (auto *label : window->findChildren<QLabel *>()) {
            if (label->buddy()) {
                claim(label->text(), label->objectName());
            }
        }
        for (auto *box : window->findChildren<QGroupBox *>()) {
            claim(box->title(), box->objectName());
        }
        for (auto *menu : window->findChildren<QMenuBar *>()) {
            for (QAction *action : menu->actions()) {
                claim(action->text(), action->text());
            }
        }
    }
}

QTEST_MAIN(TestApp)
#include "tst_app.moc"
