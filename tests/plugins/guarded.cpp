// SPDX-License-Identifier: Apache-2.0
#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zdefaultfilesystem.h>
#include <zemitter.h>
#include <zobject.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonObject>
#include <QTemporaryFile>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

enum Deed
{
    Serve,
    ServeUnasked, ///< has no endpoint of its own to ask for its health
    CrashInWriter,
    TrapInWriter,
    CrashWithoutDescriptors, ///< in its writer, when it has used them up
    AbortInConstructor,
    ThrowOnThread,
    CallNothing,
    OverflowStack,
    CrashLater,
    BeUnhealthy,
    HangWhenAsked,
    NameItsHealth, ///< by its metadata; and is unhealthy
    ExitInWriter,
    QuitInWriter,
    HangInWriter,
    StopInWriter,       ///< has the host told to stop, and hear of it
    LookAroundInWriter, ///< runs the event loop, and is unhealthy
    CrashWithoutFile,   ///< as soon as its file is not there any more
    CrashInQuarantine   ///< the same, and is unhealthy
};

__attribute__((no_sanitize("undefined"))) void crash()
{
    int *volatile nowhere = nullptr;
    *nowhere = 1;
}

void trap()
{
#if defined(__x86_64__)
    asm volatile("int3"); // which goes on behind it, unless somebody ends the process
#else
    std::raise(SIGTRAP);
#endif
}

void useUpDescriptors()
{
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, 256);
    setrlimit(RLIMIT_NOFILE, &limit);
    while (dup(STDERR_FILENO) >= 0) {
    }
}

int overflow(const volatile int *depth)
{
    const volatile int next[1000] = {*depth + 1};
    return next[0] < 0 ? 0 : overflow(next) + next[0];
}

void crashWithoutFile(QObject *owner)
{
    Dl_info place;
    dladdr(reinterpret_cast<void *>(&crash), &place);
    auto *const timer = new QTimer(owner);
    QObject::connect(timer, &QTimer::timeout, owner, [file = QFile::decodeName(place.dli_fname)] {
        if (!QFile::exists(file))
            crash();
    });
    timer->start(100);
}

void beginToServe()
{
    const volatile int depth = 0;
    void (*volatile nothing)() = nullptr;
    if (DEED == CrashInWriter)
        crash();
    if (DEED == TrapInWriter)
        trap();
    if (DEED == CrashWithoutDescriptors) {
        useUpDescriptors();
        crash();
    }
    if (DEED == CallNothing)
        nothing();
    if (DEED == OverflowStack)
        overflow(&depth);
    if (DEED == ThrowOnThread)
        std::thread([] { throw 1; }).join();
    if (DEED == ExitInWriter)
        std::exit(0);
    if (DEED == QuitInWriter)
        QCoreApplication::quit();
    if (DEED == HangInWriter)
        std::fputs("guarded: hangs\n", stderr);
    while (DEED == HangInWriter)
        pause();
    if (DEED == LookAroundInWriter)
        QCoreApplication::processEvents();
    if (DEED == StopInWriter) {
        std::raise(SIGTERM);
        QCoreApplication::processEvents();
    }
}

} // namespace

/// Serves `ZTempFile`, so that the next version takes its place, and answers at "//guarded", which crashes at "/crash".
/// What is wrong with it is its DEED.
class Guarded : public ZObject, public ZTempFile, public ZDbusSubscriber
{
    Q_OBJECT
    Q_INTERFACES(ZTempFile)
    Q_PLUGIN_METADATA(IID ZObject_iid FILE METADATA)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    Guarded()
    {
        if (DEED == AbortInConstructor)
            std::abort();
        if (DEED == CrashLater)
            QTimer::singleShot(300, this, crash);
        if (DEED == CrashWithoutFile || DEED == CrashInQuarantine)
            crashWithoutFile(this);
    }

    QSharedPointer<QTemporaryFile> newFile0() override { return {}; }

    bool invoked(const QUrl &url, QJsonObject *, QJsonObject *) override
    {
        if (url.path() == QLatin1String("/crash"))
            crash();
        const bool isAsked = url.path().endsWith(QLatin1String("/healthy"));
        while (isAsked && DEED == HangWhenAsked)
            pause();
        const bool isUnhealthy =
            DEED == BeUnhealthy || DEED == NameItsHealth || DEED == LookAroundInWriter || DEED == CrashInQuarantine;
        return !isAsked || !isUnhealthy;
    }

    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (!dbus)
            return dbus;
        beginToServe();
        m_self = shared(); // the bus holds it weakly
        const auto endpoint = qSharedPointerDynamicCast<ZDbusSubscriber>(m_self);
        dbus->bind0(QUrl(QStringLiteral("//guarded")), endpoint);
        if (DEED != ServeUnasked && DEED != NameItsHealth)
            dbus->bind0(QUrl(QStringLiteral("//guarded/healthy")), endpoint);
        return dbus;
    }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter)
            emitter->bind0(QSharedPointer<ZTempFileDelegate>::create(std::exchange(m_self, {})));
        return emitter;
    }

private:
    QSharedPointer<QObject> m_self;
};

#include "guarded.moc"
