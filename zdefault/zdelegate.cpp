// SPDX-License-Identifier: Apache-2.0
#include "zdelegate.h"

#include "zobject.h"
#include "zown.h"
#include "zowned.h"

#include <QMutexLocker>

ZReference::ZReference(QSharedPointer<QObject> object) : m_object(std::move(object))
{
    qRegisterMetaType<QSharedPointer<ZReference>>();
}

ZReference::~ZReference() = default;

bool ZReference::isNull() const { return m_object.isNull(); }

ZDelegate::ZDelegate(QSharedPointer<ZReference> reference) : m_reference(std::move(reference)) {}

ZDelegate::~ZDelegate() = default;

QSharedPointer<ZReference> ZDelegate::replace(QSharedPointer<ZReference> reference)
{
    const QMutexLocker locker(&m_mutex);
    m_reference.swap(reference);
    return reference;
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
    return refer(zOwn(object));
}

QSharedPointer<ZReference> ZDelegate::refer(QSharedPointer<QObject> object)
{
    return QSharedPointer<ZReference>::create(std::move(object));
}

ZDelegate::Target ZDelegate::hold(const char *identifier) const
{
    const QMutexLocker locker(&m_mutex);
    if (!m_reference || !m_reference->m_object)
        return {};
    return {m_reference->m_object, m_reference->m_object->qt_metacast(identifier)};
}

bool ZDelegate::isFromPlugin(const QObject *component)
{
    const auto *object = dynamic_cast<const ZObject *>(component);
    return object && object->m_isRoot.loadAcquire();
}
