// SPDX-License-Identifier: Apache-2.0
#include "store.h"

#include <zobject.h>
#include <zwiring.h>

/// Serves an application's interface with shared pointers, of which the code that deletes is the plugin's.
class Shop : public ZObject, public Stock
{
    Q_OBJECT
    Q_INTERFACES(Store)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr) { return zAnnounce<StoreDelegate>(this, emitter); }
};

#include "store.moc"
