// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "drops.h"
#include "furtherservices.h"
#include "localbus.h"
#include "timetable.h"

#include <QJsonObject>
#include <QObject>
#include <QSharedPointer>
#include <QStringList>

#include <zdbussubscriber.h>
#include <zhost.h>

#include <optional>

struct Configuration;
struct Known;
class ZDefaultLogger;

/// The endpoint "//zhost": answers "/printd" with a report, also in a broadcast.
class HostEndpoint : public ZDbusSubscriber
{
public:
    HostEndpoint(const ZHost *host, const Timetable *timetable) : m_host(host), m_timetable(timetable) {}
    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

private:
    const ZHost *m_host;
    const Timetable *m_timetable;
};

/// The services, the plugins and the timetable of one configuration. They are destroyed with it, in reverse order.
class Host
{
public:
    /// Events are entered in `known`, which must live longer.
    Host(const Configuration &configuration, Known *known);
    ~Host();

    /// The logger service, which lives as long as the host.
    ZLogger *logger() const { return services().logger; }

    /// Calls the bus. Returns in words why the call was not handled; null if it was.
    QString call(const QUrl &url, QJsonObject *in, QJsonObject *out);
    /// What users call: it may reach other processes.
    ZDbus *bus() const { return services().dbus; }
    /// For calls that are to stay in this process. Any thread may use it.
    ZDbus *localBus() { return &*m_localBus; }
    const FurtherServices &further() const { return m_further; }
    /// Any thread may ask it.
    Timetable &timetable() { return m_timetable; }
    /// Begins an entry that has ended once more; null if that is not possible. On any thread.
    QSharedPointer<TimetableActivity> restart(const QSharedPointer<TimetableActivity> &ended)
    {
        return m_timetable.restart(ended, services(), m_further);
    }

    /// The kinds of tagged lines that are written, by category; empty if a plugin's logger writes. On any thread.
    QJsonObject logMasks() const;
    /// Sets a category's mask. Returns why that is not possible; null if it is set. On any thread.
    QString setLogMask(const QString &category, int mask);

    /// Makes this the configuration that plugins get from now on, loads the plugins that are new in it, and follows its
    /// timetable. Returns the names of the plugins that are told of new settings.
    QStringList follow(const QJsonObject &configuration);

    /// What runs, in one line.
    QString status() const;

    /// Call it when the application has quit, which cancels the timetable. Withdraws the scheduler, and waits a while
    /// for what plugins have scheduled. Returns the names of what does not end: while that runs, the host must not be
    /// destroyed.
    QStringList stop() { return m_host->stop(); }

private:
    Q_DISABLE_COPY(Host)
    const ZServices &services() const { return m_host->services(); }
    void followTimetable(const QJsonObject &configuration);

    const QString m_deployed; // empty if there is no such folder
    Known *const m_known;
    std::optional<ZHost> m_host;
    FurtherServices m_further;
    std::optional<LocalBus> m_localBus;
    QWeakPointer<ZReference> m_config; // the host's own, as the logger is
    QWeakPointer<ZReference> m_loggerReference;
    ZDefaultLogger *m_logger = nullptr; // there as long as somebody has its reference
    Timetable m_timetable;
    std::optional<Drops> m_drops;
    QSharedPointer<HostEndpoint> m_endpoint;
};
