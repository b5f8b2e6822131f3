// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "verdict.h"

#include <QString>
#include <QStringList>

/// Finds out what a plugin is and asks for, without dropping it.
struct Examination
{
    QString file;
    int patience; ///< How many seconds the try-out may take.

    struct Result
    {
        QStringList lines; ///< For people; as many as the try-out has come to.
        QStringList warnings;
        Verdict verdict; ///< Whether a drop would be refused.
    };
    Result run() const;
};
