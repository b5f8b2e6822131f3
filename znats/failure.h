// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

/// Why a call was not handled. The codes are those of services on NATS, where these have one.
struct Failure
{
    enum Code
    {
        None = 0,
        NotJson = 400,
        Denied = 401, ///< the broker does not let this process call
        NotServed = 403,
        Refused = 404, ///< the endpoint has answered false
        TooLate = 408,
        Gone = 410, ///< the endpoint was there a moment ago
        TooLarge = 413,
        Busy = 429,
        Lost = 499, ///< the connection, while the answer was waited for
        Thrown = 500,
        Unreadable = 502, ///< the answer is not JSON
        Nobody = 503,
        NoAnswer = 504,
        NotConnected = 507,
        Loop = 508
    };
    enum Called
    {
        No,
        Yes,
        Unknown
    };

    Failure() = default;
    Failure(Code failure); // NOLINT(google-explicit-constructor): a code is a failure
    /// As another process has answered it.
    Failure(int failure, const QString &text) : code(failure), reason(text), called(calledBy(failure)) {}

    explicit operator bool() const { return code != None; }
    /// What it is counted as: the reason that its code has here, whatever the other process has written. "other" if the
    /// code is unknown.
    QString kind() const;

    int code = None;
    QString reason;
    Called called = No;

private:
    static Called calledBy(int code);
};
