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

/// How zdeploy ends where it has something to say of the plugin.
enum DropCode
{
    Dropped = 0,
    RefusedIt = 1
};

/// Whether a signal tells of what the process has done, and not of what somebody wanted of it.
bool isCrash(int number)
{
    const auto crashes = {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL, SIGSYS};
    return std::find(crashes.begin(), crashes.end(), number) != crashes.end();
}

/// Whether nothing has happened to the file for a while, or since the clock was set back.
bool isQuiet(const QFileInfo &file)
{
    return qAbs(file.metadataChangeTime().msecsTo(QDateTime::currentDateTime())) >= QuietMs;
}

bool isPluginFile(const QString &file) { return QDir::match(Pattern, file); }

/// Why there is no such folder of our own, null if there is: what somebody else has put there in its place may be a
/// link to anywhere.
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

/// The plugins' files in `folder` whose names are no text: Qt leaves them out of its lists, and cannot open them.
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

/// Moves the file at `path` to the folder `refused`, as `name`, beside the reason. Answers why that fails, null if it
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

/// The last line of what zdeploy has written, without what goes before the reason.
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
    m_process.terminate(); // it leaves nothing behind
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

/// Adds a file of which nobody has told that it is complete. Of one of another user the system does not tell us whether
/// somebody is writing it: it is left until nothing has happened to it for a while.
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

/// What somebody is writing is left, and most often comes again when it is closed; not so what was written before it
/// had its name. Links are passed over: who puts one here may not be able to read what it points to.
void Inbox::begin(const QString &file)
{
    const QString path = pathOf(file);
    if (!QFileInfo(path).isFile() || QFileInfo(path).isSymLink())
        return refuseUnspeakable(); // it may be one
    auto copy = std::make_unique<ZFileCopy>(path);
    if (!copy->open())
        return leaveUnreadable(file, qt_error_string(errno));
    if (!copy->isSettled())
        return lookAgain();
    m_file = std::move(copy);
    m_process.setArguments({QStringLiteral("--deployed"), m_folders.deployed, path, m_folders.hotDeploy});
    m_process.start();
}

/// Who has put it here may be about to let us read it: "install" does so when it has closed it.
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
    const int code = m_process.exitCode(); // QProcess has the number of the signal for one
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
    if (!copy->isSettled()) // there is another one by now
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

/// A file whose name is no text gets one that is.
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
    if (reason != m_failure) // once for a row of the same
        warn(QStringLiteral("%1: cannot be dropped, and is tried again each minute: %2").arg(file, reason));
    m_failure = reason;
}

void Inbox::passOver(const QString &file, const QString &reason)
{
    m_passedOver.insert(file);
    m_queue.removeAll(file);
    warn(QStringLiteral("%1: cannot be taken out, and is passed over from now on: %2").arg(file, reason));
}

/// The logger may be a plugin's, and throw.
void Inbox::inform(const QString &text)
{
    zCaught([&] { m_logger->info0(printable(Prefix + text)); });
}

void Inbox::warn(const QString &text)
{
    zCaught([&] { m_logger->warning0(printable(Prefix + text)); });
}

QString Inbox::pathOf(const QString &file) const { return QDir(m_folders.inbox).filePath(file); }
