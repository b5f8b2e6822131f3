// SPDX-License-Identifier: Apache-2.0
#include "zhost.h"

#include "zdbuscalls.h"
#include "zdefaultconfig.h"
#include "zdefaultcontext.h"
#include "zdefaultdbus.h"
#include "zdefaultdbusasync.h"
#include "zdefaultdbusoutcome.h"
#include "zdefaultfilesystem.h"
#include "zdefaultloader.h"
#include "zdefaultlogger.h"
#include "zdefaultpoolset.h"
#include "zdefaultscheduler.h"
#include "zendpoints.h"
#include "zleasedelegate.h"
#include "zloading.h"
#include "zorderlyemitter.h"
#include "zreconfiguration.h"
#include "zthreadpool.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QJsonArray>
#include <QThread>
#include <QtDebug>

#include <algorithm>
#include <utility>

namespace {

constexpr int PatienceMs = 5000; // with what is to end
constexpr int PauseMs = 20;

/// A delegate for a service that nobody provides.
template <class Delegate>
QSharedPointer<ZDelegate> nobody()
{
    return QSharedPointer<Delegate>::create(QSharedPointer<QObject>());
}

bool isEmpty(ZDelegate &delegate)
{
    const QSharedPointer<ZReference> reference = delegate;
    return !reference || reference->isNull();
}

template <class Interface>
QObject **find(QVector<QObject *> *own)
{
    return std::find_if(own->begin(), own->end(),
                        [](QObject *component) { return qobject_cast<Interface *>(component) != nullptr; });
}

/// Has a component of `own` serve `Interface`, at the `place` that is filed. False if none does.
template <class Interface, class Delegate>
bool takeOwn(ZEmitter &emitter, QVector<QObject *> *own, const QSharedPointer<ZDelegate> &place)
{
    QObject **const component = find<Interface>(own);
    if (component == own->end())
        return false;
    QObject *const taken = *component;
    own->erase(component);
    emitter.bind0(place);
    try {
        if (emitter.inject0(taken) && isEmpty(*place)) // it does not announce itself
            emitter.bind0(QSharedPointer<Delegate>::create(taken));
    } catch (...) {
        if (isEmpty(*place))
            delete taken;
        throw;
    }
    return true;
}

template <class Interface, class Delegate, class Default>
void make(ZEmitter &emitter, QVector<QObject *> *own)
{
    if (!takeOwn<Interface, Delegate>(emitter, own, nobody<Delegate>()))
        emitter.zemit0(Default::TypeName);
}

/// One that we know by itself, and not only by its service.
template <class Interface, class Default>
QPointer<Default> own(QVector<QObject *> *own)
{
    QPointer<Default> component;
    if (find<Interface>(own) == own->end())
        own->append(component = new Default);
    return component;
}

/// What runs may wait for this thread to do something.
void pause()
{
    QCoreApplication::processEvents();
    QThread::msleep(PauseMs);
}

QVector<QObject *> withoutNulls(QVector<QObject *> own)
{
    own.removeAll(nullptr);
    return own;
}

void deleteUseless(QVector<QObject *> *own)
{
    const QVector<QObject *> all = std::exchange(*own, {});
    for (QObject *component : all) {
        if (qobject_cast<ZLoader *>(component)) {
            own->append(component);
        } else {
            qWarning("%s serves none of the services, or one that another serves",
                     component->metaObject()->className());
            delete component;
        }
    }
}

} // namespace

ZHost::ZHost(const QJsonObject &configuration, const QVector<QObject *> &own)
    : ZHost(QSharedPointer<ZOrderlyEmitter>::create(), configuration, own)
{}

ZHost::ZHost(const QSharedPointer<ZOrderlyEmitter> &emitter, const QJsonObject &configuration,
             const QVector<QObject *> &own)
    : m_emitter(emitter), m_own(withoutNulls(own)), m_jobPools(::own<ZJobPoolSet, ZDefaultJobPoolSet>(&m_own)),
      m_threadPools(::own<ZThreadPoolSet, ZDefaultThreadPoolSet>(&m_own)), m_loaderPlace(nobody<ZLoaderDelegate>())
{
    try {
        make(configuration);
    } catch (...) {
        end();
        throw;
    }
    deleteUseless(&m_own);
}

ZHost::~ZHost()
{
    QStringList running = stop();
    if (running.isEmpty()) {
        m_emitter->end(dynamic_cast<ZDelegate *>(m_services.threadPoolSet));
        const QDeadlineTimer deadline(PatienceMs);
        for (running = busyPools(); !running.isEmpty() && !deadline.hasExpired(); running = busyPools())
            pause();
    }
    if (running.isEmpty()) {
        end();
        return;
    }
    qWarning("left running: %s", qUtf8Printable(running.join(QStringLiteral(", "))));
    struct Kept
    {
        QSharedPointer<ZOrderlyEmitter> emitter;
        QSharedPointer<ZThreadPool> registry;
        QSharedPointer<ZDbusCalls> calls;
    };
    static auto *const kept = new QVector<Kept>;
    kept->append({m_emitter, m_registry, m_calls});
}

