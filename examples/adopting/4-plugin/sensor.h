#pragma once

#include <zdelegateof.h>

#include <QtNumeric>

class Sensor
{
public:
    virtual double celsius() = 0; // not a number if there is nothing
    virtual ~Sensor() {}
};
Q_DECLARE_INTERFACE(Sensor, "station::Sensor")
Q_DECLARE_METATYPE(Sensor *)

class SensorDelegate : public ZDelegateOf<Sensor>
{
public:
    using ZDelegateOf::ZDelegateOf;
    double celsius() override { return call(&Sensor::celsius, qQNaN()); }
};
