// SPDX-License-Identifier: Apache-2.0
#include "interfaces.h"
#include "testcase.h"

#include <QLibrary>
#include <QMetaMethod>
#include <QMetaProperty>
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
#include <zdelegate.h>
#include <zleasedelegate.h>
#include <zscheduledactivity.h>

#include <cstring>
#include <type_traits>

namespace {

/// What plugins implement and call, as a row of a table.
struct Contract
{
    const char *name;
    bool isAbstract;
    size_t size;
    void *(*make)(QStringList *calls);
    QStringList (*use)(void *part);
    QStringList (*calls)();
    QStringList (*results)();
};

/// One that is reached through a delegate.
struct Interface : Contract
{
    const char *identifier;
    /// How far the interface lies from the start of its delegate, less what the delegate's first base takes.
    qptrdiff delegateOffset;
    bool delegateAddsNoData;
};

template <class I>
Contract row(const char *name)
{
    return {name,
            std::is_abstract_v<I>,
            sizeof(I),
            [](QStringList *calls) -> void * { return static_cast<I *>(new Recorder<I>(calls)); },
            [](void *part) {
                auto *interface = static_cast<I *>(part);
                const QStringList results = Operations<I>::use(*interface);
                delete interface;
                return results;
            },
            Operations<I>::calls,
            Operations<I>::results};
}

template <class I, class Delegate>
Interface row(const char *name)
{
    struct First : ZDelegate, I // where the language puts two bases in this order
    {};
    const auto offset = [](auto *derived) {
        return reinterpret_cast<char *>(static_cast<I *>(derived)) - reinterpret_cast<char *>(derived);
    };
    const auto base = [](auto *derived) {
        return reinterpret_cast<char *>(static_cast<ZDelegate *>(derived)) - reinterpret_cast<char *>(derived);
    };
    auto *const delegate = at<Delegate>(4096); // only its layout counts
    auto *const first = at<First>(4096);
    return {row<I>(name), qobject_interface_iid<I *>(), base(delegate) == 0 ? offset(delegate) - offset(first) : -1,
            sizeof(Delegate) == sizeof(First)};
}

const Interface interfaces[] = {
    row<ZConfig, ZConfigDelegate>("ZConfig"),
    row<ZEmitter, ZEmitterDelegate>("ZEmitter"),
    row<ZLogger, ZLoggerDelegate>("ZLogger"),
    row<ZLoader, ZLoaderDelegate>("ZLoader"),
    row<ZTempFile, ZTempFileDelegate>("ZTempFile"),
    row<ZJobPoolSet, ZJobPoolSetDelegate>("ZJobPoolSet"),
    row<ZThreadPoolSet, ZThreadPoolSetDelegate>("ZThreadPoolSet"),
    row<ZDbus, ZDbusDelegate>("ZDbus"),
    row<ZDbusLayer, ZDbusLayerDelegate>("ZDbusLayer"),
    row<ZDbusReach, ZDbusReachDelegate>("ZDbusReach"),
    row<ZDbusOutcome, ZDbusOutcomeDelegate>("ZDbusOutcome"),
    row<ZDbusAsync, ZDbusAsyncDelegate>("ZDbusAsync"),
    row<ZLease, ZLeaseDelegate>("ZLease"),
    row<ZContext, ZContextDelegate>("ZContext"),
    row<ZScheduler, ZSchedulerDelegate>("ZScheduler"),
};

const Contract furtherContracts[] = {
    row<ZDbusSubscriber>("ZDbusSubscriber"),
    row<ZDbusReceiver>("ZDbusReceiver"),
    row<ZSchedule>("ZSchedule"),
};

/// One default class as a row of a table.
struct Component
{
    const char *name;
    const char *interface;
    const char *typeName;
    const char *(*typeNameFunction)();
    const QMetaObject *metaObject;
    QStringList properties;   // "type name"
    QStringList constructors; // signatures
    QObject *(*make)();
    void *(*part)(QObject *object);
    bool isObjectFirst;
    QList<QByteArray> further; // identifiers of what else it serves
};

template <class Class, class I, class... Further>
Component row(const char *name, const char *interface, const char *(*typeNameFunction)(), QStringList properties,
              QStringList constructors = {})
{
    if (constructors.isEmpty())
        constructors << QStringLiteral("%1()").arg(QLatin1String(name));
    auto *const object = at<Class>(4096); // only its layout counts
    return {name,
            interface,
            Class::TypeName,
            typeNameFunction,
            &Class::staticMetaObject,
            properties,
            constructors,
            []() -> QObject * { return new Class; },
            [](QObject *o) -> void * { return static_cast<I *>(qobject_cast<Class *>(o)); },
            static_cast<void *>(static_cast<QObject *>(object)) ==
                object &&reinterpret_cast<char *>(static_cast<I *>(object)) ==
                reinterpret_cast<char *>(object) + sizeof(QObject),
            {qobject_interface_iid<Further *>()...}};
}

const QList<Component> &components()
{
    static const QList<Component> list{
        row<ZDefaultConfig, ZConfig>("ZDefaultConfig", "ZConfig", zDefaultConfigTypeName, {"ZEmitter* zEmitter"},
                                     {"ZDefaultConfig(QJsonObject)", "ZDefaultConfig()"}),
        row<ZDefaultEmitter, ZEmitter>("ZDefaultEmitter", "ZEmitter", zDefaultEmitterTypeName, {}),
        row<ZDefaultLogger, ZLogger>("ZDefaultLogger", "ZLogger", zDefaultLoggerTypeName,
                                     {"ZConfig* config", "ZEmitter* zEmitter"}),
        row<ZDefaultLoader, ZLoader>("ZDefaultLoader", "ZLoader", zDefaultLoaderTypeName,
                                     {"ZLogger* zLogger", "ZEmitter* zEmitter", "ZConfig* zConfig"}),
        row<ZDefaultTempFile, ZTempFile>("ZDefaultTempFile", "ZTempFile", zDefaultTempFileTypeName,
                                         {"ZConfig* config", "ZEmitter* zEmitter"}),
        row<ZDefaultJobPoolSet, ZJobPoolSet>("ZDefaultJobPoolSet", "ZJobPoolSet", zDefaultJobPoolSetTypeName,
                                             {"ZEmitter* zEmitter"}),
        row<ZDefaultThreadPoolSet, ZThreadPoolSet>("ZDefaultThreadPoolSet", "ZThreadPoolSet",
                                                   zDefaultThreadPoolSetTypeName, {"ZEmitter* zEmitter"}),
        row<ZDefaultDbus, ZDbus, ZDbusReach>("ZDefaultDbus", "ZDbus", zDefaultDbusTypeName,
                                             {"ZLogger* zLogger", "ZEmitter* zEmitter"}),
        row<ZDefaultDbusOutcome, ZDbusOutcome>("ZDefaultDbusOutcome", "ZDbusOutcome", zDefaultDbusOutcomeTypeName,
                                               {"ZDbus* zDbus", "ZEmitter* zEmitter"}),
        row<ZDefaultDbusAsync, ZDbusAsync>("ZDefaultDbusAsync", "ZDbusAsync", zDefaultDbusAsyncTypeName,
                                           {"ZDbusOutcome* zDbusOutcome", "ZLogger* zLogger", "ZEmitter* zEmitter"}),
        row<ZDefaultContext, ZContext>("ZDefaultContext", "ZContext", zDefaultContextTypeName, {"ZEmitter* zEmitter"}),
        row<ZDefaultScheduler, ZScheduler>(
            "ZDefaultScheduler", "ZScheduler", zDefaultSchedulerTypeName,
            {"ZConfig* zConfig", "ZLogger* zLogger", "ZThreadPoolSet* zPoolSet", "ZDbus* zDbus", "ZEmitter* zEmitter"}),
    };
    return list;
}

/// The function through which a component is given a service, which is both reader and writer of a property.
struct Consumption
{
    const char *name;
    const char *property;
    bool keepsTheFirst; // and else nothing
    QSharedPointer<QObject> (*make)();
    QSharedPointer<ZDelegate> (*service)();
    QVariant (*write)(QObject &component, const ZDelegate &service);
    QVariant (*read)(QObject &component);
};

template <class Class, class Delegate, auto GetSet, class Service>
Consumption consumption(const char *name, const char *property, bool keepsTheFirst, Service *(Class::*)(Service *))
{
    return {name,
            property,
            keepsTheFirst,
            []() -> QSharedPointer<QObject> { return QSharedPointer<Class>::create(); },
            []() -> QSharedPointer<ZDelegate> { return QSharedPointer<Delegate>::create(nullptr); },
            [](QObject &component, const ZDelegate &service) {
                auto *value = QVariant(service).value<Service *>();
                return QVariant::fromValue((static_cast<Class &>(component).*GetSet)(value));
            },
            [](QObject &component) { return QVariant::fromValue((static_cast<Class &>(component).*GetSet)(nullptr)); }};
}

template <class Class, class Delegate, auto GetSet>
Consumption keepsTheFirst(const char *name, const char *property)
{
    return consumption<Class, Delegate, GetSet>(name, property, true, GetSet);
}

template <class Class, class Delegate, auto GetSet>
Consumption keepsNothing(const char *name, const char *property)
{
    return consumption<Class, Delegate, GetSet>(name, property, false, GetSet);
}

const Consumption consumptions[] = {
    keepsNothing<ZDefaultConfig, ZEmitterDelegate, &ZDefaultConfig::getSetZEmitter>("config", "zEmitter"),
    keepsTheFirst<ZDefaultLogger, ZConfigDelegate, &ZDefaultLogger::getSetZConfig>("logger", "config"),
    keepsNothing<ZDefaultLogger, ZEmitterDelegate, &ZDefaultLogger::getSetZEmitter>("logger", "zEmitter"),
    keepsTheFirst<ZDefaultLoader, ZLoggerDelegate, &ZDefaultLoader::getSetZLogger>("loader", "zLogger"),
    keepsTheFirst<ZDefaultLoader, ZEmitterDelegate, &ZDefaultLoader::getSetZEmitter>("loader", "zEmitter"),
    keepsTheFirst<ZDefaultLoader, ZConfigDelegate, &ZDefaultLoader::getSetZConfig>("loader", "zConfig"),
    keepsNothing<ZDefaultTempFile, ZConfigDelegate, &ZDefaultTempFile::getSetZConfig>("temporary files", "config"),
    keepsNothing<ZDefaultTempFile, ZEmitterDelegate, &ZDefaultTempFile::getSetZEmitter>("temporary files", "zEmitter"),
    keepsNothing<ZDefaultJobPoolSet, ZEmitterDelegate, &ZDefaultJobPoolSet::getSetZEmitter>("job pools", "zEmitter"),
    keepsNothing<ZDefaultThreadPoolSet, ZEmitterDelegate, &ZDefaultThreadPoolSet::getSetZEmitter>("thread pools",
                                                                                                  "zEmitter"),
    keepsNothing<ZDefaultDbus, ZLoggerDelegate, &ZDefaultDbus::getSetZLogger>("bus", "zLogger"),
    keepsNothing<ZDefaultDbus, ZEmitterDelegate, &ZDefaultDbus::getSetZEmitter>("bus", "zEmitter"),
    keepsTheFirst<ZDefaultDbusOutcome, ZDbusDelegate, &ZDefaultDbusOutcome::getSetZDbus>("outcomes", "zDbus"),
    keepsNothing<ZDefaultDbusOutcome, ZEmitterDelegate, &ZDefaultDbusOutcome::getSetZEmitter>("outcomes", "zEmitter"),
    keepsTheFirst<ZDefaultDbusAsync, ZDbusOutcomeDelegate, &ZDefaultDbusAsync::getSetZDbusOutcome>("calls",
                                                                                                   "zDbusOutcome"),
    keepsNothing<ZDefaultDbusAsync, ZLoggerDelegate, &ZDefaultDbusAsync::getSetZLogger>("calls", "zLogger"),
    keepsNothing<ZDefaultDbusAsync, ZEmitterDelegate, &ZDefaultDbusAsync::getSetZEmitter>("calls", "zEmitter"),
    keepsNothing<ZDefaultContext, ZEmitterDelegate, &ZDefaultContext::getSetZEmitter>("context", "zEmitter"),
    keepsTheFirst<ZDefaultScheduler, ZConfigDelegate, &ZDefaultScheduler::getSetZConfig>("scheduler", "zConfig"),
    keepsNothing<ZDefaultScheduler, ZLoggerDelegate, &ZDefaultScheduler::getSetZLogger>("scheduler", "zLogger"),
    keepsTheFirst<ZDefaultScheduler, ZThreadPoolSetDelegate, &ZDefaultScheduler::getSetZPoolSet>("scheduler",
                                                                                                 "zPoolSet"),
    keepsTheFirst<ZDefaultScheduler, ZDbusDelegate, &ZDefaultScheduler::getSetZDbus>("scheduler", "zDbus"),
    keepsNothing<ZDefaultScheduler, ZEmitterDelegate, &ZDefaultScheduler::getSetZEmitter>("scheduler", "zEmitter"),
};

/// Where an operation stands in its class's table: a pointer to a virtual function holds the offset, on some processors
/// with the lowest bit set.
template <class Operation>
qptrdiff slot(Operation operation)
{
    qptrdiff offset = 0;
    std::memcpy(&offset, &operation, sizeof offset);
    return offset / qptrdiff(sizeof(void *));
}

} // namespace

