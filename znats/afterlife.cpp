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

/// There will be no event loop that tells that the thread has ended.
void Afterlife::hurry()
{
    m_engine->hurry();
    over();
}

void Afterlife::over()
{
    if (!m_thread)
        return;
    m_thread->wait(); // until it has left our code
    m_thread.reset();
    m_engine->leaveBehind();
    deleteLater();
}
