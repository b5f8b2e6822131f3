// SPDX-License-Identifier: Apache-2.0
// An endpoint with a state. Its next version asks it for that, and goes on from there.
#include <zendpoint.h>

class Counter : public ZEndpoint
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Counter() : ZEndpoint(QUrl("//counter")) {}

protected:
    // What the version before has handed over; empty for the first one.
    void begin(const QJsonObject &state) override { m_count = state["count"].toInt(); }

    bool called(const QUrl &, QJsonObject *, QJsonObject *out) override
    {
        const int count = m_count.fetchAndAddOrdered(1) + 1;
        if (out)
            *out = {{"count", count}, {"version", COUNTER_VERSION}};
        return true;
    }

    // All calls of this version have ended. New calls wait until the next version has begun.
    QJsonObject handOver() override { return {{"count", m_count.loadAcquire()}}; }

private:
    QAtomicInt m_count;
};

#include "counter.moc"
