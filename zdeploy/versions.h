// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "pluginname.h"

#include <QString>
#include <QVector>

/// The file of a plugin in one of the two folders.
struct Version
{
    enum State
    {
        Good,        ///< It ran well for a while: the host has noted it.
        Unproven,    ///< It is deployed, and nothing is known of it.
        Quarantined, ///< The host has taken it back.
        Waiting      ///< No host has come for it.
    };

    PluginName name;
    State state;
    QString remark; ///< Since when it is good, or why it is in quarantine, or could not be loaded, as the host has
                    ///< noted it.
    QString place;  ///< What a file in quarantine is called, where that has a number.

    QString describe() const;
};

/// All versions in both folders, by plugin, and in the order in which a loader sorts them. Those in quarantine come
/// after others of their name.
QVector<Version> versionsIn(const QString &hotDeploy, const QString &deployed);

/// The last of `versions` of this plugin that still waits for a host; null plugin if there is none.
PluginName lastWaiting(const QString &plugin, const QVector<Version> &versions);

/// The last good one of `versions` of this plugin before the newest in the folder `deployed`; null plugin if there is
/// none. If the newest is itself an older version that was dropped again, this is the last good one before its first
/// drop: so going back twice goes back two versions.
PluginName goodBeforeNewest(const QString &plugin, const QVector<Version> &versions, const QString &deployed);
