// SPDX-License-Identifier: Apache-2.0
#include "report.h"

#include "services.h"
#include "timetable.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>
#include <QStringList>

#include <zdelegate.h>

namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

/// Which services there are, and behind which of them there is a component at the moment.
QJsonObject servicesNow(const Services &services)
{
    QJsonObject result;
    const auto add = [&](const char *name, auto *service) {
        auto *delegate = dynamic_cast<ZDelegate *>(service);
        const QSharedPointer<ZReference> reference = delegate ? *delegate : QSharedPointer<ZReference>();
        result.insert(QLatin1String(name), reference && !reference->isNull());
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

/// The files in memory that lie in one of the folders from which plugins are loaded.
QJsonArray plugins()
{
    QStringList files;
    const QStringList folders = QCoreApplication::libraryPaths();
    const QList<QByteArray> lines = contentOf(QStringLiteral("/proc/self/maps")).split('\n');
    for (const QByteArray &line : lines) {
        const QString file = QFile::decodeName(line.mid(line.indexOf('/')));
        if (line.contains('/') && folders.contains(QFileInfo(file).path()) && !files.contains(file) &&
            file != QCoreApplication::applicationFilePath())
            files.append(file);
    }
    files.sort();
    return QJsonArray::fromStringList(files);
}

QJsonArray endpoints(ZDbus *dbus)
{
    QStringList urls;
    const QList<QUrl> bound = dbus->findAll0(QRegularExpression(QStringLiteral(".*")));
    for (const QUrl &url : bound)
        urls.append(url.toString());
    urls.sort();
    return QJsonArray::fromStringList(urls);
}

/// Every thread of the process, with the state in which the kernel has it ("S" sleeps, "R" runs, "D" waits for a disk).
QJsonArray threads()
{
    QJsonArray result;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    const QStringList ids = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &id : ids) {
        const QByteArray stat = contentOf(tasks.filePath(id + QStringLiteral("/stat")));
        const int name = stat.indexOf('(') + 1;
        const int end = stat.lastIndexOf(')');
        if (name > 0 && end > name) // it has not ended meanwhile
            result.append(QJsonObject{{QStringLiteral("id"), id.toInt()},
                                      {QStringLiteral("name"), QString::fromLocal8Bit(stat.mid(name, end - name))},
                                      {QStringLiteral("state"), QString::fromLatin1(stat.mid(end + 2, 1))}});
    }
    return result;
}

} // namespace

QJsonObject report(const Services &services, const Timetable &timetable)
{
    return {{QStringLiteral("services"), servicesNow(services)},
            {QStringLiteral("plugins"), plugins()},
            {QStringLiteral("endpoints"), endpoints(services.dbus)},
            {QStringLiteral("schedule"), timetable.describe()},
            {QStringLiteral("activities"), services.activities()->printd()},
            {QStringLiteral("threads"), threads()}};
}
