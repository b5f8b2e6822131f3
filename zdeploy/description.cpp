// SPDX-License-Identifier: Apache-2.0
#include "description.h"

#include "serviceinterfaces.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaProperty>

namespace {

const QString Class = QStringLiteral("class");
const QString Name = QStringLiteral("property");
const QString Type = QStringLiteral("type");
const QString Interface = QStringLiteral("interface");
const QString Known = QStringLiteral("known");
const QString Writable = QStringLiteral("writable");
const QString Unlisted = QStringLiteral("unlisted");
const QString Serves = QStringLiteral("serves");

/// The interface for which a property of this type asks; null if it asks for none. An interface is no `QObject`.
QString interfaceOf(int type, const QString &name)
{
    const bool isInterface = type >= QMetaType::User && name.endsWith(QLatin1Char('*')) &&
                             !QMetaType::typeFlags(type).testFlag(QMetaType::PointerToQObject);
    return isInterface ? name.chopped(1) : QString();
}

Description::Property describe(const QMetaProperty &property)
{
    const QString type = QString::fromUtf8(property.typeName());
    const int id = property.userType();
    return {QString::fromUtf8(property.name()), type, interfaceOf(id, type), id != QMetaType::UnknownType,
            property.isWritable()};
}

QString line(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

} // namespace

Description Description::of(QObject *root)
{
    Description result;
    const QMetaObject *metaObject = root->metaObject();
    result.className = QString::fromUtf8(metaObject->className());
    for (int i = QObject::staticMetaObject.propertyCount(); i < metaObject->propertyCount(); ++i)
        result.properties.append(describe(metaObject->property(i)));
    result.unlisted = unlistedInterfaces(root);
    return result;
}

QStringList Description::toLines() const
{
    QStringList lines;
    if (!className.isEmpty())
        lines.append(line({{Class, className}}));
    for (const Property &property : properties)
        lines.append(line({{Name, property.name},
                           {Type, property.type},
                           {Interface, property.interface},
                           {Known, property.isKnown},
                           {Writable, property.isWritable}}));
    for (const QString &interface : unlisted)
        lines.append(line({{Unlisted, interface}}));
    for (const QString &interface : serves)
        lines.append(line({{Serves, interface}}));
    return lines;
}

Description Description::fromLines(const QStringList &lines)
{
    Description result;
    for (const QString &line : lines) {
        const QJsonObject object = QJsonDocument::fromJson(line.toUtf8()).object();
        if (object.contains(Class))
            result.className = object.value(Class).toString();
        if (object.contains(Name))
            result.properties.append({object.value(Name).toString(), object.value(Type).toString(),
                                      object.value(Interface).toString(), object.value(Known).toBool(),
                                      object.value(Writable).toBool()});
        if (object.contains(Unlisted))
            result.unlisted.append(object.value(Unlisted).toString());
        if (object.contains(Serves))
            result.serves.append(object.value(Serves).toString());
    }
    return result;
}
