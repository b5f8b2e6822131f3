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
 * Ownership: the application object, until the engine has ended.
 * Thread:    the plugin's.
 * Failure:   what has not ended when the application, or the host, ends stays for good.
 */
class Afterlife : public QObject
{
    Q_OBJECT

public:
    static void begin(const std::shared_ptr<Engine> &engine, const QSharedPointer<ZLibrary> &library);
    /// Ends all that there are, within two seconds, also those of other versions: what they log to may go next.
    static void endAll();
    ~Afterlife() override;

    Q_INVOKABLE void hurry();

private:
    Afterlife(const std::shared_ptr<Engine> &engine, const QSharedPointer<ZLibrary> &library);
    void over();

    const QSharedPointer<ZLibrary> m_library; // goes last
    const std::shared_ptr<Engine> m_engine;
    std::unique_ptr<QThread> m_thread;
};
