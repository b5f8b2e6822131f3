// SPDX-License-Identifier: Apache-2.0
// An application's host: all services of one configuration.
#include "folder.h"
#include "greeter.h"
#include "journal.h"
#include "testcase.h"

#include <QCoreApplication>
#include <QTimer>

#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultdbusasync.h>
#include <zdefaultdbusoutcome.h>
#include <zdefaultfilesystem.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>
#include <zfunction.h>
#include <zhost.h>
#include <zjobpool.h>
#include <zleasedelegate.h>
#include <zorderlyemitter.h>
#include <zscheduledactivity.h>
#include <zthreadpool.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

/// A logger that announces itself, as the default one does.
class AnnouncingJournal : public Journal
{
    Q_OBJECT
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter)
            emitter->bind0(QSharedPointer<ZLoggerDelegate>::create(this));
        return emitter;
    }
};

/// A loader that notes what is there when it is wired.
class OwnLoader : public QObject, public ZLoader
{
    Q_OBJECT
    Q_INTERFACES(ZLoader)
    Q_PROPERTY(ZScheduler *zScheduler MEMBER scheduler)

public:
    QSharedPointer<ZLibrary> loaded0(QString) override { return {}; }
    QSharedPointer<ZLibrary> load0(QString name) override
    {
        asked.append(name);
        return {};
    }

    ZScheduler *scheduler = nullptr;
    QStringList asked;
};

/// Serves what another one of them serves, too.
class Deletable : public QObject, public ZConfig
{
    Q_OBJECT
    Q_INTERFACES(ZConfig)

public:
    QJsonObject toJson0() override { return {}; }
};

/// Does something as it is wired, and does not announce itself.
class Unruly : public Deletable
{
    Q_OBJECT
    Q_PROPERTY(ZEmitter *zEmitter READ zEmitter WRITE setZEmitter)

public:
    using Deed = void (*)(QObject *self, ZEmitter *emitter);
    explicit Unruly(Deed deed) : m_deed(deed) {}

    ZEmitter *zEmitter() const { return nullptr; }
    void setZEmitter(ZEmitter *emitter) { m_deed(this, emitter); }

private:
    const Deed m_deed;
};

/// Provides a configuration, and has not even an empty reference.
class Bare : public ZDelegate, public ZConfig
{
public:
    Bare() : ZDelegate(QSharedPointer<ZReference>()) { provide<ZConfig>(this); }
    QJsonObject toJson0() override { return {}; }
};

/// Has no registry.
class NoThreads : public QObject, public ZThreadPoolSet
{
    Q_OBJECT
    Q_INTERFACES(ZThreadPoolSet)

public:
    QSharedPointer<ZThreadPool> find0(const QString &) override { return {}; }
};

/// A pool set that has announced itself when it throws as it is wired.
class Throwing : public ZDefaultJobPoolSet
{
    Q_OBJECT
    Q_PROPERTY(ZLogger *zLogger READ zLogger WRITE setZLogger)

public:
    ZLogger *zLogger() const { return nullptr; }
    void setZLogger(ZLogger *) { throw std::runtime_error("throws"); }
};

class Guest : public QObject
{
    Q_OBJECT
    Q_PROPERTY(Greeter *greeter MEMBER greeter)

public:
    Greeter *greeter = nullptr;
};

/// Runs until it is to end.
struct Work
{
    QSemaphore begun, end, ended;

    void run()
    {
        begun.release();
        end.acquire();
        ended.release();
    }
};
using SharedWork = QSharedPointer<Work>;

/// Has a service of `host` run `work`.
using Starter = void (*)(ZHost &host, const SharedWork &work);

void schedule(ZHost &host, const SharedWork &work)
{
    host.services().scheduler->schedule0(QSharedPointer<ZFunctionActivity>::create(
        QSharedPointer<ZPeriodicSchedule>::create(1), QStringLiteral("endless"), QSharedPointer<QObject>(), [work] {
            work->run();
            return false;
        }));
}

void startAJob(ZHost &host, const SharedWork &work)
{
    const auto pool = host.services().jobPoolSet->find0(QStringLiteral("jobs"), 1, -1);
    ZFunctionJob::start(pool.data(), {}, [work] { work->run(); });
}

