// Page-interval expressions, output names and the overwrite pass: every worked example is a row.

#include "naming/intervals.h"
#include "naming/outputnames.h"
#include "naming/overwrite.h"
#include "naming/profiles.h"

#include <QJsonObject>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

using namespace Naming;

Q_DECLARE_METATYPE(QList<qint64>)
Q_DECLARE_METATYPE(QList<Naming::PageInterval>)
Q_DECLARE_METATYPE(Naming::SplitMode)

namespace QTest {
template <> char *toString(const Naming::PageInterval &interval)
{
    return qstrdup(QByteArray::number(interval.start) + "-" + QByteArray::number(interval.end));
}
} // namespace QTest

namespace {

QList<PageInterval> iv(std::initializer_list<std::pair<qint64, qint64>> pairs)
{
    QList<PageInterval> list;
    for (const auto &[start, end] : pairs) {
        list.append({start, end});
    }
    return list;
}

QList<qint64> range(qint64 from, qint64 to)
{
    QList<qint64> list;
    for (qint64 p = from; p <= to; ++p) {
        list << p;
    }
    return list;
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
    QTest::addColumn<QList<qint64>>("pageList");
    QTest::addColumn<QList<PageInterval>>("intervals");

    const qint64 ten = 10;
    QTest::newRow("default crop") << "[1-3],5,[7-9]" << ten << QList<qint64>{1, 2, 3, 5, 7, 8, 9}
                                  << iv({{1, 3}, {5, 5}, {7, 9}});
    QTest::newRow("default split")
        << "[1-4],5,[6-9]" << ten << range(1, 9) << iv({{1, 4}, {5, 5}, {6, 9}});
    QTest::newRow("reversed range") << "[9-7]" << ten << range(7, 9) << iv({{7, 9}});
    QTest::newRow("range clamped at the end") << "[8-15]" << ten << range(8, 10) << iv({{8, 10}});
    QTest::newRow("range beyond the end") << "[11-15]" << ten << QList<qint64>{} << iv({});
    QTest::newRow("page beyond the end") << "12" << ten << QList<qint64>{12} << iv({});
    QTest::newRow("order kept, repeats dropped from the page list")
        << "[7-9],1,[2-3],8" << ten << QList<qint64>{7, 8, 9, 1, 2, 3}
        << iv({{7, 9}, {1, 1}, {2, 3}, {8, 8}});
    QTest::newRow("repeat") << "3,3" << ten << QList<qint64>{3} << iv({{3, 3}, {3, 3}});
    QTest::newRow("overlap") << "[2-4],3" << ten << range(2, 4) << iv({{2, 4}, {3, 3}});
    QTest::newRow("blanks removed") << "[ 1 - 3 ]" << ten << range(1, 3) << iv({{1, 3}});
    QTest::newRow("plus sign, trailing comma") << "+4," << ten << QList<qint64>{4} << iv({{4, 4}});
    QTest::newRow("range without brackets") << "1-3" << ten << QList<qint64>{} << iv({});
    QTest::newRow("bracketed single page") << "[5]" << ten << QList<qint64>{} << iv({});
    QTest::newRow("zero, negative, words") << "[0-3],0,-2,abc" << ten << QList<qint64>{} << iv({});
    QTest::newRow("spaces between items")
        << "1, 2,3" << ten << range(1, 3) << iv({{1, 1}, {2, 2}, {3, 3}});
    QTest::newRow("a tab spoils its item") << "1,\t2" << ten << QList<qint64>{1} << iv({{1, 1}});
    QTest::newRow("a no-break space spoils its item")
        << QStringLiteral("1,\u00a02") << ten << QList<qint64>{1} << iv({{1, 1}});
    QTest::newRow("single-page range") << "[3-3]" << ten << QList<qint64>{3} << iv({{3, 3}});
    QTest::newRow("three parts") << "[2-3-4]" << ten << QList<qint64>{} << iv({});
    QTest::newRow("open bracket only") << "[2-3" << ten << QList<qint64>{} << iv({});
    QTest::newRow("no document") << "[1-3],5" << qint64(0) << QList<qint64>{5} << iv({});
    QTest::newRow("empty") << "" << ten << QList<qint64>{} << iv({});
    QTest::newRow("beyond 64 bits")
        << "99999999999999999999,2" << ten << QList<qint64>{2} << iv({{2, 2}});
    QTest::newRow("huge range on a short document")
        << "[1-9223372036854775807]" << qint64(3) << range(1, 3) << iv({{1, 3}});
}

void TestNaming::expressions()
{
    QFETCH(QString, expression);
    QFETCH(qint64, pages);
    QFETCH(QList<qint64>, pageList);
    QFETCH(QList<PageInterval>, intervals);
    QCOMPARE(GenerateArrayOfPages(expression, pages), pageList);
    QCOMPARE(GenerateArrayOfIntervals(expression, pages), intervals);
}

void TestNaming::consecutive_data()
{
    QTest::addColumn<qint64>("pages");
    QTest::addColumn<qint64>("perInterval");
    QTest::addColumn<QList<PageInterval>>("intervals");
    QTest::newRow("10 by 3") << qint64(10) << qint64(3) << iv({{1, 3}, {4, 6}, {7, 9}, {10, 10}});
    QTest::newRow("7 by 7") << qint64(7) << qint64(7) << iv({{1, 7}});
    QTest::newRow("7 by 10") << qint64(7) << qint64(10) << iv({{1, 7}});
    QTest::newRow("no pages") << qint64(0) << qint64(3) << iv({});
    QTest::newRow("one by one") << qint64(3) << qint64(1) << iv({{1, 1}, {2, 2}, {3, 3}});
    QTest::newRow("below one") << qint64(3) << qint64(0) << iv({});
}

void TestNaming::consecutive()
{
    QFETCH(qint64, pages);
    QFETCH(qint64, perInterval);
    QFETCH(QList<PageInterval>, intervals);
    QCOMPARE(GenerateConsecutiveIntervals(pages, perInterval), intervals);
}

void TestNaming::outputPaths_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("nameTemplate");
    QTest::addColumn<int>("mode");               // -1: one output a document (crop, watermark)
    QTest::addColumn<QList<qint64>>("interval"); // index, first, last
    QTest::addColumn<QString>("path");

