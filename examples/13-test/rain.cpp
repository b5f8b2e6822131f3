// SPDX-License-Identifier: Apache-2.0
// A rain gauge: calls add what has fallen; once an hour it reports the sum, and begins again.
#include <zendpoint.h>

class Rain : public ZEndpoint
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Rain() : ZEndpoint(QUrl("//rain")) {}

protected:
    void begin(const QJsonObject &state) override
    {
        m_fallen = state["mm"].toInt();
        every(3600000, [this] { zLogger()->info0(QString("rain: %1 mm").arg(m_fallen.fetchAndStoreOrdered(0))); });
    }

    bool called(const QUrl &, QJsonObject *in, QJsonObject *out) override
    {
        const int more = in ? in->value("mm").toInt() : 0;
        const int fallen = m_fallen.fetchAndAddOrdered(more) + more;
        if (out)
            *out = {{"mm", fallen}, {"version", RAIN_VERSION}};
        return true;
    }

    QJsonObject handOver() override { return {{"mm", m_fallen.loadAcquire()}}; }

private:
    QAtomicInt m_fallen;
};

#include "rain.moc"
