// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

#include <zconfig.h>
#include <zcontext.h>
#include <zdbus.h>
#include <zemitter.h>
#include <zjobpoolset.h>
#include <zloader.h>
#include <zlogger.h>
#include <zscheduler.h>
#include <ztempfile.h>
#include <zthreadpool.h>
#include <zthreadpoolset.h>

/// All services, as a component gets them. Those that nobody provides are null.
class Services : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZConfig *config MEMBER config)
    Q_PROPERTY(ZContext *context MEMBER context)
    Q_PROPERTY(ZDbus *dbus MEMBER dbus)
    Q_PROPERTY(ZEmitter *emitter MEMBER emitter)
    Q_PROPERTY(ZJobPoolSet *jobPoolSet MEMBER jobPoolSet)
    Q_PROPERTY(ZLoader *loader MEMBER loader)
    Q_PROPERTY(ZLogger *logger MEMBER logger)
    Q_PROPERTY(ZScheduler *scheduler MEMBER scheduler)
    Q_PROPERTY(ZTempFile *tempFile MEMBER tempFile)
    Q_PROPERTY(ZThreadPoolSet *threadPoolSet MEMBER threadPoolSet)

public:
    ZConfig *config = nullptr;
    ZContext *context = nullptr;
    ZDbus *dbus = nullptr;
    ZEmitter *emitter = nullptr;
    ZJobPoolSet *jobPoolSet = nullptr;
    ZLoader *loader = nullptr;
    ZLogger *logger = nullptr;
    ZScheduler *scheduler = nullptr;
    ZTempFile *tempFile = nullptr;
    ZThreadPoolSet *threadPoolSet = nullptr;

    /// The threads of all that is scheduled.
    QSharedPointer<ZThreadPool> activities() const
    {
        return threadPoolSet->find0(QStringLiteral("Pool-ZSchedulerThread"));
    }
};
