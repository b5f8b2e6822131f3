// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <string>

namespace httplib {
class Result;
} // namespace httplib

/// Where a host is asked: at a Unix socket, or by TCP.
struct Address
{
    QString socket;
    QUrl url;         ///< Where there is no socket.
    QByteArray token; ///< Goes with the URL.

    QString text() const { return socket.isEmpty() ? url.toString() : socket; }
};

/// What a host has answered.
struct Answer
{
    enum class End
    {
        Done,
        No,    ///< The host says no, or has not done it.
        Nobody ///< There is no host, or none that listens to this caller.
    };
    End end = End::Done;
    QString error;   ///< A sentence that says why it is not done; empty if it is.
    QByteArray body; ///< As it came; empty if nothing did.
    QJsonDocument json;
};

/**
 * Asks one host.
 *
 * Thread:  the caller's, which waits for the answer.
 * Failure: `Answer::error`.
 */
class Client
{
public:
    explicit Client(Address address) : m_address(std::move(address)) {}

    static constexpr int PatienceSeconds = 30;

    /// `path` is encoded as a URL has it.
    Answer get(const QString &path, int seconds = PatienceSeconds) const;
    Answer post(const QString &path, const QJsonObject &body = {}, int seconds = PatienceSeconds) const;
    Answer put(const QString &path, const QJsonObject &body) const;
    /// Calls the host's bus. It also counts as not done if nobody has handled the call.
    Answer call(const QString &url, const QJsonObject &in, int deadlineMs) const;

    /// Passes on each event that the host sends, until it sends no more.
    using Receiver = std::function<void(const QByteArray &data)>;
    Answer follow(const QString &path, const Receiver &receive) const;

private:
    Answer ask(const char *method, const QString &path, const std::string &body, int seconds) const;
    Answer failure(const httplib::Result &result, int seconds, bool isOverdue) const;
    Answer judge(int status, const QByteArray &body) const;

    const Address m_address;
};
