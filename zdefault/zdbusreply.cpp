// SPDX-License-Identifier: Apache-2.0
#include "zdbusreply.h"

#include "zcaught.h"
#include "zeventloop.h"

#include <QReadLocker>
#include <QThread>
#include <QWriteLocker>
#include <QtDebug>

#include <utility>

namespace {

constexpr int LineKind = 1;

QObject *objectOf(ZDbusReceiver *receiver) { return dynamic_cast<QObject *>(receiver); }

/// It may have become the last share.
void letGo(QSharedPointer<ZDbusReceiver> receiver)
{
    if (QObject *const object = objectOf(receiver.data()))
        zLetGoAtHome(object, std::make_shared<QSharedPointer<ZDbusReceiver>>(std::move(receiver)));
}

} // namespace

void ZDbusReply::Log::set(ZLogger *logger) { m_log = ZNamedLogger(logger, QStringLiteral("zdefault")); }

void ZDbusReply::Log::warn(const QString &text)
{
    const QReadLocker locker(&m_lock);
    if (m_isOpen)
        zCaught([&] { m_log.warn(LineKind, text); });
    else
        qWarning("%s", qUtf8Printable(text));
}

void ZDbusReply::Log::close()
{
    const QWriteLocker locker(&m_lock);
    m_isOpen = false;
}

ZDbusReply::ZDbusReply(qint64 number, const QUrl &url, const QWeakPointer<ZDbusReceiver> &receiver,
                       const std::shared_ptr<Log> &log)
    : m_number(number), m_url(url), m_receiver(receiver), m_log(log)
{
    QSharedPointer<ZDbusReceiver> alive = receiver.toStrongRef();
    if (QObject *const object = objectOf(alive.data()))
        m_home = std::make_shared<ZHomeThread>(object->thread());
    letGo(std::move(alive));
}

void ZDbusReply::tell(const QJsonObject &answer) const
{
    if (m_home)
        m_home->post([reply = *this, answer] { reply.tellHere(answer); });
    else if (const QSharedPointer<ZDbusReceiver> receiver = m_receiver.toStrongRef())
        tell(*receiver, answer);
}

/// On the thread on which the receiver has lived.
void ZDbusReply::tellHere(const QJsonObject &answer) const
{
    QSharedPointer<ZDbusReceiver> receiver = m_receiver.toStrongRef();
    const QObject *const object = objectOf(receiver.data());
    if (!object)
        return;
    if (object->thread() == QThread::currentThread()) {
        tell(*receiver, answer);
    } else { // it has moved
        ZDbusReply(m_number, m_url, m_receiver, m_log).tell(answer);
        letGo(std::move(receiver));
    }
}

void ZDbusReply::tell(ZDbusReceiver &receiver, const QJsonObject &answer) const
{
    const QString thrown = zCaught([&] { receiver.answered(m_number, answer); });
    if (!thrown.isNull())
        m_log->warn(QStringLiteral("the receiver of %1: %2").arg(m_url.toString(), thrown));
}