void startAThread(ZHost &host, const SharedWork &work)
{
    host.services()
        .threadPoolSet->find0(QStringLiteral("threads"))
        ->poolAndStart(QThread::create([work] { work->run(); }), QThread::InheritPriority);
}

/// In an endpoint.
void startAnEndpointsJob(ZHost &host, const SharedWork &work)
{
    static std::function<void()> job;
    job = [work] { work->run(); };
    qApp->setProperty("job", QVariant::fromValue<void *>(&job));
    host.services().loader->load0(QStringLiteral("libhanded.1"));
    host.services().dbus->invoke0(QUrl(QStringLiteral("//handed/own-job")), nullptr, nullptr);
}

/// On another thread.
void startALoad(ZHost &host, const SharedWork &work)
{
    static std::function<void()> asItBegins;
    asItBegins = [work] {
        work->begun.release();
        work->end.acquire();
    };
    qApp->setProperty("asItBegins", QVariant::fromValue<void *>(&asItBegins));
    std::thread([loader = host.services().loader, work] {
        loader->load0(QStringLiteral("libhanded.2"));
        work->ended.release();
    }).detach();
}

/// Runs the work that it is called for.
class WorkingEndpoint : public ZDbusSubscriber
{
public:
    explicit WorkingEndpoint(SharedWork work) : m_work(std::move(work)) {}

    bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override
    {
        m_work->run();
        return true;
    }

private:
    const SharedWork m_work;
};

/// Wants the services that are about calls.
class Caller : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZDbusAsync *async MEMBER async)
    Q_PROPERTY(ZDbusOutcome *outcome MEMBER outcome)
    Q_PROPERTY(ZLease *lease MEMBER lease)

public:
    ZDbusAsync *async = nullptr;
    ZDbusOutcome *outcome = nullptr;
    ZLease *lease = nullptr;
};

/// One that nobody waits for.
void startACall(ZHost &host, const SharedWork &work)
{
    static QSharedPointer<ZDbusSubscriber> endpoint;
    endpoint = QSharedPointer<WorkingEndpoint>::create(work);
    host.services().dbus->bind0(QUrl(QStringLiteral("//work")), endpoint);
    Caller caller;
    host.inject(&caller);
    caller.async->begin0(QUrl(QStringLiteral("//work/now")), {}, {});
}

/// A component for each service but the loader.
QVector<QObject *> ownOfEach()
{
    return {new Deletable,          new ZDefaultLogger,        new ZDefaultTempFile,
            new ZDefaultJobPoolSet, new ZDefaultThreadPoolSet, new ZDefaultDbus,
            new ZDefaultContext,    new ZDefaultScheduler,     new ZDefaultDbusOutcome,
            new ZDefaultDbusAsync};
}

bool areAlive(const QVector<QPointer<QObject>> &components)
{
    return std::all_of(components.begin(), components.end(), [](const auto &each) { return !each.isNull(); });
}

bool areGone(const QVector<QPointer<QObject>> &components)
{
    return std::all_of(components.begin(), components.end(), [](const auto &each) { return each.isNull(); });
}

QJsonObject configurationOf(const Folder &folder, const QJsonArray &loadList = {})
{
    return {{QStringLiteral("loader"),
             QJsonObject{{QStringLiteral("deployed"), folder.path()}, {QStringLiteral("load-list"), loadList}}}};
}

} // namespace

Q_DECLARE_METATYPE(Starter)

static void addStarters()
{
    QTest::addColumn<Starter>("start");
    QTest::addColumn<QString>("name");
    QTest::newRow("an activity") << Starter(schedule) << "ZSchedulerThread-endless";
    QTest::newRow("a job of a pool") << Starter(startAJob) << "jobs";
    QTest::newRow("a thread of a registry") << Starter(startAThread) << "threads";
    QTest::newRow("a job of an endpoint") << Starter(startAnEndpointsJob) << "//handed";
    QTest::newRow("a call") << Starter(startACall) << "a call of //work/now";
    QTest::newRow("a load") << Starter(startALoad) << "a load of a plugin";
}

