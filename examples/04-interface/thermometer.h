// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zdelegate.h>

#include <QObject>

// An interface of one's own. The order of its operations is a promise to those who were built with it.
class Thermometer
{
public:
    virtual double celsius() = 0;
    virtual ~Thermometer() {}
};
Q_DECLARE_INTERFACE(Thermometer, "example::Thermometer")
Q_DECLARE_METATYPE(Thermometer *)

// Its delegate: each operation says what is answered while there is no component.
class ThermometerDelegate : public ZDelegate, public Thermometer
{
public:
    explicit ThermometerDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(object))
    {
        provide<Thermometer>(this);
    }
    double celsius() override { return forward(&Thermometer::celsius, qQNaN()); }
};
