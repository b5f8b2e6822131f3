// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zservices.h"

#include <QJsonObject>
#include <QPointer>
#include <QSharedPointer>
#include <QStringList>
#include <QVector>

class ZDbusCalls;
class ZDefaultJobPoolSet;
class ZDefaultThreadPoolSet;
class ZDelegate;
class ZOrderlyEmitter;
class ZThreadPool;

/**
 * All services of one configuration: made and wired in the right order, and taken down in the right order.
 *
 *     QCoreApplication application(argc, argv);
 *     ZHost host(configuration);
 *     host.begin();
 *     return application.exec();
 *
 * Ownership: has all services, and holds them until it goes. To be destroyed before the application object. Threads of
 *            one's own must have left the services by then.
 * Thread:    the application's.
 * Failure:   what does not end is named in a warning, and left to the end of the process with all that it may use.
 */
class ZDEFAULT_EXPORT ZHost
{
public:
    /// Makes all services but the loader. Each of `own`, which are the host's from now on, takes the place of the
    /// default service of the interface that it serves; one that serves `ZLoader` has its turn in `begin`, and one that
    /// serves none is deleted, with a warning. What they throw as they are wired is thrown on, and leaves nothing.
    explicit ZHost(const QJsonObject &configuration = {}, const QVector<QObject *> &own = {});
    /// The same with an emitter of the caller's.
    ZHost(const QSharedPointer<ZOrderlyEmitter> &emitter, const QJsonObject &configuration,
          const QVector<QObject *> &own = {});
    /// Stops first. What posted events leave behind is handled, then the services go. Jobs of
    /// their pools that still run are waited for, for a while.
    ~ZHost();

    /// Makes the loader, which loads the plugins of its load-list. Before it is the time to bind empty delegates for
    /// interfaces of one's own.
    void begin();
    /// Has all who ask from now on see this configuration, and the plugins whose settings have changed hear of it: see
    /// `ZConfigured`. Answers the names of those that hear.
    QStringList configure(const QJsonObject &configuration);
    /// Gives `component` the services that it asks for; null if it died of it.
    QObject *inject(QObject *component);
    /// From the start on, but the loader, which does nothing before `begin`.
    const ZServices &services() const { return m_services; }

    /// Takes the scheduler away, begins no more calls that nobody waits for, has the endpoints let go, and waits for
    /// the activities, for what runs in endpoints, for calls and for loads on other threads, 5 s at most, handling
    /// events meanwhile. Answers the names of what has not ended.
    QStringList stop();

    /// The registries of all that is scheduled, the host's own one first: a plugin may have taken the place of the pool
    /// set that had it.
    QVector<QSharedPointer<ZThreadPool>> registries() const;

private:
    Q_DISABLE_COPY(ZHost)
    void make(const QJsonObject &configuration);
    void end();
    QSharedPointer<ZThreadPool> registry() const;
    QStringList calls() const;
    QStringList busyPools() const;

    QSharedPointer<ZOrderlyEmitter> m_emitter;
    QVector<QObject *> m_own; // that have not had their turn
    QPointer<ZDefaultJobPoolSet> m_jobPools;
    QPointer<ZDefaultThreadPoolSet> m_threadPools;
    const QSharedPointer<ZDelegate> m_loaderPlace;
    ZServices m_services;
    // Held, for a registry waits for its threads when it goes: a plugin that takes the place of those who made it would
    // have to wait for all that is scheduled.
    QSharedPointer<ZThreadPool> m_registry;
    QSharedPointer<ZDbusCalls> m_calls; // held for the same reason
};
