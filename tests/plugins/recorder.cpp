// SPDX-License-Identifier: Apache-2.0
#include <zconfigured.h>
#include <zendpoint.h>

#include <QAtomicInt>

class Recorder : public ZEndpoint, public ZConfigured
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_INTERFACES(ZConfigured)

public:
    Recorder() : ZEndpoint(QUrl("//recorder")) {}

    void configured(const QJsonObject &settings) override { follow(ZSettings(settings, *this)); }

protected:
    void begin(const QJsonObject &) override
    {
        if (!follow(settings()))
            letGo();
    }

    bool called(const QUrl &, QJsonObject *, QJsonObject *out) override
    {
        if (out)
            out->insert("every", m_every.loadAcquire());
        return true;
    }

private:
    bool follow(const ZSettings &settings)
    {
        const int every = settings.number("every", 500, 1, 60000); // a default, and a range
        const QString unit = settings.oneOf("unit", {"ms", "s"});  // without a default it is required
        if (!settings.check(zLogger()))
            return false; // what was before stays
        m_every.storeRelease(unit == "s" ? every * 1000 : every);
        return true;
    }

    QAtomicInt m_every;
};

#include "recorder.moc"
