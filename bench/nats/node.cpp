// SPDX-License-Identifier: Apache-2.0
// node serve|call WAY ADDRESS FOLDER: a process that answers, or calls, until its standard input is closed.
// Who calls reads "THREADS CALLS BYTES" there, line by line, and answers how many nanoseconds a call took in the middle
// (p50), how many there were for each call of all threads together, and how many calls failed.
#include "way.h"

#include <QCoreApplication>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <sstream>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

std::unique_ptr<Way> makeWay(const QString &name, const QString &address, const QString &folder)
{
    if (name == "raw")
        return rawWay(address);
    if (name == "znats" || name == "local")
        return zdefaultWay(address, folder, name == "local");
    if (name == "dbus")
        return dbusWay(address);
#ifdef HAVE_GRPC
    if (name == "grpc")
        return grpcWay(address);
#endif
    return {};
}

/// Until somebody answers.
bool isReady(const Way::Call &call)
{
    for (int i = 0; i < 200; ++i) {
        if (call())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

std::string measure(Way &way, int threads, int calls, const std::string &payload)
{
    std::vector<std::vector<qint64>> times(static_cast<size_t>(threads));
    for (std::vector<qint64> &mine : times)
        mine.resize(static_cast<size_t>(calls));
    std::atomic<int> ready{0};
    std::atomic<int> failed{0};
    std::atomic<bool> isBegun{false};
    std::vector<std::thread> all;
    for (std::vector<qint64> &mine : times) {
        all.emplace_back([&way, &payload, &mine, &ready, &failed, &isBegun] {
            const Way::Call call = way.caller(payload);
            if (!isReady(call))
                ++failed;
            ++ready;
            while (!isBegun)
                std::this_thread::yield();
            Clock::time_point before = Clock::now();
            for (qint64 &time : mine) {
                failed += call() ? 0 : 1;
                const Clock::time_point after = Clock::now();
                time = (after - before).count();
                before = after;
            }
        });
    }
    while (ready < threads)
        std::this_thread::yield();
    const Clock::time_point begin = Clock::now();
    isBegun = true;
    for (std::thread &thread : all)
        thread.join();
    const qint64 whole = (Clock::now() - begin).count();

    std::vector<qint64> sorted;
    for (const std::vector<qint64> &some : times)
        sorted.insert(sorted.end(), some.begin(), some.end());
    std::nth_element(sorted.begin(), sorted.begin() + std::ptrdiff_t(sorted.size() / 2), sorted.end());
    std::ostringstream answer;
    answer << sorted[sorted.size() / 2] << ' ' << double(whole) / double(sorted.size()) << ' ' << failed;
    return answer.str();
}

void obey(Way &way, bool calls)
{
    std::cout << "ready" << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream words(line);
        int threads = 0;
        int count = 0;
        size_t bytes = 0;
        if (calls && words >> threads >> count >> bytes)
            std::cout << measure(way, threads, count, R"({"data":")" + std::string(bytes, 'x') + "\"}") << std::endl;
    }
    _exit(0); // what others have begun is not waited for
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    const std::unique_ptr<Way> way = makeWay(arguments.value(2), arguments.value(3), arguments.value(4));
    if (!way)
        return 2;
    const bool calls = arguments.value(1) == "call";
    if (!calls)
        way->serve();
    std::thread([&way, calls] { obey(*way, calls); }).detach();
    return application.exec();
}
