#include "profiles.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>

#include <cmath>
#include <type_traits>

namespace Profiles {

namespace {

const QString toolKey = QStringLiteral("tool");
const QString versionKey = QStringLiteral("version");
const QString settingsKey = QStringLiteral("settings");

void setError(QString *error, const QString &text)
{
    if (error) {
        *error = text;
    }
}

bool readString(const QJsonObject &json, const QString &key, QString &value, QString *error)
{
    const auto it = json.find(key);
    if (it == json.end()) {
        return true;
    }
    if (!it->isString()) {
        setError(error, QStringLiteral("\"%1\" is not a text").arg(key));
        return false;
    }
    value = it->toString();
    return true;
}

bool readNumber(const QJsonObject &json, const QString &key, double &value, QString *error)
{
    const auto it = json.find(key);
    if (it == json.end()) {
        return true;
    }
    if (!it->isDouble()) {
        setError(error, QStringLiteral("\"%1\" is not a number").arg(key));
        return false;
    }
    value = it->toDouble();
    return true;
}

bool readBool(const QJsonObject &json, const QString &key, bool &value, QString *error)
{
    const auto it = json.find(key);
    if (it == json.end()) {
        return true;
    }
    if (!it->isBool()) {
        setError(error, QStringLiteral("\"%1\" is neither true nor false").arg(key));
        return false;
    }
    value = it->toBool();
    return true;
}

// The keys of a watermark profile and the settings they hold.
template <typename Settings, typename Visit> void visitWatermarkKeys(Settings &s, Visit &&visit)
{
    visit(QStringLiteral("text"), s.text);
    visit(QStringLiteral("font"), s.font);
    visit(QStringLiteral("size"), s.size);
    visit(QStringLiteral("color"), s.color);
    visit(QStringLiteral("textOpacity"), s.textOpacity);
    visit(QStringLiteral("textPosition"), s.textPosition);
    visit(QStringLiteral("textOffsetX"), s.textOffsetX);
    visit(QStringLiteral("textOffsetY"), s.textOffsetY);
    visit(QStringLiteral("shadow"), s.shadow);
    visit(QStringLiteral("stroke"), s.stroke);
    visit(QStringLiteral("image"), s.image);
    visit(QStringLiteral("scale"), s.scale);
    visit(QStringLiteral("imageOpacity"), s.imageOpacity);
    visit(QStringLiteral("rotation"), s.rotation);
    visit(QStringLiteral("imagePosition"), s.imagePosition);
    visit(QStringLiteral("imageOffsetX"), s.imageOffsetX);
    visit(QStringLiteral("imageOffsetY"), s.imageOffsetY);
    visit(QStringLiteral("pagesEnabled"), s.pagesEnabled);
    visit(QStringLiteral("pages"), s.pages);
    visit(QStringLiteral("nameTemplate"), s.nameTemplate);
    visit(QStringLiteral("folder"), s.folder);
}

} // namespace

std::optional<QJsonObject> read(const QString &path, const QString &tool, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        setError(error,
                 QStringLiteral("cannot read the profile %1: %2").arg(path, file.errorString()));
        return std::nullopt;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        setError(error, QStringLiteral("the profile %1 is not a profile file").arg(path));
        return std::nullopt;
    }
    const QJsonObject root = document.object();
    if (root.value(toolKey).toString() != tool || !root.value(settingsKey).isObject()) {
        setError(error, QStringLiteral("the profile %1 does not hold %2 settings").arg(path, tool));
        return std::nullopt;
    }
    return root.value(settingsKey).toObject();
}

bool write(const QString &path, const QString &tool, const QJsonObject &settings, QString *error)
{
    QJsonObject root;
    root.insert(toolKey, tool);
    root.insert(versionKey, 1);
    root.insert(settingsKey, settings);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(root).toJson()) < 0
        || !file.commit()) {
        setError(error,
                 QStringLiteral("cannot write the profile %1: %2").arg(path, file.errorString()));
        return false;
    }
    return true;
}

