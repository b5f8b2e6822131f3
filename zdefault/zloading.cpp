// SPDX-License-Identifier: Apache-2.0
#include "zloading.h"

#include <QFile>

namespace {

// Reached without a call that might ask for memory, which a signal's handler must not do.
[[gnu::tls_model("initial-exec")]] thread_local const char *current = nullptr;

void (*listener)(const QByteArray &name, ZLoading::State state) = nullptr;

void tell(const QByteArray &name, ZLoading::State state)
{
    if (listener)
        listener(name, state);
}

} // namespace

ZLoading::ZLoading(const QString &name) : m_name(QFile::encodeName(name)), m_before(current)
{
    current = m_name.constData();
    tell(m_name, Begun);
}

ZLoading::~ZLoading()
{
    tell(m_name, Over);
    current = m_before;
}

void ZLoading::end(bool isLoaded) const { tell(m_name, isLoaded ? Loaded : Failed); }

const char *zLoadingHere() { return current; }

void zTellLoads(void (*hear)(const QByteArray &name, ZLoading::State state)) { listener = hear; }
