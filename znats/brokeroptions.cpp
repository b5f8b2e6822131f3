// SPDX-License-Identifier: Apache-2.0
#include "brokeroptions.h"

#include "brokerfiles.h"
#include "natssettings.h"

#include <QList>

#include <vector>

namespace {

constexpr int ConnectMs = 800;   // for each broker: the end waits for it
constexpr int WriteMs = 1000;    // a broker that hangs must not hold up those who send
constexpr int ReconnectMs = 100; // between two attempts at the same broker
constexpr int JitterMs = 100;
constexpr int PingMs = 5000;
constexpr int PingsUnanswered = 2;

bool setServers(natsOptions *options, const QStringList &urls)
{
    QList<QByteArray> servers;
    for (const QString &server : urls)
        servers.append(server.toUtf8());
    std::vector<const char *> pointers;
    for (const QByteArray &server : qAsConst(servers))
        pointers.push_back(server.constData());
    return natsOptions_SetServers(options, pointers.data(), static_cast<int>(pointers.size())) == NATS_OK;
}

bool setSecrets(natsOptions *options, const NatsSettings &settings, QString *problem)
{
    natsStatus status = NATS_OK;
    if (!settings.user.isEmpty()) {
        QByteArray password;
        *problem = BrokerFiles::secretFault(settings.passwordFile, &password);
        status = natsOptions_SetUserInfo(options, settings.user.toUtf8(), password);
    } else if (!settings.tokenFile.isEmpty()) {
        QByteArray token;
        *problem = BrokerFiles::secretFault(settings.tokenFile, &token);
        status = natsOptions_SetToken(options, token);
    } else if (!settings.credentialsFile.isEmpty()) {
        *problem = BrokerFiles::credentialsFault(settings.credentialsFile); // the client library reads it itself
        status = natsOptions_SetUserCredentialsFromFiles(options, settings.credentialsFile.toUtf8(), nullptr);
    }
    return status == NATS_OK && problem->isEmpty();
}

/// What could not be read is the `problem`.
bool setTls(natsOptions *options, const NatsSettings &settings, QString *problem)
{
    const auto &tls = settings.tls;
    if (!tls.isOn)
        return true;
    if (natsOptions_SetSecure(options, true) != NATS_OK) {
        *problem = QStringLiteral("this client library has no TLS");
        return false;
    }
    // What is not fit is not shown to the client library, which would wait for a pipe.
    if (!tls.ca.isEmpty()) {
        *problem = BrokerFiles::certificatesFault(tls.ca);
        if (problem->isEmpty() && natsOptions_LoadCATrustedCertificates(options, tls.ca.toUtf8()) != NATS_OK)
            *problem = QStringLiteral("cannot read certificates in %1").arg(tls.ca);
        if (!problem->isEmpty())
            return false;
    }
    if (!tls.certificate.isEmpty()) {
        *problem = BrokerFiles::certificatesFault(tls.certificate);
        if (problem->isEmpty())
            *problem = BrokerFiles::keyFault(tls.key);
        if (!problem->isEmpty())
            return false;
        if (natsOptions_LoadCertificatesChain(options, tls.certificate.toUtf8(), tls.key.toUtf8()) != NATS_OK) {
            *problem =
                QStringLiteral("cannot use the certificate in %1, with the key in %2").arg(tls.certificate, tls.key);
            return false;
        }
    }
    return tls.name.isEmpty() || natsOptions_SetExpectedHostname(options, tls.name.toUtf8()) == NATS_OK;
}

} // namespace

NatsOptions brokerOptions(const NatsSettings &settings, const QStringList &further, QString *problem)
{
    natsOptions *made = nullptr;
    if (natsOptions_Create(&made) != NATS_OK) {
        *problem = QStringLiteral("no memory");
        return {};
    }
    NatsOptions options(made);
    const bool isSet = setServers(made, settings.servers + further) && setSecrets(made, settings, problem) &&
                       setTls(made, settings, problem) &&
                       natsOptions_SetName(made, settings.name.toUtf8()) == NATS_OK &&
                       // of the answers to what the client library asks itself, for leases
                       natsOptions_SetCustomInboxPrefix(made, settings.inbox.toUtf8()) == NATS_OK;
    if (!isSet) {
        if (problem->isEmpty())
            *problem = QStringLiteral("the client library does not take these settings");
        return {};
    }
    natsOptions_SetTimeout(made, ConnectMs);
    natsOptions_SetWriteDeadline(made, WriteMs);
    natsOptions_SetFailRequestsOnDisconnect(made, true);
    natsOptions_SetNoEcho(made, true);
    natsOptions_SetSendAsap(made, true);
    natsOptions_UseGlobalMessageDelivery(made, true);
    natsOptions_SetMaxReconnect(made, -1);
    natsOptions_SetReconnectWait(made, ReconnectMs);
    natsOptions_SetReconnectJitter(made, JitterMs, JitterMs);
    natsOptions_SetPingInterval(made, PingMs);
    natsOptions_SetMaxPingsOut(made, PingsUnanswered);
    return options;
}
