// SPDX-License-Identifier: Apache-2.0
#include "greeter.h"
#include "versioned.h"

#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zdefaultfilesystem.h>
#include <zemitter.h>
#include <zfunction.h>
#include <zlibrary.h>
#include <zlogger.h>
#include <zobject.h>
#include <zscheduledactivity.h>
#include <zscheduler.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QJsonObject>
#include <QTemporaryFile>
#include <QUrl>

#include <utility>

namespace {

/// Waits for a day that does not come. Keeps the plugin, in which its code lies, until its thread has let go of it.
class Activity : private ZOwnerHolder, public ZScheduledActivity
{
public:
    explicit Activity(QSharedPointer<QObject> owner)
        : ZOwnerHolder(std::move(owner)),
          ZScheduledActivity(QSharedPointer<ZPeriodicSchedule>::create(24 * 60 * 60 * 1000))
    {}
    bool run() override { return true; }
};

/// What "/exchange" puts in the place of the one before it. Keeps the library, in which its code lies.
class Files : public QObject, public ZTempFile
{
    Q_OBJECT
    Q_INTERFACES(ZTempFile)

public:
    explicit Files(QSharedPointer<ZLibrary> library) : m_library(std::move(library)) {}
    QSharedPointer<QTemporaryFile> newFile0() override { return {}; }

private:
    const QSharedPointer<ZLibrary> m_library;
};

} // namespace

/// What there is to see of a plugin: it serves, has endpoints, one of them with markup in its name, and an activity, is
/// given one service and left without another. Its endpoint "//exhibit" does what it is told: "/say" writes the "text"
/// that it is given, "/exchange" exchanges a service, each as often as "times" says, "/release" lets go of the plugin.
class Exhibit : public ZObject, public ZDbusSubscriber
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(Greeter *greeter MEMBER m_greeter)
    Q_PROPERTY(Versioned *versioned MEMBER m_versioned)
    Q_PROPERTY(ZScheduler *zScheduler READ getSetZScheduler WRITE getSetZScheduler)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    Exhibit() { connect(qApp, &QCoreApplication::aboutToQuit, this, &Exhibit::letGo); }

    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        zKeepFirst(m_logger, logger);
        return m_logger;
    }

    ZScheduler *getSetZScheduler(ZScheduler *scheduler = nullptr)
    {
        if (scheduler && !m_activity) {
            m_activity = QSharedPointer<Activity>::create(shared());
            scheduler->schedule0(m_activity);
        }
        return scheduler;
    }

    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (!dbus || m_self)
            return dbus;
        m_self = shared(); // the bus holds it weakly
        const auto endpoint = qSharedPointerDynamicCast<ZDbusSubscriber>(m_self);
        dbus->bind0(QUrl(QStringLiteral("//exhibit")), endpoint);
        dbus->bind0(QUrl(QStringLiteral("//exhibit/<script>alert(1)</script>")), endpoint);
        return dbus;
    }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        zKeepFirst(m_emitter, emitter);
        return m_emitter;
    }

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        const QJsonObject given = in ? *in : QJsonObject();
        const int times = given.value(QStringLiteral("times")).toInt(1);
        for (int i = 0; i < times && url.path() == QLatin1String("/say"); ++i)
            m_logger->info0(given.value(QStringLiteral("text")).toString());
        if (url.path() == QLatin1String("/exchange"))
            exchange(times);
        if (url.path() == QLatin1String("/release"))
            letGo();
        if (out)
            out->insert(QStringLiteral("given"), given);
        return true;
    }

private:
    void exchange(int times)
    {
        const QSharedPointer<ZLibrary> library = *this;
        for (int i = 0; i < times; ++i)
            m_emitter->bind0(QSharedPointer<ZTempFileDelegate>::create(QSharedPointer<Files>::create(library)));
    }

    void letGo()
    {
        if (const QSharedPointer<Activity> activity = std::exchange(m_activity, {}))
            activity->cancel();
        m_self.clear();
    }

    ZLogger *m_logger = nullptr;
    Greeter *m_greeter = nullptr;
    Versioned *m_versioned = nullptr;
    ZEmitter *m_emitter = nullptr;
    QSharedPointer<Activity> m_activity;
    QSharedPointer<QObject> m_self;
};

#include "exhibit.moc"
