// SPDX-License-Identifier: Apache-2.0
#include "zdelegate.h"

#include "zlibrary.h"
#include "zobject.h"
#include "zowned.h"
#include "zsecondowner.h"

#include <QMutexLocker>

namespace {

/// Whether both share one count. Qt's comparison does not tell: two pointers to one object are equal, whoever owns it.
bool isSameOwner(const QSharedPointer<QObject> &one, const QWeakPointer<QObject> &other) { return other == one; }

/// Whether `object` is shared with the library that has loaded it.
bool isOfLibrary(const QSharedPointer<QObject> &object)
{
    const auto root = qSharedPointerDynamicCast<ZObject>(object);
    const QSharedPointer<ZLibrary> library = root ? *root : QSharedPointer<ZLibrary>();
    return library && isSameOwner(object, QSharedPointer<ZObject>(*library));
}

} // namespace

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
    while (replace({})) { // a component may put another one in its place while it is destroyed
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
    if (auto *owned = dynamic_cast<ZOwned *>(object.data())) {
        const QSharedPointer<QObject> owner = isFromPlugin(object.data()) ? owned->shared() : owned->held();
        // A pointer that shares no count with the owner may also be a loan (see `ZLender`), which is not made from a
        // raw pointer.
        if (owner && owned->m_owners == ZOwned::Owners::Two && !isSameOwner(object, owner) && !isOfLibrary(object))
            return ZSecondOwner::replace(object, owner);
    }
    return QSharedPointer<ZReference>::create(std::move(object));
}

bool ZDelegate::isFromPlugin(const QObject *component)
{
    const auto *object = dynamic_cast<const ZObject *>(component);
    return object && object->m_isRoot.loadAcquire();
}
