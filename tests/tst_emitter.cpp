// SPDX-License-Identifier: Apache-2.0
#include "greeter.h"
#include "testcase.h"

#include <QPointer>
#include <QSemaphore>
#include <QThread>

#include <zdefaultconfig.h>
#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>

#include <functional>
#include <thread>

namespace {

constexpr int LongTime = 30000;

/// Runs `work` on a thread of its own and waits for it; false if that takes too long.
bool elsewhere(const std::function<void()> &work)
{
    auto *thread = QThread::create(work); // not deleted when it hangs: the failure is to be reported
    thread->start();
    if (!thread->wait(LongTime))
        return false;
    delete thread;
    return true;
}

QSharedPointer<ZDelegate> greeting(QObject *host) { return QSharedPointer<GreeterDelegate>::create(host); }

} // namespace

/// Greets with a word, and tells of its end.
class Speaker : public QObject, public Greeter
{
    Q_OBJECT
    Q_INTERFACES(Greeter)

public:
    explicit Speaker(QString word, std::function<void()> atEnd = {})
        : m_word(std::move(word)), m_atEnd(std::move(atEnd))
    {}
    ~Speaker() override
    {
        if (m_atEnd)
            m_atEnd();
    }

    QString greet(const QString &name) override { return m_word + name; }

private:
    const QString m_word;
    const std::function<void()> m_atEnd;
};

/// Consumes a greeter, and nothing else.
class Guest : public QObject
{
    Q_OBJECT
    Q_PROPERTY(Greeter *greeter MEMBER m_greeter)

public:
    Greeter *m_greeter = nullptr;
};

/// Consumes the emitter.
class Keeper : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZEmitter *zEmitter MEMBER m_emitter)

public:
    ZEmitter *m_emitter = nullptr;
};

/// Keeps what a host hears of its wiring.
class Telling : public ZDefaultEmitter
{
public:
    QStringList m_told;

protected:
    void bound(int interfaceType, const QSharedPointer<QObject> &component) override
    {
        m_told << QStringLiteral("%1 by %2")
                      .arg(QLatin1String(QMetaType::typeName(interfaceType)),
                           component ? QLatin1String(component->metaObject()->className()) : QLatin1String("nobody"));
    }
    void injected(QObject *object, const QMetaProperty &property, bool isGiven) override
    {
        m_told << QStringLiteral("%1::%2 %3")
                      .arg(QLatin1String(object->metaObject()->className()), QLatin1String(property.name()),
                           isGiven ? QLatin1String("given") : QLatin1String("left"));
    }
};

/// Says in which order its properties are written.
class Consumer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZEmitter *zEmitter READ emitter WRITE setEmitter)
    Q_PROPERTY(Greeter *greeter READ greeter WRITE setGreeter)

public:
    QStringList m_written;

protected:
    Greeter *greeter() const { return nullptr; }
    void setGreeter(Greeter *) { m_written << QStringLiteral("greeter"); }
    ZEmitter *emitter() const { return nullptr; }
    void setEmitter(ZEmitter *) { m_written << QStringLiteral("emitter"); }
};

class DerivedConsumer : public Consumer
{
    Q_OBJECT
    Q_PROPERTY(ZConfig *zConfig READ config WRITE setConfig)
    Q_PROPERTY(ZEmitter *another READ emitter WRITE setAnother)
    Q_PROPERTY(Greeter *last READ greeter WRITE setLast)

private:
    ZConfig *config() const { return nullptr; }
    void setConfig(ZConfig *) { m_written << QStringLiteral("config"); }
    void setAnother(ZEmitter *) { m_written << QStringLiteral("another"); }
    void setLast(Greeter *) { m_written << QStringLiteral("last"); }
};

/// Does something in the writer of its first property, of which its second and third may notice.
class Busy : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZDbus *before MEMBER m_before)
    Q_PROPERTY(ZEmitter *zEmitter READ emitter WRITE setEmitter)
    Q_PROPERTY(ZDbus *zDbus MEMBER m_dbus)

public:
    std::function<void(ZEmitter *)> m_work;
    ZDbus *m_before = nullptr;
    ZDbus *m_dbus = nullptr;

private:
    ZEmitter *emitter() const { return nullptr; }
    void setEmitter(ZEmitter *emitter) { m_work(emitter); }
};

