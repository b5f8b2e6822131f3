// SPDX-License-Identifier: Apache-2.0
#include "host.h"

#include "report.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <zdefaultconfig.h>
#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultfilesystem.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>

namespace {
constexpr int PatienceMs = 5000; // with what plugins have scheduled
}

bool HostEndpoint::invoked(const QUrl &url, QJsonObject *, QJsonObject *out)
{
    if (url.path(QUrl::FullyDecoded) != QLatin1String("/printd") || !out)
        return false;
    out->insert(QStringLiteral("zhost"), report(*m_services, *m_timetable));
    return true;
}

Host::Host(const QJsonObject &configuration) : m_emitter(QSharedPointer<ZDefaultEmitter>::create())
{
    // Each service receives those that were there before it: the order of creation is the order of wiring. The loader
    // comes last, for the plugins that it loads may want any of the others.
    m_emitter->install(m_emitter);
    m_emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, configuration));
    for (const char *const service :
         {ZDefaultLogger::TypeName, ZDefaultTempFile::TypeName, ZDefaultJobPoolSet::TypeName,
          ZDefaultThreadPoolSet::TypeName, ZDefaultDbus::TypeName, ZDefaultContext::TypeName,
          ZDefaultScheduler::TypeName, ZDefaultLoader::TypeName})
        m_emitter->zemit0(service);
    m_emitter->inject0(&m_services);

    m_endpoint = QSharedPointer<HostEndpoint>::create(&m_services, &m_timetable);
    m_services.dbus->bind0(QUrl(QStringLiteral("//zhost")), m_endpoint);
    const QStringList refused =
        m_timetable.start(configuration.value(QStringLiteral("schedule")), m_services.dbus, m_services.scheduler);
    for (const QString &name : refused)
        m_services.logger->warning0(QStringLiteral("zhost: no room for one more thread: %1").arg(name));
}

Host::~Host()
{
    m_endpoint.clear();
    m_emitter->install({}); // it would hold itself, and everything else, to the end of the process
    m_emitter.clear();
    QCoreApplication::sendPostedEvents(); // plugins that were let go leave memory from here
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

bool Host::call(const QUrl &url, QJsonObject *in, QJsonObject *out) { return m_services.dbus->invoke0(url, in, out); }

QStringList Host::stop()
{
    m_timetable.cancel();
    m_services.dbus->invoke0(QUrl(QStringLiteral("//zscheduler/shutdown")), nullptr, nullptr);

    const QSharedPointer<ZThreadPool> threads = m_services.activities();
    const QDeadlineTimer deadline(PatienceMs);
    while (!threads->waitAll(20) && !deadline.hasExpired())
        QCoreApplication::processEvents(); // an activity may wait for this thread to do something
    QStringList names;
    const QJsonArray left = threads->printd();
    for (const auto &thread : left)
        names.append(thread.toObject().value(QStringLiteral("Name")).toString());
    return names;
}
