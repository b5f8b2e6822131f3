// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QSharedPointer>

#include <atomic>
#include <functional>

#include <zdelegate.h>

/// An interface whose operation tells who answered.
class Counter
{
public:
    virtual int count(int depth) = 0;
    virtual ~Counter() {}
};
Q_DECLARE_INTERFACE(Counter, "test::Counter")
Q_DECLARE_METATYPE(Counter *)

/// Stands for a `Counter`; answers 0 when there is none.
class CounterDelegate : public ZDelegate, public Counter
{
public:
    explicit CounterDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(object)) { provide<Counter>(this); }
    int count(int depth) override { return forward(&Counter::count, 0, depth); }
};

/// Answers its number, after what it was told to do has been done. Whoever calls it must not see its end.
class Component : public QObject, public Counter
{
    Q_OBJECT
    Q_INTERFACES(Counter)

public:
    using Work = std::function<void(int depth)>;

    /// How many there are, and how often one was destroyed while it was called: see `hasFailed`.
    inline static std::atomic_int alive{0};
    inline static std::atomic_bool hasFailed{false};

    explicit Component(int number, Work work = {}) : m_number(number), m_work(std::move(work)) { ++alive; }
    ~Component() override
    {
        if (m_inside != 0)
            hasFailed = true;
        m_number = -1; // not atomic: the sanitizer sees an end that is not ordered after the last call
        --alive;
    }

    int count(int depth) override
    {
        ++m_inside;
        if (m_work)
            m_work(depth);
        const int number = m_number;
        --m_inside;
        return number;
    }

private:
    int m_number;
    const Work m_work;
    std::atomic_int m_inside{0};
};

inline QSharedPointer<ZReference> counting(int number, Component::Work work = {})
{
    return QSharedPointer<ZReference>::create(QSharedPointer<QObject>(new Component(number, std::move(work))));
}
