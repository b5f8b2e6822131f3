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

// Neither is ever destroyed: a context may be in static storage, and threads may outlive main().

/// Each thread's values, by context. One storage for all contexts, and for ever: Qt gives the place of a storage that
/// is destroyed to the next one, together with what threads that still run have in it.
QThreadStorage<QHash<quint64, Values>> &threadValues()
{
    static auto &instance = *new QThreadStorage<QHash<quint64, Values>>;
    return instance;
}

QBasicMutex livingMutex;

QSet<quint64> &living() // the contexts that there are; guarded by livingMutex
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

/// Drops what this thread has of contexts that are gone.
void dropDead(QHash<quint64, Values> &values)
{
    QHash<quint64, Values> dead; // to the end: a value's destructor may come back here
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
    other.swap(contexts[m_id][value.userType()]); // the one before goes at the end: its destructor may come back here
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
