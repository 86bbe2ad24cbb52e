#pragma once

// Engine-internal: the outline (the bookmarks a viewer lists beside the pages) and the page
// labels of documents that merge and split copy. A source outline is read once into a list,
// without recursion and each item once, so that an outline whose links loop back, or one of
// a hundred thousand items, is read in full and in bounded time; an output outline is built
// as a list too and linked when it is written.

#include "linkrepair.h"

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include <memory>
#include <optional>
#include <string>
#include <vector>

class QPDFPageLabelDocumentHelper;

namespace Engine {

class SourceOutline
{
public:
    struct Item
    {
        QPDFObjectHandle item;
        int parent = -1;     // index of the item it is under; -1: the top level
        int level = 1;       // 1: the top level
        bool open = true;    // its children are shown
        long long page = -1; // target page (0-based) in the source once resolved; -1: none
    };

    // Every item in the order a viewer lists them: each after the item it is under and before
    // its next sibling. An item reached a second time (a loop) ends its list there.
    explicit SourceOutline(QPDF &source);

    const std::vector<Item> &items() const { return m_items; }
    bool empty() const { return m_items.empty(); }

    // Finds each item's target page: its destination or GoTo action, named ones resolved.
    void resolvePages(QPDF &source, NamedDestinations &names);
    // The items whose target page lies in first..last (0-based, both included), in order;
    // after resolvePages.
    std::vector<int> itemsOnPages(long long first, long long last) const;

    // The item's title as the file holds it (PDFDocEncoding or UTF-16); empty when it is not
    // a text.
    static std::string title(QPDFObjectHandle item);

private:
    std::vector<Item> m_items;
    std::vector<std::pair<long long, int>> m_byPage; // (page, item), sorted
};

// An outline being built for an output, item by item.
class OutlineBuilder
{
public:
    // Adds an item after the others under parent (-1: the top level); returns its index.
    int add(int parent, QPDFObjectHandle item, bool open);
    bool empty() const { return m_nodes.empty(); }
    // Links the items and writes the outline into the output's catalog; nothing when empty.
    void write(QPDF &out) const;

    // Adds the items of a source outline under parent, each with its target through map (the
    // destinations, and GoTo actions; other actions as they are).
    void addAll(const SourceOutline &outline, DestinationMap &map, int parent);
    // Adds the source items whose target lies in pages first..last (0-based), with their
    // targets through map, and the items above them, which lead nowhere.
    void
    addPart(const SourceOutline &outline, DestinationMap &map, long long first, long long last);
    // An item of the builder's own, titled with UTF-8 text, leading to page (none: nowhere).
    static QPDFObjectHandle newItem(const std::string &utf8Title,
                                    std::optional<QPDFObjectHandle> page);

private:
    // The item as the output holds it: title, colour and style, and, with map, its target.
    static QPDFObjectHandle copyItem(QPDFObjectHandle source, DestinationMap *map);

    struct Node
    {
        int parent;
        bool open;
        QPDFObjectHandle item;
    };
    std::vector<Node> m_nodes;
};

// Page labels ("i, ii, 1, 2"): the entries of an output's label tree, collected as pages are
// copied from sources, then written.
class PageLabels
{
public:
    // The labels of source pages first..last (0-based) copied to the output from page at on.
    // A source without labels numbers its pages 1, 2, 3... once any source has labels.
    void add(QPDF &source, long long first, long long last, long long at);
    // The same with a label helper kept for the source (a split's many pieces).
    void add(QPDFPageLabelDocumentHelper &labels, long long first, long long last, long long at);
    // Writes /PageLabels into the output's catalog; nothing when no source had labels.
    void write(QPDF &out) const;

private:
    struct Run
    {
        long long at;
        bool labelled;
        std::vector<QPDFObjectHandle> nums; // index, label, index, label...
    };
    std::vector<Run> m_runs;
};

// Whether the document opens with its outline shown (/PageMode /UseOutlines).
bool showsOutline(QPDF &pdf);

} // namespace Engine
