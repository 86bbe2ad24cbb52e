// The command line as a script sees it: the exit status, the last line of stdout, stderr, and
// the files written (and no other file touched).

#include "cli/commandline.h"
#include "testpdf.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using TestPdf::row;

namespace {

struct Result
{
    int exitCode = -1;
    QString out;
    QString err;
    QString lastLine() const { return out.trimmed().section('\n', -1); }
};

// A file in one line: a picture's size and resolution; a PDF's pages by marker, each with its media
// box when not US letter and "*" when a picture is drawn on it, then its set info texts and its
// bookmarks.
QString describe(const QString &file)
{
    if (file.endsWith(".png")) {
        const QImage image(file);
        const int dpi = qRound(image.dotsPerMeterX() * 0.0254);
        return QStringLiteral("%1x%2 %3 dpi").arg(image.width()).arg(image.height()).arg(dpi);
    }
    const auto pdf = TestPdf::read(file);
    QStringList pages;
    for (const auto &page : pdf.pages) {
        const QSizeF size = page.mediaBox.size();
        pages << page.marker
                     + (size == QSizeF(612, 792)
                            ? QString()
                            : QStringLiteral("[%1x%2]").arg(size.width()).arg(size.height()))
                     + (page.images.isEmpty() ? "" : "*");
    }
    QStringList info{pdf.title, pdf.author, pdf.subject, pdf.keywords};
    info.removeAll(QString());
    return pages.join(' ') + (info.isEmpty() ? QString() : " (" + info.join(" | ") + ")")
           + (pdf.outline.isEmpty() ? QString() : " {" + pdf.outline.join(' ') + "}");
}

} // namespace

class TestCli : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_dir.emplace(); }
    void runs_data();
    void runs();
    void info();
    void sameResultForAnyNumberOfJobs_data();
    void sameResultForAnyNumberOfJobs();
    void previewsShowTheSettings();
    void killedPropertiesRuns();
    void help_data();
    void help();
    void launcherOrCommandLine_data();
    void launcherOrCommandLine();

private:
    Result quire(const QStringList &args, const QByteArray &input = {});
    QString path(const QString &name) const { return m_dir->filePath(name); }
    void writeDocuments();
    // Every file under the folder by relative path, with its bytes.
    QMap<QString, QByteArray> snapshot() const;
    std::optional<QTemporaryDir> m_dir;
};

