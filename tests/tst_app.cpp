// The windows as a user drives them: scripted alerts and panels, simulated drops, whole runs to
// the files on disk.

#include "app/documentlist.h"
#include "app/stepper.h"
#include "app/viewcontroller.h"
#include "app/viewcontrollermerge.h"
#include "app/viewcontrollersplit.h"
#include "engine/pdftools.h"
#include "naming/outputnames.h"
#include "scriptedalerts.h"
#include "testpdf.h"

#include <QAction>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <QTimer>
#include <QVBoxLayout>

using Naming::OverwriteAnswer;
using Naming::OverwriteDecision;

namespace {

const QString rejectedText = QString::fromLatin1(RejectedDocumentsText);
const QString mergedText = QStringLiteral("PDF document(s) merged successfully.");
const QString notMergedText = QStringLiteral("Could not merge PDF documents.");
const QString splitText = QStringLiteral("PDF document(s) split successfully.");

QByteArray digest(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
}

template <typename T> T *child(QWidget *window, const char *name)
{
    T *found = window->findChild<T *>(QString::fromLatin1(name));
    if (!found) {
        qFatal("no control %s", name);
    }
    return found;
}

QAction *action(QWidget *window, const char *name)
{
    return child<QAction>(window, name);
}

// A tool of the kind that writes one file per document into a folder, as Crop and Watermark
// are: its step copies the document.
class CopyTool : public ToolWindow
{
public:
    explicit CopyTool(Alerts &alerts)
        : ToolWindow(Tool::Crop, alerts, nullptr)
    {
        auto *layout = new QVBoxLayout(this);
        auto *table = new PdfTableView(this);
        layout->addWidget(table);
        bar = new QProgressBar(this);
        layout->addWidget(bar);
        documents = new DocumentList(table,
                                     QStringLiteral("TableViewPdfCopy"),
                                     DocumentList::Tooltip::ThreeLines,
                                     alerts,
                                     this);
        finishSetup({table}, bar);
    }

    void OnRun(const QString &folder, const QString &names)
    {
        runPerDocument(
            documents->listPdfPaths(),
            folder,
            {QStringLiteral("There are no PDF documents to copy."),
             QStringLiteral("PDF document(s) copied successfully."),
             QStringLiteral("Could not copy PDF document(s).")},
            [folder, names](const QString &input) {
                return Naming::OutputPathForDocument(names, folder, input);
            },
            [](const QString &input, const QString &output) {
                return PDFTools::MergePdfs({input}, output);
            });
    }

    QProgressBar *bar;
    DocumentList *documents;
};

} // namespace

class TestApp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void admitFiles_data();
    void admitFiles();
    void dropPosition_data();
    void dropPosition();
    void removeCommands();
    void tooltips();
    void doubleClickOpensTheDocument();
    void moveUpAndDown_data();
    void moveUpAndDown();

    void perDocumentRun_data();
    void perDocumentRun();
    void perDocumentRunChecksAndProgress();

    void mergeWholeRun();
    void mergeThatDoesNotRun_data();
    void mergeThatDoesNotRun();

    void splitWholeRun_data();
    void splitWholeRun();
    void splitThatCannotStart_data();
    void splitThatCannotStart();
    void splitOverwriteAnswersHoldAcrossDocuments();
    void splitNeverReplacesAListedDocument();
    void splitControls();
    void splitFileNewAndProfiles();
    void windowClosedDuringARun();

    void launcherOpensFreshWindows();
    void menusAndHelpPages();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    QStringList paths(const QStringList &names) const;
    void writeFile(const QString &name, const QByteArray &bytes);
    // Lists the documents in the window through its open panel; the log starts afresh.
    DocumentList &listDocuments(QWidget &window, const QStringList &documents);
    // A document of n pages with markers "<name>1" ... "<name>n".
    QString document(const QString &name, int pages);
    static void waitForRun(ToolWindow &window);

    std::unique_ptr<QTemporaryDir> m_dir;
    ScriptedAlerts m_alerts;
};

void TestApp::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestApp::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_alerts = ScriptedAlerts();
}

QString TestApp::document(const QString &name, int pages)
{
    const QString file = path(name);
    TestPdf::write(file, TestPdf::pages(pages, QFileInfo(name).completeBaseName()));
    return file;
}

QStringList TestApp::paths(const QStringList &names) const
{
    QStringList result;
    for (const QString &name : names) {
        result << path(name);
    }
    return result;
}

