// SPDX-License-Identifier: Apache-2.0
#include "greeter.h"
#include "host.h"
#include "interfaces.h"
#include "store.h"
#include "testcase.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>
#include <QSemaphore>
#include <QThread>

#include <zdbuslayers.h>
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
#include <zleasedelegate.h>
#include <zobject.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <thread>
#include <type_traits>

namespace {

constexpr int LongTime = 30000;

/// A component that answers for its interface under one name only.
template <class I>
class Component : public QObject, public Recorder<I>
{
public:
    Component(const char *name, QStringList *calls) : Recorder<I>(calls), m_name(name) {}

    void *qt_metacast(const char *name) override
    {
        return qstrcmp(name, m_name) == 0 ? static_cast<I *>(this) : QObject::qt_metacast(name);
    }

private:
    const QByteArray m_name;
};

/// One delegate as a row of a table.
struct Family
{
    const char *name;
    QSharedPointer<ZDelegate> (*over)(QObject *object);
    QSharedPointer<ZDelegate> (*overShared)(QSharedPointer<QObject> object);
    QObject *(*component)(const char *name, QStringList *calls);
    QStringList (*use)(const ZDelegate &delegate); // through the pointer that holders are given
    bool (*carriesItself)(const ZDelegate &delegate);
    QStringList (*calls)();
    QStringList (*results)();
    QStringList (*neutral)();
};

template <class I, class Delegate>
Family family(const char *name)
{
    return {name,
            [](QObject *object) -> QSharedPointer<ZDelegate> { return QSharedPointer<Delegate>::create(object); },
            [](QSharedPointer<QObject> object) -> QSharedPointer<ZDelegate> {
                return QSharedPointer<Delegate>::create(object);
            },
            [](const char *identifier, QStringList *calls) -> QObject * { return new Component<I>(identifier, calls); },
            [](const ZDelegate &delegate) { return Operations<I>::use(*QVariant(delegate).value<I *>()); },
            [](const ZDelegate &delegate) {
                const QVariant value(delegate);
                return value.userType() == qMetaTypeId<I *>() &&
                       value.value<I *>() == dynamic_cast<const I *>(&delegate);
            },
            Operations<I>::calls,
            Operations<I>::results,
            Operations<I>::neutral};
}

const Family families[] = {
    family<ZConfig, ZConfigDelegate>("ZConfig"),
    family<ZEmitter, ZEmitterDelegate>("ZEmitter"),
    family<ZLogger, ZLoggerDelegate>("ZLogger"),
    family<ZLoader, ZLoaderDelegate>("ZLoader"),
    family<ZTempFile, ZTempFileDelegate>("ZTempFile"),
    family<ZJobPoolSet, ZJobPoolSetDelegate>("ZJobPoolSet"),
    family<ZThreadPoolSet, ZThreadPoolSetDelegate>("ZThreadPoolSet"),
    family<ZDbus, ZDbusDelegate>("ZDbus"),
    family<ZDbusLayer, ZDbusLayerDelegate>("ZDbusLayer"),
    family<ZDbusReach, ZDbusReachDelegate>("ZDbusReach"),
    family<ZDbusOutcome, ZDbusOutcomeDelegate>("ZDbusOutcome"),
    family<ZDbusAsync, ZDbusAsyncDelegate>("ZDbusAsync"),
    family<ZLease, ZLeaseDelegate>("ZLease"),
    family<ZContext, ZContextDelegate>("ZContext"),
    family<ZScheduler, ZSchedulerDelegate>("ZScheduler"),
};

QByteArray identifier(const Family &family) { return QByteArray("zdefault::") + family.name; }

/// Holds something that was given, and answers the name of the ware in it.
using Given = std::function<QByteArray()>;

using Take = std::function<Given(Store &)>;

/// Takes what the operation `give` returns, in which `find` finds the ware.
template <class Gift, class Find>
Take gift(Gift (Store::*give)(), Find find)
{
    return [=](Store &store) -> Given { return [gift = (store.*give)(), find] { return find(gift)->name(); }; };
}

QSharedPointer<ZReference> refer(QObject *object)
{
    return QSharedPointer<ZReference>::create(QSharedPointer<QObject>(object));
}

} // namespace

