// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Runs copies of all plugins of a configuration for a while, with its timetable, in a host that has folders of its
/// own. As in a try-out, a process with the rights of the deployed folder's owner does so, and leaves nothing behind.
struct Rehearsal
{
    QString configuration; ///< The file.
    int seconds;           ///< How long the host runs.
    int patience;          ///< How many seconds its start and its stop may take.

    struct Result
    {
        QString unusable; ///< Why there is nothing to rehearse; empty if there is.
        QString error;    ///< What is wrong; empty if nothing is.
    };
    Result run() const;

    /// Whether the command line is one with which `run` starts this program once more.
    static bool isOne(int argc, char *argv[]);
    /// The program for such a command line. Call it before the application object is made.
    static int watch(char *argv[]);
};