void TestApp::writeFile(const QString &name, const QByteArray &bytes)
{
    QFile file(path(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

DocumentList &TestApp::listDocuments(QWidget &window, const QStringList &documents)
{
    auto *list = window.findChild<DocumentList *>();
    m_alerts.pdfPanels << documents;
    list->OnAddPDFDocument();
    m_alerts.log.clear();
    return *list;
}

void TestApp::waitForRun(ToolWindow &window)
{
    QSignalSpy finished(&window, &ToolWindow::runFinished);
    QVERIFY(window.isRunning());
    QVERIFY(finished.wait(20000));
}

void TestApp::admitFiles_data()
{
    QTest::addColumn<bool>("drop");
    QTest::addColumn<QStringList>("chosen"); // by name; "<cancel>" alone: the panel is cancelled
    QTest::addColumn<int>("row");            // where a drop lands
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QString>("message"); // the one alert, if any

    const QStringList abc{"a.pdf", "b.pdf", "c.pdf"};
    QTest::newRow("panel cancelled") << false << QStringList{"<cancel>"} << 0 << abc << "";
    QTest::newRow("panel confirmed without a file")
        << false << QStringList{} << 0 << abc << "The pdf could not be loaded.";
    QTest::newRow("panel order kept, listed files and empty paths skipped silently")
        << false << QStringList{"e.pdf", "", "a.pdf", "d.pdf", "e.pdf"} << 0
        << abc + QStringList{"e.pdf", "d.pdf"} << "";
    QTest::newRow("panel: damaged, encrypted and locked files rejected with one alert")
        << false << QStringList{"d.pdf", "damaged.pdf", "encrypted.pdf", "locked.pdf", "e.pdf"} << 0
        << abc + QStringList{"d.pdf", "e.pdf"} << rejectedText;
    QTest::newRow("three files dropped above row 1 land as a block at rows 1 to 3")
        << true << QStringList{"e.pdf", "d.pdf", "f.pdf"} << 1
        << QStringList{"a.pdf", "e.pdf", "d.pdf", "f.pdf", "b.pdf", "c.pdf"} << "";
    QTest::newRow("drop: upper-case extension admitted")
        << true << QStringList{"UPPER.PDF"} << 3 << abc + QStringList{"UPPER.PDF"} << "";
    QTest::newRow("drop: folder, text file, missing and listed files skipped without alert")
        << true << QStringList{"folder", "notes.txt", "gone.pdf", "b.pdf", "d.pdf"} << 0
        << QStringList{"d.pdf"} + abc << "";
    QTest::newRow("drop: a damaged file brings the alert after the drop")
        << true << QStringList{"d.pdf", "damaged.pdf", "e.pdf"} << 2
        << QStringList{"a.pdf", "b.pdf", "d.pdf", "e.pdf", "c.pdf"} << rejectedText;
}

void TestApp::admitFiles()
{
    QFETCH(bool, drop);
    QFETCH(QStringList, chosen);
    QFETCH(int, row);
    QFETCH(QStringList, expected);
    QFETCH(QString, message);
    for (const char *name : {"a.pdf", "b.pdf", "c.pdf", "d.pdf", "e.pdf", "f.pdf", "UPPER.PDF"}) {
        document(QString::fromLatin1(name), 1);
    }
    writeFile(QStringLiteral("damaged.pdf"), "%PDF-1.4\nthis is not a document\n");
    writeFile(QStringLiteral("notes.txt"), "notes\n");
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("folder")));
    auto encrypted = TestPdf::pages(1);
    encrypted.encrypt = true;
    TestPdf::write(path(QStringLiteral("encrypted.pdf")), encrypted);
    auto locked = TestPdf::pages(1);
    locked.userPassword = true;
    TestPdf::write(path(QStringLiteral("locked.pdf")), locked);

    ViewControllerSplit window(m_alerts);
    DocumentList &list = listDocuments(window, paths({"a.pdf", "b.pdf", "c.pdf"}));
    const QStringList alert
        = message.isEmpty() ? QStringList{} : QStringList{QStringLiteral("message|") + message};
    if (drop) {
        QList<QUrl> urls;
        for (const QString &name : chosen) {
            urls << QUrl::fromLocalFile(path(name));
        }
        list.acceptDrop(urls, row);
        // Never inside the drop itself.
        QCOMPARE(m_alerts.log, QStringList{});
        QTest::qWait(700);
    } else {
        if (chosen == QStringList{"<cancel>"}) {
            m_alerts.pdfPanels << std::nullopt;
        } else {
            QStringList chosenPaths;
            for (const QString &name : chosen) {
                chosenPaths << (name.isEmpty() ? QString() : path(name));
            }
            m_alerts.pdfPanels << chosenPaths;
        }
        QTest::mouseClick(child<QPushButton>(&window, "buttonAddPDFDocument"), Qt::LeftButton);
        m_alerts.log.removeFirst();
    }
    QCOMPARE(m_alerts.log, alert);
    QCOMPARE(list.listPdfPaths(), paths(expected));
}

void TestApp::dropPosition_data()
{
    QTest::addColumn<int>("rowUnderPointer");
    QTest::addColumn<double>("fractionOfRow"); // 0 the row's top edge, 1 its bottom edge
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("top edge of row 1: before it")
        << 1 << 0.05 << QStringList{"a.pdf", "d.pdf", "b.pdf", "c.pdf"};
    QTest::newRow("bottom edge of row 1: after it")
        << 1 << 0.95 << QStringList{"a.pdf", "b.pdf", "d.pdf", "c.pdf"};
    QTest::newRow("onto row 1: refused") << 1 << 0.5 << QStringList{"a.pdf", "b.pdf", "c.pdf"};
    QTest::newRow("empty space below the rows: at the end")
        << -1 << 0.0 << QStringList{"a.pdf", "b.pdf", "c.pdf", "d.pdf"};
}

void TestApp::dropPosition()
{
    QFETCH(int, rowUnderPointer);
    QFETCH(double, fractionOfRow);
    QFETCH(QStringList, expected);
    for (const char *name : {"a.pdf", "b.pdf", "c.pdf", "d.pdf"}) {
        document(QString::fromLatin1(name), 1);
    }
    ViewControllerMerge window(m_alerts);
    window.resize(600, 400);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    listDocuments(window, QStringList{path("a.pdf"), path("b.pdf"), path("c.pdf")});

    auto *table = child<PdfTableView>(&window, "tableViewPDF");
    QPoint pos;
    if (rowUnderPointer < 0) {
        pos = QPoint(20, table->viewport()->height() - 5);
    } else {
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
    QVERIFY(QFileInfo::exists(path("d.pdf")));
    // Rows dragged from a table are not files.
    QVERIFY(!PdfTableView::acceptsDrag(&mime, table));
}

void TestApp::removeCommands()
{
    const QString a = document(QStringLiteral("a.pdf"), 1);
    const QString b = document(QStringLiteral("b.pdf"), 1);
    ViewControllerMerge window(m_alerts);
    DocumentList &list = window.documents();
    QSignalSpy cleared(&list, &DocumentList::previewCleared);

    // Nothing to remove: no question, nothing cleared.
    list.OnRemoveAll();
    list.OnRemoveSelected();
    QCOMPARE(cleared.count(), 0);
    QCOMPARE(m_alerts.log, QStringList{});

    m_alerts.pdfPanels << QStringList{a, b};
    list.OnAddPDFDocument();
    list.selectRow(-1);
    list.OnRemoveSelected();
    QCOMPARE(list.listPdfPaths(), (QStringList{a, b}));
    QCOMPARE(cleared.count(), 1);

    QSignalSpy current(&list, &DocumentList::currentPDFChanged);
    list.selectRow(0);
    QCOMPARE(current.last().at(0).toString(), a);
    list.OnRemoveSelected();
    QCOMPARE(list.listPdfPaths(), QStringList{b});
    QCOMPARE(cleared.count(), 2);
    // The preview follows: no document is selected any more.
    QCOMPARE(current.last().at(0).toString(), QString());

    const QString question
        = QStringLiteral("yesno|Are you sure you want to remove all PDF documents from the list?");
    m_alerts.log.clear();
    m_alerts.yesNo = {false, true};
    list.OnRemoveAll();
    QCOMPARE(list.listPdfPaths(), QStringList{b});
    QCOMPARE(cleared.count(), 2);
    list.OnRemoveAll();
    QCOMPARE(list.listPdfPaths(), QStringList{});
    QCOMPARE(cleared.count(), 3);
    QCOMPARE(m_alerts.log, (QStringList{"pdfs", question, question}).mid(1));
}

void TestApp::tooltips()
{
    TestPdf::Document twelve = TestPdf::pages(12);
    twelve.pages[0].mediaBox = QRectF(0, 0, 595.9, 842.2);
    const QString a = path(QStringLiteral("a.pdf"));
    TestPdf::write(a, twelve);
    const QString size = PDFTools::FileSizeText(quint64(QFileInfo(a).size()));

    ViewControllerMerge merge(m_alerts);
    DocumentList &twoLines = merge.documents();
    CopyTool crop(m_alerts);
    DocumentList &threeLines = *crop.documents;
    QCOMPARE(twoLines.tooltipText(a), QStringLiteral("Number of Pages: 12\nFile Size: ") + size);
    QCOMPARE(threeLines.tooltipText(a),
             QStringLiteral("Number of Pages: 12\nPage Size: 595 x 842\nFile Size: ") + size);
    // A file that no longer opens.
    QCOMPARE(threeLines.tooltipText(path(QStringLiteral("gone.pdf"))),
             QStringLiteral("Number of Pages: 0\nPage Size: 0 x 0\nFile Size: ")
                 + PDFTools::FileSizeText(0));

    // The table asks afresh: the tooltip follows the file.
    listDocuments(merge, {a});
    TestPdf::write(a, TestPdf::pages(3));
    QVERIFY(twoLines.data(twoLines.index(0), Qt::ToolTipRole)
                .toString()
                .startsWith(QStringLiteral("Number of Pages: 3\n")));
}

void TestApp::doubleClickOpensTheDocument()
{
    const QString a = document(QStringLiteral("a.pdf"), 1);
    ViewControllerSplit window(m_alerts);
    listDocuments(window, QStringList{a});
    window.documents().OnTableViewDoubleClick();
    QCOMPARE(m_alerts.log, QStringList{});
    window.documents().selectRow(0);
    window.documents().OnTableViewDoubleClick();
    QCOMPARE(m_alerts.log, QStringList{QStringLiteral("url|") + QUrl::fromLocalFile(a).toString()});
}

void TestApp::moveUpAndDown_data()
{
    QTest::addColumn<int>("selected");
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("expected"); // list order after the move, by name
    QTest::addColumn<int>("selectedAfter");

    QTest::newRow("up from the middle") << 1 << "buttonMoveUp"
                                        << "bac" << 0;
    QTest::newRow("down from the middle") << 1 << "buttonMoveDown"
                                          << "acb" << 2;
    QTest::newRow("up at the top: nothing") << 0 << "buttonMoveUp"
                                            << "abc" << 0;
    QTest::newRow("down at the bottom: nothing") << 2 << "buttonMoveDown"
                                                 << "abc" << 2;
    QTest::newRow("no selection: nothing") << -1 << "buttonMoveDown"
                                           << "abc" << -1;
}

void TestApp::moveUpAndDown()
{
    QFETCH(int, selected);
    QFETCH(QString, button);
    QFETCH(QString, expected);
    QFETCH(int, selectedAfter);
    QStringList listed;
    for (const char *name : {"a", "b", "c"}) {
        listed << document(QString::fromLatin1(name) + QStringLiteral(".pdf"), 1);
    }
    ViewControllerMerge window(m_alerts);
    listDocuments(window, listed);
    window.documents().selectRow(selected);
    QTest::mouseClick(child<QPushButton>(&window, button.toLatin1().constData()), Qt::LeftButton);

    QStringList expectedPaths;
    for (const QChar name : expected) {
        expectedPaths << path(QString(name) + QStringLiteral(".pdf"));
    }
    QCOMPARE(window.documents().listPdfPaths(), expectedPaths);
    QCOMPARE(window.documents().selectedRow(), selectedAfter);
}

void TestApp::perDocumentRun_data()
{
    QTest::addColumn<int>("documents");
    QTest::addColumn<QList<int>>("existing"); // outputs that exist before the run
    QTest::addColumn<QList<OverwriteAnswer>>("answers");
    QTest::addColumn<bool>("ownFolder");    // each output named as its input, beside it
    QTest::addColumn<bool>("deleteSecond"); // after it was listed
    QTest::addColumn<int>("questions");
    QTest::addColumn<QList<int>>("written");
    QTest::addColumn<bool>("success");

    using A = OverwriteAnswer;
    const QList<int> none;
    QTest::newRow("No, then Yes to All: no third question")
        << 3 << QList{0, 1, 2} << QList{A::No, A::YesToAll} << false << false << 2 << QList{1, 2}
        << true;
    QTest::newRow("No to All skips existing files, writes the others")
        << 3 << QList{0, 2} << QList{A::NoToAll} << false << false << 1 << QList{1} << true;
    QTest::newRow("the only document as its own output, answered Yes")
        << 1 << none << QList{A::Yes} << true << false << 1 << none << false;
    QTest::newRow("the only document as its own output, answered No")
        << 1 << none << QList{A::No} << true << false << 1 << none << true;
    QTest::newRow("listed documents as outputs are never written")
        << 2 << none << QList{A::YesToAll} << true << false << 1 << none << false;
    QTest::newRow("a document deleted after it was listed ends the run")
        << 3 << none << QList<A>{} << false << true << 0 << QList{0} << false;
}

void TestApp::perDocumentRun()
{
    QFETCH(int, documents);
    QFETCH(QList<int>, existing);
    QFETCH(QList<OverwriteAnswer>, answers);
    QFETCH(bool, ownFolder);
    QFETCH(bool, deleteSecond);
    QFETCH(int, questions);
    QFETCH(QList<int>, written);
    QFETCH(bool, success);
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("out")));
    const QString out = ownFolder ? m_dir->path() : path(QStringLiteral("out"));
    QStringList inputs;
    QStringList outputs;
    QList<QByteArray> before;
    for (int i = 0; i < documents; ++i) {
        const QString name = QString(QChar(u'a' + i)) + QStringLiteral(".pdf");
        inputs << document(name, 1);
        outputs << QDir(out).filePath(name);
        before << digest(inputs.back());
    }
    for (int i : existing) {
        TestPdf::write(outputs[i], TestPdf::pages(1, QStringLiteral("old")));
    }

    CopyTool tool(m_alerts);
    listDocuments(tool, inputs);
    if (deleteSecond) {
        QVERIFY(QFile::remove(inputs[1]));
    }
    m_alerts.answers = answers;
    tool.OnRun(out, QStringLiteral("[FileName]"));
    waitForRun(tool);

    QCOMPARE(m_alerts.log.size(), questions + 1);
    QCOMPARE(m_alerts.log.last(),
             success ? QStringLiteral("message|PDF document(s) copied successfully.")
                     : QStringLiteral("message|Could not copy PDF document(s)."));
    for (int i = 0; i < documents; ++i) {
        if (!deleteSecond || i != 1) {
            QCOMPARE(digest(inputs[i]), before[i]);
        }
        if (written.contains(i)) {
            QCOMPARE(TestPdf::read(outputs[i]).markers(), QStringList{QChar(u'a' + i) + u'1'});
        } else if (existing.contains(i)) {
            QCOMPARE(TestPdf::read(outputs[i]).markers(), QStringList{"old1"});
        } else if (!ownFolder) {
            QVERIFY(!QFileInfo::exists(outputs[i]));
        }
    }
}

