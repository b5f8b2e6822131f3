// SPDX-License-Identifier: Apache-2.0
// Calls //worker from several threads, wherever that is, and keeps an account: each call that was begun is handled, or
// fails with a reason. It is started by a call of //caller/start, and pauses by one of //caller/pause.
#include "account.h"

#include <zdbusoutcome.h>
#include <zendpoint.h>

#include <atomic>

class Caller : public ZEndpoint
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZDbusOutcome *zDbusOutcome MEMBER m_bus) // calls as the bus does, and tells why a call was not handled

public:
    Caller() : ZEndpoint(QUrl("//caller")) {}

protected:
    void begin(const QJsonObject &) override
    {
        const ZSettings own = settings();
        const int threads = own.number("threads", 4, 1, 64);
        m_account.open(own.text("account", ""));
        if (!own.check(zLogger()) || !m_bus)
            return letGo();
        for (int i = 0; i < threads; ++i)
            every(1, [this] { callOnce(); });
    }

    bool called(const QUrl &url, QJsonObject *, QJsonObject *) override
    {
        m_calls = url.path() == "/start";
        return m_calls || url.path() == "/pause";
    }

private:
    void callOnce()
    {
        if (!m_calls)
            return;
        const int number = ++m_count;
        const QString name = QString::number(number);
        m_account.note({"begun", name});
        QJsonObject in{{"number", number}};
        QJsonObject out;
        QJsonObject outcome;
        if (m_bus->call0(QUrl("//worker"), &in, &out, &outcome)) {
            m_account.note({"handled", name, out["host"].toString(), QString::number(out["version"].toInt())});
            return;
        }
        // Whether it was run: yes, no, or nobody knows.
        const QJsonValue was = outcome["called"];
        const QString run = was.isBool() ? QString(was.toBool() ? "run" : "not run") : QString("perhaps run");
        m_account.note(
            {"failed", name, QString::number(outcome["code"].toInt()), run, outcome["reason"].toString("no reason")});
    }

    ZDbusOutcome *m_bus = nullptr;
    std::atomic<bool> m_calls{false};
    std::atomic<int> m_count{0};
    Account m_account;
};

#include "caller.moc"
