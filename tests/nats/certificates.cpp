// SPDX-License-Identifier: Apache-2.0
#include "certificates.h"

#include "program.h"

#include <QFile>

namespace {

bool openssl(const QStringList &arguments)
{
    const Result result = runProgram(QStringLiteral("openssl"), arguments);
    if (result.exitCode != 0)
        qWarning("openssl: %s", qUtf8Printable(result.err));
    return result.exitCode == 0;
}

/// Arguments that make a key on the way.
QStringList request(const QString &key, const QString &name)
{
    return {QStringLiteral("req"),
            QStringLiteral("-newkey"),
            QStringLiteral("ec"),
            QStringLiteral("-pkeyopt"),
            QStringLiteral("ec_paramgen_curve:prime256v1"),
            QStringLiteral("-nodes"),
            QStringLiteral("-keyout"),
            key,
            QStringLiteral("-subj"),
            QStringLiteral("/CN=") + name};
}

} // namespace

Certificates::Certificates()
{
    m_isValid = openssl(request(file(QStringLiteral("ca.key")), QStringLiteral("authority")) +
                        QStringList{QStringLiteral("-x509"), QStringLiteral("-days"), QStringLiteral("30"),
                                    QStringLiteral("-out"), file(QStringLiteral("ca.crt"))}) &&
                sign(QStringLiteral("server"), "subjectAltName=IP:127.0.0.1,DNS:localhost,DNS:broker.test\n") &&
                sign(QStringLiteral("client"), "extendedKeyUsage=clientAuth\n");
}

QString Certificates::tls(bool clientsToo) const
{
    return QStringLiteral("tls { cert_file: \"%1\", key_file: \"%2\", ca_file: \"%3\", verify: %4, timeout: 10 }\n")
        .arg(file(QStringLiteral("server.crt")), file(QStringLiteral("server.key")), file(QStringLiteral("ca.crt")),
             clientsToo ? QStringLiteral("true") : QStringLiteral("false"));
}

bool Certificates::sign(const QString &name, const QByteArray &alternatives) const
{
    const QString key = file(name + QStringLiteral(".key"));
    const QString wish = file(name + QStringLiteral(".csr"));
    const QString extensions = name + QStringLiteral(".ext");
    m_folder.write(extensions, alternatives);
    return openssl(request(key, name) + QStringList{QStringLiteral("-out"), wish}) &&
           openssl({QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"), wish, QStringLiteral("-CA"),
                    file(QStringLiteral("ca.crt")), QStringLiteral("-CAkey"), file(QStringLiteral("ca.key")),
                    QStringLiteral("-CAcreateserial"), QStringLiteral("-days"), QStringLiteral("30"),
                    QStringLiteral("-extfile"), file(extensions), QStringLiteral("-out"),
                    file(name + QStringLiteral(".crt"))}) &&
           QFile::setPermissions(key, QFile::ReadOwner | QFile::WriteOwner);
}
