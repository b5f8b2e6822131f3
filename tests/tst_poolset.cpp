// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <QMetaProperty>
#include <QSemaphore>
#include <QThread>
#include <QVector>

#include <zdefaultemitter.h>
#include <zdefaultpoolset.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <vector>

namespace {

constexpr int LongTime = 30000;
constexpr int Moment = 50; // for what must not happen: too short never fails a good set

/// A job that is held.
class Job : public ZJob
{
public:
    explicit Job(std::function<void()> work) : ZJob({}, {}), m_work(std::move(work)) { setAutoDelete(false); }
    void run() override { m_work(); }

private:
    const std::function<void()> m_work;
};

/// How many jobs `pool`, which is idle, runs at once.
int capacity(ZJobPool &pool)
{
    QSemaphore leave;
    std::vector<QSharedPointer<Job>> jobs;
    do
        jobs.push_back(QSharedPointer<Job>::create([&] { leave.acquire(); }));
    while (pool.tryStart(jobs.back()));
    leave.release(int(jobs.size()));
    pool.waitAll(-1, false);
    return int(jobs.size()) - 1;
}

/// Whether a thread of `pool` ends within `time` after its job.
bool expires(ZJobPool &pool, int time)
{
    QSemaphore ended;
    const auto job = QSharedPointer<Job>::create([&] {
        QThread *thread = QThread::currentThread();
        QObject::connect(
            thread, &QThread::finished, thread, [&] { ended.release(); }, Qt::DirectConnection);
    });
    pool.start(job, false, 0);
    const bool hasEnded = ended.tryAcquire(1, time);
    pool.waitAll(-1, false);
    return hasEnded;
}

/// A pool of either kind, shared.
using AnyPool = std::shared_ptr<void>;

template <class Pool>
AnyPool any(QSharedPointer<Pool> pool)
{
    return AnyPool(pool.data(), [pool](void *) {});
}

QSharedPointer<ZJobPool> find(ZJobPoolSet &set, const QString &name) { return set.find0(name, 1, 0); }
QSharedPointer<ZThreadPool> find(ZThreadPoolSet &set, const QString &name) { return set.find0(name); }

/// One kind of set, as a row of a table.
struct Kind
{
    const char *className;
    const char *interface;
    const char *typeName;
    const QMetaObject *metaObject;
    QSharedPointer<QObject> (*make)();
    AnyPool (*find)(QObject *set, const QString &name);
    /// Whether a pool that the set was once asked for is still there.
    std::function<bool()> (*watch)(QObject *set, const QString &name);
    void *(*part)(QObject *set);
    /// Through the interface that a delegate carries.
    AnyPool (*findThrough)(const ZDelegate &delegate, const QString &name);
    ZEmitter *(*write)(QObject *set, ZEmitter *emitter);
};

template <class Set, class Interface>
Kind row(const char *className, const char *interface)
{
    return {className,
            interface,
            Set::TypeName,
            &Set::staticMetaObject,
            []() -> QSharedPointer<QObject> { return QSharedPointer<Set>::create(); },
            [](QObject *set, const QString &name) { return any(find(*qobject_cast<Set *>(set), name)); },
            [](QObject *set, const QString &name) -> std::function<bool()> {
                return [pool = find(*qobject_cast<Set *>(set), name).toWeakRef()] { return !pool.isNull(); };
            },
            [](QObject *set) -> void * { return static_cast<Interface *>(qobject_cast<Set *>(set)); },
            [](const ZDelegate &delegate, const QString &name) {
                return any(find(*QVariant(delegate).value<Interface *>(), name));
            },
            [](QObject *set, ZEmitter *emitter) { return qobject_cast<Set *>(set)->getSetZEmitter(emitter); }};
}

const Kind kinds[] = {row<ZDefaultJobPoolSet, ZJobPoolSet>("ZDefaultJobPoolSet", "ZJobPoolSet"),
                      row<ZDefaultThreadPoolSet, ZThreadPoolSet>("ZDefaultThreadPoolSet", "ZThreadPoolSet")};

/// Keeps what is bound, and nothing else.
class Collector : public ZEmitter
{
public:
    QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) override
    {
        m_bound.append(delegate);
        return {};
    }
    QObject *zemit0(const char *, QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
                    QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
                    QGenericArgument) override
    {
        return nullptr;
    }
    QObject *inject0(QObject *object) override { return object; }

