// The XMP packet editor, any bytes as the document's packet: it refuses (empty) or gives a
// packet that it can read and edit again, holding the values it was asked to set.

#include "engine/xmp.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray packet(reinterpret_cast<const char *>(data), qsizetype(size));
    Engine::XmpProperties values;
    values.title = QStringLiteral("Title <&> \"quoted\"");
    values.author = QStringLiteral("Ann");
    values.keywords = QStringLiteral("a, b");
    const QByteArray updated = Engine::updatedXmp(packet, values);
    if (updated.isEmpty()) {
        return 0;
    }
    if (!updated.contains("Title &lt;&amp;&gt;") && !updated.contains("Title <&>")) {
        std::abort();
    }
    // What it wrote, it reads.
    values.title = QStringLiteral("Again");
    if (Engine::updatedXmp(updated, values).isEmpty()) {
        std::abort();
    }
    return 0;
}
