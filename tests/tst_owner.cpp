// SPDX-License-Identifier: Apache-2.0
// However a component is held and announced, it has one owner: it lives to the last holder and ends once.
#include "testcase.h"

#include <QPointer>
#include <QSemaphore>
#include <QThread>

#include <zdefaultconfig.h>
#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultdbusasync.h>
#include <zdefaultdbusoutcome.h>
#include <zdefaultemitter.h>
#include <zdefaultfilesystem.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>

#include <memory>

namespace {

/// A default class that announces itself, and the ways in which an application may hold one of its objects.
struct Announcing
{
    const char *name;
    QObject *(*make)();
    QSharedPointer<ZDelegate> (*delegateOver)(QObject *object);
};

/// Something that holds `object`, without a word of how.
struct Held
{
    QObject *object;
    std::shared_ptr<void> holder;
};

template <class Class, class Pointee>
Held heldAs()
{
    auto *object = new Class;
    return {object, std::make_shared<QSharedPointer<Pointee>>(object)};
}

template <class Class>
Held heldAsCreated()
{
    const auto object = QSharedPointer<Class>::create();
    return {object.data(), std::make_shared<QSharedPointer<Class>>(object)};
}

/// As an application does whose component lives on another thread than its last holder.
template <class Class>
Held heldToBeDeletedLater()
{
    auto *object = new Class;
    return {object, std::make_shared<QSharedPointer<Class>>(object, &QObject::deleteLater)};
}

template <class Class, class Delegate>
Announcing announcing(const char *name)
{
    return {name, []() -> QObject * { return new Class; },
            [](QObject *object) -> QSharedPointer<ZDelegate> { return QSharedPointer<Delegate>::create(object); }};
}

const Announcing announcingClasses[] = {
    announcing<ZDefaultConfig, ZConfigDelegate>("config"),
    announcing<ZDefaultLogger, ZLoggerDelegate>("logger"),
    announcing<ZDefaultLoader, ZLoaderDelegate>("loader"),
    announcing<ZDefaultTempFile, ZTempFileDelegate>("temporary files"),
    announcing<ZDefaultJobPoolSet, ZJobPoolSetDelegate>("job pools"),
    announcing<ZDefaultThreadPoolSet, ZThreadPoolSetDelegate>("thread pools"),
    announcing<ZDefaultDbus, ZDbusDelegate>("bus"),
    announcing<ZDefaultDbusOutcome, ZDbusOutcomeDelegate>("outcomes"),
    announcing<ZDefaultDbusAsync, ZDbusAsyncDelegate>("calls"),
    announcing<ZDefaultContext, ZContextDelegate>("context"),
    announcing<ZDefaultScheduler, ZSchedulerDelegate>("scheduler"),
};

using Make = Held (*)();

/// Announces itself once more as it ends.
class Clinging : public ZDefaultConfig
{
public:
    explicit Clinging(QList<bool> *ends) : m_ends(ends) {}
    ~Clinging() override
    {
        m_ends->append(QSharedPointer<ZReference>(*QSharedPointer<ZConfigDelegate>::create(this))->isNull());
    }

private:
    QList<bool> *const m_ends;
};

} // namespace

Q_DECLARE_METATYPE(const Announcing *)
Q_DECLARE_METATYPE(Make)
Q_DECLARE_METATYPE(QSharedPointer<ZOwned>)

