// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Follows what becomes of a file that was dropped.
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

    /// Waits until that is so, or cannot be any more. A host that ends may be started again meanwhile, and take the
    /// file back.
    Result run() const;
};
