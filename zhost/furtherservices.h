// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

#include <zdbusoutcome.h>
#include <zlease.h>

/// Services beside the ten, as a component gets them: nobody may serve them.
class FurtherServices : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZDbusOutcome *dbusOutcome MEMBER dbusOutcome)
    Q_PROPERTY(ZLease *lease MEMBER lease)

public:
    ZDbusOutcome *dbusOutcome = nullptr;
    ZLease *lease = nullptr;
};
