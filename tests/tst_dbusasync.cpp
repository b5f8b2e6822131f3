// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "journal.h"
#include "testcase.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMutex>
#include <QPointer>
#include <QSemaphore>
#include <QSet>
#include <QThread>

#include <zdefaultdbus.h>
#include <zdefaultdbusasync.h>
#include <zdefaultdbusoutcome.h>
#include <zdefaultemitter.h>
#include <zhost.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

namespace {

constexpr int LongTime = 30000;
constexpr int MostRunning = 16;
constexpr int MostWaiting = 1024;

/// Does in each call what a test wants.
class Endpoint : public ZDbusSubscriber
{
public:
    using Work = std::function<bool(const QUrl &url, QJsonObject *in, QJsonObject *out)>;

    explicit Endpoint(Work work) : m_work(std::move(work)) {}

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override { return m_work(url, in, out); }

private:
    const Work m_work;
};

struct Answer
{
    qint64 call;
    QJsonObject answer;
    QThread *thread;
};

/// The answers that receivers have got. It may outlive them.
class Answers
{
public:
    void add(const Answer &answer)
    {
        {
            const QMutexLocker locker(&m_mutex);
            m_list.append(answer);
        }
        come.release();
    }
    QVector<Answer> list() const
    {
        const QMutexLocker locker(&m_mutex);
        return m_list;
    }
    int count() const { return list().size(); }
    QJsonObject last() const { return list().isEmpty() ? QJsonObject() : list().last().answer; }

    QSemaphore come;

private:
    mutable QMutex m_mutex;
    QVector<Answer> m_list;
};

/// One that is told on any thread.
class Plain : public ZDbusReceiver
{
public:
    using Deed = std::function<void()>;

    explicit Plain(std::shared_ptr<Answers> to, Deed then = {}) : m_answers(std::move(to)), m_then(std::move(then)) {}

    void answered(qint64 call, const QJsonObject &answer) override
    {
        m_answers->add({call, answer, QThread::currentThread()});
        if (m_then)
            m_then();
    }

private:
    const std::shared_ptr<Answers> m_answers;
    const Deed m_then;
};

/// One that is told on its own thread, and says on which it ends.
class Receiver : public QObject, public Plain
{
    Q_OBJECT

public:
    using Plain::Plain;
    ~Receiver() override
    {
        if (endedOn)
            *endedOn = QThread::currentThread();
    }

    std::atomic<QThread *> *endedOn = nullptr;
};

/// A thread with an event loop, until it goes out of scope.
class LoopingThread
{
public:
    LoopingThread() { m_thread.start(); }
    ~LoopingThread() { end(); }

    void end()
    {
        m_thread.quit();
        m_thread.wait();
    }
    QThread *operator&() { return &m_thread; }
    /// Runs `deed` there, and waits for its end.
    void run(const std::function<void()> &deed)
    {
        QObject there;
        there.moveToThread(&m_thread);
        QMetaObject::invokeMethod(
            &there,
            [&] {
                deed();
                there.moveToThread(nullptr);
            },
            Qt::BlockingQueuedConnection);
    }

private:
    QThread m_thread;
};

/// Wants what is about calls.
class Consumer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZDbus *bus MEMBER bus)
    Q_PROPERTY(ZDbusAsync *async MEMBER async)

public:
    ZDbus *bus = nullptr;
    ZDbusAsync *async = nullptr;
};

QUrl testUrl() { return QUrl(QStringLiteral("//test/x")); }

/// The service over a bus, and an endpoint at "//test".
class Service
{
public:
    explicit Service(Endpoint::Work work = [](const QUrl &, QJsonObject *, QJsonObject *) { return true; })
        : journal(Journal::bind(emitter.emitter())), m_endpoint(QSharedPointer<Endpoint>::create(std::move(work)))
    {
        emitter->zemit0(ZDefaultDbus::TypeName);
        emitter->zemit0(ZDefaultDbusOutcome::TypeName);
        component = emitter->zemit0(ZDefaultDbusAsync::TypeName);
        emitter->inject0(&consumer);
        consumer.bus->bind0(QUrl(QStringLiteral("//test")), m_endpoint);
    }