Q_DECLARE_METATYPE(const Family *)
Q_DECLARE_METATYPE(Take)

/// Greets as it is told to.
class Speaker : public QObject, public Greeter
{
    Q_OBJECT
    Q_INTERFACES(Greeter)

public:
    using Greeting = std::function<QString(const QString &)>;

    explicit Speaker(Greeting greeting, QThread **grave = nullptr) : m_greeting(std::move(greeting)), m_grave(grave) {}
    ~Speaker() override
    {
        if (m_grave)
            *m_grave = QThread::currentThread();
    }

    QString greet(const QString &name) override { return m_greeting(name); }

private:
    const Greeting m_greeting;
    QThread **const m_grave; // the thread on which this ended
};

/// Waits while it is asked for its interface.
class Slow : public QObject
{
public:
    void *qt_metacast(const char *name) override
    {
        asked.release();
        answer.tryAcquire(1, LongTime);
        return QObject::qt_metacast(name);
    }

    QSemaphore asked;
    QSemaphore answer;
};

/// Gives wares away. It could be the root of a plugin, and is none.
class Giver : public ZObject, public Stock
{
    Q_OBJECT
    Q_INTERFACES(Store)
};

/// A store that a plugin serves, to be replaced by nothing.
class Served
{
public:
    Served()
    {
        m_folder.drop(QStringLiteral("store"));
        m_host->bind0(m_store);
        m_host.wire(QJsonObject{{QStringLiteral("deployed"), m_folder.path()},
                                {QStringLiteral("load-list"), QJsonArray{QStringLiteral("store")}}});
    }

    Store &operator*() const { return *m_store; }
    Store *operator->() const { return m_store.data(); }
    void replace()
    {
        m_host->bind0(QSharedPointer<StoreDelegate>::create(nullptr));
        settle();
    }
    bool isMapped() const { return ::isMapped(m_folder.filePath(QStringLiteral("libstore.so"))); }

private:
    const Folder m_folder;
    const QSharedPointer<StoreDelegate> m_store = QSharedPointer<StoreDelegate>::create(nullptr);
    const Host m_host;
};

class tst_Delegate : public TestCase
{
    Q_OBJECT

private:
    static void eachDelegate();
    static Speaker *hello(const QString &word);

private Q_SLOTS:
    void forwardsEachOperation_data() { eachDelegate(); }
    void forwardsEachOperation();
    void forwardsToASharedComponent_data() { eachDelegate(); }
    void forwardsToASharedComponent();
    void isNeutralOverNothing_data() { eachDelegate(); }
    void isNeutralOverNothing();
    void isNeutralOverAComponentThatLacksTheInterface_data() { eachDelegate(); }
    void isNeutralOverAComponentThatLacksTheInterface();
    void isNeutralOnceTheReferenceIsTakenAway_data() { eachDelegate(); }
    void isNeutralOnceTheReferenceIsTakenAway();
    void theIdentifierAloneCounts_data() { eachDelegate(); }
    void theIdentifierAloneCounts();
    void carriesItsOwnInterface_data() { eachDelegate(); }
    void carriesItsOwnInterface();
    void ownsTheComponent_data() { eachDelegate(); }
    void ownsTheComponent();
    void sharesAComponentThatIsShared_data() { eachDelegate(); }
    void sharesAComponentThatIsShared();
    void anExchangeReachesTheNextComponent_data() { eachDelegate(); }
    void anExchangeReachesTheNextComponent();

