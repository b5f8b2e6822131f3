// SPDX-License-Identifier: Apache-2.0
#include <zconfig.h>
#include <zconfigured.h>
#include <zdbus.h>
#include <zlogger.h>
#include <zobject.h>
#include <zsettings.h>

#include <QThread>
#include <QUrl>

#include <stdexcept>

/// Logs its settings as it is loaded, and whenever it hears of new ones, and does what their "deed" says. Calls
/// "//test/settled" whenever it has, and "//test/destroyed" in its destructor.
class Settled : public ZObject, public ZConfigured
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_INTERFACES(ZConfigured)
    Q_PROPERTY(ZDbus *zDbus MEMBER m_dbus)
    Q_PROPERTY(ZLogger *zLogger MEMBER m_logger)
    Q_PROPERTY(ZConfig *zConfig READ zConfig WRITE setZConfig)

public:
    ~Settled() override { call("//test/destroyed"); }

    ZConfig *zConfig() const { return m_config; }
    void setZConfig(ZConfig *config)
    {
        m_config = config;
        follow("read", ZSettings(config, *this));
    }

    void configured(const QJsonObject &settings) override
    {
        follow(thread() == QThread::currentThread() ? "heard" : "heard elsewhere", ZSettings(settings, *this));
    }

private:
    void call(const char *url) const
    {
        if (m_dbus)
            m_dbus->invoke0(QUrl(QLatin1String(url)), nullptr, nullptr);
    }

    void follow(const char *how, const ZSettings &settings)
    {
        const QString text = settings.text(QStringLiteral("text"), QStringLiteral("nothing"));
        const QString deed =
            settings.oneOf(QStringLiteral("deed"),
                           {QStringLiteral("hold"), QStringLiteral("let go"), QStringLiteral("throw")}, QString());
        if (settings.check(m_logger))
            m_logger->info0(QStringLiteral("%1 " VERSION ": %2").arg(QLatin1String(how), text));
        if (deed == QLatin1String("hold"))
            m_self = shared();
        if (deed == QLatin1String("let go"))
            m_self.clear();
        call("//test/settled");
        if (deed == QLatin1String("let go"))
            m_logger->info0(QStringLiteral("goes on"));
        if (deed == QLatin1String("throw"))
            throw std::runtime_error("no");
    }

    ZDbus *m_dbus = nullptr;
    ZLogger *m_logger = nullptr;
    ZConfig *m_config = nullptr;
    QSharedPointer<QObject> m_self;
};

#include "settled.moc"
