// SPDX-License-Identifier: Apache-2.0
#include "zleasedelegate.h"

bool ZLeaseDelegate::want0(const QString &name, int msecs) { return call(&ZLease::want0, false, name, msecs); }

void ZLeaseDelegate::forget0(const QString &name) { call(&ZLease::forget0, name); }

bool ZLeaseDelegate::begin0(const QString &name, qint64 slot, QString &reason)
{
    QString why = QStringLiteral("nobody serves ZLease");
    const bool mayBegin = call(&ZLease::begin0, false, name, slot, why);
    if (!mayBegin)
        reason = why;
    return mayBegin;
}
