#pragma once

// Test documents built with qpdf, and a reader that tells what a written document holds: page
// boxes, rotation, a marker per page, links and the information dictionary.

#include <QByteArray>
#include <QList>
#include <QRectF>
#include <QString>
#include <QStringList>
#include <QTest>

#include <optional>

namespace TestPdf {

struct Page
{
    QRectF mediaBox{0, 0, 612, 792}; // x, y (lower-left), width, height in points
    int rotate = 0;
    QString marker; // written into the page's content as "% marker:<text>"
    std::optional<QRectF> cropBox, trimBox;
    // Link annotations to a 0-based page of the same document: by an explicit destination, and
    // through a named one (in the /Names /Dests tree).
    std::optional<int> linkTo, namedLinkTo;
    // A square annotation over this rectangle (points) whose appearance fills it red.
    std::optional<QRectF> redStamp;
    // /Rotate and /CropBox inherited from a node of the page tree of its own.
    bool inheritBoxes = false;
};

struct Document
{
    QList<Page> pages;
    QString title, author, subject, keywords;
    QString version = QStringLiteral("1.4");
    bool inheritMediaBox = false; // the first page's, from the page tree
    bool encrypt = false;         // an owner password: opens without asking
    bool userPassword = false;    // does not open without it
    bool noInfo = false;          // no information dictionary at all
    bool objectStreams = false;   // found through a cross-reference stream
    // Object streams, and a cross-reference table after them that leads to the stream through
    // /XRefStm, as some writers make for readers that predate streams.
    bool hybrid = false;
    bool wrongStartxref = false; // the cross-reference table is not where startxref says
    bool signedForm = false;     // its form says it holds signatures
};

// n pages of letter size with markers "p1" ... "pn".
Document pages(int n, const QString &prefix = QStringLiteral("p"));

void write(const QString &path, const Document &document);

struct ReadPage
{
    QRectF mediaBox;
    std::optional<QRectF> cropBox, trimBox;
    int rotate = 0;
    QString marker;
    // Per link annotation, the 0-based page it leads to; -1 for nowhere.
    QList<int> links;
    QByteArray content; // the page's content streams, joined
    QStringList images; // names of the image XObjects among the page's resources
};

struct ReadDocument
{
    bool opened = false;
    bool clean = false; // read without a warning: no repair was needed
    int warnings = 0;   // qpdf's, reading every object
    QString version;
    QList<ReadPage> pages;
    QString title, author, subject, keywords;
    QByteArray xmp;
    int imageObjects = 0; // distinct image XObjects used by the pages
    QStringList markers() const;
};

ReadDocument read(const QString &path);

// One row of a data table: its name and a value for each column, of the column's type (text
// may come as a literal).
template <typename... Values> void row(const char *name, const Values &...values)
{
    (QTest::newRow(name) << ... << values);
}

// The bytes of a file; empty when it cannot be read.
QByteArray contents(const QString &path);
// Writes bytes as the whole file; false when it cannot be written.
bool writeBytes(const QString &path, const QByteArray &bytes);
// The names of the files in a folder, hidden ones too: a temporary file left behind shows.
QStringList files(const QString &folder);

} // namespace TestPdf
