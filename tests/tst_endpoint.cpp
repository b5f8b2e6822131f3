// SPDX-License-Identifier: Apache-2.0
// Endpoints that are plugins, and hand over from version to version while they are called.
#include "folder.h"
#include "gate.h"
#include "journal.h"
#include "testcase.h"

#include <QCoreApplication>
#include <QTimer>

#include <zdbus.h>
#include <zdefaultconfig.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultloader.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>
#include <zlibrary.h>
#include <zobject.h>
#include <zthreadpool.h>

#include <atomic>
#include <climits>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

/// Tells when an endpoint is about to hand over.
class HandOverJournal : public Journal
{
public:
    QSemaphore handOvers;

    void log0(int index, int kind, const QString &text) override
    {
        Journal::log0(index, kind, text);
        if (text.startsWith(QLatin1String("hands over: ")))
            handOvers.release();
    }
    using Journal::log0;
};

/// The services that an endpoint needs, and a folder of plugins.
class Program : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZDbus *zDbus MEMBER dbus)
    Q_PROPERTY(ZLoader *zLoader MEMBER loader)
    Q_PROPERTY(ZThreadPoolSet *zThreadPoolSet MEMBER threads)

public:
    /// Without the service of this type name, if there is one.
    explicit Program(const char *without = nullptr)
    {
        const QJsonObject section{{QStringLiteral("deployed"), folder.path()}};
        wiring->zemit0(ZDefaultConfig::TypeName,
                       Q_ARG(QJsonObject, (QJsonObject{{QStringLiteral("loader"), section}})));
        wiring->bind0(QSharedPointer<ZLoggerDelegate>::create(QSharedPointer<QObject>(journal)));
        for (const char *const service : {ZDefaultThreadPoolSet::TypeName, ZDefaultDbus::TypeName,
                                          ZDefaultScheduler::TypeName, ZDefaultLoader::TypeName}) {
            if (service != without)
                wiring->zemit0(service);
        }
        wiring->inject0(this);
        for (int version : {1, 2, 3})
            folder.drop(QStringLiteral("handed.%1").arg(version));
        for (const char *const plugin : {"parted.1", "parted.2", "parted.3", "moved.1", "moved.2", "heir", "rival"})
            folder.drop(QLatin1String(plugin));
    }
    ~Program() override
    {
        for (const char *const url : {"//handed/release", "//parted/release", "//parted/last/release",
                                      "//parted/dropped/release", "//bare/release", "//moved/release"})
            call(QUrl(QLatin1String(url)));
        settle();
    }

    bool load(int version, const char *plugin = "handed")
    {
        return !loader->load0(QStringLiteral("lib%1.%2").arg(QLatin1String(plugin)).arg(version)).isNull();
    }
    bool isInMemory(int version, const char *plugin = "handed") const
    {
        return isMapped(folder.filePath(QStringLiteral("lib%1.%2.so").arg(QLatin1String(plugin)).arg(version)));
    }
    bool call(const QUrl &url) const { return dbus && dbus->invoke0(url, nullptr, nullptr); }
    bool call(const char *path) const { return call(QUrl(QStringLiteral("//handed") + QLatin1String(path))); }
    QJsonObject read() const
    {
        QJsonObject out;
        dbus->invoke0(QUrl(QStringLiteral("//handed/read")), nullptr, &out);
        return out;
    }
    int read(const char *key) const { return read().value(QLatin1String(key)).toInt(); }
    QJsonObject readPart(const char *url) const
    {
        QJsonObject out;
        dbus->invoke0(QUrl(QLatin1String(url)), nullptr, &out);
        return out;
    }
    bool hasWaitedInVain() const { return !journal->entries().filter(QStringLiteral("has not ended")).isEmpty(); }

    const QSharedPointer<HandOverJournal> journal = QSharedPointer<HandOverJournal>::create();
    const Folder folder;
    ZDbus *dbus = nullptr;
    ZLoader *loader = nullptr;
    ZThreadPoolSet *threads = nullptr;
    const Wiring wiring;
};

} // namespace