    qint64 begin(const QWeakPointer<ZDbusReceiver> &receiver, const QJsonObject &request = {}) const
    {
        return consumer.async->begin0(testUrl(), request, receiver);
    }
    /// Takes the service away.
    void end() const { emitter->bind0(QSharedPointer<ZDbusAsyncDelegate>::create(nullptr)); }
    QStringList warnings() const { return journal->take().filter(QStringLiteral("warning: ")); }

    const Wiring emitter;
    const QSharedPointer<Journal> journal;
    QPointer<QObject> component;
    Consumer consumer;

private:
    const QSharedPointer<Endpoint> m_endpoint;
};

/// A host with the plugin "asker", and an endpoint at "//clock".
class PluginHost
{
public:
    explicit PluginHost(Endpoint::Work work) : m_clock(QSharedPointer<Endpoint>::create(std::move(work)))
    {
        m_folder.drop(QStringLiteral("asker"));
        m_host.emplace(QJsonObject{{QStringLiteral("loader"), QJsonObject{{QStringLiteral("deployed"), m_folder.path()},
                                                                          {QStringLiteral("load-list"),
                                                                           QJsonArray{{QStringLiteral("asker")}}}}}});
        m_host->begin();
        m_host->services().dbus->bind0(QUrl(QStringLiteral("//clock")), m_clock);
    }

    /// What is answered; empty if the call was not handled.
    QJsonObject call(const char *url) const
    {
        QJsonObject out;
        return m_host->services().dbus->invoke0(QUrl(QLatin1String(url)), nullptr, &out) ? out : QJsonObject();
    }

private:
    const QSharedPointer<Endpoint> m_clock;
    const Folder m_folder;
    std::optional<ZHost> m_host;

public:
    const QString file = m_folder.filePath(QStringLiteral("libasker.so"));
};

/// Holds calls until it is opened, and counts those that have come.
struct Dam
{
    QSemaphore come, open;
    std::atomic_int count{0};

    Endpoint::Work work()
    {
        return [this](const QUrl &, QJsonObject *, QJsonObject *) {
            ++count;
            come.release();
            open.acquire();
            return true;
        };
    }
};

std::shared_ptr<Answers> answers() { return std::make_shared<Answers>(); }

QJsonObject outcomeOf(const QJsonObject &answer) { return answer.value(QStringLiteral("outcome")).toObject(); }
int codeOf(const QJsonObject &answer) { return outcomeOf(answer).value(QStringLiteral("code")).toInt(); }
QString reasonOf(const QJsonObject &answer) { return outcomeOf(answer).value(QStringLiteral("reason")).toString(); }

/// Handles events of this thread until `isTrue`, or for a long time.
bool handleUntil(const std::function<bool()> &isTrue) { return QTest::qWaitFor(isTrue, LongTime); }

} // namespace

class tst_DbusAsync : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void answersWhatTheCallHasComeTo_data();
    void answersWhatTheCallHasComeTo();
    void callsTheVeryUrl_data();
    void callsTheVeryUrl();
    void keepsNothingOfTheUrl();
    void tellsAnObjectOnItsOwnThread();
    void tellsAnObjectOfAnotherThread();
    void tellsAnythingElseOnAThreadOfItsOwn();
    void callsForNobody();
    void tellsNobodyWhoIsGone();
    void letsNoReceiverDieElsewhere();
    void tellsAThreadThatHandlesEventsNowAndThen();
    void tellsAThreadThatEnds();
    void tellsNobodyWhoseThreadHasEnded_data();
    void tellsNobodyWhoseThreadHasEnded();
    void followsAReceiverThatMoves();
    void answersWhatAnEndpointThrows();
    void logsWhatAReceiverThrows();
    void logsWhatAReceiverThrowsThatIsToldTooLate();
    void runsSoManyAtOnceAndLetsSoManyWait();
    void makesTenThousandCalls();
    void beginsCallsWithinAnAnswer();
    void numbersAllCallsOfTheProcess();
    void findsNobodyWithoutAnOutcome();
    void endsWithAnAnswerForAllThatWait();
    void beginsNothingOnceItHasEnded();
    void waitsForItsCallsWithoutAHost();
    void mayEndWithinItsOwnCall_data();
    void mayEndWithinItsOwnCall();
    void goesOnWhileTheBusIsExchanged();
    void finishesItsCallsWhenItIsExchanged();
    void servesPlugins();
    void letsAPluginGoThatWaitsForAnAnswer();
    void leadsNowhereWithoutAComponent();
};

