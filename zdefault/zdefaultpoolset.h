// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdelegate.h"
#include "zjobpoolset.h"
#include "zthreadpoolset.h"

/// Stands for a `ZJobPoolSet`.
class ZDEFAULT_EXPORT ZJobPoolSetDelegate : public ZDelegate, public ZJobPoolSet
{
public:
    explicit ZJobPoolSetDelegate(QObject *object);
    explicit ZJobPoolSetDelegate(QSharedPointer<QObject> object);

    QSharedPointer<ZJobPool> find0(const QString &name, int maxThreads, int expiryTimeout) override;
};

/// Stands for a `ZThreadPoolSet`.
class ZDEFAULT_EXPORT ZThreadPoolSetDelegate : public ZDelegate, public ZThreadPoolSet
{
public:
    explicit ZThreadPoolSetDelegate(QObject *object);
    explicit ZThreadPoolSetDelegate(QSharedPointer<QObject> object);

    QSharedPointer<ZThreadPool> find0(const QString &name) override;
};
