// SPDX-License-Identifier: Apache-2.0
#include "deployerlock.h"

namespace {

constexpr int PatienceMs = 10000;

} // namespace

DeployerLock::DeployerLock(const QString &hotDeploy) : m_folder(hotDeploy), m_lock(hotDeploy, PatienceMs) {}

QString DeployerLock::error() const
{
    return m_lock.holder().isNull() ? m_lock.error()
                                    : QStringLiteral("%1 is being deployed to by %2").arg(m_folder, m_lock.holder());
}
