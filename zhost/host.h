// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "drops.h"
#include "services.h"
#include "timetable.h"

#include <QJsonObject>
#include <QObject>
#include <QSharedPointer>
#include <QStringList>

#include <zdbussubscriber.h>

#include <optional>

struct Configuration;
struct Known;
class OrderlyEmitter;
class ZDefaultLogger;

/// The endpoint "//zhost": answers "/printd" with a report, in a broadcast as well.
class HostEndpoint : public ZDbusSubscriber
{
public:
    HostEndpoint(const Services *services, const Timetable *timetable) : m_services(services), m_timetable(timetable) {}
    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

private:
    const Services *m_services;
    const Timetable *m_timetable;
};

/// The services, the plugins and the timetable of one configuration. They go with it, the last that came first.
class Host
{
public:
    /// What happens is entered in `known`, which must live longer.
    Host(const Configuration &configuration, Known *known);
    ~Host();

    /// The logger service, which lives as long as the host.
    ZLogger *logger() const { return m_services.logger; }

    /// Calls the bus; answers in words why the call was not handled, null if it was.
    QString call(const QUrl &url, QJsonObject *in, QJsonObject *out);
    ZDbus *bus() const { return m_services.dbus; }
    /// Any thread may ask it.
    Timetable &timetable() { return m_timetable; }
    /// Begins an entry that has ended once more; null if that cannot be. On any thread.
    QSharedPointer<TimetableActivity> restart(const QSharedPointer<TimetableActivity> &ended)
    {
        return m_timetable.restart(ended, m_services);
    }

    /// The kinds of tagged lines that are written, by category; empty if a plugin's logger writes. On any thread.
    QJsonObject logMasks() const;
    /// Answers why a category's mask cannot be set, null if it is. On any thread.
    QString setLogMask(const QString &category, int mask);

    /// Has plugins that ask for the configuration from now on see this one; loads the plugins that are new in it, and
    /// follows its timetable.
    void follow(const QJsonObject &configuration);

    /// What runs, in one line.
    QString status() const;

    /// When the application has quit, which cancels the timetable: withdraws the scheduler and waits a while for what
    /// plugins have scheduled. Answers the names of what does not end: while it runs, the host must not be destroyed.
    QStringList stop();

private:
    Q_DISABLE_COPY(Host)
    void announce(const QJsonObject &configuration);
    void followTimetable(const QJsonObject &configuration);

    const QString m_deployed; // empty if there is no such folder
    Known *const m_known;
    QSharedPointer<OrderlyEmitter> m_emitter;
    Services m_services;
    QWeakPointer<ZReference> m_config; // the host's own, as the logger is
    QWeakPointer<ZReference> m_loggerReference;
    ZDefaultLogger *m_logger = nullptr; // there as long as somebody has its reference
    Timetable m_timetable;
    std::optional<Drops> m_drops;
    QSharedPointer<HostEndpoint> m_endpoint;
};