    const QString report = QStringLiteral("/data/in/report.pdf");
    const int doc = -1;
    const int consecutive = int(SplitMode::Consecutive);
    const int intervals = int(SplitMode::Intervals);
    const QList<qint64> none;
    const QList<qint64> second{2, 4, 6};
    const QList<qint64> third{3, 7, 9};
    QTest::newRow("crop") << report << "[FileName]_Cropped" << doc << none
                          << "/data/out/report_Cropped.pdf";
    QTest::newRow("watermark, empty template")
        << report << "" << doc << none << "/data/out/report.pdf";
    QTest::newRow("consecutive default") << report << "[FileName](Page[IntervalIndex])"
                                         << consecutive << second << "/data/out/report(Page2).pdf";
    QTest::newRow("consecutive, plain name")
        << report << "part" << consecutive << second << "/data/out/part (Page2).pdf";
    QTest::newRow("consecutive keeps interval bounds as text")
        << report << "[FileName]-[IntervalStart]" << consecutive << second
        << "/data/out/report-[IntervalStart].pdf";
    QTest::newRow("intervals, plain name")
        << report << "part" << intervals << third << "/data/out/part (7-9).pdf";
    QTest::newRow("intervals, start only")
        << report << "p[IntervalStart]" << intervals << third << "/data/out/p7 (7-9).pdf";
    QTest::newRow("intervals, file name only")
        << report << "[FileName]" << intervals << third << "/data/out/report.pdf";
    QTest::newRow("intervals, empty template")
        << report << "" << intervals << third << "/data/out/report.pdf";
    QTest::newRow("intervals, both bounds")
        << report << "x[IntervalStart]_[IntervalEnd]" << intervals << third << "/data/out/x7_9.pdf";
    QTest::newRow("last extension only")
        << "/data/in/report.final.pdf"
        << "[FileName]" << doc << none << "/data/out/report.final.pdf";
    QTest::newRow("no extension") << "/data/in/README"
                                  << "[FileName]" << doc << none << "/data/out/README.pdf";
    QTest::newRow(".pdf always appended")
        << report << "x.pdf" << doc << none << "/data/out/x.pdf.pdf";
    QTest::newRow("file name twice, unknown tokens kept")
        << report << "[FileName]-[FileName][Date]" << doc << none
        << "/data/out/report-report[Date].pdf";
    QTest::newRow("token text in the file name is replaced")
        << "/data/in/a[IntervalIndex].pdf"
        << "[FileName]" << consecutive << second << "/data/out/a2.pdf";
    QTest::newRow("slash leads into a subfolder")
        << report << "sub/[FileName]" << doc << none << "/data/out/sub/report.pdf";
}

void TestNaming::outputPaths()
{
    QFETCH(QString, input);
    QFETCH(QString, nameTemplate);
    QFETCH(int, mode);
    QFETCH(QList<qint64>, interval);
    QFETCH(QString, path);
    const QString folder = QStringLiteral("/data/out");
    if (mode < 0) {
        QCOMPARE(OutputPathForDocument(nameTemplate, folder, input), path);
    } else {
        QCOMPARE(OutputPathForInterval(nameTemplate,
                                       folder,
                                       input,
                                       SplitMode(mode),
                                       interval[0],
                                       interval[1],
                                       interval[2]),
                 path);
    }
}

