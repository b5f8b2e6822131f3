// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "finding.h"

#include <QJsonObject>
#include <QString>
#include <QVector>

#include <optional>

class QByteArray;

/**
 * A schema for a plugin's settings: the part of JSON Schema that settings need. That is "type", "enum", "minimum",
 * "maximum", "pattern", "items", "required", "properties", "additionalProperties" as true or false, and keywords for
 * people, such as "title". Any other keyword is reported, since it would check nothing.
 */
class SettingsSchema
{
public:
    explicit SettingsSchema(const QJsonObject &schema) : m_schema(schema) {}

    /// The name of the file that has the schema of `plugin`.
    static QString fileOf(const QString &plugin) { return QStringLiteral("lib%1.schema.json").arg(plugin); }
    /// What is in `file`, but no more than a schema may have; nothing if it is no file, or cannot be read.
    static QByteArray textOf(const QString &file);
    /// Nothing if `text` is not a JSON object.
    static std::optional<SettingsSchema> read(const QByteArray &text);
    /// Says that nothing has been read from `file`.
    static QString unreadable(const QString &file);

    /// What is wrong with the schema itself; `path` is where it applies.
    QVector<Finding> faults(const QString &path) const;
    /// What is wrong with `value`, which is at `path`.
    QVector<Finding> check(const QJsonValue &value, const QString &path) const;

private:
    const QJsonObject m_schema;
};
