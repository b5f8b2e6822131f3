// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdbus.h"
#include "zdbuslayer.h"
#include "zdelegateof.h"
#include "zglobal.h"

/// The delegate of a `ZDbusLayer`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZDbusLayerDelegate : public ZDelegateOf<ZDbusLayer>
{
public:
    using ZDelegateOf::ZDelegateOf;

    QString layer0() override;
    bool next0(QSharedPointer<ZReference> &next) override;
    bool setNext0(const QSharedPointer<ZReference> &next) override;
};

/// The bus that lies under all layers of `bus`, which must be a delegate. Null if it is none, if nobody serves it, or
/// if the layers lead nowhere: to nothing, or in a circle. On any thread.
ZDEFAULT_EXPORT QSharedPointer<ZReference> zBottomBus(ZDbus *bus);