Q_DECLARE_METATYPE(const Consumption *)
Q_DECLARE_METATYPE(const Contract *)
Q_DECLARE_METATYPE(const Interface *)
Q_DECLARE_METATYPE(const Component *)

class tst_Interfaces : public TestCase
{
    Q_OBJECT

private:
    static void eachContract();
    static void eachInterface();
    static void eachComponent();

private Q_SLOTS:
    void isAbstractWithoutDataOrBase_data() { eachContract(); }
    void isAbstractWithoutDataOrBase();
    void hasItsIdentifier_data() { eachInterface(); }
    void hasItsIdentifier();
    void aPluginBuiltBeforeReachesEachOperation_data() { eachContract(); }
    void aPluginBuiltBeforeReachesEachOperation();
    void eachOperationOfAPluginBuiltBeforeIsReached_data() { eachContract(); }
    void eachOperationOfAPluginBuiltBeforeIsReached();
    void aDelegateIsAZDelegateAndThenItsInterface_data() { eachInterface(); }
    void aDelegateIsAZDelegateAndThenItsInterface();

    void aComponentIsAnObjectAndThenItsInterface_data() { eachComponent(); }
    void aComponentIsAnObjectAndThenItsInterface();
    void aComponentIsMadeWithoutAParent_data() { eachComponent(); }
    void aComponentIsMadeWithoutAParent();
    void aComponentHasInvokableConstructors_data() { eachComponent(); }
    void aComponentHasInvokableConstructors();
    void aComponentAnswersForItsClassAndItsInterface_data() { eachComponent(); }
    void aComponentAnswersForItsClassAndItsInterface();
    void aComponentDeclaresWhatItConsumes_data() { eachComponent(); }
    void aComponentDeclaresWhatItConsumes();
    void aTypeNameIsTheClassWithAnAsterisk_data() { eachComponent(); }
    void aTypeNameIsTheClassWithAnAsterisk();
    void aTypeNameFunctionAnswersOnEachThread_data() { eachComponent(); }
    void aTypeNameFunctionAnswersOnEachThread();
    void aServiceIsReadAndWrittenByOneFunction_data();
    void aServiceIsReadAndWrittenByOneFunction();
    void theConfigurationNamesItsArgument();
    void theSchedulerIsAnEndpointToo();
    void anActivityRunsInTheSlotBehindItsSchedule();
};

