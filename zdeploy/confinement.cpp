// SPDX-License-Identifier: Apache-2.0
#include "confinement.h"

#include "account.h"
#include "rights.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int GraceSeconds = 30;  // for the watching process, which ends by itself
constexpr int LastWordsMs = 2000; // to write down where it hangs

bool isHungUp(int descriptor)
{
    pollfd input{descriptor, 0, 0};
    return poll(&input, 1, 0) > 0 && (input.revents & (POLLHUP | POLLERR)) != 0;
}

/// The signals for which the watching process waits; no other part of it is interrupted.
sigset_t blockedSignals()
{
    std::signal(SIGCHLD, SIG_DFL); // our parent may have had it ignored; then we would not get it
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGCHLD, SIGHUP, SIGINT, SIGTERM})
        sigaddset(&set, number);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return set;
}

/// Prepares this process for the plugin's code: it cannot reach our terminal nor our open files, writes into the
/// scratch folder by default, and ends with the process that watches.
void confine(const QString &scratch, int seconds, const sigset_t &blocked)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setsid();
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing, descriptor);
    QDir::setCurrent(scratch);
    qputenv("TMPDIR", QFile::encodeName(scratch));
    limitResources(static_cast<unsigned>(seconds));
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
}

enum class End
{
    Its,  // the process has ended by itself
    Late, // its time was over
    Ours  // nobody waits for the result any more
};

End awaitEnd(pid_t process, const sigset_t &signalSet, const QDeadlineTimer &deadline)
{
    for (;;) {
        siginfo_t state = {};
        waitid(P_PID, static_cast<id_t>(process), &state, WEXITED | WNOHANG | WNOWAIT);
        if (state.si_pid == process)
            return End::Its;
        const qint64 rest = deadline.remainingTimeNSecs();
        const timespec patience{rest / 1000000000, rest % 1000000000};
        const int number = sigtimedwait(&signalSet, nullptr, &patience);
        if (number < 0 && errno != EINTR)
            return End::Late;
        if (number > 0 && number != SIGCHLD)
            return End::Ours;
    }
}

/// Ends the process, and all that it has started in its session. Returns its status.
int end(pid_t process)
{
    kill(-process, SIGKILL);
    kill(process, SIGKILL); // it may not have its own session yet
    int status = 0;
    waitpid(process, &status, 0);
    return status;
}

Verdict verdictOf(const Account &account, End end, int status)
{
    if (account.verdict)
        return {account.verdict->text}; // whoever has written that
    if (end == End::Late || (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU))
        return {QStringLiteral("%1 does not end").arg(account.doing), true, true};
    return {QStringLiteral("%1 ends the process: %2")
                .arg(account.doing, WIFSIGNALED(status) ? QString::fromLatin1(strsignal(WTERMSIG(status)))
                                                        : QStringLiteral("exit status %1").arg(WEXITSTATUS(status)))};
}

QByteArray readAll(int descriptor)
{
    QByteArray all;
    char part[4096];
    for (ssize_t size = 0; (size = read(descriptor, part, sizeof(part))) > 0;)
        all.append(part, static_cast<int>(size));
    return all;
}

/// The scratch folder's name. After the rights were given up, the folder for temporary files may be another user's.
QString scratchName()
{
    const bool isOurs = QFileInfo(QDir::tempPath()).isWritable();
    const QDir temporary(isOurs ? QDir::tempPath() : QStringLiteral("/tmp"));
    return temporary.filePath(QStringLiteral("zdeploy-XXXXXX"));
}

/// Does the work, writes the result, and ends the process.
[[noreturn]] void judge(int answer, const Confinement::Work &work)
{
    char name[] = "zdeploy";
    char *argv[] = {name, nullptr};
    int argc = 1;
    const QCoreApplication application(argc, argv);
    Account::judge(answer, {work(answer)});
    std::_Exit(EXIT_SUCCESS); // a plugin that is refused may have left anything behind
}

} // namespace

Verdict notTriedOut(const QString &reason)
{
    return Verdict::hindrance(QStringLiteral("it cannot be tried out: %1").arg(reason));
}

Confinement::Confinement(const QString &folder, int seconds) : m_deadline(seconds * 1000)
{
    // The signals of a terminal are for the process that has started this one, which then tells us.
    setsid();
    closefrom(STDERR_FILENO + 1);
    m_error = giveUpRights(folder);
    if (!m_error.isEmpty())
        return;
    m_signals = blockedSignals();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    m_scratch = std::make_unique<QTemporaryDir>(scratchName());
    if (!m_scratch->isValid())
        m_error = m_scratch->errorString();
}

bool Confinement::isForNobody() const { return isHungUp(STDIN_FILENO); }

Verdict Confinement::run(const Work &work, int processorSeconds, QStringList *facts) const
{
    int answer[2];
    if (pipe2(answer, O_CLOEXEC | O_NONBLOCK) != 0)
        return notTriedOut(qt_error_string(errno));
    const pid_t process = fork();
    if (process == 0) {
        confine(scratch(), processorSeconds, m_signals);
        judge(answer[1], work);
    }
    Verdict verdict = notTriedOut(qt_error_string(errno)); // unless there is a process
    if (process > 0) {
        const End how = awaitEnd(process, m_signals, m_deadline);
        if (how == End::Late) {
            kill(process, SIGABRT);
            awaitEnd(process, m_signals, QDeadlineTimer(LastWordsMs));
        }
        const int status = end(process);
        const Account account = Account::read(readAll(answer[0]));
        verdict = verdictOf(account, how, status);
        if (facts)
            facts->append(account.facts);
    }
    for (const int descriptor : answer)
        close(descriptor);
    return verdict;
}

Verdict askAnotherProcess(const QStringList &arguments, int seconds, QStringList *facts)
{
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), arguments);
    if (!child.waitForFinished((seconds + GraceSeconds) * 1000)) {
        const QString error = child.errorString();
        child.kill();
        child.waitForFinished();
        return notTriedOut(error);
    }
    const Account account = Account::read(child.readAllStandardOutput());
    if (facts)
        facts->append(account.facts);
    if (account.verdict)
        return *account.verdict;
    return {notTriedOut(QStringLiteral("nobody answers")).text}; // the plugin may have ended who watches, too
}
