// SPDX-License-Identifier: Apache-2.0
// A program of its own: what the first use of a type does can be seen only once in a process.
#include "testcase.h"

#include <QMetaObject>
#include <QMetaType>

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

#include <algorithm>
#include <iterator>

namespace {

using Use = void (*)();

struct Component
{
    const char *name;
    const QMetaObject *metaObject;
    int type; // when this program's own variables are initialised
};

// In the order in which the library registers them.
const Component components[] = {
    {"ZDefaultConfig*", &ZDefaultConfig::staticMetaObject, QMetaType::type("ZDefaultConfig*")},
    {"ZDefaultEmitter*", &ZDefaultEmitter::staticMetaObject, QMetaType::type("ZDefaultEmitter*")},
    {"ZDefaultLogger*", &ZDefaultLogger::staticMetaObject, QMetaType::type("ZDefaultLogger*")},
    {"ZDefaultLoader*", &ZDefaultLoader::staticMetaObject, QMetaType::type("ZDefaultLoader*")},
    {"ZDefaultTempFile*", &ZDefaultTempFile::staticMetaObject, QMetaType::type("ZDefaultTempFile*")},
    {"ZDefaultJobPoolSet*", &ZDefaultJobPoolSet::staticMetaObject, QMetaType::type("ZDefaultJobPoolSet*")},
    {"ZDefaultThreadPoolSet*", &ZDefaultThreadPoolSet::staticMetaObject, QMetaType::type("ZDefaultThreadPoolSet*")},
    {"ZDefaultDbus*", &ZDefaultDbus::staticMetaObject, QMetaType::type("ZDefaultDbus*")},
    {"ZDefaultDbusOutcome*", &ZDefaultDbusOutcome::staticMetaObject, QMetaType::type("ZDefaultDbusOutcome*")},
    {"ZDefaultDbusAsync*", &ZDefaultDbusAsync::staticMetaObject, QMetaType::type("ZDefaultDbusAsync*")},
    {"ZDefaultContext*", &ZDefaultContext::staticMetaObject, QMetaType::type("ZDefaultContext*")},
    {"ZDefaultScheduler*", &ZDefaultScheduler::staticMetaObject, QMetaType::type("ZDefaultScheduler*")},
};

template <class Delegate>
void useDelegate()
{
    Delegate(static_cast<QObject *>(nullptr));
}

const struct
{
    const char *name;
    Use use;
} interfaces[] = {
    {"ZConfig*", useDelegate<ZConfigDelegate>},
    {"ZEmitter*", useDelegate<ZEmitterDelegate>},
    {"ZLogger*", useDelegate<ZLoggerDelegate>},
    {"ZLoader*", useDelegate<ZLoaderDelegate>},
    {"ZTempFile*", useDelegate<ZTempFileDelegate>},
    {"ZJobPoolSet*", useDelegate<ZJobPoolSetDelegate>},
    {"ZThreadPoolSet*", useDelegate<ZThreadPoolSetDelegate>},
    {"ZDbus*", useDelegate<ZDbusDelegate>},
    {"ZDbusLayer*", useDelegate<ZDbusLayerDelegate>},
    {"ZDbusReach*", useDelegate<ZDbusReachDelegate>},
    {"ZDbusOutcome*", useDelegate<ZDbusOutcomeDelegate>},
    {"ZDbusAsync*", useDelegate<ZDbusAsyncDelegate>},
    {"ZLease*", useDelegate<ZLeaseDelegate>},
    {"ZContext*", useDelegate<ZContextDelegate>},
    {"ZScheduler*", useDelegate<ZSchedulerDelegate>},
};

const char referenceType[] = "QSharedPointer<ZReference>";

} // namespace

Q_DECLARE_METATYPE(const QMetaObject *)
Q_DECLARE_METATYPE(Use)

/// Declares one property of a type that nothing else here uses before.
class Consumer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZScheduler *zScheduler MEMBER m_scheduler)

private:
    ZScheduler *m_scheduler = nullptr;
};

class tst_Registry : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    // In this order.
    void componentsAreKnownBeforeMain_data();
    void componentsAreKnownBeforeMain();
    void componentsAreRegisteredInTheirOrder();
    void interfacesAreUnknownBeforeTheirFirstUse_data();
    void interfacesAreUnknownBeforeTheirFirstUse();
    void referencesAreKnownOnceThereWasOne();
    void theFirstComponentMakesItsInterfacesKnown();
    void aPropertyMakesItsInterfaceKnown();
    void aDelegateMakesItsInterfaceKnown_data();
    void aDelegateMakesItsInterfaceKnown();
    void aReferenceTravelsInAVariant();
    void aReferenceTravelsInAQueuedCall();

private:
    Q_INVOKABLE void receive(QSharedPointer<ZReference> reference) { m_received = reference; }
    QSharedPointer<ZReference> m_received;
};

