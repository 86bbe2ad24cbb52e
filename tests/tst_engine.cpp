// Page-interval expressions, output names and the overwrite pass (every worked example is a row);
// the engine's read side, merge, split, crop and document properties on documents built for each
// case and on real ones, and what every operation leaves behind when it cannot write.

#include "engine/pdftools.h"
#include "engine/watermarklayersource.h"
#include "jobs/profiles.h"
#include "jobs/watermarksettings.h"
#include "naming/intervals.h"
#include "naming/outputnames.h"
#include "naming/overwrite.h"
#include "preview/imagetools.h"
#include "testpdf.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QPdfDocument>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

#include <cmath>
#include <csignal>
#include <sys/resource.h>

Q_DECLARE_METATYPE(PDFTools::BookmarkPolicy)
Q_DECLARE_METATYPE(PDFTools::LoadStatus)
Q_DECLARE_METATYPE(TestPdf::Page)
Q_DECLARE_METATYPE(std::optional<QRectF>)

using namespace Naming;
using TestPdf::contents;
using TestPdf::row;

namespace {

QString corpus(const QString &name)
{
    return QStringLiteral(QUIRE_TEST_DATA "/corpus/") + name;
}

// The title as PDFium (the preview's renderer, and many a browser's viewer) reads it.
QString pdfiumTitle(const QString &path)
{
    QPdfDocument document;
    document.load(path);
    return document.metaData(QPdfDocument::MetaDataField::Title).toString();
}

// The bookmarks of a document without page markers, each page number shifted by offset.
QStringList outlineShifted(const QString &path, qint64 offset = 0)
{
    QStringList entries = TestPdf::read(path).outline;
    static const QRegularExpression page(">#(\\d+)");
    for (QString &entry : entries) {
        const auto match = page.match(entry);
        if (match.hasMatch()) {
            entry.replace(match.capturedStart(1),
                          match.capturedLength(1),
                          QString::number(match.captured(1).toLongLong() + offset));
        }
    }
    return entries;
}

// Every text and attribute value of an XML document, in order; nothing when it is not
// well-formed.
QStringList xmlTexts(const QByteArray &xml)
{
    QStringList texts;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd()) {
        reader.readNext();
        for (const auto &attribute : reader.attributes()) {
            texts << attribute.value().toString();
        }
        if (reader.isCharacters() && !reader.isWhitespace()) {
            texts << reader.text().trimmed().toString();
        }
    }
    return reader.hasError() ? QStringList() : texts;
}

// Runs body under a soft resource limit, restored afterwards.
template <typename Body> bool limited(int resource, rlim_t soft, Body body)
{
    struct rlimit saved;
    getrlimit(resource, &saved);
    struct rlimit limit = saved;
    limit.rlim_cur = soft;
    setrlimit(resource, &limit);
    const bool result = body();
    setrlimit(resource, &saved);
    return result;
}

// A box as text, to the thousandth of a point; "none" for no box.
QString text(const std::optional<QRectF> &r)
{
    if (!r) {
        return QStringLiteral("none");
    }
    const auto n = [](double v) { return QString::number(std::round(v * 1000) / 1000); };
    return n(r->x()) + ',' + n(r->y()) + ' ' + n(r->width()) + 'x' + n(r->height());
}

// "1 2 3" for a page list, "1-3 5-5" for intervals.
QString text(const QList<qint64> &pages)
{
    QStringList words;
    for (const qint64 page : pages) {
        words << QString::number(page);
    }
    return words.join(QLatin1Char(' '));
}

QString text(const QList<PageInterval> &intervals)
{
    QStringList words;
    for (const PageInterval &interval : intervals) {
        words << QStringLiteral("%1-%2").arg(interval.start).arg(interval.end);
    }
    return words.join(QLatin1Char(' '));
}

} // namespace

class TestEngine : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_dir.emplace(); }
    void expressions_data();
    void expressions();
    void outputPaths_data();
    void outputPaths();
    void bookmarkIntervals_data();
    void bookmarkIntervals();
    void safeFileNames_data();
    void safeFileNames();
    void overwritePass_data();
    void overwritePass();
    void selfOverwrite();
    void watermarkProfile_data();
    void watermarkProfile();
    void inspection();
    void pageCountBeyondTheFile();
    void loadTest_data();
    void loadTest();
    void merge_data();
    void merge();
    void mergeStaysWithinTheOpenFileLimit();
    void split_data();
    void split();
    void mergeBookmarks_data();
    void mergeBookmarks();
    void splitBookmarks_data();
    void splitBookmarks();
    void piecesOfOneSource_data();
    void piecesOfOneSource();
    void outlinesThatLoopOrAreHuge_data();
    void outlinesThatLoopOrAreHuge();
    void realDocuments();
    void cropBoxes_data();
    void cropBoxes();
    void cropPageList_data();
    void cropPageList();
    void cropKeepsTheDocument_data();
    void cropKeepsTheDocument();
    void writeFailures_data();
    void writeFailures();
    void documentIds();
    void outputsCommittedTogether();
    void propertyTemplates_data();
    void propertyTemplates();
    void propertiesSaved_data();
    void propertiesSaved();
    void propertiesKeepPermissionsAndLinks();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    // A book of 3 pages (markers <prefix>1..3), numbered i, ii, 1, opening with its outline:
    // "Intro" leads to page 1, "Part" (open, by a GoTo action) to page 2, with "Sec" (through
    // the name "target.2") and a red "Red" under it, both to page 3. Page 1 links to page 3
    // through "target.2".
    static TestPdf::Document book(const QString &prefix);
    std::optional<QTemporaryDir> m_dir;
};

TestPdf::Document TestEngine::book(const QString &prefix)
{
    using T = TestPdf::Bookmark::Target;
    TestPdf::Document book = TestPdf::pages(3, prefix);
    book.outline = {{1, "Intro", 0},
                    {1, "Part", 1, T::GoTo, true},
                    {2, "Sec", 2, T::NamedString},
                    {2, "Red", 2, T::Dest, false, false, true}};
    book.labels = {{0, "r", "", 1}, {2, "D", "", 1}};
    book.showOutline = true;
    book.pages[0].namedLinkTo = 2;
    return book;
}

void TestEngine::expressions_data()
{
    QTest::addColumn<QString>("expression");
    QTest::addColumn<qint64>("pages");
    QTest::addColumn<QString>("pageList");
    QTest::addColumn<QString>("intervals");
    // clang-format off
    row("default crop", "[1-3],5,[7-9]", 10LL, "1 2 3 5 7 8 9", "1-3 5-5 7-9");
    row("default split", "[1-4],5,[6-9]", 10LL, "1 2 3 4 5 6 7 8 9", "1-4 5-5 6-9");
    row("reversed range", "[9-7]", 10LL, "7 8 9", "7-9");
    row("range clamped at the end", "[8-15]", 10LL, "8 9 10", "8-10");
    row("range beyond the end", "[11-15]", 10LL, "", "");
    row("page beyond the end", "12", 10LL, "12", "");
    row("order kept, repeats dropped from the page list", "[7-9],1,[2-3],8", 10LL, "7 8 9 1 2 3",
        "7-9 1-1 2-3 8-8");
    row("repeat", "3,3", 10LL, "3", "3-3 3-3");
    row("overlap", "[2-4],3", 10LL, "2 3 4", "2-4 3-3");
    row("blanks removed", "[ 1 - 3 ]", 10LL, "1 2 3", "1-3");
    row("plus sign, trailing comma", "+4,", 10LL, "4", "4-4");
    row("range without brackets", "1-3", 10LL, "", "");
    row("bracketed single page", "[5]", 10LL, "", "");
    row("zero, negative, words", "[0-3],0,-2,abc", 10LL, "", "");
    row("spaces between items", "1, 2,3", 10LL, "1 2 3", "1-1 2-2 3-3");
    row("a tab spoils its item", "1,\t2", 10LL, "1", "1-1");
    row("a no-break space spoils its item", QStringLiteral("1,\u00a02"), 10LL, "1", "1-1");
    row("single-page range", "[3-3]", 10LL, "3", "3-3");
    row("three parts", "[2-3-4]", 10LL, "", "");
    row("open bracket only", "[2-3", 10LL, "", "");
    row("no document", "[1-3],5", 0LL, "5", "");
    row("empty", "", 10LL, "", "");
    row("beyond 64 bits", "99999999999999999999,2", 10LL, "2", "2-2");
    row("huge range on a short document", "[1-9223372036854775807]", 3LL, "1 2 3", "1-3");
    // Consecutive runs, the last one shorter.
    row("10 by 3", "every 3", 10LL, "", "1-3 4-6 7-9 10-10");
    row("7 by 7", "every 7", 7LL, "", "1-7");
    row("7 by 10", "every 10", 7LL, "", "1-7");
    row("0 by 3", "every 3", 0LL, "", "");
    row("3 by 1", "every 1", 3LL, "", "1-1 2-2 3-3");
    row("3 by 0", "every 0", 3LL, "", "");
    // clang-format on
}

