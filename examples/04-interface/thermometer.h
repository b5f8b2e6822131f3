// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zdelegate.h>

#include <QObject>

// An interface of your own. Plugins that were built with it rely on the order of its operations.
class Thermometer
{
public:
    virtual double celsius() = 0;
    virtual ~Thermometer() {}
};
Q_DECLARE_INTERFACE(Thermometer, "example::Thermometer")
Q_DECLARE_METATYPE(Thermometer *)

// Its delegate: each operation names the result for the case that there is no component.
class ThermometerDelegate : public ZDelegate, public Thermometer
{
public:
    explicit ThermometerDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(object))
    {
        provide<Thermometer>(this);
    }
    double celsius() override { return forward(&Thermometer::celsius, qQNaN()); }
};
