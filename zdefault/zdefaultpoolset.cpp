// SPDX-License-Identifier: Apache-2.0
#include "zdefaultpoolset.h"

ZJobPoolSetDelegate::ZJobPoolSetDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZJobPoolSet>(this); }

ZJobPoolSetDelegate::ZJobPoolSetDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZJobPoolSet>(this);
}

QSharedPointer<ZJobPool> ZJobPoolSetDelegate::find0(const QString &name, int maxThreads, int expiryTimeout)
{
    return forward(&ZJobPoolSet::find0, {}, name, maxThreads, expiryTimeout);
}

ZThreadPoolSetDelegate::ZThreadPoolSetDelegate(QObject *object) : ZDelegate(refer(object))
{
    provide<ZThreadPoolSet>(this);
}

ZThreadPoolSetDelegate::ZThreadPoolSetDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZThreadPoolSet>(this);
}

QSharedPointer<ZThreadPool> ZThreadPoolSetDelegate::find0(const QString &name)
{
    return forward(&ZThreadPoolSet::find0, {}, name);
}
