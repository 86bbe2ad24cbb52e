#pragma once

#include "naming/outputnames.h"

#include <QJsonObject>
#include <QString>

#include <optional>

// Settings profiles: a tool window's settings in a small JSON file, written by the window's
// Save Profile and read by the window's Load Profile and by the command line's --profile.
// The file names its tool, so a crop profile is not taken for a split one.
namespace Profiles {

// The settings of the file, or nothing with the reason in error (missing, unreadable, not JSON,
// another tool's profile).
std::optional<QJsonObject> read(const QString &path, const QString &tool, QString *error);
// Writes the file through a temporary file beside it; false with the reason in error.
bool write(const QString &path, const QString &tool, const QJsonObject &settings, QString *error);

// The Split window's settings.
struct SplitSettings
{
    Naming::SplitMode mode = Naming::SplitMode::Consecutive;
    qint64 pagesPerInterval = 1;
    QString expression = QStringLiteral("[1-4],5,[6-9]");
    QString nameTemplate = QStringLiteral("[FileName](Page[IntervalIndex])");
    QString folder;

    QJsonObject toJson() const;
    // Keys that are missing keep their defaults; a key of the wrong type is an error.
    static std::optional<SplitSettings> fromJson(const QJsonObject &json, QString *error);
};

inline constexpr auto SplitTool = "split";

// The Edit PDF Properties window's four templates.
struct PropertiesSettings
{
    QString title = QStringLiteral("[FileName]");
    QString author = QStringLiteral("[Original]");
    QString subject = QStringLiteral("[Original]");
    QString keywords = QStringLiteral("[Original]");

    QJsonObject toJson() const;
    // Keys that are missing keep their defaults; a key of the wrong type is an error.
    static std::optional<PropertiesSettings> fromJson(const QJsonObject &json, QString *error);
};

inline constexpr auto PropertiesTool = "properties";

// The Watermark window's settings, in the window's units: points, percent, degrees, position
// codes 0 to 4.
struct WatermarkSettings
{
    QString text = QStringLiteral("Copyright ©");
    QString font = QStringLiteral("Arial"); // as the font list names it
    double size = 30;
    QString color = QStringLiteral("#000000");
    double textOpacity = 70;
    qint64 textPosition = 0;
    double textOffsetX = 0;
    double textOffsetY = 0;
    bool shadow = false;
    bool stroke = false;
    QString image; // empty: no picture
    double scale = 100;
    double imageOpacity = 70;
    double rotation = 0;
    qint64 imagePosition = 1;
    double imageOffsetX = 0;
    double imageOffsetY = 0;
    bool pagesEnabled = false;
    QString pages = QStringLiteral("[1-3],5,[7-9]");
    QString nameTemplate = QStringLiteral("[FileName]_Watermarked");
    QString folder;

    QJsonObject toJson() const;
    // Keys that are missing keep their defaults; a key of the wrong type is an error.
    static std::optional<WatermarkSettings> fromJson(const QJsonObject &json, QString *error);
};

inline constexpr auto WatermarkTool = "watermark";

} // namespace Profiles