void tst_DbusAsync::answersWhatTheCallHasComeTo_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QJsonObject>("request");
    QTest::addColumn<QJsonObject>("expected");
    const auto object = [](const char *json) { return QJsonDocument::fromJson(json).object(); };
    const char handled[] = R"({"handled": true, "outcome": {"code": 200, "called": true}})";
    QTest::newRow("nothing given") << "//test" << QJsonObject() << object(handled);
    QTest::newRow("no objects") << "//test" << object(R"({"in": 1, "out": null})") << object(handled);
    QTest::newRow("in") << "//test" << object(R"({"in": {"x": 1}})")
                        << object(R"({"handled": true, "outcome": {"code": 200, "called": true}, "in": {"x": 1}})");
    QTest::newRow("in and out")
        << "//test" << object(R"({"in": {"x": 1}, "out": {"y": 2}})")
        << object(
               R"({"handled": true, "outcome": {"code": 200, "called": true}, "in": {"x": 1, "seen": true}, "out": {"y": 2, "in": {"x": 1}}})");
    QTest::newRow("refused")
        << "//test/refused" << object(R"({"out": {}})")
        << object(R"({"handled": false, "outcome": {"code": 404, "reason": "refused", "called": true}, "out": {}})");
    QTest::newRow("nobody")
        << "//none" << object(R"({"in": {}})")
        << object(R"({"handled": false, "outcome": {"code": 503, "reason": "nobody", "called": false}, "in": {}})");
}

void tst_DbusAsync::answersWhatTheCallHasComeTo()
{
    QFETCH(QString, url);
    QFETCH(QJsonObject, request);
    QFETCH(QJsonObject, expected);
    const Service service([](const QUrl &called, QJsonObject *in, QJsonObject *out) {
        if (in && out) {
            out->insert(QStringLiteral("in"), *in);
            in->insert(QStringLiteral("seen"), true);
        }
        return called.path() != QLatin1String("/refused");
    });
    const auto to = answers();
    const auto receiver = QSharedPointer<Receiver>::create(to);
    const qint64 call = service.consumer.async->begin0(QUrl(url), request, receiver);
    QVERIFY(call > 0);
    QVERIFY(handleUntil([&] { return to->count() == 1; }));
    QCOMPARE(to->list().first().call, call);
    QCOMPARE(to->last(), expected);
}

void tst_DbusAsync::callsTheVeryUrl_data()
{
    QTest::addColumn<QUrl>("url");
    const auto add = [](const char *text) { QTest::newRow(text) << QUrl(QString::fromUtf8(text)); };
    add("//test");
    add("//test/a/b?q=1&r=%26#quiet");
    add("//node7@test/a");
    add("x://me:p%40ss@test:8080/a%2Fb%20c/%25");
    add("//test/ä%C3%A4");
    add("//test?");
    add("//test#");
    QUrl invalid(QStringLiteral("//test"));
    invalid.setPath(QStringLiteral("no/slash"));
    QTest::newRow("not valid") << invalid;
}

void tst_DbusAsync::callsTheVeryUrl()
{
    QFETCH(QUrl, url);
    QUrl called;
    const Service service([&](const QUrl &address, QJsonObject *, QJsonObject *) {
        called = address;
        return true;
    });
    const auto to = answers();
    const auto receiver = QSharedPointer<Plain>::create(to);
    QVERIFY(service.consumer.async->begin0(url, {}, receiver));
    QVERIFY(to->come.tryAcquire(1, LongTime));
    QCOMPARE(codeOf(to->last()), 200);
    QCOMPARE(called, url);
    QCOMPARE(called.toString(), url.toString());
}

void tst_DbusAsync::keepsNothingOfTheUrl()
{
    Dam dam;
    QSemaphore told;
    QString path;
    const Service service([&](const QUrl &address, QJsonObject *, QJsonObject *) {
        dam.open.acquire();
        path = address.path();
        told.release();
        return true;
    });
    QChar data[] = {QLatin1Char('/'), QLatin1Char('a')}; // such as the constant data of a plugin
    {
        QUrl url;
        url.setHost(QStringLiteral("test"));
        url.setPath(QString::fromRawData(data, 2));
        QVERIFY(service.consumer.async->begin0(url, {}, {}));
    }
    data[1] = QLatin1Char('b');
    dam.open.release();
    QVERIFY(told.tryAcquire(1, LongTime));
    QCOMPARE(path, QStringLiteral("/a"));
}

