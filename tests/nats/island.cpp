// SPDX-License-Identifier: Apache-2.0
#include "island.h"

#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

Island::Island() : m_home(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC))
{
    m_isReached = m_home >= 0 && unshare(CLONE_NEWNET) == 0;
    if (m_isReached)
        setConnected(true);
}

Island::~Island()
{
    if (m_isReached && setns(m_home, CLONE_NEWNET) != 0)
        qFatal("cannot leave the island");
    close(m_home);
}

void Island::setConnected(bool isConnected)
{
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", sizeof request.ifr_name);
    request.ifr_flags = static_cast<short>(isConnected ? IFF_UP : 0);
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (ioctl(socket, SIOCSIFFLAGS, &request) != 0)
        qFatal("cannot change the network");
    close(socket);
}