void TestEngine::expressions()
{
    QFETCH(QString, expression);
    QFETCH(qint64, pages);
    QFETCH(QString, pageList);
    QFETCH(QString, intervals);
    if (expression.startsWith("every ")) {
        const qint64 run = expression.mid(6).toLongLong();
        QCOMPARE(text(GenerateConsecutiveIntervals(pages, run)), intervals);
        return;
    }
    QCOMPARE(text(GenerateArrayOfPages(expression, pages)), pageList);
    QCOMPARE(text(GenerateArrayOfIntervals(expression, pages)), intervals);
}

void TestEngine::outputPaths_data()
{
    QTest::addColumn<QString>("input"); // in /data/in
    QTest::addColumn<QString>("nameTemplate");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("path"); // in /data/out
    const int doc = -1;
    const int runs = int(SplitMode::Consecutive);
    const int ivs = int(SplitMode::Intervals);
    row("crop", "r.pdf", "[FileName]_Cropped", doc, "r_Cropped.pdf");
    row("watermark, empty template", "r.pdf", "", doc, "r.pdf");
    row("consecutive default", "r.pdf", "[FileName](Page[IntervalIndex])", runs, "r(Page2).pdf");
    row("consecutive, plain name", "r.pdf", "part", runs, "part (Page2).pdf");
    row("bounds as text", "r.pdf", "[FileName]-[IntervalStart]", runs, "r-[IntervalStart].pdf");
    row("intervals, plain name", "r.pdf", "part", ivs, "part (7-9).pdf");
    row("intervals, start only", "r.pdf", "p[IntervalStart]", ivs, "p7 (7-9).pdf");
    row("intervals, file name only", "r.pdf", "[FileName]", ivs, "r.pdf");
    row("intervals, empty template", "r.pdf", "", ivs, "r.pdf");
    row("intervals, both bounds", "r.pdf", "x[IntervalStart]_[IntervalEnd]", ivs, "x7_9.pdf");
    row("last extension only", "report.final.pdf", "[FileName]", doc, "report.final.pdf");
    row("no extension", "README", "[FileName]", doc, "README.pdf");
    row(".pdf always appended", "r.pdf", "x.pdf", doc, "x.pdf.pdf");
    row("name twice, unknown token", "r.pdf", "[FileName]-[FileName][Date]", doc, "r-r[Date].pdf");
    row("token text in the file name", "a[IntervalIndex].pdf", "[FileName]", runs, "a2.pdf");
    row("slash leads into a subfolder", "r.pdf", "sub/[FileName]", doc, "sub/r.pdf");
    // At bookmarks: piece 3, pages 7 to 9, its bookmark titled "Über/Alles".
    const int marks = int(SplitMode::Bookmarks);
    row("bookmarks, the title", "r.pdf", "[BookmarkName]", marks, "Über-Alles.pdf");
    row("bookmarks, plain name", "r.pdf", "part", marks, "part (Page3).pdf");
    row("bookmarks, every token",
        "r.pdf",
        "[FileName] [IntervalIndex] [IntervalStart]-[IntervalEnd] [BookmarkName]",
        marks,
        "r 3 7-9 Über-Alles.pdf");
    row("bookmark title as text in other modes",
        "r.pdf",
        "[FileName]-[BookmarkName]",
        ivs,
        "r-[BookmarkName].pdf");
}

void TestEngine::outputPaths()
{
    QFETCH(QString, input);
    QFETCH(QString, nameTemplate);
    QFETCH(int, mode);
    QFETCH(QString, path);
    const QString folder = QStringLiteral("/data/out");
    input.prepend(QStringLiteral("/data/in/"));
    path.prepend(QStringLiteral("/data/out/"));
    if (mode < 0) {
        QCOMPARE(OutputPathForDocument(nameTemplate, folder, input), path);
    } else if (mode == int(SplitMode::Consecutive)) {
        QCOMPARE(OutputPathForInterval(nameTemplate, folder, input, SplitMode(mode), 2, 4, 6),
                 path);
    } else {
        QCOMPARE(OutputPathForInterval(
                     nameTemplate, folder, input, SplitMode(mode), 3, 7, 9, "Über/Alles"),
                 path);
    }
}

void TestEngine::bookmarkIntervals_data()
{
    // A document of 10 pages, bookmarks as "page:title" in outline order; the pieces as
    // "first-last:title" ("doc" for the pages before the first bookmark).
    QTest::addColumn<QString>("starts");
    QTest::addColumn<QString>("pieces");
    row("pages before the first bookmark", "3:A 6:B", "1-2:doc 3-5:A 6-10:B");
    row("first bookmark on page 1", "1:A 4:B", "1-3:A 4-10:B");
    row("outline not in page order", "6:B 3:A", "1-2:doc 3-5:A 6-10:B");
    row("two on one page: the first names it", "3:A 3:B 5:C", "1-2:doc 3-4:A 5-10:C");
    row("outside the document", "0:X 11:Y 4:A", "1-3:doc 4-10:A");
    row("on the last page", "10:Z", "1-9:doc 10-10:Z");
    row("none", "", "");
}

void TestEngine::bookmarkIntervals()
{
    QFETCH(QString, starts);
    QFETCH(QString, pieces);
    QList<BookmarkStart> list;
    for (const QString &start : starts.split(' ', Qt::SkipEmptyParts)) {
        list << BookmarkStart{start.section(':', 0, 0).toLongLong(), start.section(':', 1)};
    }
    QStringList found;
    for (const TitledInterval &piece : GenerateBookmarkIntervals(10, list, "doc")) {
        found << QStringLiteral("%1-%2:%3")
                     .arg(piece.interval.start)
                     .arg(piece.interval.end)
                     .arg(piece.title);
    }
    QCOMPARE(found.join(' '), pieces);
}

void TestEngine::safeFileNames_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("name");
    const QString euros = QString(41, QChar(0x20ac)); // 3 bytes each in UTF-8
    const QString faces = QString("😀").repeated(31);  // 4 bytes each
    row("slash", "AC/DC", "AC-DC");
    row("control characters and line breaks", "A\tB\nC\aD\u2028E", "A B C D E");
    row("blanks trimmed and joined", "  a \u00a0  b  ", "a b");
    row("no hidden file", " . .hidden", "hidden");
    row("any script", "目次 Über ✓", "目次 Über ✓");
    row("cut at 120 bytes", euros, euros.left(40));
    row("cut between characters", "a" + euros, "a" + euros.left(39));
    row("surrogate pairs kept whole", faces, faces.left(60));
    row("nothing left", "\n\t ..", "");
}

void TestEngine::safeFileNames()
{
    QFETCH(QString, title);
    QFETCH(QString, name);
    QCOMPARE(SafeFileName(title), name);
    QVERIFY(SafeFileName(title).toUtf8().size() <= 120);
}

void TestEngine::overwritePass_data()
{
    // Planned outputs a to e, of which the listed ones exist. Answers are consumed in order:
    // y Yes, Y Yes to All, n No, N No to All, x a question that ends otherwise. Decisions: W
    // write, O overwrite, S skip.
    QTest::addColumn<QString>("existing");
    QTest::addColumn<QString>("answers");
    QTest::addColumn<QString>("asked");
    QTest::addColumn<QString>("decisions");
    row("nothing exists", "", "", "", "WWWWW");
    row("no, then yes to all", "abc", "nY", "ab", "SOOWW");
    row("no to all skips later existing, writes new", "ace", "N", "a", "SWSWS");
    row("yes asks again", "ab", "yn", "ab", "OSWWW");
    row("a question that ends otherwise is no to all", "abc", "x", "a", "SSSWW");
}