void tst_DbusAsync::tellsAnObjectOnItsOwnThread()
{
    const Service service;
    const auto to = answers();
    const auto receiver = QSharedPointer<Receiver>::create(to);
    QVERIFY(service.begin(receiver));
    QVERIFY(!to->come.tryAcquire(1, 50)); // not before this thread handles events
    QVERIFY(handleUntil([&] { return to->count() == 1; }));
    QCOMPARE(to->list().first().thread, QThread::currentThread());
    QCoreApplication::processEvents();
    QCOMPARE(to->count(), 1);
}

void tst_DbusAsync::tellsAnObjectOfAnotherThread()
{
    const Service service;
    LoopingThread thread;
    const auto to = answers();
    const auto receiver = QSharedPointer<Receiver>::create(to);
    receiver->moveToThread(&thread);
    QVERIFY(service.begin(receiver));
    QVERIFY(to->come.tryAcquire(1, LongTime));
    QCOMPARE(to->list().first().thread, &thread);
}

void tst_DbusAsync::tellsAnythingElseOnAThreadOfItsOwn()
{
    const Service service;
    const auto to = answers();
    const auto receiver = QSharedPointer<Plain>::create(to);
    QVERIFY(service.begin(receiver));
    QVERIFY(to->come.tryAcquire(1, LongTime));
    QVERIFY(to->list().first().thread != QThread::currentThread());
}

void tst_DbusAsync::callsForNobody()
{
    Dam dam;
    const Service service(dam.work());
    QVERIFY(service.begin({}) > 0);
    QVERIFY(dam.come.tryAcquire(1, LongTime));
    dam.open.release();
}

void tst_DbusAsync::tellsNobodyWhoIsGone()
{
    Dam dam;
    const Service service(dam.work());
    const auto to = answers();
    auto object = QSharedPointer<Receiver>::create(to);
    auto plain = QSharedPointer<Plain>::create(to);
    QVERIFY(service.begin(object) && service.begin(plain));
    QVERIFY(dam.come.tryAcquire(2, LongTime));
    object.clear();
    plain.clear();
    dam.open.release(2);
    service.end(); // all have been told
    settle();
    QCOMPARE(to->count(), 0);
    QCOMPARE(dam.count.load(), 2);
}

void tst_DbusAsync::letsNoReceiverDieElsewhere()
{
    const Service service;
    LoopingThread thread;
    const auto to = answers();
    std::atomic<QThread *> endedOn{nullptr};
    for (int i = 0; i < 2000; ++i) {
        endedOn = nullptr;
        thread.run([&] {
            auto receiver = QSharedPointer<Receiver>::create(to);
            receiver->endedOn = &endedOn;
            service.begin(receiver);
            if (i % 2)
                QCoreApplication::processEvents();
            receiver.clear(); // while the answer comes
            QVERIFY(endedOn); // and nobody else keeps it
        });
        QCOMPARE(endedOn.load(), &thread);
    }
}

void tst_DbusAsync::tellsAThreadThatHandlesEventsNowAndThen()
{
    const Service service;
    const auto to = answers();
    std::thread([&] {
        const auto receiver = QSharedPointer<Receiver>::create(to);
        service.begin(receiver);
        while (to->count() == 0) {
            QThread::msleep(1);
            QCoreApplication::sendPostedEvents();
        }
        if (to->list().first().thread != QThread::currentThread())
            qWarning("told on another thread");
    }).join();
}

void tst_DbusAsync::tellsAThreadThatEnds()
{
    const Service service;
    const auto to = answers();
    QSharedPointer<Receiver> receiver;
    std::unique_ptr<QThread> thread(QThread::create([&] {
        receiver = QSharedPointer<Receiver>::create(to);
        service.begin(receiver);
        const auto marker = answers();
        const auto last = QSharedPointer<Plain>::create(marker);
        service.begin(last);
        marker->come.acquire();
        service.end(); // by then the answer has been posted
    }));
    thread->start();
    QVERIFY(thread->wait(LongTime));
    QCOMPARE(to->count(), 1);
    QCOMPARE(to->list().first().thread, thread.get());
}

