// SPDX-License-Identifier: Apache-2.0
#include "natssettings.h"

#include "brokerfiles.h"
#include "sectionreader.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSysInfo>
#include <QUrl>

#include <algorithm>
#include <arpa/inet.h>

namespace {

constexpr int MostCharacters = 64;
constexpr int MostInboxBytes = 500; // a broker's lines have 4096, and also have the subject of what is asked

constexpr int Hour = 3600 * 1000;
constexpr int MaxName = 64;

bool matches(const QString &text, const char *pattern)
{
    return QRegularExpression(QRegularExpression::anchoredPattern(QLatin1String(pattern))).match(text).hasMatch();
}

/// Whether `pattern`, in which each * stands for any characters, is for all of `text`.
bool isLike(const QString &text, const QString &pattern)
{
    const QStringList parts = pattern.split(QLatin1Char('*'));
    if (parts.size() == 1)
        return text == pattern;
    if (!text.startsWith(parts.first()) || text.size() < parts.first().size() + parts.last().size() ||
        !text.endsWith(parts.last()))
        return false;
    int from = parts.first().size();
    const int to = text.size() - parts.last().size();
    for (int i = 1; i < parts.size() - 1; ++i) {
        from = text.indexOf(parts.at(i), from);
        if (from < 0 || from + parts.at(i).size() > to)
            return false;
        from += parts.at(i).size();
    }
    return true;
}

QString ownName()
{
    const QString end = QStringLiteral("-%1").arg(QCoreApplication::applicationPid());
    QString host = QSysInfo::machineHostName();
    host.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9_.-]")), QStringLiteral("_"));
    return host.left(MaxName - end.size()) + end;
}

QString inboxOf(const QString &user)
{
    if (user.isEmpty())
        return QStringLiteral("_INBOX");
    static const QByteArray plain("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-");
    QByteArray escaped; // what has a meaning in a subject, too
    const QByteArray bytes = user.toUtf8();
    for (const char byte : bytes)
        escaped += plain.contains(byte) ? QByteArray(1, byte) : '%' + QByteArray(1, byte).toHex();
    return QStringLiteral("_INBOX_") + QString::fromLatin1(escaped);
}

bool isLoopback(const QString &host)
{
    in_addr number;
    if (inet_pton(AF_INET, host.toLatin1().constData(), &number) == 1)
        return (ntohl(number.s_addr) >> 24) == 127;
    return host == QLatin1String("::1") || host == QLatin1String("localhost");
}

/// What is wrong with the address of a server; empty if nothing is.
QString serverFault(const QString &text)
{
    const QUrl url(text, QUrl::StrictMode);
    const bool isKnown = url.scheme() == QLatin1String("nats") || url.scheme() == QLatin1String("tls");
    if (!url.isValid() || !isKnown || url.host().isEmpty() || url.port() == 0 || !url.path().isEmpty() ||
        url.hasQuery() || url.hasFragment())
        return QStringLiteral("must be such as nats://127.0.0.1:4222 or tls://broker.example:4222");
    return url.userInfo().isNull() ? QString()
                                   : QStringLiteral("must not name a user; that takes \"user\" and \"password-file\"");
}

QString hostFault(const QString &pattern)
{
    if (!matches(pattern, R"([^\s/:@?#%\[\]]+)"))
        return QStringLiteral("must be the host of a URL, such as clock, or a pattern, such as clock-*");
    return pattern == QLatin1String("nats") ? QStringLiteral("//nats is for calls of its own process") : QString();
}

/// Reads who this process is for the brokers.
void readUser(SectionReader &reader, NatsSettings *settings)
{
    settings->user = reader.text("user", {});
    settings->passwordFile = reader.file("password-file");
    settings->credentialsFile = reader.file("credentials");
    settings->tokenFile = reader.file("token-file");
    const bool hasPassword = reader.has("password-file");
    if (reader.has("user") != hasPassword)
        reader.problem(hasPassword ? "user" : "password-file",
                       hasPassword ? QStringLiteral("must be given with \"password-file\"")
                                   : QStringLiteral("must be given with \"user\""));
    const int ways =
        int(reader.has("user") || hasPassword) + int(reader.has("credentials")) + int(reader.has("token-file"));
    if (ways > 1)
        reader.problem(reader.has("credentials") ? "credentials" : "token-file",
                       QStringLiteral("only one of \"user\", \"credentials\" and \"token-file\" can be given"));
    settings->inbox = reader.text("inbox", inboxOf(settings->user));
    if (!matches(settings->inbox, R"([^\s\p{Cc}\p{Z}.*>]+(\.[^\s\p{Cc}\p{Z}.*>]+)*)")) {
        reader.problem("inbox", QStringLiteral("must be the beginning of a subject, such as _INBOX"));
        settings->inbox = inboxOf(settings->user);
    }
    if (settings->inbox.toUtf8().size() > MostInboxBytes) {
        reader.problem("inbox", QStringLiteral("must have at most 500 bytes, and has the name of the user by default"));
        settings->inbox = inboxOf({});
    }
}

