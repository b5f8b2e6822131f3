// SPDX-License-Identifier: Apache-2.0
#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QFile>

#include <stdexcept>

#include <sys/resource.h>
#include <unistd.h>

/// The endpoint "//echo": answers what it is asked, handles nothing under "/deaf", nor under "/while/PATH" where there
/// is no file PATH, and throws under "/throw" and "/odd". Under "/niceness" it tells that of the thread that calls.
class Echo : public ZObject, public ZDbusSubscriber
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)

public:
    Echo()
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
            dbus->bind0(QUrl(QStringLiteral("//echo")), qSharedPointerDynamicCast<ZDbusSubscriber>(m_self));
        }
        return m_dbus;
    }

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        if (url.path() == QLatin1String("/deaf"))
            return false;
        if (const QString path = url.path(); path.startsWith(QLatin1String("/while/")) && !QFile::exists(path.mid(6)))
            return false;
        if (url.path() == QLatin1String("/throw"))
            throw std::runtime_error("no more");
        if (url.path() == QLatin1String("/odd"))
            throw 1;
        if (url.path() == QLatin1String("/niceness") && out)
            out->insert(QStringLiteral("niceness"), getpriority(PRIO_PROCESS, id_t(gettid())));
        m_logger->info0(QStringLiteral("echo: ") + url.toString());
        if (in && out)
            out->insert(QStringLiteral("echo"), *in);
        return true;
    }

private:
    ZLogger *m_logger = nullptr;
    ZDbus *m_dbus = nullptr;
    QSharedPointer<QObject> m_self;
};

#include "echo.moc"
