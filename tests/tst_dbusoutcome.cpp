// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <QPointer>

#include <zdefaultdbus.h>
#include <zdefaultdbusoutcome.h>
#include <zdefaultemitter.h>

#include <functional>
#include <stdexcept>

namespace {

enum class Deed
{
    Handle,
    Refuse,
    Throw
};

/// Does one thing in each call, after what it was given to do before.
class Endpoint : public ZDbusSubscriber
{
public:
    explicit Endpoint(Deed deed, std::function<void()> before = {}) : m_deed(deed), m_before(std::move(before)) {}

    bool invoked(const QUrl &, QJsonObject *in, QJsonObject *out) override
    {
        if (m_before)
            m_before();
        if (m_deed == Deed::Throw)
            throw std::runtime_error("thrown");
        if (in && out)
            out->insert(QStringLiteral("in"), *in);
        return m_deed == Deed::Handle;
    }

private:
    const Deed m_deed;
    const std::function<void()> m_before;
};

/// A bus that cannot tell what its calls reach.
class PlainBus : public QObject, public ZDbus
{
    Q_OBJECT
    Q_INTERFACES(ZDbus)

public:
    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override
    {
        return m_bus.bind0(url, subscriber);
    }
    bool find0(const QUrl &url) override { return m_bus.find0(url); }
    QList<QUrl> findAll0(const QRegularExpression &re) override { return m_bus.findAll0(re); }
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override { return m_bus.invoke0(url, in, out); }

private:
    ZDefaultDbus m_bus;
};

/// A bus of each kind: as it is, behind its delegate, and one that cannot tell what its calls reach.
struct Buses
{
    QSharedPointer<ZDefaultDbus> own = QSharedPointer<ZDefaultDbus>::create();
    ZDbusDelegate exact{QSharedPointer<QObject>(QSharedPointer<ZDefaultDbus>::create())};
    ZDbusDelegate plain{QSharedPointer<QObject>(QSharedPointer<PlainBus>::create())};
    ZDbus *const all[3] = {own.data(), &exact, &plain};
};

QSharedPointer<ZDbusSubscriber> endpoint(Deed deed, std::function<void()> before = {})
{
    return QSharedPointer<Endpoint>::create(deed, std::move(before));
}

QUrl url(const QString &text) { return QUrl(text); }

QJsonObject outcome(int code, const QString &reason, const QJsonValue &called)
{
    QJsonObject result{{QStringLiteral("code"), code}};
    if (!reason.isNull())
        result.insert(QStringLiteral("reason"), reason);
    if (!called.isUndefined())
        result.insert(QStringLiteral("called"), called);
    return result;
}

const QJsonValue Unknown = QJsonValue::Undefined;
const QJsonObject Nobody = outcome(503, QStringLiteral("nobody"), false);

} // namespace

class tst_DbusOutcome : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void saysWhyACallWasNotHandled_data();
    void saysWhyACallWasNotHandled();
    void saysThatNobodyIsThereOfAllThatAreNone();
    void saysWhatTheBusCanTell();
    void replacesWhatTheOutcomeWasBefore();
    void needsNoOutcome();
    void passesWhatIsGivenAndAnswered();
    void letsThroughWhatAnEndpointThrows();
    void findsNobodyWithoutABus();
    void keepsItsFirstBus();
    void isMadeByTheNameOfItsType();
    void leadsNowhereWithoutAComponent();
};