    void referencesAndDelegatesAreDeletedByTheirBase();
    void aBareDelegateCarriesNothing();
    void aBareDelegateKeepsItsReference();
    void replaceReturnsTheReferenceBefore();
    void replaceDestroysNothing();
    void aReferenceToNothingIsNull();
    void aReferenceIsTheComponentsShare();
    void anApplicationsOwnDelegateForwards();

    void aCallRunsOnTheCallersThread();
    void callsRunAtTheSameTime();
    void aCallFinishesOnTheComponentWithWhichItBegan();
    void aComponentMayExchangeItselfDuringACall();
    void aComponentMayCallItsOwnDelegate();
    void anotherThreadMayCallDuringACall();
    void anExchangeDoesNotWaitForACallThatLooksForItsTarget();
    void aCallMayOutliveItsDelegate();
    void aComponentMayUseItsDelegateAsItEnds();
    void aComponentThatThrowsIsLetGo();
    void aPluginIsKeptByWhatItGave_data();
    void aPluginIsKeptByWhatItGave();
    void whatAPluginGaveIsTheSameObject();
    void whatAPluginGaveIsAsItWas();
    void aPluginIsNotKeptByNothing();
    void aPluginIsNotKeptByAWeakPointer();
    void anObjectKnowsItsOwnerAfterItWasGiven();
    void aComponentOfTheApplicationIsNotKeptByWhatItGave();
    void whateverElseIsReturnedIsLeftAsItIs();
    void aLenderLeavesNothingAsItIs();
};

void tst_Delegate::eachDelegate()
{
    QTest::addColumn<const Family *>("family");
    for (const Family &family : families)
        QTest::newRow(family.name) << &family;
}

Speaker *tst_Delegate::hello(const QString &word)
{
    return new Speaker([=](const QString &name) { return word + name; });
}

void tst_Delegate::forwardsEachOperation()
{
    QFETCH(const Family *, family);
    QStringList calls;
    const auto delegate = family->over(family->component(identifier(*family), &calls));
    QCOMPARE(family->use(*delegate), family->results());
    QCOMPARE(calls, family->calls());
}

void tst_Delegate::forwardsToASharedComponent()
{
    QFETCH(const Family *, family);
    QStringList calls;
    const QSharedPointer<QObject> component(family->component(identifier(*family), &calls));
    const auto delegate = family->overShared(component);
    QCOMPARE(family->use(*delegate), family->results());
    QCOMPARE(calls, family->calls());
}

void tst_Delegate::isNeutralOverNothing()
{
    QFETCH(const Family *, family);
    QCOMPARE(family->use(*family->over(nullptr)), family->neutral());
    QCOMPARE(family->use(*family->overShared({})), family->neutral());
}

void tst_Delegate::isNeutralOverAComponentThatLacksTheInterface()
{
    QFETCH(const Family *, family);
    QStringList calls;
    QCOMPARE(family->use(*family->over(new QObject)), family->neutral());
    QCOMPARE(family->use(*family->over(family->component("test::Other", &calls))), family->neutral());
    QCOMPARE(calls, QStringList{"end"});
}

void tst_Delegate::isNeutralOnceTheReferenceIsTakenAway()
{
    QFETCH(const Family *, family);
    QStringList calls;
    const auto delegate = family->over(family->component(identifier(*family), &calls));

    const auto taken = delegate->replace({});
    QCOMPARE(family->use(*delegate), family->neutral());
    delegate->replace(refer(nullptr));
    QCOMPARE(family->use(*delegate), family->neutral());
    QCOMPARE(calls, QStringList());

    delegate->replace(taken);
    QCOMPARE(family->use(*delegate), family->results());
}

void tst_Delegate::theIdentifierAloneCounts()
{
    QFETCH(const Family *, family);
    QStringList calls;
    const auto identified = family->over(family->component(identifier(*family), &calls));
    QCOMPARE(family->use(*identified), family->results());
    const auto named = family->over(family->component(family->name, &calls));
    QCOMPARE(family->use(*named), family->neutral());
}

