// SPDX-License-Identifier: Apache-2.0
#include "zdefaultemitter.h"

#include "zemitterlock.h"
#include "zlogger.h"
#include "zsecondowner.h"
#include "zstaying.h"
#include "ztypename.h"

#include <QMetaProperty>
#include <QPointer>
#include <QScopedValueRollback>

#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <optional>
#include <typeinfo>

namespace {

thread_local int heldHere = 0; // how many locks of emitters this thread has

/// The class of `delegate`, as its author wrote it.
QString className(const ZDelegate &delegate)
{
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(delegate).name(), nullptr, nullptr, nullptr), std::free);
    return QString::fromUtf8(name.get());
}

/// What is wrong with `delegate`, which is bound for `component`; null if nothing is.
QString mistakeIn(const ZDelegate &delegate, const ZReference *reference, const QObject *component)
{
    if (!QVariant(delegate).isValid())
        return QStringLiteral(
                   "%1 was bound but provides nothing, so nobody is given it: write provide<Interface>(this) "
                   "in its constructor, or derive it from ZDelegateOf<Interface>")
            .arg(className(delegate));
    if (dynamic_cast<const ZSecondOwner *>(reference))
        return QStringLiteral("%1 was bound by a second owner, which would have deleted it twice: write shared() "
                              "instead of QSharedPointer<QObject>(this)")
            .arg(QString::fromUtf8(component->metaObject()->className()));
    return {};
}

/// Logs a warning, but not about what the logger itself binds while it writes one.
void warn(const ZDelegate &loggerDelegate, const QString &text)
{
    thread_local bool isWarning = false;
    if (isWarning)
        return;
    const QScopedValueRollback<bool> warning(isWarning, true);
    auto *logger = QVariant(loggerDelegate).value<ZLogger *>();
    if (logger->warning0())
        logger->warning0(text);
}

} // namespace

const char *zDefaultEmitterTypeName() { return zTypeName<ZDefaultEmitter>("ZDefaultEmitter*"); }

const char *const ZDefaultEmitter::TypeName = zDefaultEmitterTypeName();

ZDefaultEmitter::ZDefaultEmitter() = default;

ZDefaultEmitter::~ZDefaultEmitter()
{
    // While a component is destroyed, it may still call its services. So the components go before the delegates, and in
    // the reverse order in which they came. A component may put another one in its place while it is destroyed.
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
    std::optional<ZEmitterLock> lock(this);
    const QSharedPointer<ZReference> reference = *delegate;
    const QSharedPointer<QObject> component = reference ? reference->m_object : QSharedPointer<QObject>();
    const QString mistake = mistakeIn(*delegate, reference.data(), component.data());
    const int interfaceType = QVariant(*delegate).userType();
    QSharedPointer<ZReference> previous;
    if (interfaceType != QMetaType::UnknownType) {
        bound(interfaceType, component);
        if (const QSharedPointer<ZDelegate> filed = m_delegates.value(interfaceType)) {
            previous = filed->replace(reference);
            ZParking::park(previous);
        } else {
            // The delegate is kept for good, even when its plugin has gone: so its code, the virtual functions of its
            // class, has to stay in memory.
            zKeepInMemory(*reinterpret_cast<void *const *>(delegate.data()),
                          QStringLiteral("it brought the first delegate of an interface"));
            m_delegates.insert(interfaceType, delegate);
            m_order.append(interfaceType);
        }
    }
    if (mistake.isNull())
        return previous;
    const QSharedPointer<ZDelegate> logger = m_delegates.value(qMetaTypeId<ZLogger *>());
    lock.reset(); // the logger may wait for another thread
    if (logger)
        warn(*logger, mistake);
    return previous;
}

QObject *ZDefaultEmitter::zemit0(const char *typeName, QGenericArgument a0, QGenericArgument a1, QGenericArgument a2,
                                 QGenericArgument a3, QGenericArgument a4, QGenericArgument a5, QGenericArgument a6,
                                 QGenericArgument a7, QGenericArgument a8, QGenericArgument a9)
{
    const QMetaType type(QMetaType::type(typeName));
    if (!type.flags().testFlag(QMetaType::PointerToQObject) || !type.metaObject())
        return nullptr;
    QObject *const object = type.metaObject()->newInstance(a0, a1, a2, a3, a4, a5, a6, a7, a8, a9);
    return object ? inject0(object) : nullptr; // the inject0 of a derived class may return something else
}

QObject *ZDefaultEmitter::inject0(QObject *object)
{
    if (!object)
        return nullptr;

    const ZEmitterLock lock(this);
    if (m_delegates.isEmpty())
        return object;
    const QPointer<QObject> alive(object); // may be destroyed in its writer, if it announces itself and nobody takes it
    const QMetaObject *metaObject = object->metaObject();
    for (int i = 0; alive && i < metaObject->propertyCount(); ++i) {
        const QMetaProperty property = metaObject->property(i);
        const int type = property.userType();
        if (type < QMetaType::User)
            continue;
        // Looked up only now: the writer of an earlier property may have bound a delegate for this one.
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