void tst_DbusAsync::tellsNobodyWhoseThreadHasEnded_data()
{
    QTest::addColumn<bool>("isStarted");
    QTest::addColumn<bool>("isDestroyed");
    QTest::addColumn<bool>("isOverBefore");
    QTest::newRow("ended") << true << false << false;
    QTest::newRow("ended, and destroyed") << true << true << false;
    QTest::newRow("ended before the call") << true << false << true;
    QTest::newRow("ended, and destroyed before the call") << true << true << true;
    QTest::newRow("never started") << false << false << false;
    QTest::newRow("never started, and destroyed") << false << true << false;
}

void tst_DbusAsync::tellsNobodyWhoseThreadHasEnded()
{
    QFETCH(bool, isStarted);
    QFETCH(bool, isDestroyed);
    QFETCH(bool, isOverBefore);
    Dam dam;
    const Service service(dam.work());
    auto thread = std::make_unique<QThread>();
    if (isStarted)
        thread->start();
    const auto to = answers();
    const auto receiver = QSharedPointer<Receiver>::create(to);
    receiver->moveToThread(thread.get());
    const auto begin = [&] { return service.begin(receiver) && dam.come.tryAcquire(1, LongTime); };
    QVERIFY(isOverBefore || begin());
    thread->quit();
    QVERIFY(thread->wait(LongTime));
    if (isDestroyed)
        thread.reset();
    QVERIFY(!isOverBefore || begin());
    dam.open.release();
    service.end(); // waits for the call
    settle();
    QCOMPARE(to->count(), 0);
}

void tst_DbusAsync::followsAReceiverThatMoves()
{
    Dam dam;
    const Service service(dam.work());
    LoopingThread thread;
    const auto to = answers();
    const auto receiver = QSharedPointer<Receiver>::create(to);
    QVERIFY(service.begin(receiver));
    QVERIFY(dam.come.tryAcquire(1, LongTime));
    receiver->moveToThread(&thread);
    dam.open.release();
    QVERIFY(handleUntil([&] { return to->count() == 1; }));
    QCOMPARE(to->list().first().thread, &thread);
}

void tst_DbusAsync::answersWhatAnEndpointThrows()
{
    const Service service([](const QUrl &, QJsonObject *in, QJsonObject *) -> bool {
        if (in)
            throw std::runtime_error("no more");
        throw 1;
    });
    const auto to = answers();
    const auto receiver = QSharedPointer<Plain>::create(to);
    const QJsonObject in{{QStringLiteral("in"), QJsonObject()}};
    for (const QJsonObject &request : {in, QJsonObject()}) {
        QVERIFY(service.begin(receiver, request));
        QVERIFY(to->come.tryAcquire(1, LongTime));
        QCOMPARE(to->last().value(QStringLiteral("handled")), QJsonValue(false));
        QCOMPARE(codeOf(to->last()), 500);
        QCOMPARE(reasonOf(to->last()), QStringLiteral("thrown"));
        QCOMPARE(outcomeOf(to->last()).value(QStringLiteral("called")), QJsonValue(true));
        QCOMPARE(to->last().contains(QStringLiteral("in")), request == in);
    }
    QCOMPARE(service.warnings(), QStringList({QStringLiteral("warning: //test/x: no more"),
                                              QStringLiteral("warning: //test/x: an exception of an unknown type")}));
}

void tst_DbusAsync::logsWhatAReceiverThrows()
{
    const Service service;
    const auto to = answers();
    const auto throwing = [] { throw std::runtime_error("not now"); };
    const auto object = QSharedPointer<Receiver>::create(to, throwing);
    const auto plain = QSharedPointer<Plain>::create(to, throwing);
    QVERIFY(service.begin(object));
    QVERIFY(handleUntil([&] { return to->count() == 1; }));
    QVERIFY(service.begin(plain));
    QVERIFY(to->come.tryAcquire(2, LongTime));
    service.end();
    const QString line = QStringLiteral("warning: the receiver of //test/x: not now");
    QCOMPARE(service.warnings(), QStringList({line, line}));
}