void tst_Delegate::carriesItsOwnInterface()
{
    QFETCH(const Family *, family);
    QVERIFY(family->carriesItself(*family->over(nullptr)));
    QVERIFY(family->carriesItself(*family->overShared({})));

    const auto delegate = family->over(new QObject);
    delegate->replace({});
    QVERIFY(family->carriesItself(*delegate));
}

void tst_Delegate::ownsTheComponent()
{
    QFETCH(const Family *, family);
    QStringList calls;
    auto delegate = family->over(family->component(identifier(*family), &calls));
    QCOMPARE(calls, QStringList());
    delegate.clear();
    QCOMPARE(calls, QStringList{"end"});
}

void tst_Delegate::sharesAComponentThatIsShared()
{
    QFETCH(const Family *, family);
    QStringList calls;
    QSharedPointer<QObject> component(family->component(identifier(*family), &calls));
    auto delegate = family->overShared(component);
    auto other = family->overShared(component);
    component.clear();
    delegate.clear();
    QCOMPARE(calls, QStringList());
    QCOMPARE(family->use(*other), family->results());
    other.clear();
    QCOMPARE(calls, family->calls() << QStringLiteral("end"));
}

void tst_Delegate::anExchangeReachesTheNextComponent()
{
    QFETCH(const Family *, family);
    QStringList first;
    QStringList second;
    const auto delegate = family->over(family->component(identifier(*family), &first));

    auto before = delegate->replace(refer(family->component(identifier(*family), &second)));
    QCOMPARE(family->use(*delegate), family->results());
    QCOMPARE(first, QStringList());
    QCOMPARE(second, family->calls());

    before.clear();
    QCOMPARE(first, QStringList{"end"});
}

void tst_Delegate::referencesAndDelegatesAreDeletedByTheirBase()
{
    QVERIFY(std::has_virtual_destructor_v<ZReference>);
    QVERIFY(std::has_virtual_destructor_v<ZDelegate>);
}

void tst_Delegate::aBareDelegateCarriesNothing()
{
    const ZDelegate delegate(refer(new QObject));
    QVERIFY(!QVariant(delegate).isValid());
}

void tst_Delegate::aBareDelegateKeepsItsReference()
{
    const auto reference = refer(new QObject);
    ZDelegate delegate(reference);
    QCOMPARE(QSharedPointer<ZReference>(delegate), reference);
    ZDelegate none({});
    QVERIFY(!QSharedPointer<ZReference>(none));
}

void tst_Delegate::replaceReturnsTheReferenceBefore()
{
    const auto first = refer(new QObject);
    const auto second = refer(new QObject);
    ZDelegate delegate(first);
    QCOMPARE(delegate.replace(second), first);
    QCOMPARE(QSharedPointer<ZReference>(delegate), second);
    QCOMPARE(delegate.replace({}), second);
    QVERIFY(!QSharedPointer<ZReference>(delegate));
    QVERIFY(!delegate.replace(first));
    QCOMPARE(QSharedPointer<ZReference>(delegate), first);
}

void tst_Delegate::replaceDestroysNothing()
{
    const QPointer<QObject> component = new QObject;
    ZDelegate delegate(refer(component));
    auto before = delegate.replace({});
    QVERIFY(component);
    before.clear();
    QVERIFY(!component);
}

void tst_Delegate::aReferenceToNothingIsNull()
{
    QVERIFY(ZReference({}).isNull());
    QVERIFY(!ZReference(QSharedPointer<QObject>::create()).isNull());
}

void tst_Delegate::aReferenceIsTheComponentsShare()
{
    auto component = QSharedPointer<QObject>::create();
    const QPointer<QObject> watched = component.data();
    QScopedPointer<ZReference> reference(new ZReference(component));
    component.clear();
    QVERIFY(watched);
    QVERIFY(!reference->isNull());
    reference.reset();
    QVERIFY(!watched);
}

