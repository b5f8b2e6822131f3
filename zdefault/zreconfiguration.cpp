// SPDX-License-Identifier: Apache-2.0
#include "zreconfiguration.h"

#include "zlibrary.h"

#include <QHash>
#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <QSet>
#include <QVector>
#include <QWeakPointer>

#include <algorithm>

namespace {

struct Loaded
{
    QWeakPointer<ZLibrary> library;
    const ZEmitter *emitter;
};

/// Never destroyed: plugins are loaded until the very end.
struct State
{
    QMutex mutex; // guards all that follow
    QVector<Loaded> loaded;
    QHash<const ZEmitter *, QJsonObject> newest; // the section "plugins"
    int count = 0;                               // how often settings have changed

    static State &get()
    {
        static auto &state = *new State;
        return state;
    }
};

QJsonObject sectionOf(const QJsonObject &configuration)
{
    return configuration.value(QStringLiteral("plugins")).toObject();
}

} // namespace

ZReconfiguration::ZReconfiguration()
    : m_count([] {
          const QMutexLocker locker(&State::get().mutex);
          return State::get().count;
      }())
{}

void ZReconfiguration::end(const QSharedPointer<ZLibrary> &library, const ZEmitter *emitter) const
{
    State &state = State::get();
    QMutexLocker locker(&state.mutex);
    const auto isGone = [](const Loaded &each) { return each.library.isNull(); };
    state.loaded.erase(std::remove_if(state.loaded.begin(), state.loaded.end(), isGone), state.loaded.end());
    state.loaded.append({library, emitter});
    if (state.count == m_count || !state.newest.contains(emitter))
        return;
    const QJsonObject newest = state.newest.value(emitter);
    locker.unlock();
    library->configure(newest.value(library->name()).toObject());
}

QStringList ZReconfiguration::tell(const ZEmitter *emitter, const QJsonObject &before, const QJsonObject &now)
{
    const QJsonObject old = sectionOf(before);
    const QJsonObject newest = sectionOf(now);
    if (old == newest)
        return {};
    State &state = State::get();
    QMutexLocker locker(&state.mutex);
    state.newest.insert(emitter, newest);
    ++state.count;
    const QVector<Loaded> loaded = state.loaded;
    locker.unlock();

    QStringList names;
    QSet<const QObject *> told; // a file that is loaded under two names has one root
    for (const Loaded &each : loaded) {
        const QSharedPointer<ZLibrary> library =
            each.emitter == emitter ? each.library.toStrongRef() : QSharedPointer<ZLibrary>();
        const QString name = library ? library->name() : QString();
        if (!library || old.value(name) == newest.value(name))
            continue;
        if (const QObject *const root = library->configure(newest.value(name).toObject(), told)) {
            told.insert(root);
            names.append(name);
        }
    }
    names.removeDuplicates();
    return names;
}