void TestEngine::overwritePass()
{
    QFETCH(QString, existing);
    QFETCH(QString, answers);
    QFETCH(QString, asked);
    QFETCH(QString, decisions);
    const QString codes = QStringLiteral("yYnN");
    QString log;
    OverwritePass pass(
        [&](const QString &path) {
            log += path;
            const QChar answer = answers.front();
            answers.remove(0, 1);
            return OverwriteAnswer(codes.indexOf(answer));
        },
        [&](const QString &path) { return existing.contains(path); });
    QString made;
    for (const QString path : {"a", "b", "c", "d", "e"}) {
        made += QStringLiteral("WOS").at(int(pass.decide(path)));
    }
    QCOMPARE(made, decisions);
    QCOMPARE(log, asked);
}

void TestEngine::selfOverwrite()
{
    const QString a = path("a.pdf");
    const QString b = path("b.pdf");
    TestPdf::writeBytes(a, "");
    QVERIFY(QFile::link(a, path("link.pdf")));
    QVERIFY(SelfOverwriteRefused(a, {a}));
    QVERIFY2(SelfOverwriteRefused(path("link.pdf"), {a}), "the same file reached another way");
    QVERIFY(!SelfOverwriteRefused(a, {a, b}) && !SelfOverwriteRefused(b, {a}));
    QVERIFY(OverwritesInput(path("link.pdf"), {b, a}));
    QVERIFY(!OverwritesInput(path("c.pdf"), {a, b}));
    QCOMPARE(OverwriteQuestion("/x/y.pdf"),
             QStringLiteral("The file /x/y.pdf already exists. Do you want to overwrite it?"));
}

void TestEngine::watermarkProfile_data()
{
    // Every setting of a profile is read and written back as it was; a value of the wrong type
    // is an error that names its key.
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("error");
    row("every setting",
        QByteArray(R"({"text": "Draft\nonly", "font": "Verdana", "size": 12.5, "color": "#ff0000",
            "textOpacity": 40, "textPosition": 4, "textOffsetX": -3, "textOffsetY": 7,
            "shadow": true, "stroke": true, "image": "/pictures/logo.png", "scale": 50,
            "imageOpacity": 100, "rotation": 45, "imagePosition": 2, "imageOffsetX": 1,
            "imageOffsetY": 2, "pagesEnabled": true, "pages": "1,3",
            "nameTemplate": "[FileName]-draft", "folder": "/out"})"),
        QString());
    row("a number as text", QByteArray(R"({"size": "30"})"), "\"size\"");
    row("a flag as a number", QByteArray(R"({"shadow": 1})"), "\"shadow\"");
}

void TestEngine::watermarkProfile()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, error);
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    QString reason;
    const auto read = Jobs::Profiles::fromJson<Jobs::WatermarkSettings>(object, &reason);
    QCOMPARE(read.has_value(), error.isEmpty());
    QCOMPARE(read ? Jobs::Profiles::toJson(*read) : QJsonObject(), read ? object : QJsonObject());
    QVERIFY2(reason.contains(error), qPrintable(reason));
}

void TestEngine::inspection()
{
    // The first page's media box: inherited, truncated, not swapped for its rotation.
    TestPdf::Document document = TestPdf::pages(2);
    document.inheritMediaBox = true;
    document.pages[0].mediaBox = QRectF(50, 60, 595.28, 841.89);
    document.pages[0].rotate = 90;
    document.keywords = "alpha, beta;gamma ,, ";
    TestPdf::write(path("a.pdf"), document);
    QCOMPARE(PDFTools::GetPDFNumberOfPages(path("a.pdf")), 2);
    QCOMPARE(PDFTools::GetPDFPageSize(path("a.pdf")), QStringLiteral("595 x 841"));
    QCOMPARE(PDFTools::SummarizeDocument(path("a.pdf")).keywords,
             (QStringList{"alpha", "beta", "gamma"}));
    const QDateTime now = QDateTime::currentDateTime();
    QVERIFY(qAbs(PDFTools::DocumentCreationDateWithPath(path("a.pdf")).secsTo(now)) < 60);

    QVERIFY(TestPdf::writeBytes(path("notes.txt"), QByteArray(2000, 'x')));
    QCOMPARE(PDFTools::GetPDFNumberOfPages(path("notes.txt")), 0);
    QCOMPARE(PDFTools::GetPDFPageSize(path("notes.txt")), QStringLiteral("0 x 0"));
    QCOMPARE(PDFTools::GetSizeWithPath(path("notes.txt")), QStringLiteral("2.0 KB"));
    QCOMPARE(PDFTools::GetSizeWithPath(path("missing.pdf")), QStringLiteral("0 B"));
    // Units of 1024, one decimal, rounded in single precision.
    const QList<std::pair<quint64, QString>> sizes{{1023, "1023 B"},
                                                   {1076, "1.1 KB"},
                                                   {1048575, "1024.0 KB"},
                                                   {1073741823, "1024.0 MB"},
                                                   {1073741824, "1.0 GB"},
                                                   {1099511627776, "1.0 TB"}};
    for (const auto &[bytes, text] : sizes) {
        QCOMPARE(PDFTools::FileSizeText(bytes), text);
    }
    QVERIFY(qAbs(PDFTools::DocumentCreationDateWithPath(path("missing.pdf")).secsTo(now)) < 5);
}

void TestEngine::loadTest_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<PDFTools::LoadStatus>("status");
    using S = PDFTools::LoadStatus;
    row("plain", "plain.pdf", S::Loadable);
    row("owner password only", "owner.pdf", S::Encrypted);
    row("user password", "user.pdf", S::PasswordProtected);
    row("cut in the middle", "truncated.pdf", S::Damaged);
    row("wrong startxref is repaired", "badxref.pdf", S::Loadable);
    row("not a PDF", "text.pdf", S::Damaged);
    row("missing", "missing.pdf", S::Missing);
    row("real: needs a password",
        corpus("005-libreoffice-writer-password_libreoffice-writer-password.pdf"),
        S::PasswordProtected);
    row("real: junk before the header", corpus("PDF 2.0 with offset start.pdf"), S::Loadable);
}

void TestEngine::loadTest()
{
    QFETCH(QString, file);
    QFETCH(PDFTools::LoadStatus, status);
    TestPdf::write(path("plain.pdf"), TestPdf::pages(3));
    TestPdf::Document locked = TestPdf::pages(1);
    locked.encrypt = true;
    TestPdf::write(path("owner.pdf"), locked);
    locked.userPassword = true;
    TestPdf::write(path("user.pdf"), locked);
    const QByteArray bytes = contents(path("plain.pdf"));
    QVERIFY(TestPdf::writeBytes(path("truncated.pdf"), bytes.left(bytes.size() / 3)));
    TestPdf::Document badXref = TestPdf::pages(3);
    badXref.wrongStartxref = true;
    TestPdf::write(path("badxref.pdf"), badXref);
    QVERIFY(TestPdf::writeBytes(path("text.pdf"), "just some words\n"));

    QCOMPARE(PDFTools::LoadTest(QFileInfo(file).isAbsolute() ? file : path(file)), status);
}

void TestEngine::merge_data()
{
    // a: 3 pages, "First" by Ann, PDF 1.4; b: 1 page, "Second", PDF 1.7; c: 2 pages, one turned
    // and in landscape, one with a crop box and a media box away from the origin, inherited from
    // the page tree; broken.pdf does not open; empty.pdf has no pages.
    QTest::addColumn<QStringList>("inputs");
    QTest::addColumn<QString>("output");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("markers"); // empty: no file
    QTest::addColumn<QList<int>>("progress");
    const QStringList abc{"a", "b", "c"};
    // clang-format off
    row("in order, pages as they were", abc, "out", true, "a1 a2 a3 b1 c1 c2", QList{1, 2, 3});
    row("an unreadable document left out", QStringList{"a", "broken", "c"}, "out", false,
        "a1 a2 a3 c1 c2", QList{1, 3});
    row("a document without pages", QStringList{"c", "empty"}, "out", false, "c1 c2", QList{1, 2});
    row("into one of its inputs", QStringList{"b", "a"}, "a", true, "b1 a1 a2 a3", QList{1, 2});
    row("nothing to merge", QStringList{}, "out", false, "", QList<int>{});
    // clang-format on
}

