#pragma once

// Engine-internal: links between pages that merge and split copy. qpdf copies a link's
// destination as it stands, so a link to a page copied after it, or through a named
// destination, would go nowhere or to the wrong page; here every such link is pointed at the
// copy of its target page, and one whose page was left out goes nowhere.

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Engine {

// A page of a source document and its copy in the output.
struct CopiedPage
{
    QPDFObjectHandle source;
    QPDFObjectHandle copy;
};

// The named destinations of a source document, read once for all its links (and all the
// outputs a split makes of it): looking each name up in the name tree costs a third of a merge
// of a document with many links.
class NamedDestinations
{
public:
    explicit NamedDestinations(QPDF &source)
        : m_source(source)
    {}

    // The destination a name or string stands for; null when there is none.
    QPDFObjectHandle find(QPDFObjectHandle name);

private:
    QPDF &m_source;
    bool m_read = false;
    std::unordered_map<std::string, QPDFObjectHandle> m_strings;
};

// Maps destinations of one source document into the output: a destination whose page was
// copied points at the copy; one whose page was left out goes nowhere (a null page), never to
// another page. Named destinations are resolved in the source, whose name trees are not copied.
class DestinationMap
{
public:
    DestinationMap(QPDF &source, NamedDestinations &names, const std::vector<CopiedPage> &copies);

    // The destination to write in the output for a source destination that qpdf copied as
    // copied; nothing when the copy stands (qpdf itself points a destination at a page copied
    // before the link, and leaves it null otherwise).
    std::optional<QPDFObjectHandle> map(QPDFObjectHandle destination, QPDFObjectHandle copied);

private:
    std::optional<QPDFObjectHandle> copyOf(QPDFObjectHandle page) const;

    QPDF &m_source;
    NamedDestinations &m_names;
    std::map<QPDFObjGen, QPDFObjectHandle> m_copies;
};

// Points the link annotations of the copied pages (destinations and GoTo actions, named ones
// resolved in the source) at the copies of their target pages.
void repairLinks(QPDF &source, NamedDestinations &names, const std::vector<CopiedPage> &copies);

} // namespace Engine
