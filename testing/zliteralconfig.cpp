// SPDX-License-Identifier: Apache-2.0
#include "zliteralconfig.h"

#include <QJsonDocument>
#include <QJsonParseError>

namespace {

QJsonObject parsed(const QByteArray &json, const ZTestPlace &place)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (document.isNull())
        place.fail(QStringLiteral("This configuration is no JSON: %1, at byte %2: %3")
                       .arg(error.errorString())
                       .arg(error.offset)
                       .arg(QString::fromUtf8(json)));
    else if (!document.isObject())
        place.fail(QStringLiteral("This configuration is no JSON object: %1").arg(QString::fromUtf8(json)));
    return document.object();
}

} // namespace

ZLiteralConfig::ZLiteralConfig(const QJsonObject &object) : m_object(object) {}

ZLiteralConfig::ZLiteralConfig(const char *json, const ZTestPlace &place) : m_object(parsed(json, place)) {}

ZLiteralConfig::~ZLiteralConfig() = default;

QJsonObject ZLiteralConfig::toJson0() { return m_object; }
