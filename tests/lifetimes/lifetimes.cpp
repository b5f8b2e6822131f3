// SPDX-License-Identifier: Apache-2.0
// A program in which components and plugins come and go: lifetimes LIFE DEPLOYED HOT-DEPLOY. It tells on stderr what
// happens.
#include "hooks.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QThread>
#include <QTimer>

#include <zdefaultconfig.h>
#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultfilesystem.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>
#include <zjobpool.h>
#include <zlibrary.h>
#include <zobject.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <thread>

#include <dlfcn.h>

namespace {

QString deployed, hotDeploy;

void tell(const char *text) { std::fprintf(stderr, "%s\n", text); }

/// The text alone of a line, be it tagged or not; of the tagged ones, those that tell of files.
void write(QtMsgType, const QMessageLogContext &, const QString &message)
{
    const QString tag = QStringLiteral("[zdefault] [1] ");
    const int tagged = message.indexOf(tag);
    tell(qPrintable(tagged < 0 ? message : message.mid(tagged + tag.size())));
}

/// All services over the two folders, and pointers to those that the program uses.
class System : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZLoader *loader MEMBER loader)
    Q_PROPERTY(ZLogger *logger MEMBER logger)
    Q_PROPERTY(ZTempFile *tempFiles MEMBER tempFiles)
    Q_PROPERTY(ZDbus *dbus MEMBER dbus)
    Q_PROPERTY(ZContext *context MEMBER context)
    Q_PROPERTY(ZScheduler *scheduler MEMBER scheduler)
    Q_PROPERTY(ZJobPoolSet *jobPools MEMBER jobPools)
    Q_PROPERTY(ZThreadPoolSet *threadPools MEMBER threadPools)

public:
    explicit System(const QStringList &loadList = {}) : emitter(QSharedPointer<ZDefaultEmitter>::create())
    {
        const QJsonObject loaderSection{{QStringLiteral("deployed"), deployed},
                                        {QStringLiteral("hot-deploy"), hotDeploy},
                                        {QStringLiteral("load-list"), QJsonArray::fromStringList(loadList)}};
        const QJsonObject loggerSection{{QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 1}}}};
        emitter->install(emitter);
        emitter->zemit0(ZDefaultConfig::TypeName,
                        Q_ARG(QJsonObject, (QJsonObject{{QStringLiteral("loader"), loaderSection},
                                                        {QStringLiteral("logger"), loggerSection}})));
        for (const char *const service :
             {ZDefaultLogger::TypeName, ZDefaultTempFile::TypeName, ZDefaultJobPoolSet::TypeName,
              ZDefaultThreadPoolSet::TypeName, ZDefaultDbus::TypeName, ZDefaultContext::TypeName,
              ZDefaultScheduler::TypeName, ZDefaultLoader::TypeName})
            emitter->zemit0(service);
        emitter->inject0(this);
    }
    ~System() override { letGo(); }

    void letGo()
    {
        if (emitter)
            emitter->install({});
        emitter.clear();
    }

    QSharedPointer<ZDefaultEmitter> emitter;
    ZLoader *loader = nullptr;
    ZLogger *logger = nullptr;
    ZTempFile *tempFiles = nullptr;
    ZDbus *dbus = nullptr;
    ZContext *context = nullptr;
    ZScheduler *scheduler = nullptr;
    ZJobPoolSet *jobPools = nullptr;
    ZThreadPoolSet *threadPools = nullptr;
};

bool isMapped(const QString &file)
{
    void *handle = dlopen(QFile::encodeName(deployed + QLatin1Char('/') + file).constData(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle)
        dlclose(handle);
    return handle;
}

/// Runs the event loop until `isDone`. The program that waits for this one tells when that takes too long.
template <class Condition>
void runUntil(Condition isDone)
{
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, qApp, [&] {
        if (isDone())
            QCoreApplication::quit();
    });
    poll.start(1);
    QCoreApplication::exec();
}

void runUntilGone(const QString &file)
{
    runUntil([&] { return !isMapped(file); });
}

void runUntilMortalIsGone() { runUntilGone(QStringLiteral("libmortal.so")); }

/// Runs `deed` on a thread without an event loop, while that of this thread runs.
void runBeside(const std::function<void()> &deed)
{
    QAtomicInt isDone = 0;
    std::thread other([&] {
        deed();
        isDone.storeRelease(1);
    });
    runUntil([&] { return isDone.loadAcquire() == 1; });
    other.join();
}

/// A component of the application's that tells of its end.
class Component : public QObject, public ZOwned
{
    Q_OBJECT

public:
    ~Component() override { tell(thread() == QThread::currentThread() ? "ends at home" : "ends elsewhere"); }

