// The job layer: what a batch plans, how its outputs that land on listed documents are written
// without losing a document, what a stopped run leaves, and what each document's result says,
// for any number of threads.

#include "jobs/documentjobs.h"
#include "jobs/mergejob.h"
#include "jobs/profiles.h"
#include "jobs/splitjob.h"
#include "testpdf.h"

#include <QDir>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

using Jobs::Blocker;
using Naming::OverwriteAnswer;
using TestPdf::row;

namespace {

// Stops the run once the first document is reported, and keeps what the observer was told.
class Recorder final : public Jobs::RunObserver
{
public:
    std::atomic<bool> stop{false};
    bool stopAfterFirst = false;
    QList<int> finished;
    void documentFinished(int index, const Jobs::DocumentResult &) override
    {
        finished << index;
        if (stopAfterFirst) {
            stop = true;
        }
    }
};

Jobs::Batch::Question answering(OverwriteAnswer answer)
{
    return [answer](const QString &) { return answer; };
}

} // namespace

class TestJobs : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_dir.emplace(); }
    void outputsOverListedDocuments_data();
    void outputsOverListedDocuments();
    void blockers_data();
    void blockers();
    void splitAtBookmarks_data();
    void splitAtBookmarks();
    void stoppedRuns();
    void failuresAreNamed();
    void folderGoneDuringARun_data();
    void folderGoneDuringARun();
    void profiles_data();
    void profiles();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    QString document(const QString &name, int pages)
    {
        TestPdf::write(path(name), TestPdf::pages(pages, QFileInfo(name).completeBaseName()));
        return path(name);
    }
    // Every PDF of the folder with its page markers and its bookmarks, "a.pdf=a1 a2 {A>a1}; ...";
    // any other file shows.
    QString listing(const QString &folder = {}) const
    {
        const QDir dir(folder.isEmpty() ? m_dir->path() : folder);
        QStringList entries;
        for (const QString &name : TestPdf::files(dir.path())) {
            const auto read = TestPdf::read(dir.filePath(name));
            entries << name + (read.opened ? "=" + read.markers().join(' ') : QString())
                           + (read.outline.isEmpty() ? "" : " {" + read.outline.join(' ') + "}");
        }
        return entries.join("; ");
    }
    std::optional<QTemporaryDir> m_dir;
};

void TestJobs::outputsOverListedDocuments_data()
{
    // Documents (name:pages) split into single pages, cropped or merged under a name that lands
    // outputs on listed documents, every existing file answered "Yes to All": what the folder
    // holds afterwards. Every document is read as it was before the run.
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QString>("names");
    QTest::addColumn<QString>("documents");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QString>("files");
    // clang-format off
    row("crop: a's output over xa, read after it", "crop", "x[FileName]", "a:2 xa:3", true,
        "a.pdf=a1 a2; xa.pdf=a1 a2; xxa.pdf=xa1 xa2 xa3");
    row("crop: a's output over xa, read before it", "crop", "x[FileName]", "xa:3 a:2", true,
        "a.pdf=a1 a2; xa.pdf=a1 a2; xxa.pdf=xa1 xa2 xa3");
    row("crop each in place", "crop", "[FileName]", "a:2 b:3", true, "a.pdf=a1 a2; b.pdf=b1 b2 b3");
    row("crop the only document in place: refused", "crop", "[FileName]", "a:2", false, "a.pdf=a1 a2");
    row("crop both over b: the last listed wins", "crop", "b", "b:3 a:2", true, "a.pdf=a1 a2; b.pdf=a1 a2");
    row("split: pieces over their own document, the last remains", "split", "[FileName]",
        "a:2 b:3", true, "a.pdf=a2; b.pdf=b3");
    row("split: a's pieces over xa, read after it", "split", "x[FileName]", "a:2 xa:3", true,
        "a.pdf=a1 a2; xa.pdf=a2; xxa.pdf=xa3");
    row("merge over the second document", "merge", "b", "a:2 b:3", true,
        "a.pdf=a1 a2; b.pdf=a1 a2 b1 b2 b3");
    row("merge over the only document: refused", "merge", "a", "a:2", false, "a.pdf=a1 a2");
    // clang-format on
}

