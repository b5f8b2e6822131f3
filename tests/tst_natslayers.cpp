// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "folder.h"
#include "nodeprocess.h"
#include "testcase.h"

#include <zdbuslayers.h>
#include <zdbussubscriber.h>
#include <zdefaultdbus.h>
#include <zdefaultdbusoutcome.h>
#include <zhost.h>
#include <zloader.h>
#include <zwiring.h>

#include <memory>
#include <thread>

namespace {

const QString Url = QStringLiteral("//w");

/// A bus over another one, which notes what it passes on.
class Over : public QObject, public ZDbus, public ZDbusLayer
{
    Q_OBJECT
    Q_INTERFACES(ZDbus ZDbusLayer)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    explicit Over(QSharedPointer<ZReference> next = {}) { setNext0(next); }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr) { return zAnnounce<ZDbusDelegate>(this, emitter); }

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override
    {
        bound << url;
        return below.bind0(url, subscriber);
    }
    bool find0(const QUrl &url) override { return below.find0(url); }
    QList<QUrl> findAll0(const QRegularExpression &re) override { return below.findAll0(re); }
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        ++calls;
        return below.invoke0(url, in, out);
    }

    QString layer0() override { return QStringLiteral("over"); }
    bool next0(QSharedPointer<ZReference> &next) override
    {
        next = below;
        return true;
    }
    bool setNext0(const QSharedPointer<ZReference> &next) override
    {
        below.replace(next);
        outcomeBelow.replace(next);
        ++exchanges;
        return true;
    }

    ZDbusDelegate below{QSharedPointer<QObject>()};
    ZDbusOutcomeDelegate outcomeBelow{QSharedPointer<QObject>()};
    QList<QUrl> bound;
    int calls = 0;
    int exchanges = 0;
};

class OverWithOutcome : public Over, public ZDbusOutcome
{
    Q_OBJECT
    Q_INTERFACES(ZDbusOutcome)

public:
    using Over::Over;

    bool call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome) override
    {
        ++outcomes;
        return outcomeBelow.call0(url, in, out, outcome);
    }

    int outcomes = 0;
};

class Endpoint : public ZDbusSubscriber
{
public:
    bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override { return true; }
};

/// Has what is injected.
class Services : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZDbusOutcome *outcome MEMBER outcome)

public:
    ZDbusOutcome *outcome = nullptr;
};

} // namespace

/// The plugin among other layers of the bus, in this process.
class tst_NatsLayers : public TestCase
{
    Q_OBJECT

protected Q_SLOTS:
    void init() override;

private Q_SLOTS:
    void aBusThatLeadsNowhereIsLeftAlone();
    void itsNextVersionTakesItsPlaceBelowOthers_data();
    void itsNextVersionTakesItsPlaceBelowOthers();
    void whoeverLoadsItItLooksForTheDead();

private:
    /// A configuration with the plugin, which is loaded at the start if `isLoaded`.
    QJsonObject configuration(bool isLoaded = true) const;

    std::unique_ptr<Broker> m_broker;
    std::unique_ptr<Folder> m_deployed, m_hot;
};

void tst_NatsLayers::init()
{
    TestCase::init();
    m_broker = std::make_unique<Broker>();
    QVERIFY(m_broker->start());
    m_deployed = std::make_unique<Folder>();
    m_hot = std::make_unique<Folder>();
    QVERIFY(QFile::copy(QStringLiteral(ZNATS), m_deployed->filePath(QStringLiteral("libznats.so"))));
}

QJsonObject tst_NatsLayers::configuration(bool isLoaded) const
{
    QJsonArray list;
    if (isLoaded)
        list.append(QStringLiteral("znats"));
    const QJsonObject loader{{QStringLiteral("deployed"), m_deployed->path()},
                             {QStringLiteral("hot-deploy"), m_hot->path()},
                             {QStringLiteral("load-list"), list}};
    return {{QStringLiteral("loader"), loader}, {QStringLiteral("nats"), sectionFor(m_broker->url())}};
}

