// A second reader for every save: documents of every build (cross-reference tables and streams,
// hybrid files, object streams, linearized files, earlier updates, a broken table qpdf repairs,
// garbage after the end, versions 1.0 to 2.0, real files of other programs, a signed form) get
// their properties edited in place, and are cropped and watermarked. Every output passes qpdf's
// check, poppler reads the same pages and texts, its pages draw as those of qpdf's own rewrite of
// it, and it takes a second edit.

#include "drawing/watermarklayers.h"
#include "engine/pdftools.h"
#include "testpdf.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using TestPdf::row;

namespace {

struct Run
{
    int exitCode = -1;
    QString out;
};

Run run(const QString &program, const QStringList &args)
{
    QProcess process;
    process.start(program, args);
    process.waitForFinished(120000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError())};
}

// What poppler reads: the page count first, then the four texts.
QString popplerInfo(const QString &pdf)
{
    QStringList kept;
    const QStringList lines = run("pdfinfo", {pdf}).out.split('\n');
    for (const char *key : {"Pages:", "Title:", "Author:", "Subject:", "Keywords:"}) {
        for (const QString &line : lines) {
            if (line.startsWith(QLatin1String(key))) {
                kept << line.simplified();
            }
        }
    }
    return kept.join(" | ");
}

// Every page drawn small, as one picture a page.
QList<QImage> pages(const QString &pdf)
{
    QTemporaryDir dir;
    run("pdftoppm", {"-r", "24", "-png", pdf, dir.filePath("p")});
    QList<QImage> images;
    for (const QString &name : QDir(dir.path()).entryList({"*.png"}, QDir::Files, QDir::Name)) {
        images << QImage(dir.filePath(name)).convertToFormat(QImage::Format_RGB32);
    }
    return images;
}

} // namespace

class TestSecondReader : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_dir.emplace(); }
    void everySave_data();
    void everySave();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    std::optional<QTemporaryDir> m_dir;
};

void TestSecondReader::everySave_data()
{
    QTest::addColumn<QString>("source"); // a built kind, or a file of tests/data/corpus
    QTest::addColumn<QString>("tool");
    QStringList sources{"table",
                        "stream",
                        "hybrid",
                        "linearized",
                        "updated twice",
                        "broken table",
                        "garbage after the end",
                        "1.0",
                        "2.0",
                        "signed"};
    for (const QString &file : QDir(QUIRE_TEST_DATA "/corpus").entryList({"*.pdf"}, QDir::Files)) {
        if (!file.contains("password")) {
            sources << file;
        }
    }
    for (const QString &source : sources) {
        for (const char *tool : {"properties", "crop", "watermark"}) {
            QTest::addRow("%s, %s", qPrintable(source), tool)
                << source << QString::fromLatin1(tool);
        }
    }
}

void TestSecondReader::everySave()
{
    QFETCH(QString, source);
    QFETCH(QString, tool);
    const QString input = path("in.pdf");
    if (source.endsWith(".pdf")) {
        QVERIFY(QFile::copy(QUIRE_TEST_DATA "/corpus/" + source, input));
        QFile::setPermissions(input, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    } else {
        TestPdf::Document document = TestPdf::pages(3);
        document.title = "Old";
        document.keywords = "a, b";
        document.objectStreams = source == "stream";
        document.hybrid = source == "hybrid";
        document.wrongStartxref = source == "broken table";
        document.signedForm = source == "signed";
        if (source == "1.0" || source == "2.0") {
            document.version = source;
        }
        TestPdf::write(input, document);
        if (source == "linearized") {
            QVERIFY(run("qpdf", {"--linearize", "--replace-input", input}).exitCode == 0);
        } else if (source == "updated twice") {
            // Two earlier edits of our own, as updates after a signed form's bytes would be.
            for (const char *title : {"One", "Two"}) {
                QVERIFY(PDFTools::ChangedDocumentsPropertiesWithPdfPath(input, title, "", "", ""));
            }
        } else if (source == "garbage after the end") {
            QFile file(input);
            QVERIFY(file.open(QIODevice::Append));
            file.write("\n\0\x01garbage after the end\n", 25);
        }
    }
    const QString before = popplerInfo(input);
    // A damaged source may keep what qpdf warns about (a stream that does not decode); no
    // output has errors, nor warnings its source had not.
    const int allowed = run("qpdf", {"--check", input}).exitCode == 0 ? 0 : 3;
    const QString output = tool == "properties" ? input : path("out.pdf");
    bool written = false;
    if (tool == "properties") {
        written = PDFTools::ChangedDocumentsPropertiesWithPdfPath(
            input, "New ☃", "[Original]", "S", "[Original] k");
    } else if (tool == "crop") {
        written = PDFTools::CropPDF(input, {}, output, 10, 10, 80, 80, true);
    } else {
        Jobs::WatermarkSettings settings;
        settings.text = "Draft";
        WatermarkLayers layers(settings);
        written = PDFTools::WatermarkPDF(input, {}, layers, output);
    }
    QVERIFY(written);

    // qpdf finds no error.
    const Run check = run("qpdf", {"--check", output});
    QVERIFY2(check.exitCode == 0 || check.exitCode <= allowed, qPrintable(check.out));
    // Poppler reads the pages and texts it should.
    const QString after = popplerInfo(output);
    QCOMPARE(after.section(" | ", 0, 0), before.section(" | ", 0, 0)); // the page count
    if (tool == "properties") {
        QVERIFY2(after.contains("Title: New ☃") && after.contains("Subject: S"), qPrintable(after));
    }
    // Its pages draw as those of qpdf's own rewrite of it.
    QVERIFY(run("qpdf", {output, path("rewritten.pdf")}).exitCode <= 3);
    const QList<QImage> drawn = pages(output);
    QCOMPARE(drawn, pages(path("rewritten.pdf")));
    QVERIFY(!drawn.isEmpty());
    // And it takes a second edit.
    QVERIFY(PDFTools::ChangedDocumentsPropertiesWithPdfPath(output, "Again", "", "", ""));
    QVERIFY(run("qpdf", {"--check", output}).exitCode <= allowed);
    QVERIFY(popplerInfo(output).contains("Title: Again"));
}

QTEST_MAIN(TestSecondReader)
#include "tst_secondreader.moc"
