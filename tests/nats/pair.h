// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "broker.h"
#include "nodeprocess.h"

/// A host that calls, one that is called, and their broker. Further settings of both can be given.
struct Pair
{
    explicit Pair(const QJsonObject &callers = {}, const QJsonObject &providers = {})
        : isBrokerThere(broker.start()), caller(QStringLiteral("caller"), sectionFor(broker.url(), callers)),
          provider(QStringLiteral("provider"), sectionFor(broker.url(), providers))
    {}

    bool start() { return isBrokerThere && caller.startConnected() && provider.startConnected(); }

    Broker broker;
    const bool isBrokerThere;
    NodeProcess caller, provider;
};