/// All services but the loader.
void ZHost::make(const QJsonObject &configuration)
{
    // Each receives those that were there before it: the order of creation is the order of wiring. The loader comes
    // last, for the plugins that it loads may want any of the others. But its place is an early one: it goes after the
    // services that its plugins provide, and so can tell of their files.
    ZOrderlyEmitter &to = *m_emitter;
    to.install(m_emitter);
    if (!takeOwn<ZConfig, ZConfigDelegate>(to, &m_own, nobody<ZConfigDelegate>()))
        to.zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, configuration));
    ::make<ZLogger, ZLoggerDelegate, ZDefaultLogger>(to, &m_own);
    to.bind0(m_loaderPlace);
    ::make<ZTempFile, ZTempFileDelegate, ZDefaultTempFile>(to, &m_own);
    ::make<ZJobPoolSet, ZJobPoolSetDelegate, ZDefaultJobPoolSet>(to, &m_own);
    ::make<ZThreadPoolSet, ZThreadPoolSetDelegate, ZDefaultThreadPoolSet>(to, &m_own);
    ::make<ZDbus, ZDbusDelegate, ZDefaultDbus>(to, &m_own);
    ::make<ZDbusOutcome, ZDbusOutcomeDelegate, ZDefaultDbusOutcome>(to, &m_own);
    if (const QPointer<ZDefaultDbusAsync> async = own<ZDbusAsync, ZDefaultDbusAsync>(&m_own))
        m_calls = async->m_calls;
    ::make<ZDbusAsync, ZDbusAsyncDelegate, ZDefaultDbusAsync>(to, &m_own);
    to.bind0(nobody<ZLeaseDelegate>()); // its class stays, whichever plugin fills it
    ::make<ZContext, ZContextDelegate, ZDefaultContext>(to, &m_own);
    ::make<ZScheduler, ZSchedulerDelegate, ZDefaultScheduler>(to, &m_own);
    to.inject0(&m_services);
    m_registry = registry();
}

/// Lets go of all services.
void ZHost::end()
{
    qDeleteAll(std::exchange(m_own, {}));
    m_calls.clear(); // which are waited for while all services are there
    m_emitter->end();
    m_emitter.clear();
    ZOrderlyEmitter::settle();
}

void ZHost::begin()
{
    if (!takeOwn<ZLoader, ZLoaderDelegate>(*m_emitter, &m_own, m_loaderPlace))
        m_emitter->zemit0(ZDefaultLoader::TypeName);
}

QStringList ZHost::configure(const QJsonObject &configuration)
{
    const QJsonObject before = m_services.config->toJson0();
    m_services.emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, configuration));
    return ZReconfiguration::tell(m_services.emitter, before, configuration);
}

QObject *ZHost::inject(QObject *component) { return m_emitter->inject0(component); }

QStringList ZHost::stop()
{
    // Not over the bus: it may be withdrawn, or busy for ever, and the scheduler be a plugin's.
    m_emitter->bind0(nobody<ZSchedulerDelegate>());
    if (m_calls)
        m_calls->end();
    QVector<ZEndpoints::Held> endpoints;
    const auto haveEnded = [&] {
        endpoints += ZEndpoints::close(ZEndpoints::of(m_services.dbus)); // also what has just been loaded
        const QVector<QSharedPointer<ZThreadPool>> all = registries();
        return !ZLoading::isUnderWayElsewhere() && ZEndpoints::busy(m_services.dbus).isEmpty() && calls().isEmpty() &&
               std::all_of(all.begin(), all.end(),
                           [](const QSharedPointer<ZThreadPool> &each) { return each->waitAll(0); });
    };
    const QDeadlineTimer deadline(PatienceMs);
    while (!haveEnded() && !deadline.hasExpired())
        pause();
    QStringList names;
    const QVector<QSharedPointer<ZThreadPool>> all = registries();
    for (const QSharedPointer<ZThreadPool> &each : all) {
        // Also waits until a thread that has ended is out of its registry, and its object posted for deletion.
        const QJsonArray left = each->printd();
        for (const auto &thread : left)
            names.append(thread.toObject().value(QStringLiteral("Name")).toString());
    }
    names += ZEndpoints::busy(m_services.dbus);
    names += calls();
    if (ZLoading::isUnderWayElsewhere())
        names.append(QStringLiteral("a load of a plugin"));
    ZEndpoints::drop(endpoints);
    return names;
}

QSharedPointer<ZThreadPool> ZHost::registry() const
{
    return m_services.threadPoolSet->find0(QStringLiteral("Pool-ZSchedulerThread"));
}

/// Calls that nobody waits for, and that run.
QStringList ZHost::calls() const
{
    QStringList names = m_calls ? m_calls->busy() : QStringList();
    for (QString &name : names)
        name.prepend(QLatin1String("a call of "));
    return names;
}

/// The pools and registries that the services would wait for.
QStringList ZHost::busyPools() const
{
    QStringList names;
    if (m_jobPools)
        names += m_jobPools->busy();
    if (m_threadPools)
        names += m_threadPools->busy();
    return names;
}

QVector<QSharedPointer<ZThreadPool>> ZHost::registries() const
{
    QVector<QSharedPointer<ZThreadPool>> all;
    for (const QSharedPointer<ZThreadPool> &each : {m_registry, registry()}) {
        if (each && !all.contains(each))
            all.append(each);
    }
    return all;
}