void tst_Interfaces::eachContract()
{
    QTest::addColumn<const Contract *>("contract");
    for (const Contract &interface : interfaces)
        QTest::newRow(interface.name) << &interface;
    for (const Contract &further : furtherContracts)
        QTest::newRow(further.name) << &further;
}

void tst_Interfaces::eachInterface()
{
    QTest::addColumn<const Interface *>("interface");
    for (const Interface &interface : interfaces)
        QTest::newRow(interface.name) << &interface;
}

void tst_Interfaces::eachComponent()
{
    QTest::addColumn<const Component *>("component");
    for (const Component &component : components())
        QTest::newRow(component.name) << &component;
}

void tst_Interfaces::isAbstractWithoutDataOrBase()
{
    QFETCH(const Contract *, contract);
    QVERIFY(contract->isAbstract);
    QCOMPARE(contract->size, sizeof(void *)); // the pointer to its slots, and nothing else
}

void tst_Interfaces::hasItsIdentifier()
{
    QFETCH(const Interface *, interface);
    QCOMPARE(QByteArray(interface->identifier), "zdefault::" + QByteArray(interface->name));
}

void tst_Interfaces::aPluginBuiltBeforeReachesEachOperation()
{
    QFETCH(const Contract *, contract);
    const auto use = reinterpret_cast<void (*)(const char *, void *, QStringList *)>(
        QLibrary::resolve(QStringLiteral(FROZEN), "frozenUse"));
    QVERIFY(use);

    QStringList calls;
    QStringList results;
    use(contract->name, contract->make(&calls), &results);

    QCOMPARE(calls, contract->calls() << QStringLiteral("end"));
    QCOMPARE(results, contract->results());
}