void TestEngine::merge()
{
    QFETCH(QStringList, inputs);
    QFETCH(QString, output);
    QFETCH(bool, result);
    QFETCH(QString, markers);
    QFETCH(QList<int>, progress);
    TestPdf::Document a = TestPdf::pages(3, "a");
    a.title = "First";
    a.author = "Ann";
    TestPdf::write(path("a.pdf"), a);
    TestPdf::Document b = TestPdf::pages(1, "b");
    b.title = "Second";
    b.version = "1.7";
    TestPdf::write(path("b.pdf"), b);
    TestPdf::Document c = TestPdf::pages(2, "c");
    c.inheritMediaBox = true;
    c.pages[0].mediaBox = QRectF(0, 0, 842, 595);
    c.pages[0].rotate = 90;
    c.pages[1].mediaBox = QRectF(50, 60, 612, 792);
    c.pages[1].cropBox = QRectF(60, 70, 500, 500);
    TestPdf::write(path("c.pdf"), c);
    QVERIFY(TestPdf::writeBytes(path("broken.pdf"), "%PDF-1.4 nothing else"));
    TestPdf::write(path("empty.pdf"), TestPdf::Document());
    QStringList paths;
    for (const QString &input : inputs) {
        paths << path(input + ".pdf");
    }
    const auto first = TestPdf::read(paths.value(0));

    QList<int> reported;
    QCOMPARE(PDFTools::MergePdfs(paths, path(output + ".pdf"), [&](int n) { reported << n; }),
             result);
    QCOMPARE(reported, progress);
    const auto out = TestPdf::read(path(output + ".pdf"));
    QCOMPARE(out.markers().join(' '), markers);
    // No temporary file left behind.
    QCOMPARE(TestPdf::files(m_dir->path()).size(), 5 + int(output == "out" && !markers.isEmpty()));
    if (result) {
        // The first document's information, and the highest version of the inputs.
        QCOMPARE(out.title, first.title);
        QCOMPARE(out.author, first.author);
        QCOMPARE(out.version, QStringLiteral("1.7"));
    }
    const qsizetype turned = out.markers().indexOf("c1");
    if (turned >= 0) {
        QCOMPARE(out.pages[turned].rotate, 90);
        QCOMPARE(out.pages[turned].mediaBox, c.pages[0].mediaBox);
        QCOMPARE(out.pages[turned + 1].mediaBox, c.pages[1].mediaBox);
        QCOMPARE(out.pages[turned + 1].cropBox, c.pages[1].cropBox);
    }
}

void TestEngine::mergeStaysWithinTheOpenFileLimit()
{
    QStringList inputs;
    for (int i = 0; i < 600; ++i) {
        inputs << path(QStringLiteral("in%1.pdf").arg(i));
        TestPdf::write(inputs.back(), TestPdf::pages(1, QStringLiteral("d%1-").arg(i)));
    }
    QVERIFY(
        limited(RLIMIT_NOFILE, 256, [&] { return PDFTools::MergePdfs(inputs, path("out.pdf")); }));
    const auto out = TestPdf::read(path("out.pdf"));
    QCOMPARE(out.pages.size(), 600);
    QCOMPARE(out.pages[599].marker, QStringLiteral("d599-1"));
}

void TestEngine::split_data()
{
    // A book of 5 pages titled "Book": page 1 links to page 3 (an explicit destination), page 2
    // to page 4, page 3 back to page 1 through a named destination, page 4 back to page 2. The
    // pages written, each with where its links lead ("-" for nowhere). Start 0: the book merged
    // after a document of one page.
    QTest::addColumn<qint64>("start");
    QTest::addColumn<qint64>("stop");
    QTest::addColumn<bool>("result");
    QTest::addColumn<bool>("written");
    QTest::addColumn<QString>("pages");
    QTest::addColumn<QString>("title");
    // clang-format off
    row("merge after another document", 0LL, 0LL, true, true, "o1 p1>p3 p2>p4 p3>p1 p4>p2 p5", "");
    row("2 to 2", 2LL, 2LL, true, true, "p2>-", "Book");
    row("whole", 1LL, 5LL, true, true, "p1>p3 p2>p4 p3>p1 p4>p2 p5", "Book");
    row("1 to 3, both ends of a link kept", 1LL, 3LL, true, true, "p1>p3 p2>- p3>p1", "Book");
    row("2 to 4, a backward link kept", 2LL, 4LL, true, true, "p2>p4 p3>- p4>p2", "Book");
    row("4 to 6 keeps 4 and 5, no attributes", 4LL, 6LL, false, true, "p4>- p5", "");
    row("start after stop", 3LL, 2LL, false, false, "", "");
    row("from page 0", 0LL, 2LL, false, true, "", "");
    // clang-format on
}

void TestEngine::split()
{
    QFETCH(qint64, start);
    QFETCH(qint64, stop);
    QFETCH(bool, result);
    QFETCH(bool, written);
    QFETCH(QString, pages);
    QFETCH(QString, title);
    TestPdf::Document book = TestPdf::pages(5);
    book.title = "Book";
    book.pages[0].linkTo = 2;
    book.pages[1].linkTo = 3;
    book.pages[2].namedLinkTo = 0;
    book.pages[3].linkTo = 1;
    TestPdf::write(path("book.pdf"), book);
    TestPdf::write(path("one.pdf"), TestPdf::pages(1, "o"));
    const bool merge = start == 0 && stop == 0;
    QCOMPARE(merge ? PDFTools::MergePdfs({path("one.pdf"), path("book.pdf")}, path("part.pdf"))
                   : PDFTools::SplitPdf(path("book.pdf"), path("part.pdf"), start, stop),
             result);
    QCOMPARE(QFile::exists(path("part.pdf")), written);
    const auto part = TestPdf::read(path("part.pdf"));
    QStringList found;
    for (const auto &page : part.pages) {
        found << page.marker;
        for (const int target : page.links) {
            found.back() += ">" + (target < 0 ? "-" : part.pages[target].marker);
        }
    }
    QCOMPARE(found.join(' '), pages);
    QCOMPARE(part.title, title);
}

void TestEngine::mergeBookmarks_data()
{
    // a, b and c merged with each policy: a and c are books (see book()), titled "c" for c; b
    // has two pages, is titled "Second", has no labels, links from page 2 to page 1 through
    // "target.0", and holds a bookmark in another script (through the name /target.1), one to a
    // page that is not there, one through a name nothing defines, a heading that leads nowhere
    // with a bookmark under it, and one whose title is a number.
    QTest::addColumn<PDFTools::BookmarkPolicy>("policy");
    QTest::addColumn<QString>("outline");
    using P = PDFTools::BookmarkPolicy;
    const QString a = "Intro>a1 Part>a2+ -Sec>a3 -Red>a3(red)";
    const QString b = "Über✓目次>b2 Lost>nowhere Unknown>nowhere Heading>nowhere -Child>b1 >b1";
    const QString c = "Intro>c1 Part>c2+ -Sec>c3 -Red>c3(red)";
    const auto nested = [](const QString &outline) {
        return outline.split(' ').replaceInStrings(QRegularExpression("^"), "-").join(' ');
    };
    row("keep", P::Keep, a + " " + b + " " + c);
    row("per document", P::PerDocument, "a>a1 Second>b1 c>c1");
    row("nest", P::Nest, "a>a1+ " + nested(a) + " Second>b1+ " + nested(b) + " c>c1+ " + nested(c));
    row("none", P::None, "");
}

void TestEngine::mergeBookmarks()
{
    QFETCH(PDFTools::BookmarkPolicy, policy);
    QFETCH(QString, outline);
    using T = TestPdf::Bookmark::Target;
    TestPdf::write(path("a.pdf"), book("a"));
    TestPdf::Document b = TestPdf::pages(2, "b");
    b.title = "Second";
    b.outline = {{1, "Über✓目次", 1, T::NamedName},
                 {1, "Lost", 7},
                 {1, "Unknown", 0, T::UnknownName},
                 {1, "Heading"},
                 {2, "Child", 0, T::NamedString},
                 {1, "", 0, T::Dest, false, true}};
    b.pages[1].namedLinkTo = 0;
    TestPdf::write(path("b.pdf"), b);
    TestPdf::write(path("c.pdf"), book("c"));

    QVERIFY(PDFTools::MergePdfs(
        {path("a.pdf"), path("b.pdf"), path("c.pdf")}, path("out.pdf"), {}, {}, policy));
    const auto out = TestPdf::read(path("out.pdf"));
    QCOMPARE(out.outline.join(' '), outline);
    QVERIFY(out.outlineConsistent);
    QCOMPARE(out.showsOutline, policy != PDFTools::BookmarkPolicy::None);
    // Every name survives, c's "target.2" renamed after a's; each link follows its document's.
    QCOMPARE(out.destinationNames, QStringList({"target.0", "target.1", "target.2", "target.2-2"}));
    QVERIFY(out.namesConsistent);
    QStringList links;
    for (const auto &page : out.pages) {
        for (const int target : page.links) {
            links << page.marker + ">" + out.pages[target].marker;
        }
    }
    QCOMPARE(links, QStringList({"a1>a3", "b2>b1", "c1>c3"}));
    // Each document's page numbers stay its own; b, without labels, counts 1, 2.
    QCOMPARE(out.labels.join(' '), "r::1 r::2 D::1 D::1 D::2 r::1 r::2 D::1");
}

