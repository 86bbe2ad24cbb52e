// The command line as a script sees it: the last line of stdout, stderr, the exit status and the
// files written.

#include "testpdf.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

struct Result
{
    int exitCode = -1;
    QString out;
    QString err;
    QString lastLine() const { return out.trimmed().section(QLatin1Char('\n'), -1); }
};

QByteArray digest(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
}

} // namespace

class TestCli : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void helpVersionAndUsageErrors_data();
    void helpVersionAndUsageErrors();
    void info();
    void merge();
    void mergeRejectsAndGuards();
    void split_data();
    void split();
    void splitThatCannotStart_data();
    void splitThatCannotStart();
    void splitProfile_data();
    void splitProfile();
    void watermark_data();
    void watermark();
    void watermarkGuards();
    void watermarkPreview();
    void overwriteModes_data();
    void overwriteModes();
    void sameResultForAnyNumberOfJobs_data();
    void sameResultForAnyNumberOfJobs();
    void crop();
    void cropFailures_data();
    void cropFailures();
    void cropPreview();
    void render();
    void renderFailures_data();
    void renderFailures();
    void properties();
    void propertiesFailures_data();
    void propertiesFailures();

private:
    Result quire(const QStringList &args, const QByteArray &input = {});
    QString path(const QString &name) const { return m_dir->filePath(name); }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestCli::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

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

void TestCli::helpVersionAndUsageErrors_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("stdoutHas");
    QTest::addColumn<QString>("stderrHas");
    QTest::newRow("--help") << QStringList{"--help"} << 0 << "quire merge -o OUTPUT"
                            << "";
    QTest::newRow("--version") << QStringList{"--version"} << 0 << "quire 0."
                               << "";
    QTest::newRow("split --help") << QStringList{"split", "--help"} << 0 << "--every"
                                  << "";
    QTest::newRow("properties --help") << QStringList{"properties", "--help"} << 0 << "--keywords"
                                       << "";
    QTest::newRow("unknown subcommand") << QStringList{"frobnicate"} << 2 << ""
                                        << "frobnicate";
    QTest::newRow("unknown option")
        << QStringList{"merge", "--bogus", "-o", "x.pdf", "a.pdf"} << 2 << ""
        << "bogus";
    QTest::newRow("merge without output") << QStringList{"merge", "a.pdf"} << 2 << ""
                                          << "-o";
    QTest::newRow("no input left") << QStringList{"merge", "-o", "x.pdf", "nothing.pdf"} << 2 << ""
                                   << "nothing.pdf";
    QTest::newRow("--every not a number")
        << QStringList{"split", "-d", ".", "--every", "ten", "a.pdf"} << 2 << ""
        << "--every";
    QTest::newRow("both split modes")
        << QStringList{"split", "-d", ".", "--every", "2", "--ranges", "1", "a.pdf"} << 2 << ""
        << "--ranges";
    QTest::newRow("bad --overwrite")
        << QStringList{"split", "-d", ".", "--every", "2", "--overwrite", "maybe", "a.pdf"} << 2
        << ""
        << "maybe";
    const auto watermark = [](QStringList options) {
        return QStringList{"watermark", "-d", "."} + options + QStringList{"a.pdf"};
    };
    QTest::newRow("unknown position") << watermark({"--text-position", "middle"}) << 2 << ""
                                      << "middle";
    QTest::newRow("colour that is not one") << watermark({"--color", "#12345"}) << 2 << ""
                                            << "#12345";
    QTest::newRow("offset with one number") << watermark({"--text-offset", "10"}) << 2 << ""
                                            << "--text-offset";
    QTest::newRow("watermark without folder") << QStringList{"watermark", "a.pdf"} << 2 << ""
                                              << "-d DIR";
    QTest::newRow("nothing to watermark")
        << QStringList{"watermark", "-d", ".", "gone.pdf"} << 2 << ""
        << "There are no PDF documents to watermark.";
    QTest::newRow("bad --jobs") << QStringList{"merge", "-o", "x.pdf", "--jobs", "0", "a.pdf"} << 2
                                << ""
                                << "--jobs";
}

