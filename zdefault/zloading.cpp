// SPDX-License-Identifier: Apache-2.0
#include "zloading.h"

#include <QFile>

#include <atomic>
#include <vector>

namespace {

// "initial-exec", so that reading it never calls a function that might ask for memory: a signal handler reads it.
[[gnu::tls_model("initial-exec")]] thread_local const char *current = nullptr;

std::atomic_int loadingThreads{0};

using Listener = void (*)(const QByteArray &name, ZLoading::State state, const QString &reason);

std::vector<Listener> &listeners() // never destroyed: plugins are unloaded until the very end
{
    static auto &instance = *new std::vector<Listener>;
    return instance;
}

} // namespace

void ZLoading::tell(const QByteArray &name, State state, const QString &reason)
{
    for (const Listener listener : listeners())
        listener(name, state, reason);
}

ZLoading::ZLoading(const QString &name) : m_name(QFile::encodeName(name)), m_before(current)
{
    if (!current)
        ++loadingThreads;
    current = m_name.constData();
    tell(m_name, Begun);
}

ZLoading::~ZLoading()
{
    tell(m_name, Over);
    current = m_before;
    if (!current)
        --loadingThreads;
}

bool ZLoading::isUnderWayElsewhere() { return loadingThreads > int(current != nullptr); }

void ZLoading::end(const QString &failure) const { tell(m_name, failure.isNull() ? Loaded : Failed, failure); }

const char *zLoadingHere() { return current; }

void zTellLoads(void (*hear)(const QByteArray &name, ZLoading::State state, const QString &reason))
{
    listeners().push_back(hear);
}