void TestApp::perDocumentRunChecksAndProgress()
{
    CopyTool tool(m_alerts);
    tool.OnRun(m_dir->path(), QStringLiteral("[FileName]_copy"));
    QCOMPARE(m_alerts.log, QStringList{"message|There are no PDF documents to copy."});
    QStringList inputs;
    for (const char *name : {"a.pdf", "b.pdf", "c.pdf", "d.pdf"}) {
        inputs << document(QString::fromLatin1(name), 1);
    }
    listDocuments(tool, inputs);
    tool.OnRun(QString(), QStringLiteral("[FileName]_copy"));
    QCOMPARE(m_alerts.log, QStringList{"message|Please select an output folder."});
    QVERIFY(!tool.isRunning());

    QSignalSpy progress(tool.bar, &QProgressBar::valueChanged);
    tool.OnRun(m_dir->path(), QStringLiteral("[FileName]_copy"));
    waitForRun(tool);
    QList<int> values;
    for (const auto &arguments : progress) {
        values << arguments.at(0).toInt();
    }
    QCOMPARE(values, (QList<int>{25, 50, 75, 0}));
    QCOMPARE(TestPdf::read(path(QStringLiteral("d_copy.pdf"))).markers(), QStringList{"d1"});
}

void TestApp::mergeWholeRun()
{
    const QString a = document(QStringLiteral("a.pdf"), 2);
    const QString b = document(QStringLiteral("b.pdf"), 1);
    const QString c = document(QStringLiteral("c.pdf"), 3);
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("out")));
    ViewControllerMerge window(m_alerts);
    listDocuments(window, QStringList{a, b, c});
    window.documents().selectRow(2);
    window.OnMoveUp(); // a, c, b
    // The panel gave a name without extension.
    m_alerts.saveFiles << path(QStringLiteral("out/joined"));
    auto *bar = child<QProgressBar>(&window, "progressIndicatorMerge");
    QSignalSpy progress(bar, &QProgressBar::valueChanged);

    QTest::mouseClick(child<QPushButton>(&window, "buttonMergePDF"), Qt::LeftButton);
    for (const char *name : {"tableViewPDF",
                             "buttonAddPDF",
                             "buttonRemoveSelected",
                             "buttonRemoveAll",
                             "buttonMoveUp",
                             "buttonMoveDown",
                             "buttonMergePDF"}) {
        QVERIFY2(!child<QWidget>(&window, name)->isEnabled(), name);
    }
    waitForRun(window);
    QVERIFY(child<QWidget>(&window, "buttonMergePDF")->isEnabled());
    QVERIFY(child<QWidget>(&window, "tableViewPDF")->isEnabled());

    QCOMPARE(m_alerts.log,
             (QStringList{QStringLiteral("save|") + path(QStringLiteral("document.pdf")),
                          QStringLiteral("message|") + mergedText}));
    QCOMPARE(TestPdf::read(path(QStringLiteral("out/joined.pdf"))).markers(),
             (QStringList{"a1", "a2", "c1", "c2", "c3", "b1"}));
    QList<int> values;
    for (const auto &arguments : progress) {
        values << arguments.at(0).toInt();
    }
    QCOMPARE(values, (QList<int>{33, 67, 100, 0}));
    // The list survives the run.
    QCOMPARE(window.documents().listPdfPaths(), (QStringList{a, c, b}));
}

