// SPDX-License-Identifier: Apache-2.0
#include "greeter.h"

#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zdefaultfilesystem.h>
#include <zemitter.h>
#include <zlogger.h>
#include <zobject.h>

#include <QCoreApplication>
#include <QJsonObject>
#include <QSemaphore>
#include <QTemporaryFile>
#include <QUrl>

#include <stdexcept>

/// Serves `ZTempFile`, and is the endpoint "//lodger", which holds itself until it is asked to release it. A call of
/// "/wait" waits, as the event loop does after one of "/hang", until "/go" is called. It
/// throws when it is to release itself after one of "/refuse". "/announce" and "/chatter" do so as often as they are
/// told.
class Lodger : public ZObject, public ZTempFile, public ZDbusSubscriber
{
    Q_OBJECT
    Q_INTERFACES(ZTempFile)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger MEMBER m_logger)
    Q_PROPERTY(Greeter *greeter MEMBER m_greeter) // which no host serves
    Q_PROPERTY(QString greeting MEMBER m_greeting)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    Lodger()
    {
        connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_self.clear(); });
    }

    QSharedPointer<QTemporaryFile> newFile0() override { return {}; }

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        const QString path = url.path();
        if (path == QLatin1String("/wait"))
            m_gate.acquire();
        else if (path == QLatin1String("/hang"))
            QMetaObject::invokeMethod(
                this, [this] { m_gate.acquire(); }, Qt::QueuedConnection);
        else if (path == QLatin1String("/go"))
            m_gate.release();
        else if (path == QLatin1String("/nest"))
            *out = nested(in->value(QStringLiteral("levels")).toInt());
        else if (path == QLatin1String("/refuse"))
            m_letsGo = false;
        else if (path == QLatin1String("/release"))
            letGo();
        else if (path == QLatin1String("/announce"))
            announce(in->value(QStringLiteral("times")).toInt());
        else if (path == QLatin1String("/chatter"))
            chatter(in->value(QStringLiteral("lines")).toInt(), in->value(QStringLiteral("length")).toInt());
        return true;
    }

    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (dbus) {
            m_self = shared(); // the bus holds it weakly
            dbus->bind0(QUrl(QStringLiteral("//lodger")), qSharedPointerDynamicCast<ZDbusSubscriber>(m_self));
        }
        return dbus;
    }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        m_emitter = emitter;
        announce(1);
        return emitter;
    }

private:
    /// An object in an object, so many of them.
    static QJsonObject nested(int levels)
    {
        QJsonObject result;
        for (int i = 1; i < levels; ++i)
            result = QJsonObject{{QStringLiteral("in"), result}};
        return result;
    }

    void letGo()
    {
        if (!m_letsGo)
            throw std::runtime_error("no");
        m_self.clear();
    }

    void announce(int times)
    {
        for (int i = 0; i < times; ++i)
            m_emitter->bind0(QSharedPointer<ZTempFileDelegate>::create(m_self));
    }

    void chatter(int lines, int length)
    {
        const QString text = QStringLiteral("lodger: %1").arg(QString(length, QLatin1Char('.')));
        for (int i = 0; i < lines; ++i)
            m_logger->info0(text);
    }

    ZLogger *m_logger = nullptr;
    ZEmitter *m_emitter = nullptr;
    Greeter *m_greeter = nullptr;
    QString m_greeting;
    bool m_letsGo = true;
    QSharedPointer<QObject> m_self;
    QSemaphore m_gate;
};

#include "lodger.moc"
