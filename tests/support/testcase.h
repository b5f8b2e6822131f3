// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "messages.h"

#include <QObject>
#include <QScopedPointer>
#include <QSharedPointer>
#include <QTest>

class ZDefaultEmitter;
class QJsonObject;

/**
 * The base of the test programs: catches the messages of each test function, and afterwards fails it for a warning
 * that it did not take, and for a plugin that it left in memory.
 */
class TestCase : public QObject
{
    Q_OBJECT

protected:
    Messages &messages() { return *m_messages; }

protected Q_SLOTS:
    virtual void init();

private Q_SLOTS:
    void cleanup();

private:
    QScopedPointer<Messages> m_messages;
};

/// An emitter that is installed on itself until it goes out of scope, so that everything it holds goes with it.
class Wiring
{
public:
    Wiring();
    ~Wiring();

    ZDefaultEmitter *operator->() const { return m_emitter.data(); }
    ZDefaultEmitter *emitter() const { return m_emitter.data(); }

private:
    Q_DISABLE_COPY(Wiring)
    QSharedPointer<ZDefaultEmitter> m_emitter;
};

/// Handles what is posted to objects of this thread, deleteLater included, until nothing more comes.
void settle();
