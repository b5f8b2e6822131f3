// SPDX-License-Identifier: Apache-2.0
#include "zloading.h"

#include <QFile>

namespace {

// Reached without a call that might ask for memory, which a signal's handler must not do.
[[gnu::tls_model("initial-exec")]] thread_local const char *current = nullptr;

} // namespace

ZLoading::ZLoading(const QString &name) : m_name(QFile::encodeName(name)), m_before(current)
{
    current = m_name.constData();
}

ZLoading::~ZLoading() { current = m_before; }

const char *zLoadingHere() { return current; }
