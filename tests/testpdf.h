#pragma once

// Test documents built with qpdf, and a reader that tells what a written document holds: page
// boxes, rotation, a marker per page, links, bookmarks, named destinations, page labels and the
// information dictionary.

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

// A bookmark of a document's outline, listed in the order a viewer shows them.
struct Bookmark
{
    int level = 1;
    QString title;
    int page = -1; // 0-based target; -1: none; beyond the document: a page that is not there
    // How the target is given: an explicit destination, a GoTo action, through the name tree
    // ("target.<page>", as namedLinkTo), through the catalog's /Dests dictionary, or by a name
    // no tree holds.
    enum class Target { Dest, GoTo, NamedString, NamedName, UnknownName } target = Target::Dest;
    bool open = false;
    bool titleNotText = false; // the title is a number
    bool red = false;          // coloured, in bold
};

struct Label
{
    int page = 0;  // 0-based first page of the range
    QString style; // "D", "r", "R", "a", "A" or empty
    QString prefix;
    int start = 1;
};

struct Document
{
    QList<Page> pages;
    QList<Bookmark> outline;
    // The last top-level bookmark's /Next leads back to the first, and so do the last
    // bookmark's children.
    bool outlineLoops = false;
    bool showOutline = false; // /PageMode /UseOutlines
    QList<Label> labels;
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
    // Each bookmark as "title>marker" after one "-" per level below the top ("title>#3" for page
    // 3 without a marker), "nowhere" for a target that is no page; "+" after an open one with
    // bookmarks under it, "(red)" for a coloured bold one.
    QStringList outline;
    // The outline's links agree: parents, previous and next siblings, first and last children,
    // and the counts of the items shown.
    bool outlineConsistent = true;
    bool showsOutline = false;
    QStringList destinationNames; // of the /Names /Dests tree, in its order
    bool namesConsistent = true;  // sorted, each node's /Limits its first and last name
    QStringList labels;           // per page: style, prefix and number, "D:A-:3"
    int imageObjects = 0;         // distinct image XObjects used by the pages
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