    QList<QSharedPointer<ZDelegate>> m_bound;
};

/// A name in memory of its own without a NUL behind it, as a part of a plugin's constant data may be.
class RawName
{
public:
    explicit RawName(const QString &name) : m_size(name.size()), m_text(new QChar[size_t(name.size())])
    {
        std::copy(name.begin(), name.end(), m_text.get());
    }
    QString get() const { return QString::fromRawData(m_text.get(), m_size); }
    void overwrite() { std::fill_n(m_text.get(), m_size, QLatin1Char('x')); }

private:
    const int m_size;
    const std::unique_ptr<QChar[]> m_text;
};

QString text(const char *utf8, int size = -1) { return QString::fromUtf8(utf8, size); }

template <class Work>
auto elsewhere(Work work)
{
    return std::async(std::launch::async, std::move(work));
}

template <class Result>
bool isDone(const std::future<Result> &future, int time = LongTime)
{
    return future.wait_for(std::chrono::milliseconds(time)) == std::future_status::ready;
}

} // namespace

Q_DECLARE_METATYPE(const Kind *)

/// Consumes both kinds.
class Consumer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZJobPoolSet *jobs MEMBER m_jobs)
    Q_PROPERTY(ZThreadPoolSet *threads MEMBER m_threads)

public:
    ZJobPoolSet *m_jobs = nullptr;
    ZThreadPoolSet *m_threads = nullptr;
};

class tst_PoolSet : public TestCase
{
    Q_OBJECT

private:
    static void eachKind();

private Q_SLOTS:
    void hasOnePropertyAndOneConstructor_data() { eachKind(); }
    void hasOnePropertyAndOneConstructor();
    void answersForItsClassAndItsInterface_data() { eachKind(); }
    void answersForItsClassAndItsInterface();
    void isMadeByItsTypeName_data() { eachKind(); }
    void isMadeByItsTypeName();

    void sameNameIsTheSamePool_data();
    void sameNameIsTheSamePool();
    void anotherNameIsAnotherPool_data();
    void anotherNameIsAnotherPool();
    void anotherSetHasOtherPools_data() { eachKind(); }
    void anotherSetHasOtherPools();
    void nameOutlivesItsCaller_data() { eachKind(); }
    void nameOutlivesItsCaller();
    void nameIsKeptUpToItsFirstNul_data();
    void nameIsKeptUpToItsFirstNul();
    void nameWithANulReplacesThePoolBefore_data() { eachKind(); }
    void nameWithANulReplacesThePoolBefore();
    void replacedPoolEndsWithoutTheLock();
    void concurrentFirstRequestsMakeOnePool_data() { eachKind(); }
    void concurrentFirstRequestsMakeOnePool();

    void jobPoolIsMadeWithTheNumbers();
    void jobPoolKeepsItsFirstNumbers();
    void threadPoolHasNoParent();

    void setKeepsItsPools_data() { eachKind(); }
    void setKeepsItsPools();
    void poolMayOutliveItsSet_data() { eachKind(); }
    void poolMayOutliveItsSet();
    void setWaitsForRunningJobsInTheEnd();
    void setWaitsForRegisteredThreadsInTheEnd();

    void emitterIsNotKept_data() { eachKind(); }
    void emitterIsNotKept();
    void announcesItselfEachTime_data() { eachKind(); }
    void announcesItselfEachTime();
    void servesThroughTheEmitter();
};

void tst_PoolSet::eachKind()
{
    QTest::addColumn<const Kind *>("kind");
    for (const Kind &kind : kinds)
        QTest::newRow(kind.className) << &kind;
}

