// The engine's read side, merge and split, on documents built for each case and on real ones.

#include "engine/pdftools.h"
#include "testpdf.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

Q_DECLARE_METATYPE(PDFTools::LoadStatus)

namespace {

QString corpus(const QString &name)
{
    return QStringLiteral(QUIRE_TEST_DATA "/corpus/") + name;
}

// Files in dir other than the listed ones: a failed write must leave no temporary file.
QStringList strayFiles(const QDir &dir, const QStringList &expected)
{
    QStringList stray;
    const auto entries = dir.entryList(QDir::Files | QDir::Hidden);
    for (const QString &name : entries) {
        if (!expected.contains(name)) {
            stray << name;
        }
    }
    return stray;
}

// Sets a resource limit for the length of a scope.
class ScopedLimit
{
public:
    ScopedLimit(int resource, rlim_t soft)
        : m_resource(resource)
    {
        getrlimit(resource, &m_saved);
        struct rlimit limit = m_saved;
        limit.rlim_cur = soft;
        setrlimit(resource, &limit);
    }
    ~ScopedLimit() { setrlimit(m_resource, &m_saved); }

private:
    int m_resource;
    struct rlimit m_saved;
};

} // namespace

class TestEngine : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void fileSizeText_data();
    void fileSizeText();
    void inspection();
    void loadTest_data();
    void loadTest();
    void mergeOrderInfoAndProgress();
    void mergeSkipsUnreadable();
    void mergeKeepsPagesAsTheyAre();
    void mergeIntoOneOfItsInputs();
    void mergeFailures();
    void mergeStaysWithinTheOpenFileLimit();
    void writeFailureLeavesNothing();
    void splitRanges_data();
    void splitRanges();
    void splitParsesOnceForManyIntervals();
    void links_data();
    void links();
    void realDocuments();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestEngine::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestEngine::fileSizeText_data()
{
    QTest::addColumn<quint64>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("0") << quint64(0) << "0 B";
    QTest::newRow("1023") << quint64(1023) << "1023 B";
    QTest::newRow("1024") << quint64(1024) << "1.0 KB";
    QTest::newRow("1075") << quint64(1075) << "1.0 KB";
    QTest::newRow("1076") << quint64(1076) << "1.1 KB";
    QTest::newRow("1536") << quint64(1536) << "1.5 KB";
    QTest::newRow("1048575 rounds up, stays KB") << quint64(1048575) << "1024.0 KB";
    QTest::newRow("1048576") << quint64(1048576) << "1.0 MB";
    QTest::newRow("1073741823 in single precision") << quint64(1073741823) << "1024.0 MB";
    QTest::newRow("1073741824") << quint64(1073741824) << "1.0 GB";
    QTest::newRow("1099511627776") << quint64(1099511627776) << "1.0 TB";
}

void TestEngine::fileSizeText()
{
    QFETCH(quint64, bytes);
    QFETCH(QString, text);
    QCOMPARE(PDFTools::FileSizeText(bytes), text);
}

void TestEngine::inspection()
{
    TestPdf::Document a4 = TestPdf::pages(2);
    a4.pages[0].mediaBox = QRectF(0, 0, 595.28, 841.89);
    a4.pages[1].mediaBox = QRectF(0, 0, 842, 595);
    TestPdf::write(path("a4.pdf"), a4);
    QCOMPARE(PDFTools::GetPDFNumberOfPages(path("a4.pdf")), 2);
    QCOMPARE(PDFTools::GetPDFPageSize(path("a4.pdf")), QStringLiteral("595 x 841"));

    TestPdf::Document inherited = TestPdf::pages(1);
    inherited.inheritMediaBox = true;
    inherited.pages[0].mediaBox = QRectF(50, 60, 300, 400.9);
    inherited.pages[0].rotate = 90; // rotation does not swap the page-size text
    TestPdf::write(path("inherited.pdf"), inherited);
    QCOMPARE(PDFTools::GetPDFPageSize(path("inherited.pdf")), QStringLiteral("300 x 400"));

    QFile text(path("notes.txt"));
    QVERIFY(text.open(QIODevice::WriteOnly));
    text.write(QByteArray(2000, 'x'));
    text.close();
    QCOMPARE(PDFTools::GetPDFNumberOfPages(text.fileName()), 0);
    QCOMPARE(PDFTools::GetPDFPageSize(text.fileName()), QStringLiteral("0 x 0"));
    QCOMPARE(PDFTools::GetSizeWithPath(text.fileName()), QStringLiteral("2.0 KB"));

    const QString missing = path("missing.pdf");
    QCOMPARE(PDFTools::GetPDFNumberOfPages(missing), 0);
    QCOMPARE(PDFTools::GetPDFPageSize(missing), QStringLiteral("0 x 0"));
    QCOMPARE(PDFTools::GetSizeWithPath(missing), QStringLiteral("0 B"));
    const QDateTime now = QDateTime::currentDateTime();
    QVERIFY(qAbs(PDFTools::DocumentCreationDateWithPath(missing).secsTo(now)) < 5);
    const QDateTime created = PDFTools::DocumentCreationDateWithPath(path("a4.pdf"));
    QVERIFY(created.isValid() && qAbs(created.secsTo(now)) < 60);

    TestPdf::Document titled = TestPdf::pages(1);
    titled.title = QStringLiteral("Ελληνικά 日本語 🎉");
    titled.keywords = QStringLiteral("alpha, beta;gamma ,, ");
    TestPdf::write(path("titled.pdf"), titled);
    const auto summary = PDFTools::SummarizeDocument(path("titled.pdf"));
    QCOMPARE(summary.title, titled.title);
    QCOMPARE(summary.keywords, (QStringList{"alpha", "beta", "gamma"}));
    QCOMPARE(summary.pageSize, QStringLiteral("612 x 792"));
}

