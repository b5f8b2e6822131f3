// SPDX-License-Identifier: Apache-2.0
#include "serviceinterfaces.h"

#include <QObject>

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
#include <zscheduler.h>
#include <ztempfile.h>
#include <zthreadpoolset.h>

namespace {

template <class Interface>
bool isUnlisted(QObject *object)
{
    return dynamic_cast<Interface *>(object) && !object->qt_metacast(qobject_interface_iid<Interface *>());
}

const struct
{
    const char *name;
    bool (*isUnlisted)(QObject *object);
} interfaces[] = {
    {"ZConfig", isUnlisted<ZConfig>},
    {"ZContext", isUnlisted<ZContext>},
    {"ZDbus", isUnlisted<ZDbus>},
    {"ZDbusAsync", isUnlisted<ZDbusAsync>},
    {"ZDbusLayer", isUnlisted<ZDbusLayer>},
    {"ZDbusOutcome", isUnlisted<ZDbusOutcome>},
    {"ZDbusReach", isUnlisted<ZDbusReach>},
    {"ZEmitter", isUnlisted<ZEmitter>},
    {"ZJobPoolSet", isUnlisted<ZJobPoolSet>},
    {"ZLease", isUnlisted<ZLease>},
    {"ZLoader", isUnlisted<ZLoader>},
    {"ZLogger", isUnlisted<ZLogger>},
    {"ZScheduler", isUnlisted<ZScheduler>},
    {"ZTempFile", isUnlisted<ZTempFile>},
    {"ZThreadPoolSet", isUnlisted<ZThreadPoolSet>},
};

} // namespace

QStringList serviceInterfaces()
{
    QStringList names;
    for (const auto &interface : interfaces)
        names.append(QLatin1String(interface.name));
    return names;
}

QStringList unlistedInterfaces(QObject *object)
{
    QStringList names;
    for (const auto &interface : interfaces) {
        if (interface.isUnlisted(object))
            names.append(QLatin1String(interface.name));
    }
    return names;
}
