// SPDX-License-Identifier: Apache-2.0
#include "wiringbook.h"

#include "codefile.h"
#include "history.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QMetaProperty>
#include <QMutexLocker>

#include <zobject.h>

#include <algorithm>

namespace {

constexpr int MaxBefore = 8;

QString interfaceName(int type)
{
    QString name = QString::fromLatin1(QMetaType::typeName(type));
    if (name.endsWith(QLatin1Char('*')))
        name.chop(1);
    return name;
}

QString fileName(const QString &path) { return QFileInfo(path).fileName(); }

QString text(const QDateTime &time) { return time.toString(Qt::ISODateWithMs); }

} // namespace

void WiringBook::bound(int interfaceType, const QSharedPointer<QObject> &component)
{
    Provider now;
    now.since = QDateTime::currentDateTimeUtc();
    if (component) {
        now.component = component.data();
        now.className = QString::fromLatin1(component->metaObject()->className());
        now.file = classFile(*component);
    }
    const QString interface = interfaceName(interfaceType);
    bool isFirst = false;
    {
        const QMutexLocker locker(&m_mutex);
        if (!component && !m_services.contains(interfaceType))
            return; // a place is kept for one that is still to come
        Service &service = m_services[interfaceType];
        isFirst = service.interface.isNull();
        if (!isFirst) {
            service.before.prepend(service.now);
            service.exchanges += component ? 1 : 0;
        }
        service.interface = interface;
        service.now = now;
        // One that is still held stays in sight, as long as there are not too many.
        while (service.before.size() > MaxBefore) {
            const auto gone = std::find_if(service.before.rbegin(), service.before.rend(),
                                           [](const Provider &before) { return before.component.isNull(); });
            service.before.erase(gone == service.before.rend() ? service.before.end() - 1 : gone.base() - 1);
        }
    }
    if (now.className.isNull())
        m_history->add("withdrawn", interface);
    else
        m_history->add(isFirst ? "announced" : "exchanged", interface,
                       now.file.isEmpty() ? now.className
                                          : QStringLiteral("%1 of %2").arg(now.className, fileName(now.file)));
}

/// What lies in a property of another type is nobody's service, and not looked at.
void WiringBook::injected(QObject *object, const QMetaProperty &property, bool isGiven)
{
    const QLatin1String type(property.typeName());
    if (!type.endsWith(QLatin1Char('*')))
        return;
    const Property entry{QString::fromLatin1(property.name()), interfaceName(property.userType()), isGiven,
                         !QMetaType::typeFlags(property.userType()).testFlag(QMetaType::PointerToQObject)};
    const QMutexLocker locker(&m_mutex);
    if (m_components.size() >= m_roomForComponents)
        forgetDead();
    Component &component = m_components[object];
    if (component.object != object) { // another one has been here
        component = {object,
                     QString::fromLatin1(object->metaObject()->className()),
                     classFile(*object),
                     QDateTime::currentDateTimeUtc(),
                     {},
                     qobject_cast<ZObject *>(object) != nullptr};
    }
    const auto known = std::find_if(component.properties.begin(), component.properties.end(),
                                    [&](const Property &other) { return other.name == entry.name; });
    if (known == component.properties.end())
        component.properties.append(entry);
    else
        *known = entry;
}

WiringBook::Lack WiringBook::lackOf(const QObject *component) const
{
    const QMutexLocker locker(&m_mutex);
    Lack lack;
    const Component entry = m_components.value(component);
    for (const Property &property : entry.properties) {
        if (entry.object != component || property.isGiven || !property.isService) // another one has been there
            continue;
        lack.properties.append(property.name);
        if (!lack.interfaces.contains(property.interface))
            lack.interfaces.append(property.interface);
    }
    return lack;
}

QJsonArray WiringBook::services() const
{
    const QMutexLocker locker(&m_mutex);
    QVector<const Service *> sorted;
    for (const Service &service : m_services)
        sorted.append(&service);
    std::sort(sorted.begin(), sorted.end(),
              [](const Service *a, const Service *b) { return a->interface < b->interface; });
    QJsonArray result;
    for (const Service *service : qAsConst(sorted)) {
        QJsonArray before;
        for (const Provider &provider : service->before) {
            if (!provider.className.isNull())
                before.append(QJsonObject{{QStringLiteral("class"), provider.className},
                                          {QStringLiteral("file"), fileName(provider.file)},
                                          {QStringLiteral("since"), text(provider.since)},
                                          {QStringLiteral("held"), !provider.component.isNull()}});
        }
        result.append(QJsonObject{{QStringLiteral("interface"), service->interface},
                                  {QStringLiteral("served"), !service->now.className.isNull()},
                                  {QStringLiteral("class"), service->now.className},
                                  {QStringLiteral("file"), fileName(service->now.file)},
                                  {QStringLiteral("since"), text(service->now.since)},
                                  {QStringLiteral("exchanges"), service->exchanges},
                                  {QStringLiteral("before"), before}});
    }
    return result;
}

QJsonArray WiringBook::components(const QString &file) const
{
    const QMutexLocker locker(&m_mutex);
    QJsonArray result;
    for (const Component &component : m_components) {
        if (component.object.isNull() || component.file != file)
            continue;
        QJsonArray properties;
        for (const Property &property : component.properties)
            properties.append(QJsonObject{{QStringLiteral("name"), property.name},
                                          {QStringLiteral("interface"), property.interface},
                                          {QStringLiteral("given"), property.isGiven}});
        result.append(QJsonObject{{QStringLiteral("class"), component.className},
                                  {QStringLiteral("since"), text(component.since)},
                                  {QStringLiteral("properties"), properties}});
    }
    return result;
}

QString WiringBook::rootClass(const QString &file) const
{
    const QMutexLocker locker(&m_mutex);
    for (const Component &component : m_components) {
        if (component.isRoot && component.file == file && !component.object.isNull())
            return component.className;
    }
    return {};
}

QStringList WiringBook::interfaces(const QString &file) const
{
    const QMutexLocker locker(&m_mutex);
    QStringList result;
    for (const Service &service : m_services) {
        if (service.now.file == file)
            result.append(service.interface);
    }
    result.sort();
    return result;
}

QStringList WiringBook::formerInterfaces(const QString &file) const
{
    const QMutexLocker locker(&m_mutex);
    QStringList result;
    for (const Service &service : m_services) {
        for (const Provider &before : service.before) {
            if (before.file == file && !before.component.isNull())
                result.append(service.interface);
        }
    }
    result.sort();
    return result;
}

void WiringBook::forgetDead()
{
    for (auto component = m_components.begin(); component != m_components.end();) {
        if (component->object.isNull())
            component = m_components.erase(component);
        else
            ++component;
    }
    m_roomForComponents = std::max(64, 2 * m_components.size());
}
