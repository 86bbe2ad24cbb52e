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

} // namespace Profiles
