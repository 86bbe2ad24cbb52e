#include "xmp.h"

#include <QList>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <cstring>

namespace Engine {

namespace {

const QString rdfNamespace = QStringLiteral("http://www.w3.org/1999/02/22-rdf-syntax-ns#");
const QString dcNamespace = QStringLiteral("http://purl.org/dc/elements/1.1/");
const QString pdfNamespace = QStringLiteral("http://ns.adobe.com/pdf/1.3/");

bool isRewritten(QStringView namespaceUri, QStringView name, const XmpProperties &values)
{
    if (namespaceUri == dcNamespace) {
        return (name == u"title" && values.title) || (name == u"creator" && values.author)
               || (name == u"description" && values.subject);
    }
    return namespaceUri == pdfNamespace && name == u"Keywords" && values.keywords;
}

// XML 1.0 cannot hold most control characters, not even escaped: they are left out of the
// packet (the information dictionary keeps them).
QString xmlText(const QString &text)
{
    QString clean;
    clean.reserve(text.size());
    for (const QChar c : text) {
        if (c.unicode() >= 0x20 || c == u'\t' || c == u'\n' || c == u'\r') {
            if (c.unicode() != 0xFFFE && c.unicode() != 0xFFFF) {
                clean.append(c);
            }
        }
    }
    return clean;
}

// Writes the four properties as children of an rdf:Description whose RDF prefix is rdfPrefix.
// Each declares its own namespace, so it means the same whatever the packet declares around it.
void writeProperties(QXmlStreamWriter &writer,
                     const QString &rdfPrefix,
                     const XmpProperties &values)
{
    const auto rdf = [&](const char *name) {
        return rdfPrefix.isEmpty() ? QString::fromLatin1(name)
                                   : rdfPrefix + QLatin1Char(':') + QLatin1String(name);
    };
    const auto start = [&](const char *qualifiedName, const char *prefix, const QString &uri) {
        writer.writeStartElement(QLatin1String(qualifiedName));
        writer.writeAttribute(QLatin1String("xmlns:") + QLatin1String(prefix), uri);
    };
    // An array of one item: the default alternative of an Alt, the only member of a Seq.
    const auto array = [&](const char *qualifiedName, const char *kind, const QString &value) {
        start(qualifiedName, "dc", dcNamespace);
        writer.writeStartElement(rdf(kind));
        writer.writeStartElement(rdf("li"));
        if (std::strcmp(kind, "Alt") == 0) {
            writer.writeAttribute(QStringLiteral("xml:lang"), QStringLiteral("x-default"));
        }
        writer.writeCharacters(xmlText(value));
        writer.writeEndElement();
        writer.writeEndElement();
        writer.writeEndElement();
    };
    if (values.title) {
        array("dc:title", "Alt", *values.title);
    }
    if (values.author) {
        array("dc:creator", "Seq", *values.author);
    }
    if (values.subject) {
        array("dc:description", "Alt", *values.subject);
    }
    if (values.keywords) {
        start("pdf:Keywords", "pdf", pdfNamespace);
        writer.writeCharacters(xmlText(*values.keywords));
        writer.writeEndElement();
    }
}

enum class Element { Rdf, Description, Other };

} // namespace

QByteArray updatedXmp(const QByteArray &packet, const XmpProperties &values)
{
    QXmlStreamReader reader(packet);
    QByteArray result;
    QXmlStreamWriter writer(&result);
    // Names are copied as they are written (prefix and all) and namespace declarations as
    // attributes, so the packet keeps its own prefixes.
    QList<Element> open;
    int skipping = 0; // depth inside a property that is replaced
    bool sawRdf = false;
    bool written = false;
    // Blanks are held back until the next token: those before a replaced property go with it.
    QString blanks;
    while (!reader.atEnd()) {
        const auto token = reader.readNext();
        if (skipping == 0 && token == QXmlStreamReader::Characters && reader.isWhitespace()
            && !reader.isCDATA()) {
            blanks += reader.text();
            continue;
        }
        if (skipping == 0 && !blanks.isEmpty()) {
            const bool replaced = token == QXmlStreamReader::StartElement && !open.isEmpty()
                                  && open.last() == Element::Description
                                  && isRewritten(reader.namespaceUri(), reader.name(), values);
            if (!replaced) {
                writer.writeCharacters(blanks);
            }
            blanks.clear();
        }
        if (skipping > 0) {
            if (token == QXmlStreamReader::StartElement) {
                ++skipping;
            } else if (token == QXmlStreamReader::EndElement) {
                --skipping;
            }
            continue;
        }
        switch (token) {
        case QXmlStreamReader::StartDocument:
            if (!reader.documentVersion().isEmpty()) {
                writer.writeStartDocument(reader.documentVersion().toString());
            }
            break;
        case QXmlStreamReader::StartElement: {
            const bool inDescription = !open.isEmpty() && open.last() == Element::Description;
            if (inDescription && isRewritten(reader.namespaceUri(), reader.name(), values)) {
                skipping = 1;
                break;
            }
            const bool isRdf = reader.namespaceUri() == rdfNamespace;
            const Element element = isRdf && reader.name() == u"RDF" ? Element::Rdf
                                    : isRdf && reader.name() == u"Description"
                                        ? Element::Description
                                        : Element::Other;
            writer.writeStartElement(reader.qualifiedName().toString());
            for (const auto &declaration : reader.namespaceDeclarations()) {
                const QString prefix = declaration.prefix().toString();
                writer.writeAttribute(prefix.isEmpty() ? QStringLiteral("xmlns")
                                                       : QStringLiteral("xmlns:") + prefix,
                                      declaration.namespaceUri().toString());
            }
            for (const auto &attribute : reader.attributes()) {
                // Short-hand properties of a description (pdf:Keywords="...") are replaced too.
                if (element == Element::Description
                    && isRewritten(attribute.namespaceUri(), attribute.name(), values)) {
                    continue;
                }
                writer.writeAttribute(attribute.qualifiedName().toString(),
                                      attribute.value().toString());
            }
            if (element == Element::Rdf) {
                sawRdf = true;
            }
            if (element == Element::Description && !written && !open.isEmpty()
                && open.last() == Element::Rdf) {
                writeProperties(writer, reader.prefix().toString(), values);
                written = true;
            }
            open.append(element);
            break;
        }
        case QXmlStreamReader::EndElement:
            if (open.isEmpty()) {
                return {};
            }
            if (open.last() == Element::Rdf && !written) {
                // No description to add to: one of our own.
                const QString prefix = reader.prefix().toString();
                const QString rdf = prefix.isEmpty() ? prefix : prefix + QLatin1Char(':');
                writer.writeStartElement(rdf + QLatin1String("Description"));
                writer.writeAttribute(rdf + QLatin1String("about"), QString());
                writeProperties(writer, prefix, values);
                writer.writeEndElement();
                written = true;
            }
            open.removeLast();
            writer.writeEndElement();
            break;
        case QXmlStreamReader::Characters:
            if (reader.isCDATA()) {
                writer.writeCDATA(reader.text().toString());
            } else {
                writer.writeCharacters(reader.text().toString());
            }
            break;
        case QXmlStreamReader::Comment:
            writer.writeComment(reader.text().toString());
            break;
        case QXmlStreamReader::ProcessingInstruction:
            writer.writeProcessingInstruction(reader.processingInstructionTarget().toString(),
                                              reader.processingInstructionData().toString());
            break;
        case QXmlStreamReader::DTD:
            writer.writeDTD(reader.text().toString());
            break;
        case QXmlStreamReader::EntityReference:
            writer.writeEntityReference(reader.name().toString());
            break;
        default:
            break;
        }
    }
    if (reader.hasError() || !sawRdf || !written) {
        return {};
    }
    return result;
}

} // namespace Engine
