// SPDX-License-Identifier: Apache-2.0
// Any sequence of bindings, deaths, searches and calls, against a model of the bus.
#include "fuzz.h"

#include "journal.h"

#include <QMap>
#include <QVector>

#include <zdbussubscriber.h>
#include <zdefaultdbus.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>

namespace {

struct Call
{
    int subscriber;
    QUrl url;
    QJsonObject *in;
    QJsonObject *out;

    bool operator==(const Call &other) const
    {
        return subscriber == other.subscriber && url == other.url && in == other.in && out == other.out;
    }
    bool operator<(const Call &other) const { return subscriber < other.subscriber; }
};

QVector<Call> calls;

class Subscriber : public ZDbusSubscriber
{
public:
    Subscriber(int number, bool handles) : m_number(number), m_handles(handles) {}

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        calls.append({m_number, url, in, out});
        return m_handles;
    }

private:
    const int m_number;
    const bool m_handles;
};

template <class List>
List sorted(List list)
{
    std::sort(list.begin(), list.end());
    return list;
}

/// The bus beside what it should be: each operation is done by both.
class Bench
{
public:
    Bench() { m_bus.getSetZLogger(&m_journal); }

    void bind(const QUrl &url, int subscriber)
    {
        const bool hasHost = !url.host(QUrl::FullyDecoded).isEmpty();
        promise(m_bus.bind0(url, m_subscribers.value(subscriber)) == hasHost, "only an address with a host is bound");
        if (hasHost) {
            m_endpoints[keyOf(url)] = m_subscribers.contains(subscriber) ? subscriber : Dead;
            expect(4, QStringLiteral("(+) ") + keyOf(url));
        }
        checkLog();
    }

    void live(int subscriber, bool handles)
    {
        kill(subscriber);
        m_subscribers.insert(subscriber, QSharedPointer<Subscriber>::create(subscriber, handles));
        m_handles[subscriber] = handles;
    }

    void kill(int subscriber)
    {
        m_subscribers.remove(subscriber);
        for (int &bound : m_endpoints) {
            if (bound == subscriber)
                bound = Dead;
        }
    }

    void find(const QUrl &url)
    {
        promise(m_bus.find0(url) == m_endpoints.contains(keyOf(url)), "exactly what is bound is found");
        checkLog();
    }

    void findAll(const QRegularExpression &re)
    {
        QStringList wanted;
        if (re.isValid()) {
            forgetDead();
            for (auto endpoint = m_endpoints.begin(); endpoint != m_endpoints.end(); ++endpoint) {
                if (re.match(endpoint.key()).hasMatch())
                    wanted.append(QUrl(endpoint.key()).toString());
            }
        }
        QStringList found;
        const QList<QUrl> urls = m_bus.findAll0(re);
        for (const QUrl &url : urls)
            found.append(url.toString());
        promise(sorted(found) == sorted(wanted), "the live endpoints that match are found",
                found.join(QLatin1Char(' ')) + QStringLiteral(" for ") + wanted.join(QLatin1Char(' ')));
        checkLog();
    }

    void invoke(const QUrl &url, QJsonObject *in, QJsonObject *out)
    {
        QVector<Call> wanted;
        if (!url.hasFragment())
            expect(8, QStringLiteral("(>) ") + url.toString());
        const QString host = QStringLiteral("//") + url.host(QUrl::FullyDecoded);
        if (host.size() == 2) {
            forgetDead();
            for (auto endpoint = m_endpoints.begin(); endpoint != m_endpoints.end(); ++endpoint) {
                if (!url.hasFragment())
                    expect(8, QStringLiteral("(>) ") + url.toString() + QStringLiteral(" (") + endpoint.key() +
                                  QLatin1Char(')'));
                wanted.append({endpoint.value(), url, in, out});
            }
        } else {
            const QString key = m_endpoints.contains(keyOf(url)) ? keyOf(url) : host;
            if (m_endpoints.value(key, Dead) != Dead)
                wanted.append({m_endpoints.value(key), url, in, out});
            else if (m_endpoints.remove(key))
                expect(4, QStringLiteral("(-) ") + key);
        }
        calls.clear();
        const bool handled = m_bus.invoke0(url, in, out);
        promise(sorted(calls) == sorted(wanted), "those who are addressed are called, with what was given");
        const auto handles = [this](const Call &call) { return m_handles.value(call.subscriber); };
        promise(handled == std::any_of(wanted.begin(), wanted.end(), handles), "a call is handled if anyone does");
        checkLog();
    }

private:
    static constexpr int Dead = -1;