/// Has properties that no emitter has business with, and one that cannot be written.
class Plain : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int number MEMBER m_number)
    Q_PROPERTY(QString text MEMBER m_text)
    Q_PROPERTY(QObject *object MEMBER m_object)
    Q_PROPERTY(ZDefaultConfig *implementation MEMBER m_implementation)
    Q_PROPERTY(Greeter *readOnly READ readOnly)
    Q_PROPERTY(Greeter *greeter MEMBER m_greeter)

public:
    int m_number = 1;
    QString m_text = QStringLiteral("text");
    QObject *m_object = nullptr;
    ZDefaultConfig *m_implementation = nullptr;
    Greeter *m_greeter = nullptr;
    Greeter *readOnly() const { return nullptr; }
};

/// A delegate whose value is of one of Qt's own types.
class ObjectDelegate : public ZDelegate, public QObject
{
public:
    ObjectDelegate() : ZDelegate({}) { provide<QObject>(this); }
};

/// Made by its name.
class Made : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE explicit Made(int number) : m_number(number) {}

    const int m_number;
};

class tst_Emitter : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void injectionReturnsItsObject();
    void injectionOfNothingIsNothing();
    void injectionByAnEmptyEmitterWritesNothing();
    void injectionWritesInTheOrderOfDeclarationInheritedFirst();
    void injectionLeavesAPropertyWithoutAProvider();
    void injectionLooksOnlyForServices();
    void injectionMayBeRepeated();
    void aPropertyIsNotFilledLaterByItself();
    void aWriterMayBindForALaterProperty();
    void aWriterMayCreateAndInject();
    void anotherThreadsBindWaitsForAnInjection();
    void anotherThreadsInjectionWaitsForAnInjection();
    void aWriterThatThrowsLetsGoOfTheEmitter();
    void aConsumerKeepsItsFirstService();

    void installGivesTheDelegateNotTheEmitter();
    void aCallThroughTheInstalledEmitterReachesIt();
    void installOfAnotherEmitterTakesOver();
    void installOfNothingMakesTheEmitterNeutral();
    void anEmitterInstalledOnItselfLivesOn();
    void anEmitterMayBeLetGoThroughItself();

    void theFirstBindReturnsNothing();
    void theSecondBindReturnsTheReferenceOfTheFirst();
    void aBindReachesThoseWhoAreInjectedAlready();
    void theFirstDelegateStaysFiled();
    void theDelegateOfALaterBindIsNotFiled();
    void theDelegateOfALaterBindStillReachesItsComponent();
    void interfacesAreBoundIndependently();
    void bindOfNothingFilesNothing();
    void bindOfAnInvalidDelegateFilesNothing();
    void bindOfTheFiledDelegateKeepsItsComponent();
    void theComponentBeforeDiesWithItsReference();
    void theComponentBeforeOutlivesTheInjectionThatExchangedIt();
    void theComponentBeforeDiesWithoutTheLock();
    void theComponentBeforeMayCallTheEmitterAsItDies();

    void whoServesIsTold();
    void whatIsGivenAndWhatIsLeftIsTold();
    void nothingIsToldOfAnObjectThatHasGone();

    void theEndReleasesTheLastThatCameFirst();
    void theEndSparesWhatOthersHold();
    void aComponentMayCallServicesAsItEnds();
    void aComponentMayPutBackTheOneBeforeAsItEnds();
};

void tst_Emitter::injectionReturnsItsObject()
{
    ZDefaultEmitter empty;
    QObject object;
    QCOMPARE(empty.inject0(&object), &object);
    const Wiring wiring;
    QCOMPARE(wiring->inject0(&object), &object);
}

void tst_Emitter::injectionOfNothingIsNothing()
{
    ZDefaultEmitter empty;
    QCOMPARE(empty.inject0(nullptr), nullptr);
    const Wiring wiring;
    QCOMPARE(wiring->inject0(nullptr), nullptr);
}

void tst_Emitter::injectionByAnEmptyEmitterWritesNothing()
{
    ZDefaultEmitter emitter;
    DerivedConsumer consumer;
    QCOMPARE(emitter.inject0(&consumer), &consumer);
    QCOMPARE(consumer.m_written, QStringList());
}

