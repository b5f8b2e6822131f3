// SPDX-License-Identifier: Apache-2.0
#include "znamedlogger.h"

#include <QMutex>
#include <QMutexLocker>

#include <algorithm>
#include <vector>

namespace {

/// The data that the handles of a category share. This list has a share of its own: the last handle may be in code that
/// was built with older headers, which knows nothing of the list.
struct Bound
{
    QExplicitlySharedDataPointer<ZNamedLogger::ZData> data;
    QString category;
};

struct Handles
{
    QBasicMutex mutex; // guards all that follow
    std::vector<Bound> bound;
    size_t room = 64;

    static Handles &get()
    {
        static auto &instance = *new Handles; // plugins' handles come and go until the very end
        return instance;
    }
    void add(const Bound &handle)
    {
        const QMutexLocker locker(&mutex);
        if (bound.size() >= room) {
            bound.erase(std::remove_if(bound.begin(), bound.end(), [](const Bound &old) { return isForgotten(old); }),
                        bound.end());
            room = std::max<size_t>(64, 2 * bound.size());
        }
        bound.push_back(handle);
    }
    static bool isForgotten(const Bound &handle) { return handle.data->ref.loadAcquire() == 1; }
};

} // namespace

ZNamedLogger::ZNamedLogger() : m_data(new ZData) {}

ZNamedLogger::ZNamedLogger(ZLogger *logger, const QString &category) : ZNamedLogger()
{
    if (!logger)
        return;
    ZData *const data = m_data;
    data->logger = logger;
    data->index = logger->log0(category);
    if (data->index < 0) // the mask stays 0: any bit in it says that there is a logger and a category
        return;
    data->mask = logger->log0(data->index);
    Handles::get().add({QExplicitlySharedDataPointer<ZData>(data), QString(category.constData(), category.size())});
}

void ZNamedLogger::setMask(const ZLogger *logger, const QString &category, int mask)
{
    Handles &handles = Handles::get();
    const QMutexLocker locker(&handles.mutex);
    for (const Bound &handle : handles.bound) {
        if (handle.data->logger == logger && handle.category == category)
            handle.data->mask.storeRelaxed(mask);
    }
}

void ZNamedLogger::warn(int kind, const QString &text) const
{
    ZLogger *logger = m_data->logger;
    if (logger && logger->warning0())
        logger->warning0(text);
    else
        log(kind, text);
}

void ZNamedLogger::write(int kind, const QString &text) const { m_data->logger->log0(m_data->index, kind, text); }