    QTimer timer{this};
};

// What a root posts for deletion.

void deletionsOfARootThatNobodyOwns()
{
    Hooks hooks;
    hooks.chain = 3;
    System system;
    system.loader->load0(QStringLiteral("mortal"));
    runUntilMortalIsGone();
}

void deletionsWithoutAnEventLoop() // but for a program that handles events by hand
{
    Hooks hooks;
    hooks.chain = 3;
    System system;
    system.loader->load0(QStringLiteral("mortal"));
    while (isMapped(QStringLiteral("libmortal.so")))
        QCoreApplication::processEvents();
}

void longChainOfDeletions()
{
    Hooks hooks;
    hooks.chain = 60;
    System system;
    system.loader->load0(QStringLiteral("mortal"));
    runUntilMortalIsGone();
}

void deletionsOfASharedRoot()
{
    Hooks hooks;
    hooks.chain = 3;
    System system;
    QSharedPointer<ZLibrary> library = system.loader->load0(QStringLiteral("libmortal.1"));
    QSharedPointer<QObject> share = QSharedPointer<ZObject>(*library)->shared();
    library.clear();
    share.clear(); // outside all events
    while (isMapped(QStringLiteral("libmortal.1.so")))
        QCoreApplication::processEvents();
}

void deletionsOfAServiceThatIsReplaced()
{
    Hooks hooks;
    hooks.ticks = true;
    hooks.chain = 3;
    hooks.serves = true;
    System system;
    system.loader->load0(QStringLiteral("mortal"));
    QTimer::singleShot(0, [&] { system.emitter->zemit0(ZDefaultTempFile::TypeName); });
    runUntilMortalIsGone();
}

void deletionsOnAnotherThread()
{
    Hooks hooks;
    hooks.chain = 3;
    QObject onMain;
    hooks.chainHome = &onMain;
    System system;
    QSharedPointer<ZLibrary> library = system.loader->load0(QStringLiteral("libmortal.1"));
    QSharedPointer<ZObject> root = *library;
    runBeside([&] { // the pointer of the library's ends its root at once
        root.clear();
        library.clear();
    });
    runUntilGone(QStringLiteral("libmortal.1.so"));
}

void deletionsOnAnotherEventLoop()
{
    Hooks hooks;
    System system;
    QThread thread;
    QObject onThread;
    onThread.moveToThread(&thread);
    thread.start();
    QSharedPointer<ZLibrary> library = system.loader->load0(QStringLiteral("libmortal.1"));
    QSharedPointer<ZObject> root = *library;
    runUntilMortalIsGone(); // the plain one, which must not post to that thread
    hooks.chain = 3;
    hooks.chainHome = &onThread;
    QTimer::singleShot(0, &onThread, [&] {
        root.clear();
        library.clear();
    });
    runUntilGone(QStringLiteral("libmortal.1.so"));
    thread.quit();
    thread.wait();
}

void deletionsInANestedEventLoop()
{
    Hooks hooks;
    hooks.chain = 3;
    System system;
    QTimer::singleShot(0, [&] {
        system.loader->load0(QStringLiteral("mortal"));
        QEventLoop nested;
        QTimer::singleShot(50, &nested, &QEventLoop::quit);
        nested.exec();
        tell("the nested loop ends");
    });
    runUntil([&, wasThere = false]() mutable {
        wasThere |= isMapped(QStringLiteral("libmortal.so"));
        return wasThere && !isMapped(QStringLiteral("libmortal.so"));
    });
}

void singleShotsOfARootThatHasGone()
{
    Hooks hooks;
    hooks.shoots = true;
    System system;
    system.loader->load0(QStringLiteral("mortal"));
    QTimer::singleShot(100, qApp, [] { tell("the program shoots"); });
    QTimer quitter;
    QTimer::singleShot(150, &quitter, SLOT(start())); // by name
    runUntilMortalIsGone();
    QObject::connect(&quitter, &QTimer::timeout, qApp, &QCoreApplication::quit);
    QCoreApplication::exec();
    tell("the time is up");
}

void deletionsInTheOrderOfAnEnd() // as docs/reliability.md has it
{
    Hooks hooks;
    hooks.chain = 3;
    System system;
    QSharedPointer<ZLibrary> library = system.loader->load0(QStringLiteral("libmortal.1"));
    QSharedPointer<QObject> share = QSharedPointer<ZObject>(*library)->shared();
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    QCoreApplication::exec();
    share.clear();
    library.clear();
    system.letGo();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    tell("the end");
}

