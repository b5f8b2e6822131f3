// SPDX-License-Identifier: Apache-2.0
#include "loads.h"

#include "lastwords.h"

#include "../zdeploy/pluginname.h"

#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QVector>

#include <zdefaultloader.h>
#include <zloading.h>
#include <ztexts.h>

#include <algorithm>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Load
{
    QString file;
    struct stat status; // of the file when it was found
};

/// Never destroyed, since plugins are loaded until the very end.
struct State
{
    QMutex mutex;         // guards all that follows
    QVector<Load> loaded; // the last one of each plugin
    QVector<Load> loading;
    QHash<QString, QString> results;
    QString folder;
    QByteArray note; // its path; empty if there is none

    static State &get()
    {
        static auto &state = *new State;
        return state;
    }
};

/// The status of a file; all zero if it is not there.
struct stat statusOf(const QString &file)
{
    struct stat status = {};
    stat(QFile::encodeName(State::get().folder + QLatin1Char('/') + file).constData(), &status);
    return status;
}

bool areSame(const struct stat &one, const struct stat &other)
{
    return one.st_ino == other.st_ino && one.st_dev == other.st_dev && one.st_size == other.st_size &&
           one.st_mtim.tv_sec == other.st_mtim.tv_sec && one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

/// Removes the loads for which `isMeant` is true.
template <class IsMeant>
void remove(QVector<Load> *loads, IsMeant isMeant)
{
    loads->erase(std::remove_if(loads->begin(), loads->end(), isMeant), loads->end());
}

/// The innermost running load of `file`.
QVector<Load>::iterator underWay(State *state, const QString &file)
{
    const auto isIt = [&](const Load &load) { return load.file == file; };
    return std::find_if(state->loading.rbegin(), state->loading.rend(), isIt).base() - 1;
}

/// Writes the note, without flushing it to the disk: it is for the next process, and need not survive a power cut.
void writeNote(const State &state)
{
    if (state.note.isEmpty())
        return;
    if (state.loading.isEmpty()) {
        unlink(state.note.constData());
        return;
    }
    const int descriptor = openNote(state.note.constData());
    QStringList files;
    for (const Load &load : state.loading)
        files.append(load.file);
    const QByteArray text = QFile::encodeName(files.join(QLatin1Char('\n')));
    if (write(descriptor, text.constData(), static_cast<size_t>(text.size())) < 0) {
    } // a folder that cannot be written has been reported before
    close(descriptor);
}

void hear(const QByteArray &name, ZLoading::State what, const QString &failure)
{
    const QString file = QStringLiteral("lib%1.so").arg(ZDefaultLoader::undecorate(QFile::decodeName(name)));
    State &state = State::get();
    const QMutexLocker locker(&state.mutex);
    switch (what) {
    case ZLoading::Begun:
        state.loading.append({file, statusOf(file)});
        return writeNote(state);
    case ZLoading::Loaded:
        remove(&state.loaded, [name = PluginName::parse(file)](const Load &load) {
            return name.isSamePlugin(PluginName::parse(load.file));
        });
        state.loaded.append(*underWay(&state, file));
        state.results.insert(file, {});
        return;
    case ZLoading::Failed:
        remove(&state.loaded, [&](const Load &load) { return load.file == file; });
        state.results.insert(file, zDeepCopy(failure));
        return;
    case ZLoading::Over:
        state.loading.erase(underWay(&state, file));
        return writeNote(state);
    case ZLoading::Unloaded:
    case ZLoading::Stays:
        return;
    }
}

} // namespace

void Loads::listen(const QString &folder, const QString &note)
{
    State &state = State::get();
    state.folder = folder;
    state.note = QFile::encodeName(note);
    unlink(state.note.constData()); // the note of an earlier process
    zTellLoads(hear);
}

void Loads::endNote()
{
    State &state = State::get();
    const QMutexLocker locker(&state.mutex);
    unlink(state.note.constData());
    state.note.clear();
}

bool Loads::contain(const QString &file)
{
    State &state = State::get();
    const QMutexLocker locker(&state.mutex);
    const auto isIt = [&](const Load &load) { return load.file == file && areSame(load.status, statusOf(file)); };
    return std::any_of(state.loaded.cbegin(), state.loaded.cend(), isIt);
}

void Loads::forget(const QString &file)
{
    State &state = State::get();
    const QMutexLocker locker(&state.mutex);
    remove(&state.loaded, [&](const Load &load) { return load.file == file; });
}

bool Loads::areUnderWay()
{
    State &state = State::get();
    const QMutexLocker locker(&state.mutex);
    return !state.loading.isEmpty();
}

QHash<QString, QString> Loads::takeResults()
{
    State &state = State::get();
    const QMutexLocker locker(&state.mutex);
    return std::exchange(state.results, {});
}

QStringList Loads::notedIn(const QString &note)
{
    const QFileInfo info(note);
    QFile file(note);
    if (!info.isFile() || info.isSymLink() || !file.open(QIODevice::ReadOnly)) // reading a pipe would wait
        return {};
    QStringList files = QFile::decodeName(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    std::reverse(files.begin(), files.end());
    return files;
}