Result TestCli::quire(const QStringList &args, const QByteArray &input)
{
    QProcess process;
    process.setWorkingDirectory(m_dir->path());
    process.start(QStringLiteral(QUIRE_BINARY), args);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(120000);
    Result result;
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

void TestCli::writeDocuments()
{
    // book.pdf: 5 pages; a.pdf: 2 pages, the second turned; b.pdf: 1 page; locked.pdf
    // encrypted; secret.pdf needs a password; empty.pdf has no pages; bad.pdf is no PDF;
    // readonly.pdf cannot be written; out/book(Page3).pdf is there already; manual.pdf has 4
    // pages and bookmarks: "Start" to page 2, "A/B" to page 3 over "Sub" to page 4. Profiles:
    // split.json, watermark.json, props.json.
    QDir(m_dir->path()).mkdir("out");
    QDir(m_dir->path()).mkdir("folder.pdf");
    TestPdf::write(path("out/book(Page3).pdf"), TestPdf::pages(1, "old"));
    TestPdf::write(path("book.pdf"), TestPdf::pages(5));
    TestPdf::Document a = TestPdf::pages(2, "a");
    a.pages[1].rotate = 90;
    TestPdf::write(path("a.pdf"), a);
    TestPdf::write(path("b.pdf"), TestPdf::pages(1, "b"));
    TestPdf::Document manual = TestPdf::pages(4, "m");
    manual.outline = {{1, "Start", 1}, {1, "A/B", 2}, {2, "Sub", 3}};
    TestPdf::write(path("manual.pdf"), manual);
    TestPdf::Document locked = TestPdf::pages(1, "e");
    locked.encrypt = true;
    TestPdf::write(path("locked.pdf"), locked);
    locked.userPassword = true;
    TestPdf::write(path("secret.pdf"), locked);
    TestPdf::write(path("empty.pdf"), TestPdf::Document());
    TestPdf::writeBytes(path("bad.pdf"), "not a PDF");
    TestPdf::write(path("readonly.pdf"), TestPdf::pages(1, "r"));
    QFile::setPermissions(path("readonly.pdf"), QFileDevice::ReadOwner);
    const auto profile = [&](const char *name, const char *tool, const char *settings) {
        const QString text = R"({"tool": "%1", "version": 1, "settings": {%2, "folder": "%3"}})";
        TestPdf::writeBytes(path(name), text.arg(tool, settings, path("out")).toUtf8());
    };
    profile("split.json",
            "split",
            R"("mode": "consecutive", "pagesPerInterval": 2,
               "nameTemplate": "[FileName]-[IntervalIndex]")");
    profile("watermark.json",
            "watermark",
            R"("text": "Profiled", "textPosition": 3, "pagesEnabled": true, "pages": "[2-3]",
               "nameTemplate": "[FileName]-stamped")");
    profile("props.json", "properties", R"("title": "P [FileName]")");
    profile("crop.json", "crop", R"("unit": "percents", "originX": 0, "originY": 0, "width": 50,
            "height": 50, "nameTemplate": "[FileName]-half")");
}

QMap<QString, QByteArray> TestCli::snapshot() const
{
    QMap<QString, QByteArray> files;
    QDirIterator it(m_dir->path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString file = it.next();
        files[QDir(m_dir->path()).relativeFilePath(file)] = TestPdf::contents(file);
    }
    return files;
}

void TestCli::runs_data()
{
    // The arguments (split at blanks); the exit status, the last line of stdout and a text
    // stderr holds; every file written or changed, described (see describe()).
    QTest::addColumn<QString>("args");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("lastLine");
    QTest::addColumn<QString>("stderrHas");
    QTest::addColumn<QString>("written");
    const auto usage = [](const char *name, const char *args, const char *reason) {
        row(name, args, 2, "", reason, "");
    };
    const QString merged = "PDF document(s) merged successfully.";
    const QString notMerged = "Could not merge PDF documents.";
    const QString split = "PDF document(s) split successfully.";
    const QString cropped = "PDF document(s) cropped successfully.";
    const QString notCropped = "Could not crop PDF document(s).";
    const QString stamped = "PDF document(s) watermarked successfully.";
    const QString edited = "Properties updated successfully.";
    const QString notEdited = "Could not update PDF document(s) properties.";

    // clang-format off
    row("help", "--help", 0, "  quire merge -o all.pdf a.pdf b.pdf c.pdf", "", "");
    usage("unknown subcommand", "frobnicate", "frobnicate");
    usage("unknown option", "merge --bogus -o x.pdf a.pdf", "bogus");
    usage("merge without output", "merge a.pdf", "-o");
    usage("no input left", "merge -o x.pdf bad.pdf locked.pdf", "locked.pdf");
    usage("bad --jobs", "merge -o x.pdf --jobs 0 a.pdf", "--jobs");
    usage("--every not a number", "split -d out --every ten a.pdf", "--every");
    usage("both split modes", "split -d out --every 2 --ranges 1 a.pdf", "--ranges");
    usage("bad --overwrite", "split -d out --every 2 --overwrite maybe a.pdf", "maybe");
    usage("bad --bookmarks", "merge -o x.pdf --bookmarks some a.pdf", "some");
    usage("bookmark level 0", "split -d out --at-bookmarks 0 a.pdf", "--at-bookmarks");
    usage("runs and bookmarks", "split -d out --every 2 --at-bookmarks 1 a.pdf", "--at-bookmarks");
    usage("missing profile", "split --profile gone.json a.pdf", "gone.json");
    usage("another tool's profile", "split --profile watermark.json a.pdf", "split settings");
    usage("no folder", "crop --rect 0,0,9,9 a.pdf", "-d DIR");
    usage("no rectangle", "crop -d out a.pdf", "--rect");
    usage("three numbers", "crop -d out --rect 1,2,3 a.pdf", "1,2,3");
    usage("nothing to crop", "crop -d out --rect 0,0,9,9", "There are no PDF documents to crop.");
    usage("a preview of two documents", "crop --preview 1 -o p.png --rect 0,0,9,9 a.pdf b.pdf", "");
    usage("unknown position", "watermark -d out --text-position middle a.pdf", "middle");
    usage("not a colour", "watermark -d out --color #12345 a.pdf", "#12345");
    usage("an offset of one number", "watermark -d out --text-offset 10 a.pdf", "--text-offset");
    usage("nothing to watermark", "watermark -d out gone.pdf", "no PDF documents to watermark.");
    usage("page 0", "render a.pdf --page 0 -o page.png", "--page");
    usage("a profile of properties", "properties --yes --profile split.json a.pdf", "split.json");
    usage("properties overwrite nothing", "properties --yes --overwrite all a.pdf", "overwrite");

    row("merge, each input once", "merge -o all.pdf b.pdf a.pdf b.pdf",
        0, merged, "", "all.pdf: b1 a1 a2");
    row("merge without an encrypted input", "merge -o all.pdf a.pdf locked.pdf",
        1, notMerged, "locked.pdf", "all.pdf: a1 a2");
    row("merge over its only input", "merge --overwrite all -o a.pdf a.pdf", 1, notMerged, "", "");
    row("merge into a folder", "merge --overwrite all -o out a.pdf b.pdf", 1, notMerged,
        "is a folder", "");
    row("crop into a name that is a folder", "crop -d . --name folder --overwrite all --rect "
        "0,0,9,9 a.pdf b.pdf", 1, notCropped, "folder.pdf is a folder", "");
    row("merge, every document's bookmarks", "merge -o all.pdf manual.pdf b.pdf", 0, merged, "",
        "all.pdf: m1 m2 m3 m4 b1 {Start>m2 A/B>m3 -Sub>m4}");
    row("merge, one bookmark per document", "merge --bookmarks per-document -o all.pdf b.pdf "
        "manual.pdf", 0, merged, "", "all.pdf: b1 m1 m2 m3 m4 {b>b1 manual>m1}");
    row("merge, each document's bookmarks under its own", "merge --bookmarks nest -o all.pdf "
        "manual.pdf b.pdf", 0, merged, "",
        "all.pdf: m1 m2 m3 m4 b1 {manual>m1+ -Start>m2 -A/B>m3 --Sub>m4 b>b1}");
    row("merge without bookmarks", "merge --bookmarks none -o all.pdf manual.pdf", 0, merged, "",
        "all.pdf: m1 m2 m3 m4");

    // out/book(Page3).pdf exists: without a terminal to ask on, it is skipped, as with "none".
    row("split every 2.7 pages as 2", "split -d out --every 2.7 book.pdf", 0, split, "skipped",
        "out/book(Page1).pdf: p1 p2; out/book(Page2).pdf: p3 p4");
    row("split, overwrite none", "split -d out --every 2 --overwrite none book.pdf", 0, split,
        "skipped", "out/book(Page1).pdf: p1 p2; out/book(Page2).pdf: p3 p4");
    row("split, overwrite all", "split -d out --every 2 --overwrite all book.pdf", 0, split, "",
        "out/book(Page1).pdf: p1 p2; out/book(Page2).pdf: p3 p4; out/book(Page3).pdf: p5");
    row("split ranges, a plain name", "split -d out --ranges [4-2],5,5 --name part book.pdf",
        0, split, "", "out/part (2-4).pdf: p2 p3 p4; out/part (5-5).pdf: p5");
    row("split ranges beyond the end", "split -d out --ranges [1-2],9,[4-8] book.pdf",
        0, split, "", "out/book(Page1).pdf: p1 p2; out/book(Page2).pdf: p4 p5");
    row("split, no interval in a document", "split -d out --ranges [3-4] book.pdf a.pdf",
        1, "", "no interval of \"[3-4]\" lies in", "");
    row("split every 0", "split -d out --every 0 a.pdf", 1, "", "at least 1", "");
    row("split at bookmarks, named after them", "split -d out --at-bookmarks 1 --name "
        "[BookmarkName] manual.pdf", 0, split, "", "out/A-B.pdf: m3 m4 {A/B>m3 -Sub>m4}; "
        "out/Start.pdf: m2 {Start>m2}; out/manual.pdf: m1");
    row("split at a level a document lacks", "split -d out --at-bookmarks 2 manual.pdf a.pdf",
        1, "", "a.pdf (2 pages) has no bookmark of level 2", "");
    row("split by a profile", "split --profile split.json book.pdf", 0, split, "",
        "out/book-1.pdf: p1 p2; out/book-2.pdf: p3 p4; out/book-3.pdf: p5");
    row("split, options over the profile",
        "split --profile split.json --ranges 1,[2-5] --name [IntervalEnd] book.pdf", 0, split, "",
        "out/1 (1-1).pdf: p1; out/5 (2-5).pdf: p2 p3 p4 p5");

    row("crop some pages by percent",
        "crop -d out --rect 10,10,50,50 --percent --pages 1,2,9 --name [FileName]_ a.pdf book.pdf",
        0, cropped, "", "out/a_.pdf: a1[306x396] a2[306x396]; "
                        "out/book_.pdf: p1[306x396] p2[306x396] p3 p4 p5");
    row("crop, no listed page in a document", "crop -d out --pages [20-30] --rect 0,0,9,9 b.pdf",
        0, cropped, "every page is cropped", "out/b_Cropped.pdf: b1[9x9]");
    row("crop into a missing folder", "crop -d nowhere --rect 0,0,9,9 a.pdf",
        1, notCropped, "nowhere", "");
    // Both land on a.pdf: b's crop waits beside it until a was read, and a's, listed last,
    // wins.
    row("crop over its own input and another",
        "crop -d . --name a --overwrite all --rect 0,0,9,9 b.pdf a.pdf",
        0, cropped, "", "a.pdf: a1[9x9] a2[9x9]");
    row("crop by a profile", "crop --profile crop.json b.pdf", 0, cropped, "",
        "out/b-half.pdf: b1[306x396]");
    row("crop, options over the profile", "crop --profile crop.json --rect 0,0,9,9 b.pdf", 0,
        cropped, "", "out/b-half.pdf: b1[9x9]");
    row("crop a document without pages", "crop -d . --rect 0,0,9,9 empty.pdf b.pdf",
        1, notCropped, "No pages", "b_Cropped.pdf: b1[9x9]");

    row("watermark every page", "watermark -d out a.pdf b.pdf", 0, stamped, "",
        "out/a_Watermarked.pdf: a1* a2*; out/b_Watermarked.pdf: b1*");
    row("watermark some pages, a name",
        "watermark -d out --pages [2-3] --name [FileName]-x book.pdf b.pdf", 0, stamped,
        "every page is watermarked", "out/b-x.pdf: b1*; out/book-x.pdf: p1 p2* p3* p4 p5");
    row("watermark by a profile", "watermark --profile watermark.json book.pdf",
        0, stamped, "", "out/book-stamped.pdf: p1 p2* p3* p4 p5");
    row("watermark, options over the profile",
        "watermark --profile watermark.json --pages 1 --name [FileName] book.pdf",
        0, stamped, "", "out/book.pdf: p1* p2 p3 p4 p5");
    row("watermark without its picture: nothing", "watermark -d out --image missing.png b.pdf",
        1, "Could not watermark PDF document(s).", "missing.png cannot be read", "");

    row("render a turned page", "render a.pdf --page 2 -o p.png", 0, "", "",
        "p.png: 3168x2448 288 dpi");
    row("render the first page", "render a.pdf -o p.png", 0, "", "", "p.png: 2448x3168 288 dpi");
    row("render past the end", "render book.pdf --page 6 -o p.png", 1, "", "6 (it has 5)", "");
    row("render a missing document", "render gone.pdf -o p.png", 1, "", "gone.pdf", "");
    row("render a locked document", "render secret.pdf -o p.png", 1, "", "password", "");
    row("render into a missing folder", "render a.pdf -o no/p.png", 1, "", "cannot write", "");
    row("crop preview past the end", "crop --preview 3 -o p.png a.pdf", 1, "", "has no page 3", "");
    row("watermark preview past the end", "watermark --preview 3 -o p.png a.pdf", 1, "", "3", "");

    row("properties",
        "properties --yes --author Bo --subject [FileName]! --keywords k,[FileName] a.pdf b.pdf",
        0, edited, "", "a.pdf: a1 a2 (a | Bo | a! | k, a); b.pdf: b1 (b | Bo | b! | k, b)");
    row("properties by a profile", "properties --yes --profile props.json b.pdf",
        0, edited, "", "b.pdf: b1 (P b)");
    row("properties ask without a terminal", "properties a.pdf", 1, "", "--yes", "");
    row("properties of a read-only document", "properties --yes readonly.pdf a.pdf",
        1, notEdited, "readonly.pdf", "a.pdf: a1 a2 (a)");
    row("properties leave a damaged document out", "properties --yes bad.pdf a.pdf",
        1, notEdited, "bad.pdf is left out", "a.pdf: a1 a2 (a)");
    // clang-format on
}

void TestCli::runs()
{
    QFETCH(QString, args);
    QFETCH(int, exitCode);
    QFETCH(QString, lastLine);
    QFETCH(QString, stderrHas);
    QFETCH(QString, written);
    writeDocuments();
    const auto before = snapshot();
    const Result r = quire(args.split(' '));
    QCOMPARE(r.exitCode, exitCode);
    QCOMPARE(r.lastLine(), lastLine);
    QVERIFY2(r.err.contains(stderrHas), qPrintable(r.err));
    if (exitCode == 2) {
        // One line of reason, after the inputs the load test left out.
        const QStringList lines = r.err.trimmed().split('\n');
        QCOMPARE(lines.filter("is left out").size(), lines.size() - 1);
    }
    const auto after = snapshot();
    QStringList changed;
    for (auto file = after.begin(); file != after.end(); ++file) {
        if (before.value(file.key()) != file.value()) {
            changed << file.key() + ": " + describe(path(file.key()));
        }
    }
    QCOMPARE(changed.join("; "), written);
}

void TestCli::info()
{
    TestPdf::Document titled = TestPdf::pages(3);
    titled.title = "Café ☕";
    titled.keywords = "a; b, c";
    TestPdf::write(path("titled.pdf"), titled);
    TestPdf::Document owner = TestPdf::pages(1);
    owner.encrypt = true;
    TestPdf::write(path("owner.pdf"), owner);

    Result r = quire({"info", "--json", "titled.pdf", "owner.pdf", "titled.pdf"});
    QCOMPARE(r.exitCode, 0);
    const QJsonArray array = QJsonDocument::fromJson(r.out.toUtf8()).array();
    QCOMPARE(array.size(), 2); // a path given twice is used once
    const QJsonObject first = array[0].toObject();
    QCOMPARE(first["path"].toString(), path("titled.pdf"));
    QCOMPARE(first["pages"].toInt(), 3);
    QCOMPARE(first["pageSize"].toString(), QStringLiteral("612 x 792"));
    QCOMPARE(first["title"].toString(), titled.title);
    QCOMPARE(first["keywords"].toArray(), QJsonArray({"a", "b", "c"}));
    QCOMPARE(first["bytes"].toInteger(), QFileInfo(path("titled.pdf")).size());
    QCOMPARE(array[1].toObject()["encrypted"].toBool(), true);

    r = quire({"info", "titled.pdf", "missing.pdf"});
    QCOMPARE(r.exitCode, 1);
    QVERIFY(r.out.contains("Page size: 612 x 792"));
    QVERIFY(r.err.contains("missing.pdf"));
    // Only files that do not open: nothing to tell of, a usage error.
    r = quire({"info", "missing.pdf", "gone.pdf"});
    QCOMPARE(r.exitCode, 2);
    QVERIFY(r.err.contains("missing.pdf") && r.err.contains("gone.pdf"));
}

void TestCli::sameResultForAnyNumberOfJobs_data()
{
    // Documents of 3 to 7 pages and a missing one; one long document, which several jobs share
    // between them; documents cropped to the same name, of which the last one listed wins.
    QTest::addColumn<QList<int>>("pages");
    QTest::addColumn<QString>("args");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<int>("outputs");
    const char *crop = "crop -d out --rect 0,0,99,99 --name x --overwrite all";
    row("split several documents", QList{3, 4, 5, 6, 7, 0}, "split -d out --every 2", 1, 14);
    row("split one long document", QList{81}, "split -d out --every 2", 0, 41);
    row("crop to one name", QList{3, 4, 5}, crop, 0, 1);
}

void TestCli::sameResultForAnyNumberOfJobs()
{
    QFETCH(QList<int>, pages);
    QFETCH(QString, args);
    QFETCH(int, exitCode);
    QFETCH(int, outputs);
    QStringList inputs;
    for (int i = 0; i < pages.size(); ++i) {
        inputs << QStringLiteral("doc%1.pdf").arg(i);
        if (pages[i] > 0) {
            TestPdf::write(path(inputs.back()),
                           TestPdf::pages(pages[i], QStringLiteral("d%1-").arg(i)));
        }
    }
    QList<Result> results;
    QList<QMap<QString, QByteArray>> written;
    for (const QString jobs : {"1", "3"}) {
        QDir(path("out")).removeRecursively();
        QDir(m_dir->path()).mkdir("out");
        results << quire(args.split(' ') + QStringList{"--jobs", jobs} + inputs);
        written << snapshot();
    }
    QCOMPARE(results[0].exitCode, exitCode);
    QCOMPARE(results[1].exitCode, results[0].exitCode);
    QCOMPARE(results[1].out, results[0].out);
    QCOMPARE(results[1].err, results[0].err);
    QCOMPARE(written[0].size(), inputs.size() - pages.count(0) + outputs);
    QCOMPARE(written[1], written[0]);
    if (args.startsWith("crop")) {
        QCOMPARE(describe(path("out/x.pdf")),
                 QStringLiteral("d2-1[99x99] d2-2[99x99] d2-3[99x99] d2-4[99x99] d2-5[99x99]"));
    }
}

void TestCli::previewsShowTheSettings()
{
    TestPdf::Document document = TestPdf::pages(2);
    document.pages[1].mediaBox = QRectF(0, 0, 400, 200);
    TestPdf::write(path("a.pdf"), document);
    // The right half of page 2, in percent of that page, is kept: bright; the rest is dimmed.
    Result r
        = quire(QString("crop --rect 50,0,50,100 --percent --preview 2 -o c.png a.pdf").split(' '));
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QString());
    const QImage crop(path("c.png"));
    QCOMPARE(crop.pixel(1000, 400), qRgb(255, 255, 255));
    QCOMPARE(crop.pixel(600, 400), qRgb(102, 102, 102));

    // The page as rendered, with the text in its middle third; no document is written.
    r = quire(QString("watermark --text Draft --size 100 --text-position center --preview 2 "
                      "-o w.png a.pdf")
                  .split(' '));
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QString());
    QCOMPARE(quire(QString("render a.pdf --page 2 -o page.png").split(' ')).exitCode, 0);
    const QImage page(path("page.png"));
    const QImage preview(path("w.png"));
    QCOMPARE(preview.size(), page.size());
    int darker = 0;
    for (int y = page.height() / 3; y < page.height() * 2 / 3; ++y) {
        for (int x = page.width() / 3; x < page.width() * 2 / 3; ++x) {
            darker += preview.pixelColor(x, y).lightness() < page.pixelColor(x, y).lightness() - 50;
        }
    }
    QVERIFY2(darker > 10000, qPrintable(QString::number(darker)));
    QCOMPARE(TestPdf::files(m_dir->path()), (QStringList{"a.pdf", "c.png", "page.png", "w.png"}));
}