void TestJobs::outputsOverListedDocuments()
{
    QFETCH(QString, tool);
    QFETCH(QString, names);
    QFETCH(QString, documents);
    QFETCH(bool, success);
    QFETCH(QString, files);
    for (const int jobs : {1, 2}) {
        QDir(m_dir->path()).removeRecursively();
        QDir().mkpath(m_dir->path());
        QStringList inputs;
        for (const QString &entry : documents.split(' ')) {
            inputs << document(entry.section(':', 0, 0) + ".pdf", entry.section(':', 1).toInt());
        }
        std::unique_ptr<Jobs::Batch> batch;
        if (tool == "crop") {
            Jobs::CropSettings settings;
            settings.nameTemplate = names;
            settings.folder = m_dir->path();
            batch = std::make_unique<Jobs::CropJob>(inputs, settings);
        } else if (tool == "split") {
            Jobs::SplitSettings settings;
            settings.nameTemplate = names;
            settings.folder = m_dir->path();
            batch = std::make_unique<Jobs::SplitJob>(inputs, settings);
        } else {
            batch = std::make_unique<Jobs::MergeJob>(inputs, path(names + ".pdf"));
        }
        batch->plan({jobs});
        QVERIFY(batch->plan().canStart());
        batch->decide(answering(OverwriteAnswer::YesToAll));
        const Jobs::RunResult result = batch->run({jobs});
        QCOMPARE(result.success, success);
        QCOMPARE(listing(), files);
    }
}

void TestJobs::blockers_data()
{
    // The reasons a split cannot start, first one first: the settings' before the documents'.
    QTest::addColumn<QString>("folder");
    QTest::addColumn<qint64>("perInterval");
    QTest::addColumn<QString>("expression"); // empty: runs of pages
    QTest::addColumn<bool>("readable");      // a window's plan: an unreadable document blocks
    QTest::addColumn<QList<Blocker::Kind>>("kinds");
    using K = Blocker::Kind;
    using Kinds = QList<K>;
    // clang-format off
    row("no folder", "", qint64(0), "", false, Kinds{K::NoFolder});
    row("runs below one before the folder", "missing", qint64(0), "", false, Kinds{K::RunsBelowOne});
    row("a folder that is not there", "missing", qint64(1), "", false, Kinds{K::FolderMissing});
    row("a document without an interval", ".", qint64(1), "[4-5]", false, Kinds{K::NoInterval});
    row("a document without bookmarks of the level", ".", qint64(1), "level 2", false,
        Kinds{K::NoBookmarks});
    row("a level below one", ".", qint64(1), "level 0", false, Kinds{K::Unusable});
    row("gone from the window's list", ".", qint64(1), "", true, Kinds{K::DocumentUnreadable});
    row("gone on the command line: the run fails for it", ".", qint64(1), "", false, Kinds{});
    // clang-format on
}

void TestJobs::blockers()
{
    QFETCH(QString, folder);
    QFETCH(qint64, perInterval);
    QFETCH(QString, expression);
    QFETCH(bool, readable);
    QFETCH(QList<Blocker::Kind>, kinds);
    Jobs::SplitSettings settings;
    settings.folder = folder == "." ? m_dir->path() : folder.isEmpty() ? QString() : path(folder);
    settings.pagesPerInterval = perInterval;
    if (expression.startsWith("level ")) {
        settings.mode = Naming::SplitMode::Bookmarks;
        settings.bookmarkLevel = expression.mid(6).toLongLong();
    } else if (!expression.isEmpty()) {
        settings.mode = Naming::SplitMode::Intervals;
        settings.expression = expression;
    }
    // a.pdf has one bookmark, on the top level.
    TestPdf::Document a = TestPdf::pages(5, "a");
    a.outline = {{1, "A", 0}};
    TestPdf::write(path("a.pdf"), a);
    Jobs::SplitJob job({path("a.pdf"), document("b.pdf", 3), path("gone.pdf")}, settings);
    job.plan({2, readable});
    QList<Blocker::Kind> found;
    for (const Blocker &blocker : job.plan().blockers) {
        found << blocker.kind;
    }
    QCOMPARE(found.mid(0, 1), kinds);
    if (kinds.isEmpty()) {
        const Jobs::RunResult result = job.run({2});
        QVERIFY(!result.success);
        QCOMPARE(result.failures().size(), 1);
        QCOMPARE(result.failures().front().input, path("gone.pdf"));
    }
}