void TestApp::mergeThatDoesNotRun_data()
{
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<QString>("output");         // empty: the panel is cancelled
    QTest::addColumn<QString>("message");        // empty: no run, no message
    QTest::addColumn<QStringList>("markersOfA"); // what a.pdf holds afterwards

    QTest::newRow("empty list") << QStringList{} << ""
                                << "Select a document first." << QStringList{"a1", "a2"};
    QTest::newRow("save panel cancelled") << QStringList{"a.pdf", "b.pdf"} << ""
                                          << "" << QStringList{"a1", "a2"};
    QTest::newRow("the only document as its own output")
        << QStringList{"a.pdf"} << "a.pdf" << notMergedText << QStringList{"a1", "a2"};
    QTest::newRow("one of several documents as output: replaced once read")
        << QStringList{"a.pdf", "b.pdf"} << "a.pdf" << mergedText << QStringList{"a1", "a2", "b1"};
}

void TestApp::mergeThatDoesNotRun()
{
    QFETCH(QStringList, listed);
    QFETCH(QString, output);
    QFETCH(QString, message);
    QFETCH(QStringList, markersOfA);
    document(QStringLiteral("a.pdf"), 2);
    document(QStringLiteral("b.pdf"), 1);
    ViewControllerMerge window(m_alerts);
    QStringList listedPaths;
    for (const QString &name : listed) {
        listedPaths << path(name);
    }
    if (!listedPaths.isEmpty()) {
        m_alerts.pdfPanels << listedPaths;
        window.documents().OnAddPDFDocument();
    }
    if (!output.isEmpty()) {
        m_alerts.saveFiles << path(output);
    }
    window.OnMergePDF();
    if (window.isRunning()) {
        waitForRun(window);
    }
    if (message.isEmpty()) {
        QVERIFY(!m_alerts.log.last().startsWith(QStringLiteral("message|")));
    } else {
        QCOMPARE(m_alerts.log.last(), QStringLiteral("message|") + message);
    }
    QCOMPARE(TestPdf::read(path(QStringLiteral("a.pdf"))).markers(), markersOfA);
    QVERIFY(child<QWidget>(&window, "buttonMergePDF")->isEnabled());
}

