// SPDX-License-Identifier: Apache-2.0
#include "zloading.h"

#include <QFile>
#include <QMutex>
#include <QMutexLocker>
#include <QSet>

namespace {

// Reached without a call that might ask for memory, which a signal's handler must not do.
[[gnu::tls_model("initial-exec")]] thread_local const char *current = nullptr;

QBasicMutex namesMutex;

/// Never destroyed: plugins are loaded until the very end.
QSet<QByteArray> &loadedNames()
{
    static auto &names = *new QSet<QByteArray>;
    return names;
}

} // namespace

ZLoading::ZLoading(const QString &name) : m_name(QFile::encodeName(name)), m_before(current)
{
    current = m_name.constData();
}

ZLoading::~ZLoading() { current = m_before; }

void ZLoading::end(bool isLoaded) const
{
    const QMutexLocker locker(&namesMutex);
    if (isLoaded)
        loadedNames().insert(m_name);
    else
        loadedNames().remove(m_name);
}

const char *zLoadingHere() { return current; }

bool zHasBeenLoaded(const QString &name)
{
    const QMutexLocker locker(&namesMutex);
    return loadedNames().contains(QFile::encodeName(name));
}
