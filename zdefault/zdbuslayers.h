// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdbus.h"
#include "zdbuslayer.h"
#include "zdelegateof.h"
#include "zglobal.h"

#include <QVector>

/// The delegate of a `ZDbusLayer`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZDbusLayerDelegate : public ZDelegateOf<ZDbusLayer>
{
public:
    using ZDelegateOf::ZDelegateOf;

    QString layer0() override;
    bool next0(QSharedPointer<ZReference> &next) override;
    bool setNext0(const QSharedPointer<ZReference> &next) override;
};

/// The layers of `bus`, which must be a delegate, from the top down; the last of them is the bus below them all, which
/// is no layer. Empty if `bus` is no delegate, if nobody serves it, or if the layers lead nowhere: to nothing, or in a
/// circle. On any thread.
ZDEFAULT_EXPORT QVector<QSharedPointer<ZReference>> zDbusLayers(ZDbus *bus);
