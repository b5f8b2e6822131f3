// SPDX-License-Identifier: Apache-2.0
#include "loads.h"

#include "lastwords.h"

#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QSet>

#include <zdefaultloader.h>
#include <zloading.h>

#include <algorithm>

#include <unistd.h>

namespace {

/// Plugins are loaded until the very end, so it is never destroyed.
struct State
{
    QMutex mutex; // guards all that follows
    QSet<QString> loaded;
    QStringList loading;
    QByteArray note; // its path; empty if there is none

    static State &get()
    {
        static auto &state = *new State;
        return state;
    }
};

/// Not to the disk: it is for the next process, and a power cut is nobody's fault.
void writeNote(const State &state)
{
    if (state.note.isEmpty())
        return;
    if (state.loading.isEmpty()) {
        unlink(state.note.constData());
        return;
    }
    const int descriptor = openNote(state.note.constData());
    const QByteArray text = QFile::encodeName(state.loading.join(QLatin1Char('\n')));
    if (write(descriptor, text.constData(), static_cast<size_t>(text.size())) < 0) {
    } // who cannot write there has been told so
    close(descriptor);
}

void hear(const QByteArray &name, ZLoading::State what)
{
    const QString file = QStringLiteral("lib%1.so").arg(ZDefaultLoader::undecorate(QFile::decodeName(name)));
    State &state = State::get();
    const QMutexLocker locker(&state.mutex);
    switch (what) {
    case ZLoading::Begun:
        state.loading.append(file);
        return writeNote(state);
    case ZLoading::Loaded:
        state.loaded.insert(file);
        return;
    case ZLoading::Failed:
        state.loaded.remove(file);
        return;
    case ZLoading::Over:
        state.loading.removeAt(state.loading.lastIndexOf(file));
        return writeNote(state);
    }
}

} // namespace

void Loads::listen(const QString &note)
{
    State &state = State::get();
    state.note = QFile::encodeName(note);
    unlink(state.note.constData()); // that of a process before
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
    return state.loaded.contains(file);
}

void Loads::forget(const QString &file)
{
    State &state = State::get();
    const QMutexLocker locker(&state.mutex);
    state.loaded.remove(file);
}

void Loads::forgetBut(const QStringList &files)
{
    State &state = State::get();
    const QMutexLocker locker(&state.mutex);
    state.loaded.intersect(QSet<QString>(files.begin(), files.end()));
}

QStringList Loads::notedIn(const QString &note)
{
    const QFileInfo info(note);
    QFile file(note);
    if (!info.isFile() || info.isSymLink() || !file.open(QIODevice::ReadOnly)) // a pipe would be waited for
        return {};
    QStringList files = QFile::decodeName(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    std::reverse(files.begin(), files.end());
    return files;
}
