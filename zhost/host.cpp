// SPDX-License-Identifier: Apache-2.0
#include "host.h"

#include "buscall.h"
#include "configuration.h"
#include "known/known.h"
#include "recordingemitter.h"
#include "report.h"
#include "services.h"
#include "strictloader.h"
#include "warn.h"

#include <QCoreApplication>

#include <zdefaultlogger.h>
#include <znamedlogger.h>

namespace {

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
    out->insert(QStringLiteral("zhost"), report(*m_host, *m_timetable, !isBroadcast));
    return true;
}

Host::Host(const Configuration &configuration, Known *known)
    : m_deployed(configuration.folder(QStringLiteral("deployed"))), m_known(known)
{
    m_drops.emplace(configuration);
    m_logger = new ZDefaultLogger;
    QVector<QObject *> own = {m_logger, new RecordingDbus(&known->endpoints),
                              new RecordingScheduler(&known->activities)};
    if (isStrict(configuration.object))
        own.append(new StrictLoader);
    const auto emitter = QSharedPointer<RecordingEmitter>::create(&known->wiring);
    m_host.emplace(emitter, m_drops->withRemembered(configuration.object), own);
    emitter->tellTo(services().logger);
    m_host->inject(&m_further);
    m_localBus.emplace(services().dbus);
    m_config = behind(services().config);
    m_loggerReference = behind(services().logger);
    // Connected before any plugin can be: else a plugin would let go of an endpoint that is still called.
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, &services(), [this] { m_timetable.cancel(); });
    m_host->begin();
    m_drops->watch(services().logger);

    m_endpoint = QSharedPointer<HostEndpoint>::create(&*m_host, &m_timetable);
    services().dbus->bind0(QUrl(QStringLiteral("//zhost")), m_endpoint);
    followTimetable(configuration.object);
}

Host::~Host()
{
    m_drops.reset();
    m_endpoint.clear();
    m_host.reset();
}

QString Host::call(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    return callBus(*services().dbus, m_further.dbusOutcome, url, in, out);
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
    if (!alive || behind(services().logger) != alive)
        return QStringLiteral("a plugin serves ZLogger: what it writes is its own affair");
    if (!m_logger->setMask(category, mask))
        return QStringLiteral("\"logger.log\" of the configuration has no category \"%1\": one that plugins may have "
                              "asked for before takes a restart")
            .arg(category);
    ZNamedLogger::setMask(services().logger, category, mask);
    return {};
}

QStringList Host::follow(const QJsonObject &configuration)
{
    QStringList heard;
    m_known->setConfiguration(configuration);
    const QStringList names = m_drops->follow(configuration);
    if (m_config == behind(services().config)) {
        heard = m_host->configure(m_drops->withRemembered(configuration));
        m_config = behind(services().config);
    } else {
        warn(*services().logger, QStringLiteral("the configuration that plugins see is a plugin's: it stays"));
    }
    if (m_deployed.isEmpty() && !names.isEmpty())
        warn(*services().logger, QStringLiteral("to load plugins takes a restart: there was no deployed folder"));
    for (const QString &name : names) {
        if (!m_deployed.isEmpty())
            zCaught([&] { services().loader->load0(name); }); // the loader logs why it fails
    }
    followTimetable(configuration);
    return heard;
}

void Host::followTimetable(const QJsonObject &configuration)
{
    const QStringList refused =
        m_timetable.follow(configuration.value(QStringLiteral("schedule")), services(), m_further);
    const QString reason = canSchedule(services())
                               ? QStringLiteral("no room for one more thread")
                               : QStringLiteral("nobody serves ZScheduler, or ZThreadPoolSet, which it needs");
    for (const QString &name : refused)
        warn(*services().logger, QStringLiteral("%1: %2").arg(reason, name));
}

QString Host::status() const
{
    if (m_deployed.isEmpty())
        return QStringLiteral("no plugins: there is no deployed folder");
    const int count = pluginsInMemory().size();
    return QStringLiteral("%1 in memory, of %2")
        .arg(count == 1 ? QStringLiteral("1 plugin file") : QStringLiteral("%1 plugin files").arg(count), m_deployed);
}
