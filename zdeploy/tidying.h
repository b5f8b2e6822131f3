// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

/// Removes old versions from the deployed folder.
struct Tidying
{
    QString hotDeploy;
    QString deployed;
    QString plugin; ///< Empty: of each plugin.
    int keep;       ///< How many versions stay, the newest ones.

    struct Result
    {
        QStringList removed; ///< The names of the files.
        QString error;       ///< Why that is not all; empty if it is.
    };

    /// Also keeps what is loaded, and the newest good version of each plugin. Ignores files in quarantine. If it cannot
    /// be found out what is loaded, nothing is removed.
    Result run() const;
};