void readTls(SectionReader &reader, NatsSettings *settings)
{
    NatsSettings::Tls &tls = settings->tls;
    SectionReader section = reader.section("tls");
    tls.isOn = reader.has("tls");
    tls.ca = section.file("ca");
    tls.certificate = section.file("certificate");
    tls.key = section.file("key");
    tls.name = section.text("name", {});
    if (section.has("certificate") != section.has("key"))
        section.problem(section.has("key") ? "certificate" : "key",
                        section.has("key") ? QStringLiteral("must be given with \"key\"")
                                           : QStringLiteral("must be given with \"certificate\""));
    section.finish();
    for (const QString &server : qAsConst(settings->servers))
        tls.isOn = tls.isOn || QUrl(server).scheme() == QLatin1String("tls");
    for (const QString &server : qAsConst(settings->servers)) {
        if (!tls.isOn && !isLoopback(QUrl(server).host()))
            reader.problem("tls",
                           QStringLiteral("must be given: %1 is not on this machine's loopback interface").arg(server));
    }
}

void readLeases(SectionReader &reader, NatsSettings::Leases *leases)
{
    SectionReader section = reader.section("leases");
    leases->bucket = section.text("bucket", leases->bucket);
    if (!matches(leases->bucket, "[A-Za-z0-9_-]{1,64}"))
        section.problem("bucket", QStringLiteral("must have at most 64 characters of A-Z, a-z, 0-9, _ and -"));
    leases->replicas = section.number("replicas", leases->replicas, 1, 5);
    leases->storage = section.oneOf("storage", {QStringLiteral("file"), QStringLiteral("memory")});
    section.finish();
}

} // namespace

NatsSettings NatsSettings::read(const QJsonObject &section, QStringList *problems)
{
    NatsSettings settings;
    SectionReader reader(section, QStringLiteral("nats"), problems);
    settings.name = reader.text("name", ownName());
    if (!isName(settings.name)) {
        reader.problem("name", QStringLiteral("must have at most 64 characters of A-Z, a-z, 0-9, _, . and -"));
        settings.name = ownName();
    }
    settings.domain = reader.text("domain", settings.domain);
    if (settings.domain.size() > MostCharacters) {
        reader.problem("domain", QStringLiteral("must have at most 64 characters"));
        settings.domain = NatsSettings().domain;
    }
    settings.servers = reader.texts("servers", settings.servers, serverFault);
    if (settings.servers.isEmpty()) {
        if (section.value(QStringLiteral("servers")).toArray().isEmpty())
            reader.problem("servers", QStringLiteral("must name a server"));
        settings.servers = NatsSettings().servers;
    }
    settings.serve = reader.texts("serve", {}, hostFault);
    std::transform(settings.serve.begin(), settings.serve.end(), settings.serve.begin(),
                   [](const QString &host) { return host.toLower(); });
    settings.timeoutMs = reader.number("timeout", settings.timeoutMs, 1, Hour);
    settings.findMs = reader.number("find", settings.findMs, 1, Hour);
    settings.gatherMs = reader.number("gather", settings.gatherMs, 1, Hour);
    settings.stallMs = reader.number("stall", settings.stallMs, 1, Hour);
    settings.patienceMs = reader.number("patience", settings.patienceMs, 0, Hour);
    settings.broadcastAll =
        reader.oneOf("broadcast", {QStringLiteral("local"), QStringLiteral("all")}) == QLatin1String("all");
    settings.workers = reader.number("workers", settings.workers, 1, 256);
    settings.queue = reader.number("queue", settings.queue, 1, 1000000);
    settings.hops = reader.number("hops", settings.hops, 1, 64);
    settings.clockToleranceMs = reader.number("clock-tolerance", settings.clockToleranceMs, 0, Hour);
    readUser(reader, &settings);
    readTls(reader, &settings);
    readLeases(reader, &settings.leases);
    reader.finish();
    return settings;
}

bool NatsSettings::isName(const QString &name)
{
    // Without an expression, for each answer has a name.
    return !name.isEmpty() && name.size() <= MaxName && std::all_of(name.begin(), name.end(), [](QChar character) {
        return character.unicode() < 128 && (character.isLetterOrNumber() || QLatin1String("_.-").contains(character));
    });
}

QStringList NatsSettings::fileProblems() const
{
    QStringList result;
    const auto look = [&](const char *key, const QString &path, const auto &faultOf) {
        const QString fault = path.isEmpty() ? QString() : faultOf(path);
        if (!fault.isEmpty())
            result.append(QStringLiteral("nats.%1: %2").arg(QLatin1String(key), fault));
    };
    const auto secretFault = [](const QString &path) { return BrokerFiles::secretFault(path); };
    look("password-file", passwordFile, secretFault);
    look("credentials", credentialsFile, BrokerFiles::credentialsFault);
    look("token-file", tokenFile, secretFault);
    look("tls.ca", tls.ca, BrokerFiles::certificatesFault);
    look("tls.certificate", tls.certificate, BrokerFiles::certificatesFault);
    look("tls.key", tls.key, BrokerFiles::keyFault);
    return result;
}

bool NatsSettings::serves(const QString &host) const
{
    const QString wanted = host.toLower();
    if (wanted.isEmpty() || wanted == QLatin1String("nats"))
        return false;
    const bool isOfTheHost = wanted == QLatin1String("zhost") || wanted == QLatin1String("zscheduler");
    return std::any_of(serve.begin(), serve.end(), [&](const QString &pattern) {
        return isOfTheHost ? pattern == wanted : isLike(wanted, pattern);
    });
}