class tst_Endpoint : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init() override;

    void isCalledAndHoldsItself();
    void doesNothingWithoutABus();
    void schedulesNothingWithoutAScheduler_data();
    void schedulesNothingWithoutAScheduler();
    void letsGo_data();
    void letsGo();
    void letsGoInASlotOfItsOwn();
    void letsGoInTwoOfItsCallsAtOnce();
    void letsGoWhereThereIsNoEventLoop_data();
    void letsGoWhereThereIsNoEventLoop();
    void letsGoWhenTheApplicationQuits();
    void handsItsStateOver();
    void handsOverToItsOwnBusAlone();
    void handsOverToAnotherPlugin_data();
    void handsOverToAnotherPlugin();
    void comesBackWhileItIsHeld();
    void leavesWhereTheNextHasAnotherUrl();
    void isCalledByOneThatTakesOver();
    void handsOneOfItsPartsOverToAnotherPlugin();
    void takesNoStateFromOneThatLetsGo();
    void missesNoCall();
    void endsItsWorkBeforeItHandsOver_data();
    void endsItsWorkBeforeItHandsOver();
    void answersWhatItCallsItself();
    void letsACallBeginAJobAsItEnds_data();
    void letsACallBeginAJobAsItEnds();
    void schedulesNothingMoreWhenItIsToEnd();
    void staysWhereTheNextCannotBegin_data();
    void staysWhereTheNextCannotBegin();
    void goesOnWhereItCannotHandOver();
    void goesWithTheNextIfItIsToLetGo_data();
    void goesWithTheNextIfItIsToLetGo();
    void isReplacedByOneAtATime();
    void hasCallersWaitForAWhileOnly();
    void doesNotSendCallersInCircles();
    void hearsABroadcastToTheLast();
    void handsOverWhateverBecomesOfTheBus_data();
    void handsOverWhateverBecomesOfTheBus();
    void doesNotWaitForEver();
    void isReachedOnceByABroadcast();
    void tellsWhatItsWorkThrows_data();
    void tellsWhatItsWorkThrows();
    void tellsThatItsUrlCannotBeBound();
    void mayBeAPart();
    void leavesWithAllItsParts();
    void staysWhereAPartOfTheNextCannotBegin_data();
    void staysWhereAPartOfTheNextCannotBegin();
    void leavesWhereTheNextDoesWithoutAPart_data();
    void leavesWhereTheNextDoesWithoutAPart();
    void handsOverPartsThatCallEachOther();
};

void tst_Endpoint::init()
{
    TestCase::init();
    for (const char *const property :
         {"begins", "asItIsMade", "asItBegins", "handsOver", "gate", "lastGone", "isThereAfterwards"})
        qApp->setProperty(property, QVariant());
}

void tst_Endpoint::isCalledAndHoldsItself()
{
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call("/count"));
    QVERIFY(!program.call("/unknown"));
    QVERIFY_EXCEPTION_THROWN(program.call("/throw"), std::runtime_error);
    settle();
    QCOMPARE(program.read("version"), 1);
    QCOMPARE(program.read("count"), 1);
    QTRY_VERIFY(program.read("ticks") > 3);
    QVERIFY(program.read().value(QStringLiteral("isTooEarly")).toBool());
    QVERIFY(!program.call("/no-job") && program.call("/two-jobs"));
    QVERIFY(program.loader->load0(QStringLiteral("handed.1"))); // once more, by another name
    QCOMPARE(program.read("count"), 1);
}

void tst_Endpoint::doesNothingWithoutABus()
{
    Program program(ZDefaultDbus::TypeName);
    QVERIFY(program.load(1));
    QTRY_VERIFY(!program.isInMemory(1));
}

void tst_Endpoint::schedulesNothingWithoutAScheduler_data()
{
    QTest::addColumn<bool>("isWithdrawn");
    QTest::newRow("nobody serves it") << false;
    QTest::newRow("it is withdrawn") << true;
}

void tst_Endpoint::schedulesNothingWithoutAScheduler()
{
    QFETCH(bool, isWithdrawn);
    Program program(isWithdrawn ? nullptr : ZDefaultScheduler::TypeName);
    if (isWithdrawn)
        program.wiring->bind0(QSharedPointer<ZSchedulerDelegate>::create(QSharedPointer<QObject>()));
    QVERIFY(program.load(1));
    QVERIFY(!program.call("/every-late"));
    QVERIFY(program.journal->entries().contains(
        QStringLiteral("warning: //handed: nobody has scheduled what it wants to be done")));
}

void tst_Endpoint::letsGo_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("when it is asked") << QByteArray("/release");
    QTest::newRow("within a call of its own") << QByteArray("/let-go");
}

void tst_Endpoint::letsGo()
{
    QFETCH(QByteArray, path);
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call(path.constData()));
    QVERIFY(!program.call("/count"));
    QTRY_VERIFY(!program.isInMemory(1));
}

void tst_Endpoint::letsGoInASlotOfItsOwn()
{
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call("/let-go-later"));
    QTRY_VERIFY(!program.isInMemory(1));
    QCOMPARE(qApp->property("isThereAfterwards"), QVariant(true));
}

