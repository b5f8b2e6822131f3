// SPDX-License-Identifier: Apache-2.0
#include "inbox.h"

#include "printable.h"

#include "known/history.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

#include <zcaught.h>
#include <zfilecopy.h>
#include <zlogger.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int PauseMs = 60000;
constexpr int QuietMs = 10000;
constexpr int AgainMs = 2000;
constexpr int EndMs = 5000;
const QString Prefix = QStringLiteral("zhost: inbox: ");
const QString Pattern = QStringLiteral("lib*.so");
const QString Refused = QStringLiteral("refused");

/// The exit statuses of zdeploy that say something about the plugin.
enum DropCode
{
    Dropped = 0,
    RefusedIt = 1
};

/// Whether a signal was caused by the process itself, and not sent by somebody else.
bool isCrash(int number)
{
    const auto crashes = {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL, SIGSYS};
    return std::find(crashes.begin(), crashes.end(), number) != crashes.end();
}

/// Whether the file has not changed for a while, or the clock was set back since it changed.
bool isQuiet(const QFileInfo &file)
{
    return qAbs(file.metadataChangeTime().msecsTo(QDateTime::currentDateTime())) >= QuietMs;
}

bool isPluginFile(const QString &file) { return QDir::match(Pattern, file); }

/// Makes a folder that belongs to us. Returns why there is none; null if there is. A folder of somebody else is not
/// used, since it may be a link to anywhere.
QString makeOwnFolder(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat status;
    if (mkdir(name.constData(), 0755) != 0 && errno != EEXIST)
        return qt_error_string(errno);
    if (lstat(name.constData(), &status) != 0)
        return qt_error_string(errno);
    return S_ISDIR(status.st_mode) && status.st_uid == geteuid() ? QString()
                                                                 : QStringLiteral("it is no folder of this user");
}

/// The plugin files in `folder` whose names are not valid text. Qt leaves them out of its lists, and cannot open them.
QList<QByteArray> unspeakableIn(const QString &folder)
{
    QList<QByteArray> names;
    DIR *const entries = opendir(QFile::encodeName(folder).constData());
    while (const dirent *entry = entries ? readdir(entries) : nullptr) {
        const QByteArray name = entry->d_name;
        const bool isFile = entry->d_type == DT_REG || entry->d_type == DT_UNKNOWN;
        if (isFile && name.startsWith("lib") && name.endsWith(".so") &&
            QFile::encodeName(QFile::decodeName(name)) != name)
            names.append(name);
    }
    if (entries)
        closedir(entries);
    return names;
}

/// Moves the file at `path` to the folder `refused`, as `name`, beside the reason. Returns why that fails; null if it
/// does not.
QString moveAside(const QByteArray &path, const QString &refused, const QString &name, const QString &reason)
{
    QString failure = makeOwnFolder(refused);
    if (!failure.isNull())
        return failure;
    const QString target = refused + QLatin1Char('/') + name;
    QSaveFile text(target + QStringLiteral(".reason.txt"));
    if (!text.open(QIODevice::WriteOnly) || text.write(reason.toUtf8() + '\n') < 0 || !text.flush() || !text.commit())
        return text.errorString();
    if (std::rename(path.constData(), QFile::encodeName(target).constData()) != 0)
        return qt_error_string(errno);
    return {};
}

/// The reason in the last line that zdeploy has written.
QString reasonIn(const QByteArray &written)
{
    const QString line = QString::fromLocal8Bit(written).trimmed().section(QLatin1Char('\n'), -1);
    const QRegularExpression marks(QStringLiteral(" (?:is refused|cannot be dropped): (.*)"));
    const QRegularExpressionMatch match = marks.match(line);
    return match.hasMatch() ? match.captured(1) : line;
}

} // namespace

Inbox::Inbox(const InboxFolders &folders, ZLogger *logger, History *history)
    : m_folders(folders), m_logger(logger), m_history(history), m_watch(folders.inbox)
{
    m_process.setProgram(QCoreApplication::applicationDirPath() + QStringLiteral("/zdeploy"));
    m_process.setStandardInputFile(QProcess::nullDevice());
    connect(&m_process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this, [this] {
        finish();
        next();
    });
    connect(&m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            tryLater(QStringLiteral("%1: %2").arg(m_process.program(), m_process.errorString()));
    });
    m_pause.setSingleShot(true);
    connect(&m_pause, &QTimer::timeout, this, &Inbox::next);
    m_again.setSingleShot(true);
    connect(&m_again, &QTimer::timeout, this, &Inbox::addAll);
    connect(&m_watch, &FolderWatch::arrived, this, [this](const QString &file) {
        m_passedOver.remove(file);
        add(file);
        next();
    });
    connect(&m_watch, &FolderWatch::created, this, [this](const QString &file) {
        addIfQuiet(QFileInfo(pathOf(file)));
        next();
    });
    connect(&m_watch, &FolderWatch::unseen, this, &Inbox::addAll);
    connect(&m_watch, &FolderWatch::failed, this, [this](const QString &reason) {
        warn(QStringLiteral("it cannot be watched, and is looked at each second: %1").arg(reason));
    });
    m_watch.start();
}

Inbox::~Inbox()
{
    m_process.disconnect(this);
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate(); // then it leaves nothing behind
    if (!m_process.waitForFinished(EndMs)) {
        m_process.kill();
        m_process.waitForFinished();
    }
    if (m_process.exitStatus() == QProcess::NormalExit) // it was quicker
        finish();
}

void Inbox::add(const QString &file)
{
    if (isPluginFile(file) && !m_queue.contains(file) && !m_passedOver.contains(file))
        m_queue.append(file);
}