void TestApp::splitWholeRun_data()
{
    QTest::addColumn<bool>("intervals");
    QTest::addColumn<QString>("pagesPerInterval");
    QTest::addColumn<QString>("expression");
    QTest::addColumn<QString>("names");
    QTest::addColumn<QStringList>("files"); // "name=markers,..."

    QTest::newRow("runs of 2 pages, the last shorter")
        << false << "2"
        << ""
        << "[FileName](Page[IntervalIndex])"
        << QStringList{"a(Page1).pdf=a1,a2", "a(Page2).pdf=a3", "b(Page1).pdf=b1,b2"};
    QTest::newRow("more pages per interval than the document has")
        << false << "9.7"
        << ""
        << "[FileName](Page[IntervalIndex])"
        << QStringList{"a(Page1).pdf=a1,a2,a3", "b(Page1).pdf=b1,b2"};
    QTest::newRow("page intervals, a repeated page twice") << true << "1"
                                                           << "[1-2],2,2"
                                                           << "[FileName]_[IntervalIndex]"
                                                           << QStringList{"a_1.pdf=a1,a2",
                                                                          "a_2.pdf=a2",
                                                                          "a_3.pdf=a2",
                                                                          "b_1.pdf=b1,b2",
                                                                          "b_2.pdf=b2",
                                                                          "b_3.pdf=b2"};
}

