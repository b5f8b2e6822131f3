// SPDX-License-Identifier: Apache-2.0
#include "whereabouts.h"

#include "loadbook.h"

#include "../lastwords.h"
#include "../stackplace.h"

#include <QFile>
#include <QMutex>
#include <QMutexLocker>
#include <QStringList>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>

#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

namespace {

constexpr int Number = SIGURG; // which does nothing to who does not listen to it
constexpr int PatienceMs = 200;

pthread_t asked;
pid_t id = 0;
bool isReady = false;

// One question at a time. The thread that is asked waits in its handler until it has been looked at, for its stack is
// to stay as it is; but not for long.
QBasicMutex oneAtATime;
sem_t hasCome, mayGo;
std::atomic_int question{0}; // which is being asked; 0 if none is
Registers registers;

timespec deadline()
{
    timespec time = {};
    clock_gettime(CLOCK_REALTIME, &time);
    time.tv_nsec += PatienceMs * 1000000L;
    time.tv_sec += time.tv_nsec / 1000000000L;
    time.tv_nsec %= 1000000000L;
    return time;
}

bool waitFor(sem_t *semaphore)
{
    const timespec until = deadline();
    int result = -1;
    do {
        result = sem_timedwait(semaphore, &until);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

void handle(int, siginfo_t *, void *context)
{
    const int error = errno;
    if (question != 0) {
        registers = Registers(context);
        sem_post(&hasCome);
        waitFor(&mayGo);
    }
    errno = error;
}

/// What a question that came to nothing may have left.
void drain(sem_t *semaphore)
{
    while (sem_trywait(semaphore) == 0) {
    }
}

/// As the kernel has it of a thread that waits in it; nothing of one that runs.
std::optional<Registers> whereItWaits()
{
    QFile file(QStringLiteral("/proc/self/task/%1/syscall").arg(id));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QList<QByteArray> words = file.readAll().trimmed().split(' ');
    if (words.size() < 3) // "running"
        return {};
    Registers waiting;
    waiting.stack = words[words.size() - 2].toULongLong(nullptr, 16);
    waiting.instruction = words.last().toULongLong(nullptr, 16);
    return waiting;
}

/// Of the asked thread as well, interrupted by a signal.
std::optional<Registers> whereItRuns()
{
    drain(&hasCome);
    drain(&mayGo);
    question = 1;
    if (pthread_kill(asked, Number) == 0 && waitFor(&hasCome))
        return registers;
    return {};
}

void letGo()
{
    question = 0;
    sem_post(&mayGo);
}

} // namespace

Whereabouts::Whereabouts()
{
    sem_init(&hasCome, 0, 0);
    sem_init(&mayGo, 0, 0);
    asked = pthread_self();
    id = gettid();
    struct sigaction action = {};
    action.sa_sigaction = handle;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    isReady = sigaction(Number, &action, nullptr) == 0;
}

QString Whereabouts::ask()
{
    const QMutexLocker locker(&oneAtATime);
    if (!isReady)
        return {};
    static CodeRanges plugins;
    FixedText line, file;
    const std::optional<Registers> waiting = whereItWaits();
    const std::optional<Registers> place = waiting ? waiting : whereItRuns();
    if (const uintptr_t address = place ? placeInPlugins(*place, &plugins) : 0; address != 0)
        addPlace(&line, &file, address);
    if (!waiting)
        letGo();
    QStringList result(QFile::decodeName(line.data()).mid(int(qstrlen(" in "))));
    if (const QString name = LoadBook::get().loadingBy(id); !name.isNull())
        result.append(QStringLiteral("while loading %1").arg(name));
    result.removeAll(QString());
    return result.join(QStringLiteral(", "));
}