void tst_Delegate::anApplicationsOwnDelegateForwards()
{
    GreeterDelegate delegate(hello(QStringLiteral("hello ")));
    QCOMPARE(delegate.greet(QStringLiteral("you")), QStringLiteral("hello you"));
    delegate.replace({});
    QCOMPARE(delegate.greet(QStringLiteral("you")), QStringLiteral("nobody"));
}

void tst_Delegate::aCallRunsOnTheCallersThread()
{
    QThread *seen = nullptr;
    GreeterDelegate delegate(new Speaker([&](const QString &name) {
        seen = QThread::currentThread();
        return name;
    }));
    const QScopedPointer<QThread> thread(QThread::create([&] { delegate.greet({}); }));
    thread->start();
    QVERIFY(thread->wait(LongTime));
    QCOMPARE(seen, thread.data());
}

void tst_Delegate::callsRunAtTheSameTime()
{
    QSemaphore inside;
    QSemaphore together;
    GreeterDelegate delegate(new Speaker([&](const QString &name) {
        inside.release();
        return together.tryAcquire(1, LongTime) ? name : QString();
    }));
    QString answer;
    const QScopedPointer<QThread> first(QThread::create([&] { answer = delegate.greet(QStringLiteral("a")); }));
    const QScopedPointer<QThread> second(QThread::create([&] { delegate.greet(QStringLiteral("b")); }));
    first->start();
    second->start();
    const bool both = inside.tryAcquire(2, LongTime);
    together.release(2);
    QVERIFY(first->wait(LongTime));
    QVERIFY(second->wait(LongTime));
    QVERIFY(both);
    QCOMPARE(answer, QStringLiteral("a"));
}

void tst_Delegate::aCallFinishesOnTheComponentWithWhichItBegan()
{
    QSemaphore inside;
    QSemaphore goOn;
    QThread *grave = nullptr;
    QPointer<QObject> old = new Speaker(
        [&](const QString &name) {
            inside.release();
            goOn.tryAcquire(1, LongTime);
            return QStringLiteral("old ") + name;
        },
        &grave);
    GreeterDelegate delegate(old.data());
    QString answer;
    const QScopedPointer<QThread> caller(QThread::create([&] { answer = delegate.greet(QStringLiteral("you")); }));
    caller->start();
    QVERIFY(inside.tryAcquire(1, LongTime));

    delegate.replace(refer(hello(QStringLiteral("new ")))); // what it returns is dropped here
    QCOMPARE(delegate.greet(QStringLiteral("you")), QStringLiteral("new you"));
    QVERIFY(old);

    goOn.release();
    QVERIFY(caller->wait(LongTime));
    QCOMPARE(answer, QStringLiteral("old you"));
    QVERIFY(!old);
    QCOMPARE(grave, caller.data()); // which held it last
}

void tst_Delegate::aComponentMayExchangeItselfDuringACall()
{
    QScopedPointer<GreeterDelegate> delegate;
    QPointer<QObject> old;
    bool aliveInside = false;
    delegate.reset(new GreeterDelegate(old = new Speaker([&](const QString &name) {
                                           delegate->replace(refer(hello(QStringLiteral("new "))));
                                           aliveInside = old;
                                           return QStringLiteral("old ") + name;
                                       })));
    QCOMPARE(delegate->greet(QStringLiteral("you")), QStringLiteral("old you"));
    QVERIFY(aliveInside);
    QVERIFY(!old);
    QCOMPARE(delegate->greet(QStringLiteral("you")), QStringLiteral("new you"));
}

void tst_Delegate::aComponentMayCallItsOwnDelegate()
{
    QScopedPointer<GreeterDelegate> delegate;
    delegate.reset(new GreeterDelegate(new Speaker(
        [&](const QString &name) { return name.size() < 3 ? delegate->greet(name + QLatin1Char('+')) : name; })));
    QCOMPARE(delegate->greet(QStringLiteral("a")), QStringLiteral("a++"));
}

