// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QObject>

/**
 * For a plugin's root that wants to be told of new settings. It derives from this class besides `ZObject`, and says
 * `Q_INTERFACES(ZConfigured)`.
 *
 * Ownership: while the root is called, it is held, and its file stays in memory.
 * Thread:    the root's.
 * Failure:   what the root throws is logged, and goes no further.
 */
class ZConfigured
{
public:
    /// Called when the plugin's settings have changed since it was loaded, or called last; in each version that is
    /// loaded. `settings` is what `ZSettings` reads: an empty object if the configuration has none any more. No lock is
    /// held, and the root may let go of itself.
    virtual void configured(const QJsonObject &settings) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZConfigured() {}
};
Q_DECLARE_INTERFACE(ZConfigured, "zdefault::ZConfigured")
