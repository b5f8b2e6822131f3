// SPDX-License-Identifier: Apache-2.0
#include "afterlife.h"

#include "engine.h"

#include <QCoreApplication>

namespace {

const QString name = QStringLiteral("zdefault nats afterlife");

} // namespace

void Afterlife::begin(const std::shared_ptr<Engine> &engine, const QSharedPointer<ZLibrary> &library)
{
    auto *const self = new Afterlife(engine, library);
    connect(self->m_thread.get(), &QThread::finished, self, &Afterlife::over);
    connect(qApp, &QCoreApplication::aboutToQuit, self, &Afterlife::hurry);
    self->m_thread->start();
}

void Afterlife::endAll()
{
    const QList<QObject *> all = qApp->findChildren<QObject *>(name, Qt::FindDirectChildrenOnly);
    for (QObject *each : all)
        QMetaObject::invokeMethod(each, "hurry");
}

Afterlife::Afterlife(const std::shared_ptr<Engine> &engine, const QSharedPointer<ZLibrary> &library)
    : QObject(qApp), m_library(library), m_engine(engine),
      m_thread(QThread::create([engine] { engine->endWhenDone(); }))
{
    setObjectName(QString(name.constData(), name.size())); // of its own: it may outlive that of the file
    m_thread->setObjectName(QStringLiteral("nats end"));
}

Afterlife::~Afterlife() { hurry(); }

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
