// SPDX-License-Identifier: Apache-2.0
// An endpoint on the bus, which tells the time when it is called. Its next version takes over without missing a call.
#include <zendpoint.h>

#include <QTime>

#ifndef CLOCK_VERSION
#define CLOCK_VERSION 1
#endif

class Clock : public ZEndpoint
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Clock() : ZEndpoint(QUrl("//clock")) {}

protected:
    // Called on whatever thread the caller has: a scheduled call comes on a thread of its own.
    bool called(const QUrl &, QJsonObject *, QJsonObject *out) override
    {
        const QString time = QTime::currentTime().toString();
        zLogger()->info0(QString("clock %1: it is %2").arg(QString::number(CLOCK_VERSION), time));
        if (out)
            out->insert("time", time);
        return true;
    }
};

#include "clock.moc"
