// SPDX-License-Identifier: Apache-2.0
#include "memory.h"

#include <algorithm>

namespace model {
namespace {

struct Accesses
{
    std::string what;
    int writer;
    int written; // at this time of its clock; so is what is read
    std::array<std::uint8_t, MaxThreads> read{};
    bool hasEnded = false;
};

std::vector<Accesses> lives;

} // namespace

Life::Life(const char *what) : m_index(static_cast<int>(lives.size()))
{
    lives.push_back({what, thisThread(), viewOfThisThread().clock[thisThread()], {}});
}

void Life::read() const
{
    Accesses &accesses = lives[m_index];
    const View &view = viewOfThisThread();
    if (accesses.hasEnded)
        return fault("use after the end of the " + accesses.what);
    if (accesses.written > view.clock[accesses.writer])
        return fault("race between use and change of the " + accesses.what);
    accesses.read[thisThread()] = std::max(accesses.read[thisThread()], view.clock[thisThread()]);
}

void Life::change(const std::string &how)
{
    Accesses &accesses = lives[m_index];
    const View &view = viewOfThisThread();
    if (accesses.hasEnded)
        return fault(how + " after the end of the " + accesses.what);
    bool isOrdered = accesses.written <= view.clock[accesses.writer];
    for (int i = 0; i < MaxThreads; ++i)
        isOrdered = isOrdered && accesses.read[i] <= view.clock[i];
    if (!isOrdered)
        return fault("race between use and " + how + " of the " + accesses.what);
    accesses.writer = thisThread();
    accesses.written = view.clock[thisThread()];
}

void Life::write() { change("change"); }

void Life::end()
{
    change("end");
    lives[m_index].hasEnded = true;
}

void forgetLives() { lives.clear(); }

} // namespace model
