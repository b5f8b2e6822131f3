// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdbus.h"
#include "zdelegate.h"

/// Stands for a `ZDbus`.
class ZDEFAULT_EXPORT ZDbusDelegate : public ZDelegate, public ZDbus
{
public:
    explicit ZDbusDelegate(QObject *object);
    explicit ZDbusDelegate(QSharedPointer<QObject> object);

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override;
    bool find0(const QUrl &url) override;
    QList<QUrl> findAll0(const QRegularExpression &re) override;
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override;
};
