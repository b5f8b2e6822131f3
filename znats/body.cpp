// SPDX-License-Identifier: Apache-2.0
#include "body.h"

#include <QJsonDocument>

namespace {

const QString inKey = QStringLiteral("in");
const QString outKey = QStringLiteral("out");

/// False if there is something else than an object, or null.
bool read(const QJsonObject &object, const QString &key, std::optional<QJsonObject> *value)
{
    const QJsonValue found = object.value(key);
    if (found.isObject())
        *value = found.toObject();
    return found.isObject() || found.isUndefined() || found.isNull();
}

} // namespace

QByteArray Body::encode() const
{
    QJsonObject object;
    if (in)
        object.insert(inKey, *in);
    if (out)
        object.insert(outKey, *out);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<Body> Body::decode(const QByteArray &bytes)
{
    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    const QJsonObject object = document.object();
    Body body;
    if (!document.isObject() || !read(object, inKey, &body.in) || !read(object, outKey, &body.out))
        return {};
    return body;
}