class tst_Host : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void hasAllServices_data();
    void hasAllServices();
    void takesItsOwnIn_data();
    void takesItsOwnIn();
    void takesAnOwnLoaderIn();
    void loadsWhenItBegins();
    void deletesWhatServesNothing();
    void ignoresNullsAmongItsOwn();
    void goesOnWithoutOneThatDeletesItself();
    void takesOneInThatBindsABareDelegate();
    void goesOnWithoutARegistry();
    void leavesNothingOfOnesThatThrow_data();
    void leavesNothingOfOnesThatThrow();
    void bindsNoNull();
    void endsWithAllThatItHolds_data();
    void endsWithAllThatItHolds();
    void leavesTheEndpointsOfAnotherAlone();
    void waitsForWhatRuns_data();
    void waitsForWhatRuns();
    void namesWhatDoesNotEnd_data();
    void namesWhatDoesNotEnd();
    void schedulesNothingOnceItHasStopped();
    void beginsNoCallOnceItHasStopped();
};

void tst_Host::hasAllServices_data()
{
    QTest::addColumn<bool>("isItsOwn");
    QTest::newRow("its own") << true;
    QTest::newRow("the application's") << false;
}

void tst_Host::hasAllServices()
{
    QFETCH(bool, isItsOwn);
    const QJsonObject configuration{{QStringLiteral("any"), 1}};
    const QVector<QObject *> given = isItsOwn ? QVector<QObject *>() : ownOfEach();
    const QVector<QPointer<QObject>> own(given.begin(), given.end());
    std::optional<ZHost> host(std::in_place, configuration, given);
    QVERIFY(areAlive(own));
    const ZServices &services = host->services();
    QCOMPARE(services.config->toJson0(), isItsOwn ? configuration : QJsonObject());
    QVariant value = 1;
    QVERIFY(services.context->save0(value));
    QVERIFY(services.dbus->find0(QUrl(QStringLiteral("//zscheduler"))));
    QVERIFY(services.emitter && services.logger);
    QVERIFY(services.jobPoolSet->find0(QStringLiteral("jobs"), 1, -1));
    QVERIFY(services.threadPoolSet->find0(QStringLiteral("threads")));
    QVERIFY(services.tempFile->newFile0());
    QVERIFY(services.scheduler->schedule0(QSharedPointer<ZDbusActivity>::create(
        QSharedPointer<ZPeriodicSchedule>::create(1), services.dbus, QUrl(), false)));
    Caller caller;
    host->inject(&caller);
    QJsonObject outcome;
    QVERIFY(!caller.outcome->call0(QUrl(QStringLiteral("//nobody")), nullptr, nullptr, &outcome));
    QCOMPARE(outcome.value(QStringLiteral("code")), QJsonValue(503));
    QVERIFY(caller.async->begin0(QUrl(QStringLiteral("//nobody")), {}, {}) > 0);
    QString reason;
    QVERIFY(!caller.lease->begin0(QStringLiteral("any"), 1, reason)); // nobody serves it
    QCOMPARE(reason, QStringLiteral("nobody serves ZLease"));
    QVERIFY(services.loader);
    QVERIFY(!services.loader->load0(QStringLiteral("none"))); // does nothing yet
    QCOMPARE(messages().takeAll().size(), 0);
    host.reset();
    QVERIFY(areGone(own));
}

void tst_Host::takesItsOwnIn_data()
{
    QTest::addColumn<bool>("isAnnouncing");
    QTest::newRow("that announces itself") << true;
    QTest::newRow("that does not") << false;
}

void tst_Host::takesItsOwnIn()
{
    QFETCH(bool, isAnnouncing);
    const QPointer<Journal> journal = isAnnouncing ? new AnnouncingJournal : new Journal;
    {
        ZHost host({}, {journal});
        journal->take(); // what the services have said
        host.services().logger->info0(QStringLiteral("hello"));
        QCOMPARE(journal->take(), QStringList{QStringLiteral("info: hello")});
    }
    QVERIFY(!journal);
}

void tst_Host::takesAnOwnLoaderIn()
{
    auto *loader = new OwnLoader;
    ZHost host({}, {loader});
    host.services().loader->load0(QStringLiteral("early"));
    host.begin();
    QVERIFY(loader->scheduler);
    host.services().loader->load0(QStringLiteral("late"));
    QCOMPARE(loader->asked, QStringList{QStringLiteral("late")});
}