void tst_DbusAsync::logsWhatAReceiverThrowsThatIsToldTooLate()
{
    const auto to = answers();
    const auto object = QSharedPointer<Receiver>::create(to, [] { throw std::runtime_error("too late"); });
    std::optional<Service> service(std::in_place);
    QVERIFY(service->begin(object));
    service.reset();
    settle();
    QCOMPARE(to->count(), 1);
    QCOMPARE(messages().take(QtWarningMsg), QStringList{QStringLiteral("the receiver of //test/x: too late")});
}

void tst_DbusAsync::runsSoManyAtOnceAndLetsSoManyWait()
{
    Dam dam;
    const Service service(dam.work());
    const auto to = answers();
    const auto receiver = QSharedPointer<Plain>::create(to);
    for (int i = 0; i < MostRunning + MostWaiting; ++i)
        QVERIFY(service.begin(receiver));
    QCOMPARE(service.begin(receiver), qint64(0));
    QVERIFY(dam.come.tryAcquire(MostRunning, LongTime));
    QVERIFY(!dam.come.tryAcquire(1, 50));
    dam.open.release(1);
    QVERIFY(dam.come.tryAcquire(1, LongTime)); // the next one
    QVERIFY(service.begin(receiver));          // in its place
    QCOMPARE(service.begin(receiver), qint64(0));
    dam.open.release(MostRunning + MostWaiting);
    QVERIFY(to->come.tryAcquire(MostRunning + MostWaiting + 1, LongTime));
    QCOMPARE(dam.count.load(), MostRunning + MostWaiting + 1);
}

void tst_DbusAsync::makesTenThousandCalls()
{
    constexpr int Calls = 10000;
    std::atomic_int made{0};
    const Service service([&](const QUrl &, QJsonObject *, QJsonObject *) {
        ++made;
        return true;
    });
    const auto to = answers();
    const auto object = QSharedPointer<Receiver>::create(to);
    const auto plain = QSharedPointer<Plain>::create(to);
    QSet<qint64> begun;
    for (int i = 0; i < Calls; ++i) {
        qint64 call = 0;
        const auto isBegun = [&] {
            return (call = service.begin(i % 2 ? QWeakPointer<ZDbusReceiver>(object) : plain)) > 0;
        };
        QVERIFY(isBegun() || handleUntil(isBegun));
        begun.insert(call);
    }
    QVERIFY(handleUntil([&] { return to->come.available() == Calls; }));
    QSet<qint64> answered;
    const QVector<Answer> list = to->list();
    for (const Answer &each : list)
        answered.insert(each.call);
    QCOMPARE(begun.size(), Calls);
    QCOMPARE(answered, begun);
    QCOMPARE(made.load(), Calls);
}

void tst_DbusAsync::beginsCallsWithinAnAnswer()
{
    const Service service;
    const auto to = answers();
    for (const bool isObject : {false, true}) {
        QWeakPointer<ZDbusReceiver> weak;
        std::atomic_int left{100};
        const auto next = [&] {
            if (--left >= 0)
                service.begin(weak);
        };
        QSharedPointer<ZDbusReceiver> receiver;
        if (isObject)
            receiver = QSharedPointer<Receiver>::create(to, next);
        else
            receiver = QSharedPointer<Plain>::create(to, next);
        weak = receiver;
        QVERIFY(service.begin(receiver));
        QVERIFY(handleUntil([&] { return to->come.tryAcquire(101); }));
    }
    QCOMPARE(service.warnings(), QStringList());
}

void tst_DbusAsync::numbersAllCallsOfTheProcess()
{
    const Service one, other;
    QSet<qint64> numbers;
    for (int i = 0; i < 100; ++i)
        numbers << one.begin({}) << other.begin({});
    QCOMPARE(numbers.size(), 200);
}

void tst_DbusAsync::findsNobodyWithoutAnOutcome()
{
    const Wiring emitter;
    emitter->zemit0(ZDefaultDbusAsync::TypeName);
    Consumer consumer;
    emitter->inject0(&consumer);
    const auto to = answers();
    const auto receiver = QSharedPointer<Plain>::create(to);
    QVERIFY(consumer.async->begin0(testUrl(), {}, receiver));
    QVERIFY(to->come.tryAcquire(1, LongTime));
    QCOMPARE(codeOf(to->last()), 503);
    // One that was there, and is withdrawn.
    const Service service;
    service.emitter->bind0(QSharedPointer<ZDbusOutcomeDelegate>::create(nullptr));
    QVERIFY(service.begin(receiver));
    QVERIFY(to->come.tryAcquire(1, LongTime));
    QCOMPARE(codeOf(to->last()), 503);
    QCOMPARE(reasonOf(to->last()), QStringLiteral("nobody"));
}

