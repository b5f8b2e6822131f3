// SPDX-License-Identifier: Apache-2.0
// What a running host tells of itself to who asks at its door.
#include "door/doorhost.h"
#include "testcase.h"

#include <QDateTime>

class tst_Door : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void tellsOfItself();
    void tellsEachPartAlone_data();
    void tellsEachPartAlone();
    void tellsWhoServes();
    void tellsWhoServedBefore();
    void tellsWhoIsNotServedAnyMore();
    void tellsWhichEndpointsAreAlive();
    void tellsOfItsThreads();
    void tellsWhatHasHappened();
    void forgetsWhatHappenedLongAgo();
    void showsNoSectionOfAPlugin();
    void showsWhatItRunsByAfterAReload();
};

namespace {

const QString Lodger = QStringLiteral("lodger");
const QString Echo = QStringLiteral("echo");
const QString First = QStringLiteral("liblodger.so");
const QString Second = QStringLiteral("liblodger.2.so");

/// Not before the test, and not after now.
bool isRecent(const QString &text)
{
    const QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
    return time.timeSpec() == Qt::UTC && qAbs(time.msecsTo(QDateTime::currentDateTimeUtc())) < 2 * Patience;
}

/// What has happened to `subject`, as "KIND" or "KIND: TEXT".
QStringList eventsOf(const DoorHost &host, const QString &subject)
{
    QStringList result;
    const QJsonArray events = host.get("/v1/report/events").array();
    for (const auto &value : events) {
        const QJsonObject event = value.toObject();
        if (textIn(event, "subject") == subject)
            result.append(textIn(event, "kind") +
                          (textIn(event, "text").isEmpty() ? QString() : QStringLiteral(": ") + textIn(event, "text")));
    }
    return result;
}

bool exchanges(DoorHost *host)
{
    return host->startsWith({Lodger}) && host->hotDeploy.drop(Lodger, Second) &&
           QTest::qWaitFor([&] { return host->isInMemory(Second); }, Patience);
}

} // namespace

void tst_Door::tellsOfItself()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const QJsonObject told = host.get("/v1/report/host").object();
    QCOMPARE(textIn(told, "version"), QStringLiteral(VERSION));
    QCOMPARE(numberIn(told, "process"), int(host.running->process().processId()));
    QCOMPARE(textIn(told, "configuration"), host.running->configurationFile());
    QCOMPARE(told.value(QStringLiteral("door")).toArray(), QJsonArray{host.socket()});
    QCOMPARE(textIn(told, "state"), QStringLiteral("running"));
    QVERIFY(isIn(told, "healthy"));
    QCOMPARE(textIn(told, "reason"), QString());
    const QJsonObject loop = told.value(QStringLiteral("loop")).toObject();
    QVERIFY(!isIn(loop, "hangs"));
    QCOMPARE(textIn(loop, "where"), QString());
    QVERIFY(numberIn(loop, "delayMs") >= 0);
    QVERIFY(isRecent(textIn(told, "since")));
    QVERIFY(isRecent(textIn(told, "now")));
    QVERIFY(textIn(told, "now") >= textIn(told, "since"));
    for (const char *const figure : {"residentBytes", "threads", "descriptors"})
        QVERIFY2(numberIn(told, figure) > 0, figure);
    QVERIFY(numberIn(told, "cpuMs") >= 0);
    QVERIFY(!told.value(QStringLiteral("notKnown")).toArray().isEmpty());
}

void tst_Door::tellsEachPartAlone_data()
{
    QTest::addColumn<QString>("part");
    for (const char *const part :
         {"host", "plugins", "services", "endpoints", "schedule", "threads", "configuration", "events"})
        QTest::newRow(part) << part;
}

void tst_Door::tellsEachPartAlone()
{
    QFETCH(QString, part);
    DoorHost host;
    host.schedule = {entry("//echo/often")};
    QVERIFY(host.startsWith({Echo}));
    const QJsonObject all = host.get("/v1/report").object();
    const Answered alone = host.get(qPrintable(QStringLiteral("/v1/report/") + part));
    QCOMPARE(alone.status, 200);
    QCOMPARE(all.size(), 8);
    // Figures go on: what is the same is of what kind they are.
    QVERIFY(all.contains(part));
    if (all.value(part).isObject()) {
        QCOMPARE(alone.object().keys(), all.value(part).toObject().keys());
    } else {
        QVERIFY(!alone.array().isEmpty());
        QCOMPARE(alone.array().first().toObject().keys(), all.value(part).toArray().first().toObject().keys());
    }
}

