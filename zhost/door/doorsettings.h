// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "../finding.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QVector>

/// The section "door" of a configuration.
struct DoorSettings
{
    bool isOn = true;
    QString socket;    ///< absolute; empty if that is left to the host
    QString address;   ///< a number; empty if nobody is to ask by TCP
    int port = 0;      ///< 0 has the system choose one
    QString tokenFile; ///< absolute

    /// Appends to `findings`, unless that is null, the settings that cannot be used.
    static DoorSettings read(const QJsonObject &configuration, QVector<Finding> *findings = nullptr);
};