void TestJobs::splitAtBookmarks_data()
{
    // x.pdf, 6 pages: "Preface" to page 2, "Part/One" to page 3 over "Exercises" to page 4, "Part
    // Two" to page 5 over "Exercises" to page 6. y.pdf, 2 pages: "Preface" to page 1,
    // "Appendix" to page 2. Split at a level under a name template: what the folder holds.
    QTest::addColumn<QString>("documents");
    QTest::addColumn<qint64>("level");
    QTest::addColumn<QString>("names");
    QTest::addColumn<QString>("files");
    // clang-format off
    row("titles as names, unique within the run", "x y", 1LL, "[BookmarkName]",
        "Appendix.pdf=y2 {Appendix>y2}; Part Two.pdf=x5 x6 {Part Two>x5 -Exercises>x6}; "
        "Part-One.pdf=x3 x4 {Part/One>x3 -Exercises>x4}; Preface (Page1).pdf=y1 {Preface>y1}; "
        "Preface.pdf=x2 {Preface>x2}; x.pdf=x1");
    row("the second level; a title repeated within a document", "x", 2LL, "[FileName] [BookmarkName]",
        "x Exercises (Page3).pdf=x6 {Part Two>nowhere -Exercises>x6}; "
        "x Exercises.pdf=x4 x5 {Part/One>nowhere -Exercises>x4 Part Two>x5}; "
        "x x.pdf=x1 x2 x3 {Preface>x2 Part/One>x3}");
    row("the default names", "y", 1LL, "[FileName](Page[IntervalIndex])",
        "y(Page1).pdf=y1 {Preface>y1}; y(Page2).pdf=y2 {Appendix>y2}");
    // clang-format on
}

void TestJobs::splitAtBookmarks()
{
    QFETCH(QString, documents);
    QFETCH(qint64, level);
    QFETCH(QString, names);
    QFETCH(QString, files);
    TestPdf::Document x = TestPdf::pages(6, "x");
    x.outline = {{1, "Preface", 1},
                 {1, "Part/One", 2},
                 {2, "Exercises", 3},
                 {1, "Part Two", 4},
                 {2, "Exercises", 5}};
    TestPdf::write(path("x.pdf"), x);
    TestPdf::Document y = TestPdf::pages(2, "y");
    y.outline = {{1, "Preface", 0}, {1, "Appendix", 1}};
    TestPdf::write(path("y.pdf"), y);
    QDir(m_dir->path()).mkdir("out");
    Jobs::SplitSettings settings;
    settings.mode = Naming::SplitMode::Bookmarks;
    settings.bookmarkLevel = level;
    settings.nameTemplate = names;
    settings.folder = path("out");
    QStringList inputs;
    for (const QString &name : documents.split(' ')) {
        inputs << path(name + ".pdf");
    }
    for (const int jobs : {1, 2}) {
        QDir(path("out")).removeRecursively();
        QDir(m_dir->path()).mkdir("out");
        Jobs::SplitJob job(inputs, settings);
        job.plan({jobs});
        QVERIFY(job.plan().canStart());
        job.decide(answering(OverwriteAnswer::No));
        QVERIFY(job.run({jobs}).success);
        QCOMPARE(listing(path("out")), files);
    }
}

void TestJobs::stoppedRuns()
{
    // Stopped after the first document: its pieces and nothing else, no temporary file; a
    // stopped merge writes nothing.
    QDir(m_dir->path()).mkdir("out");
    const QStringList inputs{document("a.pdf", 3), document("b.pdf", 3), document("c.pdf", 3)};
    Jobs::SplitSettings settings;
    settings.folder = path("out");
    Jobs::SplitJob split(inputs, settings);
    split.plan({1});
    split.decide(answering(OverwriteAnswer::No));
    Recorder recorder;
    recorder.stopAfterFirst = true;
    const Jobs::RunResult result = split.run({1, &recorder.stop}, &recorder);
    QVERIFY(result.stopped);
    QCOMPARE(result.processedCount(), 1);
    QCOMPARE(recorder.finished, QList<int>{0});
    QCOMPARE(TestPdf::files(path("out")),
             (QStringList{"a(Page1).pdf", "a(Page2).pdf", "a(Page3).pdf"}));

    Jobs::MergeJob merge(inputs, path("out/all.pdf"));
    merge.plan({1});
    merge.decide(answering(OverwriteAnswer::No));
    std::atomic<bool> stop{true};
    const Jobs::RunResult merged = merge.run({1, &stop});
    QVERIFY(merged.stopped && !merged.success);
    QVERIFY(!QFileInfo::exists(path("out/all.pdf")));
}

void TestJobs::failuresAreNamed()
{
    // Documents are reported in order with their own messages, whatever the number of threads;
    // one that is gone by the time it is read fails alone.
    QDir(m_dir->path()).mkdir("out");
    for (const int jobs : {1, 3}) {
        QStringList inputs;
        for (int i = 0; i < 6; ++i) {
            inputs << document(QStringLiteral("d%1.pdf").arg(i), 2);
        }
        Jobs::CropSettings settings;
        settings.folder = path("out");
        Jobs::CropJob job(inputs, settings);
        job.plan({jobs});
        QFile::remove(inputs[3]);
        job.decide(answering(OverwriteAnswer::YesToAll));
        Recorder recorder;
        const Jobs::RunResult result = job.run({jobs}, &recorder);
        QCOMPARE(recorder.finished, (QList<int>{0, 1, 2, 3, 4, 5}));
        QVERIFY(!result.success);
        const auto failures = result.failures();
        QCOMPARE(failures.size(), 1);
        QCOMPARE(failures.front().input, inputs[3]);
        QVERIFY2(failures.front().messages.join('\n').contains(inputs[3]),
                 qPrintable(failures.front().messages.join('\n')));
        QCOMPARE(result.documents[2].written, QStringList{path("out/d2_Cropped.pdf")});
        QVERIFY(result.documents[2].messages.isEmpty());
    }
}