void TestApp::splitWholeRun()
{
    QFETCH(bool, intervals);
    QFETCH(QString, pagesPerInterval);
    QFETCH(QString, expression);
    QFETCH(QString, names);
    QFETCH(QStringList, files);
    const QString a = document(QStringLiteral("a.pdf"), 3);
    const QString b = document(QStringLiteral("b.pdf"), 2);
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("out")));
    const QString out = path(QStringLiteral("out"));

    ViewControllerSplit window(m_alerts);
    listDocuments(window, QStringList{a, b});
    m_alerts.folders << out;
    QTest::mouseClick(child<QPushButton>(&window, "buttonBrowse"), Qt::LeftButton);
    if (intervals) {
        QTest::mouseClick(child<QRadioButton>(&window, "radioIntervalSplit"), Qt::LeftButton);
        child<QLineEdit>(&window, "textFieldPagesIntervals")->setText(expression);
    }
    child<QLineEdit>(&window, "textFieldPagesPerInterval")->setText(pagesPerInterval);
    child<QLineEdit>(&window, "textFieldNames")->setText(names);

    QTest::mouseClick(child<QPushButton>(&window, "buttonSplitPDFDocuments"), Qt::LeftButton);
    QVERIFY(!child<QWidget>(&window, "textFieldNames")->isEnabled());
    QVERIFY(!action(&window, "actionNew")->isEnabled());
    QVERIFY(!action(&window, "actionLoadProfile")->isEnabled());
    waitForRun(window);
    QVERIFY(action(&window, "actionNew")->isEnabled());
    QCOMPARE(m_alerts.log.last(), QStringLiteral("message|") + splitText);

    QStringList expectedNames;
    for (const QString &file : files) {
        const QString name = file.section(QLatin1Char('='), 0, 0);
        expectedNames << name;
        QCOMPARE(TestPdf::read(QDir(out).filePath(name)).markers().join(QLatin1Char(',')),
                 file.section(QLatin1Char('='), 1));
    }
    expectedNames.sort();
    QCOMPARE(QDir(out).entryList(QDir::Files, QDir::Name), expectedNames);
    QVERIFY(child<QWidget>(&window, "textFieldNames")->isEnabled());
}

void TestApp::splitThatCannotStart_data()
{
    QTest::addColumn<QString>("listed"); // "none", "both", "deleted"
    QTest::addColumn<QString>("folder"); // "none", "out", "missing"
    QTest::addColumn<QString>("pagesPerInterval");
    QTest::addColumn<QString>("expression"); // empty: consecutive mode
    QTest::addColumn<QString>("message");

    QTest::newRow("empty list") << "none"
                                << "out"
                                << "1"
                                << ""
                                << "Select a document first.";
    QTest::newRow("no folder") << "both"
                               << "none"
                               << "1"
                               << ""
                               << "Please select an output folder.";
    QTest::newRow("pages per interval below 1")
        << "both"
        << "out"
        << "0"
        << ""
        << "The number of pages per interval must be at least 1. Enter a number of pages and "
           "split again.";
    QTest::newRow("pages per interval checked in interval mode too")
        << "both"
        << "out"
        << ""
        << "1"
        << "The number of pages per interval must be at least 1. Enter a number of pages and "
           "split again.";
    QTest::newRow("a document without an interval")
        << "both"
        << "out"
        << "1"
        << "[3-4]"
        << "No page interval of \"[3-4]\" lies within the 2 pages of <b>. Change the page "
           "intervals and split again.";
    QTest::newRow("a document deleted after it was listed")
        << "deleted"
        << "out"
        << "1"
        << ""
        << "The document <b> could not be opened: it was moved, deleted or damaged after it "
           "was added. Remove it from the list and split again.";
    QTest::newRow("a folder that is gone")
        << "both"
        << "missing"
        << "1"
        << ""
        << "The output folder <missing> does not exist. Choose another folder.";
}

void TestApp::splitThatCannotStart()
{
    QFETCH(QString, listed);
    QFETCH(QString, folder);
    QFETCH(QString, pagesPerInterval);
    QFETCH(QString, expression);
    QFETCH(QString, message);
    const QString a = document(QStringLiteral("a.pdf"), 3);
    const QString b = document(QStringLiteral("b.pdf"), 2);
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("out")));
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("missing")));

    ViewControllerSplit window(m_alerts);
    if (listed != QLatin1String("none")) {
        m_alerts.pdfPanels << QStringList{a, b};
        window.documents().OnAddPDFDocument();
    }
    if (listed == QLatin1String("deleted")) {
        QVERIFY(QFile::remove(b));
    }
    if (folder != QLatin1String("none")) {
        m_alerts.folders << path(folder);
        QTest::mouseClick(child<QPushButton>(&window, "buttonBrowse"), Qt::LeftButton);
    }
    if (folder == QLatin1String("missing")) {
        QVERIFY(QDir(path(folder)).removeRecursively());
    }
    if (!expression.isEmpty()) {
        QTest::mouseClick(child<QRadioButton>(&window, "radioIntervalSplit"), Qt::LeftButton);
        child<QLineEdit>(&window, "textFieldPagesIntervals")->setText(expression);
    }
    child<QLineEdit>(&window, "textFieldPagesPerInterval")->setText(pagesPerInterval);
    m_alerts.log.clear();

    window.OnSplitPDFDocuments();
    QVERIFY(!window.isRunning());
    message.replace(QStringLiteral("<b>"), b).replace(QStringLiteral("<missing>"), path("missing"));
    QCOMPARE(m_alerts.log, QStringList{QStringLiteral("message|") + message});
    QVERIFY(child<QWidget>(&window, "buttonSplitPDFDocuments")->isEnabled());
    QVERIFY(child<QWidget>(&window, "tableViewPDF")->isEnabled());
    QCOMPARE(QDir(path(QStringLiteral("out"))).entryList(QDir::Files), QStringList{});
}

