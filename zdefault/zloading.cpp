// SPDX-License-Identifier: Apache-2.0
#include "zloading.h"

#include <QFile>

namespace {

// Reached without a call that might ask for memory, which a signal's handler must not do.
[[gnu::tls_model("initial-exec")]] thread_local const char *current = nullptr;

void (*listener)(const QByteArray &name, bool isLoaded) = nullptr;

} // namespace

ZLoading::ZLoading(const QString &name) : m_name(QFile::encodeName(name)), m_before(current)
{
    current = m_name.constData();
}

ZLoading::~ZLoading() { current = m_before; }

void ZLoading::end(bool isLoaded) const
{
    if (listener)
        listener(m_name, isLoaded);
}

const char *zLoadingHere() { return current; }

void zTellLoads(void (*hear)(const QByteArray &name, bool isLoaded)) { listener = hear; }
