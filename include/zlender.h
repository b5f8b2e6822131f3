// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QSharedPointer>

#include <memory>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

class ZLibrary;

/**
 * Makes the shared pointers that a component returns keep that component, and so its plugin, in memory. A shared
 * pointer runs a deleter, which is code of the plugin: that has to be there when the last copy goes.
 *
 * Shared pointers in containers, pairs, tuples and optionals are found, however deeply these are nested.
 *
 * Ownership: each pointer that was lent shares the component.
 * Thread:    any.
 * Failure:   what it cannot reach stays as it is: the keys of hashes and maps, and all in objects of other classes.
 */
class ZLender
{
public:
    explicit ZLender(QSharedPointer<QObject> component) : m_component(std::move(component)) {}

    /// Whether a `Value` may contain a shared pointer, by the arguments of its template.
    template <class Value>
    static constexpr bool isLent()
    {
        return IsLent<Value>::value;
    }

    // The new pointers are made in the way in which Qt and the standard library cast pointers. So an object that
    // remembers its owner does not take the new pointer for its owner: the owner may outlive it.
    template <class Object>
    void lend(QSharedPointer<Object> &pointer) const
    {
        // A null pointer may still have a deleter, in the plugin. It is dropped here: it has nothing to delete.
        pointer = pointer ? QtSharedPointer::copyAndSetPointer(
                                pointer.data(), QSharedPointer<Loan<QSharedPointer<Object>>>::create(loan(pointer)))
                          : QSharedPointer<Object>();
    }
    template <class Object>
    void lend(std::shared_ptr<Object> &pointer) const
    {
        if (pointer.use_count() > 0) // a null pointer may have a count, and then a deleter that is to run in the end
            pointer = {std::make_shared<Loan<std::shared_ptr<Object>>>(loan(pointer)), pointer.get()};
    }

    /// Qt's and the standard library's pairs.
    template <template <class, class> class Pair, class First, class Second>
    auto lend(Pair<First, Second> &pair) const -> std::void_t<decltype(pair.first, pair.second)>
    {
        lend(pair.first);
        lend(pair.second);
    }
    template <class... Parts>
    void lend(std::tuple<Parts...> &tuple) const
    {
        std::apply([this](auto &...parts) { (this->lend(parts), ...); }, tuple);
    }
    template <class Value>
    void lend(std::optional<Value> &value) const
    {
        if (value)
            lend(*value);
    }

    /// A container's elements; all else is left as it is.
    template <class Value>
    void lend(Value &value) const
    {
        if constexpr (IsLent<Value>::value && IsContainer<Value>::value) {
            if constexpr (std::is_const_v<std::remove_reference_t<decltype(*value.begin())>>) { // a set
                const Value given = value;
                value.clear();
                for (auto element : given) {
                    lend(element);
                    value.insert(std::move(element));
                }
            } else {
                for (auto &element : value)
                    lend(element);
            }
        }
    }

private:
    /// Members are destroyed in reverse order: first the pointer, then the component that has its code.
    template <class Pointer>
    struct Loan
    {
        QSharedPointer<QObject> component;
        Pointer pointer;
    };
    template <class Pointer>
    Loan<Pointer> loan(const Pointer &pointer) const
    {
        return {m_component, pointer};
    }

    template <class Value>
    struct IsLent : std::false_type
    {};
    template <class Object> // not a library: its code is not the plugin's, and stays
    struct IsLent<QSharedPointer<Object>> : std::negation<std::is_same<Object, ZLibrary>>
    {};
    template <class Object>
    struct IsLent<std::shared_ptr<Object>> : std::true_type
    {};
    template <template <class...> class Box, class... Parts>
    struct IsLent<Box<Parts...>> : std::disjunction<IsLent<std::remove_cv_t<Parts>>...>
    {};

    /// A container that owns its elements can be cleared; a view cannot.
    template <class Value, class = void>
    struct IsContainer : std::false_type
    {};
    template <class Value>
    struct IsContainer<Value, std::void_t<decltype(&*std::declval<Value &>().begin(), std::declval<Value &>().clear())>>
        : std::true_type
    {};

    const QSharedPointer<QObject> m_component;
};
