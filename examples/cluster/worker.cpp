// SPDX-License-Identifier: Apache-2.0
// An endpoint that does what it is asked to, and keeps an account of it. Callers may be in other processes, on other
// machines: nothing here says so.
#include "account.h"

#include <zendpoint.h>

#include <QThread>

#ifndef WORKER_VERSION
#define WORKER_VERSION 1
#endif

class Worker : public ZEndpoint
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Worker() : ZEndpoint(QUrl("//worker")) {}

protected:
    void begin(const QJsonObject &) override
    {
        const ZSettings own = settings();
        m_host = own.text("host", "somewhere");
        m_account.open(own.text("account", ""));
        own.check(zLogger());
    }

    // On several threads at once.
    bool called(const QUrl &, QJsonObject *in, QJsonObject *out) override
    {
        if (in && in->contains("number"))
            m_account.note({QString::number(in->value("number").toInt()), QString::number(WORKER_VERSION)});
        QThread::msleep(2); // the work
        if (out)
            *out = {{"host", m_host}, {"version", WORKER_VERSION}};
        return true;
    }

private:
    QString m_host;
    Account m_account;
};

#include "worker.moc"
