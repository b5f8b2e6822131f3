// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zconfig.h"
#include "zcontext.h"
#include "zdbus.h"
#include "zemitter.h"
#include "zglobal.h"
#include "zjobpoolset.h"
#include "zloader.h"
#include "zlogger.h"
#include "zscheduler.h"
#include "ztempfile.h"
#include "zthreadpoolset.h"

#include <QObject>

/**
 * The ten services, as a component gets them.
 *
 * Ownership: owns none: as long as the emitter lives, each pointer leads to the component that serves at the moment.
 * Thread:    made and injected on one thread; the services are called on any.
 * Failure:   a pointer is null if nobody had served its interface when this was injected.
 */
class ZDEFAULT_EXPORT ZServices : public QObject
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
    explicit ZServices(QObject *parent = nullptr);
    ~ZServices() override;

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
};
