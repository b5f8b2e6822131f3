// SPDX-License-Identifier: Apache-2.0
// A plugin that declares the interfaces which other plugins share. It is loaded before them, and stays in memory.
#include "forecast.h"

#include <zemitter.h>
#include <zobject.h>

class ForecastContracts : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter)
            emitter->bind0(QSharedPointer<ForecastDelegate>::create(nullptr)); // empty: nobody serves it yet
        return emitter;
    }
};

#include "forecast_contracts.moc"
