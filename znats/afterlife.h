// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QSharedPointer>
#include <QThread>

#include <memory>

class Engine;
class ZLibrary;

/**
 * Ends an engine whose plugin has been replaced, on a thread of its own: calls that it answers may take long, and the
 * event loop must not wait for them. Keeps the plugin in memory meanwhile.
 *
 * Ownership: itself: it goes when the engine has ended, or the application quits.
 * Thread:    the plugin's.
 * Failure:   what has not ended when the application quits, or has no end, stays for good.
 */
class Afterlife : public QObject
{
    Q_OBJECT

public:
    static void begin(const std::shared_ptr<Engine> &engine, const QSharedPointer<ZLibrary> &library);
    ~Afterlife() override;

private:
    Afterlife(const std::shared_ptr<Engine> &engine, const QSharedPointer<ZLibrary> &library);
    void hurry();
    void over();

    const QSharedPointer<ZLibrary> m_library; // goes last
    const std::shared_ptr<Engine> m_engine;
    std::unique_ptr<QThread> m_thread;
};
