// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

/**
 * The files that the section "nats" names. What is wrong is said with the file: "is no regular file: /srv/ca.pem". The
 * client library would wait for a pipe, and does not say why it does not take a file.
 *
 * Thread:  any.
 * Failure: says what is wrong; an empty text if nothing is.
 */
namespace BrokerFiles {

/// Reads a password or a token into `secret`, unless that is null.
QString secretFault(const QString &path, QByteArray *secret = nullptr);
/// Credentials of a user of NATS, which are a secret.
QString credentialsFault(const QString &path);
/// Certificates, which anybody may read.
QString certificatesFault(const QString &path);
/// A private key, which is a secret.
QString keyFault(const QString &path);

} // namespace BrokerFiles
