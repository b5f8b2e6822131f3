// SPDX-License-Identifier: Apache-2.0
#include "zparking.h"

#include <QScopedPointer>
#include <QVector>

#include <utility>

namespace {

// Neither has a destructor: components are also destroyed while a thread's own objects are.
thread_local int scopes = 0;
thread_local QVector<QSharedPointer<ZReference>> *parked = nullptr;

} // namespace

ZParking::ZParking() { ++scopes; }

ZParking::~ZParking()
{
    if (--scopes == 0) // a destructor may park again
        const QScopedPointer<QVector<QSharedPointer<ZReference>>> leaving(std::exchange(parked, nullptr));
}

bool ZParking::isOpen() { return scopes > 0; }

void ZParking::park(const QSharedPointer<ZReference> &reference)
{
    if (!reference)
        return;
    if (!parked)
        parked = new QVector<QSharedPointer<ZReference>>;
    parked->append(reference);
}