/// Neither waits for the other.
void tst_Endpoint::letsGoInTwoOfItsCallsAtOnce()
{
    Program program;
    QVERIFY(program.load(1));
    Gate gate;
    gate.setOn(qApp);
    std::thread one([&] { program.call("/wait-and-let-go"); });
    std::thread other([&] { program.call("/wait-and-let-go"); });
    gate.entered.acquire(2);
    gate.leave.release(2);
    one.join();
    other.join();
    QVERIFY(!program.hasWaitedInVain());
    QTRY_VERIFY(!program.isInMemory(1));
}

void tst_Endpoint::letsGoWhereThereIsNoEventLoop_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("in a call") << QByteArray("/let-go");
    QTest::newRow("in a job, which is the last to hold it") << QByteArray("/let-go-in-a-job");
}

void tst_Endpoint::letsGoWhereThereIsNoEventLoop()
{
    QFETCH(QByteArray, path);
    Gate gate;
    gate.setOn(qApp);
    bool isHandled = false;
    std::thread host([&] {
        Program program;
        isHandled = program.load(1) && program.call(path.constData());
    });
    if (path == "/let-go-in-a-job") {
        gate.entered.acquire();
        gate.leave.release();
    }
    host.join();
    QVERIFY(isHandled);
    QTRY_COMPARE(mappedPlugins(), QStringList());
    messages().takeAll();
}

void tst_Endpoint::letsGoWhenTheApplicationQuits()
{
    Program program;
    QVERIFY(program.load(1));
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    QCoreApplication::exec();
    QTRY_VERIFY(!program.isInMemory(1));
}

void tst_Endpoint::handsItsStateOver()
{
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call("/count") && program.call("/count"));
    QVERIFY(program.load(2));
    QCOMPARE(program.read("version"), 2);
    QCOMPARE(program.read("count"), 2);
    QTRY_VERIFY(!program.isInMemory(1));
    QVERIFY(program.call("/count"));
    QVERIFY(program.load(3));
    QCOMPARE(program.read("version"), 3);
    QCOMPARE(program.read("count"), 3);
    QTRY_VERIFY(!program.isInMemory(2));
}

void tst_Endpoint::handsOverToItsOwnBusAlone()
{
    Program one, other;
    QVERIFY(one.load(1) && other.loader->load0(QStringLiteral("libheir")));
    QVERIFY(one.call("/count"));
    QVERIFY(one.load(2));
    QVERIFY(one.read().value(QStringLiteral("wasTooLate")).toBool()); // as it handed over it began nothing more
    QCOMPARE(one.read("version"), 2);
    QCOMPARE(one.read("count"), 1);
    QCOMPARE(other.read("version"), 9);
    QCOMPARE(other.read("count"), 0);
}

void tst_Endpoint::handsOverToAnotherPlugin_data()
{
    QTest::addColumn<QString>("how");
    QTest::newRow("which takes over from the next version") << QString();
    QTest::newRow("for the next version could not begin") << QStringLiteral("with an exception");
}

/// It comes while the next version begins, on another thread, and waits for that.
void tst_Endpoint::handsOverToAnotherPlugin()
{
    QFETCH(QString, how);
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call("/count"));
    std::thread heir;
    std::function<void()> load = [&] {
        heir = std::thread([&] { program.loader->load0(QStringLiteral("libheir")); });
        QTRY_VERIFY(isMapped(program.folder.filePath(QStringLiteral("libheir.so"))));
    };
    qApp->setProperty("asItBegins", QVariant::fromValue<void *>(&load));
    qApp->setProperty("begins", how);
    QCOMPARE(program.load(2), how.isEmpty());
    heir.join();
    QCOMPARE(program.read("version"), 9);
    QCOMPARE(program.read("count"), 1);
    QTRY_VERIFY(!program.isInMemory(1) && !program.isInMemory(2));
}

/// It takes its place back as the object that has handed it over, and can hand it over, or let go, once more.
void tst_Endpoint::comesBackWhileItIsHeld()
{
    Program program;
    const QSharedPointer<ZLibrary> library = program.loader->load0(QStringLiteral("libhanded.1"));
    const QSharedPointer<QObject> held = QSharedPointer<ZObject>(*library)->shared();
    QVERIFY(program.call("/count"));
    QVERIFY(program.load(2));
    QVERIFY(program.loader->load0(QStringLiteral("handed.1"))); // by another name: this one has been loaded
    QCOMPARE(program.read("version"), 1);
    QCOMPARE(program.read("count"), 1);
    QTRY_VERIFY(!program.isInMemory(2));
    QVERIFY(program.call("/release"));
    QVERIFY(!program.call("/count"));
}

