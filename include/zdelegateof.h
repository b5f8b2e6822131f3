// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdelegate.h"

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

/// Checks at compile time of the delegates that are written with `ZDelegateOf`. Users need not read this part.
namespace ZDelegateCheck {

/// The result and the number of arguments of an operation, from the type of its function.
template <class Function>
struct Operation;
template <class Type, bool isNoexcept, class... Parameters>
struct Operation<Type(Parameters...) noexcept(isNoexcept)>
{
    using Result = Type;
    using Neutral = std::remove_cv_t<std::remove_reference_t<Type>>;
    static constexpr std::size_t Count = sizeof...(Parameters);
};
template <class Type, bool isNoexcept, class... Parameters>
struct Operation<Type(Parameters...) const noexcept(isNoexcept)> : Operation<Type(Parameters...)>
{};

template <class Function>
using Neutral = typename Operation<Function>::Neutral;

/// Whether `Args` are a neutral result and as many arguments as the operation takes.
template <class Function, class... Args>
constexpr bool isComplete()
{
    using Result = Neutral<Function>;
    using First = std::tuple_element_t<0, std::tuple<Args..., void>>;
    constexpr bool isNull = std::is_pointer_v<Result> && std::is_integral_v<First>; // a zero may mean null
    return sizeof...(Args) == Operation<Function>::Count + 1 && (isNull || std::is_convertible_v<First, Result>);
}

/// Takes a `{}` that fits no other parameter.
struct Braces
{};

template <bool isFitting>
constexpr bool isFit()
{
    static_assert(isFitting, "call: these do not fit the operation. Write: call(&Interface::operation, neutral, "
                             "arguments...), or without the neutral result if the operation returns nothing. What "
                             "cannot be copied is given by std::move()");
    return isFitting;
}

/// Whether the operation of `Base` takes `Args`, and a delegate of `Interface` can call it.
template <class Interface, class Base, class Function, class... Args>
constexpr bool fits()
{
    constexpr bool isOwn = std::is_base_of_v<Base, Interface>;
    static_assert(isOwn, "call: the operation is none of the interface's. Write: call(&Interface::operation, ...)");
    constexpr bool isValue = !std::is_reference_v<typename Operation<Function>::Result>;
    static_assert(isValue, "call: the operation returns a reference, but the component that it leads into may be gone "
                           "by then. Let it return a value");
    return isOwn && isValue && isFit<std::is_invocable_v<Function Base::*, Base &, Args...>>();
}

/// Makes the compiler look for the cast that `Q_DECLARE_INTERFACE` defines. If there is none, the error message is
/// Qt's, and has this name in it. The name says what is missing, since nothing can find that out without an error.
template <class Interface>
struct TheInterfaceIsDeclaredWith_Q_DECLARE_INTERFACE
{
    static constexpr bool check(QObject *object)
    {
        return !object || qobject_cast<Interface *>(object); // missing: Q_DECLARE_INTERFACE(Interface, "identifier")
    }
};

} // namespace ZDelegateCheck

/**
 * The base of an application's own delegates, which need one line for each operation. Mistakes do not compile, and
 * the compiler says what to write.
 *
 *     class GreeterDelegate : public ZDelegateOf<Greeter>
 *     {
 *     public:
 *         using ZDelegateOf::ZDelegateOf;
 *         QString greet(const QString &name) override { return call(&Greeter::greet, {}, name); }
 *         void forget() override { call(&Greeter::forget); }
 *     };
 *
 * Otherwise as `ZDelegate`.
 */
template <class Interface>
class ZDelegateOf : public ZDelegate, public Interface
{
    static_assert(std::has_virtual_destructor_v<Interface>,
                  "ZDelegateOf<Interface>: the interface has no virtual destructor. "
                  "Write after its operations: virtual ~Interface() {}");
    static_assert(QMetaTypeId2<Interface *>::Defined,
                  "ZDelegateOf<Interface>: Qt does not know the type of pointers to the interface. "
                  "Write between the interface and its delegate: Q_DECLARE_METATYPE(Interface *)");
    static_assert(ZDelegateCheck::TheInterfaceIsDeclaredWith_Q_DECLARE_INTERFACE<Interface>::check(nullptr));

public:
    /// A delegate of `object`, which must be on the heap, and have no other owner unless it is a `ZOwned`. With null it
    /// is empty.
    explicit ZDelegateOf(QObject *object) : ZDelegate(ZDelegate::refer(object)) { ZDelegate::provide<Interface>(this); }
    /// A delegate of `object`, which is shared. With null it is empty.
    explicit ZDelegateOf(QSharedPointer<QObject> object) : ZDelegate(ZDelegate::refer(std::move(object)))
    {
        ZDelegate::provide<Interface>(this);
    }

protected:
    /// Calls `operation`, which `Interface` or a base of it declares, on the component, which is kept alive meanwhile.
    /// Returns `neutral` if there is none. One of several operations of the same name is chosen with `qOverload`.
    template <class Function, class Base, class... Args>
    auto call(Function Base::*operation, ZDelegateCheck::Neutral<Function> neutral, Args &&...args) const
        -> std::enable_if_t<sizeof...(Args) == ZDelegateCheck::Operation<Function>::Count,
                            ZDelegateCheck::Neutral<Function>>
    {
        if constexpr (ZDelegateCheck::fits<Interface, Base, Function, Args...>()) {
            Function Interface::*const own = operation;
            return ZDelegate::forward(own, std::move(neutral), std::forward<Args>(args)...);
        } else {
            return neutral;
        }
    }

    /// The same for an operation without a result.
    template <class Function, class Base, class... Args>
    auto call(Function Base::*operation, Args &&...args) const
        -> std::enable_if_t<std::is_void_v<ZDelegateCheck::Neutral<Function>>>
    {
        if constexpr (ZDelegateCheck::fits<Interface, Base, Function, Args...>()) {
            Function Interface::*const own = operation;
            ZDelegate::forward(own, std::forward<Args>(args)...);
        }
    }

    /// For a mistake: an operation with a result is called without a neutral one, or with arguments that do not fit.
    template <class Function, class Base, class... Args>
    auto call(Function Base::*, Args &&...) const
        -> std::enable_if_t<!std::is_void_v<ZDelegateCheck::Neutral<Function>> &&
                                !ZDelegateCheck::isComplete<Function, Args...>(),
                            ZDelegateCheck::Neutral<Function>>
    {
        constexpr bool isForgotten = std::is_invocable_v<Function Base::*, Base &, Args...>;
        static_assert(!isForgotten,
                      "call: the neutral result is missing, which is returned where there is no component. "
                      "Write: call(&Interface::operation, neutral, arguments...)");
        ZDelegateCheck::isFit<isForgotten>();
        Q_UNREACHABLE();
    }

    /// For the same mistake with a `{}`, which the function above cannot take.
    template <class Function, class Base, class... Args>
    auto call(Function Base::*, ZDelegateCheck::Braces, Args &&...) const
        -> std::enable_if_t<std::is_void_v<ZDelegateCheck::Neutral<Function>> ||
                                sizeof...(Args) != ZDelegateCheck::Operation<Function>::Count,
                            ZDelegateCheck::Neutral<Function>>
    {
        ZDelegateCheck::isFit<std::is_void_v<Function>>();
        Q_UNREACHABLE();
    }
};