void deletionsAsTheProgramQuits()
{
    Hooks hooks;
    hooks.ticks = true;
    hooks.chain = 3;
    hooks.holdsItself = true;
    System system;
    system.loader->load0(QStringLiteral("mortal"));
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    QCoreApplication::exec();
    tell("the event loop has ended");
}

// Where a component ends.

void serviceIsLetGoByACallOnAnotherThread()
{
    Hooks hooks;
    hooks.ticks = true;
    hooks.serves = true;
    System system;
    system.loader->load0(QStringLiteral("mortal"));
    QSemaphore called, replaced;
    hooks.job = [] {};
    auto delegate = dynamic_cast<ZDelegate *>(system.tempFiles);
    std::thread caller([&] {
        QSharedPointer<ZReference> held = *delegate; // as a call does
        called.release();
        replaced.acquire();
        held.clear();
    });
    called.acquire();
    system.emitter->zemit0(ZDefaultTempFile::TypeName);
    replaced.release();
    caller.join();
    tell("nobody holds it");
    runUntilMortalIsGone();
}

void componentThatIsSharedEndsAtHome()
{
    QSharedPointer<QObject> share = (new Component)->shared();
    runBeside([&] { share.clear(); });
    QCoreApplication::processEvents();
}

void componentWithoutAnEventLoopAtHomeEndsWhereItIsLetGo()
{
    QSharedPointer<QObject> share;
    std::thread([&] { share = (new Component)->shared(); }).join();
    share.clear();
}

void componentWhoseThreadHasEndedEndsWhereItIsLetGo()
{
    auto thread = std::make_unique<QThread>();
    thread->start();
    auto *first = new Component;
    auto *second = new Component;
    first->moveToThread(thread.get());
    second->moveToThread(thread.get());
    QSharedPointer<QObject> firstShare = first->shared(), secondShare = second->shared();
    thread->quit();
    thread->wait();
    firstShare.clear();
    thread.reset();
    secondShare.clear();
}

void componentEndsWithTheThreadItLivesOn()
{
    QThread thread;
    thread.start();
    auto *component = new Component;
    component->moveToThread(&thread);
    QSharedPointer<QObject> share = component->shared();
    QSemaphore go, isWaiting;
    QTimer::singleShot(0, component, [&] {
        isWaiting.release();
        go.acquire();
    });
    isWaiting.acquire();
    share.clear();
    thread.quit();
    go.release();
    thread.wait();
}

void rootEndsWithTheThreadItLivesOn()
{
    Hooks hooks;
    System system;
    QThread thread;
    thread.start();
    QObject onThread;
    onThread.moveToThread(&thread);
    const QSharedPointer<ZLibrary> library = system.loader->load0(QStringLiteral("libmortal.1"));
    QSharedPointer<ZObject> root = *library;
    runUntilMortalIsGone();
    root->moveToThread(&thread);
    QSharedPointer<QObject> share = root->shared();
    root.clear();
    QSemaphore isWaiting, go;
    QTimer::singleShot(0, &onThread, [&] {
        isWaiting.release();
        go.acquire();
    });
    isWaiting.acquire();
    share.clear();
    thread.quit();
    go.release();
    thread.wait();
}

void rootLivesWhereTheLoaderDoes()
{
    Hooks hooks;
    hooks.holdsItself = true;
    System system;
    std::thread([&] { system.loader->load0(QStringLiteral("mortal")); }).join();
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    QCoreApplication::exec();
    tell("the event loop has ended");
}

void oneCountForAllShares()
{
    Hooks hooks;
    System system;
    const QSharedPointer<ZLibrary> library = system.loader->load0(QStringLiteral("libmortal.1"));
    const QSharedPointer<ZObject> root = *library;
    const QSharedPointer<QObject> share = root->shared();
    const QWeakPointer<QObject> weak = root->shared();
    tell(weak ? "alive" : "dead");
}

// Under one's own stack.

void loaderIsReplacedByWhatItLoads(const std::function<void(System &)> &load)
{
    Hooks hooks;
    System system;
    hooks.written = [&] {
        hooks.written = {};
        system.emitter->bind0(QSharedPointer<ZLoaderDelegate>::create(QSharedPointer<QObject>()));
        tell("the loader is replaced");
    };
    load(system);
    tell(system.loader->load0(QStringLiteral("mortal")) ? "still there" : "gone");
}

