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
    std::optional<QRectF> cropBox;
    std::optional<QRectF> trimBox;
    // A link annotation to this 0-based page of the same document (explicit destination).
    std::optional<int> linkTo;
    // A link through a named destination (a string in the /Names /Dests tree) to this page.
    std::optional<int> namedLinkTo;
    // A square annotation over this rectangle (points) whose appearance fills it red.
    std::optional<QRectF> redStamp;
    // Inherit /Rotate and /CropBox from the page tree instead of the page (a tree of one node
    // per page).
    bool inheritBoxes = false;
};

struct Document
{
    QList<Page> pages;
    QString title;
    QString author;
    QString subject;
    QString keywords;
    QString version = QStringLiteral("1.4");
    // Inherit the first page's media box from the page tree instead of the page.
    bool inheritMediaBox = false;
    // An owner password (opens without asking, but is encrypted).
    bool encrypt = false;
    // A user password (does not open without it).
    bool userPassword = false;
    // No information dictionary at all (the four texts above are then not written).
    bool noInfo = false;
    // Objects in object streams, found through a cross-reference stream.
    bool objectStreams = false;
    // Object streams, and a cross-reference table after them that leads to the stream through
    // /XRefStm, as some writers make for readers that predate streams.
    bool hybrid = false;
};

// n pages of letter size with markers "p1" ... "pn".
Document pages(int n, const QString &prefix = QStringLiteral("p"));

void write(const QString &path, const Document &document);

struct ReadPage
{
    QRectF mediaBox;
    std::optional<QRectF> cropBox;
    std::optional<QRectF> trimBox;
    int rotate = 0;
    QString marker;
    // For each link annotation: the 0-based index of the page it leads to in this document,
    // -1 when it leads nowhere (null or missing page).
    QList<int> links;
    // The page's content, its streams joined.
    QByteArray content;
    // Names of the image XObjects among the page's resources.
    QStringList images;
};

struct ReadDocument
{
    bool opened = false;
    int warnings = 0; // qpdf's, reading the whole document
    QString version;
    QList<ReadPage> pages;
    QString title;
    QString author;
    QString subject;
    QString keywords;
    QByteArray xmp;
    // Read without a warning: no repair was needed.
    bool clean = false;
    // Distinct image XObjects used by the pages' resources.
    int imageObjects = 0;
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
