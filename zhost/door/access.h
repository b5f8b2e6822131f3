// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

#include <string>

namespace httplib {
struct Request;
}

/// Checks who may ask by TCP. Anybody can connect there, and any page in a browser can make its reader's browser do so.
class Access
{
public:
    /// A client has to show `token`; the host listens at `port`.
    Access(QByteArray token, int port) : m_token(std::move(token)), m_port(port) {}

    /// Why a request is refused.
    struct Refusal
    {
        int status = 0; ///< of HTTP; 0 if it is not
        QString reason;
    };
    /// `isOpen`: anybody may see the answer.
    Refusal refusal(const httplib::Request &request, bool isOpen) const;

private:
    bool isAddressed(const std::string &host) const;
    bool isShown(const std::string &authorization) const;

    const QByteArray m_token;
    const int m_port;
};

/// Whether `request`, which changes something, is one that a foreign page cannot make a browser send.
bool isDeliberate(const httplib::Request &request);
