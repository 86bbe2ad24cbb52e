// The profile reader, every tool's settings from any bytes: it refuses or reads, and what it
// reads is written back and read again to the same settings.

#include "jobs/cropsettings.h"
#include "jobs/profiles.h"
#include "jobs/propertiessettings.h"
#include "jobs/splitsettings.h"
#include "jobs/watermarksettings.h"

#include <QJsonDocument>

#include <cstdint>
#include <cstdlib>

namespace {

template <typename Settings> void roundTrip(const QJsonObject &json)
{
    QString error;
    QStringList skipped;
    const auto read = Jobs::Profiles::fromJson<Settings>(json, &error, &skipped);
    if (!read) {
        if (error.isEmpty()) {
            std::abort(); // a refusal says why
        }
        return;
    }
    const QJsonObject written = Jobs::Profiles::toJson(*read);
    const auto again = Jobs::Profiles::fromJson<Settings>(written, &error);
    if (!again || Jobs::Profiles::toJson(*again) != written) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QJsonDocument document = QJsonDocument::fromJson(
        QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size)));
    if (!document.isObject()) {
        return 0;
    }
    const QJsonObject json = document.object();
    roundTrip<Jobs::SplitSettings>(json);
    roundTrip<Jobs::CropSettings>(json);
    roundTrip<Jobs::WatermarkSettings>(json);
    roundTrip<Jobs::PropertiesSettings>(json);
    return 0;
}
