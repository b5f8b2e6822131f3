// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "drop.h"

#include <QString>

/// What the command line says.
struct Options
{
    enum Task
    {
        Deploy,
        List,
        RollBack,
        Keep,
        Rehearse,
        Describe,
        Print
    };

    QString error; ///< Why the command line cannot be used; empty if it can.
    Task task = Deploy;
    Drop drop;             ///< What is to be dropped, or described; and the folders, where a task has any.
    bool waits = false;    ///< Follows what is dropped.
    QString plugin;        ///< To go back with, or to tidy up; empty: tidies each.
    int keep = 0;          ///< How many versions of each.
    QString configuration; ///< To rehearse.
    int rehearsal = 0;     ///< How many seconds that runs.
    QString text;          ///< To print.

    static Options read(const QStringList &arguments);
};
