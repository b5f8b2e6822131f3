// SPDX-License-Identifier: Apache-2.0
#include "terminalprocess.h"

#include <QDeadlineTimer>
#include <QFile>

#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr int PatienceMs = 30000;
constexpr int StepMs = 20;

} // namespace

TerminalProcess::TerminalProcess(int columns, int rows)
{
    m_master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    grantpt(m_master);
    unlockpt(m_master);
    const char *const name = ptsname(m_master);
    m_slave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    resize(columns, rows);
    setStandardInputFile(QFile::decodeName(name));
    setStandardOutputFile(QFile::decodeName(name));
}

TerminalProcess::~TerminalProcess()
{
    kill();
    waitForFinished();
    ::close(m_slave);
    ::close(m_master);
}

void TerminalProcess::setupChildProcess()
{
    setsid();
    ioctl(STDIN_FILENO, TIOCSCTTY, 0); // so that Ctrl-C means this process
}

void TerminalProcess::read()
{
    char buffer[4096];
    pollfd waited = {m_master, POLLIN, 0};
    while (poll(&waited, 1, StepMs) > 0) {
        const ssize_t size = ::read(m_master, buffer, sizeof buffer);
        if (size <= 0)
            return;
        m_output.append(buffer, int(size));
    }
}

bool TerminalProcess::waitFor(const QByteArray &text)
{
    for (const QDeadlineTimer deadline(PatienceMs); !deadline.hasExpired() && !m_output.contains(text);) {
        const bool isOver = state() == NotRunning;
        read();
        if (isOver)
            break;
        waitForFinished(1);
    }
    return m_output.contains(text);
}

bool TerminalProcess::end()
{
    for (const QDeadlineTimer deadline(PatienceMs); !deadline.hasExpired() && state() != NotRunning;) {
        read();
        waitForFinished(1);
    }
    read();
    return state() == NotRunning;
}

void TerminalProcess::resize(int columns, int rows) const
{
    winsize size = {};
    size.ws_col = static_cast<unsigned short>(columns);
    size.ws_row = static_cast<unsigned short>(rows);
    ioctl(m_master, TIOCSWINSZ, &size);
}

void TerminalProcess::type(const QByteArray &keys) const
{
    if (::write(m_master, keys.constData(), size_t(keys.size())) != keys.size())
        qFatal("cannot type");
}

bool TerminalProcess::isRaw() const
{
    termios state = {};
    tcgetattr(m_slave, &state);
    return (state.c_lflag & (ICANON | ECHO)) == 0;
}

bool TerminalProcess::isStopped() const
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(processId()));
    return stat.open(QIODevice::ReadOnly) && stat.readAll().contains(") T ");
}