void tst_Interfaces::eachOperationOfAPluginBuiltBeforeIsReached()
{
    QFETCH(const Contract *, contract);
    const auto make = reinterpret_cast<void *(*)(const char *, QStringList *)>(
        QLibrary::resolve(QStringLiteral(FROZEN), "frozenMake"));
    QVERIFY(make);

    QStringList calls;
    const QStringList results = contract->use(make(contract->name, &calls));

    QCOMPARE(calls, contract->calls() << QStringLiteral("end"));
    QCOMPARE(results, contract->results());
}

void tst_Interfaces::aDelegateIsAZDelegateAndThenItsInterface()
{
    QFETCH(const Interface *, interface);
    QCOMPARE(interface->delegateOffset, 0);
    QVERIFY(interface->delegateAddsNoData);
}

void tst_Interfaces::aComponentIsAnObjectAndThenItsInterface()
{
    QFETCH(const Component *, component);
    QVERIFY(component->isObjectFirst);
}

void tst_Interfaces::aComponentIsMadeWithoutAParent()
{
    QFETCH(const Component *, component);
    const QScopedPointer<QObject> object(component->metaObject->newInstance());
    QVERIFY(object);
    QVERIFY(!object->parent());
}

void tst_Interfaces::aComponentHasInvokableConstructors()
{
    QFETCH(const Component *, component);
    QStringList constructors;
    for (int i = 0; i < component->metaObject->constructorCount(); ++i)
        constructors << QString::fromLatin1(component->metaObject->constructor(i).methodSignature());
    QCOMPARE(constructors, component->constructors);
}

