// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

#include <string>

namespace httplib {
struct Request;
}

/// Who may ask by TCP, where anybody can connect, and any page in a browser can have its reader connect.
class Access
{
public:
    /// `token` is what a client has to show, and `port` where the host listens.
    Access(QByteArray token, int port) : m_token(std::move(token)), m_port(port) {}

    /// Why a request is refused.
    struct Refusal
    {
        int status = 0; ///< of HTTP; 0 if it is not
        QString reason;
    };
    /// `isOpen`: what is asked for may be seen by anybody.
    Refusal refusal(const httplib::Request &request, bool isOpen) const;

private:
    bool isAddressed(const std::string &host) const;
    bool isShown(const std::string &authorization) const;

    const QByteArray m_token;
    const int m_port;
};

/// Whether `request`, which changes something, is one that no page of somebody else's can have a browser make.
bool isDeliberate(const httplib::Request &request);