void Inbox::addAll()
{
    const QFileInfoList files =
        QDir(m_folders.inbox)
            .entryInfoList({Pattern}, QDir::Files | QDir::NoSymLinks, QDir::Time | QDir::Reversed); // the oldest first
    for (const QFileInfo &file : files)
        addIfQuiet(file);
    refuseUnspeakable();
    next();
}

/// Adds a file for which no event has said that it is complete. For a file of another user the system does not tell us
/// whether somebody is writing it: it waits until it has not changed for a while.
void Inbox::addIfQuiet(const QFileInfo &file)
{
    const bool canTell = geteuid() == 0 || file.ownerId() == geteuid();
    if (m_closed.remove(file.fileName()) || canTell || isQuiet(file))
        add(file.fileName());
    else
        lookAgain();
}

void Inbox::lookAgain()
{
    if (!m_again.isActive())
        m_again.start(AgainMs);
}

void Inbox::next()
{
    while (!m_file && !m_pause.isActive() && !m_queue.isEmpty())
        begin(m_queue.takeFirst());
}

/// Begins to drop a file. A file that somebody is writing is left: most often an event comes when it is closed, but not
/// if it was written before it got its name. Links are ignored: those that put one here may have no right to read its
/// target.
void Inbox::begin(const QString &file)
{
    const QString path = pathOf(file);
    if (!QFileInfo(path).isFile() || QFileInfo(path).isSymLink())
        return refuseUnspeakable(); // the file may be one of those
    auto copy = std::make_unique<ZFileCopy>(path);
    if (!copy->open())
        return leaveUnreadable(file, qt_error_string(errno));
    if (!copy->isSettled())
        return lookAgain();
    m_file = std::move(copy);
    m_process.setArguments({QStringLiteral("--deployed"), m_folders.deployed, path, m_folders.hotDeploy});
    m_process.start();
}

/// Leaves a file that we may not read. Its writer may be about to change that: "install" sets the mode after it has
/// closed the file.
void Inbox::leaveUnreadable(const QString &file, const QString &reason)
{
    if (isQuiet(QFileInfo(pathOf(file))))
        return refuse(file, QStringLiteral("cannot read it: %1").arg(reason));
    m_closed.insert(file);
    lookAgain();
}

void Inbox::finish()
{
    const bool hasExited = m_process.exitStatus() == QProcess::NormalExit;
    const int code = m_process.exitCode(); // after a crash QProcess has the number of the signal here
    const QString reason = hasExited
                               ? reasonIn(m_process.readAllStandardError())
                               : QStringLiteral("zdeploy has ended: %1").arg(QString::fromLocal8Bit(strsignal(code)));
    const bool isDropped = hasExited && code == Dropped;
    if (!isDropped && !(hasExited ? code == RefusedIt : isCrash(code)))
        return tryLater(reason);
    m_failure.clear();
    const std::unique_ptr<ZFileCopy> copy = std::move(m_file);
    const QString file = QFileInfo(copy->source()).fileName();
    if (isDropped) {
        m_history->add("dropped", file);
        inform(QStringLiteral("%1: %2").arg(file, QString::fromLocal8Bit(m_process.readAllStandardOutput()).trimmed()));
    }
    if (!copy->isSettled()) // there is another file by now
        add(file);
    else if (isDropped)
        remove(file);
    else
        refuse(file, reason);
}

void Inbox::remove(const QString &file)
{
    QFile source(pathOf(file));
    if (!source.remove())
        passOver(file, source.errorString());
}

void Inbox::refuse(const QString &file, const QString &reason) { refuse(QFile::encodeName(file), file, reason); }

/// Refuses a file. If its name is not valid text, it gets another one, `name`.
void Inbox::refuse(const QByteArray &file, const QString &name, const QString &reason)
{
    warn(QStringLiteral("%1: refused: %2").arg(name, reason));
    m_history->add("refused", name, reason);
    const QByteArray path = QFile::encodeName(m_folders.inbox) + '/' + file;
    const QString failure = moveAside(path, pathOf(Refused), name, reason);
    if (!failure.isNull())
        passOver(name, failure);
}

void Inbox::refuseUnspeakable()
{
    const QList<QByteArray> files = unspeakableIn(m_folders.inbox);
    for (const QByteArray &file : files) {
        const QString name = QString::fromLatin1(file.toPercentEncoding());
        if (!m_passedOver.contains(name))
            refuse(file, name, QStringLiteral("its name is no text"));
    }
}

void Inbox::tryLater(const QString &reason)
{
    const QString file = QFileInfo(m_file->source()).fileName();
    m_file.reset();
    m_queue.prepend(file);
    m_pause.start(PauseMs);
    if (reason != m_failure) // the same reason is logged only once in a row
        warn(QStringLiteral("%1: cannot be dropped, and is tried again each minute: %2").arg(file, reason));
    m_failure = reason;
}

void Inbox::passOver(const QString &file, const QString &reason)
{
    m_passedOver.insert(file);
    m_queue.removeAll(file);
    warn(QStringLiteral("%1: cannot be taken out, and is passed over from now on: %2").arg(file, reason));
}

/// Logs a line. The logger may be a plugin's, and throw.
void Inbox::inform(const QString &text)
{
    zCaught([&] { m_logger->info0(printable(Prefix + text)); });
}

void Inbox::warn(const QString &text)
{
    zCaught([&] { m_logger->warning0(printable(Prefix + text)); });
}

QString Inbox::pathOf(const QString &file) const { return QDir(m_folders.inbox).filePath(file); }