void tst_NatsLayers::aBusThatLeadsNowhereIsLeftAlone()
{
    auto *const astray = new Over;
    ZHost host(configuration(), {astray});
    host.begin();
    QCOMPARE(messages().take(QtWarningMsg),
             QStringList({"nats: the layers of the bus lead nowhere", "nats: the bus stays within this process"}));
    QVERIFY(!astray->bound.contains(QUrl(QStringLiteral("//nats"))));
    astray->calls = 0;
    host.services().dbus->invoke0(QUrl(Url), nullptr, nullptr);
    QCOMPARE(astray->calls, 1); // it is served as before
}

void tst_NatsLayers::itsNextVersionTakesItsPlaceBelowOthers_data()
{
    QTest::addColumn<bool>("hasOutcome");
    QTest::newRow("that tell the outcome") << true;
    QTest::newRow("that do not") << false;
}

void tst_NatsLayers::itsNextVersionTakesItsPlaceBelowOthers()
{
    QFETCH(bool, hasOutcome);
    ZHost host(configuration());
    host.begin();
    ZDbus *const dbus = host.services().dbus;
    ZEmitter *const emitter = host.services().emitter;
    const auto withOutcome = QSharedPointer<OverWithOutcome>::create(*dynamic_cast<ZDelegate *>(dbus));
    const auto without = QSharedPointer<Over>::create(*dynamic_cast<ZDelegate *>(dbus));
    const QSharedPointer<Over> over = hasOutcome ? withOutcome : without;
    emitter->bind0(QSharedPointer<ZDbusDelegate>::create(over));
    if (hasOutcome)
        emitter->bind0(QSharedPointer<ZDbusOutcomeDelegate>::create(over));
    const auto endpoint = QSharedPointer<Endpoint>::create();
    QVERIFY(dbus->bind0(QUrl(Url), endpoint));
    Services services;
    emitter->inject0(&services);
    QVERIFY(services.outcome);
    for (int version = 1; version <= 3; ++version) {
        over->calls = withOutcome->outcomes = 0;
        QJsonObject outcome;
        QVERIFY(services.outcome->call0(QUrl(Url), nullptr, nullptr, &outcome));
        QCOMPARE(outcome.value(QStringLiteral("code")).toInt(), 200);
        QCOMPARE(withOutcome->outcomes, hasOutcome ? 1 : 0);
        QVERIFY(dbus->invoke0(QUrl(Url), nullptr, nullptr));
        QCOMPARE(over->calls, 1);
        const int before = over->exchanges;
        QVERIFY(QFile::copy(QStringLiteral(ZNATS), m_hot->filePath(QStringLiteral("part"))));
        QVERIFY(QFile::rename(m_hot->filePath(QStringLiteral("part")),
                              m_hot->filePath(QStringLiteral("libznats.%1.so").arg(version))));
        QTRY_COMPARE_WITH_TIMEOUT(over->exchanges, before + 1, 20000);
    }
}

void tst_NatsLayers::whoeverLoadsItItLooksForTheDead()
{
    ZHost host(configuration(false));
    host.begin();
    std::thread other([&] { host.services().loader->load0(QStringLiteral("znats")); });
    other.join();
    ZDbus *const dbus = host.services().dbus;
    const auto served = [&] {
        QJsonObject report;
        dbus->invoke0(QUrl(QStringLiteral("//nats/printd")), nullptr, &report);
        return report.value(QStringLiteral("served")).toArray();
    };
    auto endpoint = QSharedPointer<Endpoint>::create(); // which tells nobody when it dies
    QVERIFY(dbus->bind0(QUrl(Url), endpoint));
    QVERIFY(served().contains(Url));
    endpoint.clear();
    QTRY_VERIFY_WITH_TIMEOUT(!served().contains(Url), 20000);
}

QTEST_GUILESS_MAIN(tst_NatsLayers)
#include "tst_natslayers.moc"