void TestCli::killedPropertiesRuns()
{
    // A properties run killed at any moment leaves every document as it was or as the run makes
    // it, whole; what it left half-written is gone after the next run.
    QStringList names;
    QDir(m_dir->path()).mkdir("done");
    for (int i = 0; i < 4; ++i) {
        names << QStringLiteral("d%1.pdf").arg(i);
        TestPdf::Document document = TestPdf::pages(60, QStringLiteral("d%1-").arg(i));
        document.title = "Old";
        TestPdf::write(path(names.back()), document);
        QFile::copy(path(names.back()), path("done/" + names.back()));
    }
    const QStringList edit{"properties", "--yes", "--jobs", "1", "--title", "New [Original]"};
    QMap<QString, QByteArray> before;
    QElapsedTimer clock;
    clock.start();
    QProcess whole;
    whole.setWorkingDirectory(path("done"));
    whole.start(QUIRE_BINARY, edit + names);
    QVERIFY(whole.waitForFinished(60000) && whole.exitCode() == 0);
    const int duration = int(clock.elapsed());
    for (const QString &name : names) {
        before[name] = TestPdf::contents(path(name));
    }
    // The new version: whole, its 60 pages and its new title.
    const auto edited = [](const QString &file) {
        const auto read = TestPdf::read(file);
        return read.opened && read.clean && read.pages.size() == 60 && read.title == "New Old";
    };
    QVERIFY(edited(path("done/" + names.front())));
    for (int trial = 0; trial < 100; ++trial) {
        for (const QString &name : names) {
            TestPdf::writeBytes(path(name), before[name]);
        }
        QProcess process;
        process.setWorkingDirectory(m_dir->path());
        process.start(QUIRE_BINARY, edit + names);
        QVERIFY(process.waitForStarted());
        QTest::qSleep(QRandomGenerator::global()->bounded(duration + 1));
        ::kill(pid_t(process.processId()), SIGKILL);
        process.waitForFinished();
        for (const QString &name : names) {
            QVERIFY2(TestPdf::contents(path(name)) == before[name] || edited(path(name)),
                     qPrintable(QStringLiteral("trial %1: %2 is neither").arg(trial).arg(name)));
        }
    }
    QVERIFY(quire(edit + names).exitCode == 0);
    QCOMPARE(TestPdf::files(m_dir->path()).filter(".quire-"), QStringList{});
}

