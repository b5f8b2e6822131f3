// SPDX-License-Identifier: Apache-2.0
#include "gate.h"

#include <zobject.h>

/// Takes as long to die as a test wants.
class Slow : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    ~Slow() override { Gate::pass(this); }
};

#include "slow.moc"