void tst_Interfaces::aComponentAnswersForItsClassAndItsInterface()
{
    QFETCH(const Component *, component);
    const QScopedPointer<QObject> object(component->make());
    void *const part = component->part(object.data());
    const QByteArray interface(component->interface);

    QVERIFY(part);
    QCOMPARE(object->qt_metacast(component->name), static_cast<void *>(object.data()));
    QCOMPARE(object->qt_metacast("QObject"), static_cast<void *>(object.data()));
    QCOMPARE(object->qt_metacast(interface), part);
    QCOMPARE(object->qt_metacast("zdefault::" + interface), part);
    QCOMPARE(object->qt_metacast(nullptr), nullptr);
    QCOMPARE(object->qt_metacast(""), nullptr);
    for (const Interface &other : interfaces) {
        if (interface != other.name)
            QCOMPARE(object->qt_metacast(other.identifier) != nullptr, component->further.contains(other.identifier));
    }
}

void tst_Interfaces::aComponentDeclaresWhatItConsumes()
{
    QFETCH(const Component *, component);
    QStringList properties;
    for (int i = component->metaObject->propertyOffset(); i < component->metaObject->propertyCount(); ++i) {
        const QMetaProperty property = component->metaObject->property(i);
        QVERIFY(property.isReadable());
        QVERIFY(property.isWritable());
        properties << QStringLiteral("%1 %2").arg(QLatin1String(property.typeName()), QLatin1String(property.name()));
    }
    QCOMPARE(properties, component->properties);
}

