// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <QPointer>
#include <QSemaphore>

#include <zdbuslayers.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zleasedelegate.h>

#include <thread>

namespace {

/// A layer that handles what is for one host itself.
class Layer : public QObject, public ZDbus, public ZDbusLayer, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZDbus ZDbusLayer)

public:
    explicit Layer(const QString &host = QStringLiteral("far")) : m_host(host) {}

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override
    {
        return m_below.bind0(url, subscriber);
    }
    bool find0(const QUrl &url) override { return url.host() == m_host || m_below.find0(url); }
    QList<QUrl> findAll0(const QRegularExpression &re) override { return m_below.findAll0(re); }
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        return url.host() == m_host || m_below.invoke0(url, in, out);
    }

    QString layer0() override { return QStringLiteral("fake"); }
    bool next0(QSharedPointer<ZReference> &next) override
    {
        next = m_below;
        return isLayer;
    }
    bool setNext0(const QSharedPointer<ZReference> &next) override
    {
        m_below.replace(next);
        return true;
    }

    bool isLayer = true;

private:
    const QString m_host;
    ZDbusDelegate m_below{static_cast<QObject *>(nullptr)};
};

using SharedLayer = QSharedPointer<Layer>;

/// Answers yes.
class Endpoint : public ZDbusSubscriber
{
public:
    bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override { return true; }
};

QUrl url(const char *text) { return QUrl(QString::fromLatin1(text)); }

bool call(ZDbus &bus, const char *text) { return bus.invoke0(url(text), nullptr, nullptr); }

QSharedPointer<ZReference> referenceTo(const QSharedPointer<QObject> &component)
{
    return QSharedPointer<ZReference>::create(component);
}

/// A delegate of the bus.
struct Bus
{
    Bus() { delegate.replace(bottom); }

    /// Lays one more over all others, as a plugin would do it.
    SharedLayer lay(const QString &host = QStringLiteral("far"))
    {
        const auto layer = SharedLayer::create(host);
        layer->setNext0(delegate);
        delegate.replace(referenceTo(layer));
        return layer;
    }
    void lay(int count)
    {
        for (int i = 0; i < count; ++i)
            lay();
    }

    const QSharedPointer<ZReference> bottom = referenceTo(QSharedPointer<ZDefaultDbus>::create());
    ZDbusDelegate delegate{static_cast<QObject *>(nullptr)};
};

/// Has a lease, once.
class Lease : public QObject, public ZLease
{
    Q_OBJECT
    Q_INTERFACES(ZLease)

public:
    bool want0(const QString &name, int msecs) override
    {
        calls.append(QStringLiteral("want %1 %2").arg(name).arg(msecs));
        return true;
    }
    void forget0(const QString &name) override { calls.append(QStringLiteral("forget ") + name); }
    bool begin0(const QString &name, qint64 slot, QString &reason) override
    {
        calls.append(QStringLiteral("begin %1 %2").arg(name).arg(slot));
        reason = QStringLiteral("begun before");
        return slot == 7;
    }

    QStringList calls;
};

QSharedPointer<ZReference> bottomOf(ZDbus *bus)
{
    const QVector<QSharedPointer<ZReference>> layers = zDbusLayers(bus);
    return layers.isEmpty() ? QSharedPointer<ZReference>() : layers.constLast();
}

} // namespace

class tst_DbusLayers : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void handleSomeCallsAndPassOthersOn();
    void lieOverEachOther();
    void giveTheirPlaceToTheirNextVersion();
    void areFollowedDownToTheBottom_data();
    void areFollowedDownToTheBottom();
    void areFollowedWhileOthersExchangeThem();
    void endWithOneThatHasNothingBelow();
    void leadNowhereWithoutABus();
    void leadNowhereInACircle();
    void leadNowhereWithoutAComponent();
    void shareTheirOwnerWithTheBusThatTheyAre();
    void leaseLeadsToItsComponent();
    void leaseSaysThatNobodyServesIt();
};

void tst_DbusLayers::handleSomeCallsAndPassOthersOn()
{
    Bus bus;
    const auto endpoint = QSharedPointer<Endpoint>::create();
    QVERIFY(bus.delegate.bind0(url("//near"), endpoint));
    QVERIFY(!call(bus.delegate, "//far"));
    bus.lay();
    QVERIFY(call(bus.delegate, "//near"));
    QVERIFY(call(bus.delegate, "//far"));
    QVERIFY(!call(bus.delegate, "//farther"));
    QVERIFY(bus.delegate.bind0(url("//later"), endpoint));
    QVERIFY(bus.delegate.find0(url("//later")) && bus.delegate.find0(url("//far")));
    QCOMPARE(bus.delegate.findAll0(QRegularExpression()).size(), 2);
}

void tst_DbusLayers::lieOverEachOther()
{
    Bus bus;
    const SharedLayer lower = bus.lay();
    bus.lay(QStringLiteral("farther"));
    QVERIFY(call(bus.delegate, "//far") && call(bus.delegate, "//farther") && !call(bus.delegate, "//farthest"));
    ZDbusLayerDelegate top(nullptr);
    top.replace(bus.delegate);
    QCOMPARE(top.layer0(), QStringLiteral("fake"));
    QSharedPointer<ZReference> next;
    QVERIFY(top.next0(next));
    ZDbusLayerDelegate second(nullptr);
    second.replace(next);
    const QSharedPointer<ZReference> middle = next;
    QVERIFY(second.next0(next));
    QCOMPARE(next, bus.bottom);
    QCOMPARE(zDbusLayers(&bus.delegate), (QVector<QSharedPointer<ZReference>>{bus.delegate, middle, bus.bottom}));
}

