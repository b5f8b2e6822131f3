// SPDX-License-Identifier: Apache-2.0
#define LAYERED_DBUS_ITSELF
#include "layereddbus.h"

#include "broker.h"

#include <QFileInfo>
#include <QJsonArray>

#include <zscheduler.h>
#include <zwiring.h>

namespace {

Broker &broker()
{
    static Broker one;
    static const bool isThere = qgetenv("NATS_BROKER") == "there" && one.start();
    Q_UNUSED(isThere)
    return one;
}

QJsonObject configuration()
{
    const QString folder = QFileInfo(QStringLiteral(ZNATS)).path();
    return {{QStringLiteral("logger"), QJsonObject{{QStringLiteral("info"), 0}, {QStringLiteral("warning"), 0}}},
            {QStringLiteral("loader"), QJsonObject{{QStringLiteral("deployed"), folder},
                                                   {QStringLiteral("load-list"), QJsonArray{QStringLiteral("znats")}}}},
            {QStringLiteral("nats"), QJsonObject{{QStringLiteral("name"), QStringLiteral("user")},
                                                 {QStringLiteral("servers"), QJsonArray{broker().url()}},
                                                 {QStringLiteral("serve"), QJsonArray{QStringLiteral("*")}}}}};
}

/// Passes on what is not about the plugin's own endpoint, which the tests do not know of.
class Others : public ZLogger
{
public:
    explicit Others(ZLogger *logger) : m_logger(logger) {}

    void info0(const QString &text) override { m_logger->info0(text); }
    bool info0() override { return m_logger->info0(); }
    void debug0(const QString &text) override { m_logger->debug0(text); }
    bool debug0() override { return m_logger->debug0(); }
    void warning0(const QString &text) override
    {
        if (!text.startsWith(QLatin1String("nats: "))) // about its broker
            m_logger->warning0(text);
    }
    bool warning0() override { return m_logger->warning0(); }
    void critical0(const QString &text) override { m_logger->critical0(text); }
    bool critical0() override { return m_logger->critical0(); }
    void fatal0(const QString &text) override { m_logger->fatal0(text); }
    void log0(int index, int kind, const QString &text) override
    {
        if (!text.contains(QLatin1String("//nats")))
            m_logger->log0(index, kind, text);
    }
    int log0(int index) override { return m_logger->log0(index); }
    int log0(const QString &name) override { return m_logger->log0(name); }

private:
    ZLogger *const m_logger;
};

/// In place of the host's own, which would be bound on the bus.
class NoScheduler : public QObject, public ZScheduler
{
    Q_OBJECT
    Q_INTERFACES(ZScheduler)

public:
    bool schedule0(QSharedPointer<ZScheduledActivity>) override { return false; }
};

} // namespace

const char *const LayeredDbus::TypeName = [] {
    qRegisterMetaType<LayeredDbus *>("LayeredDbus*");
    return "LayeredDbus*";
}();

LayeredDbus::LayeredDbus() : m_below(new ZDefaultDbus), m_host(configuration(), {m_below, new NoScheduler})
{
    m_host.begin();
    if (!bus()->find0(QUrl(QStringLiteral("//nats"))))
        qWarning("the plugin is not loaded");
}

bool LayeredDbus::bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber)
{
    return bus()->bind0(url, subscriber);
}

bool LayeredDbus::find0(const QUrl &url) { return bus()->find0(url); }

QList<QUrl> LayeredDbus::findAll0(const QRegularExpression &re)
{
    QList<QUrl> urls = bus()->findAll0(re);
    urls.removeAll(QUrl(QStringLiteral("//nats")));
    return urls;
}

bool LayeredDbus::invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) { return bus()->invoke0(url, in, out); }

ZLogger *LayeredDbus::getSetZLogger(ZLogger *logger)
{
    if (!logger)
        return nullptr;
    auto others = std::make_unique<Others>(logger);
    m_below->getSetZLogger(others.get());
    m_log = std::move(others);
    return logger;
}

ZEmitter *LayeredDbus::getSetZEmitter(ZEmitter *emitter) { return zAnnounce<ZDbusDelegate>(this, emitter); }

#include "layereddbus.moc"
