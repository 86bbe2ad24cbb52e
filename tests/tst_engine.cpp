// The engine's read side, merge, split and document properties, on documents built for each
// case and on real ones.

#include "engine/pdftools.h"
#include "engine/xmp.h"
#include "testpdf.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPdfDocument>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

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

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The title as PDFium (the preview's renderer, and many a browser's viewer) reads it.
QString pdfiumTitle(const QString &path)
{
    QPdfDocument document;
    document.load(path);
    return document.metaData(QPdfDocument::MetaDataField::Title).toString();
}

const QString dc = QStringLiteral("http://purl.org/dc/elements/1.1/");
const QString pdfNs = QStringLiteral("http://ns.adobe.com/pdf/1.3/");
const QString rdfNs = QStringLiteral("http://www.w3.org/1999/02/22-rdf-syntax-ns#");

// Every value an XMP packet gives a property, in element or attribute form; for an array, its
// first item.
QStringList xmpValues(const QByteArray &xmp, const QString &ns, const QString &name)
{
    QStringList values;
    QXmlStreamReader reader(xmp);
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement) {
            continue;
        }
        for (const auto &attribute : reader.attributes()) {
            if (attribute.namespaceUri() == ns && attribute.name() == name) {
                values << attribute.value().toString();
            }
        }
        if (reader.namespaceUri() != ns || reader.name() != name) {
            continue;
        }
        QString text;
        for (int depth = 1; depth > 0 && !reader.atEnd();) {
            const auto token = reader.readNext();
            if (token == QXmlStreamReader::StartElement && reader.name() == u"li") {
                text = reader.readElementText();
                reader.skipCurrentElement(); // the array
                reader.skipCurrentElement(); // the property
                break;
            }
            depth += token == QXmlStreamReader::StartElement ? 1
                     : token == QXmlStreamReader::EndElement ? -1
                                                             : 0;
            if (token == QXmlStreamReader::Characters) {
                text += reader.text();
            }
        }
        values << text.trimmed();
    }
    return values;
}