void tst_Endpoint::leavesWhereTheNextHasAnotherUrl()
{
    Program program;
    QVERIFY(program.load(1, "moved"));
    QVERIFY(program.load(2, "moved"));
    QCOMPARE(program.read("version"), 2);
    QTRY_VERIFY(!program.isInMemory(1, "moved"));
}

/// It comes to its end, for which the call waits that waits for the one that takes over.
void tst_Endpoint::isCalledByOneThatTakesOver()
{
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.load(1, "parted"));
    Gate gate;
    gate.setOn(qApp);
    QJsonObject answer;
    std::thread caller([&] {
        QJsonObject in{{QStringLiteral("other"), QStringLiteral("//handed/count")}};
        program.dbus->invoke0(QUrl(QStringLiteral("//parted/last")), &in, &answer);
    });
    gate.entered.acquire();
    std::thread loader;
    bool isCounted = false;
    std::function<void()> call = [&] { // parted waits for its call, and its call for us
        program.journal->handOvers.tryAcquire(program.journal->handOvers.available());
        loader = std::thread([&] { program.load(2, "parted"); });
        program.journal->handOvers.acquire(3);
        gate.leave.release();
        QJsonObject out;
        isCounted = program.dbus->invoke0(QUrl(QStringLiteral("//parted/last")), nullptr, &out);
    };
    qApp->setProperty("asItBegins", QVariant::fromValue<void *>(&call));
    QVERIFY(program.load(2));
    caller.join();
    loader.join();
    QVERIFY(isCounted);
    QVERIFY(!program.hasWaitedInVain());
    QCOMPARE(answer.value(QStringLiteral("version")), QJsonValue(2));
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("version")), QJsonValue(2));
}

void tst_Endpoint::handsOneOfItsPartsOverToAnotherPlugin()
{
    Program program;
    QVERIFY(program.load(1, "parted"));
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("count")), QJsonValue(1));
    QVERIFY(program.loader->load0(QStringLiteral("librival")));
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("count")), QJsonValue(1));
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("version")), QJsonValue(9));
    QCOMPARE(program.readPart("//parted/last").value(QStringLiteral("version")), QJsonValue(1)); // stays
}

void tst_Endpoint::takesNoStateFromOneThatLetsGo()
{
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call("/count"));
    Gate gate;
    gate.setOn(qApp);
    std::thread caller([&] { program.call("/wait"); });
    gate.entered.acquire();
    std::thread releaser([&] { program.call("/release"); });
    QTRY_VERIFY(!program.call("/unknown-but-refused"));
    QVERIFY(program.load(2));
    QCOMPARE(program.read("version"), 2);
    gate.leave.release();
    caller.join();
    releaser.join();
    QVERIFY(!program.hasWaitedInVain());
    QTRY_VERIFY(!program.isInMemory(1));
}

void tst_Endpoint::missesNoCall()
{
    Program program;
    QVERIFY(program.load(1));
    std::atomic_bool isOver{false};
    std::atomic_int calls{0}, missed{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i)
        callers.emplace_back([&] {
            while (!isOver) {
                ++calls;
                missed += program.call("/count") ? 0 : 1;
            }
        });
    for (int round = 0; round < 10; ++round) {
        for (int version : {2, 3, 1}) {
            const int before = calls;
            QTRY_VERIFY(calls > before + 100);
            QVERIFY(program.load(version));
            QCOMPARE(program.read("version"), version);
            QCOMPARE(program.read("ranOn"), 0);
            const int gone = version == 1 ? 3 : version - 1;
            QTRY_VERIFY(!program.isInMemory(gone));
        }
    }
    isOver = true;
    for (std::thread &caller : callers)
        caller.join();
    QCOMPARE(missed.load(), 0);
    QCOMPARE(program.read("count"), calls.load());
}

void tst_Endpoint::endsItsWorkBeforeItHandsOver_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<int>("count");
    QTest::newRow("a call") << QByteArray("/wait") << 0;
    QTest::newRow("a job") << QByteArray("/job") << 1;
}