void TestEngine::loadTest_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<PDFTools::LoadStatus>("status");
    QTest::newRow("plain") << "plain.pdf" << PDFTools::LoadStatus::Loadable;
    QTest::newRow("owner password only") << "owner.pdf" << PDFTools::LoadStatus::Encrypted;
    QTest::newRow("user password") << "user.pdf" << PDFTools::LoadStatus::PasswordProtected;
    QTest::newRow("cut in the middle") << "truncated.pdf" << PDFTools::LoadStatus::Damaged;
    QTest::newRow("wrong startxref is repaired") << "badxref.pdf" << PDFTools::LoadStatus::Loadable;
    QTest::newRow("not a PDF") << "text.pdf" << PDFTools::LoadStatus::Damaged;
    QTest::newRow("missing") << "missing.pdf" << PDFTools::LoadStatus::Missing;
    QTest::newRow("real: needs a password")
        << corpus("005-libreoffice-writer-password_libreoffice-writer-password.pdf")
        << PDFTools::LoadStatus::PasswordProtected;
    QTest::newRow("real: junk before the header")
        << corpus("PDF 2.0 with offset start.pdf") << PDFTools::LoadStatus::Loadable;
}

void TestEngine::loadTest()
{
    QFETCH(QString, file);
    QFETCH(PDFTools::LoadStatus, status);
    TestPdf::write(path("plain.pdf"), TestPdf::pages(3));
    TestPdf::Document owner = TestPdf::pages(1);
    owner.encrypt = true;
    TestPdf::write(path("owner.pdf"), owner);
    TestPdf::Document user = TestPdf::pages(1);
    user.userPassword = true;
    TestPdf::write(path("user.pdf"), user);
    QFile plain(path("plain.pdf"));
    QVERIFY(plain.open(QIODevice::ReadOnly));
    const QByteArray bytes = plain.readAll();
    QFile truncated(path("truncated.pdf"));
    QVERIFY(truncated.open(QIODevice::WriteOnly));
    truncated.write(bytes.left(bytes.size() / 3));
    truncated.close();
    QByteArray badXref = bytes;
    const qsizetype at = badXref.lastIndexOf("startxref\n") + 10;
    badXref.replace(at, badXref.indexOf('\n', at) - at, "12");
    QFile bad(path("badxref.pdf"));
    QVERIFY(bad.open(QIODevice::WriteOnly));
    bad.write(badXref);
    bad.close();
    QFile text(path("text.pdf"));
    QVERIFY(text.open(QIODevice::WriteOnly));
    text.write("just some words\n");
    text.close();

    const QString target = QFileInfo(file).isAbsolute() ? file : path(file);
    QCOMPARE(PDFTools::LoadTest(target), status);
}

