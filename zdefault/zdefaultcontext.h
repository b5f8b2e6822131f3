// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zcontext.h"
#include "zdelegate.h"

/// Stands for a `ZContext`.
class ZDEFAULT_EXPORT ZContextDelegate : public ZDelegate, public ZContext
{
public:
    explicit ZContextDelegate(QObject *object);
    explicit ZContextDelegate(QSharedPointer<QObject> object);

    bool load0(QVariant &value) override;
    bool save0(QVariant &value) override;
};
