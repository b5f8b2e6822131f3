// SPDX-License-Identifier: Apache-2.0
// Qt's own: D-Bus, over a daemon.
#include "way.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QThread>

namespace {

class Echo : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "z.Echo")

public Q_SLOTS:
    Q_SCRIPTABLE QString echo(const QString &text) { return text; }
};

class DbusWay : public Way
{
public:
    explicit DbusWay(const QString &address) : m_address(address) {}

    void serve() override
    {
        QDBusConnection bus = QDBusConnection::connectToBus(m_address, "server");
        bus.registerObject("/echo", &m_echo, QDBusConnection::ExportScriptableSlots);
        bus.registerService("z.Echo");
    }

    Call caller(const std::string &payload) override
    {
        const QString name = QString::number(quintptr(QThread::currentThreadId()));
        const QDBusConnection bus = QDBusConnection::connectToBus(m_address, name);
        return [bus, text = QString::fromStdString(payload)] {
            QDBusMessage request = QDBusMessage::createMethodCall("z.Echo", "/echo", "z.Echo", "echo");
            request << text;
            return bus.call(request, QDBus::Block, 2000).type() == QDBusMessage::ReplyMessage;
        };
    }

private:
    const QString m_address;
    Echo m_echo;
};

} // namespace

std::unique_ptr<Way> dbusWay(const QString &address) { return std::make_unique<DbusWay>(address); }

#include "dbusway.moc"