void tst_Endpoint::endsItsWorkBeforeItHandsOver()
{
    QFETCH(QByteArray, path);
    QFETCH(int, count);
    Program program;
    QVERIFY(program.load(1));
    Gate gate;
    gate.setOn(qApp);
    std::thread caller([&] { program.call(path.constData()); });
    gate.entered.acquire();
    QJsonObject answer;
    std::thread late([&] {
        program.journal->handOvers.acquire(); // from now on it is to end
        std::thread waiting([&] { answer = program.read(); });
        gate.leave.release();
        waiting.join();
    });
    QVERIFY(program.load(2));
    caller.join();
    late.join();
    QCOMPARE(program.read("version"), 2);
    QCOMPARE(program.read("ranOn"), 0);
    QCOMPARE(program.read("count"), count);
    QVERIFY(!answer.isEmpty());
}

/// A call of itself within a call, too, while it is handed over: the outer one would wait for it.
void tst_Endpoint::answersWhatItCallsItself()
{
    Program program;
    QVERIFY(program.load(1));
    Gate gate;
    gate.setOn(qApp);
    bool isHandled = false;
    std::thread caller([&] { isHandled = program.call("/nested"); });
    gate.entered.acquire();
    std::thread opener([&] {
        program.journal->handOvers.acquire();
        gate.leave.release();
    });
    QVERIFY(program.load(2));
    caller.join();
    opener.join();
    QVERIFY(isHandled);
    QCOMPARE(program.read("count"), 1);
}

void tst_Endpoint::letsACallBeginAJobAsItEnds_data()
{
    QTest::addColumn<bool>("isHandedOver");
    QTest::newRow("for it is handed over") << true;
    QTest::newRow("for it lets go") << false;
}

void tst_Endpoint::letsACallBeginAJobAsItEnds()
{
    QFETCH(bool, isHandedOver);
    Program program;
    QVERIFY(program.load(1));
    Gate gate;
    gate.setOn(qApp);
    bool isBegun = false;
    std::thread caller([&] { isBegun = program.call("/job-of-a-call"); });
    gate.entered.acquire();
    std::thread opener([&] {
        if (isHandedOver)
            program.journal->handOvers.acquire();
        while (!isHandedOver && program.call("/count"))
            std::this_thread::yield();
        gate.leave.release();
    });
    if (isHandedOver)
        QVERIFY(program.load(2));
    else
        QVERIFY(program.call("/release"));
    caller.join();
    opener.join();
    QVERIFY(isBegun);
    QVERIFY(!program.hasWaitedInVain());
    QCOMPARE(program.read("count"), isHandedOver ? 1 : 0); // it was waited for
}

void tst_Endpoint::schedulesNothingMoreWhenItIsToEnd()
{
    Program program;
    QVERIFY(program.load(1));
    Gate gate;
    gate.setOn(qApp);
    bool isScheduled = true;
    std::thread caller([&] { isScheduled = program.call("/every-late"); });
    gate.entered.acquire();
    std::thread opener([&] {
        program.journal->handOvers.acquire();
        gate.leave.release();
    });
    QVERIFY(program.load(2));
    caller.join();
    opener.join();
    QVERIFY(!isScheduled);
    QTRY_VERIFY(!program.isInMemory(1));
}

void tst_Endpoint::staysWhereTheNextCannotBegin_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("isLoaded");
    QTest::newRow("it throws") << QStringLiteral("with an exception") << false;
    QTest::newRow("it lets go") << QStringLiteral("by letting go") << true;
}

void tst_Endpoint::staysWhereTheNextCannotBegin()
{
    QFETCH(QString, how);
    QFETCH(bool, isLoaded);
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call("/count"));
    program.journal->take();
    qApp->setProperty("begins", how);
    QCOMPARE(program.load(2), isLoaded);
    QCOMPARE(program.journal->entries().contains(QStringLiteral("warning: failed to load libhanded.2: cannot begin")),
             !isLoaded);
    QCOMPARE(program.read("version"), 1);
    QCOMPARE(program.read("count"), 1);
    const int ticks = program.read("ticks");
    QTRY_VERIFY(program.read("ticks") > ticks);
    QTRY_VERIFY(!program.isInMemory(2));
    qApp->setProperty("begins", QVariant());
    QVERIFY(program.load(isLoaded ? 3 : 2)); // and hands over to a better one
    QCOMPARE(program.read("version"), isLoaded ? 3 : 2);
    QCOMPARE(program.read("count"), 1);
    QVERIFY(program.load(3));
    QCOMPARE(program.read("version"), 3);
    QCOMPARE(program.read("count"), 1);
}

