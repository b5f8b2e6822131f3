// SPDX-License-Identifier: Apache-2.0
// Tells plugins of new settings. Not installed.
#pragma once

#include <QSharedPointer>
#include <QStringList>

class QJsonObject;
class ZEmitter;
class ZLibrary;

/**
 * The load of a plugin, for the case that its settings change meanwhile. The plugin has read the old settings then, and
 * must not be called before the load has ended.
 *
 * Ownership: remembers libraries weakly.
 * Thread:    any.
 * Failure:   none; what plugins throw is in the log of their set.
 */
class ZReconfiguration
{
public:
    /// Make it before the root is made.
    ZReconfiguration();

    /// The load has succeeded: tells the root of `library`, which `emitter` has wired, the settings that came meanwhile,
    /// and from now on all new ones.
    void end(const QSharedPointer<ZLibrary> &library, const ZEmitter *emitter) const;

    /// Tells all plugins that `emitter` has wired, and whose settings differ between the configurations `before` and
    /// `now`. Each is called on its root's thread: later, if that is not this one. Returns the names of those plugins.
    static QStringList tell(const ZEmitter *emitter, const QJsonObject &before, const QJsonObject &now);

private:
    Q_DISABLE_COPY(ZReconfiguration)
    const int m_count; // how many changes there had been when this was made
};
