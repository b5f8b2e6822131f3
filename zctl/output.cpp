// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include "exitcode.h"
#include "printable.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <poll.h>
#include <unistd.h>

namespace {

/// As a program ends that knows nothing of pipes: what has started it may want to know.
[[noreturn]] void endByBrokenPipe()
{
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
    std::_Exit(No);
}

} // namespace

void expectBrokenPipes() { std::signal(SIGPIPE, SIG_IGN); }

void putBytes(const QByteArray &bytes)
{
    const auto size = static_cast<size_t>(bytes.size());
    if (std::fwrite(bytes.constData(), 1, size, stdout) == size && std::fflush(stdout) == 0)
        return;
    if (errno == EPIPE)
        endByBrokenPipe();
    complain(QStringLiteral("cannot write: %1").arg(qt_error_string(errno)));
    std::_Exit(No);
}

void put(const QString &text) { putBytes(text.toLocal8Bit() + '\n'); }

void complain(const QString &text) { std::fprintf(stderr, "zctl: %s\n", printable(text).toLocal8Bit().constData()); }

void endWithReader()
{
    std::thread([] {
        pollfd output = {STDOUT_FILENO, 0, 0};
        while (poll(&output, 1, -1) <= 0 || (output.revents & POLLERR) == 0) {
            if ((output.revents & ~POLLERR) != 0)
                return; // a terminal that is closed: a signal tells that
        }
        endByBrokenPipe();
    }).detach();
}