void tst_Endpoint::goesOnWhereItCannotHandOver()
{
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call("/count"));
    qApp->setProperty("handsOver", QStringLiteral("with an exception"));
    QVERIFY(!program.load(2));
    QVERIFY(
        program.journal->entries().contains(QStringLiteral("warning: failed to load libhanded.2: cannot hand over")));
    QCOMPARE(program.read("version"), 1);
    QCOMPARE(program.read("count"), 1);
    const int ticks = program.read("ticks");
    QTRY_VERIFY(program.read("ticks") > ticks);
    QTRY_VERIFY(!program.isInMemory(2));
}

void tst_Endpoint::goesWithTheNextIfItIsToLetGo_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<int>("version");
    QTest::newRow("the next one takes its place") << QString() << 2;
    QTest::newRow("the next one cannot begin") << QStringLiteral("with an exception") << 0;
}

/// It is asked to let go while the next one begins.
void tst_Endpoint::goesWithTheNextIfItIsToLetGo()
{
    QFETCH(QString, how);
    QFETCH(int, version);
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call("/count"));
    std::function<void()> release = [&] { program.call("/release"); };
    qApp->setProperty("asItBegins", QVariant::fromValue<void *>(&release));
    qApp->setProperty("begins", how);
    program.load(2);
    QCOMPARE(program.read("version"), version);
    QCOMPARE(program.read("count"), version ? 1 : 0);
    QTRY_VERIFY(!program.isInMemory(1));
    QCOMPARE(program.isInMemory(2), version == 2);
}

void tst_Endpoint::isReplacedByOneAtATime()
{
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call("/count"));
    bool isLoaded = true;
    std::function<void()> next = [&] { isLoaded = program.load(3); };
    qApp->setProperty("asItBegins", QVariant::fromValue<void *>(&next));
    QVERIFY(program.load(2));
    QVERIFY(!isLoaded);
    QVERIFY(program.journal->entries().contains(
        QStringLiteral("warning: failed to load libhanded.3: //handed is just being replaced")));
    QCOMPARE(program.read("version"), 2);
    QCOMPARE(program.read("count"), 1);
    QTRY_VERIFY(!program.isInMemory(3));
    QVERIFY(program.load(3));
    QCOMPARE(program.read("version"), 3);
}

/// And not at all on the thread for which they would wait.
void tst_Endpoint::hasCallersWaitForAWhileOnly()
{
    Program program;
    QVERIFY(program.load(1));
    bool isAnsweredHere = true, isAnswered = true;
    std::function<void()> call = [&] {
        isAnsweredHere = program.call("/count") || program.call(QUrl(QStringLiteral("/count")));
        std::thread caller([&] { isAnswered = program.call("/count"); });
        caller.join();
    };
    qApp->setProperty("asItBegins", QVariant::fromValue<void *>(&call));
    QVERIFY(program.load(2));
    QVERIFY(!isAnsweredHere);
    QVERIFY(!isAnswered);
    QCOMPARE(program.read("count"), 0);
}

/// A bus that goes on to call the one before.
void tst_Endpoint::doesNotSendCallersInCircles()
{
    class StubbornDbus : public ZDefaultDbus
    {
    public:
        bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override
        {
            if (!m_first)
                m_first = subscriber.toStrongRef();
            return ZDefaultDbus::bind0(url, m_first);
        }
        void letGo() { m_first.clear(); }

    private:
        QSharedPointer<ZDbusSubscriber> m_first;
    };
    Program program;
    auto *const bus = new StubbornDbus;
    program.wiring->bind0(QSharedPointer<ZDbusDelegate>::create(bus));
    QVERIFY(program.load(1));
    QVERIFY(program.call("/count"));
    QVERIFY(program.load(2));
    QVERIFY(!program.call("/count"));
    bus->letGo();
    QMetaObject::invokeMethod(qApp, "aboutToQuit", Qt::DirectConnection); // nobody else reaches the next one
}

/// It cannot wait for the next one, which it does not reach either.
void tst_Endpoint::hearsABroadcastToTheLast()
{
    Program program;
    QVERIFY(program.load(1));
    Gate gate;
    gate.setOn(qApp);
    std::thread caller([&] { program.call("/wait"); });
    gate.entered.acquire();
    bool isHeard = false;
    std::thread late([&] {
        program.journal->handOvers.acquire();
        isHeard = program.dbus->invoke0(QUrl(QStringLiteral("/count")), nullptr, nullptr);
        gate.leave.release();
    });
    QVERIFY(program.load(2));
    caller.join();
    late.join();
    QVERIFY(isHeard);
    QCOMPARE(program.read("count"), 1);
}

void tst_Endpoint::handsOverWhateverBecomesOfTheBus_data()
{
    QTest::addColumn<bool>("isThere");
    QTest::newRow("it is exchanged") << true;
    QTest::newRow("it is withdrawn") << false;
}

