// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdelegateof.h"
#include "zglobal.h"
#include "zlease.h"

/// The delegate of a `ZLease`. Where there is no component, that is the reason. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZLeaseDelegate : public ZDelegateOf<ZLease>
{
public:
    using ZDelegateOf::ZDelegateOf;

    bool want0(const QString &name, int msecs) override;
    void forget0(const QString &name) override;
    bool begin0(const QString &name, qint64 slot, QString &reason) override;
};