void tst_Registry::componentsAreKnownBeforeMain_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<const QMetaObject *>("metaObject");
    for (const Component &component : components)
        QTest::newRow(component.name) << component.type << QByteArray(component.name) << component.metaObject;
}

void tst_Registry::componentsAreKnownBeforeMain()
{
    QFETCH(int, type);
    QFETCH(QByteArray, name);
    QVERIFY(type >= QMetaType::User);
    QCOMPARE(QMetaType::type(name), type);
    QCOMPARE(QByteArray(QMetaType::typeName(type)), name);
    QCOMPARE(QMetaType::typeFlags(type),
             QMetaType::MovableType | QMetaType::PointerToQObject | QMetaType::WasDeclaredAsMetaType);
    QCOMPARE(QMetaType::sizeOf(type), int(sizeof(void *)));
    QTEST(QMetaType::metaObjectForType(type), "metaObject");
}

void tst_Registry::componentsAreRegisteredInTheirOrder()
{
    QList<int> types;
    for (const Component &component : components)
        types << component.type;
    QVERIFY(std::is_sorted(types.cbegin(), types.cend()));
}

void tst_Registry::interfacesAreUnknownBeforeTheirFirstUse_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const auto &interface : interfaces)
        QTest::newRow(interface.name) << QByteArray(interface.name);
    QTest::newRow(referenceType) << QByteArray(referenceType);
}

void tst_Registry::interfacesAreUnknownBeforeTheirFirstUse()
{
    QFETCH(QByteArray, name);
    QCOMPARE(QMetaType::type(name), int(QMetaType::UnknownType));
}

void tst_Registry::referencesAreKnownOnceThereWasOne()
{
    const ZReference reference(nullptr);
    const int type = QMetaType::type(referenceType);
    QVERIFY(type >= QMetaType::User);
    QCOMPARE(QMetaType::typeFlags(type), QMetaType::MovableType | QMetaType::NeedsConstruction |
                                             QMetaType::NeedsDestruction | QMetaType::WasDeclaredAsMetaType);
    QCOMPARE(QMetaType::sizeOf(type), int(2 * sizeof(void *)));
}

void tst_Registry::theFirstComponentMakesItsInterfacesKnown()
{
    const Wiring wiring;
    QVERIFY(wiring->zemit0(ZDefaultConfig::TypeName));
    QVERIFY(QMetaType::type("ZConfig*") >= QMetaType::User);
    QVERIFY(QMetaType::type("ZEmitter*") >= QMetaType::User);
    QCOMPARE(QMetaType::type("ZDbus*"), int(QMetaType::UnknownType)); // not yet used
}

void tst_Registry::aPropertyMakesItsInterfaceKnown()
{
    const Wiring wiring;
    QCOMPARE(QMetaType::type("ZScheduler*"), int(QMetaType::UnknownType));
    Consumer consumer;
    wiring->inject0(&consumer);
    QVERIFY(QMetaType::type("ZScheduler*") >= QMetaType::User);
}

void tst_Registry::aDelegateMakesItsInterfaceKnown_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<Use>("use");
    for (const auto &interface : interfaces)
        QTest::newRow(interface.name) << QByteArray(interface.name) << interface.use;
}

void tst_Registry::aDelegateMakesItsInterfaceKnown()
{
    QFETCH(QByteArray, name);
    QFETCH(Use, use);
    use();
    const int type = QMetaType::type(name);
    QVERIFY(type >= QMetaType::User);
    QCOMPARE(QMetaType::typeFlags(type), QMetaType::MovableType | QMetaType::WasDeclaredAsMetaType);
    QCOMPARE(QMetaType::sizeOf(type), int(sizeof(void *)));
    QCOMPARE(QMetaType::metaObjectForType(type), nullptr);
    use();
    QCOMPARE(QMetaType::type(name), type);
}

void tst_Registry::aReferenceTravelsInAVariant()
{
    const auto reference = QSharedPointer<ZReference>::create(QSharedPointer<QObject>::create());
    const QVariant variant = QVariant::fromValue(reference);
    QCOMPARE(QByteArray(variant.typeName()), QByteArray(referenceType));
    QCOMPARE(variant.value<QSharedPointer<ZReference>>(), reference);
}

void tst_Registry::aReferenceTravelsInAQueuedCall()
{
    const auto reference = QSharedPointer<ZReference>::create(QSharedPointer<QObject>::create());
    QVERIFY(
        QMetaObject::invokeMethod(this, "receive", Qt::QueuedConnection, Q_ARG(QSharedPointer<ZReference>, reference)));
    QVERIFY(!m_received);
    QTRY_COMPARE(m_received, reference);
    m_received.clear();
}

QTEST_GUILESS_MAIN(tst_Registry)

#include "tst_registry.moc"
