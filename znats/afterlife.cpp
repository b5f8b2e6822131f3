// SPDX-License-Identifier: Apache-2.0
#include "afterlife.h"

#include "engine.h"

#include <QCoreApplication>

void Afterlife::begin(const std::shared_ptr<Engine> &engine, const QSharedPointer<ZLibrary> &library)
{
    auto *const self = new Afterlife(engine, library);
    connect(self->m_thread.get(), &QThread::finished, self, &Afterlife::over);
    connect(qApp, &QCoreApplication::aboutToQuit, self, &Afterlife::hurry);
    self->m_thread->start();
}

Afterlife::Afterlife(const std::shared_ptr<Engine> &engine, const QSharedPointer<ZLibrary> &library)
    : m_library(library), m_engine(engine), m_thread(QThread::create([engine] { engine->endWhenDone(); }))
{
    m_thread->setObjectName(QStringLiteral("nats end"));
}

Afterlife::~Afterlife() = default;

/// There is no event loop any more that would tell that the thread has ended.
void Afterlife::hurry()
{
    m_engine->hurry();
    m_thread->wait();
    over();
}

void Afterlife::over()
{
    m_thread->wait(); // it has yet to leave our code
    disconnect();
    disconnect(qApp, nullptr, this, nullptr);
    m_engine->leaveBehind();
    deleteLater();
}
