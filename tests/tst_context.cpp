// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <QSemaphore>
#include <QThread>

#include <zdefaultcontext.h>
#include <zdefaultemitter.h>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace {

constexpr int LongTime = 30000;

bool save(ZContext &context, QVariant value) { return context.save0(value); }

/// What the context has for the type of `wanted`; an invalid value when it has nothing.
QVariant load(ZContext &context, QVariant wanted) { return context.load0(wanted) ? wanted : QVariant(); }

/// A thread that does one piece of work after the other, and lives through all of them.
class Worker
{
public:
    Worker() : m_thread(QThread::create([this] { run(); })) { m_thread->start(); }
    ~Worker()
    {
        if (m_thread)
            end();
    }

    bool work(std::function<void()> work)
    {
        m_work = std::move(work);
        m_begin.release();
        return m_done.tryAcquire(1, LongTime);
    }
    bool end()
    {
        m_work = nullptr;
        m_begin.release();
        const bool ended = m_thread->wait(LongTime);
        m_thread.reset();
        return ended;
    }

private:
    void run()
    {
        for (m_begin.acquire(); m_work; m_begin.acquire()) {
            m_work();
            m_done.release();
        }
    }

    std::function<void()> m_work;
    QSemaphore m_begin;
    QSemaphore m_done;
    std::unique_ptr<QThread> m_thread;
};

struct One
{
    int number;
};

struct Other
{
    int number;
};

/// A value whose end can be seen, and may do something.
struct Tracked
{
    std::shared_ptr<void> held;

    explicit Tracked(std::function<void()> atEnd = [] {})
        : held(new std::function<void()>(std::move(atEnd)), [](std::function<void()> *work) {
              (*work)();
              delete work;
          })
    {}
};

} // namespace

Q_DECLARE_METATYPE(One)
Q_DECLARE_METATYPE(One *)
Q_DECLARE_METATYPE(Other)
Q_DECLARE_METATYPE(Other *)
Q_DECLARE_METATYPE(Tracked)

/// Uses the context as any component does.
class User : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZContext *zContext MEMBER m_context)

public:
    ZContext *m_context = nullptr;
};

class tst_Context : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void hasNoSignalsAndNoSlots();
    void readingTheEmitterYieldsNull();
    void isAnnouncedUnderItsDelegate();
    void announcesItselfEachTime();

    void aValueIsFoundByItsType_data();
    void aValueIsFoundByItsType();
    void theLastValueOfATypeIsKept();
    void typesDoNotMeet();
    void aNullValueIsAValueOfItsType();
    void anInvalidValueIsNeitherKeptNorFound();
    void whatIsNotFoundLeavesTheValueAsItWas();
    void savingLeavesTheValueAsItWas();
    void aCopyIsKeptAndACopyIsAnswered();

    void threadsDoNotSeeEachOther();
    void aThreadThatOnlyLoadsHasNothing();
    void aThreadKeepsItsValues();
    void valuesGoWithTheirThread();
    void threadsMaySaveAndLoadAtOnce();

    void contextsAreIndependent();
    void aNewContextKnowsNothingOfOneThatIsGone();
    void aNewContextKnowsNothingOfOneThatIsGoneOnAnyThread();
    void valuesOfAContextThatIsGoneGoWithTheirThread();
    void valuesOfContextsThatAreGoneDoNotPileUp();
    void aValueMayUseTheContextAsItIsReplaced();
    void aValueMayUseAContextAsItIsForgotten();
};

void tst_Context::hasNoSignalsAndNoSlots()
{
    QCOMPARE(ZDefaultContext::staticMetaObject.methodCount(), QObject::staticMetaObject.methodCount());
}

void tst_Context::readingTheEmitterYieldsNull()
{
    const Wiring wiring;
    QObject *const context = wiring->zemit0(ZDefaultContext::TypeName);
    QCOMPARE(context->property("zEmitter"), QVariant::fromValue<ZEmitter *>(nullptr));
    ZDefaultContext other; // on the stack: nobody may take it over
    QCOMPARE(other.getSetZEmitter(), nullptr);
}