void TestJobs::folderGoneDuringARun_data()
{
    QTest::addColumn<bool>("removed"); // else made read-only
    row("removed", true);
    row("made read-only", false);
}

void TestJobs::folderGoneDuringARun()
{
    // The output folder goes away after the second document: the rest of the batch fails, each
    // for that reason, and no document is harmed.
    QFETCH(bool, removed);
    if (!removed && ::geteuid() == 0) {
        QSKIP("the superuser writes into a read-only folder");
    }
    QDir(m_dir->path()).mkdir("out");
    QStringList inputs;
    QList<QByteArray> before;
    for (int i = 0; i < 5; ++i) {
        inputs << document(QStringLiteral("d%1.pdf").arg(i), 2);
        before << TestPdf::contents(inputs.back());
    }
    Jobs::CropSettings settings;
    settings.folder = path("out");
    Jobs::CropJob job(inputs, settings);
    job.plan({1});
    job.decide(answering(OverwriteAnswer::No));
    struct Vandal final : Jobs::RunObserver
    {
        QString folder;
        bool removed;
        void documentFinished(int index, const Jobs::DocumentResult &) override
        {
            if (index == 1) {
                if (removed) {
                    QDir(folder).removeRecursively();
                } else {
                    QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
                }
            }
        }
    } vandal;
    vandal.folder = path("out");
    vandal.removed = removed;
    const Jobs::RunResult result = job.run({1}, &vandal);
    QFile::setPermissions(path("out"),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QVERIFY(!result.success);
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(result.documents[i].success, i < 2);
        QCOMPARE(TestPdf::contents(inputs[i]), before[i]);
        if (i >= 2) {
            QVERIFY2(result.documents[i].messages.join(' ').contains(path("out")),
                     qPrintable(result.documents[i].messages.join(' ')));
        }
    }
}

void TestJobs::profiles_data()
{
    // A profile file as written; what loads, what is skipped, and the reason one is refused.
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("expression");
    QTest::addColumn<QStringList>("skipped");
    QTest::addColumn<QString>("error");
    const QByteArray head = R"({"tool": "split", "version": 1, "settings": )";
    // clang-format off
    row("settings of a newer version, unknown keys skipped",
        QByteArray(R"({"tool": "split", "version": 7, "settings": {"expression": "2-3",
            "overlap": 2, "mode": "bookmarks", "bookmarkLevel": 2}})"),
        "2-3", QStringList{"overlap"}, "");
    row("a mode that is none of its names", head + R"({"mode": "chapters"}})", "", QStringList{},
        "\"mode\" is none of \"consecutive\", \"intervals\", \"bookmarks\"");
    row("a count beyond any document", head + R"({"pagesPerInterval": 1e300}})", "", QStringList{},
        "\"pagesPerInterval\" is out of range");
    row("a crop profile", QByteArray(R"({"tool": "crop", "settings": {}})"), "", QStringList{},
        "does not hold split settings");
    row("damaged", head + "{", "", QStringList{}, "is not a profile file");
    // clang-format on
}

void TestJobs::profiles()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, expression);
    QFETCH(QStringList, skipped);
    QFETCH(QString, error);
    TestPdf::writeBytes(path("p.json"), file);
    QString reason;
    QStringList left;
    const auto settings = Jobs::Profiles::read<Jobs::SplitSettings>(path("p.json"), &reason, &left);
    QVERIFY2(reason.contains(error), qPrintable(reason));
    QCOMPARE(settings.has_value(), error.isEmpty());
    QCOMPARE(left, skipped);
    if (settings) {
        QCOMPARE(settings->expression, expression);
        // Written back, it reads the same.
        QVERIFY(Jobs::Profiles::write(path("q.json"), *settings, &reason));
        const auto again = Jobs::Profiles::read<Jobs::SplitSettings>(path("q.json"), &reason);
        QCOMPARE(Jobs::Profiles::toJson(*again), Jobs::Profiles::toJson(*settings));
    }
}

QTEST_GUILESS_MAIN(TestJobs)
#include "tst_jobs.moc"