void tst_DbusLayers::giveTheirPlaceToTheirNextVersion()
{
    Bus bus;
    QWeakPointer<Layer> before = bus.lay();
    for (int i = 0; i < 10; ++i) {
        ZDbusLayerDelegate current(nullptr);
        current.replace(bus.delegate);
        QSharedPointer<ZReference> below;
        QVERIFY(current.next0(below));
        const auto layer = SharedLayer::create();
        ZDbusLayerDelegate next(layer);
        QVERIFY(next.setNext0(below));
        bus.delegate.replace(referenceTo(layer));
        current.replace({});
        QVERIFY(!before); // nobody uses it any more
        before = layer;
        QCOMPARE(bottomOf(&bus.delegate), bus.bottom);
        QVERIFY(call(bus.delegate, "//far"));
    }
}

void tst_DbusLayers::areFollowedDownToTheBottom_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("isFound");
    QTest::newRow("no layer") << 0 << true;
    QTest::newRow("one") << 1 << true;
    QTest::newRow("three") << 3 << true;
    QTest::newRow("as many as are followed") << 64 << true;
    QTest::newRow("one too many") << 65 << false;
}

void tst_DbusLayers::areFollowedDownToTheBottom()
{
    QFETCH(int, count);
    QFETCH(bool, isFound);
    Bus bus;
    bus.lay(count);
    QCOMPARE(bottomOf(&bus.delegate), isFound ? bus.bottom : QSharedPointer<ZReference>());
}

void tst_DbusLayers::areFollowedWhileOthersExchangeThem()
{
    Bus bus;
    std::thread other([&] {
        for (int i = 0; i < 2000; ++i) {
            bus.lay(3);
            bus.delegate.replace(bus.bottom);
        }
    });
    for (int i = 0; i < 2000; ++i) {
        const QSharedPointer<ZReference> found = bottomOf(&bus.delegate);
        if (found != bus.bottom) {
            other.join();
            QFAIL("another bus is at the bottom");
        }
    }
    other.join();
}

void tst_DbusLayers::endWithOneThatHasNothingBelow()
{
    Bus bus;
    const SharedLayer layer = bus.lay();
    const QSharedPointer<ZReference> reference = bus.delegate;
    layer->isLayer = false;
    QCOMPARE(bottomOf(&bus.delegate), reference);
    layer->isLayer = true;
    layer->setNext0({});
    QVERIFY(!bottomOf(&bus.delegate));
    layer->setNext0(referenceTo({}));
    QVERIFY(!bottomOf(&bus.delegate));
}

void tst_DbusLayers::leadNowhereWithoutABus()
{
    QVERIFY(!bottomOf(nullptr));
    ZDefaultDbus bare;
    QVERIFY(!bottomOf(&bare));
    ZDbusDelegate empty(nullptr);
    QVERIFY(!bottomOf(&empty));
    empty.replace({});
    QVERIFY(!bottomOf(&empty));
}

void tst_DbusLayers::leadNowhereInACircle()
{
    Bus bus;
    const SharedLayer lower = bus.lay();
    bus.lay(2);
    lower->setNext0(bus.delegate);
    QVERIFY(!bottomOf(&bus.delegate));
    lower->setNext0(bus.bottom); // else they keep each other for ever
    QCOMPARE(bottomOf(&bus.delegate), bus.bottom);
}

void tst_DbusLayers::leadNowhereWithoutAComponent()
{
    ZDbusLayerDelegate empty(nullptr);
    QSharedPointer<ZReference> next;
    QCOMPARE(empty.layer0(), QString());
    QVERIFY(!empty.next0(next) && !empty.setNext0(next));
}

void tst_DbusLayers::shareTheirOwnerWithTheBusThatTheyAre()
{
    const Wiring emitter;
    emitter->zemit0(ZDefaultDbus::TypeName);
    QPointer<Layer> layer = new Layer;
    emitter->bind0(QSharedPointer<ZDbusLayerDelegate>::create(layer)); // as a service of its own, too
    ZDbusDelegate own(layer);
    QVERIFY(!bottomOf(&own)); // nothing is below yet
    emitter->bind0(QSharedPointer<ZDbusLayerDelegate>::create(nullptr));
    QVERIFY(layer);
    own.replace({});
    QVERIFY(!layer);
}

void tst_DbusLayers::leaseLeadsToItsComponent()
{
    const auto lease = QSharedPointer<Lease>::create();
    ZLeaseDelegate delegate(lease);
    QString reason = QStringLiteral("none");
    QVERIFY(delegate.want0(QStringLiteral("a"), 100));
    QVERIFY(delegate.begin0(QStringLiteral("a"), 7, reason));
    QCOMPARE(reason, QStringLiteral("none"));
    QVERIFY(!delegate.begin0(QStringLiteral("a"), 8, reason));
    QCOMPARE(reason, QStringLiteral("begun before"));
    delegate.forget0(QStringLiteral("a"));
    QCOMPARE(lease->calls, QStringList({QStringLiteral("want a 100"), QStringLiteral("begin a 7"),
                                        QStringLiteral("begin a 8"), QStringLiteral("forget a")}));
}

void tst_DbusLayers::leaseSaysThatNobodyServesIt()
{
    ZLeaseDelegate delegate(nullptr);
    QString reason;
    QVERIFY(!delegate.want0(QStringLiteral("a"), 100));
    delegate.forget0(QStringLiteral("a"));
    QVERIFY(!delegate.begin0(QStringLiteral("a"), 1, reason));
    QCOMPARE(reason, QStringLiteral("nobody serves ZLease"));
}

QTEST_GUILESS_MAIN(tst_DbusLayers)
#include "tst_dbuslayers.moc"
