// SPDX-License-Identifier: Apache-2.0
#include "notes.h"

#include "renameto.h"
#include "replacefile.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace {

const QString GoodName = QStringLiteral("good.json");
const QString QuarantineName = QStringLiteral("quarantined.json");
const QString StartName = QStringLiteral(".zhost-starting.json"); // hidden, since it is for the host only
const QString CrashName = QStringLiteral(".zhost-crash.txt");
const QString LoadingName = QStringLiteral(".zhost-loading.txt");

const QString UnloadedName = QStringLiteral(".zhost-unloaded.json");

const QString Since = QStringLiteral("since");
const QString Count = QStringLiteral("starts");
const QString Taking = QStringLiteral("taking");
const QString Why = QStringLiteral("why");

/// Whether a note may be read: reading a pipe would wait, and a link leads elsewhere.
bool isOurs(const QString &path)
{
    const QFileInfo file(path);
    return file.isFile() && !file.isSymLink();
}

QJsonObject read(const QString &path)
{
    QFile file(path);
    return isOurs(path) && file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object()
                                                          : QJsonObject();
}

/// What distinguishes a file from another one of the same name.
QJsonObject identity(const QString &path)
{
    const QFileInfo file(path);
    return {{QStringLiteral("size"), file.size()}, {QStringLiteral("mtime"), file.lastModified().toMSecsSinceEpoch()}};
}

QString nameInQuarantine(const QString &file, int number)
{
    const QString name = file + QStringLiteral(".quarantined");
    return number == 0 ? name : QStringLiteral("%1.%2").arg(name, QString::number(number));
}

/// Flushes the names in `folder` to the disk.
void syncFolder(const QString &folder)
{
    const int descriptor = open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    fsync(descriptor);
    close(descriptor);
}

} // namespace

const QString Notes::QuarantinePattern = QStringLiteral("lib*.so.quarantined*");

Notes::Notes(const QString &folder) : m_folder(folder), m_good(read(path(GoodName))) {}

bool Notes::noteGood(const QStringList &files)
{
    QJsonObject object;
    for (const QString &file : files) {
        QJsonObject entry = identity(path(file));
        entry.insert(Since, isGood(file) ? m_good.value(file).toObject().value(Since)
                                         : QDateTime::currentDateTime().toString(Qt::ISODate));
        object.insert(file, entry);
    }
    m_good = object;
    return write(GoodName, object);
}

bool Notes::isGood(const QString &file) const
{
    QJsonObject entry = m_good.value(file).toObject();
    entry.remove(Since);
    return entry == identity(path(file));
}

QString Notes::goodSince(const QString &file) const
{
    return isGood(file) ? m_good.value(file).toObject().value(Since).toString() : QString();
}

QDateTime Notes::noted() const { return QFileInfo(path(GoodName)).lastModified(); }

/// Forgets files that are not there any more, or have changed.
bool Notes::noteLoads(const QHash<QString, QString> &failures)
{
    const QJsonObject before = read(path(UnloadedName));
    QJsonObject notes;
    for (auto note = before.begin(); note != before.end(); ++note) {
        if (!failures.contains(note.key()) && !whyUnloaded(note.key()).isNull())
            notes.insert(note.key(), note.value());
    }
    for (auto failure = failures.begin(); failure != failures.end(); ++failure) {
        if (failure.value().isNull() ||
            !QFileInfo::exists(path(failure.key()))) // a plain name is tried before versions
            continue;
        QJsonObject entry = identity(path(failure.key()));
        entry.insert(Why, failure.value());
        notes.insert(failure.key(), entry);
    }
    return notes == before || write(UnloadedName, notes);
}

QString Notes::whyUnloaded(const QString &file) const
{
    QJsonObject entry = read(path(UnloadedName)).value(file).toObject();
    const QString why = entry.take(Why).toString();
    return entry == identity(path(file)) ? why : QString();
}

Notes::Start Notes::start() const
{
    const QJsonObject object = read(path(StartName));
    Start start;
    start.count = object.value(Count).toInt();
    start.why = object.value(Why).toString();
    const QJsonArray taking = object.value(Taking).toArray();
    for (const auto &file : taking) {
        if (!file.toString().contains(QLatin1Char('/'))) // all lies in one folder
            start.taking.append(file.toString());
    }
    return start;
}

bool Notes::noteStart(const Start &start)
{
    QJsonObject object{{Count, start.count}};
    if (!start.taking.isEmpty()) {
        object.insert(Taking, QJsonArray::fromStringList(start.taking));
        object.insert(Why, start.why);
    }
    return write(StartName, object);
}

bool Notes::forgetStart() { return forget(path(StartName)); }

QString Notes::crashPath() const { return path(CrashName); }

Notes::Crash Notes::crash() const
{
    QFile file(crashPath());
    if (!isOurs(crashPath()) || !file.open(QIODevice::ReadOnly))
        return {};
    const QStringList lines = QFile::decodeName(file.readAll()).split(QLatin1Char('\n'));
    if (lines.size() != 4) // the note is not complete
        return {};
    Crash crash{{}, {}, lines[2]};
    const QFileInfo guilty(lines[0]);
    if (guilty.path() == m_folder)
        crash.file = guilty.fileName();
    if (!lines[1].isEmpty())
        crash.loading = QStringLiteral("lib%1.so").arg(lines[1]);
    return crash;
}

bool Notes::forgetCrash() { return forget(crashPath()); }

QString Notes::loadingPath() const { return path(LoadingName); }

QString Notes::quarantine(const QString &file, const QString &why)
{
    for (int number = 0;; ++number) {
        const QString name = nameInQuarantine(file, number);
        if (QFileInfo::exists(path(name)))
            continue;
        noteQuarantine(name, why);
        const bool isRenamed = renameTo(path(file), path(name));
        const int error = errno;
        if (!isRenamed && error == EEXIST) // such as a link that leads nowhere
            continue;
        syncFolder(m_folder);
        errno = error;
        return isRenamed ? name : QString();
    }
}

/// Forgets files that have been removed, or renamed back.
void Notes::noteQuarantine(const QString &name, const QString &why)
{
    QJsonObject notes{{name, QJsonObject{{Why, why}}}};
    const QJsonObject before = read(path(QuarantineName));
    for (auto note = before.begin(); note != before.end(); ++note) {
        if (note.key() != name && QFileInfo::exists(path(note.key())))
            notes.insert(note.key(), note.value());
    }
    write(QuarantineName, notes);
}

QString Notes::whyQuarantined(const QString &name) const
{
    return read(path(QuarantineName)).value(name).toObject().value(Why).toString();
}

QString Notes::nameBeforeQuarantine(const QString &name)
{
    static const QRegularExpression pattern(QStringLiteral(R"(\A(lib.*\.so)\.quarantined(?:\.[0-9]+)?\z)"),
                                            QRegularExpression::DotMatchesEverythingOption);
    return pattern.match(name).captured(1);
}

bool Notes::write(const QString &name, const QJsonObject &object)
{
    const QString error = replaceFile(path(name), QJsonDocument(object).toJson());
    if (!error.isNull())
        return failed(path(name), error);
    syncFolder(m_folder);
    return true;
}

bool Notes::forget(const QString &path)
{
    if (unlink(QFile::encodeName(path).constData()) != 0)
        return errno == ENOENT || failed(path, qt_error_string(errno));
    syncFolder(m_folder);
    return true;
}

bool Notes::failed(const QString &path, const QString &reason)
{
    if (!std::exchange(m_hasFailed, true))
        qWarning("zhost: cannot write %s: %s; a bad version may not be taken back", qPrintable(path),
                 qPrintable(reason));
    return false;
}