void TestEngine::splitBookmarks_data()
{
    // A book of 6 pages numbered i, ii, A-1, A-2...: "Intro" to page 1; "Part" (open, by a
    // GoTo action) to page 2, over "Sec" (through a name) to page 3, "Deep" under that to page
    // 4, and a red "Red" to page 5; "Heading" leading nowhere over "Late" to page 6. The pieces
    // (first-last) and what each holds.
    QTest::addColumn<qint64>("first");
    QTest::addColumn<qint64>("last");
    QTest::addColumn<QString>("outline");
    QTest::addColumn<QString>("labels");
    // clang-format off
    row("whole", 1LL, 6LL, "Intro>p1 Part>p2+ -Sec>p3 --Deep>p4 -Red>p5(red) Heading>nowhere -Late>p6",
        "r::1 r::2 D:A-:1 D:A-:2 D:A-:3 D:A-:4");
    row("a parent outside the piece heads it, leading nowhere", 3LL, 4LL,
        "Part>nowhere+ -Sec>p3 --Deep>p4", "D:A-:1 D:A-:2");
    row("a parent inside without its children", 2LL, 2LL, "Part>p2", "r::2");
    row("two branches", 5LL, 6LL, "Part>nowhere+ -Red>p5(red) Heading>nowhere -Late>p6",
        "D:A-:3 D:A-:4");
    // clang-format on
}

void TestEngine::splitBookmarks()
{
    QFETCH(qint64, first);
    QFETCH(qint64, last);
    QFETCH(QString, outline);
    QFETCH(QString, labels);
    using T = TestPdf::Bookmark::Target;
    TestPdf::Document book = TestPdf::pages(6);
    book.outline = {{1, "Intro", 0},
                    {1, "Part", 1, T::GoTo, true},
                    {2, "Sec", 2, T::NamedString},
                    {3, "Deep", 3, T::NamedName},
                    {2, "Red", 4, T::Dest, false, false, true},
                    {1, "Heading"},
                    {2, "Late", 5}};
    book.labels = {{0, "r", "", 1}, {2, "D", "A-", 1}};
    book.showOutline = true;
    TestPdf::write(path("book.pdf"), book);
    // One source for every piece, as a split run reads it.
    PdfSource source(path("book.pdf"));
    QVERIFY(PDFTools::SplitPdf(source, path("part.pdf"), first, last));
    QVERIFY(PDFTools::SplitPdf(source, path("again.pdf"), first, last));
    for (const QString name : {"part.pdf", "again.pdf"}) {
        const auto part = TestPdf::read(path(name));
        QCOMPARE(part.outline.join(' '), outline);
        QVERIFY(part.outlineConsistent);
        QVERIFY(part.showsOutline);
        QCOMPARE(part.labels.join(' '), labels);
    }
}

void TestEngine::piecesOfOneSource_data()
{
    // The pieces of one document written one after the other from one source are the files that
    // cutting each alone gives: nothing of an earlier piece (its pages, outline, labels, a
    // link's target) reaches a later one, including pieces that overlap.
    QTest::addColumn<QString>("kind");
    // first, last, first, last...; a negative first: that piece goes to a folder that is not
    // there, and fails.
    QTest::addColumn<QList<qint64>>("cuts");
    // clang-format off
    row("links, back and forth", "links", QList<qint64>{1, 2, -3, 4, 3, 4, 5, 5, 2, 3, 1, 5, 4, 5});
    row("bookmarks and labels", "book", QList<qint64>{1, 1, 2, 3, 3, 3, 1, 3});
    row("form fields", "form", QList<qint64>{1, 2, 3, 4, 2, 3});
    row("thousands of objects", "long", QList<qint64>{1, 700, 701, 1400, 1401, 2100, 2101, 2400, 3, 4});
    // clang-format on
}

void TestEngine::piecesOfOneSource()
{
    QFETCH(QString, kind);
    QFETCH(QList<qint64>, cuts);
    TestPdf::Document doc = TestPdf::pages(kind == "long" ? 2400 : 5);
    if (kind == "book") {
        doc = book("p");
    } else if (kind == "form") {
        doc.signedForm = true;
    } else {
        for (qsizetype i = 0; i < doc.pages.size(); ++i) {
            (i % 2 ? doc.pages[i].namedLinkTo : doc.pages[i].linkTo) = int((i * 7 + 2) % doc.pages.size());
        }
    }
    TestPdf::write(path("doc.pdf"), doc);
    PdfSource source(path("doc.pdf"));
    for (qsizetype k = 0; k + 1 < cuts.size(); k += 2) {
        if (cuts[k] < 0) {
            QVERIFY(!PDFTools::SplitPdf(source, path("missing/piece.pdf"), -cuts[k], cuts[k + 1]));
            continue;
        }
        const QString shared = path(QStringLiteral("shared%1.pdf").arg(k));
        const QString alone = path(QStringLiteral("alone%1.pdf").arg(k));
        QVERIFY(PDFTools::SplitPdf(source, shared, cuts[k], cuts[k + 1]));
        QVERIFY(PDFTools::SplitPdf(path("doc.pdf"), alone, cuts[k], cuts[k + 1]));
        QCOMPARE(TestPdf::read(shared).pages.size(), cuts[k + 1] - cuts[k] + 1);
        QVERIFY2(contents(shared) == contents(alone), qPrintable(QString::number(cuts[k])));
    }
}

void TestEngine::outlinesThatLoopOrAreHuge_data()
{
    // Bookmarks "0", "1"... of a document of 3 pages, each to page (its number mod 3) + 1.
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("deep"); // the first ones each under the one before
    QTest::addColumn<bool>("loops");
    row("siblings and children looping back", 3, 0, true);
    row("100,000: half of them 50,000 levels deep", 100000, 50000, false);
}

