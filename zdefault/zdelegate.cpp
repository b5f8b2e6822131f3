// SPDX-License-Identifier: Apache-2.0
#include "zdelegate.h"

#include "zobject.h"
#include "zowned.h"

#include <QMutexLocker>

ZReference::ZReference(QSharedPointer<QObject> object) : m_object(std::move(object))
{
    qRegisterMetaType<QSharedPointer<ZReference>>();
}

ZReference::~ZReference() = default;

bool ZReference::isNull() const { return m_object.isNull(); }

ZDelegate::ZDelegate(QSharedPointer<ZReference> reference)
    : m_reference(std::move(reference)), m_target(target(m_reference))
{}

ZDelegate::~ZDelegate()
{
    while (replace({})) { // a component may put another one in its place as it ends
    }
}

ZDelegate::operator QSharedPointer<ZReference>()
{
    const QMutexLocker locker(&m_mutex);
    return m_reference;
}

ZDelegate::operator QVariant() const { return m_value; }

QSharedPointer<ZReference> ZDelegate::refer(QObject *object)
{
    if (auto *owned = dynamic_cast<ZOwned *>(object))
        return refer(isFromPlugin(object) ? owned->shared() : owned->owned());
    return refer(QSharedPointer<QObject>(object));
}

QSharedPointer<ZReference> ZDelegate::refer(QSharedPointer<QObject> object)
{
    return QSharedPointer<ZReference>::create(std::move(object));
}

bool ZDelegate::isFromPlugin(const QObject *component)
{
    const auto *object = dynamic_cast<const ZObject *>(component);
    return object && object->m_isRoot.loadAcquire();
}
