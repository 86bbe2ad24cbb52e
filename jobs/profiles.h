#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <initializer_list>
#include <optional>

// Settings profiles: a tool's settings in a small JSON file, written by a window's Save Profile
// and read by its Load Profile and by the command line's --profile:
//     {"tool": "split", "version": 1, "settings": {"mode": "intervals", ...}}
// The file names its tool, so that a crop profile is not taken for a split one. A settings type
// lists its keys once (Settings::visit); everything here works from that list.
namespace Jobs::Profiles {

inline constexpr int FormatVersion = 1;

// The settings object of a profile file of tool, or nothing with the reason in error (missing,
// unreadable, not JSON, another tool's profile). A newer format version is read as far as it is
// understood.
std::optional<QJsonObject> readFile(const QString &path, const QString &tool, QString *error);
// Writes the file through a temporary file beside it; false with the reason in error.
bool writeFile(const QString &path,
               const QString &tool,
               const QJsonObject &settings,
               QString *error);

// Reads one setting of a JSON object: a missing key keeps the value; a value of the wrong type
// (or a number out of range) fails, naming the key in error.
bool readValue(const QJsonObject &json, const QString &key, QString &value, QString *error);
bool readValue(const QJsonObject &json, const QString &key, double &value, QString *error);
bool readValue(const QJsonObject &json, const QString &key, qint64 &value, QString *error);
bool readValue(const QJsonObject &json, const QString &key, bool &value, QString *error);
// A choice stored as one of names; index is its position there.
bool readChoice(const QJsonObject &json,
                const QString &key,
                int &index,
                std::initializer_list<const char *> names,
                QString *error);

// Writes the settings that visit() names into a JSON object.
struct JsonWriter
{
    QJsonObject &json;
    void operator()(const char *key, const QString &value)
    {
        json.insert(QLatin1String(key), value);
    }
    void operator()(const char *key, double value) { json.insert(QLatin1String(key), value); }
    void operator()(const char *key, qint64 value)
    {
        json.insert(QLatin1String(key), double(value));
    }
    void operator()(const char *key, bool value) { json.insert(QLatin1String(key), value); }
    template <typename Choice>
    void operator()(const char *key, Choice value, std::initializer_list<const char *> names)
    {
        json.insert(QLatin1String(key), QLatin1String(names.begin()[int(value)]));
    }
};

// Reads the settings that visit() names from a JSON object, listing the keys it knows.
struct JsonReader
{
    const QJsonObject &json;
    QString *error;
    QStringList &known;
    bool &ok;
    template <typename Value> void operator()(const char *key, Value &value)
    {
        known << QLatin1String(key);
        ok = ok && readValue(json, QLatin1String(key), value, error);
    }
    template <typename Choice>
    void operator()(const char *key, Choice &value, std::initializer_list<const char *> names)
    {
        known << QLatin1String(key);
        int index = int(value);
        ok = ok && readChoice(json, QLatin1String(key), index, names, error);
        value = Choice(index);
    }
};

template <typename Settings> QJsonObject toJson(Settings settings)
{
    QJsonObject json;
    settings.visit(JsonWriter{json});
    return json;
}

// The settings of a JSON object: keys that are missing keep their defaults, keys that are not
// the settings' are left out and listed in skipped; a value of the wrong type is an error.
template <typename Settings>
std::optional<Settings>
fromJson(const QJsonObject &json, QString *error, QStringList *skipped = nullptr)
{
    Settings settings;
    QStringList known;
    bool ok = true;
    settings.visit(JsonReader{json, error, known, ok});
    if (!ok) {
        return std::nullopt;
    }
    if (skipped) {
        for (auto it = json.begin(); it != json.end(); ++it) {
            if (!known.contains(it.key())) {
                *skipped << it.key();
            }
        }
    }
    return settings;
}

// The settings of a profile file of their tool; nothing with the reason in error.
template <typename Settings>
std::optional<Settings> read(const QString &path, QString *error, QStringList *skipped = nullptr)
{
    const auto json = readFile(path, QLatin1String(Settings::Tool), error);
    if (!json) {
        return std::nullopt;
    }
    QString reason;
    auto settings = fromJson<Settings>(*json, &reason, skipped);
    if (!settings && error) {
        *error = QStringLiteral("the profile %1: %2").arg(path, reason);
    }
    return settings;
}

template <typename Settings>
bool write(const QString &path, const Settings &settings, QString *error)
{
    return writeFile(path, QLatin1String(Settings::Tool), toJson(settings), error);
}

} // namespace Jobs::Profiles
