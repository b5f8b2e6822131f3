// SPDX-License-Identifier: Apache-2.0
#include "zfunction.h"

#include "zcaught.h"
#include "zjobpool.h"
#include "ztexts.h"

#include <QtDebug>

namespace {

void tell(const QString &who, const QString &thrown)
{
    if (!thrown.isNull())
        qWarning("%s has thrown an exception: %s", qUtf8Printable(who), qUtf8Printable(thrown));
}

} // namespace

ZFunctionJob::ZFunctionJob(QSharedPointer<QObject> owner, std::function<void()> function)
    : ZJob({}, {}), m_owner(std::move(owner)), m_function(std::move(function))
{}

ZFunctionJob::~ZFunctionJob() = default;

void ZFunctionJob::start(ZJobPool *pool, QSharedPointer<QObject> owner, std::function<void()> function)
{
    if (pool && function)
        pool->start({new ZFunctionJob(std::move(owner), std::move(function)), [](ZJob *) {}}, false, 0);
}

void ZFunctionJob::run() { tell(QStringLiteral("a job"), zCaught(m_function)); }

ZFunctionActivity::ZFunctionActivity(QSharedPointer<ZSchedule> schedule, const QString &name,
                                     QSharedPointer<QObject> owner, std::function<bool()> function)
    : ZOwnerHolder(std::move(owner)), ZScheduledActivity(std::move(schedule)), m_name(zDeepCopy(name)),
      m_function(std::move(function))
{}

ZFunctionActivity::~ZFunctionActivity() = default;

QString ZFunctionActivity::name() const { return m_name; }

bool ZFunctionActivity::run()
{
    bool goesOn = m_function != nullptr;
    tell(m_name, zCaught([&] { goesOn = goesOn && m_function(); }));
    return goesOn;
}