void tst_DbusOutcome::saysWhyACallWasNotHandled_data()
{
    QTest::addColumn<QString>("called");
    QTest::addColumn<QJsonObject>("expected");
    const QString refused = QStringLiteral("refused");
    QTest::newRow("handled") << "//good/a" << outcome(200, {}, true);
    QTest::newRow("handled by the bare host") << "//bare/any/path" << outcome(200, {}, true);
    QTest::newRow("refused") << "//bad/a" << outcome(404, refused, true);
    QTest::newRow("refused, with all that takes no part") << "x://me@BAD:7/a?q#f" << outcome(404, refused, true);
    QTest::newRow("refused by the bare host") << "//badbare/any/path" << outcome(404, refused, true);
    QTest::newRow("refused by the bare host itself") << "//badbare" << outcome(404, refused, true);
    QTest::newRow("nobody at the path") << "//bad/b" << Nobody;
    QTest::newRow("nobody at the bare host") << "//bad" << Nobody;
    QTest::newRow("nobody at the host") << "//none/a" << Nobody;
    QTest::newRow("nobody any more") << "//dead" << Nobody;
    QTest::newRow("all, and some handle it") << "/any" << outcome(200, {}, true);
    QTest::newRow("no URL, which is all") << "" << outcome(200, {}, true);
}

void tst_DbusOutcome::saysWhyACallWasNotHandled()
{
    QFETCH(QString, called);
    QFETCH(QJsonObject, expected);
    const auto good = endpoint(Deed::Handle), bad = endpoint(Deed::Refuse);
    const Buses buses;
    for (ZDbus *bus : buses.all) {
        ZDefaultDbusOutcome service;
        service.getSetZDbus(bus);
        for (const char *each : {"//good/a", "//bare"})
            bus->bind0(url(QLatin1String(each)), good);
        for (const char *each : {"//bad/a", "//badbare"})
            bus->bind0(url(QLatin1String(each)), bad);
        bus->bind0(url(QStringLiteral("//dead")), endpoint(Deed::Handle));
        QJsonObject outcome;
        const bool isHandled = service.call0(url(called), nullptr, nullptr, &outcome);
        QCOMPARE(outcome, expected);
        QCOMPARE(isHandled, expected.value(QStringLiteral("code")) == QJsonValue(200));
    }
}

void tst_DbusOutcome::saysThatNobodyIsThereOfAllThatAreNone()
{
    const auto bad = endpoint(Deed::Refuse);
    const Buses buses;
    for (ZDbus *bus : buses.all) {
        ZDefaultDbusOutcome service;
        service.getSetZDbus(bus);
        QJsonObject result;
        QVERIFY(!service.call0(url(QStringLiteral("/any")), nullptr, nullptr, &result));
        QCOMPARE(result, outcome(503, QStringLiteral("nobody"), Unknown));
        bus->bind0(url(QStringLiteral("//bad")), bad);
        QVERIFY(!service.call0(url(QStringLiteral("/any")), nullptr, nullptr, &result));
        QCOMPARE(result, outcome(404, QStringLiteral("refused"), Unknown));
    }
}

void tst_DbusOutcome::saysWhatTheBusCanTell()
{
    Buses buses;
    ZDefaultDbusOutcome service;
    service.getSetZDbus(&buses.exact);
    const QUrl path = url(QStringLiteral("//w/x")), host = url(QStringLiteral("//w"));
    const auto good = endpoint(Deed::Handle), bad = endpoint(Deed::Refuse);
    buses.exact.bind0(host, good);
    buses.exact.bind0(path, endpoint(Deed::Handle)); // is gone, and somebody is bound nevertheless
    QJsonObject result;
    QVERIFY(!service.call0(path, nullptr, nullptr, &result));
    QCOMPARE(result, Nobody);
    QVERIFY(service.call0(path, nullptr, nullptr, &result));
    QCOMPARE(result, outcome(200, {}, true));

    QSharedPointer<ZDbusSubscriber> leaving;
    leaving = endpoint(Deed::Refuse, [&] { leaving.clear(); });
    buses.exact.bind0(path, leaving);
    QVERIFY(!service.call0(path, nullptr, nullptr, &result));
    QCOMPARE(result, outcome(404, QStringLiteral("refused"), true));
}

void tst_DbusOutcome::replacesWhatTheOutcomeWasBefore()
{
    ZDefaultDbus bus;
    ZDefaultDbusOutcome service;
    service.getSetZDbus(&bus);
    QJsonObject result{{QStringLiteral("host"), QStringLiteral("other")}, {QStringLiteral("reason"), 1}};
    service.call0(url(QStringLiteral("//none")), nullptr, nullptr, &result);
    QCOMPARE(result, Nobody);
}

