// SPDX-License-Identifier: Apache-2.0
#include "zsecondowner.h"

#include <QMutex>
#include <QMutexLocker>

namespace {

/// A second owner, in the list of all of them.
struct Kept
{
    const QSharedPointer<QObject> owner;
    const Kept *const next;
};

QBasicMutex keptMutex;
const Kept *kept = nullptr; // never deleted; guarded by keptMutex

} // namespace

QSharedPointer<ZReference> ZSecondOwner::replace(const QSharedPointer<QObject> &second,
                                                 const QSharedPointer<QObject> &owner)
{
    {
        const QMutexLocker locker(&keptMutex);
        kept = new Kept{second, kept};
    }
    return QSharedPointer<ZSecondOwner>::create(owner);
}
