// SPDX-License-Identifier: Apache-2.0
#include "zendpoint.h"

#include "zendpoints.h"
#include "zeventloop.h"
#include "zwiring.h"

#include <QThread>

ZEndpoint::ZEndpoint(const QUrl &url) : d(std::make_unique<Private>(this, url, nullptr)) {}

ZEndpoint::ZEndpoint(const QUrl &url, ZObject *root) : ZObject(root), d(std::make_unique<Private>(this, url, root)) {}

ZEndpoint::~ZEndpoint() = default;

ZLogger *ZEndpoint::zLogger() const { return d->logger; }
ZDbus *ZEndpoint::zDbus() const { return d->dbus; }
ZScheduler *ZEndpoint::zScheduler() const { return d->scheduler; }
ZConfig *ZEndpoint::zConfig() const { return d->config; }

void ZEndpoint::setZLogger(ZLogger *logger)
{
    if (zKeepFirst(d->logger, logger))
        d->log = ZNamedLogger(logger, QStringLiteral("zdefault"));
}

void ZEndpoint::setZDbus(ZDbus *dbus) { zKeepFirst(d->dbus, dbus); }
void ZEndpoint::setZScheduler(ZScheduler *scheduler) { zKeepFirst(d->scheduler, scheduler); }
void ZEndpoint::setZConfig(ZConfig *config) { zKeepFirst(d->config, config); }

bool ZEndpoint::invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) { return d->answer(url, in, out); }

void ZEndpoint::letGo()
{
    const ZEndpoints::Held held{d.get(), d->self()};
    ZEndpoints::letGo({held});
    if (QThread::currentThread() == thread() && zHasEventLoop(thread())) // who calls may be one of our own slots
        zPost(thread(), [self = held.self] {});
}

void ZEndpoint::begin(const QJsonObject &) {}

QJsonObject ZEndpoint::handOver() { return {}; }

ZSettings ZEndpoint::settings() const { return {d->config, *d->root}; }

bool ZEndpoint::every(int msecs, std::function<void()> deed)
{
    return schedule(QSharedPointer<ZPeriodicSchedule>::create(msecs), [deed = std::move(deed)] {
        deed();
        return true;
    });
}

bool ZEndpoint::schedule(const QSharedPointer<ZSchedule> &timetable, std::function<bool()> deed)
{
    return d->schedule(timetable, std::move(deed));
}

bool ZEndpoint::start(std::function<void()> job) { return d->start(std::move(job)); }

void ZEndpoint::setMaxJobs(int count) { d->maxJobs = count; }
