// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// How a folder is meant to be used.
enum class Use
{
    Private, ///< Only root and the user who runs this change what is in it, or the file itself.
    Shared   ///< Others put files into it, and may not take away each other's: its sticky bit is set.
};

/// Who else may change the file or folder `path`, or put another one in its place: "everybody may write to /srv". Null
/// if nobody but root and the user who runs this may. It is what a link points to that counts.
QString distrust(const QString &path, Use use = Use::Private);
