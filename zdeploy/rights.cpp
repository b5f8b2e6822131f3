// SPDX-License-Identifier: Apache-2.0
#include "rights.h"

#include <QFile>

#include <algorithm>
#include <cerrno>

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr rlim_t MemoryLimit = rlim_t(2) << 30;
constexpr rlim_t FileLimit = 1024;

/// False, and errno, where it fails.
bool become(uid_t user)
{
    const passwd *const entry = getpwuid(user);
    // One without an entry is a service manager's or a container's: such a user has a group of the same number.
    const gid_t group = entry ? entry->pw_gid : user;
    const bool hasGroups = entry ? initgroups(entry->pw_name, group) == 0 : setgroups(0, nullptr) == 0;
    return hasGroups && setresgid(group, group, group) == 0 && setresuid(user, user, user) == 0;
}

/// The bytes of memory of its own that this process has; what a sanitizer keeps is a lot.
rlim_t memoryInUse()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const rlim_t pages = file.readAll().split(' ').value(5).toULong();
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

/// Lowers a limit to `most`. Between it and the hard one, which lies `more` above, the system warns.
void limit(__rlimit_resource resource, rlim_t most, rlim_t more = 0)
{
    rlimit now = {};
    getrlimit(resource, &now);
    now.rlim_max = std::min(now.rlim_max, most + more);
    now.rlim_cur = std::min(now.rlim_cur, most);
    setrlimit(resource, &now);
}

} // namespace

QString giveUpRights(const QString &folder)
{
    struct stat status = {};
    const bool isDone = stat(QFile::encodeName(folder).constData(), &status) == 0 &&
                        (geteuid() != 0 || status.st_uid == 0 || become(status.st_uid)) &&
                        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
    return isDone ? QString() : QStringLiteral("cannot give up rights: %1").arg(qt_error_string(errno));
}

void limitResources(unsigned seconds)
{
    limit(RLIMIT_DATA, memoryInUse() + MemoryLimit);
    limit(RLIMIT_CPU, seconds, 5);
    limit(RLIMIT_NOFILE, FileLimit);
    limit(RLIMIT_CORE, 0);
}
