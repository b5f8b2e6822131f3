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
        Print
    };

    QString error; ///< Why the command line cannot be used; empty if it can.
    Task task = Deploy;
    Drop drop;             ///< The folders, except for `Rehearse`, and what is to be dropped.
    bool waits = false;    ///< Follows what is dropped.
    QString plugin;        ///< To go back with, or to tidy up; empty: tidies each.
    int keep = 0;          ///< How many versions of each.
    QString configuration; ///< To rehearse.
    int rehearsal = 0;     ///< How many seconds that runs.
    QString text;          ///< To print.

    static Options read(const QStringList &arguments);
};
