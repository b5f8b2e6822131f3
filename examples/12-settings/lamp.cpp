// SPDX-License-Identifier: Apache-2.0
// A plugin with settings of its own. They stand in the configuration under "plugins" and its name.
#include <zconfigured.h>
#include <zendpoint.h>

#include <QMutex>

class Lamp : public ZEndpoint, public ZConfigured
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_INTERFACES(ZConfigured)

public:
    Lamp() : ZEndpoint(QUrl("//lamp")) {}

    // The settings have changed. If they are wrong, the lamp goes on with those before.
    void configured(const QJsonObject &settings) override { follow(ZSettings(settings, *this)); }

protected:
    void begin(const QJsonObject &) override
    {
        if (!follow(settings()))
            letGo(); // and is unloaded again; the version before goes on
    }

    bool called(const QUrl &, QJsonObject *, QJsonObject *out) override
    {
        const QMutexLocker locker(&m_mutex);
        if (out)
            out->insert("shines", m_shines);
        return true;
    }

private:
    bool follow(const ZSettings &settings)
    {
        const QString room = settings.text("room");                  // required, for it has no default
        const int percent = settings.number("percent", 100, 0, 100); // a default, and a range
        const QString colour = settings.oneOf("colour", {"red", "white"}, "white");
        if (!settings.check(zLogger())) // logs all errors, and each key that was not asked for
            return false;
        const QMutexLocker locker(&m_mutex);
        m_shines = QString("in the %1, %2, at %3 %").arg(room, colour).arg(percent);
        return true;
    }

    QMutex m_mutex;
    QString m_shines;
};

#include "lamp.moc"
