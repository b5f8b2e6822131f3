// SPDX-License-Identifier: Apache-2.0
// An application that ends: ends ENDING DEPLOYED HOT-DEPLOY.
#include "folder.h"
#include "gate.h"
#include "greeter.h"
#include "system.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>

#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>
#include <zjobpool.h>
#include <zobject.h>
#include <zthreadpool.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <thread>

#include <unistd.h>

/// A component that waits while it is injected.
class Hesitant : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)

public:
    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        if (logger)
            Gate::pass(this);
        return logger;
    }
};

namespace {

constexpr int Asked = 5; // the exit code that somebody else than main() asks for

QString deployed, hotDeploy;

std::unique_ptr<System> makeSystem() { return std::make_unique<System>(deployed, hotDeploy); }

/// A system that nobody ends.
System &lastingSystem()
{
    static System &system = *new System(deployed, hotDeploy);
    return system;
}

class Application : public QCoreApplication
{
public:
    explicit Application(const char *hold = "") : QCoreApplication(count, arguments)
    {
        setProperty("hold", QLatin1String(hold));
    }

    /// Runs, and quits once it has done what is posted by now.
    int turn()
    {
        QTimer::singleShot(0, this, &QCoreApplication::quit);
        return exec();
    }

private:
    static int count;
    static char *arguments[];
};

char name[] = "ends";
int Application::count = 1;
char *Application::arguments[] = {name, nullptr};

void handleDeferredDeletes() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

/// Runs `deed` on a thread that nobody waits for.
void detach(std::function<void()> deed) { std::thread(std::move(deed)).detach(); }

/// A thread that ends when it is told to.
class Thread : public QThread
{
public:
    explicit Thread(QSemaphore *end) : m_end(end) {}

protected:
    void run() override { m_end->acquire(); }

private:
    QSemaphore *const m_end;
};

/// Gives `registry` some threads, and lets them end. There may be no event loop to delete them any more: so they are
/// kept where they are no leak.
void startAndEnd(const QSharedPointer<ZThreadPool> &registry)
{
    static Thread *threads[16];
    static QSemaphore end;
    for (Thread *&thread : threads) {
        thread = new Thread(&end);
        registry->poolAndStart(thread, QThread::NormalPriority);
    }
    end.release(int(std::size(threads)));
}

// The emitter is deleted.

int deletedAtRest()
{
    Application application("until quit");
    const auto system = makeSystem();
    system->use();
    application.turn();
    system->rest();
    return 0;
}

int deletedBeforeTheFirstEvent()
{
    Application application;
    const auto system = makeSystem();
    system->use();
    system->rest();
    return 0;
}

int deletedUntold() // what repeats ends because nobody handles it any more; what is queued runs first
{
    Application application;
    const auto system = makeSystem();
    QAtomicInt done;
    for (int i = 0; i < 8; ++i)
        system->start([&] { done.ref(); });
    system->scheduler->schedule0(QSharedPointer<ZDbusActivity>::create(
        QSharedPointer<ZPeriodicSchedule>::create(1), system->dbus, QUrl(QStringLiteral("//visitor")), true));
    system->visited.acquire(2);
    system->letGo();
    handleDeferredDeletes();
    return done.loadAcquire() == 8 ? 0 : 1;
}

int deletedUnderDelegates()
{
    Application application;
    System system(deployed, hotDeploy, true);
    system.use();
    system.rest();
    system.letGo();
    return system.isSilent() ? 0 : 1;
}

int deletedUnderALibrary()
{
    Application application;
    auto system = makeSystem();
    QSharedPointer<ZLibrary> library = system->loader->load0(QStringLiteral("libplain.1"));
    QSharedPointer<ZObject> root = *library;
    system.reset();
    application.turn();
    const bool wasMapped = !mappedPlugins().isEmpty();
    root.clear();
    library.clear();
    application.turn();
    return wasMapped && mappedPlugins().isEmpty() ? 0 : 1;
}

int deletedAfterTheApplication(const char *hold, bool turn)
{
    std::unique_ptr<System> system;
    {
        Application application(hold);
        system = makeSystem();
        system->use();
        if (turn)
            application.turn();
        system->rest();
        system->activities()->waitAll(ULONG_MAX);
        handleDeferredDeletes();
    }
    return 0;
}

int libraryOutlivesTheApplication()
{
    QSharedPointer<ZLibrary> library;
    Application application;
    const auto system = makeSystem();
    library = system->loader->load0(QStringLiteral("libparting.1"));
    return library ? 0 : 1;
}

int threadsEndWithTheApplication()
{
    std::unique_ptr<System> system;
    {
        Application application;
        system = makeSystem();
        startAndEnd(system->activities());
    }
    return 0;
}

std::unique_ptr<System> staticSystem;

int staticSystemIsDeleted()
{
    Application application("until quit");
    staticSystem = makeSystem();
    staticSystem->use();
    application.turn();
    staticSystem->rest();
    staticSystem->activities()->waitAll(ULONG_MAX);
    handleDeferredDeletes();
    return 0;
}

int staticServicesAreDeleted()
{
    static ZDefaultContext context;
    static ZDefaultDbus dbus;
    static ZDefaultJobPoolSet jobPools;
    static ZDefaultLogger logger;
    static ZDefaultScheduler scheduler;
    static ZDefaultThreadPoolSet threadPools;
    static struct Last : ZDbusSubscriber
    {
        bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override { return true; }
        ~Last() override { logger.warning0(QStringLiteral("the end")); }
    } last;
    Application application;
    scheduler.getSetZDbus(&dbus);
    scheduler.getSetZPoolSet(&threadPools);
    const auto schedule = QSharedPointer<ZPeriodicSchedule>::create(0);
    scheduler.schedule0(
        QSharedPointer<ZDbusActivity>::create(schedule, &dbus, QUrl(QStringLiteral("//nobody")), false));
    QVariant value = 1;
    context.save0(value);
    return 0;
}

// The emitter holds itself to the end of the process.

int returns(const char *hold, bool turn)
{
    Application application(hold);
    lastingSystem().use();
    if (turn)
        application.turn();
    return 0;
}

int returnsBeforeTheApplication()
{
    static Application &application = *new Application("until quit");
    lastingSystem().use();
    application.turn();
    return 0;
}

int threadsEndAsMainReturns()
{
    Application application;
    startAndEnd(lastingSystem().activities());
    return 0;
}

int othersBind() // one is just being wired: it has the emitter's lock
{
    static Gate gate;
    Application application;
    System &system = lastingSystem();
    system.use();
    detach([&system] {
        Hesitant hesitant;
        gate.setOn(&hesitant);
        system.emitter->inject0(&hesitant);
    });
    gate.entered.acquire();
    return 0;
}

int othersLoad()
{
    static Gate gate;
    Application application;
    gate.setOn(&application);
    System &system = lastingSystem();
    detach([&system] { system.loader->load0(QStringLiteral("farewell")); });
    gate.entered.acquire();
    return 0;
}

int othersCallTheOldVersion()
{
    static Gate gate;
    Application application;
    System &system = lastingSystem();
    static GreeterDelegate &greeter = *new GreeterDelegate(QSharedPointer<QObject>());
    system.emitter->bind0(QSharedPointer<ZDelegate>(&greeter, [](ZDelegate *) {}));
    const QSharedPointer<ZLibrary> library = system.loader->load0(QStringLiteral("libgreeter"));
    const QSharedPointer<ZObject> root = *library;
    gate.setOn(root.data());
    detach([] { greeter.greet(QString()); });
    gate.entered.acquire();
    system.loader->load0(QStringLiteral("libgreeter.2"));
    return greeter.greet(QStringLiteral("Ann")) == QLatin1String("2: hello, Ann") ? 0 : 1;
}

// Somebody else ends the process.

int runFor(std::function<void(System &)> start)
{
    Application application("until quit");
    System &system = lastingSystem();
    system.use();
    QTimer::singleShot(0, &application, [&] { start(system); });
    return application.exec();
}

void exitAsAsked() { std::exit(Asked); }

int timerExits()
{
    return runFor([](System &) { exitAsAsked(); });
}

int activityExits()
{
    return runFor([](System &system) { system.schedule(exitAsAsked); });
}

int jobExits()
{
    return runFor([](System &system) { system.startBeside(exitAsAsked); });
}

int threadExits()
{
    return runFor([](System &) { detach(exitAsAsked); });
}

int threadExitsQuickly()
{
    return runFor([](System &) { detach([] { std::quick_exit(Asked); }); });
}

int threadExitsAtOnce()
{
    return runFor([](System &) { detach([] { _exit(Asked); }); });
}

// Somebody else ends the event loop, and main() the rest.

int quitBy(std::function<void(System &)> start)
{
    Application application("until quit");
    const auto system = makeSystem();
    system->use();
    start(*system);
    const int exitCode = application.exec();
    system->rest();
    return exitCode;
}

void quitAsAsked() // by the loop itself: Qt's exit() is for its own thread
{
    QMetaObject::invokeMethod(
        qApp, [] { QCoreApplication::exit(Asked); }, Qt::QueuedConnection);
}

int activityQuits()
{
    return quitBy([](System &system) { system.schedule(quitAsAsked); });
}

int jobQuits()
{
    return quitBy([](System &system) { system.startBeside(quitAsAsked); });
}

int pluginQuits()
{
    Application application("until quit");
    application.setProperty("quit", true);
    const auto system = makeSystem();
    QTimer::singleShot(0, &application, [&] { system->use(); });
    const int exitCode = application.exec();
    system->rest();
    return exitCode;
}

int serviceIsReplacedWhileItQuits()
{
    return quitBy([](System &system) {
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, &system, [&] {
            for (const char *const service :
                 {ZDefaultLogger::TypeName, ZDefaultDbus::TypeName, ZDefaultContext::TypeName})
                system.emitter->zemit0(service);
        });
        QTimer::singleShot(0, qApp, quitAsAsked);
    });
}

