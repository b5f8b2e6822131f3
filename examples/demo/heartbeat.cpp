// SPDX-License-Identifier: Apache-2.0
// Writes a line four times a second, through the logger of the moment.
#include <zlibrary.h>
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QTimer>

class Heartbeat : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)

public:
    Heartbeat()
    {
        connect(&m_timer, &QTimer::timeout, this, &Heartbeat::beat);
        connect(qApp, &QCoreApplication::aboutToQuit, this, &Heartbeat::stop);
    }

    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        if (zKeepFirst(m_logger, logger)) {
            m_self = *this;
            m_timer.start(250);
        }
        return m_logger;
    }

private:
    void beat() { m_logger->info0(QStringLiteral("heartbeat %1").arg(++m_count)); }

    void stop()
    {
        m_timer.stop();
        m_self.clear();
    }

    ZLogger *m_logger = nullptr;
    QSharedPointer<ZLibrary> m_self; // a plugin that serves no interface stays loaded only while it holds itself
    QTimer m_timer;
    int m_count = 0;
};

#include "heartbeat.moc"