void tst_Delegate::anotherThreadMayCallDuringACall()
{
    QScopedPointer<GreeterDelegate> delegate;
    QString inner;
    delegate.reset(new GreeterDelegate(new Speaker([&](const QString &name) {
        if (name == QLatin1String("inner"))
            return name;
        bool done = false;
        auto *thread = QThread::create([&] {
            inner = delegate->greet(QStringLiteral("inner"));
            delegate->replace(refer(hello(QStringLiteral("new "))));
        });
        thread->start();
        done = thread->wait(LongTime);
        delete thread;
        return done ? name : QString();
    })));
    QCOMPARE(delegate->greet(QStringLiteral("outer")), QStringLiteral("outer"));
    QCOMPARE(inner, QStringLiteral("inner"));
    QCOMPARE(delegate->greet(QStringLiteral("you")), QStringLiteral("new you"));
}

void tst_Delegate::anExchangeDoesNotWaitForACallThatLooksForItsTarget()
{
    const QPointer<Slow> slow = new Slow;
    GreeterDelegate delegate(slow.data());
    const QScopedPointer<QThread> caller(QThread::create([&] { delegate.greet({}); }));
    caller->start();
    QVERIFY(slow->asked.tryAcquire(1, LongTime));

    QVERIFY(QSharedPointer<ZReference>(delegate));
    delegate.replace(refer(hello(QStringLiteral("new ")))); // what it returns is dropped here
    QCOMPARE(delegate.greet(QStringLiteral("you")), QStringLiteral("new you"));
    QVERIFY(slow); // which answers yet

    slow->answer.release();
    QVERIFY(caller->wait(LongTime));
    QVERIFY(!slow);
}

void tst_Delegate::aCallMayOutliveItsDelegate()
{
    QScopedPointer<GreeterDelegate> delegate;
    QPointer<QObject> component;
    bool aliveInside = false;
    delegate.reset(new GreeterDelegate(component = new Speaker([&](const QString &name) {
                                           delegate.reset();
                                           aliveInside = component;
                                           return name;
                                       })));
    QCOMPARE(delegate->greet(QStringLiteral("you")), QStringLiteral("you"));
    QVERIFY(aliveInside);
    QVERIFY(!component);
}

void tst_Delegate::aComponentMayUseItsDelegateAsItEnds()
{
    QScopedPointer<GreeterDelegate> delegate;
    QStringList said;
    const auto sayingAtItsEnd = [&](Speaker::Greeting greeting) {
        auto *speaker = new Speaker(std::move(greeting));
        connect(speaker, &QObject::destroyed, this, [&] { said << delegate->greet(QStringLiteral("me")); });
        return speaker;
    };
    const auto next = [&] { return refer(hello(QStringLiteral("next "))); };

    delegate.reset(new GreeterDelegate(sayingAtItsEnd({})));
    delegate->replace(next()); // ends with what this returns
    QCOMPARE(said, QStringList{"next me"});

    delegate->replace(refer(sayingAtItsEnd([&](const QString &name) {
        delegate->replace(next());
        return name;
    })));
    QCOMPARE(delegate->greet(QStringLiteral("you")), QStringLiteral("you")); // ends with this call
    QCOMPARE(said, QStringList({"next me", "next me"}));
}

void tst_Delegate::aComponentThatThrowsIsLetGo()
{
    const QPointer<QObject> component = new Speaker([](const QString &) -> QString { throw 1; });
    GreeterDelegate delegate(component.data());
    QVERIFY_EXCEPTION_THROWN(delegate.greet({}), int);
    QVERIFY(component);
    delegate.replace({});
    QVERIFY(!component);
}

