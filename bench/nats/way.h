// SPDX-License-Identifier: Apache-2.0
// One way by which a process asks another one for what it has sent itself.
#pragma once

#include <QString>

#include <functional>
#include <memory>
#include <string>

class Way
{
public:
    /// Makes one call, with the payload that it was made for; whether the answer has come.
    using Call = std::function<bool()>;

    virtual ~Way() = default;
    /// Answers, on threads of its own or by the event loop.
    virtual void serve() = 0;
    /// For one thread of the caller's, on which this is called.
    virtual Call caller(const std::string &payload) = 0;
};

/// `address`: of the broker, the bus daemon or the server.
std::unique_ptr<Way> rawWay(const QString &address);
/// `folder` has the plugin; with an empty address it is not loaded, and all calls are within the process.
std::unique_ptr<Way> zdefaultWay(const QString &address, const QString &folder, bool isLocal);
std::unique_ptr<Way> dbusWay(const QString &address);
#ifdef HAVE_GRPC
std::unique_ptr<Way> grpcWay(const QString &address);
#endif