void TestNaming::overwritePass_data()
{
    // Planned outputs a to e; "*" marks those that exist. Answers are consumed in order.
    QTest::addColumn<QString>("existing");
    QTest::addColumn<QList<int>>("answers");
    QTest::addColumn<QString>("asked");
    QTest::addColumn<QList<int>>("decisions");

    const int yes = int(OverwriteAnswer::Yes);
    const int yesAll = int(OverwriteAnswer::YesToAll);
    const int no = int(OverwriteAnswer::No);
    const int noAll = int(OverwriteAnswer::NoToAll);
    const int W = 0, O = 1, S = 2;
    QTest::newRow("nothing exists") << "" << QList<int>{} << "" << QList<int>{W, W, W, W, W};
    QTest::newRow("no, then yes to all")
        << "abc" << QList<int>{no, yesAll} << "ab" << QList<int>{S, O, O, W, W};
    QTest::newRow("no to all skips later existing, writes new")
        << "ace" << QList<int>{noAll} << "a" << QList<int>{S, W, S, W, S};
    QTest::newRow("yes asks again")
        << "ab" << QList<int>{yes, no} << "ab" << QList<int>{O, S, W, W, W};
    QTest::newRow("a question that ends otherwise is no to all")
        << "abc" << QList<int>{-1} << "a" << QList<int>{S, S, S, W, W};
}

void TestNaming::overwritePass()
{
    QFETCH(QString, existing);
    QFETCH(QList<int>, answers);
    QFETCH(QString, asked);
    QFETCH(QList<int>, decisions);
    QString log;
    OverwritePass pass(
        [&](const QString &path) {
            log += path;
            return OverwriteAnswer(answers.takeFirst());
        },
        [&](const QString &path) { return existing.contains(path); });
    QList<int> made;
    for (const QString path : {"a", "b", "c", "d", "e"}) {
        made << int(pass.decide(path));
    }
    QCOMPARE(made, decisions);
    QCOMPARE(log, asked);
}

void TestNaming::selfOverwrite()
{
    QTemporaryDir dir;
    const QString a = dir.filePath(QStringLiteral("a.pdf"));
    QFile(a).open(QIODevice::WriteOnly);
    QVERIFY(QFile::link(a, dir.filePath(QStringLiteral("link.pdf"))));
    const QString viaLink = dir.filePath(QStringLiteral("link.pdf"));
    const QString b = dir.filePath(QStringLiteral("b.pdf"));

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
    QTest::addColumn<QJsonObject>("json");
    QTest::addColumn<QString>("error"); // empty: read
    QTest::newRow("empty: the defaults") << QJsonObject() << QString();
    QTest::newRow("a position that is no code")
        << QJsonObject{{QStringLiteral("textPosition"), 7.9}} << QString();
    QTest::newRow("a number as text") << QJsonObject{{QStringLiteral("size"), QStringLiteral("30")}}
                                      << QStringLiteral("\"size\"");
    QTest::newRow("a flag as a number")
        << QJsonObject{{QStringLiteral("shadow"), 1}} << QStringLiteral("\"shadow\"");
}

void TestNaming::watermarkProfile()
{
    QFETCH(QJsonObject, json);
    QFETCH(QString, error);
    QString reason;
    const auto read = Profiles::WatermarkSettings::fromJson(json, &reason);
    QCOMPARE(read.has_value(), error.isEmpty());
    if (!read) {
        QVERIFY2(reason.contains(error), qPrintable(reason));
        return;
    }
    QCOMPARE(read->textPosition, qint64(json.value(QStringLiteral("textPosition")).toDouble(0)));
    QCOMPARE(read->nameTemplate, QStringLiteral("[FileName]_Watermarked"));

    // Every setting comes back as it was saved.
    Profiles::WatermarkSettings custom;
    custom.text = QStringLiteral("Draft\nonly");
    custom.font = QStringLiteral("Verdana");
    custom.size = 12.5;
    custom.color = QStringLiteral("#ff0000");
    custom.textOpacity = 40;
    custom.textPosition = 4;
    custom.textOffsetX = -3;
    custom.textOffsetY = 7;
    custom.shadow = true;
    custom.stroke = true;
    custom.image = QStringLiteral("/pictures/logo.png");
    custom.scale = 50;
    custom.imageOpacity = 100;
    custom.rotation = 45;
    custom.imagePosition = 2;
    custom.imageOffsetX = 1;
    custom.imageOffsetY = 2;
    custom.pagesEnabled = true;
    custom.pages = QStringLiteral("1,3");
    custom.nameTemplate = QStringLiteral("[FileName]-draft");
    custom.folder = QStringLiteral("/out");
    const auto back = Profiles::WatermarkSettings::fromJson(custom.toJson(), &reason);
    QVERIFY(back);
    QCOMPARE(back->toJson(), custom.toJson());
    QCOMPARE(back->toJson().size(), 21);
}

QTEST_GUILESS_MAIN(TestNaming)
#include "tst_naming.moc"
