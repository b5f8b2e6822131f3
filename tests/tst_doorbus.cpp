// SPDX-License-Identifier: Apache-2.0
// What the door tells of the bus past the host's process, whatever the plugin does that takes it there.
#include "door/contract.h"
#include "door/doorhost.h"
#include "testcase.h"

#include <QElapsedTimer>

#include <thread>
#include <vector>

class tst_DoorBus : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void tellsNothingWithoutThePlugin();
    void tellsWhatThePluginTells();
    void hasItsFigures();
    void tellsWhyThePluginTellsNothing_data();
    void tellsWhyThePluginTellsNothing();
    void takesNonsense();
    void takesNoMoreThanAReaderCan();
    void waitsForNoPlugin();
    void waitsForNoPluginAtTheEnd();
    void staysWithinTheProcess();
};

namespace {

const QString Afar = QStringLiteral("afar");

bool start(DoorHost &host, const char *deed = "")
{
    return host.startsWith({Afar}, QLatin1String(deed), QStringLiteral("AFAR"));
}

QJsonObject busOf(const DoorHost &host) { return host.get("/v1/report/bus").object(); }

QJsonObject partOf(const QJsonObject &bus, const char *key) { return bus.value(QLatin1String(key)).toObject(); }

QJsonArray listOf(const QJsonObject &bus, const char *key) { return bus.value(QLatin1String(key)).toArray(); }

/// What the contract has against the answer; empty if it is as it should be.
QString whyNot(const Answered &answered)
{
    QFile file(QStringLiteral(CONTRACT));
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("there is no contract");
    const Contract contract(QJsonDocument::fromJson(file.readAll()).object());
    return contract.whyNot(answered.object(),
                           QJsonObject{{QStringLiteral("$ref"), QStringLiteral("#/components/schemas/bus")}});
}

} // namespace

void tst_DoorBus::tellsNothingWithoutThePlugin()
{
    DoorHost host;
    QVERIFY(host.startsWith({}));
    QVERIFY(!host.get("/v1/report").object().contains(QStringLiteral("bus")));
    const Answered part = host.get("/v1/report/bus");
    QCOMPARE(part.status, 404);
    QCOMPARE(part.error(), QStringLiteral("no plugin takes the bus past this process: nobody has bound //nats"));
    QVERIFY(!host.get("/metrics").body.contains("zhost_bus_"));
}

void tst_DoorBus::tellsWhatThePluginTells()
{
    DoorHost host;
    QVERIFY(start(host));
    const Answered answered = host.get("/v1/report/bus");
    QCOMPARE(answered.status, 200);
    QCOMPARE(whyNot(answered), QString());
    const QJsonObject bus = answered.object();
    QCOMPARE(host.get("/v1/report").object().value(QStringLiteral("bus")).toObject(), bus);
    QCOMPARE(textIn(bus, "error"), QString());
    QCOMPARE(textIn(bus, "name"), QStringLiteral("node6"));
    QCOMPARE(textIn(bus, "domain"), QStringLiteral("shop"));
    const QJsonObject connection = partOf(bus, "connection");
    QCOMPARE(textIn(connection, "state"), QStringLiteral("connected"));
    QCOMPARE(textIn(connection, "since"), QStringLiteral("2020-01-01T00:00:00.000Z"));
    QCOMPARE(connection.value(QStringLiteral("rttMs")).toDouble(), 0.25);
    QCOMPARE(numberIn(connection, "reconnects"), 2);
    QCOMPARE(listOf(bus, "served"), QJsonArray{QStringLiteral("//clock")});
    QCOMPARE(listOf(bus, "hosts").at(0).toObject().value(QStringLiteral("skewMs")).toDouble(), -3.5);
    QCOMPARE(numberIn(partOf(bus, "out"), "calls"), 120);
    QCOMPARE(numberIn(partOf(bus, "out"), "failures"), 4);
    QCOMPARE(numberIn(partOf(bus, "in"), "failures"), 2);
    QCOMPARE(listOf(bus, "reasons").size(), 2);
    QCOMPARE(numberIn(partOf(bus, "queue"), "most"), 256);
    QCOMPARE(listOf(bus, "leases").at(0).toObject().value(QStringLiteral("slot")).toDouble(), 1234567890123.0);
}

void tst_DoorBus::hasItsFigures()
{
    DoorHost host;
    QVERIFY(start(host));
    const QByteArray figures = host.get("/metrics").body;
    for (const char *const line :
         {"zhost_bus_connected 1\n", "zhost_bus_reconnects_total 2\n", "zhost_bus_round_trip_seconds 0.00025\n",
          "zhost_bus_calls_total{direction=\"out\"} 120\n", "zhost_bus_calls_total{direction=\"in\"} 7\n",
          "zhost_bus_call_failures_total{direction=\"in\"} 2\n", "zhost_bus_calls_under_way{direction=\"out\"} 1\n",
          "zhost_bus_failures_total{reason=\"too late\"} 1\n",
          "zhost_bus_latency_seconds{direction=\"out\",quantile=\"0.99\"} 0.02\n",
          "zhost_bus_queue{state=\"waiting\"} 5\n", "zhost_bus_queue_most 256\n", "zhost_bus_hosts 1\n"})
        QVERIFY2(figures.contains(line), figures.constData());
    QVERIFY(figures.contains("zhost_door_calls_total 0\n")); // nobody has asked for a call
}

