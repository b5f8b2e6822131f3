// SPDX-License-Identifier: Apache-2.0
#include <zconfig.h>
#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QJsonDocument>

/// Logs the section "configured"; as the endpoint "//configured/SECTION" the section SECTION.
class Configured : public ZObject, public ZDbusSubscriber
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZConfig *zConfig READ getSetZConfig WRITE getSetZConfig)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)

public:
    Configured()
    {
        connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_self.clear(); });
    }

    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        zKeepFirst(m_logger, logger);
        return m_logger;
    }

    ZConfig *getSetZConfig(ZConfig *config = nullptr)
    {
        if (zKeepFirst(m_config, config))
            tell(QStringLiteral("configured"));
        return m_config;
    }

    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (zKeepFirst(m_dbus, dbus)) {
            m_self = shared();
            dbus->bind0(QUrl(QStringLiteral("//configured")), qSharedPointerDynamicCast<ZDbusSubscriber>(m_self));
        }
        return m_dbus;
    }

    bool invoked(const QUrl &url, QJsonObject *, QJsonObject *) override
    {
        tell(url.path().mid(1));
        return true;
    }

private:
    void tell(const QString &section)
    {
        const QJsonDocument content(m_config->toJson0().value(section).toObject());
        m_logger->warning0(QStringLiteral("configured: ") + QString::fromUtf8(content.toJson(QJsonDocument::Compact)));
    }

    ZLogger *m_logger = nullptr;
    ZConfig *m_config = nullptr;
    ZDbus *m_dbus = nullptr;
    QSharedPointer<QObject> m_self;
};

#include "configured.moc"
