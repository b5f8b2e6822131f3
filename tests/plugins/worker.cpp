// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>
#include <zscheduledactivity.h>
#include <zscheduler.h>
#include <zwiring.h>

#include <QCoreApplication>

/// What a worker does all day. Keeps the plugin in memory, since its code lies there.
class Work : public ZScheduledActivity
{
public:
    explicit Work(QSharedPointer<QObject> plugin)
        : ZScheduledActivity(QSharedPointer<ZPeriodicSchedule>::create(3600 * 1000)), m_plugin(std::move(plugin))
    {}

    QString name() const override { return QStringLiteral("work"); }
    bool run() override { return true; }

private:
    const QSharedPointer<QObject> m_plugin;
};

/// Has something scheduled, and cancels it when the application ends, unless it is built to be stubborn.
class Worker : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZScheduler *zScheduler READ getSetZScheduler WRITE getSetZScheduler)

public:
    ZScheduler *getSetZScheduler(ZScheduler *scheduler = nullptr)
    {
        if (zKeepFirst(m_scheduler, scheduler)) {
            const auto work = QSharedPointer<Work>::create(shared());
            scheduler->schedule0(work);
#ifndef STUBBORN
            connect(qApp, &QCoreApplication::aboutToQuit, this, [work = work.toWeakRef()] {
                if (const auto alive = work.toStrongRef())
                    alive->cancel();
            });
#endif
        }
        return m_scheduler;
    }

private:
    ZScheduler *m_scheduler = nullptr;
};

#include "worker.moc"
