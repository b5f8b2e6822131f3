// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Tries a plugin's file out. Each trial needs a process of its own, since types that a plugin registers, and pointers
/// into its code after that is gone, would disturb the next one. It returns what is wrong; empty if nothing is.
struct Trial
{
    QString file;
    QString plugin;
    QString scratch; ///< A folder, in which anything may be left.
    int answer;      ///< The descriptor to which an `Account` is written, of what is done.

    /// Makes the root object, and deletes it.
    QString loadAlone() const;
    /// Has a host with all services load the file, and stops the host after the events that the plugin has posted.
    QString loadInHost() const;
};
