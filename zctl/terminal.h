// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// The properties of the output.
struct Terminal
{
    bool isOne = false; ///< Else a file, or another program.
    int columns = 80;
    int rows = 24;
    bool hasColours = false;

    /// The properties of stdout at the moment.
    static Terminal ofOutput();
    /// The same without a width, for lines that should be broken rather than cut.
    Terminal endless() const;

    enum Colour
    {
        Plain,
        Title,
        Good,
        Doubtful,
        Bad
    };
    /// `text` in that colour, if the output has colours.
    QString paint(const QString &text, Colour colour) const;
};
