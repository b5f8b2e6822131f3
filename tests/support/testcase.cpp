// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include "folder.h"

#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <zdefaultemitter.h>

namespace {

/// For what is started: a host that is killed leaves its socket there.
class RuntimeFolder
{
public:
    RuntimeFolder() { qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_folder.path())); }

private:
    const QTemporaryDir m_folder;
};

} // namespace

void TestCase::init()
{
    static const RuntimeFolder folder;
    m_messages.reset(new Messages);
}

void TestCase::cleanup()
{
    settle();
    const QStringList unclaimed = m_messages->take(QtWarningMsg) + m_messages->take(QtCriticalMsg);
    m_messages.reset();
    for (const QtMsgType type : {QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg, QtFatalMsg})
        QLoggingCategory::defaultCategory()->setEnabled(type, true); // loggers switch them off
    const QStringList mapped = mappedPlugins();
    QVERIFY2(unclaimed.isEmpty(), qPrintable(QStringLiteral("unclaimed: ") + unclaimed.join(QLatin1Char('\n'))));
    QVERIFY2(mapped.isEmpty(), qPrintable(QStringLiteral("left in memory: ") + mapped.join(QLatin1Char('\n'))));
}

Wiring::Wiring() : m_emitter(QSharedPointer<ZDefaultEmitter>::create()) { m_emitter->install(m_emitter); }

Wiring::~Wiring()
{
    m_emitter->install({});
    m_emitter.clear();
    settle();
}

void settle()
{
    for (int i = 0; i < 3; ++i) { // what is handled may post more
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}
