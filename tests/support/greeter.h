// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>
#include <QString>

#include <zdelegate.h>

/// An application's own interface, which test plugins serve.
class Greeter
{
public:
    virtual QString greet(const QString &name) = 0;
    virtual ~Greeter() {}
};
Q_DECLARE_INTERFACE(Greeter, "test::Greeter")
Q_DECLARE_METATYPE(Greeter *)

/// Stands for a `Greeter`; answers "nobody" when there is none.
class GreeterDelegate : public ZDelegate, public Greeter
{
public:
    explicit GreeterDelegate(QObject *object) : ZDelegate(refer(object)) { provide<Greeter>(this); }
    explicit GreeterDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(object)) { provide<Greeter>(this); }

    QString greet(const QString &name) override { return forward(&Greeter::greet, QStringLiteral("nobody"), name); }
};