void loaderIsReplacedByWhatItsListNames()
{
    Hooks hooks;
    QPointer<QObject> before;
    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    hooks.written = [&] {
        hooks.written = {};
        emitter->bind0(QSharedPointer<ZLoaderDelegate>::create(QSharedPointer<QObject>()));
        tell(before ? "the loader is replaced" : "the loader is gone");
    };
    emitter->install(emitter);
    const QJsonObject section{
        {QStringLiteral("deployed"), deployed},
        {QStringLiteral("load-list"), QJsonArray{QStringLiteral("mortal"), QStringLiteral("other.1")}}};
    emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, (QJsonObject{{QStringLiteral("loader"), section}})));
    emitter->zemit0(ZDefaultLogger::TypeName);
    auto *loader = new ZDefaultLoader;
    before = loader;
    emitter->inject0(loader);
    tell(before ? "alive" : "its list is loaded");
    emitter->install({});
}

void loaderIsReplacedByWhatItIsAskedFor()
{
    loaderIsReplacedByWhatItLoads([](System &system) { system.loader->load0(QStringLiteral("mortal")); });
}

void loaderIsReplacedByWhatIsDropped()
{
    loaderIsReplacedByWhatItLoads([](System &) {
        QFile::rename(deployed + QStringLiteral("/libmortal.so"), deployed + QStringLiteral("/aside"));
        QFile::rename(deployed + QStringLiteral("/libmortal.1.so"), deployed + QStringLiteral("/aside.1"));
        QFile::rename(deployed + QStringLiteral("/aside"), hotDeploy + QStringLiteral("/libmortal.so"));
        runUntil([] { return QFileInfo::exists(deployed + QStringLiteral("/libmortal.so")); });
    });
}

void emitterIsReplacedByWhatItInjects()
{
    Hooks hooks;
    System system;
    QPointer<QObject> before = system.emitter.data();
    hooks.written = [&] {
        hooks.written = {};
        auto next = QSharedPointer<ZDefaultEmitter>::create();
        before->property("x");
        system.emitter->install(next);
        system.emitter.clear(); // nobody holds it any more, but for what it does
        tell(before ? "alive" : "dead");
    };
    system.loader->load0(QStringLiteral("libmortal.1"));
    tell(before ? "left over" : "gone");
}

void loggerIsReplacedByWhatReadsItsLines()
{
    System system;
    static System *all = &system;
    static bool isFirst = true;
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &text) {
        tell(qPrintable(text));
        if (std::exchange(isFirst, false))
            all->emitter->zemit0(ZDefaultLogger::TypeName);
    });
    system.logger->warning0(QStringLiteral("one"));
    system.logger->warning0(QStringLiteral("two"));
    qInstallMessageHandler(write);
}

struct Revenge
{
    static System *system;
    ~Revenge()
    {
        if (system)
            std::exchange(system, nullptr)->emitter->zemit0(ZDefaultContext::TypeName);
    }
};
System *Revenge::system = nullptr;

} // namespace

Q_DECLARE_METATYPE(QSharedPointer<Revenge>)

