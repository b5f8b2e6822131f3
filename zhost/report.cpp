// SPDX-License-Identifier: Apache-2.0
#include "report.h"

#include "known/processfigures.h"
#include "letgolater.h"
#include "localbus.h"
#include "mappedfiles.h"
#include "services.h"
#include "timetable.h"

#include <zhost.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QRegularExpression>
#include <QStringList>
#include <QVector>

#include <algorithm>
#include <utility>

namespace {

/// Pointers that a report holds for a moment.
struct Held
{
    QVector<QSharedPointer<ZReference>> components;
    QVector<QSharedPointer<ZThreadPool>> registries;
};

/// The services, and which of them have a component at the moment.
QJsonObject servicesNow(const ZServices &services, Held *held)
{
    QJsonObject result;
    const auto add = [&](const char *name, auto *service) {
        QSharedPointer<ZReference> component = behind(service);
        result.insert(QLatin1String(name), !component.isNull());
        held->components.append(std::move(component));
    };
    add("ZConfig", services.config);
    add("ZContext", services.context);
    add("ZDbus", services.dbus);
    add("ZEmitter", services.emitter);
    add("ZJobPoolSet", services.jobPoolSet);
    add("ZLoader", services.loader);
    add("ZLogger", services.logger);
    add("ZScheduler", services.scheduler);
    add("ZTempFile", services.tempFile);
    add("ZThreadPoolSet", services.threadPoolSet);
    return result;
}

QJsonArray endpoints(ZDbus *dbus)
{
    QStringList urls;
    const QList<QUrl> bound = LocalBus(dbus).findAll0(QRegularExpression(QStringLiteral(".*")));
    for (const QUrl &url : bound)
        urls.append(url.toString());
    urls.sort();
    return QJsonArray::fromStringList(urls);
}

} // namespace

QStringList pluginsInMemory()
{
    QStringList files = mappedFiles();
    const QStringList folders = QCoreApplication::libraryPaths();
    const auto isNone = [&](const QString &file) {
        return !folders.contains(QFileInfo(file).path()) || file == QCoreApplication::applicationFilePath();
    };
    files.erase(std::remove_if(files.begin(), files.end(), isNone), files.end());
    return files;
}

QJsonObject report(const ZHost &host, const Timetable &timetable, bool askBus)
{
    Held held;
    const ZServices &services = host.services();
    held.registries = host.registries();
    QJsonObject result{{QStringLiteral("services"), servicesNow(services, &held)},
                       {QStringLiteral("plugins"), QJsonArray::fromStringList(pluginsInMemory())},
                       {QStringLiteral("schedule"), timetable.describe()},
                       {QStringLiteral("activities"), threadsIn(held.registries)},
                       {QStringLiteral("threads"), threadFigures()}};
    if (askBus)
        result.insert(QStringLiteral("endpoints"), endpoints(services.dbus));
    letGoLater(std::move(held));
    return result;
}
