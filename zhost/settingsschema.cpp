// SPDX-License-Identifier: Apache-2.0
#include "settingsschema.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace {

const struct
{
    const char *name;
    const char *words; // for people
    bool (*isIt)(const QJsonValue &value);
} types[] = {
    {"object", "an object", [](const QJsonValue &value) { return value.isObject(); }},
    {"array", "an array", [](const QJsonValue &value) { return value.isArray(); }},
    {"string", "a text", [](const QJsonValue &value) { return value.isString(); }},
    {"number", "a number", [](const QJsonValue &value) { return value.isDouble(); }},
    {"integer", "a whole number",
     [](const QJsonValue &value) { return value.isDouble() && std::trunc(value.toDouble()) == value.toDouble(); }},
    {"boolean", "true or false", [](const QJsonValue &value) { return value.isBool(); }},
    {"null", "null", [](const QJsonValue &value) { return value.isNull(); }}};

bool isType(const QJsonValue &name)
{
    return std::any_of(std::begin(types), std::end(types),
                       [&](const auto &type) { return name.toString() == QLatin1String(type.name); });
}

/// One type, or several.
QJsonArray typesOf(const QJsonValue &value) { return value.isArray() ? value.toArray() : QJsonArray{value}; }

QString spelt(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

QString speltAll(const QJsonArray &values)
{
    QStringList all;
    for (const auto &value : values)
        all.append(spelt(value));
    return all.join(QStringLiteral(", "));
}

QString memberOf(const QString &path, const QString &key) { return path + QLatin1Char('.') + key; }

bool isComment(const QString &key) { return key.startsWith(QLatin1Char('#')); }

bool isSchemas(const QJsonValue &value)
{
    const QJsonObject schemas = value.toObject();
    return value.isObject() &&
           std::all_of(schemas.begin(), schemas.end(), [](const QJsonValue &schema) { return schema.isObject(); });
}

bool isTexts(const QJsonValue &value)
{
    const QJsonArray array = value.toArray();
    return value.isArray() &&
           std::all_of(array.begin(), array.end(), [](const QJsonValue &element) { return element.isString(); });
}

bool isTypes(const QJsonValue &value)
{
    const QJsonArray array = typesOf(value);
    return !array.isEmpty() && std::all_of(array.begin(), array.end(), isType);
}

bool isPattern(const QJsonValue &value) { return value.isString() && QRegularExpression(value.toString()).isValid(); }

bool isAnything(const QJsonValue &) { return true; }

const struct
{
    const char *name;
    bool (*isRight)(const QJsonValue &value);
} keywords[] = {{"type", isTypes},
                {"enum", [](const QJsonValue &value) { return value.isArray(); }},
                {"minimum", [](const QJsonValue &value) { return value.isDouble(); }},
                {"maximum", [](const QJsonValue &value) { return value.isDouble(); }},
                {"pattern", isPattern},
                {"items", [](const QJsonValue &value) { return value.isObject(); }},
                {"required", isTexts},
                {"properties", isSchemas},
                {"additionalProperties", [](const QJsonValue &value) { return value.isBool(); }},
                {"$schema", isAnything},
                {"$comment", isAnything},
                {"title", isAnything},
                {"description", isAnything},
                {"default", isAnything},
                {"examples", isAnything}};

/// Goes through a value and its schema.
class Check
{
public:
    QVector<Finding> findings;

    void value(const QJsonValue &value, const QJsonObject &schema, const QString &path)
    {
        if (schema.contains(QLatin1String("type")) && !isOfType(value, schema.value(QLatin1String("type")), path))
            return; // the other checks would report the same
        const QJsonArray choices = schema.value(QLatin1String("enum")).toArray();
        if (schema.contains(QLatin1String("enum")) && !choices.contains(value))
            return problem(path, QStringLiteral("must be one of %1").arg(speltAll(choices)));
        if (value.isDouble())
            number(value.toDouble(), schema, path);
        if (value.isString())
            text(value.toString(), schema, path);
        if (value.isArray())
            array(value.toArray(), schema.value(QLatin1String("items")).toObject(), path);
        if (value.isObject())
            object(value.toObject(), schema, path);
    }

private:
    void problem(const QString &path, const QString &text) { findings.append({path, text, Finding::Wrong}); }

    bool isOfType(const QJsonValue &value, const QJsonValue &wanted, const QString &path)
    {
        QStringList words;
        const QJsonArray names = typesOf(wanted);
        for (const auto &type : types) {
            if (!names.contains(QLatin1String(type.name)))
                continue;
            if (type.isIt(value))
                return true;
            words.append(QLatin1String(type.words));
        }
        problem(path, QStringLiteral("must be %1").arg(words.join(QStringLiteral(", or "))));
        return false;
    }

    void number(double number, const QJsonObject &schema, const QString &path)
    {
        const QJsonValue least = schema.value(QLatin1String("minimum"));
        const QJsonValue most = schema.value(QLatin1String("maximum"));
        if (number < least.toDouble(number))
            problem(path, QStringLiteral("must not be below %1").arg(spelt(least)));
        if (number > most.toDouble(number))
            problem(path, QStringLiteral("must not be above %1").arg(spelt(most)));
    }

    void text(const QString &text, const QJsonObject &schema, const QString &path)
    {
        const QString pattern = schema.value(QLatin1String("pattern")).toString();
        if (!pattern.isEmpty() && !QRegularExpression(pattern).match(text).hasMatch())
            problem(path, QStringLiteral("must match %1").arg(pattern));
    }

    void array(const QJsonArray &array, const QJsonObject &schema, const QString &path)
    {
        for (int i = 0; i < array.size(); ++i)
            value(array.at(i), schema, QStringLiteral("%1[%2]").arg(path, QString::number(i)));
    }

    void object(const QJsonObject &object, const QJsonObject &schema, const QString &path)
    {
        const QJsonArray required = schema.value(QLatin1String("required")).toArray();
        for (const auto &key : required) {
            if (!object.contains(key.toString()))
                problem(memberOf(path, key.toString()), QStringLiteral("is missing"));
        }
        const QJsonObject known = schema.value(QLatin1String("properties")).toObject();
        const bool isClosed = schema.value(QLatin1String("additionalProperties")) == false;
        for (auto entry = object.begin(); entry != object.end(); ++entry) {
            const QString member = memberOf(path, entry.key());
            if (known.contains(entry.key()))
                value(entry.value(), known.value(entry.key()).toObject(), member);
            else if (isClosed && !isComment(entry.key()))
                problem(member,
                        QStringLiteral("is not known; known are: %1").arg(known.keys().join(QStringLiteral(", "))));
        }
    }
};

void addFaults(const QJsonObject &schema, const QString &path, QVector<Finding> *faults)
{
    for (auto entry = schema.begin(); entry != schema.end(); ++entry) {
        const auto keyword = std::find_if(std::begin(keywords), std::end(keywords),
                                          [&](const auto &each) { return entry.key() == QLatin1String(each.name); });
        if (keyword == std::end(keywords))
            faults->append({path, QStringLiteral("its schema has \"%1\", which is not understood").arg(entry.key()),
                            Finding::Wrong});
        else if (!keyword->isRight(entry.value()))
            faults->append(
                {path, QStringLiteral("its schema has a \"%1\" that is of no use").arg(entry.key()), Finding::Wrong});
    }
    const QJsonObject properties = schema.value(QLatin1String("properties")).toObject();
    for (auto property = properties.begin(); property != properties.end(); ++property)
        addFaults(property.value().toObject(), memberOf(path, property.key()), faults);
    if (schema.contains(QLatin1String("items")))
        addFaults(schema.value(QLatin1String("items")).toObject(), path + QStringLiteral("[]"), faults);
}

} // namespace

QByteArray SettingsSchema::textOf(const QString &file)
{
    constexpr qint64 MaxSize = 1 << 20;
    QFile in(file);
    return QFileInfo(file).isFile() && in.open(QIODevice::ReadOnly) ? in.read(MaxSize) : QByteArray();
}

QString SettingsSchema::unreadable(const QString &file)
{
    return QStringLiteral("its schema %1 cannot be read, or is no JSON object").arg(file);
}

std::optional<SettingsSchema> SettingsSchema::read(const QByteArray &text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text);
    return document.isObject() ? std::optional<SettingsSchema>(document.object()) : std::nullopt;
}

QVector<Finding> SettingsSchema::faults(const QString &path) const
{
    QVector<Finding> result;
    addFaults(m_schema, path, &result);
    return result;
}

QVector<Finding> SettingsSchema::check(const QJsonValue &value, const QString &path) const
{
    Check check;
    check.value(value, m_schema, path);
    return check.findings;
}