void TestCli::helpVersionAndUsageErrors()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QString, stdoutHas);
    QFETCH(QString, stderrHas);
    TestPdf::write(path("a.pdf"), TestPdf::pages(2));
    const Result r = quire(args);
    QCOMPARE(r.exitCode, exitCode);
    QVERIFY2(r.out.contains(stdoutHas), qPrintable(r.out));
    QVERIFY2(r.err.contains(stderrHas), qPrintable(r.err));
    if (exitCode == 2) {
        QVERIFY2(r.out.isEmpty(), "a usage error prints nothing on stdout");
        // One line of reason, after the inputs the load test left out.
        const QStringList lines = r.err.trimmed().split(QLatin1Char('\n'));
        QCOMPARE(lines.filter(QStringLiteral("is left out")).size(), lines.size() - 1);
    }
}

void TestCli::info()
{
    TestPdf::Document titled = TestPdf::pages(3);
    titled.title = QStringLiteral("Café ☕");
    titled.keywords = QStringLiteral("a; b, c");
    TestPdf::write(path("titled.pdf"), titled);
    TestPdf::Document owner = TestPdf::pages(1);
    owner.encrypt = true;
    TestPdf::write(path("owner.pdf"), owner);

    Result r = quire({"info", "--json", "titled.pdf", "owner.pdf", "titled.pdf"});
    QCOMPARE(r.exitCode, 0);
    const QJsonArray array = QJsonDocument::fromJson(r.out.toUtf8()).array();
    QCOMPARE(array.size(), 2); // a path given twice is used once
    const QJsonObject first = array[0].toObject();
    QCOMPARE(first[QStringLiteral("path")].toString(), path("titled.pdf"));
    QCOMPARE(first[QStringLiteral("pages")].toInt(), 3);
    QCOMPARE(first[QStringLiteral("pageSize")].toString(), QStringLiteral("612 x 792"));
    QCOMPARE(first[QStringLiteral("title")].toString(), titled.title);
    QCOMPARE(first[QStringLiteral("keywords")].toArray(),
             QJsonArray({QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
    QCOMPARE(first[QStringLiteral("bytes")].toInteger(), QFileInfo(path("titled.pdf")).size());
    QCOMPARE(array[1].toObject()[QStringLiteral("encrypted")].toBool(), true);

    r = quire({"info", "titled.pdf", "missing.pdf"});
    QCOMPARE(r.exitCode, 1);
    QVERIFY(r.out.contains(QStringLiteral("Page size: 612 x 792")));
    QVERIFY(r.err.contains(QStringLiteral("missing.pdf")));
}

void TestCli::merge()
{
    TestPdf::write(path("a.pdf"), TestPdf::pages(2, QStringLiteral("a")));
    TestPdf::write(path("b.pdf"), TestPdf::pages(1, QStringLiteral("b")));
    const Result r = quire({"merge", "-o", "all.pdf", "b.pdf", "a.pdf", "b.pdf"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QStringLiteral("PDF document(s) merged successfully.\n"));
    QCOMPARE(TestPdf::read(path("all.pdf")).markers(), (QStringList{"b1", "a1", "a2"}));
}

void TestCli::mergeRejectsAndGuards()
{
    TestPdf::write(path("a.pdf"), TestPdf::pages(2, QStringLiteral("a")));
    TestPdf::Document owner = TestPdf::pages(1, QStringLiteral("e"));
    owner.encrypt = true;
    TestPdf::write(path("locked.pdf"), owner);

    Result r = quire({"merge", "-o", "all.pdf", "a.pdf", "locked.pdf"});
    QCOMPARE(r.exitCode, 1);
    QCOMPARE(r.lastLine(), QStringLiteral("Could not merge PDF documents."));
    QVERIFY2(r.err.contains(QStringLiteral("locked.pdf")), qPrintable(r.err));
    QCOMPARE(TestPdf::read(path("all.pdf")).markers(), (QStringList{"a1", "a2"}));

    const QByteArray before = digest(path("a.pdf"));
    r = quire({"merge", "--overwrite", "all", "-o", "a.pdf", "a.pdf"});
    QCOMPARE(r.exitCode, 1);
    QCOMPARE(r.lastLine(), QStringLiteral("Could not merge PDF documents."));
    QCOMPARE(digest(path("a.pdf")), before);
}

void TestCli::split_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QStringList>("files"); // name: markers joined by "+"
    QTest::newRow("every 2") << QStringList{
        "--every",
        "2"} << QStringList{"book(Page1).pdf:p1+p2", "book(Page2).pdf:p3+p4", "book(Page3).pdf:p5"};
    QTest::newRow("every 2.7 reads as 2")
        << QStringList{"--every", "2.7"}
        << QStringList{"book(Page1).pdf:p1+p2", "book(Page2).pdf:p3+p4", "book(Page3).pdf:p5"};
    QTest::newRow("every beyond the end")
        << QStringList{"--every", "9"} << QStringList{"book(Page1).pdf:p1+p2+p3+p4+p5"};
    QTest::newRow("ranges with a plain name")
        << QStringList{"--ranges", "[4-2],5,5", "--name", "part"}
        << QStringList{"part (2-4).pdf:p2+p3+p4", "part (5-5).pdf:p5"};
    QTest::newRow("ranges, default name")
        << QStringList{"--ranges", "[1-2],9,[4-8]"}
        << QStringList{"book(Page1).pdf:p1+p2", "book(Page2).pdf:p4+p5"};
}

void TestCli::split()
{
    QFETCH(QStringList, options);
    QFETCH(QStringList, files);
    TestPdf::write(path("book.pdf"), TestPdf::pages(5));
    QDir(m_dir->path()).mkdir(QStringLiteral("out"));
    const Result r = quire(QStringList{"split", "-d", "out"} + options + QStringList{"book.pdf"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QStringLiteral("PDF document(s) split successfully.\n"));
    QStringList found;
    for (const QString &name : QDir(path("out")).entryList(QDir::Files | QDir::Hidden)) {
        found << name + QLatin1Char(':')
                     + TestPdf::read(path("out/") + name).markers().join(QLatin1Char('+'));
    }
    files.sort();
    QCOMPARE(found, files);
}

void TestCli::splitThatCannotStart_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no interval in a document")
        << QStringList{"-d", "out", "--ranges", "[20-30]", "short.pdf", "book.pdf"} << "[20-30]";
    QTest::newRow("every below 1") << QStringList{"-d", "out", "--every", "0", "book.pdf"} << "1";
}

void TestCli::splitThatCannotStart()
{
    QFETCH(QStringList, options);
    QFETCH(QString, reason);
    TestPdf::write(path("book.pdf"), TestPdf::pages(25));
    TestPdf::write(path("short.pdf"), TestPdf::pages(5));
    QDir(m_dir->path()).mkdir(QStringLiteral("out"));
    const Result r = quire(QStringList{"split"} + options);
    QCOMPARE(r.exitCode, 1);
    QVERIFY2(r.err.contains(reason), qPrintable(r.err));
    QCOMPARE(QDir(path("out")).entryList(QDir::Files | QDir::Hidden), QStringList());
}

void TestCli::splitProfile_data()
{
    // The profile, as the Split window saves it: runs of 2 pages, files "<name>-<index>" in out/.
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("files"); // in out/, or the usage error's text
    QTest::newRow("every setting from the profile")
        << QStringList{"--profile", "split.json"} << 0
        << QStringList{"book-1.pdf", "book-2.pdf", "book-3.pdf"};
    QTest::newRow("options override the profile") << QStringList{"--profile",
                                                                 "split.json",
                                                                 "--ranges",
                                                                 "1,[2-5]",
                                                                 "--name",
                                                                 "[FileName]_"
                                                                 "[IntervalEnd]"}
                                                  << 0 << QStringList{"book_1.pdf", "book_5.pdf"};
    QTest::newRow("missing profile")
        << QStringList{"--profile", "gone.json", "-d", "out"} << 2 << QStringList{"gone.json"};
    QTest::newRow("another tool's profile")
        << QStringList{"--profile", "crop.json"} << 2 << QStringList{"crop.json", "split settings"};
}

void TestCli::splitProfile()
{
    QFETCH(QStringList, options);
    QFETCH(int, exitCode);
    QFETCH(QStringList, files);
    TestPdf::write(path("book.pdf"), TestPdf::pages(5));
    QDir(m_dir->path()).mkdir(QStringLiteral("out"));
    QFile profile(path("split.json"));
    QVERIFY(profile.open(QIODevice::WriteOnly));
    profile.write(
        QJsonDocument(QJsonObject{{"tool", "split"},
                                  {"settings",
                                   QJsonObject{{"mode", "consecutive"},
                                               {"pagesPerInterval", 2},
                                               {"nameTemplate", "[FileName]-[IntervalIndex]"},
                                               {"folder", path("out")}}}})
            .toJson());
    profile.close();
    QFile crop(path("crop.json"));
    QVERIFY(crop.open(QIODevice::WriteOnly));
    crop.write(R"({"tool": "crop", "settings": {}})");
    crop.close();

    const Result r = quire(QStringList{"split"} + options + QStringList{"book.pdf"});
    QCOMPARE(r.exitCode, exitCode);
    if (exitCode == 0) {
        QCOMPARE(QDir(path("out")).entryList(QDir::Files, QDir::Name), files);
    } else {
        for (const QString &text : files) {
            QVERIFY2(r.err.contains(text), qPrintable(r.err));
        }
        QCOMPARE(QDir(path("out")).entryList(QDir::Files), QStringList());
    }
}

void TestCli::watermark_data()
{
    // A profile as the Watermark window saves it: the text at the top right of pages 2 and 3,
    // files "<name>-stamped" in out/.
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QStringList>("outputs"); // in out/
    QTest::addColumn<QList<bool>>("stamped"); // pages of book.pdf's output
    QTest::newRow("defaults: every page")
        << QStringList{"-d", "out"} << QStringList{"book_Watermarked.pdf", "short_Watermarked.pdf"}
        << QList<bool>{true, true, true, true};
    QTest::newRow("pages and a name")
        << QStringList{"-d", "out", "--pages", "[3-4],9", "--name", "[FileName]-x"}
        << QStringList{"book-x.pdf", "short-x.pdf"} << QList<bool>{false, false, true, true};
    QTest::newRow("no page selected: every page")
        << QStringList{"-d", "out", "--pages", "[7-9]", "--text-position", "center"}
        << QStringList{"book_Watermarked.pdf", "short_Watermarked.pdf"}
        << QList<bool>{true, true, true, true};
    QTest::newRow("every setting from the profile")
        << QStringList{"--profile", "watermark.json"}
        << QStringList{"book-stamped.pdf", "short-stamped.pdf"}
        << QList<bool>{false, true, true, false};
    QTest::newRow("options override the profile")
        << QStringList{"--profile", "watermark.json", "--pages", "1", "--name", "[FileName]"}
        << QStringList{"book.pdf", "short.pdf"} << QList<bool>{true, false, false, false};
}

void TestCli::watermark()
{
    QFETCH(QStringList, options);
    QFETCH(QStringList, outputs);
    QFETCH(QList<bool>, stamped);
    TestPdf::write(path("book.pdf"), TestPdf::pages(4));
    TestPdf::write(path("short.pdf"), TestPdf::pages(1));
    QDir(m_dir->path()).mkdir(QStringLiteral("out"));
    QFile profile(path("watermark.json"));
    QVERIFY(profile.open(QIODevice::WriteOnly));
    profile.write(QJsonDocument(QJsonObject{{"tool", "watermark"},
                                            {"settings",
                                             QJsonObject{{"text", "Profiled"},
                                                         {"textPosition", 3},
                                                         {"pagesEnabled", true},
                                                         {"pages", "[2-3]"},
                                                         {"nameTemplate", "[FileName]-stamped"},
                                                         {"folder", path("out")}}}})
                      .toJson());
    profile.close();

    const Result r
        = quire(QStringList{"watermark"} + options + QStringList{"book.pdf", "short.pdf"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QStringLiteral("PDF document(s) watermarked successfully.\n"));
    // Nothing on stderr but the notice for a document where no listed page lies.
    const QStringList said = r.err.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(said.filter(QStringLiteral(": every page is watermarked")), said);
    QCOMPARE(QDir(path("out")).entryList(QDir::Files, QDir::Name), outputs);
    const auto book = TestPdf::read(path("out/") + outputs[0]);
    QCOMPARE(book.markers(), (QStringList{"p1", "p2", "p3", "p4"}));
    for (int i = 0; i < 4; ++i) {
        QCOMPARE(!book.pages[i].images.isEmpty(), stamped[i]);
    }
}

void TestCli::watermarkGuards()
{
    TestPdf::write(path("a.pdf"), TestPdf::pages(2, QStringLiteral("a")));
    TestPdf::write(path("b.pdf"), TestPdf::pages(1, QStringLiteral("b")));
    const QByteArray before = digest(path("a.pdf"));

    // An output that would replace an input is not written; the other documents are.
    Result r
        = quire({"watermark", "-d", ".", "--name", "[FileName]", "--overwrite", "all", "a.pdf"});
    QCOMPARE(r.exitCode, 1);
    QCOMPARE(r.lastLine(), QStringLiteral("Could not watermark PDF document(s)."));
    QCOMPARE(digest(path("a.pdf")), before);
    r = quire({"watermark", "-d", ".", "--name", "a", "--overwrite", "all", "b.pdf", "a.pdf"});
    QCOMPARE(r.exitCode, 1);
    QCOMPARE(digest(path("a.pdf")), before);

    // A picture that cannot be read: said on stderr, and the text is still stamped.
    r = quire({"watermark", "-d", ".", "--image", "missing.png", "b.pdf"});
    QCOMPARE(r.exitCode, 0);
    QVERIFY2(r.err.contains(QStringLiteral("missing.png")), qPrintable(r.err));
    QCOMPARE(TestPdf::read(path("b_Watermarked.pdf")).pages[0].images.size(), 1);

    // A folder that does not exist ends the run as a failure.
    r = quire({"watermark", "-d", "nowhere", "b.pdf"});
    QCOMPARE(r.exitCode, 1);
    QVERIFY(r.err.contains(QStringLiteral("nowhere")));
}

void TestCli::watermarkPreview()
{
    TestPdf::write(path("a.pdf"), TestPdf::pages(2));
    Result r = quire({"render", "a.pdf", "--page", "2", "-o", "page.png"});
    QCOMPARE(r.exitCode, 0);
    r = quire({"watermark",
               "--text",
               "Draft",
               "--size",
               "100",
               "--text-position",
               "center",
               "--preview",
               "2",
               "-o",
               "preview.png",
               "a.pdf"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QString());
    const QImage page(path("page.png"));
    const QImage preview(path("preview.png"));
    QCOMPARE(preview.size(), QSize(2448, 3168));
    // The page as rendered, with the text in its middle.
    const QPoint centre(1224, 1584);
    QCOMPARE(page.pixelColor(centre), QColor(Qt::white));
    QCOMPARE(preview.pixelColor(0, 0), page.pixelColor(0, 0));
    const QRect middle(centre - QPoint(400, 100), QSize(800, 200));
    int darker = 0;
    for (int y = middle.top(); y <= middle.bottom(); ++y) {
        for (int x = middle.left(); x <= middle.right(); ++x) {
            darker += preview.pixelColor(x, y).lightness() < 200;
        }
    }
    QVERIFY2(darker > 10000, qPrintable(QString::number(darker)));
    QVERIFY(!QFileInfo::exists(path("a_Watermarked.pdf")));

    r = quire({"watermark", "--preview", "3", "-o", "none.png", "a.pdf"});
    QCOMPARE(r.exitCode, 1);
    QVERIFY2(r.err.contains(QStringLiteral("no page 3")), qPrintable(r.err));
    QVERIFY(!QFileInfo::exists(path("none.png")));
}

void TestCli::overwriteModes_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("answers");
    QTest::addColumn<bool>("replaced");
    QTest::newRow("none") << QStringList{"--overwrite", "none"} << QByteArray() << false;
    QTest::newRow("ask without a terminal") << QStringList{} << QByteArray("y\n") << false;
    QTest::newRow("all") << QStringList{"--overwrite", "all"} << QByteArray() << true;
}

void TestCli::overwriteModes()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, answers);
    QFETCH(bool, replaced);
    TestPdf::write(path("book.pdf"), TestPdf::pages(2));
    TestPdf::write(path("book(Page1).pdf"), TestPdf::pages(1, QStringLiteral("old")));
    const Result r
        = quire(QStringList{"split", "-d", ".", "--every", "1"} + options + QStringList{"book.pdf"},
                answers);
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(TestPdf::read(path("book(Page1).pdf")).markers(),
             QStringList{replaced ? "p1" : "old1"});
    QCOMPARE(TestPdf::read(path("book(Page2).pdf")).markers(), QStringList{"p2"});
    QCOMPARE(r.err.contains(QStringLiteral("skipped")), !replaced);
}

void TestCli::sameResultForAnyNumberOfJobs_data()
{
    // Documents of 3 to 7 pages and a missing one; or one long document, which several jobs
    // share between them.
    QTest::addColumn<QList<int>>("pages");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<int>("outputs");
    QTest::newRow("several documents") << QList<int>{3, 4, 5, 6, 7, 0} << 1 << 2 + 2 + 3 + 3 + 4;
    QTest::newRow("one long document") << QList<int>{81} << 0 << 41;
}

void TestCli::sameResultForAnyNumberOfJobs()
{
    QFETCH(QList<int>, pages);
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
    QList<QList<QByteArray>> digests;
    for (const QString jobs : {"1", "3"}) {
        const QString out = QStringLiteral("out") + jobs;
        QDir(m_dir->path()).mkdir(out);
        results << quire(QStringList{"split", "-d", out, "--every", "2", "--jobs", jobs} + inputs);
        QList<QByteArray> files;
        for (const QString &name : QDir(path(out)).entryList(QDir::Files)) {
            files << name.toUtf8() + digest(path(out + QLatin1Char('/') + name));
        }
        digests << files;
    }
    QCOMPARE(results[0].exitCode, exitCode);
    QCOMPARE(results[0].lastLine(),
             exitCode ? QStringLiteral("Could not split PDF document(s).")
                      : QStringLiteral("PDF document(s) split successfully."));
    QCOMPARE(results[1].exitCode, results[0].exitCode);
    QCOMPARE(results[1].out, results[0].out);
    QCOMPARE(results[1].err, results[0].err);
    QCOMPARE(digests[0].size(), outputs);
    QCOMPARE(digests[1], digests[0]);
}

void TestCli::crop()
{
    TestPdf::write(path("a.pdf"), TestPdf::pages(3, QStringLiteral("a")));
    TestPdf::write(path("b.pdf"), TestPdf::pages(2, QStringLiteral("b")));
    QDir(m_dir->path()).mkdir(QStringLiteral("out"));
    const QStringList args{
        "crop", "-d", "out", "--rect", "10,10,50,50", "--percent", "--pages", "[1-2],9"};
    QList<QByteArray> digests;
    for (const QString jobs : {"1", "2"}) {
        const Result r = quire(args + QStringList{"--jobs", jobs, "a.pdf", "b.pdf"});
        QCOMPARE(r.exitCode, 0);
        QCOMPARE(r.out, QStringLiteral("PDF document(s) cropped successfully.\n"));
        digests << digest(path("out/a_Cropped.pdf")) + digest(path("out/b_Cropped.pdf"));
        QFile::remove(path("out/a_Cropped.pdf"));
        QFile::remove(path("out/b_Cropped.pdf"));
    }
    QCOMPARE(digests[1], digests[0]); // the same bytes for any number of jobs

    Result r = quire(args + QStringList{"--name", "[FileName] small", "a.pdf"});
    QCOMPARE(r.exitCode, 0);
    const auto a = TestPdf::read(path("out/a small.pdf"));
    QCOMPARE(a.markers(), (QStringList{"a1", "a2", "a3"}));
    QCOMPARE(a.pages[0].mediaBox.size(), QSizeF(306, 396));
    QCOMPARE(a.pages[1].mediaBox.size(), QSizeF(306, 396));
    QCOMPARE(a.pages[2].mediaBox.size(), QSizeF(612, 792));

    // No page of the expression in the document: every page is cropped, and the run says so.
    r = quire({"crop", "-d", "out", "--rect", "0,0,100,100", "--pages", "[20-30]", "b.pdf"});
    QCOMPARE(r.exitCode, 0);
    QVERIFY2(r.err.contains(QStringLiteral("every page is cropped")), qPrintable(r.err));
    const auto b = TestPdf::read(path("out/b_Cropped.pdf"));
    QCOMPARE(b.pages[1].mediaBox, QRectF(0, 0, 100, 100));
}

void TestCli::cropFailures_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");
    const QStringList rect{"--rect", "0,0,100,100"};
    QTest::newRow("no folder") << (QStringList{"crop"} + rect + QStringList{"a.pdf"}) << 2
                               << "-d DIR";
    QTest::newRow("no rectangle") << QStringList{"crop", "-d", ".", "a.pdf"} << 2 << "--rect";
    QTest::newRow("three numbers")
        << QStringList{"crop", "-d", ".", "--rect", "1,2,3", "a.pdf"} << 2 << "1,2,3";
    QTest::newRow("no documents") << (QStringList{"crop", "-d", "."} + rect) << 2
                                  << "There are no PDF documents to crop.";
    QTest::newRow("missing folder")
        << (QStringList{"crop", "-d", "nowhere"} + rect + QStringList{"a.pdf"}) << 1 << "nowhere";
    QTest::newRow("over its own input")
        << (QStringList{"crop", "-d", ".", "--name", "[FileName]", "--overwrite", "all"} + rect
            + QStringList{"a.pdf"})
        << 1 << "one of the input documents";
    QTest::newRow("over another input")
        << (QStringList{"crop", "-d", ".", "--name", "a", "--overwrite", "all"} + rect
            + QStringList{"empty.pdf", "a.pdf"})
        << 1 << "one of the input documents";
    QTest::newRow("no pages") << (QStringList{"crop", "-d", "."} + rect + QStringList{"empty.pdf"})
                              << 1 << "No pages";
}

void TestCli::cropFailures()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QString, reason);
    TestPdf::write(path("a.pdf"), TestPdf::pages(2));
    TestPdf::write(path("empty.pdf"), TestPdf::Document());
    const QByteArray before = digest(path("a.pdf"));
    const Result r = quire(args);
    QCOMPARE(r.exitCode, exitCode);
    QVERIFY2(r.err.contains(reason), qPrintable(r.err));
    if (exitCode == 1) {
        QCOMPARE(r.lastLine(), QStringLiteral("Could not crop PDF document(s)."));
    }
    QCOMPARE(digest(path("a.pdf")), before);
    QStringList files = QDir(m_dir->path()).entryList(QDir::Files | QDir::Hidden);
    files.removeOne(QStringLiteral("empty_Cropped.pdf")); // the other input is still cropped
    QCOMPARE(files, (QStringList{"a.pdf", "empty.pdf"}));
}