void tst_DbusAsync::endsWithAnAnswerForAllThatWait()
{
    constexpr int Waiting = 50;
    Dam dam;
    const Service service(dam.work());
    const auto running = answers(), plain = answers(), object = answers();
    const auto first = QSharedPointer<Plain>::create(running);
    const auto second = QSharedPointer<Plain>::create(plain);
    const auto third = QSharedPointer<Receiver>::create(object);
    for (int i = 0; i < MostRunning; ++i)
        QVERIFY(service.begin(first));
    QVERIFY(dam.come.tryAcquire(MostRunning, LongTime));
    const QJsonObject in{{QStringLiteral("in"), QJsonObject{{QStringLiteral("x"), 1}}}};
    for (int i = 0; i < Waiting; ++i)
        QVERIFY(service.begin(second, in) && service.begin(third, in));
    std::thread ending([&] { service.end(); });
    QVERIFY(plain->come.tryAcquire(Waiting, LongTime)); // although all threads are busy
    QVERIFY(handleUntil([&] { return object->count() == Waiting; }));
    for (const auto &each : {plain, object}) {
        QCOMPARE(codeOf(each->last()), 503);
        QCOMPARE(reasonOf(each->last()), QStringLiteral("ended"));
        QCOMPARE(outcomeOf(each->last()).value(QStringLiteral("called")), QJsonValue(false));
        QCOMPARE(each->last().value(QStringLiteral("handled")), QJsonValue(false));
        QCOMPARE(each->last().value(QStringLiteral("in")), in.value(QStringLiteral("in")));
    }
    QCOMPARE(running->count(), 0);
    dam.open.release(MostRunning);
    ending.join();
    QCOMPARE(running->count(), MostRunning);
    QCOMPARE(dam.count.load(), MostRunning);
}

void tst_DbusAsync::beginsNothingOnceItHasEnded()
{
    ZHost host;
    Consumer consumer;
    host.inject(&consumer);
    QVERIFY(consumer.async->begin0(testUrl(), {}, {}));
    QCOMPARE(host.stop(), QStringList());
    QCOMPARE(consumer.async->begin0(testUrl(), {}, {}), qint64(0));
    host.stop(); // once more
}

void tst_DbusAsync::waitsForItsCallsWithoutAHost()
{
    Dam dam;
    const auto to = answers();
    const auto receiver = QSharedPointer<Plain>::create(to);
    std::optional<Service> service(std::in_place, dam.work());
    QVERIFY(service->begin(receiver));
    QVERIFY(dam.come.tryAcquire(1, LongTime));
    std::thread opening([&] {
        QThread::msleep(20); // by then it waits; if it did not, the endpoint would be gone
        dam.open.release();
    });
    service.reset();
    QCOMPARE(to->count(), 1);
    opening.join();
}

void tst_DbusAsync::mayEndWithinItsOwnCall_data()
{
    QTest::addColumn<bool>("isHomeLooping");
    QTest::newRow("where its thread has an event loop") << true;
    QTest::newRow("where it has none") << false;
}

void tst_DbusAsync::mayEndWithinItsOwnCall()
{
    QFETCH(bool, isHomeLooping);
    const Service *self = nullptr;
    const Service service([&](const QUrl &, QJsonObject *, QJsonObject *) {
        self->end();
        return true;
    });
    self = &service;
    const auto to = answers();
    const auto receiver = QSharedPointer<Plain>::create(to);
    if (!isHomeLooping)
        service.component->moveToThread(nullptr);
    QVERIFY(service.begin(receiver));
    QVERIFY(to->come.tryAcquire(1, LongTime));
    QCOMPARE(codeOf(to->last()), 200);
    QVERIFY(!service.component);
    settle();
}

