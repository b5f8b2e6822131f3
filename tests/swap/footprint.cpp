// SPDX-License-Identifier: Apache-2.0
#include "footprint.h"

#include <QFile>

#include <filesystem>

#include <malloc.h>
#include <unistd.h>

namespace {

QByteArray contentOf(const char *path)
{
    QFile file(QString::fromLatin1(path));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", path);
    return file.readAll();
}

} // namespace

Footprint Footprint::now()
{
    const auto heap = mallinfo2();
    const qint64 pages = contentOf("/proc/self/statm").split(' ').value(1).toLongLong();
    return {static_cast<qint64>(heap.uordblks + heap.hblkhd), pages * sysconf(_SC_PAGESIZE),
            std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}),
            contentOf("/proc/self/maps").count('\n')};
}
