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

    /// What is loaded stays as well, and so does the newest good version of each plugin. What is in quarantine is not
    /// looked at. Nothing is removed where it cannot be told what is loaded.
    Result run() const;
};