void tst_Delegate::aPluginIsKeptByWhatItGave_data()
{
    QTest::addColumn<Take>("take");
    const auto itself = [](const auto &ware) { return ware; };
    const auto first = [](const auto &wares) { return *wares.begin(); };
    QTest::newRow("shared") << gift(&Store::shared, itself);
    QTest::newRow("constant") << gift(&Store::constant, itself);
    QTest::newRow("incomplete") << gift(&Store::sealed,
                                        [](const auto &ware) { return reinterpret_cast<Ware *>(ware.data()); });
    QTest::newRow("knows its owner") << gift(&Store::known, itself);
    QTest::newRow("constant, knows its owner") << gift(&Store::constantKnown, itself);
    QTest::newRow("std shared") << gift(&Store::standard, itself);
    QTest::newRow("std shared, of no type")
        << gift(&Store::bare, [](const auto &ware) { return static_cast<Ware *>(ware.get()); });
    QTest::newRow("std shared, knows its owner") << gift(&Store::standardKnown, itself);
    QTest::newRow("std shared, with a deleter only") << Take([](Store &store) -> Given {
        return [nothing = store.standardNothing()] { return QByteArray(nothing ? "" : "ware"); };
    });
    QTest::newRow("list") << gift(&Store::list, first);
    QTest::newRow("an element of a list")
        << Take([](Store &store) -> Given { return [ware = store.list().at(1)] { return ware->name(); }; });
    QTest::newRow("vector") << gift(&Store::vector, first);
    QTest::newRow("hash") << gift(&Store::hash, [](const auto &hash) { return hash[QStringLiteral("a")]; });
    QTest::newRow("multi-hash") << gift(&Store::multiHash,
                                        [](const auto &hash) { return hash.values(QStringLiteral("a")).last(); });
    QTest::newRow("map") << gift(&Store::map, first);
    QTest::newRow("set") << gift(&Store::set,
                                 [](const auto &set) { return *std::max_element(set.begin(), set.end()); });
    QTest::newRow("std vector") << gift(&Store::standardVector, first);
    QTest::newRow("std list") << gift(&Store::standardList, first);
    QTest::newRow("std map") << gift(&Store::standardMap, [](const auto &map) { return map.begin()->second; });
    QTest::newRow("std set") << gift(&Store::standardSet, [](const auto &set) { return *set.rbegin(); });
    QTest::newRow("first of a pair") << gift(&Store::pair, [](const auto &pair) { return pair.first; });
    QTest::newRow("second of a pair") << gift(&Store::pair, [](const auto &pair) { return pair.second; });
    QTest::newRow("tuple") << gift(&Store::tuple, [](const auto &tuple) { return std::get<2>(tuple); });
    QTest::newRow("optional") << gift(&Store::optional, [](const auto &ware) { return *ware; });
    QTest::newRow("nested") << gift(&Store::nested, [](const auto &hash) { return hash.begin()->first().second; });
    QTest::newRow("std nested") << gift(&Store::standardNested, [](const auto &maps) { return maps->front()[1]; });
}

void tst_Delegate::aPluginIsKeptByWhatItGave()
{
    QFETCH(Take, take);
    Served store;
    Given given = take(*store);
    store.replace();
    QVERIFY(store.isMapped());
    QCOMPARE(given(), QByteArray("ware"));
    std::thread([&] { given = {}; }).join(); // runs code of the plugin
    settle();
    QVERIFY(!store.isMapped());
}

void tst_Delegate::whatAPluginGaveIsTheSameObject()
{
    const Served store;
    const Store::Shared shared = store->shared();
    QCOMPARE(store->constant(), shared);
    QCOMPARE(store->list(), QList<Store::Shared>({shared, shared, {}}));
    QVERIFY(store->set().contains(shared));
    QCOMPARE(store->bare(), store->standard());
    QVERIFY(store->standardSet().count(store->standard()));
}

