// SPDX-License-Identifier: Apache-2.0
#include "zowned.h"

#include "zown.h"

#include <QMutex>
#include <QMutexLocker>

ZOwned::ZOwned() = default;

ZOwned::~ZOwned() = default;

QSharedPointer<QObject> ZOwned::shared()
{
    static QBasicMutex mutex; // two threads may wire one component into two emitters
    const QMutexLocker locker(&mutex);
    QSharedPointer<QObject> owner = m_owner.toStrongRef();
    if (!m_hadOwner) {
        owner = zOwn(dynamic_cast<QObject *>(this));
        m_owner = owner;
        m_hadOwner = true;
    }
    return owner;
}
