// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zhandscheduler.h"
#include "zhost.h"
#include "zliteralconfig.h"
#include "zrecordinglogger.h"
#include "ztestbus.h"
#include "ztestplace.h"

#include <QPointer>
#include <QSharedPointer>
#include <QStringList>
#include <QTemporaryDir>
#include <QUrl>
#include <QVector>

#include <functional>
#include <memory>

/**
 * A host with a temporary deployed folder, in which a test function loads its plugin, calls it, and replaces it.
 *
 *     ZPluginFixture plugin;
 *     QVERIFY(plugin.load(PLUGIN_FILE));
 *     QCOMPARE(plugin.call(QUrl("//rain"))["count"].toInt(), 1);
 *     QVERIFY(plugin.replace(PLUGIN_FILE, QUrl("//rain")));
 *
 * When the fixture is destroyed, the application quits, so that endpoints let go; then the host is destroyed. By then
 * every file that was loaded has to be unloaded. The fixture runs the application's event loop to handle posted events:
 * so that must not run already.
 *
 * Ownership: owns the host and all files. Destroy it before the test function ends.
 * Thread:    the application's.
 * Failure:   the current test function fails, with the lines of the log; the result is false, or empty.
 */
class ZPluginFixture
{
public:
    /// Each component in `own` takes the place of a default service; the fixture owns it from now on. The logger and
    /// the loader cannot be replaced, since the fixture has its own. A configuration among them is read, completed by
    /// the folder, and destroyed.
    explicit ZPluginFixture(const QVector<QObject *> &own = {}, const ZTestPlace &place = ZTestPlace());
    ~ZPluginFixture();

    const ZServices &services() const { return m_host->services(); }
    ZRecordingLogger *log() const { return m_log.data(); }

    /// Copies `file` into the folder, and loads it. It gets its own name or, if that plugin is there, the name of its
    /// next version. As in any program, it is unloaded again unless somebody holds it.
    bool load(const QString &file, const ZTestPlace &place = ZTestPlace());
    /// Calls `url`, and returns the answer; fails if the call is not handled. To test that a call is not handled, use
    /// the bus.
    QJsonObject call(const QUrl &url, QJsonObject in = {}, const ZTestPlace &place = ZTestPlace());
    /// Loads `next`, which may be the same file, as the next version of the plugin that was loaded last, while so many
    /// threads call `url`. Fails if a call is not handled, or if the file before stays in memory.
    bool replace(const QString &next, const QUrl &url, const QJsonObject &in = {}, int callers = 4,
                 const ZTestPlace &place = ZTestPlace());
    /// The same with calls of any other kind, such as of an interface that the plugin serves. The threads run `call` at
    /// the same time; if it returns false, or throws, a call was missed.
    bool replace(const QString &next, const std::function<bool()> &call, int callers = 4,
                 const ZTestPlace &place = ZTestPlace());
    /// Waits up to so many milliseconds until the file that was loaded last is unloaded.
    bool leavesMemory(int msecs = 10000, const ZTestPlace &place = ZTestPlace());

private:
    Q_DISABLE_COPY(ZPluginFixture)
    using Activities = QVector<QSharedPointer<ZScheduledActivity>>;
    struct Call
    {
        QString of, miss; // what is called, and the complaint if it returns false
        std::function<bool()> make;
    };

    bool replace(const QString &next, const Call &call, int callers, const ZTestPlace &place);
    bool loadNext(const QString &file, const ZTestPlace &place);
    QString deployed(const QString &name) const;
    QStringList report() const;
    bool fail(const ZTestPlace &place, const QString &text) const;
    bool leaves(QString file, int msecs, const ZTestPlace &place);

    const ZTestPlace m_place;
    const QStringList m_libraryPaths; // to which the loader adds
    const QTemporaryDir m_folder;
    const QPointer<ZRecordingLogger> m_log;
    const QSharedPointer<QObject> m_logShare; // for lines that come while the host is destroyed
    QPointer<ZHandScheduler> m_scheduler;     // owned by the host
    std::unique_ptr<ZHost> m_host;
    QStringList m_files; // files that may be in memory
    QString m_plugin;    // the one loaded last, by the name of its first version
};
