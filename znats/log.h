// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "../zhost/printable.h"

#include <QString>
#include <QUrl>

#include <znamedlogger.h>

/// The lines of this plugin. What other processes have written does nothing to a terminal, and begins no line of its
/// own. Thread: any.
class Log
{
public:
    explicit Log(ZLogger *logger) : m_logger(logger), m_lines(logger ? named(logger) : ZNamedLogger()) {}

    void info(const QString &text) const
    {
        if (m_logger && m_logger->info0())
            m_logger->info0(printable(QStringLiteral("nats: ") + text));
    }
    void warn(const QString &text) const { m_lines.warn(CallFailed, printable(QStringLiteral("nats: ") + text)); }
    /// Of the settings: the problem says already where it is.
    void warnOf(const QString &problem) const { m_lines.warn(CallFailed, printable(problem)); }
    void failed(const QUrl &url, const QString &reason) const
    {
        m_lines.log(CallFailed, [&] {
            return printable(QStringLiteral("(!) %1 %2").arg(url.toString(QUrl::RemovePassword), reason));
        });
    }

private:
    static constexpr int CallFailed = 16;
    static ZNamedLogger named(ZLogger *logger) { return ZNamedLogger(logger, QStringLiteral("zdefault")); }

    ZLogger *m_logger;
    ZNamedLogger m_lines;
};
