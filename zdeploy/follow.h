// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Waits for what becomes of a file that was dropped.
struct Follow
{
    QString hotDeploy;
    QString deployed;
    QString file; ///< Its name.
    int seconds;  ///< How long the host may take.

    struct Result
    {
        bool isGood; ///< The host has it in memory, and has noted it as good.
        QString text;
    };

    /// Waits until the file is loaded and good, or cannot be any more. A host that ends may be started again meanwhile,
    /// and take the file back.
    Result run() const;
};