void tst_Door::tellsWhoServes()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    const QJsonObject own = host.find("services", "interface", QStringLiteral("ZLoader"));
    QVERIFY(isIn(own, "served"));
    QCOMPARE(textIn(own, "class"), QStringLiteral("ZDefaultLoader"));
    QCOMPARE(textIn(own, "file"), QString());
    QCOMPARE(numberIn(own, "exchanges"), 0);
    QCOMPARE(own.value(QStringLiteral("before")).toArray(), QJsonArray());
    const QJsonObject foreign = host.find("services", "interface", QStringLiteral("ZTempFile"));
    QVERIFY(isIn(foreign, "served"));
    QCOMPARE(textIn(foreign, "class"), QStringLiteral("Lodger"));
    QCOMPARE(textIn(foreign, "file"), First);
    QVERIFY(isRecent(textIn(foreign, "since")));
    QCOMPARE(numberIn(foreign, "exchanges"), 1);
}

void tst_Door::tellsWhoServedBefore()
{
    DoorHost host;
    QVERIFY(exchanges(&host));
    const QJsonObject service = host.find("services", "interface", QStringLiteral("ZTempFile"));
    QCOMPARE(textIn(service, "file"), Second);
    QCOMPARE(numberIn(service, "exchanges"), 2);
    const QJsonArray before = service.value(QStringLiteral("before")).toArray();
    QCOMPARE(before.size(), 2); // the last first
    const QJsonObject plugin = before.at(0).toObject();
    QCOMPARE(textIn(plugin, "class"), QStringLiteral("Lodger"));
    QCOMPARE(textIn(plugin, "file"), First);
    QVERIFY(textIn(plugin, "since") <= textIn(service, "since"));
    QVERIFY(isIn(plugin, "held")); // by itself
    const QJsonObject own = before.at(1).toObject();
    QCOMPARE(textIn(own, "class"), QStringLiteral("ZDefaultTempFile"));
    QCOMPARE(textIn(own, "file"), QString());
    QVERIFY(!isIn(own, "held"));
}

void tst_Door::tellsWhoIsNotServedAnyMore()
{
    DoorHost host;
    QVERIFY(host.startsWith({QStringLiteral("withdrawer")}, QStringLiteral("ZContext"), QStringLiteral("WITHDRAW")));
    const QJsonObject service = host.find("services", "interface", QStringLiteral("ZContext"));
    QVERIFY(!service.isEmpty());
    QVERIFY(!isIn(service, "served"));
    QCOMPARE(textIn(service, "class"), QString());
    QCOMPARE(eventsOf(host, QStringLiteral("ZContext")),
             QStringList({QStringLiteral("announced: ZDefaultContext"), QStringLiteral("withdrawn")}));
}

void tst_Door::tellsWhichEndpointsAreAlive()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger, Echo}));
    const QJsonObject echo = host.find("endpoints", "url", QStringLiteral("//echo"));
    QVERIFY(isIn(echo, "alive"));
    QCOMPARE(textIn(echo, "file"), QStringLiteral("libecho.so"));
    QVERIFY(isRecent(textIn(echo, "since")));
    QCOMPARE(textIn(host.find("endpoints", "url", QStringLiteral("//zhost")), "file"), QString());

    QVERIFY(isIn(host.call("//lodger/release").object(), "handled")); // which it also serves
    const auto isAlive = [&](const char *url) {
        return host.find("endpoints", "url", QLatin1String(url)).value(QStringLiteral("alive"));
    };
    QCOMPARE(isAlive("//lodger"), QJsonValue(true));
    QVERIFY(host.hotDeploy.drop(QStringLiteral("lender"))); // and does so no more
    QTRY_COMPARE_WITH_TIMEOUT(isAlive("//lodger"), QJsonValue(false), Patience);
    QCOMPARE(isAlive("//echo"), QJsonValue(true));
}

void tst_Door::tellsOfItsThreads()
{
    DoorHost host;
    host.schedule = {entry("//echo/often")};
    QVERIFY(host.startsWith({Echo}));
    const QJsonArray threads = host.get("/v1/report/threads").array();
    QStringList names;
    for (const auto &value : threads) {
        const QJsonObject thread = value.toObject();
        names.append(textIn(thread, "name"));
        QVERIFY(numberIn(thread, "id") > 0);
        QVERIFY(numberIn(thread, "cpuMs") >= 0);
        QCOMPARE(textIn(thread, "state").size(), 1);
    }
    for (const char *const name : {"zhost", "zhost calls", "zhost door", "zhost request"})
        QVERIFY2(names.contains(QLatin1String(name)), name);
}

