// SPDX-License-Identifier: Apache-2.0
// A plugin that serves the interface, and gives way to its next version.
#include "forecast.h"

#include <zemitter.h>
#include <zobject.h>

class ForecastPlugin : public ZObject, public Forecast
{
    Q_OBJECT
    Q_INTERFACES(Forecast)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter)
            emitter->bind0(QSharedPointer<ForecastDelegate>::create(shared()));
        return emitter;
    }

    QString tomorrow() override { return QString(TOMORROW); } // a copy, which does not point into this file
};

#include "forecast.moc"
