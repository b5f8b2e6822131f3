// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zdelegate.h>

#include <QObject>
#include <QString>

class Greeter
{
public:
    virtual QString greet() = 0;
    virtual ~Greeter() {}
};
Q_DECLARE_INTERFACE(Greeter, "example::Greeter")
Q_DECLARE_METATYPE(Greeter *)

class GreeterDelegate : public ZDelegate, public Greeter
{
public:
    explicit GreeterDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(object)) { provide<Greeter>(this); }
    QString greet() override { return forward(&Greeter::greet, QStringLiteral("(silence)")); }
};