void tst_Host::loadsWhenItBegins()
{
    const Folder folder;
    QVERIFY(folder.drop(QStringLiteral("greeter")));
    ZHost host(configurationOf(folder, {QStringLiteral("greeter")}));
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libgreeter.so"))));
    host.services().emitter->bind0(QSharedPointer<GreeterDelegate>::create(QSharedPointer<QObject>()));
    Guest guest;
    QCOMPARE(host.inject(&guest), &guest);
    QCOMPARE(guest.greeter->greet(QStringLiteral("Ann")), QStringLiteral("nobody"));
    host.begin();
    QCOMPARE(guest.greeter->greet(QStringLiteral("Ann")), QStringLiteral("1: hello, Ann"));
}

void tst_Host::deletesWhatServesNothing()
{
    const QPointer<QObject> useless = new QObject;
    const QPointer<QObject> first = new Deletable, second = new Deletable;
    const QPointer<QObject> early = new OwnLoader;
    {
        ZHost host({}, {useless, first, second, early});
        QVERIFY(!useless && first && !second && early);
        QCOMPARE(messages().take(QtWarningMsg),
                 (QStringList{QStringLiteral("QObject serves none of the services, or one that another serves"),
                              QStringLiteral("Deletable serves none of the services, or one that another serves")}));
    }
    QVERIFY(!first && !early); // which has not had its turn
}

void tst_Host::ignoresNullsAmongItsOwn()
{
    const QPointer<Journal> journal = new Journal;
    ZHost host({}, {nullptr, journal, nullptr});
    journal->take();
    host.services().logger->info0(QStringLiteral("hello"));
    QCOMPARE(journal->take(), QStringList{QStringLiteral("info: hello")});
}

void tst_Host::goesOnWithoutOneThatDeletesItself()
{
    const QPointer<QObject> unruly = new Unruly([](QObject *self, ZEmitter *) { delete self; });
    const QJsonObject configuration{{QStringLiteral("any"), 1}};
    ZHost host(configuration, {unruly});
    QVERIFY(!unruly);
    QCOMPARE(host.services().config->toJson0(), QJsonObject()); // nobody serves it
    QVERIFY(host.services().dbus->find0(QUrl(QStringLiteral("//zscheduler"))));
}

void tst_Host::takesOneInThatBindsABareDelegate()
{
    const QPointer<QObject> unruly =
        new Unruly([](QObject *, ZEmitter *emitter) { emitter->bind0(QSharedPointer<Bare>::create()); });
    {
        const ZHost host({}, {unruly});
        QVERIFY(unruly);
    }
    QVERIFY(!unruly);
}

void tst_Host::goesOnWithoutARegistry()
{
    ZHost host({}, {new NoThreads});
    QVERIFY(host.registries().isEmpty());
    QVERIFY(!host.services().scheduler->schedule0(QSharedPointer<ZFunctionActivity>::create(
        QSharedPointer<ZPeriodicSchedule>::create(1), QString(), QSharedPointer<QObject>(), [] { return false; })));
    QCOMPARE(host.stop(), QStringList());
}

void tst_Host::leavesNothingOfOnesThatThrow_data()
{
    QTest::addColumn<bool>("hasAnnouncedItself");
    QTest::newRow("that has announced itself") << true;
    QTest::newRow("that has not") << false;
}

void tst_Host::leavesNothingOfOnesThatThrow()
{
    QFETCH(bool, hasAnnouncedItself);
    const QPointer<QObject> journal = new Journal, loader = new OwnLoader;
    const QPointer<QObject> thrower =
        hasAnnouncedItself ? static_cast<QObject *>(new Throwing)
                           : new Unruly([](QObject *, ZEmitter *) { throw std::runtime_error("throws"); });
    QVERIFY_EXCEPTION_THROWN(ZHost({}, {journal, thrower, loader}), std::runtime_error);
    QVERIFY(!journal && !thrower && !loader);
}

void tst_Host::bindsNoNull()
{
    const QPointer<QObject> journal = new Journal;
    {
        ZHost host({}, {journal});
        QVERIFY(!host.services().emitter->bind0({}));
        QVERIFY(journal);
    }
    QVERIFY(!journal);
}

void tst_Host::endsWithAllThatItHolds_data()
{
    QTest::addColumn<bool>("quits");
    QTest::newRow("when the application has quit") << true;
    QTest::newRow("of an application that has no event loop") << false;
}

