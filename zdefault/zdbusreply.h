// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdbusasync.h"
#include "zhomethread.h"
#include "znamedlogger.h"

#include <QReadWriteLock>

#include <memory>

/**
 * The way back to who has begun a call.
 *
 * Ownership: holds the receiver weakly; that is turned into a share only where the receiver is told.
 * Thread:    tells one that is a `QObject` on its own thread, another one on the caller's.
 * Failure:   what the receiver throws is logged.
 */
class ZDbusReply
{
public:
    /// A log that may be asked for after the service has gone.
    class Log
    {
    public:
        void set(ZLogger *logger);
        void warn(const QString &text);
        /// From now on warnings go to Qt's message handler.
        void close();

    private:
        QReadWriteLock m_lock{QReadWriteLock::Recursive}; // for reading, while something is logged
        ZNamedLogger m_log;
        bool m_isOpen = true;
    };

    /// Takes `url` as it is: see `zDeepCopy`.
    ZDbusReply(qint64 number, const QUrl &url, const QWeakPointer<ZDbusReceiver> &receiver,
               const std::shared_ptr<Log> &log);

    void tell(const QJsonObject &answer) const;

private:
    void tellHere(const QJsonObject &answer) const;
    void tell(ZDbusReceiver &receiver, const QJsonObject &answer) const;

    const qint64 m_number;
    const QUrl m_url;
    const QWeakPointer<ZDbusReceiver> m_receiver;
    const std::shared_ptr<Log> m_log;
    std::shared_ptr<const ZHomeThread> m_home; // null if the receiver is no QObject, or gone
};