void tst_Emitter::injectionWritesInTheOrderOfDeclarationInheritedFirst()
{
    const Wiring wiring;
    wiring->bind0(greeting(new Speaker(QString()))); // the order of binding does not count
    wiring->zemit0(ZDefaultConfig::TypeName);
    DerivedConsumer consumer;
    wiring->inject0(&consumer);
    QCOMPARE(consumer.m_written, QStringList({"emitter", "greeter", "config", "another", "last"}));
}

void tst_Emitter::injectionLeavesAPropertyWithoutAProvider()
{
    const Wiring wiring;
    Guest guest;
    QCOMPARE(wiring->inject0(&guest), &guest);
    QVERIFY(!guest.m_greeter);

    Consumer consumer; // and goes on with those that have one
    wiring->inject0(&consumer);
    QCOMPARE(consumer.m_written, QStringList{"emitter"});
}

void tst_Emitter::injectionLooksOnlyForServices()
{
    const Wiring wiring;
    wiring->zemit0(ZDefaultConfig::TypeName);
    wiring->bind0(greeting(new Speaker(QString())));
    wiring->bind0(QSharedPointer<ObjectDelegate>::create());
    Plain plain;
    QCOMPARE(wiring->inject0(&plain), &plain);
    QCOMPARE(plain.m_number, 1);
    QCOMPARE(plain.m_text, QStringLiteral("text"));
    QVERIFY(!plain.m_object); // one of Qt's own types, bound or not
    QVERIFY(!plain.m_implementation);
    QVERIFY(plain.m_greeter); // which stands after one that cannot be written
    QCOMPARE(plain.objectName(), QString());
}

void tst_Emitter::injectionMayBeRepeated()
{
    const Wiring wiring;
    Consumer consumer;
    wiring->inject0(&consumer);
    wiring->inject0(&consumer);
    QCOMPARE(consumer.m_written, QStringList({"emitter", "emitter"}));
}

void tst_Emitter::aPropertyIsNotFilledLaterByItself()
{
    const Wiring wiring;
    Guest guest;
    wiring->inject0(&guest);
    wiring->bind0(greeting(new Speaker(QString())));
    QVERIFY(!guest.m_greeter);
    wiring->inject0(&guest);
    QVERIFY(guest.m_greeter);
}

void tst_Emitter::aWriterMayBindForALaterProperty()
{
    const Wiring wiring;
    const auto delegate = QSharedPointer<ZDbusDelegate>::create(new QObject);
    Busy busy;
    busy.m_work = [&](ZEmitter *emitter) { emitter->bind0(delegate); };
    wiring->inject0(&busy);
    QVERIFY(!busy.m_before); // it came too late for this one
    QCOMPARE(busy.m_dbus, delegate.data());
}

void tst_Emitter::aWriterMayCreateAndInject()
{
    const Wiring wiring;
    Guest guest;
    QPointer<QObject> config;
    Busy busy;
    busy.m_work = [&](ZEmitter *emitter) {
        config = emitter->zemit0(ZDefaultConfig::TypeName);
        emitter->bind0(greeting(new Speaker(QStringLiteral("hello "))));
        emitter->inject0(&guest);
    };
    wiring->inject0(&busy);
    QVERIFY(config);
    QVERIFY(guest.m_greeter);
    QCOMPARE(guest.m_greeter->greet(QStringLiteral("you")), QStringLiteral("hello you"));
}

void tst_Emitter::anotherThreadsBindWaitsForAnInjection()
{
    const Wiring wiring;
    const auto delegate = QSharedPointer<ZDbusDelegate>::create(new QObject);
    QSemaphore aboutToBind;
    QSemaphore bound;
    const QScopedPointer<QThread> other(QThread::create([&] {
        aboutToBind.release();
        wiring->bind0(delegate);
        bound.release();
    }));
    Busy busy;
    bool boundInside = false;
    busy.m_work = [&](ZEmitter *) {
        other->start();
        boundInside = aboutToBind.tryAcquire(1, LongTime) && bound.tryAcquire(1, 200); // time enough to go wrong
    };
    wiring->inject0(&busy);
    QVERIFY(other->wait(LongTime));
    QVERIFY(!boundInside);
    QVERIFY(!busy.m_dbus);
    busy.m_work = [](ZEmitter *) {};
    wiring->inject0(&busy);
    QCOMPARE(busy.m_dbus, delegate.data());
}

