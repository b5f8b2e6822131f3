// SPDX-License-Identifier: Apache-2.0
#include "explorer.h"

#include <array>
#include <cstdio>
#include <new>

/// Programs whose outcomes in the C++ memory model are known: the explorer must see those that can be, and no others.
namespace {

constexpr auto relaxed = std::memory_order_relaxed;
constexpr auto acquire = std::memory_order_acquire;
constexpr auto release = std::memory_order_release;
constexpr auto both = std::memory_order_acq_rel;
constexpr auto consistent = std::memory_order_seq_cst;

struct World
{
    model::Atomic<int> x, y;
    model::Plain<int> data{0};
    std::array<int, 5> a{}, b{}; // what the threads have read
};

alignas(World) char memory[sizeof(World)];
World *world = nullptr;

void begin() { world = new (memory) World; }

int &a() { return world->a[model::thisThread()]; }
int &b() { return world->b[model::thisThread()]; }

void seen(bool isSo)
{
    if (isSo)
        model::fault("seen");
}

template <std::memory_order Store, std::memory_order Load>
void storeXLoadY()
{
    world->x.store(1, Store);
    a() = world->y.load(Load);
}
template <std::memory_order Store, std::memory_order Load>
void storeYLoadX()
{
    world->y.store(1, Store);
    a() = world->x.load(Load);
}
void bothAreOld() { seen(!world->a[1] && !world->a[2]); }

template <std::memory_order Exchange, std::memory_order Load>
void exchangeXLoadY()
{
    world->x.exchange(1, Exchange);
    a() = world->y.load(Load);
}

template <std::memory_order Order>
void publish()
{
    world->data = 1;
    world->x.store(1, Order);
}
template <std::memory_order Order>
void receive()
{
    if (world->x.load(Order))
        a() = world->data;
}
void goOn() // a relaxed change continues a release sequence
{
    int one = 1;
    world->x.compare_exchange_strong(one, 2, relaxed, relaxed);
}
void receiveTwo()
{
    if (world->x.load(acquire) == 2)
        a() = world->data;
}
void storeTwo() { world->x.store(2, relaxed); }
void nothing() {}

template <std::memory_order Order>
void storeX()
{
    world->x.store(1, Order);
}
template <std::memory_order Order>
void storeY()
{
    world->y.store(1, Order);
}
template <std::memory_order Order>
void loadXY()
{
    a() = world->x.load(Order);
    b() = world->y.load(Order);
}
template <std::memory_order Order>
void loadYX()
{
    a() = world->y.load(Order);
    b() = world->x.load(Order);
}
void readersDisagree() { seen(world->a[3] && !world->b[3] && world->a[4] && !world->b[4]); }

void loadTwice()
{
    a() = world->x.load(relaxed);
    b() = world->x.load(relaxed);
}
void goesBack() { seen(world->a[2] && !world->b[2]); }

template <std::memory_order Order>
void storeOneTwo()
{
    world->x.store(1, Order);
    world->y.store(2, Order);
}
template <std::memory_order Order>
void storeTwoOne()
{
    world->y.store(1, Order);
    world->x.store(2, Order);
}
void firstsLast() { seen(world->x.load(relaxed) == 1 && world->y.load(relaxed) == 1); }

void addOne() { world->x.fetch_sub(-1, relaxed); }
void oneIsLost() { seen(world->x.load(relaxed) != 2); }

// A sequentially consistent store that only happens before, by way of another order, need not come first in S.
void storeXReleaseY()
{
    world->x.store(1, consistent);
    world->y.store(1, release);
}
void countYLoadY()
{
    a() = world->y.fetch_sub(-1, consistent);
    b() = world->y.load(relaxed);
}
void storeYLoadXConsistent()
{
    world->y.store(3, consistent);
    a() = world->x.load(consistent);
}
void onlyHappensBefore() { seen(world->a[2] == 1 && world->b[2] == 3 && !world->a[3]); }

// An addition without a reader may come after what follows it, but not after a release.
template <std::memory_order Order>
void addAndTell()
{
    world->x.fetch_add(1, relaxed);
    world->y.store(1, Order);
}
void hearAndTake()
{
    if (world->y.load(acquire))
        a() = world->x.exchange(5, relaxed) == 0;
}
void addedLate() { seen(world->a[2]); }

struct Litmus
{
    bool canBe;
    model::Scenario scenario;
};

const Litmus all[] = {
    {false,
     {"store buffers, consistent",
      begin,
      {storeXLoadY<consistent, consistent>, storeYLoadX<consistent, consistent>},
      bothAreOld}},
    {true,
     {"store buffers, one store releases",
      begin,
      {storeXLoadY<release, consistent>, storeYLoadX<consistent, consistent>},
      bothAreOld}},
    {true,
     {"store buffers, one load acquires",
      begin,
      {storeXLoadY<consistent, consistent>, storeYLoadX<consistent, acquire>},
      bothAreOld}},
    {false,
     {"store buffers, an exchange, consistent",
      begin,
      {exchangeXLoadY<consistent, consistent>, storeYLoadX<consistent, consistent>},
      bothAreOld}},
    {true,
     {"store buffers, an exchange that acquires and releases",
      begin,
      {exchangeXLoadY<both, consistent>, storeYLoadX<consistent, consistent>},
      bothAreOld}},
    {false, {"a message, release and acquire", begin, {publish<release>, receive<acquire>}, nothing}},
    {true, {"a message, relaxed store", begin, {publish<relaxed>, receive<acquire>}, nothing}},
    {true, {"a message, relaxed load", begin, {publish<release>, receive<relaxed>}, nothing}},
    {false, {"a release sequence", begin, {publish<release>, goOn, receiveTwo}, nothing}},
    {true, {"a release sequence that a store has cut", begin, {publish<release>, storeTwo, receiveTwo}, nothing}},
    {true,
     {"two readers, acquiring",
      begin,
      {storeX<release>, storeY<release>, loadXY<acquire>, loadYX<acquire>},
      readersDisagree}},
    {false,
     {"two readers, consistent",
      begin,
      {storeX<consistent>, storeY<consistent>, loadXY<consistent>, loadYX<consistent>},
      readersDisagree}},
    {false, {"a reader goes back", begin, {storeX<relaxed>, loadTwice}, goesBack}},
    {true, {"the first stores come last, releasing", begin, {storeOneTwo<release>, storeTwoOne<release>}, firstsLast}},
    {false,
     {"the first stores come last, consistent", begin, {storeOneTwo<consistent>, storeTwoOne<consistent>}, firstsLast}},
    {false, {"an addition is lost", begin, {addOne, addOne}, oneIsLost}},
    {true,
     {"a weaker order between consistent ones",
      begin,
      {storeXReleaseY, countYLoadY, storeYLoadXConsistent},
      onlyHappensBefore}},
    {true, {"an addition that comes late", begin, {addAndTell<relaxed>, hearAndTake}, addedLate}},
    {false, {"an addition before a release", begin, {addAndTell<release>, hearAndTake}, addedLate}},
};

} // namespace

int main()
{
    bool isFaulty = false;
    for (const Litmus &litmus : all) {
        const bool wasSeen = !model::explore(litmus.scenario).faults.empty();
        std::printf("| %s | %s |%s\n", litmus.scenario.name, wasSeen ? "can be" : "cannot be",
                    wasSeen == litmus.canBe ? "" : " WRONG");
        isFaulty = isFaulty || wasSeen != litmus.canBe;
    }
    return isFaulty;
}
