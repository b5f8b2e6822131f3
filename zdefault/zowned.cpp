// SPDX-License-Identifier: Apache-2.0
#include "zowned.h"

#include "zown.h"

#include <QMutex>
#include <QMutexLocker>

namespace {
QBasicMutex ownerMutex; // two threads may wire one component into two emitters
} // namespace

ZOwned::ZOwned() = default;

ZOwned::~ZOwned() = default;

QSharedPointer<QObject> ZOwned::shared() { return own(zOwnAtHome); }

QSharedPointer<QObject> ZOwned::owned() { return own(zOwn); }

QSharedPointer<QObject> ZOwned::held() const
{
    const QMutexLocker locker(&ownerMutex);
    return m_owner.toStrongRef();
}

QSharedPointer<QObject> ZOwned::own(QSharedPointer<QObject> (*makeOwner)(QObject *))
{
    const QMutexLocker locker(&ownerMutex);
    QSharedPointer<QObject> owner = m_owner.toStrongRef();
    if (!m_hadOwner) {
        owner = makeOwner(dynamic_cast<QObject *>(this));
        m_owner = owner;
        m_hadOwner = true;
    }
    return owner;
}
