// SPDX-License-Identifier: Apache-2.0
#include "exitguard.h"

#include "exitcode.h"
#include "lastwords.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include <dlfcn.h>
#include <execinfo.h>

namespace {

std::atomic_bool isGuarded{false};
void (*tellOf)(const QString &line) = nullptr;

/// The file that holds the code at `address`, if it lies where plugins do.
QString pluginWith(const void *address)
{
    Dl_info info;
    if (!dladdr(address, &info) || !info.dli_fname)
        return {};
    const QString file = QFile::decodeName(info.dli_fname);
    const bool isPlugin = QCoreApplication::libraryPaths().contains(QFileInfo(file).path()) &&
                          file != QCoreApplication::applicationFilePath();
    return isPlugin ? file : QString();
}

/// The innermost plugin that this thread is running; empty if there is none.
QString pluginOnStack()
{
    void *frames[128];
    const int count = backtrace(frames, int(std::size(frames)));
    QString plugin;
    for (int i = 0; i < count && plugin.isEmpty(); ++i)
        plugin = pluginWith(frames[i]);
    return plugin;
}

void handleExit(int status, void *)
{
    if (!isGuarded)
        return;
    const QString plugin = pluginOnStack();
    const QString line = QStringLiteral("ended by exit(%1), called by %2")
                             .arg(QString::number(status), plugin.isEmpty() ? QStringLiteral("a plugin") : plugin);
    tellOf(line);
    const QString file = plugin.isEmpty() ? plugin : QFileInfo(plugin).canonicalFilePath();
    noteEnd(QFile::encodeName(file), QFile::encodeName(line + QLatin1Char('\n')));
    std::fflush(nullptr);
    std::_Exit(EndedByPlugin); // the other functions that run at an exit rely on the host having ended
}

} // namespace

ExitGuard::ExitGuard(void (*tell)(const QString &line))
{
    tellOf = tell;
    QCoreApplication::applicationFilePath(); // called now, so that its cache is destroyed after the handler has run
    isGuarded = true;
    on_exit(handleExit, nullptr);
}

ExitGuard::~ExitGuard() { isGuarded = false; }
