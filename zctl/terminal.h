// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// What is written to.
struct Terminal
{
    bool isOne = false; ///< Else a file, or another program.
    int columns = 80;
    int rows = 24;
    bool hasColours = false;

    /// Where stdout goes at the moment.
    static Terminal ofOutput();
    /// The same, for what is better broken into two lines than cut.
    Terminal endless() const;

    enum Colour
    {
        Plain,
        Title,
        Good,
        Doubtful,
        Bad
    };
    /// `text` in that colour, if there are any.
    QString paint(const QString &text, Colour colour) const;
};