void tst_Emitter::anotherThreadsInjectionWaitsForAnInjection()
{
    const Wiring wiring;
    Consumer consumer;
    QSemaphore aboutToInject;
    QSemaphore injected;
    const QScopedPointer<QThread> other(QThread::create([&] {
        aboutToInject.release();
        wiring->inject0(&consumer);
        injected.release();
    }));
    Busy busy;
    bool injectedInside = false;
    busy.m_work = [&](ZEmitter *) {
        other->start();
        injectedInside = aboutToInject.tryAcquire(1, LongTime) && injected.tryAcquire(1, 200); // enough to go wrong
    };
    wiring->inject0(&busy);
    QVERIFY(other->wait(LongTime));
    QVERIFY(!injectedInside);
    QCOMPARE(consumer.m_written, QStringList{"emitter"});
}

void tst_Emitter::aWriterThatThrowsLetsGoOfTheEmitter()
{
    const Wiring wiring;
    Busy busy;
    busy.m_work = [](ZEmitter *) { throw 1; };
    QVERIFY_EXCEPTION_THROWN(wiring->inject0(&busy), int);
    Consumer consumer;
    QVERIFY(elsewhere([&] { wiring->inject0(&consumer); }));
    QCOMPARE(consumer.m_written, QStringList{"emitter"});
}

void tst_Emitter::aConsumerKeepsItsFirstService()
{
    const Wiring wiring;
    const Wiring other;
    wiring->zemit0(ZDefaultConfig::TypeName);
    other->zemit0(ZDefaultConfig::TypeName);
    QObject *const logger = wiring->zemit0(ZDefaultLogger::TypeName);
    auto *const kept = logger->property("config").value<ZConfig *>();
    QVERIFY(kept);
    other->inject0(logger);
    QCOMPARE(logger->property("config").value<ZConfig *>(), kept);
}

void tst_Emitter::installGivesTheDelegateNotTheEmitter()
{
    const Wiring wiring;
    Keeper keeper;
    wiring->inject0(&keeper);
    QVERIFY(keeper.m_emitter);
    QVERIFY(keeper.m_emitter != wiring.emitter());
    QVERIFY(dynamic_cast<ZEmitterDelegate *>(keeper.m_emitter));
}

void tst_Emitter::aCallThroughTheInstalledEmitterReachesIt()
{
    const Wiring wiring;
    Keeper keeper;
    wiring->inject0(&keeper);

    QVERIFY(!keeper.m_emitter->bind0(greeting(new Speaker(QStringLiteral("hello ")))));
    Guest guest;
    QCOMPARE(keeper.m_emitter->inject0(&guest), &guest);
    QVERIFY(guest.m_greeter);
    qRegisterMetaType<Made *>();
    const QScopedPointer<QObject> object(keeper.m_emitter->zemit0("Made*", Q_ARG(int, 7)));
    auto *made = qobject_cast<Made *>(object.data());
    QVERIFY(made);
    QCOMPARE(made->m_number, 7);
    const auto before = keeper.m_emitter->bind0(greeting(new Speaker(QString())));
    QVERIFY(before && !before->isNull());
}

void tst_Emitter::installOfAnotherEmitterTakesOver()
{
    const Wiring wiring;
    const auto other = QSharedPointer<ZDefaultEmitter>::create();
    Keeper keeper;
    wiring->inject0(&keeper);
    ZEmitter *const given = keeper.m_emitter;

    wiring->install(other);
    wiring->inject0(&keeper);
    QCOMPARE(keeper.m_emitter, given);
    given->bind0(greeting(new Speaker(QString())));
    Guest guest;
    wiring->inject0(&guest);
    QVERIFY(!guest.m_greeter);
    other->inject0(&guest);
    QVERIFY(guest.m_greeter);
}

void tst_Emitter::installOfNothingMakesTheEmitterNeutral()
{
    const Wiring wiring;
    Keeper keeper;
    wiring->inject0(&keeper);
    wiring->install({});
    QVERIFY(!keeper.m_emitter->zemit0(ZDefaultConfig::TypeName));
    QCOMPARE(keeper.m_emitter->inject0(&keeper), &keeper);
    QVERIFY(!keeper.m_emitter->bind0(greeting(new Speaker(QString()))));
    Guest guest;
    wiring->inject0(&guest);
    QVERIFY(!guest.m_greeter);
}