void TestEngine::outlinesThatLoopOrAreHuge()
{
    QFETCH(int, count);
    QFETCH(int, deep);
    QFETCH(bool, loops);
    TestPdf::Document doc = TestPdf::pages(3);
    for (int i = 0; i < count; ++i) {
        doc.outline << TestPdf::Bookmark{i < deep ? i + 1 : 1, QString::number(i), i % 3};
    }
    doc.outlineLoops = loops;
    TestPdf::write(path("doc.pdf"), doc);
    TestPdf::write(path("one.pdf"), TestPdf::pages(1, "o"));
    QVERIFY(PDFTools::MergePdfs({path("one.pdf"), path("doc.pdf")}, path("merged.pdf")));
    QVERIFY(PDFTools::SplitPdf(path("doc.pdf"), path("part.pdf"), 2, 3));
    // Every bookmark once, at its level, after the page of one.pdf.
    const auto merged = PDFTools::GetPDFOutline(path("merged.pdf"));
    QCOMPARE(merged.entries.size(), count);
    for (int i = 0; i < count; ++i) {
        const auto &entry = merged.entries[i];
        QCOMPARE(entry.title, QString::number(i));
        QCOMPARE(entry.page, i % 3 + 2);
        QCOMPARE(entry.level, i < deep ? i + 1 : 1);
    }
    // The piece keeps the bookmarks of its pages and those above them.
    int kept = 0;
    for (int i = 0; i < count; ++i) {
        kept = i % 3 == 0 ? kept : i < deep ? i + 1 : kept + 1;
    }
    QCOMPARE(PDFTools::GetPDFOutline(path("part.pdf")).entries.size(), kept);
    if (loops) {
        const auto read = TestPdf::read(path("merged.pdf"));
        QCOMPARE(read.outline.join(QLatin1Char(' ')), "0>p1 1>p2 2>p3");
        QVERIFY(read.outlineConsistent);
    }
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
        working += int(page.links.size() - page.links.count(-1));
    }
    QVERIFY2(working >= 3, "the pdfTeX document's internal links still lead somewhere");
    QCOMPARE(PDFTools::SummarizeDocument(path("all.pdf")).title,
             PDFTools::SummarizeDocument(inputs[0]).title);
    // Each input's bookmarks, leading to the same pages.
    QStringList bookmarks;
    qint64 offset = 0;
    for (const QString &input : inputs) {
        bookmarks << outlineShifted(input, offset);
        offset += PDFTools::GetPDFNumberOfPages(input);
    }
    QVERIFY(bookmarks.size() >= 9);
    QCOMPARE(outlineShifted(path("all.pdf")), bookmarks);
    QVERIFY(TestPdf::read(path("all.pdf")).outlineConsistent);

    // Each loadable document cropped to the middle half of each page, and its properties edited
    // in place: read cleanly, by PDFium too.
    const QDir folder(QStringLiteral(QUIRE_TEST_DATA "/corpus"));
    for (const QString &name : folder.entryList({"*.pdf"})) {
        if (!PDFTools::IsLoadable(folder.filePath(name))) {
            continue;
        }
        const auto before = TestPdf::read(folder.filePath(name));
        QVERIFY2(PDFTools::CropPDF(folder.filePath(name), {}, path("c.pdf"), 10, 10, 50, 50, true),
                 qPrintable(name));
        const auto cropped = TestPdf::read(path("c.pdf"));
        QCOMPARE(cropped.pages.size(), before.pages.size());
        for (qsizetype i = 0; i < cropped.pages.size(); ++i) {
            const QSizeF off
                = cropped.pages[i].mediaBox.size() * 2 - before.pages[i].mediaBox.size();
            QVERIFY2(std::fabs(off.width()) < 0.01 && std::fabs(off.height()) < 0.01,
                     qPrintable(name));
        }
        QVERIFY(!ImageTools::PDFPageToImageWithPdfPath(path("c.pdf"), 0).isNull());
        QVERIFY(QFile::copy(folder.filePath(name), path(name)));
        QFile::setPermissions(path(name), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        QVERIFY2(PDFTools::ChangedDocumentsPropertiesWithPdfPath(
                     path(name), "[Original] ✓", "[Original]", "[Original]", "[Original] q"),
                 qPrintable(name));
        const auto edited = TestPdf::read(path(name));
        QVERIFY2(edited.clean, qPrintable(name));
        QCOMPARE(edited.title, before.title + QStringLiteral(" ✓"));
        QCOMPARE(edited.pages.size(), before.pages.size());
        QCOMPARE(pdfiumTitle(path(name)), edited.title);
    }
    // The UTF-8 strings of PDF 2.0 are read as text.
    QVERIFY(TestPdf::read(path("pdf20-utf8-test.pdf")).title.startsWith(QStringLiteral("表")));
    // The XMP packet takes the new title and keywords; what it alone knows stays.
    const QStringList xmp
        = xmlTexts(TestPdf::read(path("020-xmp_output_with_metadata_pymupdf.pdf")).xmp);
    QVERIFY(!xmp.contains("Sample PDF with XMP Metadata"));
    for (const QString text : {"✓", "q", "John Doe", "FooBarStyle", "Martin Thoma"}) {
        QVERIFY2(xmp.contains(text), qPrintable(text));
    }
}

void TestEngine::cropBoxes_data()
{
    // The page, the rectangle (in percent or points), and the media box and the page's own crop
    // box as written. Each page has a trim box (0, 0, 612, 200), which ends at the kept area.
    QTest::addColumn<TestPdf::Page>("page");
    QTest::addColumn<QRectF>("r");
    QTest::addColumn<bool>("percents");
    QTest::addColumn<QRectF>("mediaBox");
    QTest::addColumn<std::optional<QRectF>>("cropBox");
    const auto crop = [](const char *name,
                         const TestPdf::Page &page,
                         QRectF rect,
                         bool percents,
                         QRectF mediaBox,
                         std::optional<QRectF> cropBox = {}) {
        row(name, page, rect, percents, mediaBox, cropBox);
    };
    // clang-format off
    const TestPdf::Page letter;
    const QRectF whole(0, 0, 612, 792);
    crop("points", letter, {50, 100, 400, 500}, false, {50, 100, 400, 500});
    const QRectF percent(10.0f * 612.0f / 100.0f, 10.0f * 792.0f / 100.0f,
                         612.0f * 80.0f / 100.0f, 792.0f * 80.0f / 100.0f);
    crop("percent, in single precision", letter, {10, 10, 80, 80}, true, percent);
    crop("negative origin pulled in", letter, {-20, 0, 100, 100}, false, {0, 0, 80, 100});
    crop("cut at the right edge", letter, {600, 0, 100, 100}, false, {600, 0, 12, 100});
    crop("half a point wide: unchanged", letter, {0, 0, 0.5, 100}, false, whole);
    crop("one point wide", letter, {0, 0, 1, 100}, false, {0, 0, 1, 100});
    crop("origin on the right edge: unchanged", letter, {612, 0, 10, 10}, false, whole);
    crop("huge percentages: unchanged", letter, {1e39, 0, 1e39, 1e39}, true, whole);
    TestPdf::Page offset;
    offset.mediaBox = QRectF(100, 100, 300, 300);
    crop("offset media box: from user space's origin", offset, {150, 150, 100, 100}, false,
        {150, 150, 100, 100});

    // Rotated pages: the rectangle as the page is shown.
    TestPdf::Page turned = letter;
    turned.rotate = 90;
    crop("rotated 90", turned, {0, 0, 100, 50}, false, {562, 0, 50, 100});
    crop("rotated 90, percent of the shown size", turned, {0, 0, 50, 100}, true, {0, 0, 612, 396});
    crop("rotated 90, cut at the shown edge", turned, {700, 0, 200, 50}, false, {562, 700, 50, 92});
    turned.rotate = 180;
    crop("rotated 180", turned, {0, 0, 100, 50}, false, {512, 742, 100, 50});
    turned.rotate = -90;
    crop("rotated -90 (270)", turned, {0, 0, 100, 50}, false, {0, 692, 50, 100});
    turned.rotate = 90;
    turned.mediaBox = QRectF(50, 60, 612, 792);
    crop("rotated 90, offset media box", turned, {0, 0, 100, 50}, false, {612, 60, 50, 100});

    // The crop box is cut to the kept rectangle.
    TestPdf::Page framed = letter;
    framed.cropBox = QRectF(0, 0, 300, 300);
    const QRectF kept(400, 400, 100, 100);
    crop("crop box cut", framed, {100, 100, 400, 400}, false, {100, 100, 400, 400},
        QRectF(100, 100, 200, 200));
    crop("crop box outside the kept area", framed, kept, false, kept, kept);
    crop("uncropped page keeps its crop box", framed, {}, false, whole, framed.cropBox);
    framed.inheritBoxes = true;
    framed.rotate = 180;
    crop("inherited crop box and rotation", framed, {0, 0, 512, 692}, false, {100, 100, 512, 692},
        QRectF(100, 100, 200, 200));
    // clang-format on
}

void TestEngine::cropBoxes()
{
    QFETCH(TestPdf::Page, page);
    QFETCH(QRectF, r);
    QFETCH(bool, percents);
    QFETCH(QRectF, mediaBox);
    QFETCH(std::optional<QRectF>, cropBox);
    TestPdf::Document document;
    page.marker = "p1";
    page.trimBox = QRectF(0, 0, 612, 200);
    document.pages = {page};
    const QString in = path("in.pdf");
    TestPdf::write(in, document);
    QVERIFY(PDFTools::CropPDF(in, {}, in + ".out", r.x(), r.y(), r.width(), r.height(), percents));
    const auto out = TestPdf::read(in + ".out");
    QVERIFY(out.opened);
    QCOMPARE(out.warnings, 0);
    QCOMPARE(out.markers(), QStringList{"p1"});
    QCOMPARE(text(out.pages[0].mediaBox), text(mediaBox));
    QCOMPARE(text(out.pages[0].cropBox), text(cropBox));
    QCOMPARE(out.pages[0].rotate, page.rotate);
    // The trim box ends at the kept area, or goes when nothing of it is left.
    const QRectF trim = QRectF(0, 0, 612, 200).intersected(mediaBox);
    QCOMPARE(text(out.pages[0].trimBox), text(trim.isEmpty() ? std::nullopt : std::optional(trim)));
}

