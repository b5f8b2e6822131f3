// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// What is wrong with a plugin, or what prevents that it is tried out and dropped.
struct Verdict
{
    QString text;           ///< Empty if nothing is.
    bool isItsFault = true; ///< Another time, or with other folders, it may be good where this is false.
    bool isHang = false;    ///< Whether that is that its process has not ended.

    bool isGood() const { return text.isEmpty(); }
    /// A verdict for a reason that is no fault of the plugin.
    static Verdict hindrance(const QString &text) { return {text, false, false}; }
};
