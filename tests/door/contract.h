// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QStringList>

/// The door's contract, as far as it makes use of OpenAPI.
class Contract
{
public:
    explicit Contract(QJsonObject document) : m_document(std::move(document)) {}

    QJsonObject paths() const { return m_document.value(QStringLiteral("paths")).toObject(); }

    /// What `place` stands for, where it refers to something else.
    QJsonObject resolved(const QJsonObject &place) const
    {
        QJsonObject result = m_document;
        const QString reference = place.value(QStringLiteral("$ref")).toString();
        if (reference.isEmpty())
            return place;
        for (const QString &part : reference.mid(2).split(QLatin1Char('/')))
            result = result.value(part).toObject();
        return result;
    }

    /// Why `value` is not what `schema` says, by its path; empty if it is. A key that is not named is one reason.
    QString whyNot(const QJsonValue &value, const QJsonObject &reference, const QString &path = {}) const
    {
        const QJsonObject schema = resolved(reference);
        if (schema.contains(QStringLiteral("enum")))
            return schema.value(QStringLiteral("enum")).toArray().contains(value)
                       ? QString()
                       : path + QStringLiteral(": not listed");
        const QString type = schema.value(QStringLiteral("type")).toString();
        if (typeOf(value, type) != type)
            return path + QStringLiteral(": not of the type \"%1\"").arg(type);
        if (schema.value(QStringLiteral("format")) == QLatin1String("date-time") &&
            QDateTime::fromString(value.toString(), Qt::ISODateWithMs).timeSpec() != Qt::UTC)
            return path + QStringLiteral(": no time in UTC");
        if (value.toDouble() < schema.value(QStringLiteral("minimum")).toDouble(value.toDouble()) ||
            value.toDouble() > schema.value(QStringLiteral("maximum")).toDouble(value.toDouble()))
            return path + QStringLiteral(": out of its range");
        return type == QLatin1String("array") ? whyNotElements(value.toArray(), schema, path)
                                              : whyNotKeys(value.toObject(), schema, path);
    }

private:
    static QString typeOf(const QJsonValue &value, const QString &wanted)
    {
        switch (value.type()) {
        case QJsonValue::Bool:
            return QStringLiteral("boolean");
        case QJsonValue::Double:
            return wanted == QLatin1String("integer") && value.toDouble() == double(qint64(value.toDouble()))
                       ? wanted
                       : QStringLiteral("number");
        case QJsonValue::String:
            return QStringLiteral("string");
        case QJsonValue::Array:
            return QStringLiteral("array");
        case QJsonValue::Object:
            return QStringLiteral("object");
        default:
            return QStringLiteral("null");
        }
    }
    QString whyNotElements(const QJsonArray &array, const QJsonObject &schema, const QString &path) const
    {
        for (int i = 0; i < array.size(); ++i) {
            const QString reason = whyNot(array[i], schema.value(QStringLiteral("items")).toObject(),
                                          path + QStringLiteral("[%1]").arg(i));
            if (!reason.isEmpty())
                return reason;
        }
        return {};
    }
    QString whyNotKeys(const QJsonObject &object, const QJsonObject &schema, const QString &path) const
    {
        const QJsonArray required = schema.value(QStringLiteral("required")).toArray();
        for (const auto &key : required) {
            if (!object.contains(key.toString()))
                return path + QStringLiteral(": no \"%1\"").arg(key.toString());
        }
        const QJsonObject properties = schema.value(QStringLiteral("properties")).toObject();
        const QJsonValue others = schema.value(QStringLiteral("additionalProperties"));
        if (properties.isEmpty() && !others.isObject()) // any object
            return {};
        for (auto key = object.begin(); key != object.end(); ++key) {
            if (!properties.contains(key.key()) && !others.isObject())
                return path + QStringLiteral(": \"%1\" is not named").arg(key.key());
            const QJsonValue property = properties.contains(key.key()) ? properties.value(key.key()) : others;
            const QString reason = whyNot(*key, property.toObject(), path + QLatin1Char('/') + key.key());
            if (!reason.isEmpty())
                return reason;
        }
        return {};
    }

    const QJsonObject m_document;
};
