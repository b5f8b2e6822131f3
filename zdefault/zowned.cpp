// SPDX-License-Identifier: Apache-2.0
#include "zowned.h"

#include "zeventloop.h"

#include <QMutex>
#include <QMutexLocker>

namespace {

QBasicMutex ownerMutex; // two threads may bind one component to two emitters

QSharedPointer<QObject> ownHere(QObject *object) { return QSharedPointer<QObject>(object); }

QSharedPointer<QObject> ownAtHome(QObject *object)
{
    return {object, [](QObject *owned) { zLetGoAtHome(owned, std::shared_ptr<QObject>(owned)); }};
}

} // namespace

ZOwned::ZOwned() = default;

ZOwned::~ZOwned() = default;

QSharedPointer<QObject> ZOwned::shared() { return own(ownAtHome); }

QSharedPointer<QObject> ZOwned::owned() { return own(ownHere); }

QSharedPointer<QObject> ZOwned::held() const
{
    const QMutexLocker locker(&ownerMutex);
    return m_owner.toStrongRef();
}

QSharedPointer<QObject> ZOwned::own(QSharedPointer<QObject> (*makeOwner)(QObject *))
{
    const QMutexLocker locker(&ownerMutex);
    QSharedPointer<QObject> owner = m_owner.toStrongRef();
    if (m_owners == Owners::None) {
        if (auto *object = dynamic_cast<QObject *>(this))
            owner = makeOwner(object);
        m_owner = owner;
        m_owners = Owners::One;
    }
    return owner;
}
