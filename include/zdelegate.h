// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"
#include "zlender.h"
#include "zreference.h"

#include <QMutex>
#include <QSharedPointer>
#include <QVariant>

#include <atomic>
#include <functional>
#include <type_traits>
#include <utility>

class ZCallNote;
class ZTarget;

/**
 * The base of all delegates. A delegate passes calls on to a component. The component may be exchanged; those who use
 * it keep their pointer to the delegate.
 *
 * A delegate of an interface derives from this class and then from the interface, names the interface once in its
 * constructor, and forwards each operation in one line:
 *
 *     class GreeterDelegate : public ZDelegate, public Greeter
 *     {
 *     public:
 *         explicit GreeterDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(object))
 *         {
 *             provide<Greeter>(this);
 *         }
 *         QString greet(const QString &name) override { return forward(&Greeter::greet, {}, name); }
 *     };
 *
 * Ownership: shares the component through its reference; `replace` returns the previous share to its caller.
 * Thread:    any. A call runs unlocked on the caller's thread, so several may run in the component at once.
 * Failure:   if the component is missing, or lacks the interface, a call returns the operation's neutral result.
 */
class ZDEFAULT_EXPORT ZDelegate
{
public:
    explicit ZDelegate(QSharedPointer<ZReference> reference);
    virtual ~ZDelegate();

    /// Makes `reference` the current one, and returns the one before it: the caller decides when that ends. A call that
    /// is running finishes on the component on which it began.
    QSharedPointer<ZReference> replace(QSharedPointer<ZReference> reference);

    /// The current reference.
    operator QSharedPointer<ZReference>();
    /// The delegate's own interface pointer, typed as such; invalid for a bare `ZDelegate`.
    operator QVariant() const;

protected:
    /// A reference that becomes the only owner of `object`. The object must be on the heap, and have no other owner.
    static QSharedPointer<ZReference> refer(QObject *object);
    /// A reference that shares the owner of `object`. If `object` is a second owner of a `ZOwned`, made from a raw
    /// pointer, then the first owner is shared, and the second one never deletes the component.
    static QSharedPointer<ZReference> refer(QSharedPointer<QObject> object);

    /// Names the interface of this delegate. Call it once, in the constructor. `Interface*` must be declared with
    /// `Q_DECLARE_METATYPE`, and is registered here.
    template <class Interface>
    void provide(Interface *self)
    {
        static_assert(std::has_virtual_destructor_v<Interface>, "provide<Interface>: the interface has no virtual "
                                                                "destructor. Write after its operations: "
                                                                "virtual ~Interface() {}");
        m_value = QVariant::fromValue(self);
    }

    /// Calls `operation`, which `Interface` itself declares, on the component. The component is cast by the interface's
    /// identifier, and kept alive meanwhile. Returns `neutral` if there is none. Shared pointers that the component of
    /// a plugin returns, in containers too, keep the plugin in memory (`ZLender`).
    template <class Interface, class Operation, class... Args>
    auto forward(Operation Interface::*operation,
                 std::invoke_result_t<Operation Interface::*, Interface &, Args...> neutral, Args &&...args) const
    {
        const Call call(*this);
        auto *const part = call.part<Interface>();
        return part ? lend(call, std::invoke(operation, part, std::forward<Args>(args)...)) : std::move(neutral);
    }

    /// The same for an operation without a result.
    template <class Interface, class Operation, class... Args>
    auto forward(Operation Interface::*operation, Args &&...args) const
        -> std::enable_if_t<std::is_void_v<std::invoke_result_t<Operation Interface::*, Interface &, Args...>>>
    {
        const Call call(*this);
        if (auto *const part = call.part<Interface>())
            std::invoke(operation, part, std::forward<Args>(args)...);
    }

private:
    Q_DISABLE_COPY(ZDelegate)
    friend class ZEmitterLock;

    /// One call: keeps the component that is current at its beginning alive until its end.
    class ZDEFAULT_EXPORT Call
    {
    public:
        explicit Call(const ZDelegate &delegate);
        ~Call()
        {
            if (m_target)
                end();
        }

        /// The component as an `Interface`; null if there is none, or if it lacks the interface.
        template <class Interface>
        Interface *part() const
        {
            return m_component
                       ? static_cast<Interface *>(m_component->qt_metacast(qobject_interface_iid<Interface *>()))
                       : nullptr;
        }
        /// Ask for it only if there is a part.
        const QSharedPointer<QObject> &component() const;

    private:
        Q_DISABLE_COPY(Call)
        static ZTarget *share(const ZDelegate &delegate);
        void end();

        ZTarget *m_target = nullptr;
        ZCallNote *m_note = nullptr; // keeps the target; without a note, this object is a share of the target
        QObject *m_component = nullptr;
    };

    template <class Result>
    static Result lend(const Call &call, Result result)
    {
        if constexpr (ZLender::isLent<Result>()) {
            if (isFromPlugin(call.component().data()))
                ZLender(call.component()).lend(result);
        }
        return result;
    }
    static bool isFromPlugin(const QObject *component);

    static ZTarget *target(const QSharedPointer<ZReference> &reference);

    mutable QMutex m_mutex;
    QSharedPointer<ZReference> m_reference;
    QVariant m_value;
    std::atomic<ZTarget *> m_target; // of the reference; null if that has no component
};
