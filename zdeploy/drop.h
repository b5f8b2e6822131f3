// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "verdict.h"

#include <QString>
#include <QStringList>

/// A plugin file on its way into the hot-deploy folder.
struct Drop
{
    QString source;
    QString hotDeploy; ///< The folder that a loader watches.
    QString deployed;  ///< The folder to which the loader moves what it finds.
    QString version;   ///< Empty: the one that the name of the source has, or else the next.
    int patience = 0;  ///< How many seconds the try-out may take.

    struct Result
    {
        QString name;    ///< Under which the file was dropped.
        Verdict verdict; ///< Why it was not; good if it was.
        QStringList warnings = {};
    };

    /// Drops a copy that appears under its name in one step, complete. Leaves nothing behind if that fails, or a signal
    /// ends the process. Call it once.
    Result run() const;
};
