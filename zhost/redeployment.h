// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Drops the content of a deployed plugin once more, under a name that is newer than all versions that were there.
struct Redeployment
{
    QString deployed;  ///< the folder of `file`
    QString file;      ///< its name there
    QString hotDeploy; ///< the folder into which it is dropped

    struct Result
    {
        QString name;  ///< the new one
        QString error; ///< empty if it was dropped
    };
    /// The file appears in one step, and complete.
    Result run() const;
};