QByteArray packet(const QByteArray &description)
{
    return "<?xpacket begin=\"\xef\xbb\xbf\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>"
           "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">"
           "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">"
           + description + "</rdf:RDF></x:xmpmeta><?xpacket end=\"w\"?>";
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
    void propertyTemplates_data();
    void propertyTemplates();
    void propertiesSaved_data();
    void propertiesSaved();
    void propertiesNotSaved_data();
    void propertiesNotSaved();
    void propertiesKeepPermissionsAndLinks();
    void propertiesOfRealDocuments();
    void xmpPacket_data();
    void xmpPacket();

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

void TestEngine::propertyTemplates_data()
{
    // The document's title, author, subject and keywords; the four templates; what is written.
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("templates");
    QTest::addColumn<QStringList>("after");
    const QStringList report{"Sales", "Ann", "Figures", "Finance; 2019"};
    QTest::newRow("worked example")
        << "Q3 Report.pdf" << report
        << QStringList{"[FileName] - [Original]", "[Original]", "", "[Original] draft,[FileName]"}
        << QStringList{"Q3 Report - Sales", "Ann", "", "Finance, 2019, draft, Q3 Report"};
    QTest::newRow("defaults") << "Q3 Report.pdf" << report
                              << QStringList{"[FileName]", "[Original]", "[Original]", "[Original]"}
                              << QStringList{"Q3 Report", "Ann", "Figures", "Finance, 2019"};
    QTest::newRow("placeholders are case-sensitive")
        << "a.pdf" << report << QStringList{"[original]", "[FILENAME]", "[Original]!", "[original]"}
        << QStringList{"[original]", "[FILENAME]", "Figures!", "[original]"};
    QTest::newRow("blanks and commas separate keywords")
        << "a.pdf" << report << QStringList{"", "", "", "a b,,c  ,"}
        << QStringList{"", "", "", "a, b, c"};
    QTest::newRow("keyword placeholders only as whole pieces")
        << "a.pdf" << report << QStringList{"", "", "", "[Original] x[Original] [Original]"}
        << QStringList{"", "", "", "Finance, 2019, x[Original], Finance, 2019"};
    QTest::newRow("every .pdf leaves the file name")
        << "my.pdfs.pdf" << report << QStringList{"[FileName]", "", "", "[FileName]"}
        << QStringList{"mys", "", "", "mys"};
    QTest::newRow("upper-case extension stays")
        << "notes.PDF" << report << QStringList{"[FileName]", "", "", ""}
        << QStringList{"notes.PDF", "", "", ""};
    QTest::newRow("a placeholder inside the old value is replaced")
        << "Annual.pdf" << QStringList{"[FileName] draft", "", "", ""}
        << QStringList{"[Original]", "[Original]", "[Original]", "[Original]"}
        << QStringList{"Annual draft", "", "", ""};
    QTest::newRow("any script") << "a.pdf" << QStringList{"Ελληνικά", "", "", ""}
                                << QStringList{"[Original] 日本語 😀", "Jürgen Œ", "", "Ω ü"}
                                << QStringList{"Ελληνικά 日本語 😀", "Jürgen Œ", "", "Ω, ü"};
    QTest::newRow("no information dictionary")
        << "Bare.pdf" << QStringList{} << QStringList{"[FileName]", "[Original]", "", "[Original]"}
        << QStringList{"Bare", "", "", ""};
}

void TestEngine::propertyTemplates()
{
    QFETCH(QString, fileName);
    QFETCH(QStringList, before);
    QFETCH(QStringList, templates);
    QFETCH(QStringList, after);
    TestPdf::Document document = TestPdf::pages(2);
    document.noInfo = before.isEmpty();
    if (!before.isEmpty()) {
        document.title = before[0];
        document.author = before[1];
        document.subject = before[2];
        document.keywords = before[3];
    }
    TestPdf::write(path(fileName), document);
    QVERIFY(PDFTools::ChangedDocumentsPropertiesWithPdfPath(
        path(fileName), templates[0], templates[1], templates[2], templates[3]));
    const auto read = TestPdf::read(path(fileName));
    QVERIFY(read.clean);
    QCOMPARE((QStringList{read.title, read.author, read.subject, read.keywords}), after);
    QCOMPARE(read.markers(), (QStringList{"p1", "p2"}));
    // A fresh read gives the list back.
    QCOMPARE(PDFTools::SummarizeDocument(path(fileName)).keywords.join(QLatin1String(", ")),
             after[3]);
}

void TestEngine::propertiesSaved_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("appended"); // the original bytes stay as they were, at the start
    QTest::newRow("cross-reference table") << "table" << true;
    QTest::newRow("cross-reference stream") << "stream" << true;
    QTest::newRow("hybrid cross-references") << "hybrid" << false;
    QTest::newRow("encrypted") << "encrypted" << false;
}

void TestEngine::propertiesSaved()
{
    QFETCH(QString, kind);
    QFETCH(bool, appended);
    TestPdf::Document document = TestPdf::pages(3);
    document.title = QStringLiteral("Old");
    document.objectStreams = kind == QLatin1String("stream");
    document.hybrid = kind == QLatin1String("hybrid");
    document.encrypt = kind == QLatin1String("encrypted");
    TestPdf::write(path("doc.pdf"), document);
    const QByteArray original = contents(path("doc.pdf"));

    // Twice: an update is appended to an update.
    for (const QString title : {"Naïve ☃", "[Original] 2"}) {
        QVERIFY(
            PDFTools::ChangedDocumentsPropertiesWithPdfPath(path("doc.pdf"), title, "", "", ""));
    }
    const auto read = TestPdf::read(path("doc.pdf"));
    QVERIFY(read.clean);
    QCOMPARE(read.title, QStringLiteral("Naïve ☃ 2"));
    QCOMPARE(read.markers(), (QStringList{"p1", "p2", "p3"}));
    QCOMPARE(pdfiumTitle(path("doc.pdf")), QStringLiteral("Naïve ☃ 2"));
    QCOMPARE(contents(path("doc.pdf")).startsWith(original), appended);
    QCOMPARE(PDFTools::LoadTest(path("doc.pdf")) == PDFTools::LoadStatus::Encrypted,
             document.encrypt);
    QCOMPARE(strayFiles(QDir(m_dir->path()), {"doc.pdf"}), QStringList());
}