void tst_Endpoint::handsOverWhateverBecomesOfTheBus()
{
    QFETCH(bool, isThere);
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call("/count"));
    const QSharedPointer<ZReference> first = *dynamic_cast<ZDelegate *>(program.dbus);
    std::function<void()> exchange = [&] {
        program.wiring->bind0(QSharedPointer<ZDbusDelegate>::create(isThere ? new ZDefaultDbus : nullptr));
    };
    qApp->setProperty("asItBegins", QVariant::fromValue<void *>(&exchange));
    QCOMPARE(program.load(2), isThere);
    QTRY_VERIFY(!program.isInMemory(isThere ? 1 : 2));
    QVERIFY(program.isInMemory(isThere ? 2 : 1));
    dynamic_cast<ZDelegate *>(program.dbus)->replace(isThere ? QSharedPointer<ZReference>() : first);
    QCOMPARE(program.read("version"), isThere ? 0 : 1);
    if (isThere) // nobody can reach it any more
        QMetaObject::invokeMethod(qApp, "aboutToQuit", Qt::DirectConnection);
}

void tst_Endpoint::doesNotWaitForEver()
{
    Program program;
    QVERIFY(program.load(1));
    Gate gate;
    gate.setOn(qApp);
    std::thread caller([&] { program.call("/wait"); });
    gate.entered.acquire();
    QVERIFY(program.load(2));
    QVERIFY(
        program.journal->entries().contains(QStringLiteral("warning: //handed: what runs has not ended within 5 s")));
    QCOMPARE(program.read("version"), 2);
    QVERIFY(program.isInMemory(1));
    gate.leave.release();
    caller.join();
    QTRY_VERIFY(!program.isInMemory(1));
}

void tst_Endpoint::isReachedOnceByABroadcast()
{
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.dbus->invoke0(QUrl(QStringLiteral("/count")), nullptr, nullptr));
    QCOMPARE(program.read("count"), 1);
    QVERIFY(program.load(2));
    QVERIFY(program.dbus->invoke0(QUrl(QStringLiteral("/count")), nullptr, nullptr));
    QCOMPARE(program.read("count"), 2);
}

void tst_Endpoint::tellsWhatItsWorkThrows_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QString>("told");
    QTest::addColumn<int>("times");
    QTest::newRow("a job") << QByteArray("/bad-job") << "warning: //handed: a job" << 1;
    QTest::newRow("an activity, which goes on") << QByteArray("/bad-activity") << "warning: //handed: an activity" << 2;
}

void tst_Endpoint::tellsWhatItsWorkThrows()
{
    QFETCH(QByteArray, path);
    QFETCH(QString, told);
    QFETCH(int, times);
    Program program;
    QVERIFY(program.load(1));
    QVERIFY(program.call(path.constData()));
    QTRY_COMPARE(program.journal->entries().count(told), times);
    QCOMPARE(program.read("version"), 1);
}

void tst_Endpoint::tellsThatItsUrlCannotBeBound()
{
    Program program;
    QVERIFY(program.folder.drop(QStringLiteral("astray")));
    QVERIFY(!program.loader->load0(QStringLiteral("libastray")));
    QVERIFY(program.journal->entries().contains(
        QStringLiteral("warning: failed to load libastray: no-host: this URL cannot be bound")));
    QTRY_VERIFY(!isMapped(program.folder.filePath(QStringLiteral("libastray.so"))));
}

void tst_Endpoint::mayBeAPart()
{
    Program program;
    QVERIFY(program.load(1, "parted"));
    settle();
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("isWired")), QJsonValue(true));
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("errors")), QJsonValue(0));
    QVERIFY(program.call(QUrl(QStringLiteral("/release")))); // a broadcast, by which nobody is asked to let go
    for (const char *const url : {"//parted", "//parted/last", "//parted/dropped", "//bare"}) {
        QVERIFY(program.isInMemory(1, "parted"));
        QVERIFY(program.dbus->invoke0(QUrl(QLatin1String(url) + QStringLiteral("/release")), nullptr, nullptr));
        QVERIFY(program.readPart(url).isEmpty());
    }
    QTRY_VERIFY(!program.isInMemory(1, "parted"));
}