void tst_Interfaces::aTypeNameIsTheClassWithAnAsterisk()
{
    QFETCH(const Component *, component);
    const QByteArray name = QByteArray(component->name) + '*';
    QCOMPARE(QByteArray(component->typeName), name);
    QCOMPARE(QByteArray(component->typeNameFunction()), name);
    QCOMPARE(component->typeNameFunction(), component->typeName); // constant text
}

void tst_Interfaces::aTypeNameFunctionAnswersOnEachThread()
{
    QFETCH(const Component *, component);
    const int type = QMetaType::type(component->typeName);
    QByteArray name;
    const QScopedPointer<QThread> thread(QThread::create([&] { name = component->typeNameFunction(); }));
    thread->start();
    const QByteArray ours = component->typeNameFunction();
    QVERIFY(thread->wait(30000));
    QCOMPARE(name, ours);
    QCOMPARE(QMetaType::type(name), type);
}

void tst_Interfaces::aServiceIsReadAndWrittenByOneFunction_data()
{
    QTest::addColumn<const Consumption *>("consumption");
    for (const Consumption &consumption : consumptions)
        QTest::addRow("%s, %s", consumption.name, consumption.property) << &consumption;
}

void tst_Interfaces::aServiceIsReadAndWrittenByOneFunction()
{
    QFETCH(const Consumption *, consumption);
    const auto first = consumption->service();
    const auto second = consumption->service();
    const QVariant nothing = consumption->read(*consumption->make());
    QVERIFY(nothing != QVariant(*first));

    const auto written = consumption->make();
    QCOMPARE(written->property(consumption->property), nothing);
    QVERIFY(written->setProperty(consumption->property, *first));
    QVERIFY(written->setProperty(consumption->property, *second));
    QVERIFY(written->setProperty(consumption->property, nothing));
    QCOMPARE(written->property(consumption->property), consumption->keepsTheFirst ? QVariant(*first) : nothing);

    const auto called = consumption->make();
    QCOMPARE(consumption->write(*called, *first), QVariant(*first));
    QCOMPARE(consumption->write(*called, *second), QVariant(consumption->keepsTheFirst ? *first : *second));
    QCOMPARE(consumption->read(*called), consumption->keepsTheFirst ? QVariant(*first) : nothing);
}

void tst_Interfaces::theConfigurationNamesItsArgument()
{
    const QMetaMethod constructor = ZDefaultConfig::staticMetaObject.constructor(0);
    QCOMPARE(constructor.parameterNames(), QList<QByteArray>{"jsonObject"});
}

void tst_Interfaces::theSchedulerIsAnEndpointToo()
{
    ZDefaultScheduler scheduler;
    ZDbusSubscriber *const endpoint = &scheduler;
    QCOMPARE(scheduler.qt_metacast("ZDbusSubscriber"), static_cast<void *>(endpoint));
}

void tst_Interfaces::anActivityRunsInTheSlotBehindItsSchedule()
{
    QVERIFY(std::is_abstract_v<ZScheduledActivity>);
    QCOMPARE(slot(&ZScheduledActivity::name), qptrdiff(2)); // the destructor has two
    QCOMPARE(slot(&ZScheduledActivity::wait), qptrdiff(3));
    QCOMPARE(slot(&ZScheduledActivity::cancel), qptrdiff(4));
    QCOMPARE(slot(&ZScheduledActivity::run), qptrdiff(5));
}

QTEST_GUILESS_MAIN(tst_Interfaces)

#include "tst_interfaces.moc"
