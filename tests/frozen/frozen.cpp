// SPDX-License-Identifier: Apache-2.0
// Stands for a plugin of 1.0, so it sees the frozen interfaces and no other.
#include "frozen.h"

#include "operations.h"

namespace {

template <class Interface>
void *make(QStringList *calls)
{
    return static_cast<Interface *>(new Recorder<Interface>(calls));
}

template <class Interface>
QStringList use(void *part)
{
    auto *interface = static_cast<Interface *>(part);
    const QStringList results = Operations<Interface>::use(*interface);
    delete interface;
    return results;
}

const struct
{
    const char *name;
    void *(*make)(QStringList *);
    QStringList (*use)(void *);
} interfaces[] = {
    {"ZConfig", make<ZConfig>, use<ZConfig>},
    {"ZEmitter", make<ZEmitter>, use<ZEmitter>},
    {"ZLogger", make<ZLogger>, use<ZLogger>},
    {"ZLoader", make<ZLoader>, use<ZLoader>},
    {"ZTempFile", make<ZTempFile>, use<ZTempFile>},
    {"ZJobPoolSet", make<ZJobPoolSet>, use<ZJobPoolSet>},
    {"ZThreadPoolSet", make<ZThreadPoolSet>, use<ZThreadPoolSet>},
    {"ZDbus", make<ZDbus>, use<ZDbus>},
    {"ZDbusLayer", make<ZDbusLayer>, use<ZDbusLayer>},
    {"ZDbusReach", make<ZDbusReach>, use<ZDbusReach>},
    {"ZDbusOutcome", make<ZDbusOutcome>, use<ZDbusOutcome>},
    {"ZDbusAsync", make<ZDbusAsync>, use<ZDbusAsync>},
    {"ZLease", make<ZLease>, use<ZLease>},
    {"ZContext", make<ZContext>, use<ZContext>},
    {"ZScheduler", make<ZScheduler>, use<ZScheduler>},
    {"ZDbusSubscriber", make<ZDbusSubscriber>, use<ZDbusSubscriber>},
    {"ZDbusReceiver", make<ZDbusReceiver>, use<ZDbusReceiver>},
    {"ZSchedule", make<ZSchedule>, use<ZSchedule>},
};

} // namespace

/// A new implementation of the interface called `name`, which writes to `calls` what it is called with.
extern "C" Q_DECL_EXPORT void *frozenMake(const char *name, QStringList *calls)
{
    for (const auto &interface : interfaces) {
        if (qstrcmp(interface.name, name) == 0)
            return interface.make(calls);
    }
    return nullptr;
}

/// Calls every operation of `part`, an implementation of the interface called `name`, and deletes it. Writes to
/// `results` what it answers.
extern "C" Q_DECL_EXPORT void frozenUse(const char *name, void *part, QStringList *results)
{
    for (const auto &interface : interfaces) {
        if (qstrcmp(interface.name, name) == 0)
            *results = interface.use(part);
    }
}
