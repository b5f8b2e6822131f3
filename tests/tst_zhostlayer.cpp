// SPDX-License-Identifier: Apache-2.0
#include "door/doorhost.h"
#include "testcase.h"

/// What leaves the process if a layer lies over the bus, and what does not.
class tst_ZHostLayer : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void whatUsersCallGoesOverTheWholeBus();
    void whatTheTimetableCallsGoesOverTheWholeBus();
    void saysWhyACallWasNotHandled_data();
    void saysWhyACallWasNotHandled();
    void asksOnlyItsOwnPluginsForTheirHealth();
    void listsOnlyItsOwnEndpoints();
};

namespace {

const QString Layer = QStringLiteral("layer");
const QString Echo = QStringLiteral("echo");

} // namespace

void tst_ZHostLayer::whatUsersCallGoesOverTheWholeBus()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo, Layer}));
    QVERIFY(isIn(host.call("//far/away").object(), "handled"));
    QVERIFY(isIn(host.call("//echo").object(), "handled"));
    QTRY_VERIFY_WITH_TIMEOUT(host.running->hasWritten(QStringLiteral("layer: call //far/away\n")), Patience);
    QVERIFY(!host.running->written().contains(QStringLiteral("layer: call //echo\n")));
}

void tst_ZHostLayer::whatTheTimetableCallsGoesOverTheWholeBus()
{
    DoorHost host;
    host.schedule = {entry("//far/away")};
    QVERIFY(host.startsWith({Layer}));
    QTRY_VERIFY_WITH_TIMEOUT(host.running->hasWritten(QStringLiteral("layer: call //far/away\n")), Patience);
    QVERIFY(textIn(host.find("schedule", "index", 0), "ended").isEmpty());
}

void tst_ZHostLayer::saysWhyACallWasNotHandled_data()
{
    QTest::addColumn<QStringList>("plugins");
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<QString>("reason");
    const QStringList both{Echo, Layer};
    QTest::newRow("nobody is there") << QStringList() << QByteArray("//x") << "nobody handled //x";
    QTest::newRow("it is refused") << QStringList{Echo} << QByteArray("//echo/deaf") << "nobody handled //echo/deaf";
    QTest::newRow("an exception") << QStringList{Echo} << QByteArray("//echo/throw")
                                  << "//echo/throw has thrown: no more";
    QTest::newRow("nobody is anywhere") << both << QByteArray("//nobody") << "nobody handled //nobody";
    QTest::newRow("nobody knows why") << both << QByteArray("//x") << "nobody handled //x";
    QTest::newRow("too late") << both << QByteArray("//late/x") << "nobody handled //late/x: too late";
}

void tst_ZHostLayer::saysWhyACallWasNotHandled()
{
    QFETCH(QStringList, plugins);
    QFETCH(QByteArray, url);
    DoorHost host;
    QVERIFY(host.startsWith(plugins));
    const QJsonObject answer = host.call(url.constData()).object();
    QVERIFY(!isIn(answer, "handled"));
    QTEST(textIn(answer, "reason"), "reason");
}

void tst_ZHostLayer::asksOnlyItsOwnPluginsForTheirHealth()
{
    DoorHost host;
    host.probation = 3000; // some health checks long
    QVERIFY(host.startsWith({Layer}));
    QVERIFY(host.hotDeploy.drop(Echo));
    const QString file = QStringLiteral("libecho.so");
    QTRY_COMPARE_WITH_TIMEOUT(textIn(host.plugin(file), "state"), QStringLiteral("good"), Patience);
    host.running->stop();
    QVERIFY2(host.running->hasEndedWell(), qPrintable(host.running->written()));
    QVERIFY2(!host.running->written().contains(QStringLiteral("//echo/healthy")), qPrintable(host.running->written()));
}

void tst_ZHostLayer::listsOnlyItsOwnEndpoints()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo, Layer}));
    const QJsonObject out = host.call("//zhost/printd").object().value(QStringLiteral("out")).toObject();
    const QJsonArray endpoints =
        out.value(QStringLiteral("zhost")).toObject().value(QStringLiteral("endpoints")).toArray();
    QVERIFY(endpoints.contains(QStringLiteral("//echo")));
    QVERIFY(!endpoints.contains(QStringLiteral("//far")));
}

QTEST_GUILESS_MAIN(tst_ZHostLayer)

#include "tst_zhostlayer.moc"
