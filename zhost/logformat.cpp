// SPDX-License-Identifier: Apache-2.0
#include "logformat.h"

#include "say.h"

#include <QtGlobal>

#include <syslog.h>

namespace {

int severityOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return LOG_DEBUG;
    case QtInfoMsg:
        return LOG_INFO;
    case QtWarningMsg:
        return LOG_WARNING;
    case QtCriticalMsg:
        return LOG_ERR;
    case QtFatalMsg:
        return LOG_CRIT;
    }
    return LOG_NOTICE;
}

void write(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const QString line = qFormatLogMessage(type, context, text);
    if (!line.isNull()) // a pattern may leave it out
        writeLine(severityOf(type), line);
}

} // namespace

void installLogFormat() { qInstallMessageHandler(write); }
