// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "buscalls.h"

#include <QMutex>

#include <memory>

class ZDbus;

/**
 * Asks the plugin that takes the bus past this process what it knows, by its endpoint //nats/printd. The plugin may
 * hang: then one call waits for it, and whoever asks is told so.
 *
 * Thread: any.
 */
class BusQuestion
{
public:
    explicit BusQuestion(BusCalls *calls) : m_calls(calls) {}

    /// Begins to ask, unless that is under way. `bus` lives until the calls have ended.
    void begin(ZDbus *bus);
    /// Waits a while for the answer. It is in the form of the report.
    QJsonObject answer();

private:
    BusCalls *const m_calls;
    QMutex m_mutex;                         // guards all that follow
    std::shared_ptr<BusCalls::Call> m_call; // null if there were too many
    bool m_isLate = false;                  // somebody has waited for it in vain
};
