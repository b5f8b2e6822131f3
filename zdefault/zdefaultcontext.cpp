// SPDX-License-Identifier: Apache-2.0
#include "zdefaultcontext.h"

#include "ztypename.h"
#include "zwiring.h"

#include <QHash>
#include <QMutex>
#include <QMutexLocker>
#include <QSet>
#include <QThreadStorage>

namespace {

using Values = QHash<int, QVariant>; // by type

// These two are never destroyed: a context may be in static storage, and threads may outlive main().

/// Each thread's values, by context. There is one storage for all contexts, and it is never destroyed: Qt gives the
/// slot of a destroyed storage to the next one, together with the values that running threads have in it.
QThreadStorage<QHash<quint64, Values>> &threadValues()
{
    static auto &instance = *new QThreadStorage<QHash<quint64, Values>>;
    return instance;
}

QBasicMutex livingMutex;

QSet<quint64> &living() // the contexts that exist; guarded by livingMutex
{
    static auto &instance = *new QSet<quint64>;
    return instance;
}

quint64 newContext()
{
    static quint64 last = 0;
    const QMutexLocker locker(&livingMutex);
    living().insert(++last);
    return last;
}

/// Drops the values that this thread has in contexts that are gone.
void dropDead(QHash<quint64, Values> &values)
{
    QHash<quint64, Values> dead; // destroyed at the end: a value's destructor may come back here
    const QMutexLocker locker(&livingMutex);
    for (auto entry = values.begin(); entry != values.end();) {
        if (living().contains(entry.key())) {
            ++entry;
        } else {
            dead.insert(entry.key(), entry.value());
            entry = values.erase(entry);
        }
    }
}

} // namespace

const char *zDefaultContextTypeName() { return zTypeName<ZDefaultContext>("ZDefaultContext*"); }

const char *const ZDefaultContext::TypeName = zDefaultContextTypeName();

ZDefaultContext::ZDefaultContext() : m_id(newContext()) {}

ZDefaultContext::~ZDefaultContext()
{
    const QMutexLocker locker(&livingMutex);
    living().remove(m_id);
}

bool ZDefaultContext::load0(QVariant &value)
{
    if (!value.isValid() || !threadValues().hasLocalData())
        return false;
    const Values values = threadValues().localData().value(m_id);
    const auto found = values.constFind(value.userType());
    if (found == values.constEnd())
        return false;
    value = *found;
    return true;
}

bool ZDefaultContext::save0(QVariant &value)
{
    if (!value.isValid())
        return false;
    QHash<quint64, Values> &contexts = threadValues().localData();
    if (!contexts.contains(m_id))
        dropDead(contexts);
    QVariant other = value;
    other.swap(contexts[m_id][value.userType()]); // the old value ends last: its destructor may come here
    return true;
}

ZEmitter *ZDefaultContext::getSetZEmitter(ZEmitter *emitter) { return zAnnounce<ZContextDelegate>(this, emitter); }

ZContextDelegate::ZContextDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZContext>(this); }

ZContextDelegate::ZContextDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZContext>(this);
}

bool ZContextDelegate::load0(QVariant &value) { return forward(&ZContext::load0, false, value); }

bool ZContextDelegate::save0(QVariant &value) { return forward(&ZContext::save0, false, value); }