void TestEngine::cropPageList_data()
{
    QTest::addColumn<QList<qint64>>("pages");
    QTest::addColumn<QList<int>>("cropped"); // 0-based
    row("empty: every page", QList<qint64>(), QList{0, 1, 2, 3, 4});
    row("2 and 4, in any order, repeated", QList<qint64>{4, 2, 2}, QList{1, 3});
    row("beyond the document: none", QList<qint64>{9}, QList<int>());
    row("0 and negative ignored", QList<qint64>{0, -1, 5}, QList{4});
}

void TestEngine::cropPageList()
{
    QFETCH(QList<qint64>, pages);
    QFETCH(QList<int>, cropped);
    TestPdf::write(path("in.pdf"), TestPdf::pages(5));
    QVERIFY(PDFTools::CropPDF(path("in.pdf"), pages, path("out.pdf"), 10, 10, 100, 100, false));
    const auto out = TestPdf::read(path("out.pdf"));
    QCOMPARE(out.markers(), (QStringList{"p1", "p2", "p3", "p4", "p5"}));
    for (int i = 0; i < 5; ++i) {
        const QRectF kept = cropped.contains(i) ? QRectF(10, 10, 100, 100) : QRectF(0, 0, 612, 792);
        QCOMPARE(out.pages[i].mediaBox, kept);
    }
}

void TestEngine::cropKeepsTheDocument_data()
{
    QTest::addColumn<TestPdf::Document>("document");
    TestPdf::Document plain = TestPdf::pages(3);
    plain.title = "Report";
    plain.pages[0].linkTo = 2;
    plain.pages[1].rotate = 90;
    plain.pages[2].redStamp = QRectF(20, 20, 50, 50);
    row("table", plain);
    TestPdf::Document streams = plain;
    streams.objectStreams = true;
    streams.version = "1.5";
    row("object streams", streams);
    TestPdf::Document hybrid = streams;
    hybrid.hybrid = true; // two cross-reference forms: written whole
    row("hybrid cross-reference", hybrid);
    TestPdf::Document encrypted = plain;
    encrypted.encrypt = true; // written whole, not encrypted
    row("owner password", encrypted);
    TestPdf::Document inherited = plain;
    inherited.inheritMediaBox = true;
    row("inherited media box", inherited);
    TestPdf::Document repaired = plain;
    repaired.wrongStartxref = true; // written whole, repaired
    row("a table not where startxref says", repaired);
}

void TestEngine::cropKeepsTheDocument()
{
    QFETCH(TestPdf::Document, document);
    TestPdf::write(path("in.pdf"), document);
    const QByteArray before = contents(path("in.pdf"));

    // With the engine's details logged, a repair is reported and must still be noticed.
    QLoggingCategory::setFilterRules("quire.engine.info=true");
    const bool cropped
        = PDFTools::CropPDF(path("in.pdf"), {1, 2}, path("out.pdf"), 0, 0, 300, 200, false);
    QLoggingCategory::setFilterRules(QString());
    QVERIFY(cropped);
    QCOMPARE(contents(path("in.pdf")), before);
    auto out = TestPdf::read(path("out.pdf"));
    QCOMPARE(out.warnings, 0);
    QCOMPARE(out.title, QStringLiteral("Report"));
    QCOMPARE(out.markers(), (QStringList{"p1", "p2", "p3"}));
    QCOMPARE(out.pages[0].links, QList<int>{2});
    QCOMPARE(out.pages[1].rotate, 90);
    QCOMPARE(out.pages[0].mediaBox, QRectF(0, 0, 300, 200));
    QCOMPARE(out.pages[1].mediaBox, QRectF(412, 0, 200, 300)); // shown 300 x 200
    QCOMPARE(out.pages[2].mediaBox, QRectF(0, 0, 612, 792));
    // Another reader sees the same pages; the annotation of page 3 is still drawn.
    QCOMPARE(ImageTools::PDFPageToImageWithPdfPath(path("out.pdf"), 1).size(), QSize(1200, 800));
    const QImage third = ImageTools::PDFPageToImageWithPdfPath(path("out.pdf"), 2);
    QCOMPARE(third.pixel(180, 3168 - 180), qRgb(255, 0, 0));

    // A cropped output crops again, and the same crop gives the same bytes.
    QVERIFY(PDFTools::CropPDF(path("out.pdf"), {1}, path("again.pdf"), 100, 0, 100, 100, false));
    out = TestPdf::read(path("again.pdf"));
    QCOMPARE(out.warnings, 0);
    QCOMPARE(out.pages[0].mediaBox, QRectF(100, 0, 100, 100));
    QVERIFY(PDFTools::CropPDF(path("in.pdf"), {1, 2}, path("same.pdf"), 0, 0, 300, 200, false));
    QCOMPARE(contents(path("same.pdf")), contents(path("out.pdf")));
}

void TestEngine::writeFailures_data()
{
    // Every operation on a document of 400 pages into an output that exists; properties edit
    // the document itself.
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("failure");
    for (const char *operation : {"merge", "split", "crop", "watermark", "properties"}) {
        QTest::addRow("%s: full disk", operation) << operation << "full disk";
    }
    for (const char *operation : {"merge", "split", "crop", "watermark"}) {
        QTest::addRow("%s: missing folder", operation) << operation << "missing folder";
    }
    for (const char *failure :
         {"read-only file", "read-only folder", "not a PDF", "damaged", "missing"}) {
        QTest::addRow("properties: %s", failure) << "properties" << failure;
    }
    for (const char *failure : {"no pages", "a width not a number", "an infinite width"}) {
        QTest::addRow("crop: %s", failure) << "crop" << failure;
    }
}

void TestEngine::writeFailures()
{
    QFETCH(QString, operation);
    QFETCH(QString, failure);
    QDir(m_dir->path()).mkpath("in");
    QDir(m_dir->path()).mkpath("out");
    const QString input = path("in/doc.pdf");
    TestPdf::write(input, TestPdf::pages(400));
    TestPdf::write(path("out/doc.pdf"), TestPdf::pages(1, "old"));
    QString target = operation == "properties" ? input : path("out/doc.pdf");
    QByteArray bytes = contents(input);
    if (failure == "missing folder") {
        target = path("none/doc.pdf");
    } else if (failure == "not a PDF") {
        bytes = "%PDF-1.4\nnot really\n";
    } else if (failure == "no pages") {
        TestPdf::write(input, TestPdf::Document());
        bytes = contents(input);
    } else if (failure == "damaged") {
        // The catalog leads to no page tree, and the cross-reference offset is wrong.
        const qsizetype pages = bytes.indexOf("/Pages ") + 7;
        bytes.replace(pages, bytes.indexOf(' ', pages) - pages, "9999");
        bytes.replace(bytes.lastIndexOf("startxref") + 10, 1, "9");
    }
    QVERIFY(TestPdf::writeBytes(input, bytes));
    if (failure == "missing") {
        QFile::remove(input);
    }
    const auto readOnly = QFileDevice::ReadOwner | QFileDevice::ExeOwner;
    QFile::setPermissions(failure == "read-only folder" ? path("in") : input,
                          failure.startsWith("read-only") ? readOnly : QFile::permissions(input));
    const QByteArray inputBefore = contents(input);
    const QByteArray targetBefore = contents(target);
    const QStringList before = TestPdf::files(path("in")) + TestPdf::files(path("out"));
    // A stamp of one red pixel in the page's lower-left corner.
    struct OnePixel final : WatermarkLayerSource
    {
        std::vector<Placed> layersOn(QSize canvas) override
        {
            auto image = std::make_shared<Image>();
            image->width = image->height = 1;
            image->colour = qCompress(QByteArray("\xff\0\0", 3)).sliced(4).toStdString();
            image->digest = "red";
            return {{image, QRect(0, canvas.height() - 1, 1, 1)}};
        }
    } text;
    const double width = failure == "an infinite width" ? qInf()
                         : failure.endsWith("number")   ? qQNaN()
                                                        : 99;
    std::signal(SIGXFSZ, SIG_IGN);
    const bool written = limited(
        RLIMIT_FSIZE, failure == "full disk" ? 64 * 1024 : RLIM_INFINITY, [&] {
            return operation == "merge"   ? PDFTools::MergePdfs({input, input}, target)
                   : operation == "split" ? PDFTools::SplitPdf(input, target, 1, 400)
                   : operation == "crop"
                       ? PDFTools::CropPDF(input, {}, target, 0, 0, width, 99, false)
                   : operation == "watermark"
                       ? PDFTools::WatermarkPDF(input, {}, text, target)
                       : PDFTools::ChangedDocumentsPropertiesWithPdfPath(input, "New", "", "", "");
        });
    QFile::setPermissions(path("in"), readOnly | QFileDevice::WriteOwner);
    QVERIFY(!written);
    QCOMPARE(contents(input), inputBefore);
    QCOMPARE(contents(target), targetBefore);
    QCOMPARE(TestPdf::files(path("in")) + TestPdf::files(path("out")), before);
    QVERIFY(!QFileInfo::exists(path("none")));
}

