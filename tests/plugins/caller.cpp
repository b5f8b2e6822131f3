// SPDX-License-Identifier: Apache-2.0
#include <zdbus.h>
#include <zobject.h>

#include <QCoreApplication>
#include <QJsonObject>
#include <QUrl>

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

/// Calls "//guarded/work" on two threads until the application quits, and then tells how often nobody handled it.
class Caller : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)

public:
    Caller() { connect(qApp, &QCoreApplication::aboutToQuit, this, &Caller::end); }

    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (!dbus)
            return dbus;
        m_self = shared();
        for (int i = 0; i < 2; ++i)
            m_threads.emplace_back([this, dbus] {
                while (!m_isEnding) {
                    QJsonObject in, out;
                    ++(dbus->invoke0(QUrl(QStringLiteral("//guarded/work")), &in, &out) ? m_handled : m_lost);
                }
            });
        return dbus;
    }

private:
    void end()
    {
        m_isEnding = true;
        for (std::thread &thread : m_threads)
            thread.join();
        m_threads.clear();
        std::fprintf(stderr, "calls: %s, lost: %d\n", m_handled > 1000 ? "many" : "few", m_lost.load());
        m_self.clear();
    }

    QSharedPointer<QObject> m_self;
    std::vector<std::thread> m_threads;
    std::atomic_bool m_isEnding{false};
    std::atomic_int m_handled{0}, m_lost{0};
};

#include "caller.moc"
