// SPDX-License-Identifier: Apache-2.0
#include "hooks.h"

#include <zdefaultfilesystem.h>
#include <zemitter.h>
#include <zjob.h>
#include <zjobpool.h>
#include <zlogger.h>
#include <zobject.h>

#include <QTemporaryFile>
#include <QThread>
#include <QTimer>

#include <cstdio>

namespace {

/// Lies in the plugin's file, to its end.
struct Code
{
    ~Code() { std::fputs("its code ends\n", stderr); }
} code;

class Job : public ZJob
{
public:
    Job() : ZJob({}, {}) {}
    void run() override { Hooks::instance()->job(); }
};

} // namespace

/// Deleted later, and then has the next one deleted later.
class Link : public QObject
{
    Q_OBJECT

public:
    explicit Link(int left) : m_left(left) {}
    ~Link() override
    {
        std::fprintf(stderr, "link %d ends\n", m_left);
        post(m_left - 1, this);
    }

    static void post(int left, const QObject *home)
    {
        if (left == 0)
            return;
        auto *link = new Link(left);
        link->moveToThread(home->thread());
        link->deleteLater();
    }

private:
    const int m_left;
};

/// A root that lives and ends as the program's hooks say.
class Mortal : public ZObject, public ZTempFile
{
    Q_OBJECT
    Q_INTERFACES(ZTempFile)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    Mortal()
    {
        if (const auto constructed = m_hooks->constructed) // a copy, since it may put another in its place
            constructed();
        connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_self.clear(); });
        if (m_hooks->ticks) {
            auto *timer = new QTimer(this);
            connect(timer, &QTimer::timeout, this, [this] { ++m_ticks; });
            timer->start(1);
        }
        if (m_hooks->shoots) {
            QTimer::singleShot(100, this, [] { std::fputs("shot\n", stderr); });
            QTimer::singleShot(100, this, &Mortal::shoot);
            QTimer::singleShot(100, [] { std::fputs("shot\n", stderr); });
        }
    }
    ~Mortal() override
    {
        std::fputs(thread() == QThread::currentThread() ? "the root ends\n" : "the root ends elsewhere\n", stderr);
        if (const auto ending = m_hooks->ending)
            ending(this);
        Link::post(m_hooks->chain, m_hooks->chainHome ? m_hooks->chainHome : this);
    }

    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        const auto written = m_hooks->written;
        if (logger && written)
            written();
        return logger;
    }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter && m_hooks->serves)
            emitter->bind0(QSharedPointer<ZTempFileDelegate>::create(shared()));
        if (emitter && m_hooks->holdsItself)
            m_self = shared();
        return emitter;
    }

    QSharedPointer<QTemporaryFile> newFile0() override
    {
        m_pool.start(QSharedPointer<ZJob>(new Job, [](ZJob *) {}), false, 0); // which the pool deletes
        return {};
    }

    void shoot() { ++m_ticks; }

private:
    Hooks *const m_hooks = Hooks::instance();
    int m_ticks = 0;
    QSharedPointer<QObject> m_self;
    ZJobPool m_pool{1, 0};
};

#include "mortal.moc"