const struct
{
    const char *name;
    std::function<int()> run;
} endings[] = {
    {"deleted at rest", deletedAtRest},
    {"deleted before the first event", deletedBeforeTheFirstEvent},
    {"deleted untold", deletedUntold},
    {"deleted under delegates", deletedUnderDelegates},
    {"deleted under a library", deletedUnderALibrary},
    {"deleted after the application", [] { return deletedAfterTheApplication("until quit", true); }},
    {"deleted after an application that never ran", [] { return deletedAfterTheApplication("", false); }},
    {"deleted under a plugin that holds itself", [] { return deletedAfterTheApplication("for ever", true); }},
    {"a library outlives the application", libraryOutlivesTheApplication},
    {"threads end with the application", threadsEndWithTheApplication},
    {"a static system", staticSystemIsDeleted},
    {"static services", staticServicesAreDeleted},
    {"main returns", [] { return returns("until quit", true); }},
    {"main returns before the first event", [] { return returns("", false); }},
    {"main returns under a plugin that holds itself", [] { return returns("for ever", true); }},
    {"main returns before the application is destroyed", returnsBeforeTheApplication},
    {"main returns as threads end", threadsEndAsMainReturns},
    {"main returns while others bind", othersBind},
    {"main returns while others load", othersLoad},
    {"main returns under a call of the old version", othersCallTheOldVersion},
    {"a timer exits", timerExits},
    {"an activity exits", activityExits},
    {"a job exits", jobExits},
    {"a thread exits", threadExits},
    {"a thread exits quickly", threadExitsQuickly},
    {"a thread exits at once", threadExitsAtOnce},
    {"an activity quits", activityQuits},
    {"a job quits", jobQuits},
    {"a plugin quits", pluginQuits},
    {"a service is replaced while the application quits", serviceIsReplacedWhileItQuits},
};

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 4)
        qFatal("ends ENDING DEPLOYED HOT-DEPLOY");
    deployed = QString::fromLocal8Bit(argv[2]);
    hotDeploy = QString::fromLocal8Bit(argv[3]);
    const auto ending = std::find_if(std::begin(endings), std::end(endings),
                                     [&](const auto &each) { return qstrcmp(each.name, argv[1]) == 0; });
    if (ending == std::end(endings))
        qFatal("no ending is called %s", argv[1]);
    return ending->run();
}

#include "ends.moc"
