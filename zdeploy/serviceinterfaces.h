// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>

class QObject;

/// The names of the ten interfaces that a host serves.
QStringList serviceInterfaces();

/// The interfaces from which the class of `object` derives, but that its `Q_INTERFACES` lacks: nobody can call it by
/// them.
QStringList unlistedInterfaces(QObject *object);
