// SPDX-License-Identifier: Apache-2.0
#include "warnings.h"

#include "description.h"
#include "serviceinterfaces.h"

#include <algorithm>

namespace {

using Property = Description::Property;

QStringList knownInterfaces(const Description &description)
{
    QStringList names = serviceInterfaces() + description.serves;
    for (const Property &property : description.properties) {
        if (!property.interface.isEmpty())
            names.append(property.interface);
    }
    return names;
}

QString withoutNamespace(const QString &name) { return name.section(QStringLiteral("::"), -1); }

/// The name in full of an interface that is called `name`, be it in a namespace; null if none is.
QString find(const QStringList &interfaces, const QString &name, Qt::CaseSensitivity sensitivity = Qt::CaseSensitive)
{
    const auto isCalledSo = [&](const QString &interface) {
        return withoutNamespace(interface).compare(name, sensitivity) == 0;
    };
    const auto found = std::find_if(interfaces.begin(), interfaces.end(), isCalledSo);
    return found == interfaces.end() ? QString() : *found;
}

/// The class to which a property points that is typed so.
QString pointedTo(QString type)
{
    type.chop(1);
    return type.startsWith(QLatin1String("const ")) ? type.mid(6) : type;
}

/// Why no emitter ever writes the property, and what to do about it; null if one may, or nobody expects that.
QString fault(const Property &property, const QStringList &interfaces)
{
    const QString written = QStringLiteral("%1: write its type as \"%2 *\"");
    if (!property.type.endsWith(QLatin1Char('*')))
        return interfaces.contains(property.type) ? written.arg(QStringLiteral("it is no pointer"), property.type)
                                                  : QString();
    if (!property.isKnown) {
        const QString name = pointedTo(property.type);
        const QString reason = QStringLiteral("Qt knows no type \"%1\"").arg(property.type);
        const QString interface = find(interfaces, withoutNamespace(name));
        return interface.isNull() ? QStringLiteral("%1: write it with its namespace, if it has one, and "
                                                   "Q_DECLARE_METATYPE(%2 *) behind its class")
                                        .arg(reason, name)
                                  : written.arg(reason, interface);
    }
    if (property.type == QLatin1String("QObject*")) {
        const QString interface = find(interfaces, property.name, Qt::CaseInsensitive);
        return interface.isNull() ? QString() : written.arg(QStringLiteral("it is a QObject"), interface);
    }
    return property.interface.isEmpty() || property.isWritable
               ? QString()
               : QStringLiteral("it can only be read: give it MEMBER, or WRITE");
}

} // namespace

QStringList warningsOf(const Description &description)
{
    QStringList warnings;
    const QStringList interfaces = knownInterfaces(description);
    for (const Property &property : description.properties) {
        const QString reason = fault(property, interfaces);
        if (!reason.isNull())
            warnings.append(QStringLiteral("its property \"%1\" is never written, for %2").arg(property.name, reason));
    }
    for (const QString &interface : description.unlisted)
        warnings.append(QStringLiteral("nobody can call it as a %1, from which its class derives: write "
                                       "Q_INTERFACES(%1)")
                            .arg(interface));
    return warnings;
}
