// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Who is meant to write to a folder.
enum class Use
{
    Private, ///< Only root and the user who runs this change what is in it, or the file itself.
    Shared   ///< Others put files into it, and may not take away each other's: its sticky bit is set.
};

/// Who else may change the file or folder `path`, or put another one in its place: "everybody may write to /srv". Null
/// if only root and the user who runs this may. For a link, its target counts.
QString distrust(const QString &path, Use use = Use::Private);