void TestCli::help_data()
{
    QTest::addColumn<QString>("subcommand");
    for (const char *name :
         {"", "info", "merge", "split", "crop", "properties", "render", "watermark"}) {
        QTest::newRow(*name ? name : "quire") << QString::fromLatin1(name);
    }
}

void TestCli::help()
{
    // Every help fits a terminal of 80 columns and ends with commands to copy, each a command
    // of its own subcommand.
    QFETCH(QString, subcommand);
    const Result result
        = quire(subcommand.isEmpty() ? QStringList{"--help"} : QStringList{subcommand, "--help"});
    QCOMPARE(result.exitCode, 0);
    const QStringList lines = result.out.trimmed().split('\n');
    for (const QString &line : lines) {
        QVERIFY2(line.size() <= 80,
                 qPrintable(QString("%1 columns: %2").arg(line.size()).arg(line)));
    }
    const qsizetype heading = lines.lastIndexOf(QRegularExpression("^Examples?:$"));
    QVERIFY(heading > 0);
    QVERIFY(heading < lines.size() - 1);
    for (const QString &example : lines.mid(heading + 1)) {
        QVERIFY2(example.startsWith("  quire " + subcommand), qPrintable(example));
    }
}

namespace {

const Cli::Subcommand extensionSubcommands[] = {{"render", nullptr}};
const Cli::Extensions extensions{extensionSubcommands, 1, "", nullptr, nullptr};
const Cli::Extensions *loadExtensions()
{
    return &extensions;
}

} // namespace

