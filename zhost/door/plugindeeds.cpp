// SPDX-License-Identifier: Apache-2.0
// The requests of the door that change versions of plugins.
#include "routes.h"

#include "../../zdeploy/versions.h"
#include "../configuration.h"
#include "../known/known.h"
#include "../known/pluginreport.h"
#include "../letgolater.h"
#include "../redeployment.h"
#include "../say.h"

#include <doorlimits.h>

#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QUrl>

#include <zcaught.h>
#include <zdbussubscriber.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace {

/// The files of `plugin` that are in memory, but for the newest: these hold themselves. Nothing if no file is in
/// memory.
std::optional<QStringList> olderFiles(const PluginName &plugin)
{
    QStringList names;
    QStringList files = loadedFiles();
    for (const QString &file : qAsConst(files))
        names.append(QFileInfo(file).fileName());
    const QString newest = plugin.newest(names).file();
    if (!names.contains(newest))
        return {};
    const auto isOther = [&](const QString &file) {
        const QString name = QFileInfo(file).fileName();
        return name == newest || !PluginName::parse(name).isSamePlugin(plugin);
    };
    files.erase(std::remove_if(files.begin(), files.end(), isOther), files.end());
    return files;
}

/// The endpoints and activities of a version, which hold it. They are released on the thread that may unload its code.
struct Holders
{
    QString file;
    QVector<QSharedPointer<ZScheduledActivity>> activities;
    QVector<QPair<QUrl, QSharedPointer<ZDbusSubscriber>>> endpoints;
};

/// Those that have been asked to let go.
class Asked
{
public:
    void add(const QString &name)
    {
        const QMutexLocker locker(&m_mutex);
        m_names.append(name);
    }
    QStringList names() const
    {
        const QMutexLocker locker(&m_mutex);
        return m_names;
    }

private:
    mutable QMutex m_mutex; // guards m_names
    QStringList m_names;
};

/// Asks all holders to let go. Returns what the last of them has thrown; null if none has.
QString ask(Holders *holders, Asked *asked)
{
    QString thrown;
    const auto caught = [&](const QString &text) { thrown = text.isNull() ? thrown : text; };
    for (const auto &activity : qAsConst(holders->activities)) {
        asked->add(QStringLiteral("an activity of %1").arg(holders->file));
        caught(zCaught([&] { activity->cancel(); }));
    }
    for (const auto &[url, endpoint] : qAsConst(holders->endpoints)) {
        QUrl address = url;
        address.setPath(url.path(QUrl::FullyDecoded) + QStringLiteral("/release"), QUrl::DecodedMode);
        asked->add(QStringLiteral("%1 of %2").arg(url.toString(), holders->file));
        QJsonObject in, out;
        caught(zCaught([&, endpoint = endpoint] { endpoint->invoked(address, &in, &out); }));
    }
    letGoLater(std::move(*holders));
    return thrown;
}

} // namespace

/// Drops the version before again. It was good, so it need not be tried out.
Reply Routes::rollBack(const Question &question) const
{
    const QString plugin = question.parts.first();
    return withHost([&](Host &) {
        const Configuration configuration{m_known->configuration(), {}, {}};
        const QString hotDeploy = configuration.folder(QStringLiteral("hot-deploy"));
        const QString deployed = configuration.folder(QStringLiteral("deployed"));
        if (hotDeploy.isEmpty() || deployed.isEmpty())
            return Reply::failure(409, QStringLiteral("there is no hot-deploy folder, or no deployed folder"));
        const QVector<Version> versions = versionsIn(hotDeploy, deployed);
        if (const PluginName waiting = lastWaiting(plugin, versions); !waiting.plugin.isNull())
            return Reply::failure(409, QStringLiteral("%1 is still to be loaded").arg(waiting.file()));
        const PluginName good = goodBeforeNewest(plugin, versions, deployed);
        if (good.plugin.isNull())
            return Reply::failure(404, QStringLiteral("%1 has no good version before the newest").arg(plugin));
        const Redeployment::Result result = Redeployment{deployed, good.file(), hotDeploy}.run();
        if (!result.error.isEmpty())
            return Reply::failure(409,
                                  QStringLiteral("%1 cannot be deployed again: %2").arg(good.file(), result.error));
        complain(
            QStringLiteral("%1 is deployed again, as %2: somebody has asked for it").arg(good.file(), result.name));
        return Reply::of(QJsonObject{{QStringLiteral("from"), good.file()}, {QStringLiteral("to"), result.name}});
    });
}

/// Asks all holders in one call, which may take long. If that has not ended, the answer names those that have been
/// asked.
Reply Routes::release(const Question &question) const
{
    const QString plugin = question.parts.first();
    const auto asked = std::make_shared<Asked>();
    std::shared_ptr<BusCalls::Call> call;
    const Reply refusal = withHost([&](Host &) {
        const std::optional<QStringList> files = olderFiles({plugin, {}});
        if (!files)
            return Reply::failure(404, QStringLiteral("no file of %1 is in memory").arg(plugin));
        const auto holders = std::make_shared<std::vector<Holders>>();
        for (const QString &file : *files)
            holders->push_back(
                {QFileInfo(file).fileName(), m_known->activities.activities(file), m_known->endpoints.endpoints(file)});
        call = m_calls.begin(QStringLiteral("the release of %1").arg(plugin), [asked, holders](QJsonObject *) {
            QString thrown;
            for (Holders &held : *holders) {
                if (const QString text = ask(&held, asked.get()); !text.isNull())
                    thrown = text;
            }
            return thrown;
        });
        if (call)
            return Reply();
        for (Holders &held : *holders)
            letGoLater(std::move(held));
        return tooMany();
    });
    if (!call)
        return refusal;
    m_calls.wait(call, Limits::DefaultDeadlineMs);
    return Reply::of(QJsonObject{{QStringLiteral("asked"), QJsonArray::fromStringList(asked->names())}});
}
