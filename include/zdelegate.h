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
 * The base of all delegates: stands for a component that may be exchanged while everyone who uses it keeps their
 * pointer to the delegate.
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
 * Ownership: shares the component through its reference; `replace` hands the previous share to its caller.
 * Thread:    any. A call runs unlocked on the caller's thread, so several may run in the component at once.
 * Failure:   a component that is missing, or lacks the interface, gives the operation's neutral result.
 */
class ZDEFAULT_EXPORT ZDelegate
{
public:
    explicit ZDelegate(QSharedPointer<ZReference> reference);
    virtual ~ZDelegate();

    /// Makes `reference` the current one and returns the one before it, whose end is then the caller's to decide.
    /// A call that is under way finishes on the component with which it began.
    QSharedPointer<ZReference> replace(QSharedPointer<ZReference> reference);

    /// The current reference.
    operator QSharedPointer<ZReference>();
    /// The delegate's own interface pointer, typed as such; invalid for a bare `ZDelegate`.
    operator QVariant() const;

protected:
    /// A reference that becomes the one owner of `object`, which must be on the heap and owned by nobody else.
    static QSharedPointer<ZReference> refer(QObject *object);
    /// A reference that shares the ownership which `object` has already.
    static QSharedPointer<ZReference> refer(QSharedPointer<QObject> object);

    /// To be called once, in the constructor: the interface that this delegate stands for. `Interface*` must be
    /// declared with `Q_DECLARE_METATYPE`, and is registered here.
    template <class Interface>
    void provide(Interface *self)
    {
        m_value = QVariant::fromValue(self);
    }

    /// Calls `operation`, which `Interface` itself declares, on the component, which is found by the interface's
    /// identifier and kept alive meanwhile. Returns `neutral` if there is none. Shared pointers that a plugin's
    /// component returns, in containers too, keep the plugin (`ZLender`).
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

    /// Keeps the component that there is at its beginning to its end: the time of one call.
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
        /// To be asked for only where there is a part.
        const QSharedPointer<QObject> &component() const;

    private:
        Q_DISABLE_COPY(Call)
        static ZTarget *share(const ZDelegate &delegate);
        void end();

        ZTarget *m_target = nullptr;
        ZCallNote *m_note = nullptr; // which keeps the target; where there is none, this is a share of it
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
