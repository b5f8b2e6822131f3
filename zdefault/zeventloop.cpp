// SPDX-License-Identifier: Apache-2.0
#include "zeventloop.h"

#include "zparking.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEvent>
#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <utility>
#include <vector>

namespace {

constexpr int LongestChain = 100; // of deletions, each of which posts the next: it cannot be known where a chain ends
constexpr int PauseMs = 20;

class Errand;

QBasicMutex pendingMutex;

/// Errands that have not been delivered. Never destroyed: an application that ends leaves some of them behind.
QSet<Errand *> &pending() // guarded by pendingMutex
{
    static auto &instance = *new QSet<Errand *>;
    return instance;
}

/// Something that is done once, by the first who comes.
class Deed
{
public:
    explicit Deed(std::function<void()> deed) : m_deed(std::move(deed)) {}

    void operator()()
    {
        if (!m_isTaken.exchange(true))
            std::exchange(m_deed, nullptr)();
    }

private:
    std::atomic_bool m_isTaken{false};
    std::function<void()> m_deed;
};

/// Takes a deed to another thread. The deed is done there in an event, or else when the errand is deleted.
class Errand : public QObject
{
public:
    explicit Errand(std::shared_ptr<Deed> deed) : m_deed(std::move(deed))
    {
        const QMutexLocker locker(&pendingMutex);
        pending().insert(this);
    }
    ~Errand() override
    {
        {
            const QMutexLocker locker(&pendingMutex);
            pending().remove(this);
        }
        (*m_deed)();
    }

    bool event(QEvent *event) override
    {
        if (event->type() != QEvent::User)
            return QObject::event(event);
        m_isUnderWay = true;
        deliver();
        return true;
    }

    bool isUnderWay() const { return m_isUnderWay; }

private:
    void deliver()
    {
        if (ZParking::isOpen()) { // in a nested event loop: a destructor might wait for a lock that we have
            QTimer::singleShot(PauseMs, this, [this] { deliver(); });
            return;
        }
        (*m_deed)();
        deleteLater();
    }

    const std::shared_ptr<Deed> m_deed;
    bool m_isUnderWay = false;
};

using Deeds = std::vector<std::function<void()>>;
thread_local Deeds *afterwards = nullptr; // to be done after the deletions that this thread is doing

/// Does `deed` after everything has been deleted that can be deleted now.
void deleteThenDo(std::function<void()> deed)
{
    if (afterwards) {
        afterwards->push_back(std::move(deed));
        return;
    }
    // Deletions that were posted outside of a nested event loop wait for the end of that loop.
    if (QThread::currentThread()->loopLevel() > 1 || ZParking::isOpen()) {
        QTimer::singleShot(PauseMs, [deed] { deleteThenDo(deed); });
        return;
    }
    Deeds deeds{std::move(deed)};
    afterwards = &deeds;
    for (int i = 0; i < LongestChain; ++i)
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    afterwards = nullptr;
    for (const auto &each : deeds)
        each();
}

/// Deletes what can be deleted, until `last` is gone. A program that calls processEvents() by hand would not do so.
void deleteUntilGone(const QPointer<QObject> &last)
{
    deleteThenDo([last] {
        if (last)
            QTimer::singleShot(PauseMs, [last] { deleteUntilGone(last); });
    });
}

void post(QThread *thread, const std::shared_ptr<Deed> &deed)
{
    auto *errand = new Errand(deed);
    errand->moveToThread(thread);
    if (zIsMain(thread)) {
        QCoreApplication::postEvent(errand, new QEvent(QEvent::User));
        return;
    }
    // A thread that ends delivers nothing but deletions.
    const auto deleteErrand = [errand = QPointer<Errand>(errand)] {
        if (errand && !errand->isUnderWay())
            delete errand;
    };
    auto *last = new Errand(std::make_shared<Deed>(deleteErrand));
    last->moveToThread(thread);
    QCoreApplication::postEvent(errand, new QEvent(QEvent::User));
    last->deleteLater();
}

} // namespace

bool zIsMain(const QThread *thread)
{
    const QCoreApplication *application = QCoreApplication::instance();
    return application && application->thread() == thread;
}

bool zHasEventLoop(QThread *thread)
{
    return thread && !thread->isFinished() && QAbstractEventDispatcher::instance(thread);
}

void zPost(QThread *thread, std::function<void()> deed)
{
    const auto shared = std::make_shared<Deed>(std::move(deed));
    post(thread, shared);
    if (thread->isFinished()) // and may have delivered the last before
        (*shared)();
}

void zAfterDeletions(QThread *thread, std::function<void()> deed)
{
    // Qt deletes an object that is posted for deletion only when control has returned to the event loop in which it was
    // posted. So one more object is posted from the same place, and is deleted after the others.
    auto *last = new Errand(std::make_shared<Deed>([deed = std::move(deed)] { deleteThenDo(deed); }));
    const QPointer<QObject> watched = last;
    last->moveToThread(thread);
    last->deleteLater();
    post(thread, std::make_shared<Deed>([watched] { deleteUntilGone(watched); }));
}

void zDeletePosted()
{
    deleteThenDo([] {});
}

void zLetGoAtHome(QObject *object, std::shared_ptr<void> held)
{
    QThread *home = object->thread();
    if (home != QThread::currentThread() && zHasEventLoop(home))
        zPost(home, [object, held = std::move(held)]() mutable { zLetGoAtHome(object, std::move(held)); });
}