void TestEngine::propertiesNotSaved_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("read-only file") << "read-only file";
    QTest::newRow("read-only folder") << "read-only folder";
    QTest::newRow("full disk") << "full disk";
    QTest::newRow("not a PDF") << "not a PDF";
    QTest::newRow("damaged, no page readable") << "damaged";
    QTest::newRow("missing") << "missing";
}

void TestEngine::propertiesNotSaved()
{
    QFETCH(QString, kind);
    QDir(m_dir->path()).mkdir(QStringLiteral("in"));
    const QString doc = path("in/doc.pdf");
    TestPdf::write(doc, TestPdf::pages(kind == QLatin1String("full disk") ? 400 : 1));
    if (kind == QLatin1String("not a PDF")) {
        QFile file(doc);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("%PDF-1.4\nnot really\n");
    } else if (kind == QLatin1String("damaged")) {
        // The catalog leads to no page tree, and the cross-reference offset is wrong.
        QByteArray bytes = contents(doc);
        const qsizetype pages = bytes.indexOf("/Pages ") + 7;
        bytes.replace(pages, bytes.indexOf(' ', pages) - pages, "99");
        bytes.replace(bytes.lastIndexOf("startxref") + 10, 1, "9");
        QFile file(doc);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    } else if (kind == QLatin1String("missing")) {
        QFile::remove(doc);
    } else if (kind == QLatin1String("read-only file")) {
        QFile::setPermissions(doc, QFileDevice::ReadOwner | QFileDevice::ReadGroup);
    } else if (kind == QLatin1String("read-only folder")) {
        QFile::setPermissions(path("in"), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    }
    const QByteArray before = contents(doc);
    const auto files = QDir(path("in")).entryList(QDir::Files | QDir::Hidden);
    bool saved = true;
    {
        std::signal(SIGXFSZ, SIG_IGN);
        ScopedLimit size(RLIMIT_FSIZE,
                         kind == QLatin1String("full disk") ? 64 * 1024 : RLIM_INFINITY);
        saved = PDFTools::ChangedDocumentsPropertiesWithPdfPath(doc, "New", "", "", "");
    }
    QFile::setPermissions(path("in"),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QVERIFY(!saved);
    QCOMPARE(contents(doc), before);
    QCOMPARE(strayFiles(QDir(path("in")), files), QStringList());
}

void TestEngine::propertiesKeepPermissionsAndLinks()
{
    TestPdf::write(path("doc.pdf"), TestPdf::pages(1));
    const auto mode = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup;
    QFile::setPermissions(path("doc.pdf"), mode);
    QVERIFY(QFile::link(path("doc.pdf"), path("link.pdf")));
    QVERIFY(PDFTools::ChangedDocumentsPropertiesWithPdfPath(
        path("link.pdf"), "[FileName]", "", "", ""));
    QVERIFY(QFileInfo(path("link.pdf")).isSymLink());
    QCOMPARE(TestPdf::read(path("doc.pdf")).title, QStringLiteral("link"));
    QCOMPARE(QFileInfo(path("doc.pdf")).permissions() & 0x7077, mode & 0x7077);
}

void TestEngine::propertiesOfRealDocuments()
{
    const QStringList names{"020-xmp_output_with_metadata_pymupdf.pdf",
                            "pdf20-utf8-test.pdf",
                            "PDF 2.0 with offset start.pdf",
                            "016-libre-office-link_libre-office-link.pdf"};
    for (const QString &name : names) {
        QVERIFY(QFile::copy(corpus(name), path(name)));
        QFile::setPermissions(path(name), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        const auto before = TestPdf::read(path(name));
        QVERIFY2(PDFTools::ChangedDocumentsPropertiesWithPdfPath(
                     path(name), "[Original] ✓", "[Original]", "[Original]", "[Original] q"),
                 qPrintable(name));
        const auto after = TestPdf::read(path(name));
        QVERIFY2(after.clean, qPrintable(name));
        QCOMPARE(after.title, before.title + QStringLiteral(" ✓"));
        QCOMPARE(after.pages.size(), before.pages.size());
        QCOMPARE(pdfiumTitle(path(name)), after.title);
    }
    // The UTF-8 strings of PDF 2.0 are read as text.
    QVERIFY(TestPdf::read(path("pdf20-utf8-test.pdf")).title.startsWith(QStringLiteral("表")));
    // The XMP packet takes the new title and keywords; the author it alone knows stays.
    const QByteArray xmp = TestPdf::read(path(names[0])).xmp;
    QCOMPARE(xmpValues(xmp, dc, "title"), QStringList{"✓"});
    QCOMPARE(xmpValues(xmp, dc, "creator"), QStringList{"John Doe"});
    QCOMPARE(xmpValues(xmp, pdfNs, "Keywords"), QStringList{"q"});
    QCOMPARE(xmpValues(xmp, "http://ns.adobe.com/pdfx/1.3/", "Style"), QStringList{"FooBarStyle"});
}

void TestEngine::xmpPacket_data()
{
    QTest::addColumn<QByteArray>("packet");
    QTest::addColumn<bool>("setKeywords");
    QTest::addColumn<QStringList>("titles"); // empty: the packet is left alone
    QTest::addColumn<QStringList>("keywords");
    QTest::addColumn<QStringList>("creators");
    const QByteArray about
        = "<rdf:Description rdf:about=\"\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\" "
          "xmlns:pdf=\"http://ns.adobe.com/pdf/1.3/\"";
    QTest::newRow("properties replaced, the others kept")
        << packet(about
                  + "><dc:title><rdf:Alt><rdf:li xml:lang=\"x-default\">Old</rdf:li>"
                    "<rdf:li xml:lang=\"de\">Alt</rdf:li></rdf:Alt></dc:title><dc:creator><rdf:Seq>"
                    "<rdf:li>Ann</rdf:li></rdf:Seq></dc:creator><pdf:Keywords>k</pdf:Keywords>"
                    "</rdf:Description>")
        << true << QStringList{"A < B & \"C\""} << QStringList{"x, y"} << QStringList{"Ann"};
    QTest::newRow("short-hand attribute replaced")
        << packet(about + " pdf:Keywords=\"old\"/>") << true << QStringList{"A < B & \"C\""}
        << QStringList{"x, y"} << QStringList{};
    QTest::newRow("keywords not set are kept")
        << packet(about + " pdf:Keywords=\"old\"/>") << false << QStringList{"A < B & \"C\""}
        << QStringList{"old"} << QStringList{};
    QTest::newRow("a description of its own") << packet("") << true << QStringList{"A < B & \"C\""}
                                              << QStringList{"x, y"} << QStringList{};
    QTest::newRow("another prefix for RDF")
        << QByteArray("<r:RDF xmlns:r=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">"
                      "<r:Description r:about=\"\"/></r:RDF>")
        << true << QStringList{"A < B & \"C\""} << QStringList{"x, y"} << QStringList{};
    QTest::newRow("not well-formed")
        << packet(about + "><dc:title>") << true << QStringList{} << QStringList{} << QStringList{};
    QTest::newRow("no RDF") << QByteArray("<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>") << true
                            << QStringList{} << QStringList{} << QStringList{};
}

void TestEngine::xmpPacket()
{
    QFETCH(QByteArray, packet);
    QFETCH(bool, setKeywords);
    QFETCH(QStringList, titles);
    QFETCH(QStringList, keywords);
    QFETCH(QStringList, creators);
    Engine::XmpProperties values;
    values.title = QStringLiteral("A < B & \"C\"\x01");
    if (setKeywords) {
        values.keywords = QStringLiteral("x, y");
    }
    const QByteArray updated = Engine::updatedXmp(packet, values);
    QCOMPARE(updated.isEmpty(), titles.isEmpty());
    if (titles.isEmpty()) {
        return;
    }
    QCOMPARE(xmpValues(updated, dc, "title"), titles);
    QCOMPARE(xmpValues(updated, pdfNs, "Keywords"), keywords);
    QCOMPARE(xmpValues(updated, dc, "creator"), creators);
    QVERIFY(updated.startsWith(packet.left(packet.indexOf("?>") + 2)));
}

QTEST_GUILESS_MAIN(TestEngine)
#include "tst_engine.moc"
