// SPDX-License-Identifier: Apache-2.0
// A plugin that calls the bus all the time on a thread of its own, and tells on the bus how long that takes.
#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <QSharedPointer>
#include <QUrl>
#include <QWaitCondition>

#include <chrono>
#include <thread>

#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zobject.h>

namespace {

constexpr int CallsInARound = 50000;

} // namespace

/// Answers "//toiler" with how many nanoseconds one round of calls to "//toiler/nothing" has taken. It stays until the
/// process is killed.
class Root : public ZObject, public ZDbusSubscriber
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZDbus *zDbus READ bus WRITE setBus)

public:
    ZDbus *bus() const { return m_bus; }
    void setBus(ZDbus *bus)
    {
        m_bus = bus;
        m_self = shared();
        bus->bind0(QUrl(QStringLiteral("//toiler")), qSharedPointerDynamicCast<ZDbusSubscriber>(m_self));
        std::thread([this] {
            for (;;)
                work();
        }).detach();
    }

    bool invoked(const QUrl &url, QJsonObject *, QJsonObject *out) override
    {
        if (url.path() == QLatin1String("/nothing"))
            return true;
        const QMutexLocker locker(&m_mutex);
        for (const int whole = m_rounds + 2; m_rounds < whole;) // one that is under way does not count
            m_ended.wait(&m_mutex);
        out->insert(QStringLiteral("nanoseconds"), m_nanoseconds);
        return true;
    }

private:
    void work()
    {
        const QUrl url(QStringLiteral("//toiler/nothing"));
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < CallsInARound; ++i)
            m_bus->invoke0(url, nullptr, nullptr);
        const std::chrono::nanoseconds time = std::chrono::steady_clock::now() - start;
        const QMutexLocker locker(&m_mutex);
        m_nanoseconds = double(time.count());
        ++m_rounds;
        m_ended.wakeAll();
    }

    ZDbus *m_bus = nullptr;
    QSharedPointer<QObject> m_self;
    QMutex m_mutex; // guards all that follow
    QWaitCondition m_ended;
    int m_rounds = 0;
    double m_nanoseconds = 0;
};

#include "toiler.moc"
