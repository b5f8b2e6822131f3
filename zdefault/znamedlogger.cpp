// SPDX-License-Identifier: Apache-2.0
#include "znamedlogger.h"

ZNamedLogger::ZNamedLogger() : m_data(new ZData) {}

ZNamedLogger::ZNamedLogger(ZLogger *logger, const QString &category) : ZNamedLogger()
{
    if (!logger)
        return;
    m_data->logger = logger;
    m_data->index = logger->log0(category);
    if (m_data->index >= 0) // so a mask with any bit set also says that there is a logger and a category
        m_data->mask = logger->log0(m_data->index);
}

void ZNamedLogger::warn(int kind, const QString &text) const
{
    ZLogger *logger = m_data->logger;
    if (logger && logger->warning0())
        logger->warning0(text);
    else
        log(kind, text);
}

void ZNamedLogger::write(int kind, const QString &text) const { m_data->logger->log0(m_data->index, kind, text); }
