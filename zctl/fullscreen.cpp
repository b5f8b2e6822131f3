// SPDX-License-Identifier: Apache-2.0
#include "fullscreen.h"

#include "output.h"
#include "terminal.h"

#include <csignal>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

sigset_t handled()
{
    sigset_t result;
    sigemptyset(&result);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP})
        sigaddset(&result, signal);
    return result;
}

} // namespace

FullScreen::FullScreen()
{
    const sigset_t signals = handled();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    m_signals = signalfd(-1, &signals, SFD_CLOEXEC);
    tcgetattr(STDIN_FILENO, &m_before);
    enter();
}

FullScreen::~FullScreen()
{
    leave();
    close(m_signals);
    const sigset_t signals = handled();
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
}

void FullScreen::enter()
{
    termios raw = m_before;
    raw.c_lflag &= ~tcflag_t(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
    putBytes("\x1b[?1049h\x1b[?25l"); // another screen, without a cursor
}

void FullScreen::leave() const
{
    tcsetattr(STDIN_FILENO, TCSADRAIN, &m_before);
    putBytes("\x1b[?25h\x1b[?1049l");
}

/// Written over what was there, so that nothing flickers.
void FullScreen::show(const QStringList &lines) const
{
    const QStringList seen = lines.mid(0, Terminal::ofOutput().rows);
    putBytes("\x1b[H" + seen.join(QStringLiteral("\x1b[K\n")).toLocal8Bit() + "\x1b[K\x1b[J");
}

FullScreen::Event FullScreen::wait(int ms)
{
    pollfd waited[] = {{m_signals, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    if (poll(waited, 2, ms) <= 0)
        return Nothing;
    return waited[0].revents != 0 ? readSignal() : readKey();
}

FullScreen::Event FullScreen::readKey()
{
    if (read(STDIN_FILENO, &m_key, 1) == 1)
        return Key;
    m_signal = SIGHUP; // the terminal is gone
    return Ended;
}

FullScreen::Event FullScreen::readSignal()
{
    signalfd_siginfo info = {};
    if (read(m_signals, &info, sizeof info) != ssize_t(sizeof info))
        return Nothing;
    m_signal = int(info.ssi_signo);
    switch (m_signal) {
    case SIGINT:
        return Interrupted;
    case SIGTSTP:
        leave();
        raise(SIGSTOP);
        enter(); // it goes on
        return Continued;
    default:
        return Ended;
    }
}