void tst_PoolSet::hasOnePropertyAndOneConstructor()
{
    QFETCH(const Kind *, kind);
    const QMetaObject &meta = *kind->metaObject;
    QCOMPARE(meta.className(), kind->className);
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta.methodCount(), meta.methodOffset()); // no signals, no slots
    QCOMPARE(meta.constructorCount(), 1);
    QCOMPARE(meta.constructor(0).methodSignature(), QByteArray(kind->className) + "()");
    QCOMPARE(meta.propertyCount(), meta.propertyOffset() + 1);
    const QMetaProperty property = meta.property(meta.propertyOffset());
    QCOMPARE(property.name(), "zEmitter");
    QCOMPARE(property.typeName(), "ZEmitter*");
    QVERIFY(property.isReadable());
    QVERIFY(property.isWritable());
}

void tst_PoolSet::answersForItsClassAndItsInterface()
{
    QFETCH(const Kind *, kind);
    const auto set = kind->make();
    QCOMPARE(set->qt_metacast(kind->className), static_cast<void *>(set.data()));
    QCOMPARE(set->qt_metacast(kind->interface), kind->part(set.data()));
    QCOMPARE(set->qt_metacast("zdefault::" + QByteArray(kind->interface)), kind->part(set.data()));
    QCOMPARE(set->qt_metacast("QObject"), static_cast<void *>(set.data()));
    QCOMPARE(set->qt_metacast("ZEmitter"), nullptr);
    QCOMPARE(set->qt_metacast(nullptr), nullptr);
}

void tst_PoolSet::isMadeByItsTypeName()
{
    QFETCH(const Kind *, kind);
    QCOMPARE(QByteArray(kind->typeName), QByteArray(kind->className) + '*');
    const QMetaObject *meta = QMetaType::metaObjectForType(QMetaType::type(kind->typeName));
    QCOMPARE(meta, kind->metaObject);
    const QScopedPointer<QObject> set(meta->newInstance());
    QVERIFY(set);
    QCOMPARE(set->parent(), nullptr);
    QVERIFY(kind->find(set.data(), text("pool")));
}

void tst_PoolSet::sameNameIsTheSamePool_data()
{
    QTest::addColumn<const Kind *>("kind");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("again");
    for (const Kind &kind : kinds) {
        const auto add = [&](const char *row, const QString &name, const QString &again) {
            QTest::addRow("%s, %s", row, kind.interface) << &kind << name << again;
        };
        add("plain", text("pool"), text("pool"));
        add("empty", text(""), text(""));
        add("null", QString(), QString());
        add("null, then empty", QString(), text(""));
        add("empty, then null", text(""), QString(static_cast<const char *>(nullptr)));
        add("beyond ASCII",
            text("Gr\xc3\xb6\xc3\x9f"
                 "e \xe4\xb8\xad \xf0\x9f\x98\x80"),
            QStringLiteral(u"Gr\u00f6\u00dfe \u4e2d \U0001f600"));
        add("blanks", text(" a\tb\n"), text(" a\tb\n"));
        add("long", QString(10000, QLatin1Char('a')), QString(10000, QLatin1Char('a')));
    }
}

void tst_PoolSet::sameNameIsTheSamePool()
{
    QFETCH(const Kind *, kind);
    QFETCH(QString, name);
    QFETCH(QString, again);
    const auto set = kind->make();
    const AnyPool pool = kind->find(set.data(), name);
    QVERIFY(pool);
    QCOMPARE(kind->find(set.data(), name), pool);
    QCOMPARE(kind->find(set.data(), again), pool);
}

