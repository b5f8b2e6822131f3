// SPDX-License-Identifier: Apache-2.0
#include "thisprocess.h"

#include <QCoreApplication>
#include <QUuid>
#include <QVariant>

namespace {

/// The first version leaves it with the application.
QByteArray find()
{
    constexpr char Property[] = "zdefault nats process";
    if (!qApp->property(Property).isValid())
        qApp->setProperty(Property, QUuid::createUuid().toByteArray(QUuid::Id128));
    return qApp->property(Property).toByteArray();
}

} // namespace

QByteArray thisProcess()
{
    static const QByteArray id = find();
    return id;
}