class tst_Owner : public TestCase
{
    Q_OBJECT

private:
    static void eachAnnouncingClass();
    static void eachHolder();

private Q_SLOTS:
    void survivesBeingInjectedTwice_data() { eachAnnouncingClass(); }
    void survivesBeingInjectedTwice();
    void survivesBeingInjectedIntoTwoEmitters_data() { eachAnnouncingClass(); }
    void survivesBeingInjectedIntoTwoEmitters();
    void survivesBeingBoundInTwoEmittersAtOnce_data() { eachAnnouncingClass(); }
    void survivesBeingBoundInTwoEmittersAtOnce();
    void survivesSeveralDelegatesOverARawPointer_data() { eachAnnouncingClass(); }
    void survivesSeveralDelegatesOverARawPointer();
    void isTheEmittersOnceTheApplicationLetsGo_data() { eachHolder(); }
    void isTheEmittersOnceTheApplicationLetsGo();
    void isTheApplicationsOnceTheEmitterIsGone_data() { eachHolder(); }
    void isTheApplicationsOnceTheEmitterIsGone();
    void mayEndOnAnotherThread_data() { eachAnnouncingClass(); }
    void mayEndOnAnotherThread();
    void endsOnceIfNobodyTakesIt_data() { eachAnnouncingClass(); }
    void endsOnceIfNobodyTakesIt();
    void hasNoOwnerAnewAsItEnds();
    void pointerThatOwnsNothingIsNotItsOwner();
    void whatIsNoObjectIsNotShared_data();
    void whatIsNoObjectIsNotShared();
};

void tst_Owner::eachAnnouncingClass()
{
    QTest::addColumn<const Announcing *>("announcing");
    for (const Announcing &announcing : announcingClasses)
        QTest::newRow(announcing.name) << &announcing;
}

template <class Class, class Interface>
void addHolders(const char *name)
{
    const auto add = [name](const char *how, Make make) { QTest::addRow("%s, %s", name, how) << make; };
    add("created", heldAsCreated<Class>);
    add("as itself", heldAs<Class, Class>);
    add("as an object", heldAs<Class, QObject>);
    add("as its interface", heldAs<Class, Interface>);
    add("as a constant", heldAs<Class, const Class>);
    add("to be deleted later", heldToBeDeletedLater<Class>);
}

void tst_Owner::eachHolder()
{
    QTest::addColumn<Make>("make");
    addHolders<ZDefaultConfig, ZConfig>("config");
    addHolders<ZDefaultLogger, ZLogger>("logger");
    addHolders<ZDefaultLoader, ZLoader>("loader");
    addHolders<ZDefaultTempFile, ZTempFile>("temporary files");
    addHolders<ZDefaultJobPoolSet, ZJobPoolSet>("job pools");
    addHolders<ZDefaultThreadPoolSet, ZThreadPoolSet>("thread pools");
    addHolders<ZDefaultDbus, ZDbus>("bus");
    addHolders<ZDefaultDbusOutcome, ZDbusOutcome>("outcomes");
    addHolders<ZDefaultDbusAsync, ZDbusAsync>("calls");
    addHolders<ZDefaultContext, ZContext>("context");
    addHolders<ZDefaultScheduler, ZScheduler>("scheduler");
}

void tst_Owner::survivesBeingInjectedTwice()
{
    QFETCH(const Announcing *, announcing);
    const QPointer<QObject> component = announcing->make();
    {
        const Wiring wiring;
        wiring->inject0(component);
        QVERIFY(component);
        wiring->inject0(component);
        QVERIFY(component);
        wiring->inject0(component);
        QVERIFY(component);
    }
    QVERIFY(!component);
}

void tst_Owner::survivesBeingInjectedIntoTwoEmitters()
{
    QFETCH(const Announcing *, announcing);
    const QPointer<QObject> component = announcing->make();
    {
        QScopedPointer<Wiring> first(new Wiring);
        const Wiring second;
        (*first)->inject0(component);
        second->inject0(component);
        (*first)->inject0(component);
        QVERIFY(component);
        second->bind0(announcing->delegateOver(component)); // one that keeps to its first emitter is there too now
        first.reset();
        QVERIFY(component);
    }
    QVERIFY(!component);
}

void tst_Owner::survivesBeingBoundInTwoEmittersAtOnce()
{
    QFETCH(const Announcing *, announcing);
    const QPointer<QObject> component = announcing->make();
    int ends = 0;
    connect(
        component, &QObject::destroyed, this, [&] { ++ends; }, Qt::DirectConnection);
    {
        const Wiring first;
        const Wiring second;
        QSemaphore start;
        const auto bind = [&](const Wiring &wiring) {
            start.acquire();
            wiring->bind0(announcing->delegateOver(component));
        };
        const QScopedPointer<QThread> one(QThread::create([&] { bind(first); }));
        const QScopedPointer<QThread> other(QThread::create([&] { bind(second); }));
        one->start();
        other->start();
        start.release(2);
        QVERIFY(one->wait(30000));
        QVERIFY(other->wait(30000));
        QCOMPARE(ends, 0);
    }
    QCOMPARE(ends, 1);
}

