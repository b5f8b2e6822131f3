// SPDX-License-Identifier: Apache-2.0
// An endpoint whose versions hand over to each other.
#include "gate.h"

#include <zendpoint.h>

#include <QAtomicInt>
#include <QCoreApplication>
#include <QTimer>

#include <atomic>
#include <functional>
#include <stdexcept>

namespace {

/// Counts itself.
class Running
{
public:
    explicit Running(QAtomicInt *count) : m_count(count) { m_count->ref(); }
    ~Running() { m_count->deref(); }

private:
    QAtomicInt *const m_count;
};

} // namespace

class Handed : public ZEndpoint
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Handed() : ZEndpoint(QUrl(HANDED_URL))
    {
        setMaxJobs(2);
        if (auto *deed = HANDED_VERSION == 2 ? qApp->property("asItIsMade").value<void *>() : nullptr)
            (*static_cast<std::function<void()> *>(deed))();
        // Too early: who holds it is not known yet.
        m_isTooEarly = !start([] {}) && !every(1, [] {});
    }
    ~Handed() override
    {
        if (m_tellsItsEnd)
            qApp->setProperty("lastGone", HANDED_VERSION);
    }

protected:
    void begin(const QJsonObject &state) override
    {
        const QString way = HANDED_VERSION == 2 ? qApp->property("begins").toString() : QString();
        if (auto *deed = HANDED_VERSION == 2 ? qApp->property("asItBegins").value<void *>() : nullptr)
            (*static_cast<std::function<void()> *>(deed))();
        if (way == QLatin1String("with an exception"))
            throw std::runtime_error("cannot begin");
        if (way == QLatin1String("by letting go"))
            letGo();
        m_count = state.value("count").toInt();
        m_ranOn = state.value("running").toInt();
        m_wasTooLate = state.value("isTooLate").toBool();
        every(1, [this] {
            const Running running(&m_running);
            m_ticks.ref();
        });
    }

    bool called(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        const QString path = url.path();
        if (path == QLatin1String("/unknown"))
            return false;
        if (path == QLatin1String("/throw"))
            throw std::runtime_error("a call");
        const Running running(&m_running);
        if (path == QLatin1String("/count"))
            m_count.ref();
        if (path == QLatin1String("/wait"))
            Gate::pass(qApp);
        if (path == QLatin1String("/every-late")) {
            Gate::pass(qApp);
            return every(3600000, [] {});
        }
        if (path == QLatin1String("/let-go"))
            letGo();
        if (path == QLatin1String("/wait-and-let-go")) {
            Gate::pass(qApp);
            letGo();
        }
        if (path == QLatin1String("/let-go-later")) {
            m_tellsItsEnd = true;
            QTimer::singleShot(0, this, [this] {
                letGo();
                qApp->setProperty("isThereAfterwards", qApp->property("lastGone").isNull());
            });
        }
        if (path == QLatin1String("/job"))
            start([this] {
                const Running job(&m_running);
                Gate::pass(qApp);
                m_count.ref();
            });
        if (path == QLatin1String("/own-job"))
            start(*static_cast<std::function<void()> *>(qApp->property("job").value<void *>()));
        if (path == QLatin1String("/no-job"))
            return start({});
        if (path == QLatin1String("/two-jobs"))
            return start([] {}) && start([] {});
        if (path == QLatin1String("/job-of-a-call")) {
            Gate::pass(qApp);
            return start([this] { m_count.ref(); });
        }
        if (path == QLatin1String("/let-go-in-a-job"))
            start([this] {
                letGo();
                Gate::pass(qApp);
            });
        if (path == QLatin1String("/bad-job"))
            start([] { throw std::runtime_error("a job"); });
        if (path == QLatin1String("/bad-activity"))
            schedule(QSharedPointer<ZPeriodicSchedule>::create(1), [this]() -> bool {
                if (m_count.fetchAndAddOrdered(1) < 2)
                    throw std::runtime_error("an activity");
                return false;
            });
        if (path == QLatin1String("/nested")) {
            Gate::pass(qApp);
            return zDbus()->invoke0(QUrl(HANDED_URL "/count"), in, out);
        }
        if (out)
            *out = {{"version", HANDED_VERSION}, {"count", m_count.loadAcquire()}, {"ticks", m_ticks.loadAcquire()},
                    {"ranOn", m_ranOn},          {"isTooEarly", m_isTooEarly},     {"wasTooLate", m_wasTooLate}};
        return true;
    }

    QJsonObject handOver() override
    {
        if (qApp->property("handsOver").toString() == QLatin1String("with an exception"))
            throw std::runtime_error("cannot hand over");
        return {{"count", m_count.loadAcquire()},
                {"running", m_running.loadAcquire()},
                {"isTooLate", !start([] {}) && !every(1, [] {})}};
    }

private:
    QAtomicInt m_count, m_ticks, m_running;
    bool m_isTooEarly = false, m_wasTooLate = false;
    std::atomic_bool m_tellsItsEnd{false};
    int m_ranOn = 0; // of the version before, when it handed over
};

#include "handed.moc"
