// SPDX-License-Identifier: Apache-2.0
#include "follow.h"

#include "hostdoor.h"
#include "runninghost.h"
#include "versions.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QThread>

#include <notes.h>

#include <algorithm>
#include <optional>

namespace {

constexpr int PauseMs = 100;
constexpr int RestartMs = 10000; // a service manager waits for a while

/// The two folders and the host, at one moment.
struct Look
{
    std::optional<Version> version;
    RunningHost host;
    QString deployed;
    Notes notes;

    explicit Look(const Follow &follow)
        : host(RunningHost::on(follow.deployed)), deployed(follow.deployed), notes(follow.deployed)
    {
        const QVector<Version> versions = versionsIn(follow.hotDeploy, follow.deployed);
        const auto isIt = [&](const Version &other) { return other.name.file() == follow.file; };
        const auto found = std::find_if(versions.begin(), versions.end(), isIt);
        if (found != versions.end())
            version = *found;
    }

    bool hasCome() const { return version && version->state != Version::Waiting; }
    QDateTime since() const { return QFileInfo(QDir(deployed).filePath(version->name.file())).metadataChangeTime(); }
    /// A probation has ended since the file came, and none is under way.
    bool isJudged() const { return hasCome() && notes.start().count == 0 && notes.noted() >= since(); }
    bool isMissing(const QString &file) const { return host.files && !host.files->contains(file); }
};

/// The result for the file; nothing if that is not settled yet.
std::optional<Follow::Result> end(const QString &file, const Look &look)
{
    if (!look.version)
        return Follow::Result{false, QStringLiteral("%1 has been removed").arg(file)};
    if (look.version->state == Version::Quarantined)
        return Follow::Result{false, QStringLiteral("%1 was taken back: %2").arg(file, look.version->remark)};
    if (look.version->state != Version::Good || !look.host.isThere())
        return {};
    if (!look.host.files)
        return Follow::Result{true, QStringLiteral("%1 is good; whether it is loaded cannot be told").arg(file)};
    if (look.isMissing(file))
        return Follow::Result{
            false, QStringLiteral("%1 is not in memory: nothing holds it, or a newer version has come; the log "
                                  "of the host tells")
                       .arg(file)};
    return Follow::Result{true, QStringLiteral("%1 is loaded, and good").arg(file)};
}

/// The result if a probation is over, and the file is not good.
Follow::Result notGood(const QString &file)
{
    return {false,
            QStringLiteral("%1 is not noted as good: it could not be loaded, or is not healthy; the log of the host "
                           "tells")
                .arg(file)};
}

/// Why nothing is settled.
QString unsettled(const QString &file, const Look &look)
{
    if (look.version->state == Version::Waiting)
        return QStringLiteral("no host has come for %1").arg(file);
    if (look.isMissing(file))
        return QStringLiteral("%1 is not in memory").arg(file);
    if (look.notes.start().count > 0)
        return QStringLiteral("%1 is still on probation").arg(file);
    return QStringLiteral("%1 is not on probation: \"guard\" is off, or it is still being loaded").arg(file);
}

QString ended(const Look &look)
{
    const QString crash = look.notes.crash().text;
    return QStringLiteral("the host has ended, and nobody has started it again%1")
        .arg(crash.isEmpty() ? QString() : QStringLiteral(": ") + crash);
}

} // namespace

Follow::Result Follow::run() const
{
    const QDeadlineTimer deadline(seconds * 1000);
    QDeadlineTimer restart(RestartMs);
    HostDoor door;
    bool wasJudged = false;
    for (;;) {
        const Look look(*this);
        if (const std::optional<Result> result = end(file, look))
            return *result;
        const QString refusal = look.hasCome() ? door.refusal(look.host.holder.process, file, look.since()) : QString();
        if (!refusal.isEmpty())
            return {false, QStringLiteral("%1 could not be loaded: %2").arg(file, refusal)};
        const bool isJudged = look.isJudged();
        if (wasJudged && isJudged && look.host.isThere()) // the host may just be about to see the drop
            return notGood(file);
        wasJudged = isJudged;
        if (look.host.isThere())
            restart.setRemainingTime(RestartMs);
        else if (restart.hasExpired() || deadline.hasExpired())
            return {false, ended(look)};
        if (deadline.hasExpired())
            return {false, QStringLiteral("%1, after %2 seconds").arg(unsettled(file, look)).arg(seconds)};
        QThread::msleep(PauseMs);
    }
}