void tst_Delegate::whatAPluginGaveIsAsItWas()
{
    const Served store;
    const Store::Shared shared = store->shared();
    QCOMPARE(store->vector().size(), 2);
    QVERIFY(!store->vector().last());
    QCOMPARE(store->hash().size(), 2);
    QCOMPARE(store->multiHash().values(QStringLiteral("a")), QList<Store::Shared>({{}, shared}));
    QCOMPARE(store->map().keys(), QList<int>({1, 2}));
    QCOMPARE(store->set().size(), 2);
    QCOMPARE(store->standardSet().size(), std::size_t(2));
    QCOMPARE(std::get<0>(store->tuple()), 1);
    QCOMPARE(store->nested().value(QStringLiteral("a")).last().first, 2);
    QVERIFY(!store->nested().value(QStringLiteral("a")).last().second);
}

void tst_Delegate::aPluginIsNotKeptByNothing()
{
    Served store;
    const Store::Shared nothing = store->nothing();
    QVERIFY(!nothing);
    store.replace();
    QVERIFY(!store.isMapped());
    const Store::Shared copy = nothing; // of what the plugin made, would count where its code was
    QVERIFY(!copy);
}

void tst_Delegate::aPluginIsNotKeptByAWeakPointer()
{
    Served store;
    Store::Shared shared = store->shared();
    Store::Standard standard = store->standard();
    const QWeakPointer<Ware> weak = shared;
    const std::weak_ptr<Ware> standardWeak = standard;
    store.replace();
    QCOMPARE(weak.toStrongRef(), shared);
    QCOMPARE(standardWeak.lock(), standard);
    shared.clear();
    standard.reset();
    settle();
    QVERIFY(!store.isMapped());
    QVERIFY(!weak);
    QVERIFY(standardWeak.expired());
}

void tst_Delegate::anObjectKnowsItsOwnerAfterItWasGiven()
{
    const Served store;
    QCOMPARE(store->known()->sharedFromThis(), store->known());
    QCOMPARE(store->constantKnown()->sharedFromThis(), store->constantKnown());
    QCOMPARE(store->standardKnown()->shared_from_this(), store->standardKnown());
}

void tst_Delegate::aComponentOfTheApplicationIsNotKeptByWhatItGave()
{
    const QPointer<QObject> component = new Giver;
    StoreDelegate delegate(component.data());
    const Store::Shared shared = delegate.shared();
    const QList<Store::Shared> list = delegate.list();
    const auto standard = delegate.standardVector();
    QVERIFY(shared);
    delegate.replace({});
    QVERIFY(!component);
    QCOMPARE(list.first(), shared);
    QCOMPARE(standard.front(), shared);
}

namespace {

struct Tree : std::map<QString, Tree>
{};

/// Whether the template compiles for it, and changes nothing.
template <class Value>
bool isLeft()
{
    Value value{};
    ZLender({}).lend(value);
    return !ZLender::isLent<Value>();
}

} // namespace

void tst_Delegate::whateverElseIsReturnedIsLeftAsItIs()
{
    QVERIFY(isLeft<int>());
    QVERIFY(isLeft<QStringList>());
    QVERIFY(isLeft<QVariantMap>());
    QVERIFY(isLeft<QWeakPointer<Ware>>());
    QVERIFY(isLeft<QSharedPointer<ZLibrary>>()); // no plugin's code makes or deletes one
    QVERIFY(isLeft<std::unique_ptr<Ware>>());
    QVERIFY(isLeft<std::function<Store::Shared(Store::Shared)>>());
    QVERIFY(isLeft<std::vector<bool>>());
    QVERIFY(isLeft<std::filesystem::path>()); // which consists of paths
    QVERIFY(isLeft<Tree>());
}

void tst_Delegate::aLenderLeavesNothingAsItIs()
{
    std::optional<QSharedPointer<int>> nothing;
    ZLender(QSharedPointer<QObject>::create()).lend(nothing);
    QVERIFY(!nothing);
}

QTEST_GUILESS_MAIN(tst_Delegate)

#include "tst_delegate.moc"
