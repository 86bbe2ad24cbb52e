#include "linkrepair.h"

#include <qpdf/QPDFNameTreeObjectHelper.hh>

namespace Engine {

namespace {

// Destination parameters are numbers, names or null; they are rebuilt in the output.
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

} // namespace

QPDFObjectHandle NamedDestinations::find(QPDFObjectHandle name)
{
    if (name.isName()) {
        auto dests = m_source.getRoot().getKey("/Dests");
        return dests.isDictionary() ? dests.getKey(name.getName()) : QPDFObjectHandle::newNull();
    }
    if (!m_read) {
        m_read = true;
        auto names = m_source.getRoot().getKey("/Names");
        auto tree = names.isDictionary() ? names.getKey("/Dests") : QPDFObjectHandle::newNull();
        if (tree.isDictionary()) {
            for (auto [key, value] : QPDFNameTreeObjectHelper(tree, m_source, false)) {
                m_strings.emplace(key, value);
            }
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
{
    for (const auto &c : copies) {
        m_copies.emplace(c.source.getObjGen(), c.copy);
    }
}

std::optional<QPDFObjectHandle> DestinationMap::map(QPDFObjectHandle destination,
                                                    QPDFObjectHandle copied)
{
    if (destination.isArray() && destination.getArrayNItems() > 0
        && destination.getArrayItem(0).isIndirect()) {
        if (!copied.isArray() || copied.getArrayNItems() < 1
            || copied.getArrayItem(0).isIndirect()) {
            return std::nullopt;
        }
        // The link came before its target: point the copied destination at the copy.
        if (auto page = copyOf(destination.getArrayItem(0))) {
            copied.setArrayItem(0, *page);
        }
        return std::nullopt;
    }
    if (destination.isName() || destination.isString()) {
        destination = m_names.find(destination);
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
    for (int i = 1; i < destination.getArrayNItems(); ++i) {
        mapped.appendItem(scalarCopy(destination.getArrayItem(i)));
    }
    return mapped;
}

std::optional<QPDFObjectHandle> DestinationMap::copyOf(QPDFObjectHandle page) const
{
    if (!page.isIndirect()) {
        return std::nullopt;
    }
    const auto found = m_copies.find(page.getObjGen());
    return found == m_copies.end() ? std::nullopt : std::optional(found->second);
}

void repairLinks(QPDF &source, NamedDestinations &names, const std::vector<CopiedPage> &copies)
{
    std::optional<DestinationMap> mapper;
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
            if (!hasDest && !hasGoTo) {
                continue;
            }
            if (!mapper) {
                mapper.emplace(source, names, copies);
            }
            if (hasDest) {
                if (auto dest = mapper->map(from.getKey("/Dest"), to.getKey("/Dest"))) {
                    to.replaceKey("/Dest", *dest);
                }
            }
            if (hasGoTo) {
                auto copiedAction = to.getKey("/A");
                if (auto dest = mapper->map(action.getKey("/D"), copiedAction.getKey("/D"))) {
                    copiedAction.replaceKey("/D", *dest);
                }
            }
        }
    }
}

} // namespace Engine