void TestApp::splitOverwriteAnswersHoldAcrossDocuments()
{
    const QString a = document(QStringLiteral("a.pdf"), 2);
    const QString b = document(QStringLiteral("b.pdf"), 2);
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("out")));
    const QString out = path(QStringLiteral("out"));
    // a(Page2) and b(Page1) exist already.
    const QString a2 = QDir(out).filePath(QStringLiteral("a(Page2).pdf"));
    const QString b1 = QDir(out).filePath(QStringLiteral("b(Page1).pdf"));
    TestPdf::write(a2, TestPdf::pages(1, QStringLiteral("old")));
    TestPdf::write(b1, TestPdf::pages(1, QStringLiteral("old")));

    ViewControllerSplit window(m_alerts);
    listDocuments(window, QStringList{a, b});
    m_alerts.folders << out;
    window.findChild<QPushButton *>(QStringLiteral("buttonBrowse"))->click();
    m_alerts.log.clear();
    m_alerts.answers << OverwriteAnswer::NoToAll;
    window.OnSplitPDFDocuments();
    waitForRun(window);

    // One question: the answer holds for the second document too.
    QCOMPARE(m_alerts.log,
             (QStringList{QStringLiteral("ask|") + a2, QStringLiteral("message|") + splitText}));
    QCOMPARE(TestPdf::read(a2).markers(), QStringList{"old1"});
    QCOMPARE(TestPdf::read(b1).markers(), QStringList{"old1"});
    QCOMPARE(TestPdf::read(QDir(out).filePath(QStringLiteral("a(Page1).pdf"))).markers(),
             QStringList{"a1"});
    QCOMPARE(TestPdf::read(QDir(out).filePath(QStringLiteral("b(Page2).pdf"))).markers(),
             QStringList{"b2"});
}

void TestApp::splitNeverReplacesAListedDocument()
{
    const QString a = document(QStringLiteral("a.pdf"), 2);
    const QString b = document(QStringLiteral("b.pdf"), 2);
    const QByteArray before = digest(b);
    ViewControllerSplit window(m_alerts);
    listDocuments(window, QStringList{a, b});
    m_alerts.folders << m_dir->path();
    window.findChild<QPushButton *>(QStringLiteral("buttonBrowse"))->click();
    // Each document's first page would be written over the document itself.
    child<QRadioButton>(&window, "radioIntervalSplit")->click();
    child<QLineEdit>(&window, "textFieldPagesIntervals")->setText(QStringLiteral("1"));
    child<QLineEdit>(&window, "textFieldNames")->setText(QStringLiteral("[FileName]"));
    m_alerts.log.clear();
    window.OnSplitPDFDocuments();
    waitForRun(window);
    QCOMPARE(m_alerts.log,
             QStringList{QStringLiteral("message|Could not split PDF document(s).\n\nThese files "
                                        "are documents of the list and were not replaced; change "
                                        "the file names:\n")
                         + a + QLatin1Char('\n') + b});
    QCOMPARE(digest(b), before);
    QCOMPARE(TestPdf::read(a).markers(), (QStringList{"a1", "a2"}));
}

void TestApp::splitControls()
{
    ViewControllerSplit window(m_alerts);
    auto *field = child<QLineEdit>(&window, "textFieldPagesPerInterval");
    auto *stepper = child<Stepper>(&window, "stepperPagesPerInterval");
    auto *names = child<QLineEdit>(&window, "textFieldNames");
    auto *consecutive = child<QRadioButton>(&window, "radioConsecutivePageSplit");
    auto *intervals = child<QRadioButton>(&window, "radioIntervalSplit");

    stepper->stepUp();
    stepper->stepUp();
    QCOMPARE(field->text(), QStringLiteral("3"));
    field->clear();
    QTest::keyClicks(field, QStringLiteral("12"));
    QCOMPARE(stepper->value(), 12.0);
    stepper->stepDown();
    QCOMPARE(field->text(), QStringLiteral("11"));
    // Whole numbers only; below the stepper's limit the field keeps 0 and the run refuses it.
    field->clear();
    QTest::keyClicks(field, QStringLiteral("x-.0"));
    QCOMPARE(field->text(), QStringLiteral("0"));
    QCOMPARE(stepper->value(), 1.0);

    intervals->click();
    QVERIFY(!consecutive->isChecked());
    names->setText(QStringLiteral("part[IntervalStart]"));
    intervals->click();
    QCOMPARE(names->text(), QStringLiteral("part[IntervalStart]"));
    consecutive->click();
    QVERIFY(!intervals->isChecked());
    QCOMPARE(names->text(), QStringLiteral("[FileName](Page[IntervalIndex])"));
}

