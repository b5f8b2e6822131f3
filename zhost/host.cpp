// SPDX-License-Identifier: Apache-2.0
#include "host.h"

#include <QCoreApplication>

#include <zdefaultconfig.h>
#include <zdefaultemitter.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>

Host::Host(const QJsonObject &configuration) : m_emitter(QSharedPointer<ZDefaultEmitter>::create())
{
    // Each service receives those that were there before it: the order of creation is the order of wiring.
    m_emitter->install(m_emitter);
    m_emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, configuration));
    m_emitter->zemit0(ZDefaultLogger::TypeName);
    m_emitter->zemit0(ZDefaultLoader::TypeName);
}

Host::~Host()
{
    m_emitter->install({}); // it would hold itself, and everything else, to the end of the process
    m_emitter.clear();
    QCoreApplication::sendPostedEvents(); // plugins that were let go leave memory from here
}
