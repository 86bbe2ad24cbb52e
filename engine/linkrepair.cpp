#include "linkrepair.h"

#include <unordered_set>

namespace Engine {

namespace {

// The key of a named destination within its document: names and strings are apart.
std::string sourceKey(bool isName, const std::string &text)
{
    std::string key(1, isName ? 'n' : 's');
    key += text;
    return key;
}

std::string sourceKey(QPDFObjectHandle name)
{
    return name.isName() ? sourceKey(true, name.getName().substr(1))
                         : sourceKey(false, name.getUTF8Value());
}

// A name with a number after it, in the name's own encoding (UTF-16 names stay UTF-16).
std::string withSuffix(const std::string &name, int number)
{
    std::string suffix(1, '-');
    suffix += std::to_string(number);
    if (name.size() >= 2 && name[0] == '\xfe' && name[1] == '\xff') {
        std::string wide = name;
        for (const char c : suffix) {
            wide += '\0';
            wide += c;
        }
        return wide;
    }
    return name + suffix;
}

constexpr size_t NodeSize = 64; // entries per node of the name tree written

} // namespace

QPDFObjectHandle scalarCopy(QPDFObjectHandle value)
{
    if (value.isInteger()) {
        return QPDFObjectHandle::newInteger(value.getIntValue());
    }
    if (value.isReal()) {
        return QPDFObjectHandle::newReal(value.getRealValue());
    }
    if (value.isName()) {
        return QPDFObjectHandle::newName(value.getName());
    }
    return QPDFObjectHandle::newNull();
}

unsigned long long objectKey(QPDFObjectHandle object)
{
    const QPDFObjGen og = object.getObjGen();
    return (static_cast<unsigned long long>(static_cast<unsigned>(og.getObj())) << 32)
           | static_cast<unsigned>(og.getGen());
}

void forEachName(QPDFObjectHandle tree,
                 const std::function<void(QPDFObjectHandle key, QPDFObjectHandle value)> &visit)
{
    std::vector<QPDFObjectHandle> pending{tree};
    std::unordered_set<unsigned long long> seen;
    while (!pending.empty()) {
        auto node = pending.back();
        pending.pop_back();
        if (!node.isDictionary() || (node.isIndirect() && !seen.insert(objectKey(node)).second)) {
            continue;
        }
        auto names = node.getKey("/Names");
        if (names.isArray()) {
            const int count = names.getArrayNItems();
            for (int i = 0; i + 1 < count; i += 2) {
                auto key = names.getArrayItem(i);
                if (key.isString()) {
                    visit(key, names.getArrayItem(i + 1));
                }
            }
        }
        auto kids = node.getKey("/Kids");
        if (kids.isArray()) {
            for (int i = kids.getArrayNItems() - 1; i >= 0; --i) {
                pending.push_back(kids.getArrayItem(i));
            }
        }
    }
}

QPDFObjectHandle NamedDestinations::find(QPDFObjectHandle name)
{
    if (name.isName()) {
        auto dests = m_source.getRoot().getKey("/Dests");
        return dests.isDictionary() ? dests.getKey(name.getName()) : QPDFObjectHandle::newNull();
    }
    if (!name.isString()) {
        return QPDFObjectHandle::newNull();
    }
    if (!m_read) {
        m_read = true;
        auto names = m_source.getRoot().getKey("/Names");
        if (names.isDictionary()) {
            forEachName(names.getKey("/Dests"), [&](QPDFObjectHandle key, QPDFObjectHandle value) {
                m_strings.emplace(key.getUTF8Value(), value);
            });
        }
    }
    const auto found = m_strings.find(name.getUTF8Value());
    return found == m_strings.end() ? QPDFObjectHandle::newNull() : found->second;
}

DestinationMap::DestinationMap(QPDF &source,
                               NamedDestinations &names,
                               const std::vector<CopiedPage> &copies)
    : m_source(source)
    , m_names(names)
    , m_copyList(copies)
{}

QPDFObjectHandle DestinationMap::nowhere()
{
    return QPDFObjectHandle::newArray(
        {QPDFObjectHandle::newNull(), QPDFObjectHandle::newName("/Fit")});
}

std::optional<QPDFObjectHandle> DestinationMap::keptName(QPDFObjectHandle name) const
{
    // A name its document does not define leads nowhere: the output's tree may hold the same
    // name for another document's page.
    const auto output = m_kept->outputName(name);
    return output ? QPDFObjectHandle::newString(*output) : nowhere();
}

std::optional<QPDFObjectHandle> DestinationMap::map(QPDFObjectHandle destination,
                                                    QPDFObjectHandle copied)
{
    if (destination.isArray() && destination.getArrayNItems() > 0
        && destination.getArrayItem(0).isIndirect()) {
        if (!copied.isArray() || copied.getArrayNItems() < 1) {
            return std::nullopt;
        }
        auto target = destination.getArrayItem(0);
        auto page = copyOf(target);
        if (!copied.getArrayItem(0).isIndirect()) {
            // The link came before its target: point the copied destination at the copy.
            if (page) {
                copied.setArrayItem(0, *page);
            }
        } else if (!page && target.isPageObject()) {
            // The target was copied for an earlier piece in the same output: here it goes
            // nowhere.
            copied.setArrayItem(0, QPDFObjectHandle::newNull());
        }
        return std::nullopt;
    }
    if (m_kept && (destination.isName() || destination.isString())) {
        auto name = keptName(destination);
        if (name->isString() && copied.isString()
            && copied.getStringValue() == name->getStringValue()) {
            return std::nullopt;
        }
        return name;
    }
    return resolved(destination);
}

std::optional<QPDFObjectHandle> DestinationMap::target(QPDFObjectHandle destination)
{
    if (m_kept && (destination.isName() || destination.isString())) {
        return keptName(destination);
    }
    return resolved(destination);
}

std::optional<QPDFObjectHandle> DestinationMap::resolved(QPDFObjectHandle destination)
{
    if (destination.isName() || destination.isString()) {
        destination = m_names.find(destination);
        if (destination.isNull()) {
            return std::nullopt;
        }
    }
    if (destination.isDictionary()) {
        destination = destination.getKey("/D");
    }
    if (!destination.isArray() || destination.getArrayNItems() < 1) {
        return std::nullopt;
    }
    auto target = destination.getArrayItem(0);
    if (target.isInteger()) {
        // Some producers give a page index where a page belongs.
        const auto &pages = m_source.getAllPages();
        const long long index = target.getIntValue();
        target = index >= 0 && index < (long long)pages.size() ? pages[size_t(index)]
                                                               : QPDFObjectHandle::newNull();
    } else if (!target.isIndirect()) {
        return std::nullopt;
    }
    auto mapped = QPDFObjectHandle::newArray();
    mapped.appendItem(copyOf(target).value_or(QPDFObjectHandle::newNull()));
    const int count = destination.getArrayNItems();
    for (int i = 1; i < count; ++i) {
        mapped.appendItem(scalarCopy(destination.getArrayItem(i)));
    }
    return mapped;
}

std::optional<QPDFObjectHandle> DestinationMap::copyOf(QPDFObjectHandle page)
{
    if (!page.isIndirect()) {
        return std::nullopt;
    }
    if (!m_mapped) {
        m_mapped = true;
        m_copies.reserve(m_copyList.size());
        for (auto c : m_copyList) {
            m_copies.emplace(objectKey(c.source), c.copy);
        }
    }
    const auto found = m_copies.find(objectKey(page));
    return found == m_copies.end() ? std::nullopt : std::optional(found->second);
}

void MergedNames::addSource(QPDF &source, DestinationMap &map)
{
    m_current.clear();
    const auto add = [&](const std::string &key, const std::string &name, QPDFObjectHandle value) {
        if (m_current.count(key)) {
            return; // a name given twice in its tree: its first destination holds
        }
        const std::string output = claim(name);
        m_current.emplace(key, output);
        m_tree[output] = map.resolved(value).value_or(DestinationMap::nowhere());
    };
    auto root = source.getRoot();
    auto dests = root.getKey("/Dests");
    if (dests.isDictionary()) {
        for (auto [name, value] : dests.ditems()) {
            add(sourceKey(true, name.substr(1)), name.substr(1), value);
        }
    }
    auto names = root.getKey("/Names");
    if (names.isDictionary()) {
        forEachName(names.getKey("/Dests"), [&](QPDFObjectHandle key, QPDFObjectHandle value) {
            add(sourceKey(key), key.getStringValue(), value);
        });
    }
}

std::string MergedNames::claim(const std::string &name)
{
    if (!m_tree.count(name)) {
        return name;
    }
    int &next = m_suffixes.try_emplace(name, 2).first->second;
    std::string candidate = withSuffix(name, next++);
    while (m_tree.count(candidate)) {
        candidate = withSuffix(name, next++);
    }
    return candidate;
}

std::optional<std::string> MergedNames::outputName(QPDFObjectHandle name) const
{
    const auto found = m_current.find(sourceKey(name));
    return found == m_current.end() ? std::nullopt : std::optional(found->second);
}

void MergedNames::write(QPDF &out) const
{
    if (m_tree.empty()) {
        return;
    }
    // Leaves of a few dozen names under as many levels of kids as it takes, each node with the
    // first and last name below it, as viewers search the tree.
    struct Node
    {
        QPDFObjectHandle object;
        std::string first, last;
    };
    std::vector<Node> level;
    Node leaf;
    auto entries = QPDFObjectHandle::newArray();
    for (const auto &[name, destination] : m_tree) {
        if (entries.getArrayNItems() == 0) {
            leaf.first = name;
        }
        entries.appendItem(QPDFObjectHandle::newString(name));
        entries.appendItem(destination);
        leaf.last = name;
        if (size_t(entries.getArrayNItems()) == 2 * NodeSize) {
            leaf.object = QPDFObjectHandle::newDictionary();
            leaf.object.replaceKey("/Names", entries);
            level.push_back(leaf);
            entries = QPDFObjectHandle::newArray();
        }
    }
    if (entries.getArrayNItems() > 0) {
        leaf.object = QPDFObjectHandle::newDictionary();
        leaf.object.replaceKey("/Names", entries);
        level.push_back(leaf);
    }
    while (level.size() > 1) {
        std::vector<Node> above;
        for (size_t i = 0; i < level.size(); i += NodeSize) {
            Node node{QPDFObjectHandle::newDictionary(), level[i].first, {}};
            auto kids = QPDFObjectHandle::newArray();
            for (size_t k = i; k < std::min(level.size(), i + NodeSize); ++k) {
                level[k].object.replaceKey(
                    "/Limits",
                    QPDFObjectHandle::newArray({QPDFObjectHandle::newString(level[k].first),
                                                QPDFObjectHandle::newString(level[k].last)}));
                kids.appendItem(out.makeIndirectObject(level[k].object));
                node.last = level[k].last;
            }
            node.object.replaceKey("/Kids", kids);
            above.push_back(node);
        }
        level = std::move(above);
    }
    auto catalog = out.getRoot();
    auto names = catalog.getKey("/Names");
    if (!names.isDictionary()) {
        names = QPDFObjectHandle::newDictionary();
        catalog.replaceKey("/Names", names);
    }
    names.replaceKey("/Dests", out.makeIndirectObject(level.front().object));
}

void repairLinks(const std::vector<CopiedPage> &copies, DestinationMap &map)
{
    for (auto c : copies) { // qpdf's handles have no const accessors
        auto sourceAnnots = c.source.getKey("/Annots");
        auto copyAnnots = c.copy.getKey("/Annots");
        if (!sourceAnnots.isArray() || !copyAnnots.isArray()
            || sourceAnnots.getArrayNItems() != copyAnnots.getArrayNItems()) {
            continue;
        }
        for (int i = 0; i < sourceAnnots.getArrayNItems(); ++i) {
            auto from = sourceAnnots.getArrayItem(i);
            auto to = copyAnnots.getArrayItem(i);
            if (!from.isDictionary() || !to.isDictionary()) {
                continue;
            }
            auto action = from.getKey("/A");
            const bool hasDest = from.hasKey("/Dest");
            const bool hasGoTo = action.isDictionary()
                                 && action.getKey("/S").isNameAndEquals("/GoTo")
                                 && action.hasKey("/D") && to.getKey("/A").isDictionary();
            if (hasDest) {
                if (auto dest = map.map(from.getKey("/Dest"), to.getKey("/Dest"))) {
                    to.replaceKey("/Dest", *dest);
                }
            }
            if (hasGoTo) {
                auto copiedAction = to.getKey("/A");
                if (auto dest = map.map(action.getKey("/D"), copiedAction.getKey("/D"))) {
                    copiedAction.replaceKey("/D", *dest);
                }
            }
        }
    }
}

} // namespace Engine
