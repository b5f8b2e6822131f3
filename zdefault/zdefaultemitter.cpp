// SPDX-License-Identifier: Apache-2.0
#include "zdefaultemitter.h"

#include "zemitterlock.h"
#include "zstaying.h"
#include "ztypename.h"

#include <QMetaProperty>
#include <QPointer>

namespace {

thread_local int heldHere = 0; // locks of emitters that this thread has

} // namespace

const char *zDefaultEmitterTypeName() { return zTypeName<ZDefaultEmitter>("ZDefaultEmitter*"); }

const char *const ZDefaultEmitter::TypeName = zDefaultEmitterTypeName();

ZDefaultEmitter::ZDefaultEmitter() = default;

ZDefaultEmitter::~ZDefaultEmitter()
{
    // A dying component may still call the services that it was given: so the components go before the delegates,
    // and each before those that were there when it came. One may put another in its place as it dies.
    while (!m_order.isEmpty()) {
        if (!m_delegates.value(m_order.last())->replace({}))
            m_order.removeLast();
    }
}

void ZDefaultEmitter::install(QSharedPointer<QObject> object)
{
    bind0(QSharedPointer<ZEmitterDelegate>::create(std::move(object)));
}

QSharedPointer<ZReference> ZDefaultEmitter::bind0(QSharedPointer<ZDelegate> delegate)
{
    if (!delegate)
        return {};
    const int interfaceType = QVariant(*delegate).userType();
    if (interfaceType == QMetaType::UnknownType)
        return {};

    const ZEmitterLock lock(this);
    const QSharedPointer<ZReference> reference = *delegate;
    bound(interfaceType, reference ? reference->m_object : QSharedPointer<QObject>());
    const QSharedPointer<ZDelegate> filed = m_delegates.value(interfaceType);
    if (filed) {
        const QSharedPointer<ZReference> previous = filed->replace(reference);
        ZParking::park(previous);
        return previous;
    }
    // It is filed for good, whatever becomes of those who brought it: so is its class, with its virtual functions.
    zKeepInMemory(*reinterpret_cast<void *const *>(delegate.data()),
                  QStringLiteral("it brought the first delegate of an interface"));
    m_delegates.insert(interfaceType, delegate);
    m_order.append(interfaceType);
    return {};
}

QObject *ZDefaultEmitter::zemit0(const char *typeName, QGenericArgument a0, QGenericArgument a1, QGenericArgument a2,
                                 QGenericArgument a3, QGenericArgument a4, QGenericArgument a5, QGenericArgument a6,
                                 QGenericArgument a7, QGenericArgument a8, QGenericArgument a9)
{
    const QMetaType type(QMetaType::type(typeName));
    if (!type.flags().testFlag(QMetaType::PointerToQObject) || !type.metaObject())
        return nullptr;
    QObject *const object = type.metaObject()->newInstance(a0, a1, a2, a3, a4, a5, a6, a7, a8, a9);
    return object ? inject0(object) : nullptr; // an inject0 of a derived class's need not return what it is given
}

QObject *ZDefaultEmitter::inject0(QObject *object)
{
    if (!object)
        return nullptr;

    const ZEmitterLock lock(this);
    if (m_delegates.isEmpty())
        return object;
    const QPointer<QObject> alive(object); // one that announces itself where nobody takes it dies in its writer
    const QMetaObject *metaObject = object->metaObject();
    for (int i = 0; alive && i < metaObject->propertyCount(); ++i) {
        const QMetaProperty property = metaObject->property(i);
        const int type = property.userType();
        if (type < QMetaType::User)
            continue;
        // Looked up one by one: the writer of an earlier property may have bound this one's provider.
        const QSharedPointer<ZDelegate> delegate = m_delegates.value(type);
        if (delegate)
            property.write(object, *delegate);
        if (alive)
            injected(object, property, !delegate.isNull());
    }
    return alive;
}

void ZDefaultEmitter::bound(int, const QSharedPointer<QObject> &) {}

void ZDefaultEmitter::injected(QObject *, const QMetaProperty &, bool) {}

ZEmitterLock::ZEmitterLock(ZEmitter *emitter)
{
    auto *component = dynamic_cast<ZDefaultEmitter *>(emitter);
    if (auto *delegate = dynamic_cast<ZEmitterDelegate *>(emitter)) {
        const ZDelegate::Call call(*delegate);
        if (call.part<ZEmitter>())
            m_emitter = call.component();
        component = qobject_cast<ZDefaultEmitter *>(m_emitter.data());
    }
    if (component)
        lock(component);
}

ZEmitterLock::ZEmitterLock(ZDefaultEmitter *emitter) { lock(emitter); }

ZEmitterLock::~ZEmitterLock()
{
    if (!m_mutex)
        return;
    --heldHere;
    m_mutex->unlock();
}

bool ZEmitterLock::isHeldHere() { return heldHere > 0; }

void ZEmitterLock::lock(ZDefaultEmitter *emitter)
{
    m_mutex = &emitter->m_mutex;
    m_mutex->lock();
    ++heldHere;
}

ZEmitterDelegate::ZEmitterDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZEmitter>(this); }

ZEmitterDelegate::ZEmitterDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZEmitter>(this);
}

QSharedPointer<ZReference> ZEmitterDelegate::bind0(QSharedPointer<ZDelegate> delegate)
{
    return forward(&ZEmitter::bind0, {}, delegate);
}

QObject *ZEmitterDelegate::zemit0(const char *typeName, QGenericArgument a0, QGenericArgument a1, QGenericArgument a2,
                                  QGenericArgument a3, QGenericArgument a4, QGenericArgument a5, QGenericArgument a6,
                                  QGenericArgument a7, QGenericArgument a8, QGenericArgument a9)
{
    return forward(&ZEmitter::zemit0, nullptr, typeName, a0, a1, a2, a3, a4, a5, a6, a7, a8, a9);
}

QObject *ZEmitterDelegate::inject0(QObject *object) { return forward(&ZEmitter::inject0, object, object); }
