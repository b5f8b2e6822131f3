// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>

#include <zdelegate.h>

/// What the plugin of which many versions are made does.
class Teller
{
public:
    /// Which version this is; -1 if there is none.
    virtual int version() = 0;
    virtual ~Teller() {}
};
Q_DECLARE_INTERFACE(Teller, "bench::Teller")
Q_DECLARE_METATYPE(Teller *)

class TellerDelegate : public ZDelegate, public Teller
{
public:
    explicit TellerDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(object)) { provide<Teller>(this); }
    int version() override { return forward(&Teller::version, -1); }
};
