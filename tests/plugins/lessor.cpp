// SPDX-License-Identifier: Apache-2.0
#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zemitter.h>
#include <zlease.h>
#include <zleasedelegate.h>
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QFile>
#include <QMutex>
#include <QMutexLocker>

#include <stdexcept>

#include <sys/file.h>

/// Serves `ZLease`, and logs each call of it. By the variable LESSOR this host has each lease ("mine"), or another one
/// has it ("theirs", or "silent" without a reason), or the service throws. Any other value is a file in which hosts
/// note the last slot that has begun: who comes first has the turn. The endpoint "//lessor/NEW" changes the value.
class Lessor : public ZObject, public ZLease, public ZDbusSubscriber
{
    Q_OBJECT
    Q_INTERFACES(ZLease)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    Lessor() : m_deed(qEnvironmentVariable("LESSOR", QStringLiteral("mine")))
    {
        connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_self.clear(); });
    }

    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        zKeepFirst(m_logger, logger);
        return m_logger;
    }
    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (zKeepFirst(m_dbus, dbus)) {
            m_self = shared();
            dbus->bind0(QUrl(QStringLiteral("//lessor")), qSharedPointerDynamicCast<ZDbusSubscriber>(m_self));
        }
        return m_dbus;
    }
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (zKeepFirst(m_emitter, emitter))
            emitter->bind0(QSharedPointer<ZLeaseDelegate>::create(shared()));
        return m_emitter;
    }

    bool invoked(const QUrl &url, QJsonObject *, QJsonObject *) override
    {
        const QMutexLocker locker(&m_mutex);
        m_deed = url.path().mid(1);
        return true;
    }

    bool want0(const QString &name, int msecs) override
    {
        m_logger->info0(QStringLiteral("lessor: want %1 %2").arg(name).arg(msecs));
        return true;
    }
    void forget0(const QString &name) override { m_logger->info0(QStringLiteral("lessor: forget %1").arg(name)); }
    bool begin0(const QString &name, qint64 slot, QString &reason) override
    {
        const QString deed = this->deed();
        if (deed == QLatin1String("throws"))
            throw std::runtime_error("no lease");
        reason = deed == QLatin1String("theirs") ? QStringLiteral("node7 has the lease") : QString();
        const bool isMine = deed == QLatin1String("mine") || (deed.startsWith(QLatin1Char('/')) && isFirst(deed, slot));
        m_logger->info0(QStringLiteral("lessor: begin %1 %2 %3").arg(name).arg(slot).arg(isMine));
        return isMine;
    }

private:
    QString deed()
    {
        const QMutexLocker locker(&m_mutex);
        return m_deed;
    }

    /// Notes the slot, unless it or a later one is noted.
    static bool isFirst(const QString &path, qint64 slot)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadWrite) || flock(file.handle(), LOCK_EX) != 0)
            return false;
        if (file.readAll().toLongLong() >= slot)
            return false;
        file.resize(0);
        file.seek(0);
        file.write(QByteArray::number(slot));
        return file.flush();
    }

    QMutex m_mutex; // guards m_deed
    QString m_deed;
    ZLogger *m_logger = nullptr;
    ZDbus *m_dbus = nullptr;
    ZEmitter *m_emitter = nullptr;
    QSharedPointer<QObject> m_self;
};

#include "lessor.moc"
