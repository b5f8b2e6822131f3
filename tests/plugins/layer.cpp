// SPDX-License-Identifier: Apache-2.0
#include <zdbuslayers.h>
#include <zdefaultdbus.h>
#include <zdefaultdbusoutcome.h>
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>

/// A layer over the bus, as one that reaches other processes: it finds everything, and handles what the bus below does
/// not, but for "//late", which is too late. It logs what it is asked.
class Layer : public ZObject, public ZDbus, public ZDbusLayer, public ZDbusOutcome
{
    Q_OBJECT
    Q_INTERFACES(ZDbus ZDbusLayer ZDbusOutcome)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        zKeepFirst(m_logger, logger);
        return m_logger;
    }
    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (zKeepFirst(m_dbus, dbus)) {
            m_next = *dynamic_cast<ZDelegate *>(dbus);
            m_below.replace(m_next);
            begin();
        }
        return m_dbus;
    }
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (zKeepFirst(m_emitter, emitter))
            begin();
        return m_emitter;
    }

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override
    {
        return m_below.bind0(url, subscriber);
    }
    bool find0(const QUrl &url) override
    {
        tell("find", url);
        return true;
    }
    QList<QUrl> findAll0(const QRegularExpression &re) override
    {
        return m_below.findAll0(re) << QUrl(QStringLiteral("//far"));
    }
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override { return call0(url, in, out, nullptr); }

    QString layer0() override { return QStringLiteral("test"); }
    bool next0(QSharedPointer<ZReference> &next) override
    {
        next = m_next;
        return true;
    }
    bool setNext0(const QSharedPointer<ZReference> &) override { return false; }

    bool call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome) override
    {
        if (m_below.invoke0(url, in, out))
            return true;
        tell("call", url);
        const bool isLate = url.host() == QLatin1String("late");
        if (outcome && isLate)
            *outcome =
                QJsonObject{{QStringLiteral("code"), 408}, {QStringLiteral("reason"), QStringLiteral("too late")}};
        else if (outcome && url.host() == QLatin1String("nobody"))
            *outcome = QJsonObject{{QStringLiteral("code"), 503}, {QStringLiteral("reason"), QStringLiteral("nobody")}};
        return url.host() == QLatin1String("far");
    }

private:
    void begin()
    {
        if (!m_emitter || !m_dbus)
            return;
        m_emitter->bind0(QSharedPointer<ZDbusDelegate>::create(shared()));
        m_emitter->bind0(QSharedPointer<ZDbusOutcomeDelegate>::create(shared()));
    }
    void tell(const char *what, const QUrl &url) const
    {
        m_logger->info0(QStringLiteral("layer: %1 %2").arg(QLatin1String(what), url.toString()));
    }

    ZLogger *m_logger = nullptr;
    ZDbus *m_dbus = nullptr;
    ZEmitter *m_emitter = nullptr;
    QSharedPointer<ZReference> m_next;
    ZDbusDelegate m_below{QSharedPointer<QObject>()};
};

#include "layer.moc"