void TestCli::cropPreview()
{
    TestPdf::Document document = TestPdf::pages(2);
    document.pages[1].mediaBox = QRectF(0, 0, 400, 200);
    TestPdf::write(path("a.pdf"), document);
    // The right half of page 2, in percent of that page.
    Result r = quire(
        {"crop", "--rect", "50,0,50,100", "--percent", "--preview", "2", "-o", "p.png", "a.pdf"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QString());
    QImage image(path("p.png"));
    QCOMPARE(image.size(), QSize(1600, 800));
    QCOMPARE(image.pixel(1000, 400), qRgb(255, 255, 255));
    QCOMPARE(image.pixel(600, 400), qRgb(102, 102, 102));

    r = quire({"crop", "--preview", "1", "-o", "p.png", "a.pdf"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(QImage(path("p.png")).pixel(2000, 400), qRgb(102, 102, 102)); // nothing kept yet

    r = quire({"crop", "--preview", "3", "-o", "p.png", "a.pdf"});
    QCOMPARE(r.exitCode, 1);
    QVERIFY2(r.err.contains(QStringLiteral("has no page 3")), qPrintable(r.err));
    r = quire({"crop", "--preview", "1", "-o", "p.png", "a.pdf", "a.pdf"});
    QCOMPARE(r.exitCode, 2);
}

void TestCli::render()
{
    TestPdf::Document document = TestPdf::pages(3);
    document.pages[1].rotate = 90;
    TestPdf::write(path("doc.pdf"), document);
    Result r = quire({"render", "doc.pdf", "--page", "2", "-o", "page.png"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QString());
    QImage image(path("page.png"));
    QCOMPARE(image.size(), QSize(3168, 2448));
    QCOMPARE(image.pixel(240, 240), qRgb(0, 0, 255)); // the marker square, turned as shown
    QCOMPARE(image.dotsPerMeterX(), 11339);           // 288 dpi

    r = quire({"render", "doc.pdf", "-o", "first.png"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(QImage(path("first.png")).size(), QSize(2448, 3168));
}

void TestCli::renderFailures_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");
    QTest::newRow("page beyond the end")
        << QStringList{"render", "doc.pdf", "--page", "4", "-o", "page.png"} << 1
        << "has no page 4 (it has 3)";
    QTest::newRow("missing document")
        << QStringList{"render", "missing.pdf", "-o", "page.png"} << 1 << "missing.pdf";
    QTest::newRow("user password")
        << QStringList{"render", "locked.pdf", "-o", "page.png"} << 1 << "password";
    QTest::newRow("folder missing")
        << QStringList{"render", "doc.pdf", "-o", "no/page.png"} << 1 << "cannot write";
    QTest::newRow("page 0") << QStringList{"render", "doc.pdf", "--page", "0", "-o", "page.png"}
                            << 2 << "--page";
}

void TestCli::renderFailures()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QString, reason);
    TestPdf::write(path("doc.pdf"), TestPdf::pages(3));
    TestPdf::Document locked = TestPdf::pages(1);
    locked.userPassword = true;
    TestPdf::write(path("locked.pdf"), locked);
    const Result r = quire(args);
    QCOMPARE(r.exitCode, exitCode);
    QVERIFY2(r.err.contains(reason), qPrintable(r.err));
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files | QDir::Hidden),
             (QStringList{"doc.pdf", "locked.pdf"}));
}

void TestCli::properties()
{
    TestPdf::Document old = TestPdf::pages(2);
    old.title = QStringLiteral("Old");
    old.author = QStringLiteral("Ann");
    old.keywords = QStringLiteral("k1; k2");
    // The same documents in two folders, edited with one job and with three.
    const QStringList names{"a.pdf", "Q3 Report.pdf", "c.pdf", "d.pdf"};
    QList<QList<QByteArray>> digests;
    for (const QString jobs : {"1", "3"}) {
        QDir(m_dir->path()).mkdir(jobs);
        QStringList files;
        for (const QString &name : names) {
            files << jobs + QLatin1Char('/') + name;
            TestPdf::write(path(files.back()), old);
        }
        Result r = quire(QStringList{"properties", "--yes", "--jobs", jobs} + files);
        QCOMPARE(r.exitCode, 0);
        QCOMPARE(r.out, QStringLiteral("Properties updated successfully.\n"));
        r = quire(QStringList{"properties",
                              "--yes",
                              "--jobs",
                              jobs,
                              "--author",
                              "[Original] & Bo",
                              "--keywords",
                              "[Original] [FileName]"}
                  + files);
        QCOMPARE(r.exitCode, 0);
        QList<QByteArray> edited;
        for (const QString &file : files) {
            edited << digest(path(file));
        }
        digests << edited;
    }
    QCOMPARE(digests[1], digests[0]);
    const auto read = TestPdf::read(path("1/Q3 Report.pdf"));
    QCOMPARE(read.title, QStringLiteral("Q3 Report"));
    QCOMPARE(read.author, QStringLiteral("Ann & Bo"));
    QCOMPARE(read.keywords, QStringLiteral("k1, k2, Q3 Report"));

    // A profile gives the templates the command line leaves out.
    QFile profile(path("props.json"));
    QVERIFY(profile.open(QIODevice::WriteOnly));
    profile.write(R"({"tool": "properties", "version": 1,
                      "settings": {"title": "P [FileName]", "subject": "S"}})");
    profile.close();
    const Result r = quire(
        {"properties", "--yes", "--profile", "props.json", "--subject", "[Original]!", "1/a.pdf"});
    QCOMPARE(r.exitCode, 0);
    const auto profiled = TestPdf::read(path("1/a.pdf"));
    QCOMPARE((QStringList{profiled.title, profiled.author, profiled.subject}),
             (QStringList{"P a", "Ann & Bo", "!"}));
}

