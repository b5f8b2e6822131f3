// SPDX-License-Identifier: Apache-2.0
#include <zdbusasync.h>
#include <zdbusoutcome.h>
#include <zendpoint.h>

#include <QMutex>

class Asker : public ZEndpoint, public ZDbusReceiver
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZDbusAsync *zDbusAsync MEMBER m_async)
    Q_PROPERTY(ZDbusOutcome *zDbusOutcome MEMBER m_outcome)

public:
    Asker() : ZEndpoint(QUrl("//asker")) {}

    void answered(qint64, const QJsonObject &answer) override // on the root's own thread
    {
        const QMutexLocker locker(&m_mutex);
        m_last = answer;
    }

protected:
    bool called(const QUrl &url, QJsonObject *, QJsonObject *out) override
    {
        const QUrl clock("//clock");
        if (url.path() == "/begin") // does not wait
            return m_async->begin0(clock, {{"out", QJsonObject()}}, qSharedPointerDynamicCast<ZDbusReceiver>(shared()));
        if (!out)
            return false;
        if (url.path() == "/wait") {
            QJsonObject time, outcome;
            const bool isHandled = m_outcome->call0(clock, nullptr, &time, &outcome);
            *out = {{"handled", isHandled}, {"out", time}, {"outcome", outcome}};
            return true;
        }
        const QMutexLocker locker(&m_mutex);
        *out = m_last;
        return true;
    }

private:
    ZDbusAsync *m_async = nullptr;
    ZDbusOutcome *m_outcome = nullptr;
    QMutex m_mutex; // guards m_last
    QJsonObject m_last;
};

#include "asker.moc"
