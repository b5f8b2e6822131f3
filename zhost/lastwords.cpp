// SPDX-License-Identifier: Apache-2.0
// No function here allocates or locks, but for those that take a QString: a crash may come anywhere.
#include "lastwords.h"

#include <QFile>

#include <zloading.h>

#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

char notePath[PATH_MAX];
int kept[2] = {-1, -1};

/// The plugin that this thread is loading, without "lib"; null if there is none.
const char *loadingHere()
{
    const char *const name = zLoadingHere();
    return name && std::strncmp(name, "lib", 3) == 0 ? name + 3 : name;
}

} // namespace

void FixedText::add(const char *text)
{
    for (; *text && m_size + 1 < sizeof m_data; ++text)
        m_data[m_size++] = *text;
    m_data[m_size] = 0;
}

void FixedText::addHex(uintptr_t number)
{
    if (number >= 16)
        addHex(number / 16);
    const char digit[] = {"0123456789abcdef"[number % 16], 0};
    add(digit);
}

void FixedText::writeTo(int descriptor) const
{
    pollfd room{descriptor, POLLOUT, 0}; // it may be a full pipe, which may have hung the program
    if (poll(&room, 1, 0) != 1 || write(descriptor, m_data, m_size) < 0)
        return; // the failure cannot be reported anywhere
}

void copyPath(char (&to)[PATH_MAX], const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    to[0] = 0;
    if (name.size() < PATH_MAX)
        std::memcpy(to, name.constData(), static_cast<size_t>(name.size()) + 1);
}

void addLoading(FixedText *line)
{
    if (const char *const loading = loadingHere()) {
        line->add(", while loading ");
        line->add(loading);
    }
}

void keepDescriptors()
{
    for (int &descriptor : kept)
        descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

void freeDescriptor() { close(kept[0]); }

int openNote(const char *path)
{
    return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
}

void noteEndsAt(const QString &path) { copyPath(notePath, path); }

void noteEnd(const char *file, const char *text)
{
    static FixedText note; // too large for the stack that may be left
    if (!notePath[0])
        return;
    const char *const loading = loadingHere();
    for (const char *const part : {file, "\n", loading ? loading : "", "\n", text})
        note.add(part);
    close(kept[1]);
    const int descriptor = openNote(notePath);
    note.writeTo(descriptor);
    fsync(descriptor);
    close(descriptor);
}