void TestEngine::mergeOrderInfoAndProgress()
{
    TestPdf::Document a = TestPdf::pages(3, QStringLiteral("a"));
    a.title = QStringLiteral("First");
    a.author = QStringLiteral("Ann");
    a.version = QStringLiteral("1.4");
    TestPdf::Document b = TestPdf::pages(1, QStringLiteral("b"));
    b.title = QStringLiteral("Second");
    b.version = QStringLiteral("1.7");
    TestPdf::Document c = TestPdf::pages(2, QStringLiteral("c"));
    TestPdf::write(path("a.pdf"), a);
    TestPdf::write(path("b.pdf"), b);
    TestPdf::write(path("c.pdf"), c);
    QList<int> progress;
    QVERIFY(PDFTools::MergePdfs({path("a.pdf"), path("b.pdf"), path("c.pdf")},
                                path("out.pdf"),
                                [&](int mergedFiles) { progress << mergedFiles; }));
    QCOMPARE(progress, (QList<int>{1, 2, 3}));
    const auto out = TestPdf::read(path("out.pdf"));
    QCOMPARE(out.markers(), (QStringList{"a1", "a2", "a3", "b1", "c1", "c2"}));
    QCOMPARE(out.title, QStringLiteral("First"));
    QCOMPARE(out.author, QStringLiteral("Ann"));
    QCOMPARE(out.version, QStringLiteral("1.7")); // at least the highest of the inputs
}

void TestEngine::mergeSkipsUnreadable()
{
    TestPdf::write(path("a.pdf"), TestPdf::pages(1, QStringLiteral("a")));
    QFile broken(path("b.pdf"));
    QVERIFY(broken.open(QIODevice::WriteOnly));
    broken.write("%PDF-1.4 nothing else");
    broken.close();
    TestPdf::write(path("c.pdf"), TestPdf::pages(1, QStringLiteral("c")));
    QList<int> progress;
    QVERIFY(!PDFTools::MergePdfs({path("a.pdf"), path("b.pdf"), path("c.pdf")},
                                 path("out.pdf"),
                                 [&](int mergedFiles) { progress << mergedFiles; }));
    QCOMPARE(progress, (QList<int>{1, 3}));
    QCOMPARE(TestPdf::read(path("out.pdf")).markers(), (QStringList{"a1", "c1"}));
}

void TestEngine::mergeKeepsPagesAsTheyAre()
{
    TestPdf::Document mixed = TestPdf::pages(3);
    mixed.pages[1].mediaBox = QRectF(0, 0, 842, 595);
    mixed.pages[1].rotate = 90;
    mixed.pages[2].mediaBox = QRectF(50, 60, 612, 792);
    mixed.pages[2].cropBox = QRectF(60, 70, 500, 500);
    TestPdf::write(path("mixed.pdf"), mixed);
    TestPdf::Document inherited = TestPdf::pages(1, QStringLiteral("i"));
    inherited.inheritMediaBox = true;
    inherited.pages[0].mediaBox = QRectF(0, 0, 300, 300);
    TestPdf::write(path("inherited.pdf"), inherited);
    QVERIFY(PDFTools::MergePdfs({path("mixed.pdf"), path("inherited.pdf")}, path("out.pdf")));
    const auto out = TestPdf::read(path("out.pdf"));
    QCOMPARE(out.pages.size(), 4);
    QCOMPARE(out.pages[0].mediaBox, QRectF(0, 0, 612, 792));
    QCOMPARE(out.pages[1].mediaBox, QRectF(0, 0, 842, 595));
    QCOMPARE(out.pages[1].rotate, 90);
    QCOMPARE(out.pages[2].mediaBox, QRectF(50, 60, 612, 792));
    QCOMPARE(out.pages[2].cropBox, std::optional<QRectF>(QRectF(60, 70, 500, 500)));
    QCOMPARE(out.pages[3].mediaBox, QRectF(0, 0, 300, 300));
}

void TestEngine::mergeIntoOneOfItsInputs()
{
    TestPdf::write(path("a.pdf"), TestPdf::pages(2, QStringLiteral("a")));
    TestPdf::write(path("b.pdf"), TestPdf::pages(1, QStringLiteral("b")));
    QVERIFY(PDFTools::MergePdfs({path("a.pdf"), path("b.pdf")}, path("a.pdf")));
    QCOMPARE(TestPdf::read(path("a.pdf")).markers(), (QStringList{"a1", "a2", "b1"}));
    QCOMPARE(strayFiles(QDir(m_dir->path()), {"a.pdf", "b.pdf"}), QStringList());
}

