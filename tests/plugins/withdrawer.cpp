// SPDX-License-Identifier: Apache-2.0
#include <zdbus.h>
#include <zdefaultconfig.h>
#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultfilesystem.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>
#include <zobject.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

#include <cstdio>

namespace {

template <class Delegate>
void withdraw(ZEmitter *emitter)
{
    emitter->bind0(QSharedPointer<Delegate>::create(QSharedPointer<QObject>()));
}

const struct
{
    const char *name;
    void (*withdraw)(ZEmitter *emitter);
} services[] = {{"ZConfig", withdraw<ZConfigDelegate>},
                {"ZContext", withdraw<ZContextDelegate>},
                {"ZDbus", withdraw<ZDbusDelegate>},
                {"ZEmitter", withdraw<ZEmitterDelegate>},
                {"ZJobPoolSet", withdraw<ZJobPoolSetDelegate>},
                {"ZLoader", withdraw<ZLoaderDelegate>},
                {"ZLogger", withdraw<ZLoggerDelegate>},
                {"ZScheduler", withdraw<ZSchedulerDelegate>},
                {"ZTempFile", withdraw<ZTempFileDelegate>},
                {"ZThreadPoolSet", withdraw<ZThreadPoolSetDelegate>}};

} // namespace

/// Withdraws the service that the environment's WITHDRAW names, or serves "registries" of which there are none. From
/// the event loop it writes to stderr what "//zhost/printd" answers then.
class Withdrawer : public ZObject, public ZThreadPoolSet
{
    Q_OBJECT
    Q_INTERFACES(ZThreadPoolSet)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZDbus *zDbus MEMBER m_dbus)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (!emitter)
            return emitter;
        const QByteArray withdrawn = qgetenv("WITHDRAW");
        for (const auto &service : services) {
            if (withdrawn == service.name)
                service.withdraw(emitter);
        }
        m_self = shared();
        if (withdrawn == "registries")
            emitter->bind0(QSharedPointer<ZThreadPoolSetDelegate>::create(m_self));
        connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_self.clear(); });
        const auto reports = [this] {
            report("//zhost/printd");
            report("/printd");
            std::fputs("that was all\n", stderr);
        };
        QMetaObject::invokeMethod(this, reports, Qt::QueuedConnection);
        return emitter;
    }

    QSharedPointer<ZThreadPool> find0(const QString &) override { return {}; }

private:
    void report(const char *url)
    {
        QJsonObject answer;
        m_dbus->invoke0(QUrl(QString(url)), nullptr, &answer);
        std::fprintf(stderr, "%s: %s\n", url, QJsonDocument(answer).toJson(QJsonDocument::Compact).constData());
    }

    ZDbus *m_dbus = nullptr;
    QSharedPointer<QObject> m_self;
};

#include "withdrawer.moc"
