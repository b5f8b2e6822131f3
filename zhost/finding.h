// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Something in a configuration that an operator should know of.
struct Finding
{
    enum Weight
    {
        Note,    ///< It may be what is meant.
        Wrong,   ///< It does not do what it seems to; the program runs on without.
        Unusable ///< It would do harm; the program does not start.
    };

    QString path; ///< Of the key: "loader.deployed".
    QString text;
    Weight weight = Wrong;
};