void tst_Door::tellsWhatHasHappened()
{
    DoorHost host;
    host.probation = 600000; // or one may be good before it is unloaded
    QVERIFY(
        host.startsWith({QStringLiteral("noroot"), QStringLiteral("plain"), QStringLiteral("threadlocal"), Lodger}));
    QCOMPARE(eventsOf(host, QStringLiteral("ZLoader")), QStringList{QStringLiteral("announced: ZDefaultLoader")});
    QCOMPARE(eventsOf(host, QStringLiteral("ZTempFile")),
             QStringList(
                 {QStringLiteral("announced: ZDefaultTempFile"), QStringLiteral("exchanged: Lodger of liblodger.so")}));
    QCOMPARE(eventsOf(host, First), QStringList{QStringLiteral("loaded")});
    const QStringList plain = {QStringLiteral("loaded"), QStringLiteral("unloaded")};
    QTRY_COMPARE_WITH_TIMEOUT(eventsOf(host, QStringLiteral("libplain.so")), plain, Patience);
    QTRY_COMPARE_WITH_TIMEOUT(eventsOf(host, QStringLiteral("libthreadlocal.so")).size(), 2, Patience);
    QVERIFY(eventsOf(host, QStringLiteral("libthreadlocal.so")).last().startsWith(QLatin1String("stays: ")));
    const QStringList refused = eventsOf(host, QStringLiteral("libnoroot.so"));
    QVERIFY(!refused.isEmpty());
    QVERIFY2(refused.first().startsWith(QLatin1String("refused: ")), qPrintable(refused.first()));

    const QJsonArray events = host.get("/v1/report/events").array();
    for (int i = 0; i < events.size(); ++i) {
        QCOMPARE(numberIn(events.at(i).toObject(), "number"), i + 1);
        QVERIFY(isRecent(textIn(events.at(i).toObject(), "time")));
    }
}

void tst_Door::forgetsWhatHappenedLongAgo()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QVERIFY(isIn(host.call("//lodger/announce", R"({"times": 1100})").object(), "handled"));
    const QJsonArray events = host.get("/v1/report/events").array();
    QCOMPARE(events.size(), 1000);
    QVERIFY(numberIn(events.first().toObject(), "number") > 100);
    QCOMPARE(numberIn(events.last().toObject(), "number") - numberIn(events.first().toObject(), "number"), 999);
    const QJsonArray before =
        host.find("services", "interface", QStringLiteral("ZTempFile")).value(QStringLiteral("before")).toArray();
    QCOMPARE(before.size(), 8);
}

void tst_Door::showsNoSectionOfAPlugin()
{
    DoorHost host;
    host.sections = {{QStringLiteral("configured"), QJsonObject{{QStringLiteral("password"), QStringLiteral("hush")}}},
                     {QStringLiteral("#note"), QStringLiteral("hush")}};
    QVERIFY(host.startsWith({Echo}));
    const Answered told = host.get("/v1/report/configuration");
    QVERIFY(!told.body.contains("hush"));
    QVERIFY(!host.get("/v1/report").body.contains("hush"));
    QCOMPARE(textIn(told.object(), "file"), host.running->configurationFile());
    QCOMPARE(told.object().value(QStringLiteral("others")).toArray(), QJsonArray{QStringLiteral("configured")});
    const QJsonObject keys = told.object().value(QStringLiteral("keys")).toObject();
    QCOMPARE(keys.keys(), QStringList({QStringLiteral("door"), QStringLiteral("guard"), QStringLiteral("loader"),
                                       QStringLiteral("logger"), QStringLiteral("schedule")}));
    QCOMPARE(textIn(keys.value(QStringLiteral("loader")).toObject(), "deployed"), host.deployed.path());
}

void tst_Door::showsWhatItRunsByAfterAReload()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    host.schedule = {entry("//echo/often")};
    host.running->configure(QJsonDocument(host.configuration()).toJson());
    const Answered asked = host.post("/v1/reload");
    QCOMPARE(asked.status, 202);
    QCOMPARE(textIn(asked.object(), "asked"), QStringLiteral("reload"));
    QTRY_COMPARE_WITH_TIMEOUT(host.get("/v1/report/schedule").array().size(), 1, Patience);
    const QJsonObject keys = host.get("/v1/report/configuration").object().value(QStringLiteral("keys")).toObject();
    QCOMPARE(keys.value(QStringLiteral("schedule")).toArray(), host.schedule);
}

QTEST_GUILESS_MAIN(tst_Door)
#include "tst_door.moc"
