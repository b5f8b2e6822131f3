// SPDX-License-Identifier: Apache-2.0
#include "zdefaultdbusasync.h"

#include "zdbuscalls.h"
#include "zeventloop.h"
#include "ztypename.h"
#include "zwiring.h"

#include <QCoreApplication>

#include <memory>
#include <utility>

const char *zDefaultDbusAsyncTypeName() { return zTypeName<ZDefaultDbusAsync>("ZDefaultDbusAsync*"); }

const char *const ZDefaultDbusAsync::TypeName = zDefaultDbusAsyncTypeName();

ZDefaultDbusAsync::ZDefaultDbusAsync() : m_calls(QSharedPointer<ZDbusCalls>::create()) {}

ZDefaultDbusAsync::~ZDefaultDbusAsync()
{
    m_calls->end();
    if (!m_calls->isOwnThread())
        return;
    // They would wait for this thread. So the last share must not go here.
    auto calls = std::make_shared<QSharedPointer<ZDbusCalls>>(std::move(m_calls));
    QThread *home = thread();
    if (!zHasEventLoop(home))
        home = QCoreApplication::instance() ? QCoreApplication::instance()->thread() : nullptr;
    if (home)
        zPost(home, [calls = std::move(calls)] {});
    else
        new std::shared_ptr<QSharedPointer<ZDbusCalls>>(std::move(calls)); // kept for ever: there is nobody to wait
}

qint64 ZDefaultDbusAsync::begin0(const QUrl &url, const QJsonObject &request, QWeakPointer<ZDbusReceiver> receiver)
{
    const QSharedPointer<ZDbusCalls> calls = m_calls; // to let go of a receiver may be the end of this
    return calls->begin(url, request, receiver);
}

ZDbusOutcome *ZDefaultDbusAsync::getSetZDbusOutcome(ZDbusOutcome *outcome)
{
    zKeepFirst(m_calls->outcome, outcome);
    return m_calls->outcome;
}

ZLogger *ZDefaultDbusAsync::getSetZLogger(ZLogger *logger)
{
    if (logger)
        m_calls->log->set(logger);
    return logger;
}

ZEmitter *ZDefaultDbusAsync::getSetZEmitter(ZEmitter *emitter) { return zAnnounce<ZDbusAsyncDelegate>(this, emitter); }

qint64 ZDbusAsyncDelegate::begin0(const QUrl &url, const QJsonObject &request, QWeakPointer<ZDbusReceiver> receiver)
{
    return call(&ZDbusAsync::begin0, 0, url, request, receiver);
}