/// Also with those that the next version has no place for.
void tst_Endpoint::leavesWithAllItsParts()
{
    Program program;
    QVERIFY(program.load(1, "parted"));
    QCOMPARE(program.readPart("//parted/last").value(QStringLiteral("count")), QJsonValue(1));
    QVERIFY(program.load(2, "parted"));
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("version")), QJsonValue(2));
    QCOMPARE(program.readPart("//parted/last").value(QStringLiteral("count")), QJsonValue(2));
    QCOMPARE(program.readPart("//bare").value(QStringLiteral("version")), QJsonValue(2));
    QVERIFY(program.readPart("//parted/dropped").value(QStringLiteral("version")) != QJsonValue(1));
    QTRY_VERIFY(!program.isInMemory(1, "parted"));
}

void tst_Endpoint::staysWhereAPartOfTheNextCannotBegin_data()
{
    QTest::addColumn<int>("next");
    QTest::addColumn<QString>("how");
    QTest::addColumn<QString>("reason");
    QTest::newRow("it throws") << 2 << "with an exception"
                               << "cannot begin";
    QTest::newRow("it cannot be bound") << 2 << "where nobody is called"
                                        << "no-host: this URL cannot be bound";
    QTest::newRow("two have one URL") << 3 << QString() << "//bare is the URL of two of its endpoints";
    QTest::newRow("the bus throws") << 2 << "over a bus that throws"
                                    << "cannot bind";
    QTest::newRow("it is gone, and the bus throws") << 2 << "without its last, over a bus that throws"
                                                    << "cannot bind";
}

void tst_Endpoint::staysWhereAPartOfTheNextCannotBegin()
{
    /// Throws when it has bound something for the last time that it was told.
    class ThrowingDbus : public ZDefaultDbus
    {
    public:
        bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override
        {
            const bool isBound = ZDefaultDbus::bind0(url, subscriber);
            if (--left == 0)
                throw std::runtime_error("cannot bind");
            return isBound;
        }
        int left = 0;
    };
    QFETCH(int, next);
    QFETCH(QString, how);
    QFETCH(QString, reason);
    Program program;
    auto *const bus = new ThrowingDbus;
    program.wiring->bind0(QSharedPointer<ZDbusDelegate>::create(bus));
    QVERIFY(program.load(1, "parted"));
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("count")), QJsonValue(1));
    qApp->setProperty("begins", how);
    bus->left = how.endsWith(QLatin1String("throws")) ? 2 : 0;
    QVERIFY(!program.load(next, "parted"));
    QVERIFY(program.journal->entries().contains(
        QStringLiteral("warning: failed to load libparted.%1: %2").arg(next).arg(reason)));
    QTRY_VERIFY(!program.isInMemory(next, "parted"));
    for (const char *const url : {"//parted", "//parted/last", "//parted/dropped", "//bare"})
        QCOMPARE(program.readPart(url).value(QStringLiteral("version")), QJsonValue(1));
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("count")), QJsonValue(3));
}

void tst_Endpoint::leavesWhereTheNextDoesWithoutAPart_data()
{
    QTest::addColumn<QString>("how");
    QTest::newRow("which lets go as it begins") << QStringLiteral("by letting go");
    QTest::newRow("which it deletes") << QStringLiteral("without its last");
}

void tst_Endpoint::leavesWhereTheNextDoesWithoutAPart()
{
    QFETCH(QString, how);
    Program program;
    QVERIFY(program.load(1, "parted"));
    qApp->setProperty("begins", how);
    QVERIFY(program.load(2, "parted"));
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("version")), QJsonValue(2));
    QVERIFY(program.readPart("//parted/last").value(QStringLiteral("version")) != QJsonValue(1));
    QTRY_VERIFY(!program.isInMemory(1, "parted"));
}

/// A call of one is under way in the other: both come to their end before either hands over.
void tst_Endpoint::handsOverPartsThatCallEachOther()
{
    Program program;
    QVERIFY(program.load(1, "parted"));
    Gate gate;
    gate.setOn(qApp);
    QJsonObject answer;
    std::thread caller([&] {
        QJsonObject in{{QStringLiteral("other"), QStringLiteral("//parted")}};
        program.dbus->invoke0(QUrl(QStringLiteral("//parted/last")), &in, &answer);
    });
    gate.entered.acquire();
    std::thread opener([&] {
        program.journal->handOvers.acquire(2); // both are to end
        gate.leave.release();
    });
    QVERIFY(program.load(2, "parted"));
    caller.join();
    opener.join();
    QVERIFY(!program.hasWaitedInVain());
    QCOMPARE(answer.value(QStringLiteral("version")), QJsonValue(1));
    QCOMPARE(program.readPart("//parted").value(QStringLiteral("count")), QJsonValue(2));
}

QTEST_GUILESS_MAIN(tst_Endpoint)
#include "tst_endpoint.moc"
