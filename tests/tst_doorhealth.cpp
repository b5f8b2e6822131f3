// SPDX-License-Identifier: Apache-2.0
// What the door tells to who watches a host: whether it is well, its figures, and what it is while it hangs.
#include "door/doorhost.h"
#include "testcase.h"

#include <QHash>
#include <QRegularExpression>

class tst_DoorHealth : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void isHealthyAndReady();
    void isNotReadyWhileItStarts();
    void isNotReadyWhileItStops_data();
    void isNotReadyWhileItStops();
    void namesThePluginInWhichItHangs();
    void answersWhileItHangs_data();
    void answersWhileItHangs();
    void givesFigures();
    void escapesWhatPluginsAreCalled();
};

namespace {

const QString Echo = QStringLiteral("echo");
const QString Lodger = QStringLiteral("lodger");

QJsonObject state(bool isOk, const QString &reason = QString())
{
    return {{QStringLiteral("ok"), isOk}, {QStringLiteral("reason"), reason}};
}

/// Waits until it is taken to hang.
bool hangs(const DoorHost &host)
{
    return host.call("//lodger/hang").status == 200 &&
           QTest::qWaitFor([&] { return host.get("/healthz").status == 503; }, Patience);
}

/// What is in it, by name and labels; empty if a line is none of the format.
QHash<QString, double> metricsOf(const DoorHost &host)
{
    static const QRegularExpression line(
        QStringLiteral(R"(^([a-z_]+(?:\{(?:[a-z]+="(?:[^"\\]|\\.)*",?)*\})?) ([-+0-9.e]+)$)"));
    QHash<QString, double> result;
    const QStringList lines = QString::fromUtf8(host.get("/metrics").body).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &text : lines) {
        if (text.startsWith(QLatin1String("# HELP ")) || text.startsWith(QLatin1String("# TYPE ")))
            continue;
        const QRegularExpressionMatch match = line.match(text);
        if (!match.hasMatch())
            return {};
        result.insert(match.captured(1), match.captured(2).toDouble());
    }
    return result;
}

} // namespace

void tst_DoorHealth::isHealthyAndReady()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    for (const char *const path : {"/healthz", "/readyz"}) {
        const Answered answered = host.get(path);
        QCOMPARE(answered.status, 200);
        QCOMPARE(answered.object(), state(true));
    }
}

void tst_DoorHealth::isNotReadyWhileItStarts()
{
    DoorHost host;
    QVERIFY(host.deployed.drop(QStringLiteral("unruly")));
    host.loadList = QStringList{QStringLiteral("unruly")};
    host.schedule = {entry("//echo/often")};
    host.start(QStringLiteral("read"));
    QTRY_COMPARE_WITH_TIMEOUT(host.get("/readyz").status, 503, Patience);
    QCOMPARE(host.get("/readyz").object(), state(false, QStringLiteral("the plugins are being loaded")));
    QCOMPARE(textIn(host.get("/v1/report/host").object(), "state"), QStringLiteral("starting"));
    QCOMPARE(host.get("/v1/report/schedule").array(), QJsonArray());
    for (const char *const path : {"/v1/call?url=//echo", "/v1/schedule/0/run", "/v1/plugins/unruly/release"}) {
        const Answered refused = host.post(path);
        QCOMPARE(refused.status, 503);
        QCOMPARE(refused.error(), QStringLiteral("the host has not loaded all its plugins yet"));
    }
    // In the long run it is not well either.
    QTRY_COMPARE_WITH_TIMEOUT(host.get("/healthz").status, 503, Patience);
    const QString reason = textIn(host.get("/healthz").object(), "reason");
    QVERIFY2(reason.endsWith(QStringLiteral(", while loading unruly")), qPrintable(reason));
    host.running->process().write("x");
    QVERIFY(host.isReady());
    QCOMPARE(host.get("/v1/report/schedule").array().size(), 1);
}

void tst_DoorHealth::isNotReadyWhileItStops_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<QString>("deed");
    QTest::newRow("an activity that does not end") << "stubborn" << QString();
    QTest::newRow("a plugin that hangs when it is asked to quit") << "unruly"
                                                                  << "hang when asked to quit";
}

void tst_DoorHealth::isNotReadyWhileItStops()
{
    QFETCH(QString, plugin);
    QFETCH(QString, deed);
    DoorHost host;
    QVERIFY(host.startsWith({plugin}, deed));
    QCOMPARE(host.post("/v1/stop").status, 202);
    QTRY_COMPARE_WITH_TIMEOUT(host.get("/readyz").status, 503, Patience);
    QCOMPARE(host.get("/readyz").object(), state(false, QStringLiteral("the host is stopping")));
    QCOMPARE(textIn(host.get("/v1/report/host").object(), "state"), QStringLiteral("stopping"));
}

