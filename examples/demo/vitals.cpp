// SPDX-License-Identifier: Apache-2.0
// Writes now and then how its process is doing.
#include <zlibrary.h>
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QFile>
#include <QTimer>

class Vitals : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)

public:
    Vitals()
    {
        connect(&m_timer, &QTimer::timeout, this, &Vitals::report);
        connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_self.clear(); });
    }

    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        if (zKeepFirst(m_logger, logger)) {
            m_self = *this;
            m_timer.start(1000);
        }
        return m_logger;
    }

private:
    void report()
    {
        QFile status(QStringLiteral("/proc/self/status"));
        status.open(QIODevice::ReadOnly);
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("VmRSS:"))
                m_logger->info0(QStringLiteral("vitals: %1 in memory").arg(QString::fromLatin1(line.mid(6).trimmed())));
        }
    }

    ZLogger *m_logger = nullptr;
    QSharedPointer<ZLibrary> m_self;
    QTimer m_timer;
};

#include "vitals.moc"
