// SPDX-License-Identifier: Apache-2.0
#include "zdefaultcontext.h"

ZContextDelegate::ZContextDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZContext>(this); }

ZContextDelegate::ZContextDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZContext>(this);
}

bool ZContextDelegate::load0(QVariant &value) { return forward(&ZContext::load0, false, value); }

bool ZContextDelegate::save0(QVariant &value) { return forward(&ZContext::save0, false, value); }