void tst_Context::isAnnouncedUnderItsDelegate()
{
    const Wiring wiring;
    auto *context = qobject_cast<ZDefaultContext *>(wiring->zemit0(ZDefaultContext::TypeName));
    QVERIFY(context);
    User user;
    wiring->inject0(&user);
    QVERIFY(dynamic_cast<ZContextDelegate *>(user.m_context));
    QVERIFY(save(*user.m_context, 1));
    QCOMPARE(load(*context, 0), QVariant(1));
    QCOMPARE(load(*user.m_context, 0), QVariant(1));

    wiring->bind0(QSharedPointer<ZContextDelegate>::create(QSharedPointer<QObject>()));
    QVERIFY(!save(*user.m_context, 2));
    QVERIFY(!load(*user.m_context, 0).isValid());
}

void tst_Context::announcesItselfEachTime()
{
    const Wiring first;
    const Wiring second;
    const auto context = QSharedPointer<ZDefaultContext>::create();
    QCOMPARE(context->getSetZEmitter(first.emitter()), first.emitter());
    QCOMPARE(context->getSetZEmitter(second.emitter()), second.emitter());
    save(*context, 1);
    for (const Wiring *wiring : {&first, &second}) {
        User user;
        (*wiring)->inject0(&user);
        QVERIFY(user.m_context);
        QCOMPARE(load(*user.m_context, 0), QVariant(1));
    }
}

void tst_Context::aValueIsFoundByItsType_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QVariant>("wanted");
    static One one;
    QTest::newRow("number") << QVariant(1) << QVariant(0);
    QTest::newRow("text") << QVariant(QStringLiteral("text")) << QVariant(QString());
    QTest::newRow("list") << QVariant(QVariantList{1, 2}) << QVariant(QVariantList());
    QTest::newRow("any content") << QVariant(1) << QVariant(7);
    QTest::newRow("only a type") << QVariant(1) << QVariant(QVariant::Int);
    QTest::newRow("pointer") << QVariant::fromValue(&one) << QVariant::fromValue<One *>(nullptr);
}

void tst_Context::aValueIsFoundByItsType()
{
    QFETCH(QVariant, value);
    QFETCH(QVariant, wanted);
    ZDefaultContext context;
    QVERIFY(context.save0(value));
    QVERIFY(context.load0(wanted));
    QCOMPARE(wanted, value);
    QVERIFY(context.load0(wanted)); // it stays
    QCOMPARE(wanted, value);
}

void tst_Context::theLastValueOfATypeIsKept()
{
    ZDefaultContext context;
    QVERIFY(save(context, 1));
    QVERIFY(save(context, 2));
    QCOMPARE(load(context, 0), QVariant(2));
    QVERIFY(!load(context, QString()).isValid());
}

void tst_Context::typesDoNotMeet()
{
    ZDefaultContext context;
    One one{1};
    Other other{2};
    QVERIFY(save(context, 3));
    QVERIFY(save(context, 4u));
    QVERIFY(save(context, QStringLiteral("5")));
    QVERIFY(save(context, QVariant::fromValue(One{6})));
    QVERIFY(!load(context, QVariant::fromValue(Other{})).isValid());
    QVERIFY(save(context, QVariant::fromValue(Other{7})));
    QVERIFY(save(context, QVariant::fromValue(&one)));
    QVERIFY(!load(context, QVariant::fromValue<Other *>(nullptr)).isValid());
    QVERIFY(save(context, QVariant::fromValue(&other)));

    QCOMPARE(load(context, 0), QVariant(3));
    QCOMPARE(load(context, 0u), QVariant(4u));
    QCOMPARE(load(context, QString()), QVariant(QStringLiteral("5")));
    QCOMPARE(load(context, QVariant::fromValue(One{})).value<One>().number, 6);
    QCOMPARE(load(context, QVariant::fromValue(Other{})).value<Other>().number, 7);
    QCOMPARE(load(context, QVariant::fromValue<One *>(nullptr)).value<One *>(), &one);
    QCOMPARE(load(context, QVariant::fromValue<Other *>(nullptr)).value<Other *>(), &other);
    QVERIFY(!load(context, 1.0).isValid());
}