void tst_Emitter::anEmitterInstalledOnItselfLivesOn()
{
    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    const QPointer<ZDefaultEmitter> watched = emitter.data();
    emitter->install(emitter);
    emitter.clear();
    QVERIFY(watched);
    Keeper keeper;
    watched->inject0(&keeper);
    QVERIFY(keeper.m_emitter);

    watched->install({});
    QVERIFY(!watched);
}

void tst_Emitter::anEmitterMayBeLetGoThroughItself()
{
    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    const QPointer<ZDefaultEmitter> watched = emitter.data();
    emitter->install(emitter);
    Keeper keeper;
    emitter->inject0(&keeper);
    emitter.clear();

    auto before = keeper.m_emitter->bind0(QSharedPointer<ZEmitterDelegate>::create(QSharedPointer<QObject>()));
    QVERIFY(watched);
    before.clear();
    QVERIFY(!watched);
}

void tst_Emitter::theFirstBindReturnsNothing()
{
    ZDefaultEmitter emitter;
    QVERIFY(!emitter.bind0(greeting(new Speaker(QString()))));
}

void tst_Emitter::theSecondBindReturnsTheReferenceOfTheFirst()
{
    ZDefaultEmitter emitter;
    const auto first = greeting(new Speaker(QString()));
    const auto second = greeting(new Speaker(QString()));
    const QSharedPointer<ZReference> ofFirst(*first);
    const QSharedPointer<ZReference> ofSecond(*second);
    emitter.bind0(first);
    QCOMPARE(emitter.bind0(second), ofFirst);
    QCOMPARE(emitter.bind0(greeting(new Speaker(QString()))), ofSecond);
}

void tst_Emitter::aBindReachesThoseWhoAreInjectedAlready()
{
    ZDefaultEmitter emitter;
    emitter.bind0(greeting(new Speaker(QStringLiteral("hello "))));
    Guest guest;
    emitter.inject0(&guest);
    Greeter *const given = guest.m_greeter;
    QCOMPARE(given->greet(QStringLiteral("you")), QStringLiteral("hello you"));

    emitter.bind0(greeting(new Speaker(QStringLiteral("good day, "))));
    QCOMPARE(given->greet(QStringLiteral("you")), QStringLiteral("good day, you"));
}

void tst_Emitter::theFirstDelegateStaysFiled()
{
    ZDefaultEmitter emitter;
    const auto first = QSharedPointer<GreeterDelegate>::create(new Speaker(QString()));
    emitter.bind0(first);
    emitter.bind0(greeting(new Speaker(QString())));
    emitter.bind0(greeting(nullptr));
    Guest guest;
    emitter.inject0(&guest);
    QCOMPARE(guest.m_greeter, first.data());
}

void tst_Emitter::theDelegateOfALaterBindIsNotFiled()
{
    ZDefaultEmitter emitter;
    emitter.bind0(greeting(new Speaker(QString())));
    const QPointer<Speaker> host = new Speaker(QStringLiteral("hello "));
    auto later = greeting(host);
    const QWeakPointer<ZDelegate> watched = later;
    emitter.bind0(later);
    later.clear();
    QVERIFY(!watched);
    QVERIFY(host); // its reference lives on in the filed one
    Guest guest;
    emitter.inject0(&guest);
    QCOMPARE(guest.m_greeter->greet(QStringLiteral("you")), QStringLiteral("hello you"));
}

void tst_Emitter::theDelegateOfALaterBindStillReachesItsComponent()
{
    ZDefaultEmitter emitter;
    emitter.bind0(greeting(new Speaker(QString())));
    const auto later = QSharedPointer<GreeterDelegate>::create(new Speaker(QStringLiteral("hello ")));
    emitter.bind0(later);
    QCOMPARE(later->greet(QStringLiteral("you")), QStringLiteral("hello you"));
}

void tst_Emitter::interfacesAreBoundIndependently()
{
    ZDefaultEmitter emitter;
    const auto config = QSharedPointer<ZConfigDelegate>::create(new ZDefaultConfig);
    QVERIFY(!emitter.bind0(config));
    QVERIFY(!emitter.bind0(greeting(new Speaker(QString()))));
    const QSharedPointer<ZReference> ofConfig(*config);
    QCOMPARE(emitter.bind0(QSharedPointer<ZConfigDelegate>::create(nullptr)), ofConfig);
}