void tst_DbusAsync::goesOnWhileTheBusIsExchanged()
{
    constexpr int Calls = 3000;
    const Service service;
    const auto endpoint =
        QSharedPointer<Endpoint>::create([](const QUrl &, QJsonObject *, QJsonObject *) { return true; });
    std::atomic_bool isOver{false};
    std::thread exchanging([&] {
        while (!isOver) {
            const auto bus = QSharedPointer<ZDefaultDbus>::create();
            bus->bind0(QUrl(QStringLiteral("//test")), endpoint);
            service.emitter->bind0(QSharedPointer<ZDbusDelegate>::create(QSharedPointer<QObject>(bus)));
        }
    });
    const auto to = answers();
    const auto receiver = QSharedPointer<Plain>::create(to);
    for (int i = 0; i < Calls; ++i) {
        const auto isBegun = [&] { return service.begin(receiver) > 0; };
        if (!isBegun())
            handleUntil(isBegun);
    }
    const bool areAllAnswered = to->come.tryAcquire(Calls, LongTime);
    isOver = true;
    exchanging.join();
    QVERIFY(areAllAnswered);
    const QVector<Answer> list = to->list();
    for (const Answer &each : list)
        QCOMPARE(codeOf(each.answer), 200);
}

void tst_DbusAsync::finishesItsCallsWhenItIsExchanged()
{
    Dam dam;
    ZHost host;
    Consumer consumer;
    host.inject(&consumer);
    const auto endpoint = QSharedPointer<Endpoint>::create(dam.work());
    consumer.bus->bind0(QUrl(QStringLiteral("//test")), endpoint);
    const auto to = answers();
    const auto receiver = QSharedPointer<Plain>::create(to);
    for (int i = 0; i <= MostRunning; ++i)
        QVERIFY(consumer.async->begin0(testUrl(), {}, receiver));
    QVERIFY(dam.come.tryAcquire(MostRunning, LongTime));
    host.services().emitter->zemit0(ZDefaultDbusAsync::TypeName); // does not wait
    QVERIFY(to->come.tryAcquire(1, LongTime));
    QCOMPARE(reasonOf(to->last()), QStringLiteral("ended"));
    QVERIFY(consumer.async->begin0(testUrl(), {}, receiver)); // which the new one does
    QVERIFY(dam.come.tryAcquire(1, LongTime));
    dam.open.release(MostRunning + 1);
    QVERIFY(to->come.tryAcquire(MostRunning + 1, LongTime));
    QCOMPARE(host.stop(), QStringList());
}

void tst_DbusAsync::servesPlugins()
{
    const PluginHost host([](const QUrl &, QJsonObject *, QJsonObject *out) {
        out->insert(QStringLiteral("time"), 12);
        return true;
    });
    const QJsonObject expected{
        {QStringLiteral("handled"), true},
        {QStringLiteral("out"), QJsonObject{{QStringLiteral("time"), 12}}},
        {QStringLiteral("outcome"), QJsonObject{{QStringLiteral("code"), 200}, {QStringLiteral("called"), true}}}};
    QCOMPARE(host.call("//asker/wait"), expected);
    host.call("//asker/begin");
    QTRY_COMPARE_WITH_TIMEOUT(host.call("//asker"), expected, LongTime);
}

void tst_DbusAsync::letsAPluginGoThatWaitsForAnAnswer()
{
    Dam dam;
    const PluginHost host(dam.work());
    for (int i = 0; i < 20; ++i)
        host.call("//asker/begin");
    QVERIFY(dam.come.tryAcquire(MostRunning, LongTime)); // and some wait, with a URL of the plugin's
    host.call("//asker/release");
    QTRY_VERIFY_WITH_TIMEOUT(!isMapped(host.file), LongTime);
    dam.open.release(20);
    QVERIFY(dam.come.tryAcquire(20 - MostRunning, LongTime));
}

void tst_DbusAsync::leadsNowhereWithoutAComponent()
{
    ZDbusAsyncDelegate empty(nullptr);
    QCOMPARE(empty.begin0(testUrl(), {}, {}), qint64(0));
    QCOMPARE(QByteArray(ZDefaultDbusAsync::TypeName), QByteArray("ZDefaultDbusAsync*"));
}

QTEST_GUILESS_MAIN(tst_DbusAsync)
#include "tst_dbusasync.moc"
