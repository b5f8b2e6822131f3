// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zcaught.h>
#include <zlogger.h>

/// Has `logger` write a warning of the host's own. It may be a plugin's, and what it throws ends here.
inline void warn(ZLogger &logger, const QString &text)
{
    zCaught([&] { logger.warning0(QStringLiteral("zhost: ") + text); });
}