void TestCli::launcherOrCommandLine_data()
{
    // The arguments, split at blanks (a file of each name in the working folder when the name
    // is in "files"); whether they ask for the command line; the launcher's documents,
    // relative to the working folder.
    QTest::addColumn<QString>("args");
    QTest::addColumn<QString>("files");
    QTest::addColumn<bool>("commandLine");
    QTest::addColumn<QString>("documents");
    // clang-format off
    row("no arguments", "", "", false, "");
    row("a subcommand, also when a file has its name", "merge -o all.pdf a.pdf", "merge", true, "");
    row("the extensions' subcommand", "render a.pdf -o a.png", "render", true, "");
    row("an option", "--version", "", true, "");
    row("a mistyped subcommand", "mrege -o all.pdf a.pdf", "", true, "");
    row("documents, each once", "b.pdf a.PDF b.pdf", "", false, "b.pdf a.PDF");
    row("a file without extension", "scan a.pdf", "scan", false, "scan a.pdf");
    row("a path", "scans/x", "", false, "scans/x");
    row("a file named as a subcommand, after --", "-- merge -- a.pdf", "merge", false,
        "merge -- a.pdf");
    // clang-format on
}

void TestCli::launcherOrCommandLine()
{
    QFETCH(QString, args);
    QFETCH(QString, files);
    QFETCH(bool, commandLine);
    QFETCH(QString, documents);
    for (const QString &file : files.split(' ', Qt::SkipEmptyParts)) {
        QVERIFY(TestPdf::writeBytes(path(file), "%PDF-1.4\n"));
    }
    const QString before = QDir::currentPath();
    QDir::setCurrent(m_dir->path());
    std::vector<QByteArray> words{"quire"};
    for (const QString &arg : args.split(' ', Qt::SkipEmptyParts)) {
        words.push_back(arg.toUtf8());
    }
    std::vector<char *> argv;
    for (QByteArray &word : words) {
        argv.push_back(word.data());
    }
    const bool wanted = Cli::wantsCommandLine(int(argv.size()), argv.data(), loadExtensions);
    QStringList expected;
    for (const QString &document : documents.split(' ', Qt::SkipEmptyParts)) {
        expected << path(document);
    }
    const QStringList launcherDocuments
        = wanted ? QStringList() : Cli::launcherDocuments(int(argv.size()), argv.data());
    QDir::setCurrent(before);
    QCOMPARE(wanted, commandLine);
    QCOMPARE(launcherDocuments, expected);
}

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