namespace {

void contextIsReplacedByAValueThatItDrops()
{
    System system;
    QVariant first = QVariant::fromValue(QSharedPointer<Revenge>::create());
    system.context->save0(first);
    first.clear();
    QVariant second = QVariant::fromValue(QSharedPointer<Revenge>());
    Revenge::system = &system;
    system.context->save0(second);
    tell(Revenge::system ? "not dropped" : "dropped");
}

void busIsReplacedByWhatItCalls()
{
    struct Endpoint : ZDbusSubscriber
    {
        System *system = nullptr;
        bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override
        {
            system->emitter->zemit0(ZDefaultDbus::TypeName);
            return true;
        }
    };
    System system;
    const auto endpoint = QSharedPointer<Endpoint>::create();
    endpoint->system = &system;
    system.dbus->bind0(QUrl(QStringLiteral("//endpoint")), endpoint);
    tell(system.dbus->invoke0(QUrl(QStringLiteral("//endpoint")), nullptr, nullptr) ? "handled" : "not handled");
    tell(system.dbus->find0(QUrl(QStringLiteral("//endpoint"))) ? "the same bus" : "another bus");
}

void jobPoolsAreReplacedUnderAJobThatAsksForOne()
{
    struct Job : ZJob
    {
        explicit Job(std::function<void()> deed) : ZJob({}, {}), m_deed(std::move(deed)) {}
        void run() override { m_deed(); }
        const std::function<void()> m_deed;
    };
    System system;
    auto *delegate = dynamic_cast<ZDelegate *>(system.jobPools);
    QSemaphore asked, replaced, done;
    auto *job = new Job([&] {
        QSharedPointer<ZReference> held = *delegate; // as a call does
        asked.release();
        replaced.acquire();
        held.clear();
        done.release();
    });
    system.jobPools->find0(QStringLiteral("mine"), 1, 0)->start(QSharedPointer<ZJob>(job, [](ZJob *) {}), false, 0);
    asked.acquire();
    system.emitter->zemit0(ZDefaultJobPoolSet::TypeName);
    replaced.release();
    done.acquire();
    QCoreApplication::processEvents();
    tell("done");
}

void threadPoolsAreReplacedUnderAnActivity()
{
    struct Activity : ZScheduledActivity
    {
        explicit Activity(std::function<void()> deed)
            : ZScheduledActivity(QSharedPointer<ZPeriodicSchedule>::create(1)), m_deed(std::move(deed))
        {}
        bool run() override
        {
            m_deed();
            return false;
        }
        const std::function<void()> m_deed;
    };
    System system;
    auto *delegate = dynamic_cast<ZDelegate *>(system.threadPools);
    QSemaphore asked, replaced, done;
    system.scheduler->schedule0(QSharedPointer<Activity>::create([&] {
        QSharedPointer<ZReference> held = *delegate; // as a call does
        asked.release();
        replaced.acquire();
        held.clear();
        done.release();
    }));
    asked.acquire();
    system.emitter->zemit0(ZDefaultThreadPoolSet::TypeName);
    replaced.release();
    done.acquire();
    QCoreApplication::processEvents();
    tell("done");
}

void pluginsAreDroppedWhileOneIsLoaded()
{
    Hooks hooks;
    const QTemporaryDir aside;
    const auto moveBoth = [](const QString &from, const QString &to) {
        for (const char *name : {"/libmortal.so", "/libother.1.so"})
            QFile::rename(from + QLatin1String(name), to + QLatin1String(name));
    };
    moveBoth(deployed, aside.path());
    hooks.constructed = [&] {
        hooks.constructed = {};
        QFile(hotDeploy + QStringLiteral("/note")).open(QIODevice::WriteOnly); // the folder is looked at again
        QEventLoop nested;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &nested, [&] {
            if (QFileInfo::exists(deployed + QStringLiteral("/libother.1.so")))
                nested.quit();
        });
        poll.start(1);
        nested.exec();
    };
    System system;
    QTimer::singleShot(0, [&] { moveBoth(aside.path(), hotDeploy); });
    runUntil([] { return QFileInfo::exists(deployed + QStringLiteral("/libmortal.so")); });
    runUntilMortalIsGone();
}

void oneOfTwoLibrariesOfARootGoes()
{
    Hooks hooks;
    System system;
    const QSharedPointer<ZLibrary> first = system.loader->load0(QStringLiteral("libmortal.1"));
    QSharedPointer<ZLibrary> second = system.loader->load0(QStringLiteral("mortal.1"));
    const QSharedPointer<ZObject> root = *first;
    tell(second && second != first ? "two" : "one");
    second.clear();
    tell(root->shared() ? "shared" : "null");
}

void schedulerIsReplacedByItsOwnCommand()
{
    System system;
    system.dbus->invoke0(QUrl(QStringLiteral("//zscheduler/shutdown")), nullptr, nullptr);
    tell(system.scheduler->schedule0(QSharedPointer<ZDbusActivity>::create(
             QSharedPointer<ZPeriodicSchedule>::create(1), system.dbus, QUrl(QStringLiteral("//nobody")), false))
             ? "scheduled"
             : "withdrawn");
}

// Locks.

void rootEndsWhileAnotherThreadLoads()
{
    Hooks hooks;
    System system;
    QSemaphore ending, loaded;
    hooks.ending = [&](QObject *root) {
        hooks.ending = {};
        ending.release();
        loaded.acquire(); // each waits for what the other does
        system.emitter->inject0(root);
    };
    system.loader->load0(QStringLiteral("mortal"));
    std::thread other([&] {
        ending.acquire();
        for (const char *name : {"mortal", "mortal.7", "other.1"})
            system.loader->load0(QLatin1String(name));
        loaded.release();
    });
    runUntilMortalIsGone();
    other.join();
}

void rootAsksForItselfAsItEnds()
{
    Hooks hooks;
    System system;
    hooks.ending = [&](QObject *) {
        hooks.ending = {};
        for (const char *name : {"mortal", "libmortal.1"})
            tell(system.loader->load0(QLatin1String(name)) ? "a library" : "null");
    };
    QFile::remove(deployed + QStringLiteral("/libmortal.so"));
    system.loader->load0(QStringLiteral("libmortal.1"));
    runUntilGone(QStringLiteral("libmortal.1.so"));
}

