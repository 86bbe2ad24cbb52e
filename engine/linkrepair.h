#pragma once

// Engine-internal: links between pages that merge and split copy. qpdf copies a link's
// destination as it stands, so a link to a page copied after it, or through a named
// destination, would go nowhere or to the wrong page; here every such link is pointed at the
// copy of its target page, and one whose page was left out goes nowhere. Bookmarks take their
// targets from the same map (outline.cpp).

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include <functional>
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

// A number or a name rebuilt in the output (a destination's parameters, an action's values);
// null for anything else.
QPDFObjectHandle scalarCopy(QPDFObjectHandle value);

// An object's number and generation as one key for hashed sets; 0 for a direct object.
unsigned long long objectKey(QPDFObjectHandle object);

// Calls visit(key, value) for every entry of a name tree, each node once however its kids loop
// back (keys that are not strings are skipped).
void forEachName(QPDFObjectHandle tree,
                 const std::function<void(QPDFObjectHandle key, QPDFObjectHandle value)> &visit);

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

class MergedNames;

// Maps destinations of one source document into the output: a destination whose page was
// copied points at the copy; one whose page was left out goes nowhere (a null page), never to
// another page. Named destinations are resolved in the source, unless the output keeps the
// names (a merge), in which case they stay names, as the output's name tree calls them.
class DestinationMap
{
public:
    DestinationMap(QPDF &source, NamedDestinations &names, const std::vector<CopiedPage> &copies);

    // Destinations given by name keep their name, as the output's tree calls it.
    void keepNames(const MergedNames *names) { m_kept = names; }

    // The destination to write in the output for a source destination that qpdf copied as
    // copied; nothing when the copy stands (qpdf itself points a destination at a page copied
    // before the link, and leaves it null otherwise).
    std::optional<QPDFObjectHandle> map(QPDFObjectHandle destination, QPDFObjectHandle copied);
    // The destination to write in the output for a source destination (an array, a name or
    // string, or a dictionary holding it); nothing when it is none of these.
    std::optional<QPDFObjectHandle> target(QPDFObjectHandle destination);
    // The same with names resolved: an explicit destination, whose page is the copy or null.
    std::optional<QPDFObjectHandle> resolved(QPDFObjectHandle destination);

    // A destination that leads nowhere.
    static QPDFObjectHandle nowhere();

private:
    std::optional<QPDFObjectHandle> copyOf(QPDFObjectHandle page);
    std::optional<QPDFObjectHandle> keptName(QPDFObjectHandle name) const;

    QPDF &m_source;
    NamedDestinations &m_names;
    const std::vector<CopiedPage> &m_copyList;
    // Filled when first asked: most documents have no link and no bookmark.
    std::unordered_map<unsigned long long, QPDFObjectHandle> m_copies;
    bool m_mapped = false;
    const MergedNames *m_kept = nullptr;
};

// The named destinations of the documents of a merge, gathered into the output's one name tree
// (names of the catalog's /Dests dictionary become strings there too). A name keeps its text
// unless an earlier document took it; then it gets a suffix ("intro-2"), and the links and
// bookmarks of its document follow the new name.
class MergedNames
{
public:
    // Reads the names of the next document and adds their destinations, mapped into the output.
    void addSource(QPDF &source, DestinationMap &map);
    // The output's name for a name or string of the document added last; nothing when that
    // document defines no such name.
    std::optional<std::string> outputName(QPDFObjectHandle name) const;
    // Writes the name tree into the output's catalog; nothing when there are no names.
    void write(QPDF &out) const;

private:
    std::string claim(const std::string &name);

    std::map<std::string, QPDFObjectHandle> m_tree; // the output's names, in byte order
    std::unordered_map<std::string, int> m_suffixes;
    std::unordered_map<std::string, std::string> m_current; // "n"/"s" + text -> output's name
};

// Points the link annotations of the copied pages (destinations and GoTo actions) through map.
void repairLinks(const std::vector<CopiedPage> &copies, DestinationMap &map);

} // namespace Engine
