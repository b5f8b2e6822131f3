// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>

#include <optional>

constexpr qint64 MostClockMs = qint64(1) << 50; // far in the future: what others say beyond it is not believed

/**
 * How long requests have been on their way, although the clocks of those who ask may be wrong.
 *
 * A request says when it was sent, by its sender's clock. What the clocks differ by is learnt from the requests that
 * took the least time. If a sender's clock is put back, its requests seem to be late. They are refused, with a stamp of
 * our clock; the sender, for whom there is time left, sends the stamp back, and that settles by what the clocks differ.
 *
 * Thread:  any.
 * Failure: none: a sender that lies about its clock harms its own requests.
 */
class Clocks
{
public:
    /// Notes that a request which its sender says it sent at `sentMs` has come at `nowMs`, both since 1970. `echoMs` is
    /// what our clock said when its sender was last refused, if it says so. Returns for how many milliseconds it was on
    /// its way.
    qint64 age(const QByteArray &sender, qint64 sentMs, qint64 nowMs, std::optional<qint64> echoMs);

private:
    struct Sender
    {
        qint64 skewMs = 0; // by how much its clock is behind ours, and the least time that a request took
        qint64 lastMs = 0;
    };
    void forgetOld(qint64 nowMs);

    QMutex m_mutex; // guards m_senders
    QHash<QByteArray, Sender> m_senders;
};
