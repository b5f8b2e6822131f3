// SPDX-License-Identifier: Apache-2.0
// The creation of a component that is given four services, with few metatypes registered and with many.
#include <benchmark/benchmark.h>

#include <QHash>
#include <QMetaProperty>
#include <QMutexLocker>

#include <zdefaultconfig.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>

#ifndef MORE_METATYPES
#define MORE_METATYPES 0
#endif

/// Takes four services and keeps them; nobody owns it.
class Consumer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZConfig *config MEMBER m_config)
    Q_PROPERTY(ZLogger *zLogger MEMBER m_logger)
    Q_PROPERTY(ZDbus *zDbus MEMBER m_dbus)
    Q_PROPERTY(ZThreadPoolSet *zPoolSet MEMBER m_poolSet)

public:
    Q_INVOKABLE Consumer() = default;

private:
    ZConfig *m_config = nullptr;
    ZLogger *m_logger = nullptr;
    ZDbus *m_dbus = nullptr;
    ZThreadPoolSet *m_poolSet = nullptr;
};

namespace {

const char *const name = "Consumer*";

/// What the rules of creation and injection demand: the type by its name, the object by its constructor, and under
/// the lock each property's type asked once, its delegate held and its value written.
class Floor
{
public:
    Floor()
    {
        file(new ZConfigDelegate(new ZDefaultConfig));
        file(new ZLoggerDelegate(new ZDefaultLogger));
        file(new ZDbusDelegate(new ZDefaultDbus));
        file(new ZThreadPoolSetDelegate(new ZDefaultThreadPoolSet));
    }

    QObject *emitOne()
    {
        const QMetaType type(QMetaType::type(name));
        QObject *const object = type.metaObject()->newInstance();
        const QMutexLocker locker(&m_mutex);
        const QMetaObject *metaObject = object->metaObject();
        for (int i = 0; i < metaObject->propertyCount(); ++i) {
            const QMetaProperty property = metaObject->property(i);
            const int propertyType = property.userType();
            if (propertyType < QMetaType::User)
                continue;
            if (const QSharedPointer<ZDelegate> delegate = m_delegates.value(propertyType))
                property.write(object, *delegate);
        }
        return object;
    }

private:
    void file(ZDelegate *delegate)
    {
        const QSharedPointer<ZDelegate> shared(delegate);
        m_delegates.insert(QVariant(*shared).userType(), shared);
    }

    QRecursiveMutex m_mutex;
    QHash<int, QSharedPointer<ZDelegate>> m_delegates;
};

void registerTypes()
{
    for (int i = QMetaType::type(name) == QMetaType::UnknownType ? 0 : MORE_METATYPES; i < MORE_METATYPES; ++i) {
        QMetaType::registerNormalizedType(
            "Another" + QByteArray::number(i), QtMetaTypePrivate::QMetaTypeFunctionHelper<int>::Destruct,
            QtMetaTypePrivate::QMetaTypeFunctionHelper<int>::Construct, sizeof(int), {}, nullptr);
    }
    qRegisterMetaType<Consumer *>(name);
}

void ours(benchmark::State &state)
{
    registerTypes();
    ZDefaultEmitter emitter;
    emitter.bind0(QSharedPointer<ZConfigDelegate>::create(new ZDefaultConfig));
    emitter.bind0(QSharedPointer<ZLoggerDelegate>::create(new ZDefaultLogger));
    emitter.bind0(QSharedPointer<ZDbusDelegate>::create(new ZDefaultDbus));
    emitter.bind0(QSharedPointer<ZThreadPoolSetDelegate>::create(new ZDefaultThreadPoolSet));
    ZEmitter &wiring = emitter;
    for (auto _ : state)
        delete wiring.zemit0(name);
}

void floor(benchmark::State &state)
{
    registerTypes();
    Floor floor;
    for (auto _ : state)
        delete floor.emitOne();
}

/// An object by its type's name, given nothing.
void newInstance(benchmark::State &state)
{
    registerTypes();
    for (auto _ : state)
        delete QMetaType(QMetaType::type(name)).metaObject()->newInstance();
}

BENCHMARK(ours)->Name("zemit0 with 4 services/ours")->Arg(MORE_METATYPES);
BENCHMARK(floor)->Name("zemit0 with 4 services/floor")->Arg(MORE_METATYPES);
BENCHMARK(newInstance)->Name("zemit0 with 4 services/peer: newInstance alone")->Arg(MORE_METATYPES);

} // namespace

#include "emitter.moc"
