// SPDX-License-Identifier: Apache-2.0
#include "folderwatch.h"

#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int LookMs = 1000;
constexpr int BufferSize = 64 << 10;

/// Opens inotify: its descriptor, or the error, negative.
int openEvents()
{
    const int descriptor = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return descriptor >= 0 ? descriptor : -errno;
}

} // namespace

FolderWatch::FolderWatch(const QString &folder) : m_folder(folder), m_descriptor(openEvents())
{
    connect(&m_timer, &QTimer::timeout, this, &FolderWatch::look);
    if (m_descriptor < 0)
        return;
    m_notifier = std::make_unique<QSocketNotifier>(m_descriptor, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &FolderWatch::readEvents);
}

FolderWatch::~FolderWatch()
{
    m_notifier.reset(); // before the descriptor that it watches
    if (m_descriptor >= 0)
        close(m_descriptor);
}

void FolderWatch::start()
{
    m_timer.start(LookMs);
    look();
}

FolderWatch::Identity FolderWatch::identity() const
{
    struct stat status;
    if (stat(QFile::encodeName(m_folder).constData(), &status) != 0 || !S_ISDIR(status.st_mode))
        return {};
    return std::make_pair(status.st_dev, status.st_ino);
}

void FolderWatch::look()
{
    const Identity now = identity();
    if (m_watched && m_watched != now)
        forget();
    if (!now || m_watched)
        return;
    if (const int error = watch())
        fail(error);
    else
        m_watched = now;
    Q_EMIT unseen();
}

/// Watches the folder. Returns the error; 0 if there is none.
int FolderWatch::watch()
{
    if (m_descriptor < 0)
        return -m_descriptor;
    m_watch = inotify_add_watch(m_descriptor, QFile::encodeName(m_folder).constData(),
                                IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_ONLYDIR);
    return m_watch >= 0 ? 0 : errno;
}

void FolderWatch::forget()
{
    inotify_rm_watch(m_descriptor, m_watch); // fails where the folder has been removed, and the watch with it
    m_watch = -1;
    m_watched.reset();
}

void FolderWatch::fail(int error)
{
    if (!std::exchange(m_hasFailed, true))
        Q_EMIT failed(qt_error_string(error));
}

void FolderWatch::readEvents()
{
    alignas(inotify_event) char buffer[BufferSize];
    ssize_t size = 0;
    while ((size = read(m_descriptor, buffer, sizeof buffer)) > 0) {
        for (ssize_t at = 0; at < size;) {
            inotify_event event;
            std::memcpy(&event, buffer + at, sizeof event);
            const char *const name = buffer + at + sizeof event;
            at += static_cast<ssize_t>(sizeof event + event.len);
            if (event.mask & IN_Q_OVERFLOW)
                Q_EMIT unseen();
            else if (event.wd != m_watch) // of a folder that was here before
                continue;
            else if (event.mask & IN_IGNORED) // it has been removed
                forget();
            else if (event.mask & IN_CREATE)
                Q_EMIT created(QFile::decodeName(name));
            else if (event.len > 0)
                Q_EMIT arrived(QFile::decodeName(name));
        }
    }
}
