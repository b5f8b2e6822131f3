// SPDX-License-Identifier: Apache-2.0
#include "loadbook.h"

#include "history.h"

#include <QFile>
#include <QMutexLocker>

#include <zdefaultloader.h>
#include <zloading.h>
#include <ztexts.h>

#include <unistd.h>

LoadBook &LoadBook::get()
{
    static auto &book = *new LoadBook;
    return book;
}

void LoadBook::listen(History *history)
{
    {
        const QMutexLocker locker(&m_mutex);
        m_history = history;
    }
    zTellLoads([](const QByteArray &name, ZLoading::State state, const QString &reason) {
        const QString file = QStringLiteral("lib%1.so").arg(ZDefaultLoader::undecorate(QFile::decodeName(name)));
        get().follow(QFile::decodeName(name), state);
        get().enter(file, state, zDeepCopy(reason));
    });
}

void LoadBook::forgetHistory()
{
    const QMutexLocker locker(&m_mutex);
    m_history = nullptr;
}

LoadBook::Entry LoadBook::entry(const QString &file) const
{
    const QMutexLocker locker(&m_mutex);
    return m_entries.value(file);
}

QString LoadBook::loadingBy(int thread) const
{
    const QMutexLocker locker(&m_mutex);
    const QStringList names = m_loading.value(thread);
    return names.isEmpty() ? QString() : names.last();
}

void LoadBook::follow(const QString &name, int state)
{
    const QMutexLocker locker(&m_mutex);
    QStringList &names = m_loading[gettid()];
    if (state == ZLoading::Begun)
        names.append(ZDefaultLoader::undecorate(name));
    else if (state == ZLoading::Over && !names.isEmpty())
        names.removeLast();
    if (names.isEmpty())
        m_loading.remove(gettid());
}

void LoadBook::enter(const QString &file, int state, const QString &reason)
{
    const QMutexLocker locker(&m_mutex);
    const auto tell = [&](const char *kind) {
        if (m_history)
            m_history->add(kind, file, reason);
    };
    switch (state) {
    case ZLoading::Loaded:
        m_entries.insert(file, {QDateTime::currentDateTimeUtc(), {}});
        return tell("loaded");
    case ZLoading::Failed:
        return tell("refused");
    case ZLoading::Unloaded:
        return m_entries.remove(file) > 0 ? tell("unloaded") : void(); // else it was refused
    case ZLoading::Stays:
        m_entries[file].left = reason;
        return tell("stays");
    default:
        return;
    }
}