/// A plugin that holds itself, and uses the services as it dies.
void tst_Host::endsWithAllThatItHolds()
{
    QFETCH(bool, quits);
    const Folder folder;
    QVERIFY(folder.drop(QStringLiteral("handed.1")));
    {
        ZHost host(configurationOf(folder, {QStringLiteral("handed.1")}));
        host.begin();
        QVERIFY(isMapped(folder.filePath(QStringLiteral("libhanded.1.so"))));
        if (quits) {
            QTimer::singleShot(0, qApp, &QCoreApplication::quit);
            QCoreApplication::exec();
        }
    }
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libhanded.1.so"))));
    messages().takeAll();
}

/// Of the same URL, each on its own bus.
void tst_Host::leavesTheEndpointsOfAnotherAlone()
{
    const Folder folder, othersFolder;
    QVERIFY(folder.drop(QStringLiteral("handed.1")) && othersFolder.drop(QStringLiteral("heir")));
    const auto version = [](const ZHost &host) {
        QJsonObject out;
        host.services().dbus->invoke0(QUrl(QStringLiteral("//handed/read")), nullptr, &out);
        return out.value(QStringLiteral("version")).toInt();
    };
    ZHost other(configurationOf(othersFolder, {QStringLiteral("heir")}));
    other.begin();
    {
        ZHost host(configurationOf(folder, {QStringLiteral("handed.1")}));
        host.begin();
        QCOMPARE(version(host), 1);
        QCOMPARE(version(other), 9);
    }
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libhanded.1.so"))));
    QCOMPARE(version(other), 9);
    messages().takeAll();
}

void tst_Host::waitsForWhatRuns_data() { addStarters(); }

void tst_Host::waitsForWhatRuns()
{
    QFETCH(Starter, start);
    const Folder folder;
    QVERIFY(folder.drop(QStringLiteral("handed.1")) && folder.drop(QStringLiteral("handed.2")));
    const auto work = SharedWork::create();
    {
        ZHost host(configurationOf(folder));
        host.begin();
        start(host, work);
        work->begun.acquire();
        QTimer::singleShot(0, qApp, [&] { work->end.release(); }); // which it handles
    }
    QVERIFY(work->ended.tryAcquire());
    QCOMPARE(messages().take(QtWarningMsg).filter(QStringLiteral("left running")), QStringList());
    messages().takeAll();
}

void tst_Host::namesWhatDoesNotEnd_data() { addStarters(); }

void tst_Host::namesWhatDoesNotEnd()
{
    QFETCH(Starter, start);
    QFETCH(QString, name);
    const Folder folder;
    QVERIFY(folder.drop(QStringLiteral("handed.1")) && folder.drop(QStringLiteral("handed.2")));
    const auto work = SharedWork::create();
    ZDbus *dbus = nullptr;
    {
        ZHost host(configurationOf(folder));
        host.begin();
        dbus = host.services().dbus;
        start(host, work);
        work->begun.acquire();
    }
    QCOMPARE(messages().take(QtWarningMsg).filter(QStringLiteral("left running")),
             QStringList{QStringLiteral("left running: ") + name});
    work->end.release(); // and what it uses is still there
    work->ended.acquire();
    dbus->invoke0(QUrl(QStringLiteral("//handed/release")), nullptr, nullptr);
    QTRY_COMPARE(mappedPlugins(), QStringList());
    messages().takeAll();
}

void tst_Host::schedulesNothingOnceItHasStopped()
{
    ZHost host;
    QCOMPARE(host.stop(), QStringList());
    QVERIFY(!host.services().scheduler->schedule0(QSharedPointer<ZFunctionActivity>::create(
        QSharedPointer<ZPeriodicSchedule>::create(1), QString(), QSharedPointer<QObject>(), [] { return false; })));
}

void tst_Host::beginsNoCallOnceItHasStopped()
{
    ZHost host;
    Caller caller;
    host.inject(&caller);
    QVERIFY(caller.async->begin0(QUrl(QStringLiteral("//any")), {}, {}) > 0);
    QCOMPARE(host.stop(), QStringList());
    QCOMPARE(caller.async->begin0(QUrl(QStringLiteral("//any")), {}, {}), qint64(0));
}

QTEST_GUILESS_MAIN(tst_Host)
#include "tst_host.moc"