/// Has an event loop run on this thread, while a root that it would destroy wires on another thread as it ends.
void loopWhileARootIsToEnd(System &system, Hooks &hooks,
                           const std::function<void(const std::function<void()> &)> &within)
{
    hooks.ending = [&](QObject *) {
        std::thread([&] {
            system.emitter->zemit0(ZDefaultContext::TypeName);
            system.dbus->find0(QUrl(QStringLiteral("//endpoint")));
        }).join();
    };
    system.loader->load0(QStringLiteral("mortal"));
    within([] {
        QEventLoop nested;
        QTimer::singleShot(100, &nested, &QEventLoop::quit);
        nested.exec();
        tell("the nested loop ends");
    });
    for (const char *const file : {"libmortal.so", "libmortal.1.so", "libanother.so"}) // each has such a root
        runUntilGone(QLatin1String(file));
}

void writerRunsAnEventLoop()
{
    Hooks hooks;
    System system;
    loopWhileARootIsToEnd(system, hooks, [&](const std::function<void()> &loop) {
        hooks.written = loop;
        QFile::copy(deployed + QStringLiteral("/libmortal.so"), deployed + QStringLiteral("/libanother.so"));
        const QSharedPointer<ZLibrary> another = system.loader->load0(QStringLiteral("another"));
        hooks.written = {};
    });
}

void broadcastRunsAnEventLoop()
{
    struct Endpoint : ZDbusSubscriber
    {
        std::function<void()> loop;
        bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override
        {
            loop();
            return true;
        }
    };
    Hooks hooks;
    System system;
    const auto endpoint = QSharedPointer<Endpoint>::create();
    system.dbus->bind0(QUrl(QStringLiteral("//endpoint")), endpoint);
    loopWhileARootIsToEnd(system, hooks, [&](const std::function<void()> &loop) {
        endpoint->loop = loop;
        system.dbus->invoke0(QUrl(QStringLiteral("/all#quiet")), nullptr, nullptr);
    });
}

void constructorAsksForItsOwnFile()
{
    Hooks hooks;
    System system;
    hooks.constructed = [&] {
        hooks.constructed = {};
        tell(system.loader->load0(QStringLiteral("mortal.1")) ? "a library" : "null");
    };
    QFile::remove(deployed + QStringLiteral("/libmortal.so"));
    system.loader->load0(QStringLiteral("libmortal.1"));
    runUntilGone(QStringLiteral("libmortal.1.so"));
}

void serviceIsReplacedUnderAJobOfItsOwn()
{
    Hooks hooks;
    hooks.serves = true;
    System system;
    QSemaphore running, replacing;
    hooks.job = [&] {
        running.release();
        replacing.acquire();
        system.loader->load0(QStringLiteral("other.1"));
        system.emitter->zemit0(ZDefaultContext::TypeName);
        tell("the job ends");
    };
    system.loader->load0(QStringLiteral("mortal"));
    system.tempFiles->newFile0();
    running.acquire();
    QTimer::singleShot(0, [&] {
        replacing.release();
        system.emitter->zemit0(ZDefaultTempFile::TypeName);
        tell("replaced");
    });
    runUntilMortalIsGone();
}

void serviceIsReplacedByItsNextVersionUnderAJobOfItsOwn()
{
    Hooks hooks;
    hooks.serves = true;
    QFile::rename(deployed + QStringLiteral("/libmortal.1.so"), hotDeploy + QStringLiteral("/aside"));
    System system;
    QSemaphore running, replacing;
    hooks.job = [&] {
        running.release();
        replacing.acquire();
        system.loader->load0(QStringLiteral("mortal.9")); // of the very set that loads
        tell("the job ends");
    };
    system.loader->load0(QStringLiteral("mortal"));
    system.tempFiles->newFile0();
    running.acquire();
    hooks.written = [&] { replacing.release(); };
    QTimer::singleShot(
        0, [&] { QFile::rename(hotDeploy + QStringLiteral("/aside"), hotDeploy + QStringLiteral("/libmortal.1.so")); });
    runUntilMortalIsGone();
}

void constructorWaitsForThoseWhoWireAndLoad()
{
    Hooks hooks;
    System system;
    hooks.constructed = [&] {
        hooks.constructed = {};
        std::thread([&] {
            system.emitter->zemit0(ZDefaultContext::TypeName);
            system.loader->load0(QStringLiteral("other.1"));
            system.loader->loaded0(QStringLiteral("mortal"));
        }).join();
        tell("the thread has ended");
    };
    system.loader->load0(QStringLiteral("mortal"));
    runUntilMortalIsGone();
}