void tst_Emitter::bindOfNothingFilesNothing()
{
    ZDefaultEmitter emitter;
    QVERIFY(!emitter.bind0({}));
    DerivedConsumer consumer;
    emitter.inject0(&consumer);
    QCOMPARE(consumer.m_written, QStringList());
}

void tst_Emitter::bindOfAnInvalidDelegateFilesNothing()
{
    ZDefaultEmitter emitter;
    const QPointer<QObject> component = new QObject;
    auto bare = QSharedPointer<ZDelegate>::create(
        QSharedPointer<ZReference>::create(QSharedPointer<QObject>(component.data())));
    QVERIFY(!emitter.bind0(bare));
    QVERIFY(!emitter.bind0(bare)); // nothing to exchange
    bare.clear();
    QVERIFY(!component);
    DerivedConsumer consumer;
    emitter.inject0(&consumer);
    QCOMPARE(consumer.m_written, QStringList());
}

void tst_Emitter::bindOfTheFiledDelegateKeepsItsComponent()
{
    ZDefaultEmitter emitter;
    const auto delegate = QSharedPointer<GreeterDelegate>::create(new Speaker(QStringLiteral("hello ")));
    const QSharedPointer<ZReference> reference(*delegate);
    emitter.bind0(delegate);
    QCOMPARE(emitter.bind0(delegate), reference);
    QCOMPARE(delegate->greet(QStringLiteral("you")), QStringLiteral("hello you"));
}

void tst_Emitter::theComponentBeforeDiesWithItsReference()
{
    ZDefaultEmitter emitter;
    const QPointer<QObject> first = new Speaker(QString());
    const QPointer<QObject> second = new Speaker(QString());
    emitter.bind0(greeting(first));
    auto before = emitter.bind0(greeting(second));
    QVERIFY(first);
    before.clear();
    QVERIFY(!first);
    emitter.bind0(greeting(new Speaker(QString()))); // dropped at once
    QVERIFY(!second);
}

void tst_Emitter::theComponentBeforeOutlivesTheInjectionThatExchangedIt()
{
    const Wiring wiring;
    const QPointer<QObject> before = new Speaker(QString());
    wiring->bind0(greeting(before));
    bool wasThere = false;
    Busy outer, inner;
    inner.m_work = [&](ZEmitter *emitter) { emitter->bind0(greeting(new Speaker(QString()))); };
    outer.m_work = [&](ZEmitter *emitter) {
        emitter->inject0(&inner);
        wasThere = before;
    };
    wiring->inject0(&outer);
    QVERIFY(wasThere);
    QVERIFY(!before);
}

void tst_Emitter::theComponentBeforeDiesWithoutTheLock()
{
    const Wiring wiring;
    const QPointer<QObject> before = new Speaker(QString());
    bool isFree = false;
    connect(before, &QObject::destroyed, this, [&] {
        std::thread([&] { // waits for us if we hold the lock, and we for it
            Guest guest;
            isFree = wiring->inject0(&guest);
        })
            .join();
    });
    wiring->bind0(greeting(before));
    Busy busy;
    busy.m_work = [](ZEmitter *emitter) { emitter->bind0(greeting(new Speaker(QString()))); };
    wiring->inject0(&busy);
    QVERIFY(isFree);
}

void tst_Emitter::theComponentBeforeMayCallTheEmitterAsItDies()
{
    ZDefaultEmitter emitter;
    Guest guest;
    bool done = false;
    emitter.bind0(greeting(new Speaker(QString(), [&] { done = elsewhere([&] { emitter.inject0(&guest); }); })));
    emitter.bind0(greeting(new Speaker(QString()))); // the end comes outside the emitter's lock
    QVERIFY(done);
    QVERIFY(guest.m_greeter);
}

void tst_Emitter::whoServesIsTold()
{
    Telling emitter;
    emitter.bind0(greeting(new Speaker(QString())));
    emitter.bind0(greeting(nullptr));
    emitter.bind0(greeting(new Speaker(QString())));
    emitter.bind0({});
    QCOMPARE(emitter.m_told, QStringList({"Greeter* by Speaker", "Greeter* by nobody", "Greeter* by Speaker"}));
}