QJsonObject SplitSettings::toJson() const
{
    QJsonObject json;
    json.insert(QStringLiteral("mode"),
                mode == Naming::SplitMode::Consecutive ? QStringLiteral("consecutive")
                                                       : QStringLiteral("intervals"));
    json.insert(QStringLiteral("pagesPerInterval"), double(pagesPerInterval));
    json.insert(QStringLiteral("expression"), expression);
    json.insert(QStringLiteral("nameTemplate"), nameTemplate);
    json.insert(QStringLiteral("folder"), folder);
    return json;
}

std::optional<SplitSettings> SplitSettings::fromJson(const QJsonObject &json, QString *error)
{
    SplitSettings settings;
    QString mode = QStringLiteral("consecutive");
    if (!readString(json, QStringLiteral("mode"), mode, error)
        || !readString(json, QStringLiteral("expression"), settings.expression, error)
        || !readString(json, QStringLiteral("nameTemplate"), settings.nameTemplate, error)
        || !readString(json, QStringLiteral("folder"), settings.folder, error)) {
        return std::nullopt;
    }
    if (mode == QLatin1String("consecutive")) {
        settings.mode = Naming::SplitMode::Consecutive;
    } else if (mode == QLatin1String("intervals")) {
        settings.mode = Naming::SplitMode::Intervals;
    } else {
        setError(error, QStringLiteral("\"mode\" is neither \"consecutive\" nor \"intervals\""));
        return std::nullopt;
    }
    const auto pages = json.find(QStringLiteral("pagesPerInterval"));
    if (pages != json.end()) {
        if (!pages->isDouble()) {
            setError(error, QStringLiteral("\"pagesPerInterval\" is not a number"));
            return std::nullopt;
        }
        settings.pagesPerInterval = qint64(std::trunc(pages->toDouble()));
    }
    return settings;
}

QJsonObject PropertiesSettings::toJson() const
{
    QJsonObject json;
    json.insert(QStringLiteral("title"), title);
    json.insert(QStringLiteral("author"), author);
    json.insert(QStringLiteral("subject"), subject);
    json.insert(QStringLiteral("keywords"), keywords);
    return json;
}

std::optional<PropertiesSettings> PropertiesSettings::fromJson(const QJsonObject &json,
                                                               QString *error)
{
    PropertiesSettings settings;
    if (!readString(json, QStringLiteral("title"), settings.title, error)
        || !readString(json, QStringLiteral("author"), settings.author, error)
        || !readString(json, QStringLiteral("subject"), settings.subject, error)
        || !readString(json, QStringLiteral("keywords"), settings.keywords, error)) {
        return std::nullopt;
    }
    return settings;
}

QJsonObject WatermarkSettings::toJson() const
{
    QJsonObject json;
    visitWatermarkKeys(*this, [&](const QString &key, const auto &value) {
        if constexpr (std::is_same_v<std::decay_t<decltype(value)>, qint64>) {
            json.insert(key, double(value));
        } else {
            json.insert(key, value);
        }
    });
    return json;
}

std::optional<WatermarkSettings> WatermarkSettings::fromJson(const QJsonObject &json,
                                                             QString *error)
{
    WatermarkSettings settings;
    bool ok = true;
    visitWatermarkKeys(settings, [&](const QString &key, auto &value) {
        using Value = std::decay_t<decltype(value)>;
        if (!ok) {
            return;
        }
        if constexpr (std::is_same_v<Value, QString>) {
            ok = readString(json, key, value, error);
        } else if constexpr (std::is_same_v<Value, bool>) {
            ok = readBool(json, key, value, error);
        } else if constexpr (std::is_same_v<Value, qint64>) {
            double number = double(value);
            ok = readNumber(json, key, number, error);
            // A position outside the list draws nothing, as in the engine.
            value = std::isfinite(number) ? qint64(std::trunc(number)) : -1;
        } else {
            ok = readNumber(json, key, value, error);
        }
    });
    if (!ok) {
        return std::nullopt;
    }
    return settings;
}

} // namespace Profiles
