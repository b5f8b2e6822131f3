// SPDX-License-Identifier: Apache-2.0
#include "ztakeover.h"

#include "zcaught.h"
#include "zlibrary.h"

#include <algorithm>

namespace {

/// Whether both, whose libraries are there, are versions of one plugin.
bool isVersionOf(const ZObject *root, const ZObject *other)
{
    const QSharedPointer<ZLibrary> library = *root;
    const QSharedPointer<ZLibrary> otherLibrary = *other;
    return library->name() == otherLibrary->name();
}

} // namespace

ZTakeover::ZTakeover(const QVector<ZEndpoint *> &endpoints)
{
    QVector<ZEndpoint::Private *> entered;
    for (ZEndpoint *endpoint : endpoints) {
        ZEndpoint::Private *const next = endpoint->d.get();
        if (!next->enter())
            continue;
        m_places.append({{next, next->self()}, endpoint, {}, {}});
        entered.append(next);
        m_root = next->root;
        m_dbus = next->dbus;
    }
    ZEndpoints::add(entered);
}

ZTakeover::~ZTakeover()
{
    if (m_isDone)
        return;
    for (const Place &place : qAsConst(m_places)) {
        if (place.before.endpoint)
            zCaught([&] { place.before.endpoint->resume(); }); // the bus may be a plugin's
    }
    for (const Place &place : qAsConst(m_places)) {
        if (place.alive)
            place.next.endpoint->giveUp();
    }
}

void ZTakeover::run()
{
    retire();
    handOver();
    if (!begin())
        return;
    bind();
    m_isDone = true;
    leave();
}

/// Those that entered before, which begin nothing more. Who enters later waits for us, and so nobody in a circle.
void ZTakeover::retire()
{
    for (Place &place : m_places) {
        ZEndpoint::Private *const next = place.next.endpoint;
        ZEndpoints::Held before = ZEndpoints::before(next);
        if (before.endpoint && before.endpoint->root == m_root)
            next->fail(" is the URL of two of its endpoints");
        while (before.endpoint && !before.endpoint->retire()) // it has let go; then the one before that
            before = ZEndpoints::before(next);
        place.before = before;
    }
}

/// Those before, when nothing is under way in any of them: they may call each other.
void ZTakeover::handOver()
{
    QVector<ZGate *> gates;
    for (const Place &place : qAsConst(m_places)) {
        if (place.before.endpoint)
            gates.append(&place.before.endpoint->gate);
    }
    ZGate::drain(gates, ZGate::Held, QDeadlineTimer(ZEndpoints::PatienceMs));
    for (const Place &place : qAsConst(m_places)) {
        if (place.before.endpoint)
            place.before.endpoint->warnIfBusy();
    }
    for (Place &place : m_places) {
        if (place.before.endpoint)
            place.state = place.before.endpoint->handOver();
    }
}

/// False if the root lets go meanwhile, or nothing else is left: the plugin does not want to run. A part may not be
/// wanted: then it has no place.
bool ZTakeover::begin()
{
    for (const Place &place : qAsConst(m_places)) {
        if (!place.alive)
            continue;
        const bool isRoot = place.next.endpoint->q == m_root; // which we hold; a part may be deleted
        place.alive->begin(place.state);
        if (isRoot && !place.next.endpoint->self())
            return false;
    }
    const auto isIn = [](const Place &place) { return place.alive && place.next.endpoint->self(); };
    return std::count_if(m_places.begin(), m_places.end(), isIn) > 0;
}

/// Not before the last has begun: who called one that is taken back would have waited for nothing.
void ZTakeover::bind()
{
    for (const Place &place : qAsConst(m_places)) {
        if (place.alive && !place.next.endpoint->bind())
            place.next.endpoint->fail(": this URL cannot be bound");
    }
    for (const Place &place : qAsConst(m_places)) {
        if (place.alive)
            place.next.endpoint->gate.change(ZGate::Entering, ZGate::Open);
    }
}

/// Those before, with all else that there is of other versions of this plugin: it has no place for it.
void ZTakeover::leave()
{
    for (const Place &place : qAsConst(m_places)) {
        if (place.before.endpoint)
            place.before.endpoint->leave();
    }
    QVector<ZEndpoints::Held> others = ZEndpoints::of(m_dbus);
    const auto stays = [this](const ZEndpoints::Held &other) {
        const ZObject *const root = other.endpoint->root;
        return root == m_root || !other.endpoint->mayBeReplaced() || !isVersionOf(m_root, root);
    };
    others.erase(std::remove_if(others.begin(), others.end(), stays), others.end());
    ZEndpoints::letGo(others);
}