void tst_Context::aNullValueIsAValueOfItsType()
{
    ZDefaultContext context;
    QVERIFY(save(context, QStringLiteral("text")));
    QVERIFY(save(context, QVariant(QVariant::String)));
    QVariant value(QStringLiteral("mine"));
    QVERIFY(context.load0(value));
    QVERIFY(value.isNull());
    QCOMPARE(value.userType(), int(QMetaType::QString));
}

void tst_Context::anInvalidValueIsNeitherKeptNorFound()
{
    ZDefaultContext context;
    QVariant value;
    QVERIFY(!context.load0(value));
    QVERIFY(!context.save0(value));
    QVERIFY(!context.load0(value)); // nothing was kept
    save(context, 1);
    QVERIFY(!context.save0(value));
    QVERIFY(!context.load0(value));
    QVERIFY(!value.isValid());
    QCOMPARE(load(context, 0), QVariant(1));
}

void tst_Context::whatIsNotFoundLeavesTheValueAsItWas()
{
    ZDefaultContext context;
    QVariant value(QStringLiteral("mine"));
    QVERIFY(!context.load0(value));
    QCOMPARE(value, QVariant(QStringLiteral("mine")));
    save(context, 1);
    QVERIFY(!context.load0(value));
    QCOMPARE(value, QVariant(QStringLiteral("mine")));
}

void tst_Context::savingLeavesTheValueAsItWas()
{
    ZDefaultContext context;
    save(context, 1);
    QVariant value(2);
    QVERIFY(context.save0(value));
    QCOMPARE(value, QVariant(2));
    QCOMPARE(value.userType(), int(QMetaType::Int));
}

void tst_Context::aCopyIsKeptAndACopyIsAnswered()
{
    ZDefaultContext context;
    QVariant saved(1);
    context.save0(saved);
    saved = 2;
    QVariant loaded(0);
    QVERIFY(context.load0(loaded));
    QCOMPARE(loaded, QVariant(1));
    loaded = 3;
    QCOMPARE(load(context, 0), QVariant(1));
}

void tst_Context::threadsDoNotSeeEachOther()
{
    ZDefaultContext context;
    Worker first;
    Worker second;
    QVariant seen;
    save(context, 1);
    QVERIFY(first.work([&] { seen = load(context, 0); }));
    QVERIFY(!seen.isValid());
    QVERIFY(first.work([&] { save(context, 2); }));
    QVERIFY(second.work([&] { seen = load(context, 0); }));
    QVERIFY(!seen.isValid());
    QVERIFY(second.work([&] { save(context, 3); }));
    QVERIFY(first.work([&] { seen = load(context, 0); }));
    QCOMPARE(seen, QVariant(2));
    QVERIFY(second.work([&] { seen = load(context, 0); }));
    QCOMPARE(seen, QVariant(3));
    QCOMPARE(load(context, 0), QVariant(1));
}

void tst_Context::aThreadThatOnlyLoadsHasNothing()
{
    ZDefaultContext context;
    Worker worker;
    for (int i = 0; i < 2; ++i) {
        QVariant value(7);
        bool found = true;
        QVERIFY(worker.work([&] { found = context.load0(value); }));
        QVERIFY(!found);
        QCOMPARE(value, QVariant(7));
    }
}

void tst_Context::aThreadKeepsItsValues()
{
    ZDefaultContext context;
    Worker worker;
    QVariant seen;
    QVERIFY(worker.work([&] { save(context, 1); }));
    QVERIFY(worker.work([&] { seen = load(context, 0); }));
    QCOMPARE(seen, QVariant(1));
}

void tst_Context::valuesGoWithTheirThread()
{
    ZDefaultContext context;
    Worker worker;
    std::weak_ptr<void> watched;
    QVERIFY(worker.work([&] {
        const Tracked value;
        watched = value.held;
        save(context, QVariant::fromValue(value));
    }));
    QVERIFY(!watched.expired());
    QVERIFY(worker.end());
    QVERIFY(watched.expired());
}