void tst_PoolSet::anotherNameIsAnotherPool_data()
{
    QTest::addColumn<const Kind *>("kind");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("other");
    for (const Kind &kind : kinds) {
        const auto add = [&](const char *row, const char *name, const char *other) {
            QTest::addRow("%s, %s", row, kind.interface) << &kind << text(name) << text(other);
        };
        add("other words", "pool", "loop");
        add("other case", "pool", "Pool");
        add("part of it", "pool", "poo");
        add("blank", "pool", "pool ");
        add("empty", "pool", "");
        add("decomposed", "\xc3\xb6", "o\xcc\x88");
    }
}

void tst_PoolSet::anotherNameIsAnotherPool()
{
    QFETCH(const Kind *, kind);
    QFETCH(QString, name);
    QFETCH(QString, other);
    const auto set = kind->make();
    const AnyPool pool = kind->find(set.data(), name);
    QVERIFY(kind->find(set.data(), other) != pool);
    QCOMPARE(kind->find(set.data(), name), pool);
}

void tst_PoolSet::anotherSetHasOtherPools()
{
    QFETCH(const Kind *, kind);
    const auto set = kind->make();
    const auto other = kind->make();
    QVERIFY(kind->find(set.data(), text("pool")) != kind->find(other.data(), text("pool")));
}

void tst_PoolSet::nameOutlivesItsCaller()
{
    QFETCH(const Kind *, kind);
    const auto set = kind->make();
    AnyPool pool;
    {
        RawName name(text("pool"));
        pool = kind->find(set.data(), name.get());
        name.overwrite();
        QCOMPARE(kind->find(set.data(), text("pool")), pool);
    }
    for (int i = 0; i < 1000; ++i) // each of them a reason to go through the names anew
        kind->find(set.data(), QString::number(i));
    QCOMPARE(kind->find(set.data(), text("pool")), pool);
    QCOMPARE(kind->find(set.data(), RawName(text("pool")).get()), pool);
}

void tst_PoolSet::nameIsKeptUpToItsFirstNul_data()
{
    QTest::addColumn<const Kind *>("kind");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("kept");
    for (const Kind &kind : kinds) {
        const auto add = [&](const char *row, const QString &name, const char *kept) {
            QTest::addRow("%s, %s", row, kind.interface) << &kind << name << text(kept);
        };
        add("within", text("po\0ol", 5), "po");
        add("at the end", text("pool\0", 5), "pool");
        add("at the start", text("\0pool", 5), "");
        add("alone", text("\0", 1), "");
        add("twice", text("p\0oo\0l", 6), "p");
    }
}

void tst_PoolSet::nameIsKeptUpToItsFirstNul()
{
    QFETCH(const Kind *, kind);
    QFETCH(QString, name);
    QFETCH(QString, kept);
    const auto set = kind->make();
    const AnyPool pool = kind->find(set.data(), RawName(name).get());
    QVERIFY(pool);
    QCOMPARE(kind->find(set.data(), kept), pool);
}

void tst_PoolSet::nameWithANulReplacesThePoolBefore()
{
    QFETCH(const Kind *, kind);
    const auto set = kind->make();
    const QString name = text("pool\0first", 10);
    const AnyPool plain = kind->find(set.data(), text("pool"));
    const AnyPool first = kind->find(set.data(), name);
    QVERIFY(first != plain);
    QCOMPARE(kind->find(set.data(), text("pool")), first);
    const AnyPool second = kind->find(set.data(), name); // never found by its whole name
    QVERIFY(second != first);
    QCOMPARE(kind->find(set.data(), text("pool")), second);
    const AnyPool third = kind->find(set.data(), text("pool\0other", 10));
    QVERIFY(third != second);
    QCOMPARE(kind->find(set.data(), text("pool")), third);
}

void tst_PoolSet::replacedPoolEndsWithoutTheLock()
{
    ZDefaultThreadPoolSet set;
    QSemaphore ask;
    std::atomic_bool isAnswered{false};
    QThread *asking = QThread::create([&] {
        ask.acquire();
        isAnswered = set.find0(text("another")) != nullptr;
    });
    QVERIFY(set.find0(text("pool"))->poolAndStart(asking, QThread::InheritPriority));
    auto replacing = elsewhere([&] { return set.find0(text("pool\0", 5)) != nullptr; });
    const bool isEarly = isDone(replacing, Moment); // it waits for the thread of the registry that it has replaced
    ask.release();
    if (!isDone(replacing))
        qFatal("each waits for the other"); // and so would the set's end
    QVERIFY(!isEarly);
    QVERIFY(replacing.get());
    QVERIFY(isAnswered);
}