void TestCli::propertiesFailures_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("stderrHas");
    QTest::addColumn<bool>("edited"); // a.pdf
    QTest::newRow("no --yes without a terminal")
        << QStringList{"properties", "a.pdf"} << 1 << "--yes" << false;
    QTest::newRow("a read-only document")
        << QStringList{"properties", "--yes", "locked.pdf", "a.pdf"} << 1 << "locked.pdf" << true;
    QTest::newRow("a damaged document is left out")
        << QStringList{"properties", "--yes", "bad.pdf", "a.pdf"} << 1 << "bad.pdf is left out"
        << true;
    QTest::newRow("another tool's profile")
        << QStringList{"properties", "--yes", "--profile", "split.json", "a.pdf"} << 2
        << "split.json" << false;
    QTest::newRow("nothing to overwrite")
        << QStringList{"properties", "--yes", "--overwrite", "all", "a.pdf"} << 2 << "overwrite"
        << false;
}

void TestCli::propertiesFailures()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QString, stderrHas);
    QFETCH(bool, edited);
    TestPdf::write(path("a.pdf"), TestPdf::pages(1));
    TestPdf::write(path("locked.pdf"), TestPdf::pages(1));
    QFile::setPermissions(path("locked.pdf"), QFileDevice::ReadOwner);
    QFile bad(path("bad.pdf"));
    QVERIFY(bad.open(QIODevice::WriteOnly));
    bad.write("not a PDF");
    bad.close();
    QFile profile(path("split.json"));
    QVERIFY(profile.open(QIODevice::WriteOnly));
    profile.write(R"({"tool": "split", "version": 1, "settings": {}})");
    profile.close();
    const QByteArray locked = digest(path("locked.pdf"));

    const Result r = quire(args);
    QCOMPARE(r.exitCode, exitCode);
    QVERIFY2(r.err.contains(stderrHas), qPrintable(r.err));
    QCOMPARE(r.lastLine(),
             exitCode == 1 && edited
                 ? QStringLiteral("Could not update PDF document(s) properties.")
                 : QString());
    QCOMPARE(TestPdf::read(path("a.pdf")).title, edited ? QStringLiteral("a") : QString());
    QCOMPARE(digest(path("locked.pdf")), locked);
}

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
