// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// A plugin's file on trial. Each trial takes a process of its own: what a plugin registers, and what points into its
/// code when that has gone, would be in the way of the next. It answers what is wrong; empty if nothing is.
struct Trial
{
    QString file;
    QString plugin;
    QString scratch; ///< A folder, in which anything may be left.
    int answer;      ///< The descriptor to which an `Account` is written, of what is done.

    /// Makes the root object, and deletes it.
    QString loadAlone() const;
    /// Has a host load it, with all services, and stops that when what the plugin has posted meanwhile is done.
    QString loadInHost() const;
};