void TestEngine::mergeFailures()
{
    QVERIFY(!PDFTools::MergePdfs({}, path("out.pdf")));
    QVERIFY(!QFile::exists(path("out.pdf")));

    TestPdf::write(path("empty.pdf"), TestPdf::Document{});
    TestPdf::write(path("a.pdf"), TestPdf::pages(1, QStringLiteral("a")));
    QVERIFY2(!PDFTools::MergePdfs({path("a.pdf"), path("empty.pdf")}, path("out.pdf")),
             "a document with no pages fails the merge");
    QCOMPARE(TestPdf::read(path("out.pdf")).markers(), QStringList{"a1"});

    QVERIFY(!PDFTools::MergePdfs({path("a.pdf")}, path("no/such/folder/out.pdf")));

    QDir(m_dir->path()).mkdir(QStringLiteral("locked"));
    QFile::setPermissions(path("locked"), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    if (QFileInfo(path("locked")).isWritable()) {
        QSKIP("running as a user who can write into any folder");
    }
    QVERIFY(!PDFTools::MergePdfs({path("a.pdf")}, path("locked/out.pdf")));
    QCOMPARE(QDir(path("locked")).entryList(QDir::Files | QDir::Hidden), QStringList());
}

void TestEngine::mergeStaysWithinTheOpenFileLimit()
{
    QStringList inputs;
    for (int i = 0; i < 600; ++i) {
        inputs << path(QStringLiteral("in%1.pdf").arg(i));
        TestPdf::Document doc = TestPdf::pages(1, QStringLiteral("d%1-").arg(i));
        TestPdf::write(inputs.back(), doc);
    }
    {
        ScopedLimit files(RLIMIT_NOFILE, 256);
        QVERIFY(PDFTools::MergePdfs(inputs, path("out.pdf")));
    }
    const auto out = TestPdf::read(path("out.pdf"));
    QCOMPARE(out.pages.size(), 600);
    QCOMPARE(out.pages[599].marker, QStringLiteral("d599-1"));
}

void TestEngine::writeFailureLeavesNothing()
{
    // A full disk: writes past 64 KB fail.
    TestPdf::Document big = TestPdf::pages(400);
    TestPdf::write(path("big.pdf"), big);
    TestPdf::write(path("out.pdf"), TestPdf::pages(1, QStringLiteral("old")));
    std::signal(SIGXFSZ, SIG_IGN);
    bool merged = true;
    bool split = true;
    {
        ScopedLimit size(RLIMIT_FSIZE, 64 * 1024);
        merged = PDFTools::MergePdfs({path("big.pdf"), path("big.pdf")}, path("out.pdf"));
        split = PDFTools::SplitPdf(path("big.pdf"), path("part.pdf"), 1, 400);
    }
    QVERIFY(!merged);
    QVERIFY(!split);
    QCOMPARE(TestPdf::read(path("out.pdf")).markers(), QStringList{"old1"});
    QCOMPARE(strayFiles(QDir(m_dir->path()), {"big.pdf", "out.pdf"}), QStringList());
}

void TestEngine::splitRanges_data()
{
    QTest::addColumn<qint64>("start");
    QTest::addColumn<qint64>("stop");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("markers"); // empty with written false: no file
    QTest::addColumn<bool>("written");
    QTest::addColumn<QString>("title");
    QTest::newRow("2 to 2") << qint64(2) << qint64(2) << true << QStringList{"p2"} << true
                            << "Book";
    QTest::newRow("whole") << qint64(1) << qint64(5) << true
                           << QStringList{"p1", "p2", "p3", "p4", "p5"} << true << "Book";
    QTest::newRow("4 to 6 keeps 4 and 5, no attributes")
        << qint64(4) << qint64(6) << false << QStringList{"p4", "p5"} << true << "";
    QTest::newRow("start after stop")
        << qint64(3) << qint64(2) << false << QStringList{} << false << "";
    QTest::newRow("from page 0") << qint64(0) << qint64(2) << false << QStringList{} << true << "";
}

void TestEngine::splitRanges()
{
    QFETCH(qint64, start);
    QFETCH(qint64, stop);
    QFETCH(bool, result);
    QFETCH(QStringList, markers);
    QFETCH(bool, written);
    QFETCH(QString, title);
    TestPdf::Document book = TestPdf::pages(5);
    book.title = QStringLiteral("Book");
    TestPdf::write(path("book.pdf"), book);
    QCOMPARE(PDFTools::SplitPdf(path("book.pdf"), path("part.pdf"), start, stop), result);
    QCOMPARE(QFile::exists(path("part.pdf")), written);
    if (written) {
        const auto part = TestPdf::read(path("part.pdf"));
        QCOMPARE(part.markers(), markers);
        QCOMPARE(part.title, title);
    }
}

void TestEngine::splitParsesOnceForManyIntervals()
{
    TestPdf::write(path("book.pdf"), TestPdf::pages(6));
    PdfSource source(path("book.pdf"));
    QCOMPARE(source.pageCount(), 6);
    QVERIFY(PDFTools::SplitPdf(source, path("one.pdf"), 1, 3));
    // The source may change on disk while it is held: its parsed pages are used.
    QVERIFY(QFile::remove(path("book.pdf")));
    QVERIFY(PDFTools::SplitPdf(source, path("two.pdf"), 4, 6));
    QCOMPARE(TestPdf::read(path("two.pdf")).markers(), (QStringList{"p4", "p5", "p6"}));

    PdfSource missing(path("book.pdf"));
    QVERIFY(!missing.isOpen());
    QVERIFY(!PDFTools::SplitPdf(missing, path("three.pdf"), 1, 1));
    QCOMPARE(TestPdf::read(path("three.pdf")).pages.size(), 0);
}

void TestEngine::links_data()
{
    // Page 1 links to page 3 (explicit destination), page 2 to page 4, page 3 back to page 1
    // through a named destination, page 4 back to page 2. Expected targets per output page,
    // -1 for nowhere.
    QTest::addColumn<bool>("merge");
    QTest::addColumn<qint64>("start");
    QTest::addColumn<qint64>("stop");
    QTest::addColumn<QList<QList<int>>>("links");
    QTest::newRow("merge after another document")
        << true << qint64(0) << qint64(0) << QList<QList<int>>{{}, {3}, {4}, {1}, {2}};
    QTest::newRow("split keeping both ends")
        << false << qint64(1) << qint64(3) << QList<QList<int>>{{2}, {-1}, {0}};
    QTest::newRow("split keeping a backward link")
        << false << qint64(2) << qint64(4) << QList<QList<int>>{{2}, {-1}, {0}};
    QTest::newRow("split leaving the targets out")
        << false << qint64(2) << qint64(3) << QList<QList<int>>{{-1}, {-1}};
}

void TestEngine::links()
{
    QFETCH(bool, merge);
    QFETCH(qint64, start);
    QFETCH(qint64, stop);
    QFETCH(QList<QList<int>>, links);
    TestPdf::Document linked = TestPdf::pages(4);
    linked.pages[0].linkTo = 2;
    linked.pages[1].linkTo = 3;
    linked.pages[2].namedLinkTo = 0;
    linked.pages[3].linkTo = 1;
    TestPdf::write(path("linked.pdf"), linked);
    TestPdf::write(path("one.pdf"), TestPdf::pages(1, QStringLiteral("o")));
    if (merge) {
        QVERIFY(PDFTools::MergePdfs({path("one.pdf"), path("linked.pdf")}, path("out.pdf")));
    } else {
        QVERIFY(PDFTools::SplitPdf(path("linked.pdf"), path("out.pdf"), start, stop));
    }
    const auto out = TestPdf::read(path("out.pdf"));
    QList<QList<int>> found;
    for (const auto &page : out.pages) {
        found << page.links;
    }
    QCOMPARE(found, links);
}

void TestEngine::realDocuments()
{
    // pdfTeX links through named destinations, a form, annotations, a rotated page.
    const QStringList inputs{corpus("006-pdflatex-outline_pdflatex-outline.pdf"),
                             corpus("010-pdflatex-forms_pdflatex-forms.pdf"),
                             corpus("024-annotations_annotated_pdf.pdf"),
                             corpus("015-arabic_habibi-rotated.pdf"),
                             corpus("pdf20-utf8-test.pdf")};
    qint64 pages = 0;
    for (const QString &input : inputs) {
        pages += PDFTools::GetPDFNumberOfPages(input);
    }
    QVERIFY(PDFTools::MergePdfs(inputs, path("all.pdf")));
    const auto all = TestPdf::read(path("all.pdf"));
    QCOMPARE(all.pages.size(), pages);
    QCOMPARE(all.version, QStringLiteral("2.0"));
    int working = 0;
    for (const auto &page : all.pages) {
        for (int target : page.links) {
            working += target >= 0 ? 1 : 0;
        }
    }
    QVERIFY2(working >= 3, "the pdfTeX document's internal links still lead somewhere");
    QCOMPARE(PDFTools::SummarizeDocument(path("all.pdf")).title,
             PDFTools::SummarizeDocument(inputs[0]).title);
}

QTEST_GUILESS_MAIN(TestEngine)
#include "tst_engine.moc"
