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
 * Makes shared pointers keep the component that gave them, and by that the plugin: they carry code of those who made
 * them, which deletes, and which must be there when the last copy goes.
 *
 * It reaches those in containers, pairs, tuples and optionals, in each other to any depth.
 *
 * Ownership: each pointer that was lent shares the component.
 * Thread:    any.
 * Failure:   what it cannot reach stays as it is: the keys of hashes and maps, and all in objects of other classes.
 */
class ZLender
{
public:
    explicit ZLender(QSharedPointer<QObject> component) : m_component(std::move(component)) {}

    /// Whether there may be a shared pointer in a `Value`, which its template's arguments tell.
    template <class Value>
    static constexpr bool isLent()
    {
        return IsLent<Value>::value;
    }

    // The new pointers are made as Qt and the standard library cast theirs, so that an object which knows its owner
    // does not take them for that: they are not its owners, and may go before them.
    template <class Object>
    void lend(QSharedPointer<Object> &pointer) const
    {
        // A pointer to nothing may have a deleter nevertheless, in the plugin. It has nothing to delete.
        pointer = pointer ? QtSharedPointer::copyAndSetPointer(
                                pointer.data(), QSharedPointer<Loan<QSharedPointer<Object>>>::create(loan(pointer)))
                          : QSharedPointer<Object>();
    }
    template <class Object>
    void lend(std::shared_ptr<Object> &pointer) const
    {
        if (pointer.use_count() > 0) // which one to nothing may have, and then a deleter that is to run in the end
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
    template <class Object> // but a library, whose code is ours and stays
    struct IsLent<QSharedPointer<Object>> : std::negation<std::is_same<Object, ZLibrary>>
    {};
    template <class Object>
    struct IsLent<std::shared_ptr<Object>> : std::true_type
    {};
    template <template <class...> class Box, class... Parts>
    struct IsLent<Box<Parts...>> : std::disjunction<IsLent<std::remove_cv_t<Parts>>...>
    {};

    /// One that owns its elements can be cleared; a view of somebody else's cannot.
    template <class Value, class = void>
    struct IsContainer : std::false_type
    {};
    template <class Value>
    struct IsContainer<Value, std::void_t<decltype(&*std::declval<Value &>().begin(), std::declval<Value &>().clear())>>
        : std::true_type
    {};

    const QSharedPointer<QObject> m_component;
};
