#include "profiles.h"

#include "numbers.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>

#include <cmath>

namespace Jobs::Profiles {

namespace {

const QString toolKey = QStringLiteral("tool");
const QString versionKey = QStringLiteral("version");
const QString settingsKey = QStringLiteral("settings");

bool fail(QString *error, const QString &text)
{
    if (error) {
        *error = text;
    }
    return false;
}

} // namespace

std::optional<QJsonObject> readFile(const QString &path, const QString &tool, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        fail(error, QStringLiteral("cannot read the profile %1: %2").arg(path, file.errorString()));
        return std::nullopt;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        fail(error, QStringLiteral("the profile %1 is not a profile file").arg(path));
        return std::nullopt;
    }
    const QJsonObject root = document.object();
    if (root.value(toolKey).toString() != tool || !root.value(settingsKey).isObject()) {
        fail(error, QStringLiteral("the profile %1 does not hold %2 settings").arg(path, tool));
        return std::nullopt;
    }
    return root.value(settingsKey).toObject();
}

bool writeFile(const QString &path,
               const QString &tool,
               const QJsonObject &settings,
               QString *error)
{
    QJsonObject root;
    root.insert(toolKey, tool);
    root.insert(versionKey, FormatVersion);
    root.insert(settingsKey, settings);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(root).toJson()) < 0
        || !file.commit()) {
        return fail(
            error, QStringLiteral("cannot write the profile %1: %2").arg(path, file.errorString()));
    }
    return true;
}

bool readValue(const QJsonObject &json, const QString &key, QString &value, QString *error)
{
    const auto it = json.find(key);
    if (it == json.end()) {
        return true;
    }
    if (!it->isString()) {
        return fail(error, QStringLiteral("\"%1\" is not a text").arg(key));
    }
    value = it->toString();
    return true;
}

bool readValue(const QJsonObject &json, const QString &key, double &value, QString *error)
{
    const auto it = json.find(key);
    if (it == json.end()) {
        return true;
    }
    if (!it->isDouble()) {
        return fail(error, QStringLiteral("\"%1\" is not a number").arg(key));
    }
    value = it->toDouble();
    return true;
}

bool readValue(const QJsonObject &json, const QString &key, qint64 &value, QString *error)
{
    double number = double(value);
    if (!readValue(json, key, number, error)) {
        return false;
    }
    // The whole-number part, as a window reads its field; one that no count can reach is an
    // error rather than a number that wraps around.
    const auto whole = wholeNumber(number);
    if (!whole) {
        return fail(error, QStringLiteral("\"%1\" is out of range").arg(key));
    }
    value = *whole;
    return true;
}

bool readValue(const QJsonObject &json, const QString &key, bool &value, QString *error)
{
    const auto it = json.find(key);
    if (it == json.end()) {
        return true;
    }
    if (!it->isBool()) {
        return fail(error, QStringLiteral("\"%1\" is neither true nor false").arg(key));
    }
    value = it->toBool();
    return true;
}

bool readChoice(const QJsonObject &json,
                const QString &key,
                int &index,
                std::initializer_list<const char *> names,
                QString *error)
{
    QString text;
    if (!json.contains(key)) {
        return true;
    }
    if (!readValue(json, key, text, error)) {
        return false;
    }
    QStringList choices;
    for (const char *name : names) {
        choices << QStringLiteral("\"%1\"").arg(QLatin1String(name));
    }
    const qsizetype found = choices.indexOf(QStringLiteral("\"%1\"").arg(text));
    if (found < 0) {
        return fail(
            error,
            QStringLiteral("\"%1\" is none of %2").arg(key, choices.join(QStringLiteral(", "))));
    }
    index = int(found);
    return true;
}

} // namespace Jobs::Profiles
