// SPDX-License-Identifier: Apache-2.0
#include "processfigures.h"

#include <QDir>
#include <QFile>

#include <ctime>

#include <unistd.h>

namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray(); // it may have gone
}

int countOf(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

} // namespace

QJsonArray threadFigures()
{
    QJsonArray result;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    const QStringList ids = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &id : ids) {
        const QByteArray stat = contentOf(tasks.filePath(id + QStringLiteral("/stat")));
        const int name = stat.indexOf('(') + 1;
        const int end = stat.lastIndexOf(')');
        if (name <= 0 || end <= name) // it has ended meanwhile
            continue;
        const QList<QByteArray> fields = stat.mid(end + 2).split(' '); // from the third on, by the manual's count
        const qint64 ticks = fields.value(11).toLongLong() + fields.value(12).toLongLong();
        result.append(QJsonObject{{QStringLiteral("id"), id.toInt()},
                                  {QStringLiteral("name"), QString::fromLocal8Bit(stat.mid(name, end - name))},
                                  {QStringLiteral("state"), QString::fromLatin1(fields.value(0))},
                                  {QStringLiteral("cpuMs"), ticks * 1000 / sysconf(_SC_CLK_TCK)}});
    }
    return result;
}

QJsonObject processFigures()
{
    const QList<QByteArray> pages = contentOf(QStringLiteral("/proc/self/statm")).split(' ');
    timespec used = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return {{QStringLiteral("residentBytes"), pages.value(1).toLongLong() * sysconf(_SC_PAGESIZE)},
            {QStringLiteral("cpuMs"), qint64(used.tv_sec) * 1000 + used.tv_nsec / 1000000},
            {QStringLiteral("threads"), countOf(QStringLiteral("/proc/self/task"))},
            {QStringLiteral("descriptors"), countOf(QStringLiteral("/proc/self/fd")) - 1}}; // one is this look's own
}
