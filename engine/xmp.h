#pragma once

// The XMP metadata packet of a document, kept in step with its information dictionary.

#include <QByteArray>
#include <QString>

#include <optional>

namespace Engine {

// The values to set; a property without one is left as the packet has it.
struct XmpProperties
{
    std::optional<QString> title;    // dc:title, the x-default alternative
    std::optional<QString> author;   // dc:creator, a sequence of one
    std::optional<QString> subject;  // dc:description, the x-default alternative
    std::optional<QString> keywords; // pdf:Keywords, the text of the Keywords entry
};

// The packet with those of dc:title, dc:creator, dc:description and pdf:Keywords that have a
// value set to it, in the first rdf:Description; every other property, and the packet wrapper,
// is kept. Empty when the packet is not well-formed XML with an rdf:RDF element: it is then
// better left as it is.
QByteArray updatedXmp(const QByteArray &packet, const XmpProperties &values);

} // namespace Engine