void tst_Context::threadsMaySaveAndLoadAtOnce()
{
    constexpr int Threads = 4;
    constexpr int Rounds = 1000;
    ZDefaultContext context;
    std::atomic_int wrong{0};
    QSemaphore start;
    std::vector<std::unique_ptr<QThread>> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back(QThread::create([&, t] {
            start.acquire();
            for (int i = 0; i < Rounds; ++i) {
                ZDefaultContext own; // contexts come and go meanwhile
                save(context, t * Rounds + i);
                save(own, i);
                wrong += load(context, 0) != QVariant(t * Rounds + i);
                wrong += load(own, 0) != QVariant(i);
            }
        }));
        threads.back()->start();
    }
    start.release(Threads);
    for (const auto &thread : threads)
        QVERIFY(thread->wait(LongTime));
    QCOMPARE(wrong.load(), 0);
}

void tst_Context::contextsAreIndependent()
{
    ZDefaultContext first;
    ZDefaultContext second;
    save(first, 1);
    QVERIFY(!load(second, 0).isValid());
    save(second, 2);
    save(second, QStringLiteral("text"));
    QCOMPARE(load(first, 0), QVariant(1));
    QCOMPARE(load(second, 0), QVariant(2));
    QVERIFY(!load(first, QString()).isValid());
}

void tst_Context::aNewContextKnowsNothingOfOneThatIsGone()
{
    for (int i = 0; i < 10; ++i) {
        ZDefaultContext context;
        QVERIFY(!load(context, 0).isValid());
        save(context, i);
        QCOMPARE(load(context, 0), QVariant(i));
    }
}

void tst_Context::aNewContextKnowsNothingOfOneThatIsGoneOnAnyThread()
{
    Worker worker;
    for (int i = 0; i < 10; ++i) {
        ZDefaultContext context;
        QVariant before(0);
        QVariant after;
        QVERIFY(worker.work([&] {
            before = load(context, 0);
            save(context, i);
            after = load(context, 0);
        }));
        QVERIFY(!before.isValid());
        QCOMPARE(after, QVariant(i));
    }
}

void tst_Context::valuesOfAContextThatIsGoneGoWithTheirThread()
{
    Worker worker;
    std::weak_ptr<void> watched;
    {
        ZDefaultContext context;
        QVERIFY(worker.work([&] {
            const Tracked value;
            watched = value.held;
            save(context, QVariant::fromValue(value));
        }));
    }
    QVERIFY(worker.end());
    QVERIFY(watched.expired());
}

void tst_Context::valuesOfContextsThatAreGoneDoNotPileUp()
{
    std::weak_ptr<void> watched;
    {
        ZDefaultContext context;
        const Tracked value;
        watched = value.held;
        save(context, QVariant::fromValue(value));
    }
    ZDefaultContext next;
    save(next, 1);
    QVERIFY(watched.expired());
}

void tst_Context::aValueMayUseTheContextAsItIsReplaced()
{
    ZDefaultContext context;
    int ends = 0;
    const Tracked last;
    save(context, QVariant::fromValue(Tracked([&] {
             ++ends;
             save(context, QStringLiteral("text"));
             save(context, QVariant::fromValue(last));
         })));
    save(context, QVariant::fromValue(Tracked()));
    QCOMPARE(ends, 1);
    QCOMPARE(load(context, QString()), QVariant(QStringLiteral("text")));
    QCOMPARE(load(context, QVariant::fromValue(Tracked())).value<Tracked>().held.get(), last.held.get());
}

void tst_Context::aValueMayUseAContextAsItIsForgotten()
{
    int ends = 0;
    ZDefaultContext context;
    {
        ZDefaultContext former;
        save(former, QVariant::fromValue(Tracked([&] {
                 ++ends;
                 save(context, QStringLiteral("text"));
                 ZDefaultContext another;
                 save(another, 1);
             })));
    }
    save(context, 1);
    QCOMPARE(ends, 1);
    QCOMPARE(load(context, 0), QVariant(1));
    QCOMPARE(load(context, QString()), QVariant(QStringLiteral("text")));
}

QTEST_GUILESS_MAIN(tst_Context)

#include "tst_context.moc"
