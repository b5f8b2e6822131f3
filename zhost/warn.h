// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zcaught.h>
#include <zlogger.h>

/// Logs a warning of the host's own. The logger may be a plugin's: its exceptions end here.
inline void warn(ZLogger &logger, const QString &text)
{
    zCaught([&] { logger.warning0(QStringLiteral("zhost: ") + text); });
}