void tst_DoorHealth::namesThePluginInWhichItHangs()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QVERIFY(hangs(host));
    const QRegularExpression sentence(QStringLiteral(R"(^the event loop has not come round for \d+ s: it is in )"
                                                     R"((/.*/liblodger\.so\+0x[0-9a-f]+)$)"));
    const Answered health = host.get("/healthz");
    const QRegularExpressionMatch reason = sentence.match(textIn(health.object(), "reason"));
    QVERIFY2(reason.hasMatch(), health.body.constData());
    const QJsonObject told = host.get("/v1/report/host").object();
    QVERIFY(!isIn(told, "healthy"));
    const QJsonObject loop = told.value(QStringLiteral("loop")).toObject();
    QVERIFY(isIn(loop, "hangs"));
    QVERIFY(numberIn(loop, "delayMs") >= 2000);
    QCOMPARE(textIn(loop, "where"), reason.captured(1));
    QCOMPARE(metricsOf(host).value(QStringLiteral("zhost_healthy"), -1), 0.0);
    QCOMPARE(host.get("/readyz").status, 200); // whose plugins are all loaded

    QCOMPARE(host.call("//lodger/go").status, 200);
    QTRY_COMPARE_WITH_TIMEOUT(host.get("/healthz").object(), state(true), Patience);
}

void tst_DoorHealth::answersWhileItHangs_data()
{
    QTest::addColumn<QByteArray>("path");
    for (const char *const path :
         {"/v1/report", "/v1/report/host", "/v1/report/plugins", "/v1/report/services", "/v1/report/endpoints",
          "/v1/report/schedule", "/v1/report/threads", "/v1/report/configuration", "/v1/report/events", "/v1/log",
          "/metrics", "/readyz", "/"})
        QTest::newRow(path) << QByteArray(path);
}

void tst_DoorHealth::answersWhileItHangs()
{
    QFETCH(QByteArray, path);
    static DoorHost host; // the first row has it hang, and the others find it so
    if (!host.running) {
        QVERIFY(host.startsWith({Lodger}));
        QVERIFY(hangs(host));
    }
    QCOMPARE(host.get(path.constData()).status, 200);
}

void tst_DoorHealth::givesFigures()
{
    DoorHost host;
    host.schedule = {entry("//echo/deaf", false)};
    QVERIFY(host.startsWith({Echo, Lodger}));
    QTRY_COMPARE_WITH_TIMEOUT(numberIn(host.find("schedule", "index", 0), "runs"), 1, Patience);
    QCOMPARE(host.call("//echo").status, 200);
    QCOMPARE(host.call("//echo/deaf").status, 200);
    QTRY_COMPARE_WITH_TIMEOUT(textIn(host.plugin(QStringLiteral("libecho.so")), "state"), QStringLiteral("good"),
                              Patience);
    const Answered answered = host.get("/metrics");
    QCOMPARE(QString::fromStdString(answered.headers.find("Content-Type")->second),
             QStringLiteral("text/plain; version=0.0.4; charset=utf-8"));
    const QHash<QString, double> metrics = metricsOf(host);
    const std::pair<const char *, double> wanted[] = {
        {"zhost_healthy", 1},
        {"zhost_ready", 1},
        {R"(zhost_plugin_in_memory{plugin="echo",file="libecho.so",state="good"})", 1},
        {R"(zhost_service_exchanges_total{interface="ZTempFile"})", 1},
        {R"(zhost_service_exchanges_total{interface="ZLoader"})", 0},
        {R"(zhost_schedule_runs_total{index="0",url="//echo/deaf"})", 1},
        {R"(zhost_schedule_failures_total{index="0",url="//echo/deaf"})", 1},
        {"zhost_door_calls_total", 2},
        {"zhost_door_call_failures_total", 1}};
    for (const auto &[name, value] : wanted)
        QVERIFY2(metrics.value(QLatin1String(name), -1) == value, name);
    for (const char *const name : {"zhost_event_loop_delay_seconds", "process_cpu_seconds_total",
                                   R"(zhost_schedule_last_seconds{index="0",url="//echo/deaf"})"})
        QVERIFY2(metrics.value(QLatin1String(name), -1) >= 0, name);
    for (const char *const name : {"process_resident_memory_bytes", "process_open_fds", "process_threads"})
        QVERIFY2(metrics.value(QLatin1String(name)) > 0, name);
}

void tst_DoorHealth::escapesWhatPluginsAreCalled()
{
    DoorHost host;
    QVERIFY(host.deployed.drop(QStringLiteral("plain"), QStringLiteral("liba\"b\\c\nd.so")));
    QVERIFY(host.startsWith({}));
    const QString name =
        QStringLiteral(R"(zhost_plugin_in_memory{plugin="a\"b\\c\nd",file="liba\"b\\c\nd.so",state="unproven"})");
    QCOMPARE(metricsOf(host).value(name, -1), 0.0);
}

QTEST_GUILESS_MAIN(tst_DoorHealth)
#include "tst_doorhealth.moc"