void tst_Emitter::whatIsGivenAndWhatIsLeftIsTold()
{
    Telling emitter;
    emitter.bind0(QSharedPointer<ZDbusDelegate>::create(QSharedPointer<QObject>()));
    emitter.m_told.clear();
    Guest guest;
    emitter.inject0(&guest);
    emitter.bind0(greeting(nullptr));
    emitter.inject0(&guest);
    QCOMPARE(emitter.m_told, QStringList({"Guest::greeter left", "Greeter* by nobody", "Guest::greeter given"}));
}

void tst_Emitter::nothingIsToldOfAnObjectThatHasGone()
{
    Telling emitter;
    emitter.bind0(QSharedPointer<ZEmitterDelegate>::create(QSharedPointer<QObject>()));
    emitter.m_told.clear();
    auto *guest = new Busy;
    guest->m_work = [&](ZEmitter *) { delete guest; };
    QVERIFY(!emitter.inject0(guest));
    QCOMPARE(emitter.m_told, QStringList{"Busy::before left"});
}

void tst_Emitter::theEndReleasesTheLastThatCameFirst()
{
    QStringList ends;
    const auto ending = [&](const char *name) {
        return new Speaker(QString(), [&ends, name] { ends << QLatin1String(name); });
    };
    {
        ZDefaultEmitter emitter;
        emitter.bind0(QSharedPointer<ZDbusDelegate>::create(ending("dbus")));
        emitter.bind0(greeting(ending("greeter")));
        emitter.bind0(QSharedPointer<ZLoaderDelegate>::create(ending("loader")));
        emitter.bind0(QSharedPointer<ZContextDelegate>::create(ending("context")));
    }
    QCOMPARE(ends, QStringList({"context", "loader", "greeter", "dbus"}));
}

void tst_Emitter::theEndSparesWhatOthersHold()
{
    const QSharedPointer<QObject> host(new Speaker(QStringLiteral("hello ")));
    const auto delegate = QSharedPointer<ZDbusDelegate>::create(new QObject);
    {
        ZDefaultEmitter emitter;
        emitter.bind0(QSharedPointer<GreeterDelegate>::create(host));
        emitter.bind0(delegate);
    }
    QCOMPARE(qobject_cast<Greeter *>(host.data())->greet(QStringLiteral("you")), QStringLiteral("hello you"));
    QVERIFY(!delegate->find0({})); // still there to be called, over nothing
}

void tst_Emitter::aComponentMayCallServicesAsItEnds()
{
    Keeper keeper;
    Guest guest;
    QStringList said;
    QObject *injected = nullptr;
    {
        const Wiring wiring;
        wiring->bind0(greeting(new Speaker(QStringLiteral("hello "), [&] {
            said << guest.m_greeter->greet(QStringLiteral("me")); // itself no more
            injected = keeper.m_emitter->inject0(&guest);
        })));
        wiring->bind0(QSharedPointer<ZDbusDelegate>::create(
            new Speaker(QString(), [&] { said << guest.m_greeter->greet(QStringLiteral("you")); })));
        wiring->inject0(&keeper);
        wiring->inject0(&guest);
    }
    QCOMPARE(said, QStringList({"hello you", "nobody"}));
    QCOMPARE(injected, &guest);
}

void tst_Emitter::aComponentMayPutBackTheOneBeforeAsItEnds()
{
    auto config = QSharedPointer<ZConfigDelegate>::create(new ZDefaultConfig({{QStringLiteral("a"), 1}}));
    QStringList ends;
    QSharedPointer<ZReference> before;
    {
        ZDefaultEmitter emitter;
        ZConfig *const given = config.data();
        emitter.bind0(config);
        config.clear();
        emitter.bind0(greeting(new Speaker(QString(), [&ends, given] {
            ends << QStringLiteral("first, config has %1").arg(given->toJson0().size());
        })));
        before = emitter.bind0(greeting(nullptr));
        emitter.bind0(greeting(new Speaker(QString(), [&ends, &emitter, &before] {
            ends << QStringLiteral("second");
            const auto delegate = QSharedPointer<GreeterDelegate>::create(nullptr);
            delegate->replace(before);
            before.clear();
            emitter.bind0(delegate);
        })));
    }
    QCOMPARE(ends, QStringList({"second", "first, config has 1"}));
}

QTEST_GUILESS_MAIN(tst_Emitter)

#include "tst_emitter.moc"
