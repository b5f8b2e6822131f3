// SPDX-License-Identifier: Apache-2.0
#include "zdefaultdbus.h"

ZDbusDelegate::ZDbusDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZDbus>(this); }

ZDbusDelegate::ZDbusDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZDbus>(this);
}

bool ZDbusDelegate::bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber)
{
    return forward(&ZDbus::bind0, false, url, subscriber);
}

bool ZDbusDelegate::find0(const QUrl &url) { return forward(&ZDbus::find0, false, url); }

QList<QUrl> ZDbusDelegate::findAll0(const QRegularExpression &re) { return forward(&ZDbus::findAll0, {}, re); }

bool ZDbusDelegate::invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    return forward(&ZDbus::invoke0, false, url, in, out);
}