void onesLoadedByEachOther() // one within an injection, the other not
{
    Hooks hooks;
    System system;
    QSemaphore constructing, injecting;
    hooks.constructed = [&] {
        hooks.constructed = {};
        constructing.release();
        injecting.acquire(); // somebody has the emitter, and wants what is being loaded here
    };
    QSharedPointer<ZLibrary> within;
    std::thread other([&] {
        constructing.acquire();
        system.emitter->zemit0(ZDefaultContext::TypeName);
        injecting.release();
        within = system.loader->load0(QStringLiteral("libmortal.1"));
    });
    const QSharedPointer<ZLibrary> library = system.loader->load0(QStringLiteral("libmortal.1"));
    other.join();
    tell(library && library == within ? "the same" : "not the same");
}

// What is thrown.

void throwing(std::function<void()> &where, const std::function<void()> &deed)
{
    System system;
    where = deed;
    const auto load = [&](const char *name) { tell(system.loader->load0(QLatin1String(name)) ? "loaded" : "null"); };
    load("mortal.1");
    where = {};
    load("mortal.1");
}

void constructorThrows()
{
    Hooks hooks;
    throwing(hooks.constructed, [] { throw std::runtime_error("no licence"); });
}

void writerThrows()
{
    Hooks hooks;
    throwing(hooks.written, [] { throw std::runtime_error("no database"); });
}

void writerThrowsANumber()
{
    Hooks hooks;
    throwing(hooks.written, [] { throw 5; });
}

void writerThrowsWithoutAWord()
{
    Hooks hooks;
    throwing(hooks.written, [] { throw std::runtime_error(std::string()); });
}

void droppedOneThrows()
{
    Hooks hooks;
    hooks.written = [] { throw std::runtime_error("no database"); };
    QFile::rename(deployed + QStringLiteral("/libmortal.1.so"), deployed + QStringLiteral("/aside"));
    QFile::rename(deployed + QStringLiteral("/libmortal.so"), hotDeploy + QStringLiteral("/aside"));
    System system;
    QTimer::singleShot(
        0, [&] { QFile::rename(hotDeploy + QStringLiteral("/aside"), hotDeploy + QStringLiteral("/libmortal.so")); });
    runUntil([] { return QFileInfo::exists(deployed + QStringLiteral("/libmortal.so")); });
    runUntilMortalIsGone();
}

/// Has everything to say, and says it by throwing.
class Thrower : public ZDefaultLogger
{
public:
    void warning0(const QString &) override { throw std::runtime_error("no room"); }
    bool warning0() override { return true; }
    void log0(int, int, const QString &) override { throw std::runtime_error("no room"); }
    int log0(int) override { return 0xff; }
    int log0(const QString &) override
    {
        if (m_isSetUp)
            throw std::runtime_error("no room");
        return 0;
    }

    bool m_isSetUp = false;
};

void loggerThrows()
{
    Hooks hooks;
    System system;
    auto *thrower = new Thrower;
    system.emitter->bind0(QSharedPointer<ZLoggerDelegate>::create(static_cast<QObject *>(thrower)));
    auto *loader = new ZDefaultLoader;
    system.emitter->inject0(loader);
    thrower->m_isSetUp = true;
    tell(system.loader->load0(QStringLiteral("libmortal.1")) ? "loaded" : "null");
    tell(system.loader->load0(QStringLiteral("absent")) ? "loaded" : "null");
    QMetaObject::invokeMethod(loader, "directoryChangedSlot", Q_ARG(QString, hotDeploy));
    runUntilGone(QStringLiteral("libmortal.1.so"));
    tell("gone");
}

// Sets, and what stays.

void loaderIsLetGoWhileItsFilesAreUnloaded()
{
    Hooks hooks;
    System system;
    QSemaphore ending, gone;
    hooks.ending = [&](QObject *) {
        hooks.ending = {};
        ending.release();
        gone.acquire();
    };
    system.loader->load0(QStringLiteral("mortal"));
    QSharedPointer<ZReference> before =
        system.emitter->bind0(QSharedPointer<ZLoaderDelegate>::create(QSharedPointer<QObject>()));
    std::thread other([&] {
        ending.acquire();
        before.clear();
        tell("the loader is gone");
        gone.release();
    });
    runUntilMortalIsGone();
    other.join();
}

void fileThatStaysIsSaidToStay(const char *plugin)
{
    System system;
    system.loader->load0(QLatin1String(plugin));
    for (int i = 0; i < 20; ++i)
        QCoreApplication::processEvents();
}

void fileWithThreadLocals() { fileThatStaysIsSaidToStay("threadlocal"); }

void fileWithUniqueSymbols() { fileThatStaysIsSaidToStay("unique"); }

void fileThatIsNeverDeleted() { fileThatStaysIsSaidToStay("nodelete"); }

void fileThatBroughtADelegate() { fileThatStaysIsSaidToStay("founder"); }

struct Life
{
    const char *name;
    void (*live)();
};

