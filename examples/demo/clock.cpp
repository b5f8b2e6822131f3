// SPDX-License-Identifier: Apache-2.0
// An endpoint on the bus, which tells the time when it is called. Its next version takes over without missing a call.
#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QMutex>
#include <QTime>

#ifndef CLOCK_VERSION
#define CLOCK_VERSION 1
#endif

class Clock : public ZObject, public ZDbusSubscriber
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)

public:
    Clock() { connect(qApp, &QCoreApplication::aboutToQuit, this, &Clock::letGo); }

    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        zKeepFirst(m_logger, logger);
        return m_logger;
    }

    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (zKeepFirst(m_dbus, dbus)) {
            m_self = shared(); // the bus holds endpoints weakly
            const auto endpoint = qSharedPointerDynamicCast<ZDbusSubscriber>(m_self);
            const QUrl release(QStringLiteral("//clock/release"));
            dbus->bind0(QUrl(QStringLiteral("//clock")), endpoint); // from here on, calls come to us ...
            if (dbus->find0(release))
                dbus->invoke0(release, nullptr, nullptr); // ... so that the version before us can go
            dbus->bind0(release, endpoint);
        }
        return m_dbus;
    }

    // Called on whatever thread the caller has: a scheduled call comes on a thread of its own.
    bool invoked(const QUrl &url, QJsonObject *, QJsonObject *out) override
    {
        if (url.path().endsWith(QLatin1String("/release"))) { // the host says it, too, when "zctl release clock" does
            letGo();
            return true;
        }
        const QString time = QTime::currentTime().toString();
        m_logger->info0(QStringLiteral("clock %1: it is %2").arg(QString::number(CLOCK_VERSION), time));
        if (out)
            out->insert(QStringLiteral("time"), time);
        return true;
    }

private:
    void letGo()
    {
        QSharedPointer<QObject> self;
        const QMutexLocker locker(&m_mutex);
        self.swap(m_self);
        // Not the end of this object yet: whoever calls us holds it.
    }

    ZLogger *m_logger = nullptr;
    ZDbus *m_dbus = nullptr;
    QMutex m_mutex; // guards m_self
    QSharedPointer<QObject> m_self;
};

#include "clock.moc"
