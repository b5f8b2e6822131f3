// SPDX-License-Identifier: Apache-2.0
// A program that calls through delegates as it ends: calls ENDING. It prints what its last calls were answered.
#include "counter.h"

#include <QByteArray>
#include <QSemaphore>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <thread>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int Deeper = 20; // than a thread has notes

/// Lives for ever, so that it can be called by whatever ends last.
CounterDelegate &counter()
{
    static auto *const delegate = new CounterDelegate({});
    return *delegate;
}

void say(const char *what, int answer)
{
    std::printf("%s %d\n", what, answer);
    std::fflush(stdout);
}

/// Calls as it ends, and exchanges what it has called.
struct Last
{
    const char *what;
    ~Last()
    {
        say(what, counter().count(0));
        counter().replace(counting(counter().count(0) + 1));
        if (Component::alive != 1)
            say("left", Component::alive);
    }
};

/// A component that calls itself, so many times as it is told to.
QSharedPointer<ZReference> recursive(int number)
{
    return counting(number, [](int depth) {
        if (depth > 0)
            counter().count(depth - 1);
    });
}

void staticObjects()
{
    static const Last later{"static"};
    static thread_local const Last first{"thread-local of the program"};
    say("now", counter().count(Deeper));
}

void objectsOfAThread()
{
    std::thread([] {
        static thread_local const Last before{"made before the first call"};
        counter().count(Deeper);
        static thread_local const Last after{"made after it"};
    }).join();
    say("now", counter().count(0));
}

void keysOfAThread()
{
    pthread_key_t key;
    pthread_key_create(&key, [](void *) { const Last last{"key"}; });
    std::thread([&] {
        counter().count(0);
        pthread_setspecific(key, &key);
    }).join();
    say("now", counter().count(0));
}

void exitWithinACall()
{
    counter().replace(counting(1, [](int depth) {
        static const Last last{"static"};
        if (depth > 0)
            std::exit(0);
    }));
    counter().count(1);
}

void exitUnderCalls()
{
    QSemaphore started;
    for (int i = 0; i < 4; ++i) {
        std::thread([&] {
            started.release();
            for (;;)
                counter().count(3);
        }).detach();
    }
    started.acquire(4);
    static const auto exchange = [] { counter().replace(recursive(2)); };
    std::atexit([] { exchange(); });
    std::exit(counter().count(0) == 1 ? 0 : 1);
}

void fork()
{
    QSemaphore inside, goOn;
    counter().replace(counting(1, [&](int depth) {
        if (depth > 0) {
            inside.release();
            goOn.acquire();
        }
    }));
    std::thread caller([] { counter().count(1); });
    inside.acquire();
    const pid_t child = ::fork();
    if (child == 0) {
        counter().replace(recursive(2)); // the component before stays: its call never ends here
        const int answer = counter().count(Deeper);
        counter().replace(recursive(3));
        say("child", answer * 100 + counter().count(0) * 10 + Component::alive);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    say("status of the child", status);
    goOn.release();
    caller.join();
    say("now", counter().count(0));
}

struct Ending
{
    const char *name;
    void (*end)();
};
const Ending endings[] = {
    {"static objects", staticObjects},    {"objects of a thread", objectsOfAThread},
    {"keys of a thread", keysOfAThread},  {"exit within a call", exitWithinACall},
    {"exit under calls", exitUnderCalls}, {"fork", fork},
};

} // namespace

int main(int, char *argv[])
{
    counter().replace(recursive(1));
    for (const Ending &ending : endings) {
        if (qstrcmp(argv[1], ending.name) == 0) {
            ending.end();
            return Component::hasFailed ? 1 : 0;
        }
    }
    return 2;
}