void tst_DbusOutcome::needsNoOutcome()
{
    ZDefaultDbus bus;
    ZDefaultDbusOutcome service;
    service.getSetZDbus(&bus);
    const auto good = endpoint(Deed::Handle);
    bus.bind0(url(QStringLiteral("//good")), good);
    QVERIFY(service.call0(url(QStringLiteral("//good")), nullptr, nullptr, nullptr));
    QVERIFY(!service.call0(url(QStringLiteral("//none")), nullptr, nullptr, nullptr));
}

void tst_DbusOutcome::passesWhatIsGivenAndAnswered()
{
    ZDefaultDbus bus;
    ZDefaultDbusOutcome service;
    service.getSetZDbus(&bus);
    const auto good = endpoint(Deed::Handle);
    bus.bind0(url(QStringLiteral("//good")), good);
    QJsonObject in{{QStringLiteral("x"), 1}}, out, result;
    QVERIFY(service.call0(url(QStringLiteral("//good")), &in, &out, &result));
    QCOMPARE(out.value(QStringLiteral("in")).toObject(), in);
}

void tst_DbusOutcome::letsThroughWhatAnEndpointThrows()
{
    ZDefaultDbus bus;
    ZDefaultDbusOutcome service;
    service.getSetZDbus(&bus);
    const auto throwing = endpoint(Deed::Throw);
    bus.bind0(url(QStringLiteral("//throwing")), throwing);
    QJsonObject result;
    QVERIFY_EXCEPTION_THROWN(service.call0(url(QStringLiteral("//throwing")), nullptr, nullptr, &result),
                             std::runtime_error);
}

void tst_DbusOutcome::findsNobodyWithoutABus()
{
    ZDefaultDbusOutcome service;
    QJsonObject result;
    QVERIFY(!service.call0(url(QStringLiteral("//any")), nullptr, nullptr, &result));
    QCOMPARE(result, Nobody);
    QVERIFY(!service.call0(url(QStringLiteral("/any")), nullptr, nullptr, &result));
    QCOMPARE(result, outcome(503, QStringLiteral("nobody"), Unknown));
    ZDbusDelegate empty(nullptr);
    service.getSetZDbus(&empty);
    QVERIFY(!service.call0(url(QStringLiteral("//any")), nullptr, nullptr, &result));
    QCOMPARE(result, Nobody);
}

void tst_DbusOutcome::keepsItsFirstBus()
{
    ZDefaultDbus first, second;
    ZDefaultDbusOutcome service;
    QCOMPARE(service.getSetZDbus(), nullptr);
    QCOMPARE(service.getSetZDbus(&first), &first);
    QCOMPARE(service.getSetZDbus(&second), &first);
    QCOMPARE(service.getSetZDbus(), &first);
}

void tst_DbusOutcome::isMadeByTheNameOfItsType()
{
    QCOMPARE(QByteArray(ZDefaultDbusOutcome::TypeName), QByteArray("ZDefaultDbusOutcome*"));
    QPointer<QObject> made;
    {
        const Wiring emitter;
        emitter->zemit0(ZDefaultDbus::TypeName);
        made = emitter->zemit0(ZDefaultDbusOutcome::TypeName);
        QVERIFY(qobject_cast<ZDbusOutcome *>(made));
        QVERIFY(qobject_cast<ZDefaultDbusOutcome *>(made)->getSetZDbus());
        emitter->inject0(made); // announces it once more
        QVERIFY(made);
    }
    QVERIFY(!made);
}

void tst_DbusOutcome::leadsNowhereWithoutAComponent()
{
    ZDbusOutcomeDelegate empty(nullptr);
    QJsonObject result;
    QVERIFY(!empty.call0(url(QStringLiteral("//any")), nullptr, nullptr, &result));
    QCOMPARE(result, QJsonObject());
}

QTEST_GUILESS_MAIN(tst_DbusOutcome)
#include "tst_dbusoutcome.moc"
