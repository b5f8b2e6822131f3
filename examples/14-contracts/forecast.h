// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zdelegateof.h>

#include <QString>

class Forecast
{
public:
    virtual QString tomorrow() = 0;
    virtual ~Forecast() {}
};
Q_DECLARE_INTERFACE(Forecast, "example::Forecast")
Q_DECLARE_METATYPE(Forecast *)

// Each plugin that includes this has a copy of the code in its own file. The emitter uses the copy of the first one.
class ForecastDelegate : public ZDelegateOf<Forecast>
{
public:
    using ZDelegateOf::ZDelegateOf;
    QString tomorrow() override { return call(&Forecast::tomorrow, "unknown"); }
};
