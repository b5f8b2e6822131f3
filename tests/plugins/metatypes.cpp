// SPDX-License-Identifier: Apache-2.0
#include <zconfig.h>
#include <zcontext.h>
#include <zdbus.h>
#include <zdbusasync.h>
#include <zdbuslayer.h>
#include <zdbusoutcome.h>
#include <zdbusreach.h>
#include <zemitter.h>
#include <zjobpoolset.h>
#include <zlease.h>
#include <zloader.h>
#include <zlogger.h>
#include <zobject.h>
#include <zscheduler.h>
#include <ztempfile.h>
#include <zthreadpoolset.h>

/// Registers the types of the framework from its own code, as every plugin does with those that it uses.
class MetaTypes : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    MetaTypes()
    {
        qRegisterMetaType<ZConfig *>();
        qRegisterMetaType<ZContext *>();
        qRegisterMetaType<ZDbus *>();
        qRegisterMetaType<ZDbusAsync *>();
        qRegisterMetaType<ZDbusLayer *>();
        qRegisterMetaType<ZDbusOutcome *>();
        qRegisterMetaType<ZDbusReach *>();
        qRegisterMetaType<ZEmitter *>();
        qRegisterMetaType<ZJobPoolSet *>();
        qRegisterMetaType<ZLease *>();
        qRegisterMetaType<ZLoader *>();
        qRegisterMetaType<ZLogger *>();
        qRegisterMetaType<ZScheduler *>();
        qRegisterMetaType<ZTempFile *>();
        qRegisterMetaType<ZThreadPoolSet *>();
    }
};

#include "metatypes.moc"