void TestApp::splitFileNewAndProfiles()
{
    const QString a = document(QStringLiteral("a.pdf"), 1);
    ViewControllerSplit window(m_alerts);
    QCOMPARE(window.windowTitle(), QStringLiteral("Split PDF Documents"));
    listDocuments(window, QStringList{a});
    Profiles::SplitSettings custom;
    custom.mode = Naming::SplitMode::Intervals;
    custom.pagesPerInterval = 4;
    custom.expression = QStringLiteral("1,[2-5]");
    custom.nameTemplate = QStringLiteral("[FileName]-[IntervalIndex]");
    custom.folder = m_dir->path();
    window.setSettings(custom);

    // Save Profile without a file in use asks for one.
    const QString profile = path(QStringLiteral("book.json"));
    m_alerts.saveFiles << profile;
    action(&window, "actionSaveProfile")->trigger();
    QCOMPARE(window.currentProfilePath(), profile);
    QCOMPARE(window.windowTitle(), QStringLiteral("book.json — Split PDF Documents"));

    // File > New: every setting, the list, the profile and the title.
    action(&window, "actionNew")->trigger();
    QCOMPARE(window.documents().listPdfPaths(), QStringList{});
    QCOMPARE(window.settings().toJson(), Profiles::SplitSettings{}.toJson());
    QCOMPARE(window.currentProfilePath(), QString());
    QCOMPARE(window.windowTitle(), QStringLiteral("Split PDF Documents"));

    m_alerts.openFiles << profile;
    action(&window, "actionLoadProfile")->trigger();
    QCOMPARE(window.settings().toJson(), custom.toJson());
    QCOMPARE(child<Stepper>(&window, "stepperPagesPerInterval")->value(), 4.0);
    QCOMPARE(window.windowTitle(), QStringLiteral("book.json — Split PDF Documents"));

    // Save Profile writes the file in use without asking.
    child<QLineEdit>(&window, "textFieldPagesIntervals")->setText(QStringLiteral("7"));
    m_alerts.log.clear();
    action(&window, "actionSaveProfile")->trigger();
    QCOMPARE(m_alerts.log, QStringList{});
    QString error;
    QCOMPARE(Profiles::SplitSettings::fromJson(
                 *Profiles::read(profile, QStringLiteral("split"), &error), &error)
                 ->expression,
             QStringLiteral("7"));

    // A file that is not a split profile changes nothing.
    QFile other(path(QStringLiteral("crop.json")));
    QVERIFY(other.open(QIODevice::WriteOnly));
    other.write(R"({"tool": "crop", "settings": {}})");
    other.close();
    m_alerts.openFiles << other.fileName();
    m_alerts.log.clear();
    action(&window, "actionLoadProfile")->trigger();
    QCOMPARE(m_alerts.log.size(), 2);
    QVERIFY(
        m_alerts.log.last().startsWith(QStringLiteral("message|The profile could not be loaded")));
    QCOMPARE(window.currentProfilePath(), profile);
    QCOMPARE(window.settings().expression, QStringLiteral("7"));
}

void TestApp::windowClosedDuringARun()
{
    QStringList inputs;
    for (const char *name : {"a.pdf", "b.pdf", "c.pdf"}) {
        inputs << document(QString::fromLatin1(name), 40);
    }
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("out")));
    auto window = std::make_unique<ViewControllerSplit>(m_alerts);
    listDocuments(*window, inputs);
    m_alerts.folders << path(QStringLiteral("out"));
    child<QPushButton>(window.get(), "buttonBrowse")->click();
    m_alerts.log.clear();
    window->OnSplitPDFDocuments();
    QVERIFY(window->isRunning());
    window.reset();

    // The job ends on its own; what it sends back finds no window and is dropped.
    QThreadPool::globalInstance()->waitForDone();
    QTest::qWait(50);
    QCOMPARE(m_alerts.log, QStringList{});
    QCOMPARE(QDir(path(QStringLiteral("out"))).entryList(QDir::Files).size(), 120);
}

void TestApp::launcherOpensFreshWindows()
{
    const QString a = document(QStringLiteral("a.pdf"), 1);
    ViewController launcher(m_alerts);
    QList<int> listSizes;
    QStringList titles;
    connect(&launcher, &ViewController::toolWindowOpened, this, [&](ToolWindow *window) {
        listSizes << int(window->findChild<DocumentList *>()->listPdfPaths().size());
        titles << window->windowTitle();
        window->findChild<DocumentList *>()->acceptDrop({QUrl::fromLocalFile(a)}, 0);
        QTimer::singleShot(0, window, [window] {
            QCOMPARE(QApplication::activeModalWidget(), window);
            window->close();
        });
    });
    launcher.openTool(Tool::Split);
    launcher.openTool(Tool::Split);
    launcher.openTool(Tool::Merge);
    QCOMPARE(listSizes, (QList<int>{0, 0, 0}));
    QCOMPARE(titles,
             (QStringList{"Split PDF Documents", "Split PDF Documents", "Merge PDF Documents"}));
    QCOMPARE(QApplication::activeModalWidget(), nullptr);
}

void TestApp::menusAndHelpPages()
{
    // The launcher has no settings: File > New and the profiles have no receiver there.
    ViewController launcher(m_alerts);
    QVERIFY(!action(&launcher, "actionNew")->isEnabled());
    QVERIFY(!action(&launcher, "actionLoadProfile")->isEnabled());
    ViewControllerSplit split(m_alerts);
    QVERIFY(action(&split, "actionNew")->isEnabled());

    // Every tool has a page that ships with the program; F1 opens the window's own.
    for (Tool tool : {Tool::Merge, Tool::Split, Tool::Crop, Tool::Watermark, Tool::Properties}) {
        QVERIFY(QFileInfo(MainMenu::helpPagePath(tool)).isFile());
    }
    QCOMPARE(action(&split, "actionHowToSplitPDFDocuments")->shortcut(),
             QKeySequence(QKeySequence::HelpContents));
    action(&launcher, "actionHowToCropPDFDocuments")->trigger();
    QCOMPARE(m_alerts.log,
             QStringList{QStringLiteral("url|")
                         + QUrl::fromLocalFile(MainMenu::helpPagePath(Tool::Crop)).toString()});
}

QTEST_MAIN(TestApp)
#include "tst_app.moc"