const Life lives[] = {
    {"deletions of a root that nobody owns", deletionsOfARootThatNobodyOwns},
    {"deletions without an event loop", deletionsWithoutAnEventLoop},
    {"a long chain of deletions", longChainOfDeletions},
    {"deletions of a shared root", deletionsOfASharedRoot},
    {"deletions of a service that is replaced", deletionsOfAServiceThatIsReplaced},
    {"deletions on another thread", deletionsOnAnotherThread},
    {"deletions on another event loop", deletionsOnAnotherEventLoop},
    {"deletions in a nested event loop", deletionsInANestedEventLoop},
    {"single shots of a root that has gone", singleShotsOfARootThatHasGone},
    {"deletions in the order of an end", deletionsInTheOrderOfAnEnd},
    {"deletions as the program quits", deletionsAsTheProgramQuits},
    {"a service is let go by a call on another thread", serviceIsLetGoByACallOnAnotherThread},
    {"a component that is shared ends at home", componentThatIsSharedEndsAtHome},
    {"a component without an event loop at home", componentWithoutAnEventLoopAtHomeEndsWhereItIsLetGo},
    {"a component whose thread has ended", componentWhoseThreadHasEndedEndsWhereItIsLetGo},
    {"a component ends with the thread it lives on", componentEndsWithTheThreadItLivesOn},
    {"a root ends with the thread it lives on", rootEndsWithTheThreadItLivesOn},
    {"a root lives where the loader does", rootLivesWhereTheLoaderDoes},
    {"one count for all shares", oneCountForAllShares},
    {"the loader is replaced by what its list names", loaderIsReplacedByWhatItsListNames},
    {"the loader is replaced by what it is asked for", loaderIsReplacedByWhatItIsAskedFor},
    {"the loader is replaced by what is dropped", loaderIsReplacedByWhatIsDropped},
    {"the emitter is replaced by what it injects", emitterIsReplacedByWhatItInjects},
    {"the logger is replaced by what reads its lines", loggerIsReplacedByWhatReadsItsLines},
    {"the context is replaced by a value that it drops", contextIsReplacedByAValueThatItDrops},
    {"the bus is replaced by what it calls", busIsReplacedByWhatItCalls},
    {"job pools are replaced under a job", jobPoolsAreReplacedUnderAJobThatAsksForOne},
    {"thread pools are replaced under an activity", threadPoolsAreReplacedUnderAnActivity},
    {"plugins are dropped while one is loaded", pluginsAreDroppedWhileOneIsLoaded},
    {"one of two libraries of a root goes", oneOfTwoLibrariesOfARootGoes},
    {"the scheduler is replaced by its own command", schedulerIsReplacedByItsOwnCommand},
    {"a root ends while another thread loads", rootEndsWhileAnotherThreadLoads},
    {"a root asks for itself as it ends", rootAsksForItselfAsItEnds},
    {"a writer runs an event loop", writerRunsAnEventLoop},
    {"a broadcast runs an event loop", broadcastRunsAnEventLoop},
    {"a constructor asks for its own file", constructorAsksForItsOwnFile},
    {"a service is replaced under a job of its own", serviceIsReplacedUnderAJobOfItsOwn},
    {"a service is replaced by its next version", serviceIsReplacedByItsNextVersionUnderAJobOfItsOwn},
    {"a constructor waits for those who wire and load", constructorWaitsForThoseWhoWireAndLoad},
    {"two threads load one plugin", onesLoadedByEachOther},
    {"a constructor throws", constructorThrows},
    {"a writer throws", writerThrows},
    {"a writer throws a number", writerThrowsANumber},
    {"a writer throws without a word", writerThrowsWithoutAWord},
    {"the logger throws", loggerThrows},
    {"a dropped plugin throws", droppedOneThrows},
    {"the loader is let go while its files are unloaded", loaderIsLetGoWhileItsFilesAreUnloaded},
    {"a file with thread-local objects", fileWithThreadLocals},
    {"a file with unique symbols", fileWithUniqueSymbols},
    {"a file that is linked to stay", fileThatIsNeverDeleted},
    {"a file that brought a delegate", fileThatBroughtADelegate},
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setLibraryPaths({});
    const QStringList arguments = QCoreApplication::arguments();
    const auto life = std::find_if(std::begin(lives), std::end(lives),
                                   [&](const Life &each) { return arguments.value(1) == QLatin1String(each.name); });
    if (life == std::end(lives))
        return 2;
    deployed = arguments.value(2);
    hotDeploy = arguments.value(3);
    qInstallMessageHandler(write);
    life->live();
    return 0;
}

#include "lifetimes.moc"
