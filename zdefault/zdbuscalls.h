// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdbusoutcome.h"
#include "zdbusreply.h"

#include <QList>
#include <QMutex>
#include <QQueue>
#include <QStringList>
#include <QThreadPool>
#include <QUrl>

#include <memory>

/**
 * Calls of the bus that nobody waits for, and the threads on which they are made.
 *
 * Ownership: shared by its service and the host, so that a service which is exchanged need not wait for its calls. The
 *            last of them to let go waits, for the calls use other services.
 * Thread:    any.
 * Failure:   0.
 */
class ZDbusCalls
{
public:
    ZDbusCalls();
    ~ZDbusCalls();

    /// As `ZDbusAsync::begin0`.
    qint64 begin(const QUrl &url, const QJsonObject &request, const QWeakPointer<ZDbusReceiver> &receiver);
    /// Begins nothing more; what waits is answered, but not called.
    void end();
    /// The URLs that are being called or wait, or whose receivers are being told.
    QStringList busy();
    /// Whether this thread is one of those on which the calls are made: it must not wait for them.
    bool isOwnThread() const;

    // Both are set before the first call.
    ZDbusOutcome *outcome = nullptr;
    const std::shared_ptr<ZDbusReply::Log> log = std::make_shared<ZDbusReply::Log>();

private:
    Q_DISABLE_COPY(ZDbusCalls)
    struct Call
    {
        QUrl url;
        QJsonObject request;
        std::shared_ptr<const ZDbusReply> reply;
    };

    void work();
    bool next(Call *call, bool *isToBeMade);
    QJsonObject make(const Call &call);

    QMutex m_mutex; // guards what follows, but for the threads
    QQueue<Call> m_waiting;
    QList<QUrl> m_running;
    int m_workers = 0; // threads that take what waits
    bool m_isClosed = false;
    QThreadPool m_threads;
};
