// SPDX-License-Identifier: Apache-2.0
#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSemaphore>

#include <limits>
#include <stdexcept>

/// The endpoint "//nats" of a bus that reaches other processes, as it tells of itself. By the variable AFAR it refuses,
/// throws, waits until it is asked for "//nats/go", tells nonsense, or tells too much.
class Afar : public ZObject, public ZDbusSubscriber
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)

public:
    Afar() : m_deed(qEnvironmentVariable("AFAR"))
    {
        connect(qApp, &QCoreApplication::aboutToQuit, this, [this] {
            m_go.release(100);
            m_self.clear();
        });
    }

    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (zKeepFirst(m_dbus, dbus)) {
            m_self = shared();
            dbus->bind0(QUrl(QStringLiteral("//nats")), qSharedPointerDynamicCast<ZDbusSubscriber>(m_self));
        }
        return m_dbus;
    }

    bool invoked(const QUrl &url, QJsonObject *, QJsonObject *out) override
    {
        if (url.path() == QLatin1String("/go"))
            m_go.release();
        else if (url.path() == QLatin1String("/hosts"))
            out->insert(QStringLiteral("hosts"), hosts());
        else if (url.path() == QLatin1String("/printd"))
            return tell(out);
        else
            return false;
        return true;
    }

private:
    bool tell(QJsonObject *out)
    {
        if (m_deed == QLatin1String("refuses"))
            return false;
        if (m_deed == QLatin1String("throws"))
            throw std::runtime_error("no report");
        if (m_deed == QLatin1String("waits"))
            m_go.acquire();
        if (m_deed == QLatin1String("tells nonsense"))
            *out = nonsense();
        else if (m_deed == QLatin1String("tells too much"))
            *out = tooMuch();
        else
            *out = report();
        return true;
    }

    static QJsonObject objectOf(const char *json) { return QJsonDocument::fromJson(json).object(); }

    static QJsonArray hosts()
    {
        return QJsonArray{
            objectOf(R"({"name": "node7", "id": "a1", "version": "1.0.0", "urls": ["//clock", "//report/daily"],
                                    "ms": 1.5, "started": "2020-01-01T00:00:00.000Z"})"),
            objectOf(R"({"name": "no\u001bde8", "id": "a2", "version": "1.0.0", "urls": [], "ms": 20,
                                    "started": ""})"),
            3};
    }

    static QJsonObject report()
    {
        return objectOf(R"({
            "name": "node6", "domain": "shop", "layer": "nats",
            "connection": {"state": "connected", "server": "nats://127.0.0.1:4222",
                           "since": "2020-01-01T01:00:00.000+01:00", "rtt ms": 0.25, "reconnects": 2, "error": "gone"},
            "served": ["//clock"],
            "hosts": [{"name": "node7", "seen": "2020-01-01T00:00:00.000Z", "skew ms": -3.5}],
            "calls": {"out": {"n": 120, "failed": 4, "p50 ms": 0.5, "p99 ms": 20, "under way": 1},
                      "in": {"n": 7, "refused": 2, "p50 ms": 1, "p99 ms": 2}},
            "reasons": {"nobody": 3, "too late": 1},
            "queue": {"waiting": 5, "running": 8, "workers": 8, "most": 256},
            "leases": [{"name": "report", "state": "held", "holder": "node6", "age ms": 100, "slot": 1234567890123}]})");
    }

    static QJsonObject nonsense()
    {
        const double infinite = std::numeric_limits<double>::infinity();
        return {
            {QStringLiteral("name"), 3},
            {QStringLiteral("domain"), QJsonArray()},
            {QStringLiteral("layer"), QJsonValue::Null},
            {QStringLiteral("connection"), QJsonObject{{QStringLiteral("state"), QStringLiteral("confused")},
                                                       {QStringLiteral("since"), QStringLiteral("yesterday")},
                                                       {QStringLiteral("rtt ms"), infinite},
                                                       {QStringLiteral("reconnects"), -2.5}}},
            {QStringLiteral("served"), QJsonArray{1, QJsonObject(), QStringLiteral("//a")}},
            {QStringLiteral("hosts"), QJsonObject{{QStringLiteral("a"), 1}}},
            {QStringLiteral("calls"), QStringLiteral("many")},
            {QStringLiteral("reasons"), QJsonObject{{QString(), QStringLiteral("x")}, {QStringLiteral("a\"b"), 1e300}}},
            {QStringLiteral("queue"), true},
            {QStringLiteral("leases"), QJsonArray{1, QJsonArray(), QJsonObject{{QStringLiteral("slot"), -1}}}}};
    }

    static QJsonObject tooMuch()
    {
        const QString longText(100000, QLatin1Char('x'));
        QJsonArray hosts;
        QJsonObject reasons;
        for (int i = 0; i < 5000; ++i) {
            hosts.append(QJsonObject{{QStringLiteral("name"), QString::number(i)}});
            reasons.insert(QString::number(i), i);
        }
        QJsonObject deep;
        for (int i = 0; i < 700; ++i)
            deep = QJsonObject{{QStringLiteral("x"), deep}};
        return {{QStringLiteral("name"), longText},
                {QStringLiteral("hosts"), hosts},
                {QStringLiteral("reasons"), reasons},
                {QStringLiteral("served"), QJsonArray{longText}},
                {QStringLiteral("deep"), deep}};
    }

    const QString m_deed;
    ZDbus *m_dbus = nullptr;
    QSharedPointer<QObject> m_self;
    QSemaphore m_go;
};

#include "afar.moc"
