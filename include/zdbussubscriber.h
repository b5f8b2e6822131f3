// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QUrl>

/**
 * An object that can be called over the bus.
 *
 * Ownership: the bus holds a subscriber weakly, and keeps it alive while it is called.
 * Thread:    the caller's; several calls may run at once.
 * Failure:   false: the call was not handled.
 */
class ZDbusSubscriber
{
public:
    virtual ~ZDbusSubscriber() {}
    /// Handles a call. `url` is as the caller gave it; `in` and `out` are the caller's, and either may be null.
    virtual bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) = 0;
};
