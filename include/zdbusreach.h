// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QMetaType>
#include <QObject>
#include <QRegularExpression>
#include <QUrl>

/**
 * A bus that tells whether a call has reached an endpoint. Without that, one that was not handled might be made again
 * elsewhere, and be done twice. It serves `ZDbus`, too.
 *
 * Ownership: keeps nothing of the caller's.
 * Thread:    any; as `ZDbus::invoke0`.
 * Failure:   `Unsupported`, if the component behind a delegate is no such bus: then nothing was called.
 */
class ZDbusReach
{
public:
    enum Reached
    {
        Unsupported,
        Nobody,  ///< no endpoint was called
        Refused, ///< at least one was called, and none has handled it
        Handled
    };

    /// Calls as `ZDbus::invoke0` does.
    virtual Reached reach0(const QUrl &url, QJsonObject *in, QJsonObject *out) = 0;
    /// Calls all endpoints whose address, "//host/path", `re` matches, as a URL without a host calls all.
    virtual Reached reachAll0(const QRegularExpression &re, const QUrl &url, QJsonObject *in, QJsonObject *out) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZDbusReach() {}
};
Q_DECLARE_INTERFACE(ZDbusReach, "zdefault::ZDbusReach")
Q_DECLARE_METATYPE(ZDbusReach *)
