// Page-interval expressions, output names and the overwrite pass: every worked example is a row.

#include "naming/intervals.h"
#include "naming/outputnames.h"
#include "naming/overwrite.h"
#include "naming/profiles.h"
#include "testpdf.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using namespace Naming;
using TestPdf::row;

namespace {

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

class TestNaming : public QObject
{
    Q_OBJECT

private slots:
    void expressions_data();
    void expressions();
    void consecutive_data();
    void consecutive();
    void outputPaths_data();
    void outputPaths();
    void overwritePass_data();
    void overwritePass();
    void selfOverwrite();
    void watermarkProfile_data();
    void watermarkProfile();
};

void TestNaming::expressions_data()
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
    // clang-format on
}

void TestNaming::expressions()
{
    QFETCH(QString, expression);
    QFETCH(qint64, pages);
    QFETCH(QString, pageList);
    QFETCH(QString, intervals);
    QCOMPARE(text(GenerateArrayOfPages(expression, pages)), pageList);
    QCOMPARE(text(GenerateArrayOfIntervals(expression, pages)), intervals);
}

void TestNaming::consecutive_data()
{
    QTest::addColumn<qint64>("pages");
    QTest::addColumn<qint64>("perInterval");
    QTest::addColumn<QString>("intervals");
    row("10 by 3", 10LL, 3LL, "1-3 4-6 7-9 10-10");
    row("7 by 7", 7LL, 7LL, "1-7");
    row("7 by 10", 7LL, 10LL, "1-7");
    row("0 by 3", 0LL, 3LL, "");
    row("3 by 1", 3LL, 1LL, "1-1 2-2 3-3");
    row("3 by 0", 3LL, 0LL, "");
}

void TestNaming::consecutive()
{
    QFETCH(qint64, pages);
    QFETCH(qint64, perInterval);
    QFETCH(QString, intervals);
    QCOMPARE(text(GenerateConsecutiveIntervals(pages, perInterval)), intervals);
}

void TestNaming::outputPaths_data()
{
    // Inputs in /data/in, outputs in /data/out.
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("nameTemplate");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("path");
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
}

void TestNaming::outputPaths()
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
        QCOMPARE(OutputPathForInterval(nameTemplate, folder, input, SplitMode(mode), 3, 7, 9),
                 path);
    }
}

void TestNaming::overwritePass_data()
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

void TestNaming::overwritePass()
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

void TestNaming::selfOverwrite()
{
    QTemporaryDir dir;
    const QString a = dir.filePath(QStringLiteral("a.pdf"));
    const QString b = dir.filePath(QStringLiteral("b.pdf"));
    const QString viaLink = dir.filePath(QStringLiteral("link.pdf"));
    QFile(a).open(QIODevice::WriteOnly);
    QVERIFY(QFile::link(a, viaLink));

    QVERIFY(SelfOverwriteRefused(a, {a}));
    QVERIFY2(SelfOverwriteRefused(viaLink, {a}), "the same file reached another way");
    QVERIFY(!SelfOverwriteRefused(a, {a, b}));
    QVERIFY(!SelfOverwriteRefused(b, {a}));
    QVERIFY(OverwritesInput(viaLink, {b, a}));
    QVERIFY(!OverwritesInput(dir.filePath(QStringLiteral("c.pdf")), {a, b}));
    QCOMPARE(OverwriteQuestion(QStringLiteral("/x/y.pdf")),
             QStringLiteral("The file /x/y.pdf already exists. Do you want to overwrite it?"));
}

void TestNaming::watermarkProfile_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("error"); // empty: read, and written back as it was
    QTest::newRow("empty: the defaults") << QByteArray("{}") << QString();
    QTest::newRow("every setting") << QByteArray(
        R"({"text": "Draft\nonly", "font": "Verdana", "size": 12.5, "color": "#ff0000",
            "textOpacity": 40, "textPosition": 4, "textOffsetX": -3, "textOffsetY": 7,
            "shadow": true, "stroke": true, "image": "/pictures/logo.png", "scale": 50,
            "imageOpacity": 100, "rotation": 45, "imagePosition": 2, "imageOffsetX": 1,
            "imageOffsetY": 2, "pagesEnabled": true, "pages": "1,3",
            "nameTemplate": "[FileName]-draft", "folder": "/out"})")
                                   << QString();
    QTest::newRow("a number as text") << QByteArray(R"({"size": "30"})") << "\"size\"";
    QTest::newRow("a flag as a number") << QByteArray(R"({"shadow": 1})") << "\"shadow\"";
}

void TestNaming::watermarkProfile()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, error);
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    QString reason;
    const auto read = Profiles::WatermarkSettings::fromJson(object, &reason);
    QCOMPARE(read.has_value(), error.isEmpty());
    if (!read) {
        QVERIFY2(reason.contains(error), qPrintable(reason));
    } else if (object.isEmpty()) {
        QCOMPARE(read->toJson(), Profiles::WatermarkSettings().toJson());
    } else {
        QCOMPARE(read->toJson(), object);
    }
}

QTEST_GUILESS_MAIN(TestNaming)
#include "tst_naming.moc"