    static QString keyOf(const QUrl &url)
    {
        return QStringLiteral("//") + url.host(QUrl::FullyDecoded) + url.path(QUrl::FullyDecoded);
    }

    void expect(int kind, const QString &text)
    {
        m_log.append(QStringLiteral("zdefault ") + QString::number(kind) + QStringLiteral(": ") + text);
    }

    void forgetDead()
    {
        for (auto endpoint = m_endpoints.begin(); endpoint != m_endpoints.end();) {
            if (endpoint.value() == Dead) {
                expect(4, QStringLiteral("(-) ") + endpoint.key());
                endpoint = m_endpoints.erase(endpoint);
            } else {
                ++endpoint;
            }
        }
    }

    /// The walk over all endpoints has no order, but the line of the call itself comes first.
    void checkLog()
    {
        const QStringList log = m_journal.take();
        promise(log.value(0) == m_log.value(0) || m_log.value(0).startsWith(QLatin1String("zdefault 4")),
                "a call is logged before what it does", log.join(QLatin1Char('\n')));
        promise(sorted(log) == sorted(m_log), "what happens is logged",
                log.join(QLatin1Char('\n')) + QStringLiteral("\nfor\n") + m_log.join(QLatin1Char('\n')));
        m_log.clear();
    }

    Journal m_journal;
    ZDefaultDbus m_bus;
    QMap<int, QSharedPointer<Subscriber>> m_subscribers;
    QMap<int, bool> m_handles;
    QMap<QString, int> m_endpoints;
    QStringList m_log;
};

/// One of a few addresses, so that they meet, or any text.
QUrl url(FuzzedDataProvider &data)
{
    const std::string text = data.ConsumeBool() ? data.ConsumeRandomLengthString(40)
                                                : std::string(data.PickValueInArray({"", "x:", "//a", "//A", "//b"})) +
                                                      data.PickValueInArray({"", "/", "/x", "/X", "/x/y", "?q", "#f"}) +
                                                      data.PickValueInArray({"", "#", "%20", "?", "%2F"});
    return QUrl(QString::fromUtf8(text.data(), static_cast<int>(text.size())),
                data.ConsumeBool() ? QUrl::TolerantMode : QUrl::StrictMode);
}

} // namespace

void fuzz(const QByteArray &input)
{
    FuzzedDataProvider data(reinterpret_cast<const uint8_t *>(input.constData()), static_cast<size_t>(input.size()));
    Bench bench;
    QJsonObject objects[2];
    const auto object = [&]() -> QJsonObject * {
        const int which = data.ConsumeIntegralInRange(0, 2);
        return which < 2 ? &objects[which] : nullptr;
    };
    while (data.remaining_bytes() > 0) {
        const int subscriber = data.ConsumeIntegralInRange(0, 3);
        switch (data.ConsumeIntegralInRange(0, 7)) {
        case 0:
            bench.live(subscriber, data.ConsumeBool());
            break;
        case 1:
            bench.kill(subscriber);
            break;
        case 2:
        case 3:
            bench.bind(url(data), subscriber);
            break;
        case 4:
            bench.find(url(data));
            break;
        case 5: {
            const std::string pattern = data.ConsumeRandomLengthString(12);
            bench.findAll(QRegularExpression(QString::fromStdString(pattern)));
            break;
        }
        default: {
            QJsonObject *in = object();
            bench.invoke(url(data), in, object());
        }
        }
    }
}
