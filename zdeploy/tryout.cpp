// SPDX-License-Identifier: Apache-2.0
#include "tryout.h"

#include "account.h"
#include "rights.h"
#include "trial.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const char Option[] = "--try-out"; // FILE PLUGIN SECONDS
constexpr int GraceSeconds = 30;   // for the watching process, which ends by itself

QString notTriedOut(const QString &reason) { return QStringLiteral("it cannot be tried out: %1").arg(reason); }

bool isHungUp(int descriptor)
{
    pollfd input{descriptor, 0, 0};
    return poll(&input, 1, 0) > 0 && (input.revents & (POLLHUP | POLLERR)) != 0;
}

/// The signals for which the watching process waits; no other part of it is interrupted.
sigset_t blockedSignals()
{
    std::signal(SIGCHLD, SIG_DFL); // it may have been ignored by whoever started us, and would not be told then
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGCHLD, SIGHUP, SIGINT, SIGTERM})
        sigaddset(&set, number);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return set;
}

/// Makes this process the one in which the plugin's code runs: it cannot reach our terminal nor what we have open,
/// writes into the scratch folder where it is not told otherwise, and goes when the one that watches does.
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
    Its,  // of the process itself
    Late, // it was given no more time
    Ours  // whoever asked has gone
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

/// Ends the process and all that it has started in its session; answers its status.
int end(pid_t process)
{
    kill(-process, SIGKILL);
    kill(process, SIGKILL); // which may not have come to a session of its own
    int status = 0;
    waitpid(process, &status, 0);
    return status;
}

QString verdictOf(const Account &account, End end, int status)
{
    if (account.verdict)
        return *account.verdict;
    if (end == End::Late || (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU))
        return QStringLiteral("%1 does not end").arg(account.doing);
    return QStringLiteral("%1 ends the process: %2")
        .arg(account.doing, WIFSIGNALED(status) ? QString::fromLatin1(strsignal(WTERMSIG(status)))
                                                : QStringLiteral("exit status %1").arg(WEXITSTATUS(status)));
}

QByteArray readAll(int descriptor)
{
    QByteArray all;
    char part[4096];
    for (ssize_t size = 0; (size = read(descriptor, part, sizeof(part))) > 0;)
        all.append(part, static_cast<int>(size));
    return all;
}

/// What the trials of one plugin have in common.
struct Watch
{
    QString file;
    QString plugin;
    QString scratch;
    int seconds; // for all of them
    QDeadlineTimer deadline;
    sigset_t signalSet;

    /// Has `run` done by a process of its own; what is wrong, empty if nothing is, or nobody wants to know any more.
    QString over(void (Trial::*run)() const) const
    {
        int answer[2];
        if (pipe2(answer, O_CLOEXEC | O_NONBLOCK) != 0)
            return notTriedOut(qt_error_string(errno));
        const pid_t process = fork();
        if (process == 0) {
            confine(scratch, seconds, signalSet);
            (Trial{file, plugin, scratch, answer[1]}.*run)();
        }
        QString verdict = notTriedOut(qt_error_string(errno)); // unless there is a process
        if (process > 0) {
            const End how = awaitEnd(process, signalSet, deadline);
            const int status = end(process);
            verdict = verdictOf(Account::read(readAll(answer[0])), how, status);
        }
        for (const int descriptor : answer)
            close(descriptor);
        return verdict;
    }
};

/// What is wrong with the plugin; empty if nothing is, or nobody wants to know any more.
QString watch(const QString &file, const QString &plugin, int seconds)
{
    // Of a terminal, its signals are for the process that has started this one; then it is told.
    setsid();
    closefrom(STDERR_FILENO + 1);
    const QString error = giveUpRights(QFileInfo(file).path());
    if (!error.isEmpty())
        return notTriedOut(error);
    if (access(QFile::encodeName(file).constData(), R_OK) != 0)
        return notTriedOut(QStringLiteral("the owner of its folder cannot read it: %1").arg(qt_error_string(errno)));
    const sigset_t signalSet = blockedSignals();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (isHungUp(STDIN_FILENO)) // it had gone before we asked to be told
        return {};

    // Who has given up rights may have a folder for temporary files that is not his.
    const bool isOurs = QFileInfo(QDir::tempPath()).isWritable();
    const QDir temporary(isOurs ? QDir::tempPath() : QStringLiteral("/tmp"));
    const QTemporaryDir scratch(temporary.filePath(QStringLiteral("zdeploy-XXXXXX")));
    if (!scratch.isValid())
        return notTriedOut(scratch.errorString());
    const Watch watch{file, plugin, scratch.path(), seconds, QDeadlineTimer(seconds * 1000), signalSet};
    const QString verdict = watch.over(&Trial::loadAlone);
    return verdict.isEmpty() ? watch.over(&Trial::loadInHost) : verdict;
}

} // namespace

QString tryOut(const QString &file, const QString &plugin, int seconds)
{
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(),
                {QLatin1String(Option), file, plugin, QString::number(seconds)});
    if (!child.waitForFinished((seconds + GraceSeconds) * 1000)) {
        const QString error = child.errorString();
        child.kill();
        child.waitForFinished();
        return notTriedOut(error);
    }
    const Account account = Account::read(child.readAllStandardOutput());
    return account.verdict ? *account.verdict : notTriedOut(QStringLiteral("nobody answers"));
}

bool isTryOut(int argc, char *argv[]) { return argc == 5 && std::strcmp(argv[1], Option) == 0; }

int watchTryOut(char *argv[])
{
    const QString file = QFile::decodeName(argv[2]);
    const QString plugin = QFile::decodeName(argv[3]);
    Account::judge(STDOUT_FILENO, watch(file, plugin, QByteArray(argv[4]).toInt()));
    return 0;
}