void tst_PoolSet::concurrentFirstRequestsMakeOnePool()
{
    QFETCH(const Kind *, kind);
    constexpr int Rounds = 500;
    constexpr int Threads = 4;
    const auto set = kind->make();
    std::atomic_int arrived{0};
    const auto askForAll = [&] {
        std::vector<AnyPool> pools;
        for (int round = 0; round < Rounds; ++round) {
            ++arrived;
            while (arrived < (round + 1) * Threads) // all at once
                QThread::yieldCurrentThread();
            pools.push_back(kind->find(set.data(), QString::number(round)));
        }
        return pools;
    };
    std::vector<std::future<std::vector<AnyPool>>> asking;
    for (int i = 0; i < Threads; ++i)
        asking.push_back(elsewhere(askForAll));
    const std::vector<AnyPool> pools = asking.front().get();
    for (size_t i = 1; i < asking.size(); ++i)
        QVERIFY(asking[i].get() == pools);
    for (int round = 0; round < Rounds; ++round)
        QCOMPARE(kind->find(set.data(), QString::number(round)), pools[size_t(round)]);
}

void tst_PoolSet::jobPoolIsMadeWithTheNumbers()
{
    ZDefaultJobPoolSet set;
    const auto pool = set.find0(text("three"), 3, 1);
    QCOMPARE(capacity(*pool), 3);
    QVERIFY(expires(*pool, LongTime));
    const auto plain = set.find0(text("plain"), 0, 0);
    QCOMPARE(capacity(*plain), QThread::idealThreadCount());
    QVERIFY(!expires(*plain, Moment));
}

void tst_PoolSet::jobPoolKeepsItsFirstNumbers()
{
    ZDefaultJobPoolSet set;
    const auto pool = set.find0(text("pool"), 2, 0);
    QCOMPARE(set.find0(text("pool"), 4, 1), pool);
    QCOMPARE(capacity(*pool), 2);
    QVERIFY(!expires(*pool, Moment));
    const auto brief = set.find0(text("brief"), 1, 1);
    QCOMPARE(set.find0(text("brief"), 0, 0), brief);
    QCOMPARE(set.find0(text("brief"), 5, LongTime), brief);
    QCOMPARE(capacity(*brief), 1);
    QVERIFY(expires(*brief, LongTime));
}

void tst_PoolSet::threadPoolHasNoParent()
{
    ZDefaultThreadPoolSet set;
    QCOMPARE(set.find0(text("pool"))->parent(), nullptr);
    QVERIFY(set.children().isEmpty());
}

void tst_PoolSet::setKeepsItsPools()
{
    QFETCH(const Kind *, kind);
    auto set = kind->make();
    const auto isThere = kind->watch(set.data(), text("pool"));
    for (int i = 0; i < 100; ++i)
        kind->find(set.data(), QString::number(i));
    QVERIFY(isThere());
    set.clear();
    QVERIFY(!isThere());
}

void tst_PoolSet::poolMayOutliveItsSet()
{
    QFETCH(const Kind *, kind);
    auto set = kind->make();
    const AnyPool pool = kind->find(set.data(), text("pool"));
    set.clear();
    if (kind == &kinds[0]) {
        QCOMPARE(capacity(*static_cast<ZJobPool *>(pool.get())), 1);
    } else {
        auto *threads = static_cast<ZThreadPool *>(pool.get());
        QVERIFY(threads->poolAndStart(QThread::create([] {}), QThread::InheritPriority));
        QVERIFY(threads->waitAll(LongTime));
    }
}

