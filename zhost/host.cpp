// SPDX-License-Identifier: Apache-2.0
#include "host.h"

#include "buscall.h"
#include "configuration.h"
#include "known/known.h"
#include "orderlyemitter.h"
#include "report.h"
#include "strictloader.h"
#include "warn.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <zdefaultconfig.h>
#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultfilesystem.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>
#include <znamedlogger.h>

#include <algorithm>

namespace {

constexpr int PatienceMs = 5000; // with what plugins have scheduled

/// A delegate for a service that nobody provides.
template <class Delegate>
QSharedPointer<ZDelegate> nobody()
{
    return QSharedPointer<Delegate>::create(QSharedPointer<QObject>());
}

bool isStrict(const QJsonObject &configuration)
{
    return configuration.value(QStringLiteral("loader")).toObject().value(QStringLiteral("strict")).toBool();
}

} // namespace

bool HostEndpoint::invoked(const QUrl &url, QJsonObject *, QJsonObject *out)
{
    if (url.path(QUrl::FullyDecoded) != QLatin1String("/printd") || !out)
        return false;
    const bool isBroadcast = url.host(QUrl::FullyDecoded).isEmpty();
    out->insert(QStringLiteral("zhost"), report(*m_services, *m_timetable, !isBroadcast));
    return true;
}

Host::Host(const Configuration &configuration, Known *known)
    : m_deployed(configuration.folder(QStringLiteral("deployed"))), m_known(known),
      m_emitter(QSharedPointer<OrderlyEmitter>::create(&known->wiring))
{
    // Before any plugin can hear of it, and let go of what is called.
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, &m_services, [this] { m_timetable.cancel(); });
    // Each service receives those that were there before it: the order of creation is the order of wiring. The loader
    // comes last, for the plugins that it loads may want any of the others. But its place is an early one: it goes
    // after the services that its plugins provide, and so can tell of their files.
    m_emitter->install(m_emitter);
    m_drops.emplace(configuration);
    announce(configuration.object);
    m_logger = qobject_cast<ZDefaultLogger *>(m_emitter->zemit0(ZDefaultLogger::TypeName));
    m_emitter->bind0(nobody<ZLoaderDelegate>());
    for (const char *const service :
         {ZDefaultTempFile::TypeName, ZDefaultJobPoolSet::TypeName, ZDefaultThreadPoolSet::TypeName})
        m_emitter->zemit0(service);
    m_emitter->inject0(new RecordingDbus(&known->endpoints)); // which then is the emitter's, as is the scheduler
    m_emitter->zemit0(ZDefaultContext::TypeName);
    m_emitter->inject0(new RecordingScheduler(&known->activities));
    m_emitter->inject0(&m_services);
    m_config = Services::behind(m_services.config);
    m_loggerReference = Services::behind(m_services.logger);
    m_services.ownActivities = m_services.activities();
    if (isStrict(configuration.object))
        m_emitter->inject0(new StrictLoader);
    else
        m_emitter->zemit0(ZDefaultLoader::TypeName);
    m_drops->watch(m_services.logger);

    m_endpoint = QSharedPointer<HostEndpoint>::create(&m_services, &m_timetable);
    m_services.dbus->bind0(QUrl(QStringLiteral("//zhost")), m_endpoint);
    followTimetable(configuration.object);
}

Host::~Host()
{
    m_drops.reset();
    m_endpoint.clear();
    m_emitter->end();
    m_emitter.clear();
    OrderlyEmitter::settle();
}

QString Host::call(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    return callBus(*m_services.dbus, url, in, out);
}

QJsonObject Host::logMasks() const
{
    QJsonObject masks;
    if (const QSharedPointer<ZReference> alive = m_loggerReference.toStrongRef()) {
        const QStringList categories = m_logger->categories();
        for (const QString &category : categories)
            masks.insert(category, m_logger->log0(m_logger->log0(category)));
    }
    return masks;
}

QString Host::setLogMask(const QString &category, int mask)
{
    const QSharedPointer<ZReference> alive = m_loggerReference.toStrongRef();
    if (!alive || Services::behind(m_services.logger) != alive)
        return QStringLiteral("a plugin serves ZLogger: what it writes is its own affair");
    if (!m_logger->setMask(category, mask))
        return QStringLiteral("\"logger.log\" of the configuration has no category \"%1\": one that plugins may have "
                              "asked for before takes a restart")
            .arg(category);
    ZNamedLogger::setMask(m_services.logger, category, mask);
    return {};
}

void Host::follow(const QJsonObject &configuration)
{
    m_known->setConfiguration(configuration);
    const QStringList names = m_drops->follow(configuration);
    if (m_config == Services::behind(m_services.config)) {
        announce(configuration);
        m_config = Services::behind(m_services.config);
    } else {
        warn(*m_services.logger, QStringLiteral("the configuration that plugins see is a plugin's: it stays"));
    }
    if (m_deployed.isEmpty() && !names.isEmpty())
        warn(*m_services.logger, QStringLiteral("to load plugins takes a restart: there was no deployed folder"));
    for (const QString &name : names) {
        if (!m_deployed.isEmpty())
            zCaught([&] { m_services.loader->load0(name); }); // why not is for the loader to tell
    }
    followTimetable(configuration);
}

void Host::announce(const QJsonObject &configuration)
{
    m_emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, m_drops->withRemembered(configuration)));
}

void Host::followTimetable(const QJsonObject &configuration)
{
    const QStringList refused = m_timetable.follow(configuration.value(QStringLiteral("schedule")), m_services);
    const QString reason = m_services.canSchedule()
                               ? QStringLiteral("no room for one more thread")
                               : QStringLiteral("nobody serves ZScheduler, or ZThreadPoolSet, which it needs");
    for (const QString &name : refused)
        warn(*m_services.logger, QStringLiteral("%1: %2").arg(reason, name));
}

QString Host::status() const
{
    if (m_deployed.isEmpty())
        return QStringLiteral("no plugins: there is no deployed folder");
    const int count = pluginsInMemory().size();
    return QStringLiteral("%1 in memory, of %2")
        .arg(count == 1 ? QStringLiteral("1 plugin file") : QStringLiteral("%1 plugin files").arg(count), m_deployed);
}

QStringList Host::stop()
{
    // Not over the bus: it may be withdrawn, or busy for ever, and the scheduler be a plugin's.
    m_emitter->bind0(nobody<ZSchedulerDelegate>());

    const auto haveEnded = [this] {
        const QVector<QSharedPointer<ZThreadPool>> registries = m_services.allActivities();
        return std::all_of(registries.begin(), registries.end(),
                           [](const QSharedPointer<ZThreadPool> &registry) { return registry->waitAll(20); });
    };
    const QDeadlineTimer deadline(PatienceMs);
    while (!haveEnded() && !deadline.hasExpired())
        QCoreApplication::processEvents(); // an activity may wait for this thread to do something
    QStringList
        names; // also waits until a thread that has ended is out of its registry, and its object posted for deletion
    const QJsonArray left = threadsIn(m_services.allActivities());
    for (const auto &thread : left)
        names.append(thread.toObject().value(QStringLiteral("Name")).toString());
    return names;
}
