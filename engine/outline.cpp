#include "outline.h"

#include <qpdf/QPDFPageLabelDocumentHelper.hh>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace Engine {

namespace {

// An action other than GoTo (a web address, a viewer command, another file) rebuilt in the
// output from its plain values; streams and anything deeper than a few levels are left out.
QPDFObjectHandle plainCopy(QPDFObjectHandle value, int depth = 0)
{
    if (value.isBool()) {
        return QPDFObjectHandle::newBool(value.getBoolValue());
    }
    if (value.isString()) {
        return QPDFObjectHandle::newString(value.getStringValue());
    }
    if (depth < 4 && value.isArray()) {
        auto copy = QPDFObjectHandle::newArray();
        for (auto item : value.aitems()) {
            copy.appendItem(plainCopy(item, depth + 1));
        }
        return copy;
    }
    if (depth < 4 && value.isDictionary() && !value.isStream()) {
        auto copy = QPDFObjectHandle::newDictionary();
        for (auto [key, item] : value.ditems()) {
            if (key != "/Next" && key != "/Parent") { // chained actions are not followed
                copy.replaceKey(key, plainCopy(item, depth + 1));
            }
        }
        return copy;
    }
    return scalarCopy(value);
}

bool isCopiedAction(QPDFObjectHandle type)
{
    for (const char *name : {"/URI", "/Named", "/GoToR", "/Launch"}) {
        if (type.isNameAndEquals(name)) {
            return true;
        }
    }
    return false;
}

// A label of the output: style, prefix and first number, nothing else.
QPDFObjectHandle plainLabel(QPDFObjectHandle label)
{
    auto copy = QPDFObjectHandle::newDictionary();
    if (!label.isDictionary()) {
        return copy;
    }
    if (auto style = label.getKey("/S"); style.isName()) {
        copy.replaceKey("/S", QPDFObjectHandle::newName(style.getName()));
    }
    if (auto prefix = label.getKey("/P"); prefix.isString()) {
        copy.replaceKey("/P", QPDFObjectHandle::newString(prefix.getStringValue()));
    }
    if (auto start = label.getKey("/St"); start.isInteger() && start.getIntValue() >= 1) {
        copy.replaceKey("/St", QPDFObjectHandle::newInteger(start.getIntValue()));
    }
    return copy;
}

} // namespace

SourceOutline::SourceOutline(QPDF &source)
{
    auto outlines = source.getRoot().getKey("/Outlines");
    if (!outlines.isDictionary()) {
        return;
    }
    // The siblings still to list on each level down to the item being read.
    struct Level
    {
        QPDFObjectHandle next;
        int parent;
        int level;
    };
    std::vector<Level> levels{{outlines.getKey("/First"), -1, 1}};
    std::unordered_set<unsigned long long> seen;
    if (outlines.isIndirect()) {
        seen.insert(objectKey(outlines));
    }
    while (!levels.empty()) {
        auto item = levels.back().next;
        if (!item.isDictionary() || (item.isIndirect() && !seen.insert(objectKey(item)).second)) {
            levels.pop_back();
            continue;
        }
        const int parent = levels.back().parent;
        const int level = levels.back().level;
        levels.back().next = item.getKey("/Next");
        auto count = item.getKey("/Count");
        m_items.push_back({item, parent, level, count.isInteger() && count.getIntValue() > 0});
        auto first = item.getKey("/First");
        if (first.isDictionary()) {
            levels.push_back({first, int(m_items.size()) - 1, level + 1});
        }
    }
}

void SourceOutline::resolvePages(QPDF &source, NamedDestinations &names)
{
    const auto &pages = source.getAllPages();
    std::unordered_map<unsigned long long, long long> index;
    index.reserve(pages.size());
    for (size_t i = 0; i < pages.size(); ++i) {
        index.emplace(objectKey(pages[i]), (long long)i);
    }
    m_byPage.clear();
    for (size_t i = 0; i < m_items.size(); ++i) {
        Item &entry = m_items[i];
        entry.page = -1;
        auto destination = entry.item.getKey("/Dest");
        if (destination.isNull()) {
            auto action = entry.item.getKey("/A");
            if (action.isDictionary() && action.getKey("/S").isNameAndEquals("/GoTo")) {
                destination = action.getKey("/D");
            }
        }
        if (destination.isName() || destination.isString()) {
            destination = names.find(destination);
        }
        if (destination.isDictionary()) {
            destination = destination.getKey("/D");
        }
        if (!destination.isArray() || destination.getArrayNItems() < 1) {
            continue;
        }
        auto target = destination.getArrayItem(0);
        if (target.isIndirect()) {
            const auto found = index.find(objectKey(target));
            entry.page = found == index.end() ? -1 : found->second;
        } else if (target.isInteger()) {
            // Some producers give a page index where a page belongs.
            const long long page = target.getIntValue();
            entry.page = page >= 0 && page < (long long)pages.size() ? page : -1;
        }
        if (entry.page >= 0) {
            m_byPage.emplace_back(entry.page, int(i));
        }
    }
    std::sort(m_byPage.begin(), m_byPage.end());
}