void TestEngine::propertyTemplates_data()
{
    // The document's title, author, subject and keywords ("" for no information dictionary),
    // the four templates and what is written, each as four fields separated by "|".
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("templates");
    QTest::addColumn<QString>("after");
    const QString report = "Sales|Ann|Figures|Finance; 2019";
    const QString defaults = "[FileName]|[Original]|[Original]|[Original]";
    // clang-format off
    row("worked example", "Q3 Report.pdf", report,
        "[FileName] - [Original]|[Original]||[Original] draft,[FileName]",
        "Q3 Report - Sales|Ann||Finance, 2019, draft, Q3 Report");
    row("defaults", "Q3.pdf", report, defaults, "Q3|Ann|Figures|Finance, 2019");
    row("case-sensitive", "a.pdf", report, "[original]|[FILENAME]||", "[original]|[FILENAME]||");
    row("blanks and commas separate keywords", "a.pdf", report, "|||a b,,c  ,", "|||a, b, c");
    row("keyword placeholders as whole pieces", "a.pdf", report, "|||[Original] x[Original]",
        "|||Finance, 2019, x[Original]");
    row("every .pdf leaves the name", "my.pdfs.pdf", report, "[FileName]|||", "mys|||");
    row("upper-case extension stays", "notes.PDF", report, "[FileName]|||", "notes.PDF|||");
    row("a placeholder in the old value", "A.pdf", "[FileName] x|||", "[Original]|||", "A x|||");
    row("no information dictionary", "Bare.pdf", "", defaults, "Bare|||");
    // clang-format on
}

void TestEngine::propertyTemplates()
{
    QFETCH(QString, fileName);
    QFETCH(QString, before);
    QFETCH(QString, templates);
    QFETCH(QString, after);
    const QStringList old = before.split('|');
    const QStringList t = templates.split('|');
    TestPdf::Document document = TestPdf::pages(2);
    document.noInfo = before.isEmpty();
    if (!before.isEmpty()) {
        document.title = old[0];
        document.author = old[1];
        document.subject = old[2];
        document.keywords = old[3];
    }
    const QString file = path(fileName);
    TestPdf::write(file, document);
    QVERIFY(PDFTools::ChangedDocumentsPropertiesWithPdfPath(file, t[0], t[1], t[2], t[3]));
    const auto read = TestPdf::read(file);
    QVERIFY(read.clean);
    QCOMPARE(QStringList({read.title, read.author, read.subject, read.keywords}).join('|'), after);
    QCOMPARE(read.markers(), (QStringList{"p1", "p2"}));
    // A fresh read gives the list back.
    QCOMPARE(PDFTools::SummarizeDocument(file).keywords.join(", "), after.section('|', 3));
}

void TestEngine::propertiesSaved_data()
{
    // Written anew, so that nothing of the old values stays in the file; a signed document keeps
    // its signed bytes and gets an update after them.
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("appended"); // the original bytes stay as they were, at the start
    row("cross-reference table", "table", false);
    row("cross-reference stream", "stream", false);
    row("hybrid cross-references", "hybrid", false);
    row("encrypted", "encrypted", false);
    row("signed", "signed", true);
}

void TestEngine::propertiesSaved()
{
    QFETCH(QString, kind);
    QFETCH(bool, appended);
    TestPdf::Document document = TestPdf::pages(3);
    document.title = "Old";
    document.objectStreams = kind == "stream";
    document.hybrid = kind == "hybrid";
    document.encrypt = kind == "encrypted";
    document.signedForm = kind == "signed";
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
    QCOMPARE(contents(path("doc.pdf")).contains("(Old)"), appended);
    QCOMPARE(PDFTools::LoadTest(path("doc.pdf")) == PDFTools::LoadStatus::Encrypted,
             document.encrypt);
    QCOMPARE(TestPdf::files(m_dir->path()), QStringList{"doc.pdf"});
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

void TestEngine::documentIds()
{
    // Outputs of the same size that differ only in the middle get different IDs; the same
    // output written twice gets the same one.
    const auto idOf = [](const QString &file) {
        static const QRegularExpression id("/ID \\[ *<([0-9a-fA-F]+)>");
        return id.match(QString::fromLatin1(contents(file))).captured(1);
    };
    for (const char *marker : {"A", "B"}) {
        // Large enough that its beginning and end do not meet.
        TestPdf::Document document = TestPdf::pages(400);
        document.pages[200].marker = QString::fromLatin1(marker);
        TestPdf::write(path(QStringLiteral("%1.pdf").arg(marker)), document);
        QVERIFY(PDFTools::CropPDF(path(QStringLiteral("%1.pdf").arg(marker)),
                                  {},
                                  path(QStringLiteral("out%1.pdf").arg(marker)),
                                  0,
                                  0,
                                  100,
                                  100,
                                  false));
    }
    QCOMPARE(QFileInfo(path("outA.pdf")).size(), QFileInfo(path("outB.pdf")).size());
    QVERIFY(!idOf(path("outA.pdf")).isEmpty());
    QVERIFY(idOf(path("outA.pdf")) != idOf(path("outB.pdf")));
    QVERIFY(PDFTools::CropPDF(path("A.pdf"), {}, path("again.pdf"), 0, 0, 100, 100, false));
    QCOMPARE(idOf(path("again.pdf")), idOf(path("outA.pdf")));
}

void TestEngine::outputsCommittedTogether()
{
    TestPdf::write(path("doc.pdf"), TestPdf::pages(3));
    const auto cut = [&](const QStringList &names) {
        PdfSource source(path("doc.pdf"));
        for (qsizetype k = 0; k < names.size(); ++k) {
            QVERIFY(PDFTools::SplitPdf(source, path(names[k]), k + 1, k + 1));
        }
    };
    // Abandoned: nothing reaches a target and nothing is left behind.
    {
        OutputCommitGroup group;
        cut({"a.pdf", "b.pdf"});
    }
    QCOMPARE(TestPdf::files(m_dir->path()), QStringList{"doc.pdf"});

    // Put in place only by finish(); a target that became a folder in the meantime fails alone.
    OutputCommitGroup group;
    cut({"a.pdf", "b.pdf", "c.pdf"});
    QVERIFY(!QFile::exists(path("a.pdf")));
    QVERIFY(QDir(m_dir->path()).mkdir("b.pdf"));
    const QList<OutputCommitGroup::Failure> failures = group.finish();
    QCOMPARE(failures.size(), 1);
    QCOMPARE(failures[0].target, path("b.pdf"));
    QVERIFY(!failures[0].reason.isEmpty());
    QCOMPARE(PDFTools::GetPDFNumberOfPages(path("a.pdf")), 1);
    QCOMPARE(PDFTools::GetPDFNumberOfPages(path("c.pdf")), 1);
    QVERIFY(QFileInfo(path("b.pdf")).isDir());
    QCOMPARE(TestPdf::files(m_dir->path()), (QStringList{"a.pdf", "c.pdf", "doc.pdf"}));
}

void TestEngine::pageCountBeyondTheFile()
{
    // The page tree claims more pages than the file has objects: the pages are counted one by
    // one instead, so that no plan is made for pages that cannot exist.
    TestPdf::write(path("doc.pdf"), TestPdf::pages(3));
    QByteArray bytes = contents(path("doc.pdf"));
    QVERIFY(bytes.contains("/Count 3"));
    bytes.replace("/Count 3", "/Count 999999999999");
    QVERIFY(TestPdf::writeBytes(path("doc.pdf"), bytes));
    QCOMPARE(PDFTools::GetPDFNumberOfPages(path("doc.pdf")), 3);
    QCOMPARE(PDFTools::SummarizeDocument(path("doc.pdf")).pages, 3);
}

QTEST_MAIN(TestEngine)
#include "tst_engine.moc"