void tst_PoolSet::setWaitsForRunningJobsInTheEnd()
{
    QSemaphore begun;
    QSemaphore leave;
    const auto job = QSharedPointer<Job>::create([&] {
        begun.release();
        leave.acquire();
    });
    auto set = std::make_unique<ZDefaultJobPoolSet>();
    const QWeakPointer<ZJobPool> pool = set->find0(text("pool"), 1, 0);
    pool.toStrongRef()->start(job, false, 0);
    QVERIFY(begun.tryAcquire(1, LongTime));
    auto end = elsewhere([&] { set.reset(); });
    const bool isEarly = isDone(end, Moment);
    leave.release();
    QVERIFY(isDone(end));
    QVERIFY(!isEarly);
    QVERIFY(!pool);
}

void tst_PoolSet::setWaitsForRegisteredThreadsInTheEnd()
{
    QSemaphore leave;
    auto set = std::make_unique<ZDefaultThreadPoolSet>();
    const QWeakPointer<ZThreadPool> pool = set->find0(text("pool"));
    QThread *thread = QThread::create([&] { leave.acquire(); });
    QVERIFY(pool.toStrongRef()->poolAndStart(thread, QThread::InheritPriority));
    auto end = elsewhere([&] { set.reset(); });
    const bool isEarly = isDone(end, Moment);
    leave.release();
    QVERIFY(isDone(end));
    QVERIFY(!isEarly);
    QVERIFY(!pool);
    QVERIFY(thread->wait(LongTime));
}

void tst_PoolSet::emitterIsNotKept()
{
    QFETCH(const Kind *, kind);
    const auto set = kind->make();
    QCOMPARE(kind->write(set.data(), nullptr), nullptr);
    QCOMPARE(set->property("zEmitter").value<ZEmitter *>(), nullptr);
    Collector emitter;
    QCOMPARE(kind->write(set.data(), &emitter), &emitter);
    QCOMPARE(set->property("zEmitter").value<ZEmitter *>(), nullptr);
    QVERIFY(set->setProperty("zEmitter", QVariant::fromValue<ZEmitter *>(nullptr)));
    QCOMPARE(emitter.m_bound.size(), 1);
}

void tst_PoolSet::announcesItselfEachTime()
{
    QFETCH(const Kind *, kind);
    Collector emitter;
    const auto set = kind->make();
    for (int i = 0; i < 2; ++i)
        QVERIFY(set->setProperty("zEmitter", QVariant::fromValue<ZEmitter *>(&emitter)));
    QCOMPARE(emitter.m_bound.size(), 2);
    QVERIFY(emitter.m_bound.first() != emitter.m_bound.last());
    const AnyPool pool = kind->find(set.data(), text("pool"));
    for (const auto &delegate : qAsConst(emitter.m_bound)) {
        QCOMPARE(QVariant(*delegate).typeName(), QByteArray(kind->interface) + '*');
        QCOMPARE(kind->findThrough(*delegate, text("pool")), pool);
    }
}

void tst_PoolSet::servesThroughTheEmitter()
{
    const Wiring wiring;
    auto *jobs = qobject_cast<ZDefaultJobPoolSet *>(wiring->zemit0(ZDefaultJobPoolSet::TypeName));
    auto *threads = qobject_cast<ZDefaultThreadPoolSet *>(wiring->zemit0(ZDefaultThreadPoolSet::TypeName));
    QVERIFY(jobs && threads);
    Consumer consumer;
    wiring->inject0(&consumer);
    QVERIFY(consumer.m_jobs && consumer.m_threads);
    const auto pool = consumer.m_jobs->find0(text("pool"), 3, 0);
    QCOMPARE(jobs->find0(text("pool"), 1, 0), pool);
    QCOMPARE(capacity(*pool), 3);
    QCOMPARE(consumer.m_threads->find0(text("pool")), threads->find0(text("pool")));
}

QTEST_GUILESS_MAIN(tst_PoolSet)

#include "tst_poolset.moc"