std::vector<int> SourceOutline::itemsOnPages(long long first, long long last) const
{
    std::vector<int> found;
    for (auto it = std::lower_bound(m_byPage.begin(), m_byPage.end(), std::pair(first, -1));
         it != m_byPage.end() && it->first <= last;
         ++it) {
        found.push_back(it->second);
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::string SourceOutline::title(QPDFObjectHandle item)
{
    auto title = item.getKey("/Title");
    return title.isString() ? title.getStringValue() : std::string();
}

int OutlineBuilder::add(int parent, QPDFObjectHandle item, bool open)
{
    m_nodes.push_back({parent, open, item});
    return int(m_nodes.size()) - 1;
}

void OutlineBuilder::addAll(const SourceOutline &outline, DestinationMap &map, int parent)
{
    const auto &items = outline.items();
    std::vector<int> placed(items.size());
    for (size_t i = 0; i < items.size(); ++i) {
        const auto &source = items[i];
        placed[i] = add(source.parent < 0 ? parent : placed[size_t(source.parent)],
                        copyItem(source.item, &map),
                        source.open);
    }
}

void OutlineBuilder::addPart(const SourceOutline &outline,
                             DestinationMap &map,
                             long long first,
                             long long last)
{
    const auto &items = outline.items();
    const std::vector<int> inside = outline.itemsOnPages(first, last);
    // The items inside, and every item above one of them, as headings.
    std::unordered_set<int> chosen(inside.begin(), inside.end());
    for (const int i : inside) {
        for (int p = items[size_t(i)].parent; p >= 0 && chosen.insert(p).second;
             p = items[size_t(p)].parent) {
        }
    }
    std::vector<int> order(chosen.begin(), chosen.end());
    std::sort(order.begin(), order.end());
    std::unordered_map<int, int> placed;
    for (const int i : order) {
        const auto &source = items[size_t(i)];
        const bool leads = std::binary_search(inside.begin(), inside.end(), i);
        placed[i] = add(source.parent < 0 ? -1 : placed.at(source.parent),
                        copyItem(source.item, leads ? &map : nullptr),
                        source.open);
    }
}

QPDFObjectHandle OutlineBuilder::newItem(const std::string &utf8Title,
                                         std::optional<QPDFObjectHandle> page)
{
    auto item = QPDFObjectHandle::newDictionary();
    item.replaceKey("/Title", QPDFObjectHandle::newUnicodeString(utf8Title));
    if (page) {
        item.replaceKey("/Dest",
                        QPDFObjectHandle::newArray({*page, QPDFObjectHandle::newName("/Fit")}));
    }
    return item;
}

QPDFObjectHandle OutlineBuilder::copyItem(QPDFObjectHandle source, DestinationMap *map)
{
    auto item = QPDFObjectHandle::newDictionary();
    item.replaceKey("/Title", QPDFObjectHandle::newString(SourceOutline::title(source)));
    auto color = source.getKey("/C");
    if (color.isArray() && color.getArrayNItems() == 3) {
        auto copy = QPDFObjectHandle::newArray();
        for (auto component : color.aitems()) {
            copy.appendItem(QPDFObjectHandle::newReal(
                component.isNumber() ? std::clamp(component.getNumericValue(), 0.0, 1.0) : 0.0, 3));
        }
        item.replaceKey("/C", copy);
    }
    if (auto flags = source.getKey("/F"); flags.isInteger()) {
        item.replaceKey("/F", QPDFObjectHandle::newInteger(flags.getIntValue()));
    }
    if (!map) {
        return item;
    }
    auto destination = source.getKey("/Dest");
    auto action = source.getKey("/A");
    if (!destination.isNull()) {
        if (auto target = map->target(destination)) {
            item.replaceKey("/Dest", *target);
        }
    } else if (action.isDictionary()) {
        auto type = action.getKey("/S");
        if (type.isNameAndEquals("/GoTo")) {
            if (auto target = map->target(action.getKey("/D"))) {
                auto goTo = QPDFObjectHandle::newDictionary();
                goTo.replaceKey("/S", QPDFObjectHandle::newName("/GoTo"));
                goTo.replaceKey("/D", *target);
                item.replaceKey("/A", goTo);
            }
        } else if (isCopiedAction(type)) {
            item.replaceKey("/A", plainCopy(action));
        }
    }
    return item;
}

void OutlineBuilder::write(QPDF &out) const
{
    if (m_nodes.empty()) {
        return;
    }
    const size_t count = m_nodes.size();
    auto root = out.makeIndirectObject(QPDFObjectHandle::newDictionary());
    root.replaceKey("/Type", QPDFObjectHandle::newName("/Outlines"));
    std::vector<QPDFObjectHandle> objects;
    objects.reserve(count);
    for (const Node &node : m_nodes) {
        objects.push_back(out.makeIndirectObject(node.item));
    }
    // Siblings in the order added, each list between its parent's /First and /Last.
    std::vector<int> firstChild(count, -1);
    std::vector<int> lastChild(count, -1);
    int topFirst = -1;
    int topLast = -1;
    for (size_t i = 0; i < count; ++i) {
        const int parent = m_nodes[i].parent;
        int &first = parent < 0 ? topFirst : firstChild[size_t(parent)];
        int &last = parent < 0 ? topLast : lastChild[size_t(parent)];
        objects[i].replaceKey("/Parent", parent < 0 ? root : objects[size_t(parent)]);
        if (last >= 0) {
            objects[size_t(last)].replaceKey("/Next", objects[i]);
            objects[i].replaceKey("/Prev", objects[size_t(last)]);
        } else {
            first = int(i);
        }
        last = int(i);
    }
    // What each item shows when opened: its children and what the open ones among them show.
    // Children come after their parent, so one pass backwards counts every level.
    std::vector<long long> shown(count, 0);
    long long topShown = 0;
    for (size_t i = count; i-- > 0;) {
        const long long own = 1 + (m_nodes[i].open ? shown[i] : 0);
        (m_nodes[i].parent < 0 ? topShown : shown[size_t(m_nodes[i].parent)]) += own;
    }
    for (size_t i = 0; i < count; ++i) {
        if (firstChild[i] < 0) {
            continue;
        }
        objects[i].replaceKey("/First", objects[size_t(firstChild[i])]);
        objects[i].replaceKey("/Last", objects[size_t(lastChild[i])]);
        objects[i].replaceKey("/Count",
                              QPDFObjectHandle::newInteger(m_nodes[i].open ? shown[i] : -shown[i]));
    }
    root.replaceKey("/First", objects[size_t(topFirst)]);
    root.replaceKey("/Last", objects[size_t(topLast)]);
    root.replaceKey("/Count", QPDFObjectHandle::newInteger(topShown));
    out.getRoot().replaceKey("/Outlines", root);
}

void PageLabels::add(QPDF &source, long long first, long long last, long long at)
{
    QPDFPageLabelDocumentHelper labels(source);
    add(labels, first, last, at);
}

void PageLabels::add(QPDFPageLabelDocumentHelper &labels,
                     long long first,
                     long long last,
                     long long at)
{
    Run run{at, labels.hasPageLabels(), {}};
    if (run.labelled && first <= last) {
        std::vector<QPDFObjectHandle> nums;
        labels.getLabelsForPageRange(first, last, at, nums);
        for (size_t i = 0; i + 1 < nums.size(); i += 2) {
            if (nums[i].isInteger()) {
                run.nums.push_back(QPDFObjectHandle::newInteger(nums[i].getIntValue()));
                run.nums.push_back(plainLabel(nums[i + 1]));
            }
        }
    }
    m_runs.push_back(std::move(run));
}

void PageLabels::write(QPDF &out) const
{
    if (std::none_of(m_runs.begin(), m_runs.end(), [](const Run &r) { return r.labelled; })) {
        return;
    }
    auto nums = QPDFObjectHandle::newArray();
    for (const Run &run : m_runs) {
        if (run.labelled) {
            for (const auto &entry : run.nums) {
                nums.appendItem(entry);
            }
        } else {
            auto decimal = QPDFObjectHandle::newDictionary();
            decimal.replaceKey("/S", QPDFObjectHandle::newName("/D"));
            nums.appendItem(QPDFObjectHandle::newInteger(run.at));
            nums.appendItem(decimal);
        }
    }
    auto labels = QPDFObjectHandle::newDictionary();
    labels.replaceKey("/Nums", nums);
    out.getRoot().replaceKey("/PageLabels", out.makeIndirectObject(labels));
}

bool showsOutline(QPDF &pdf)
{
    return pdf.getRoot().getKey("/PageMode").isNameAndEquals("/UseOutlines");
}

} // namespace Engine