void tst_Owner::survivesSeveralDelegatesOverARawPointer()
{
    QFETCH(const Announcing *, announcing);
    const QPointer<QObject> component = announcing->make();
    auto first = announcing->delegateOver(component);
    auto second = announcing->delegateOver(component);
    first.clear();
    QVERIFY(component);
    auto third = announcing->delegateOver(component);
    second.clear();
    QVERIFY(component);
    third.clear();
    QVERIFY(!component);
}

void tst_Owner::isTheEmittersOnceTheApplicationLetsGo()
{
    QFETCH(Make, make);
    Held held = make();
    const QPointer<QObject> component = held.object;
    {
        const Wiring wiring;
        wiring->inject0(component);
        held.holder.reset();
        QVERIFY(component); // the emitter's now
        wiring->inject0(component);
        QVERIFY(component);
    }
    QVERIFY(!component);
}

void tst_Owner::isTheApplicationsOnceTheEmitterIsGone()
{
    QFETCH(Make, make);
    Held held = make();
    const QPointer<QObject> component = held.object;
    for (int i = 0; i < 2; ++i) {
        const Wiring wiring;
        wiring->inject0(component);
        wiring->inject0(component);
    }
    QVERIFY(component);
    held.holder.reset();
    settle();
    QVERIFY(!component);
}

void tst_Owner::mayEndOnAnotherThread()
{
    QFETCH(const Announcing *, announcing);
    const QPointer<QObject> component = announcing->make();
    const Wiring wiring;
    wiring->inject0(component);
    const QScopedPointer<QThread> other(
        QThread::create([&] { wiring->bind0(announcing->delegateOver(nullptr)); })); // lets go of it
    other->start();
    QVERIFY(other->wait(30000));
    QVERIFY(!component);
}

void tst_Owner::endsOnceIfNobodyTakesIt()
{
    QFETCH(const Announcing *, announcing);
    const Wiring wiring;
    wiring->zemit0(ZDefaultConfig::TypeName);
    wiring->zemit0(ZDefaultLogger::TypeName);
    wiring->install({}); // the emitter that components are given binds nothing any more

    const QPointer<QObject> component = announcing->make();
    QCOMPARE(wiring->inject0(component), nullptr);
    QVERIFY(!component);
}

void tst_Owner::hasNoOwnerAnewAsItEnds()
{
    QList<bool> ends;
    {
        const ZConfigDelegate delegate(new Clinging(&ends));
    }
    QCOMPARE(ends, QList<bool>{true});
}

void tst_Owner::pointerThatOwnsNothingIsNotItsOwner()
{
    auto owner = QSharedPointer<ZDefaultConfig>::create();
    const QPointer<QObject> component = owner.data();
    const QSharedPointer<ZDefaultConfig> other(owner.data(), [](ZDefaultConfig *) {});
    auto delegate = QSharedPointer<ZConfigDelegate>::create(component.data());
    owner.clear();
    QVERIFY(component); // the delegate shares it with the first
    delegate.clear();
    QVERIFY(!component);
}

void tst_Owner::whatIsNoObjectIsNotShared_data()
{
    QTest::addColumn<QSharedPointer<ZOwned>>("holder");
    QTest::newRow("held by nobody") << QSharedPointer<ZOwned>();
    QTest::newRow("held as itself") << QSharedPointer<ZOwned>::create();
}

void tst_Owner::whatIsNoObjectIsNotShared()
{
    QFETCH(QSharedPointer<ZOwned>, holder);
    ZOwned heldByNobody;
    ZOwned &component = holder ? *holder : heldByNobody;
    QVERIFY(!component.shared());
    QVERIFY(!component.shared()); // nor once it has been asked
}

QTEST_GUILESS_MAIN(tst_Owner)

#include "tst_owner.moc"