void tst_DoorBus::tellsWhyThePluginTellsNothing_data()
{
    QTest::addColumn<QByteArray>("deed");
    QTest::addColumn<QString>("error");
    QTest::newRow("refuses") << QByteArray("refuses") << "nobody handled //nats/printd";
    QTest::newRow("throws") << QByteArray("throws") << "//nats/printd has thrown: no report";
    QTest::newRow("waits") << QByteArray("waits") << "//nats/printd has not come back yet";
}

void tst_DoorBus::tellsWhyThePluginTellsNothing()
{
    QFETCH(QByteArray, deed);
    DoorHost host;
    QVERIFY(start(host, deed.constData()));
    const Answered answered = host.get("/v1/report/bus");
    QCOMPARE(whyNot(answered), QString());
    QTEST(textIn(answered.object(), "error"), "error");
    QCOMPARE(textIn(partOf(answered.object(), "connection"), "state"), QStringLiteral("unknown"));
    const QByteArray figures = host.get("/metrics").body;
    QVERIFY(figures.contains("zhost_bus_connected 0\n"));
    QVERIFY(!figures.contains("zhost_bus_calls_total"));
    QVERIFY(figures.contains("zhost_door_call_failures_total 0\n"));
}

void tst_DoorBus::takesNonsense()
{
    DoorHost host;
    QVERIFY(start(host, "tells nonsense"));
    const Answered answered = host.get("/v1/report/bus");
    QCOMPARE(whyNot(answered), QString());
    const QJsonObject bus = answered.object();
    QCOMPARE(textIn(partOf(bus, "connection"), "state"), QStringLiteral("unknown"));
    QCOMPARE(numberIn(partOf(bus, "connection"), "reconnects"), 0);
    QCOMPARE(listOf(bus, "hosts"), QJsonArray());
    QCOMPARE(listOf(bus, "served").size(), 3);
    QCOMPARE(listOf(bus, "leases").size(), 3);
    const QByteArray figures = host.get("/metrics").body;
    QVERIFY2(figures.contains("zhost_bus_failures_total{reason=\"a\\\"b\"}"), figures.constData());
}

void tst_DoorBus::takesNoMoreThanAReaderCan()
{
    DoorHost host;
    QVERIFY(start(host, "tells too much"));
    const Answered answered = host.get("/v1/report/bus");
    QCOMPARE(whyNot(answered), QString());
    QVERIFY(answered.body.size() < 500000);
    QCOMPARE(listOf(answered.object(), "hosts").size(), 1000);
    QCOMPARE(textIn(answered.object(), "name").size(), 1000);
}

/// However many ask, one call waits for it, and the other slots of the door are free.
void tst_DoorBus::waitsForNoPlugin()
{
    DoorHost host;
    QVERIFY(start(host, "waits"));
    std::vector<std::thread> askers;
    askers.reserve(20);
    QAtomicInt told;
    for (int i = 0; i < 20; ++i)
        askers.emplace_back([&] {
            if (!textIn(busOf(host), "error").isEmpty())
                told.ref();
        });
    for (std::thread &asker : askers)
        asker.join();
    QCOMPARE(told.loadAcquire(), 20);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(host.get("/v1/report").status, 200);
    QCOMPARE(host.get("/metrics").status, 200);
    QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(host.call("//nats/go").status, 200); // one is enough
    QTRY_COMPARE_WITH_TIMEOUT(host.call("//nats/go").status, 200, Patience);
    QTRY_COMPARE_WITH_TIMEOUT(textIn(busOf(host), "error"), QString(), Patience);
}

void tst_DoorBus::waitsForNoPluginAtTheEnd()
{
    DoorHost host;
    QVERIFY(start(host, "waits"));
    QVERIFY(!textIn(busOf(host), "error").isEmpty());
    host.running->stop();
    QVERIFY2(host.running->hasEndedWell(), qPrintable(host.running->written()));
}

void tst_DoorBus::staysWithinTheProcess()
{
    DoorHost host;
    QVERIFY(host.startsWith({QStringLiteral("layer"), Afar}));
    QCOMPARE(textIn(busOf(host), "name"), QStringLiteral("node6"));
    QVERIFY(!host.running->written().contains(QStringLiteral("layer: call")));
}

QTEST_GUILESS_MAIN(tst_DoorBus)

#include "tst_doorbus.moc"
