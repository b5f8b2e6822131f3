// SPDX-License-Identifier: Apache-2.0
#include "gate.h"

#include <zcontext.h>
#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zemitter.h>
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QUrl>

#include <cstdio>

namespace {

/// What a plugin has in static storage: needed to the end of the root, and gone with the code.
struct Last
{
    QStringList words{QString("fare"), QString("well")};
    ~Last() { std::fputs("its code ends\n", stderr); }
} last;

} // namespace

/// The endpoint "//farewell", whose destructor uses everything that it was given. It holds itself until the
/// application quits, or for ever, if the application's property "hold" says so.
class Farewell : public ZObject, public ZDbusSubscriber
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger MEMBER m_logger)
    Q_PROPERTY(ZContext *zContext MEMBER m_context)
    Q_PROPERTY(ZEmitter *zEmitter MEMBER m_emitter)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)

public:
    Farewell()
    {
        if (qApp)
            Gate::pass(qApp);
    }

    ~Farewell() override
    {
        if (!m_dbus)
            return;
        QVariant value = QString("value");
        m_context->save0(value);
        m_dbus->bind0(QUrl("//farewell"), QWeakPointer<ZDbusSubscriber>());
        m_dbus->invoke0(QUrl("//farewell"), nullptr, nullptr);
        m_emitter->inject0(this);
        m_logger->warning0(last.words.join(QString()));
    }

    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (!zKeepFirst(m_dbus, dbus) || !qApp)
            return m_dbus;
        const QString hold = qApp->property("hold").toString();
        if (!hold.isEmpty()) {
            m_self = shared();
            dbus->bind0(QUrl("//farewell"), qSharedPointerDynamicCast<ZDbusSubscriber>(m_self));
        }
        if (hold == QLatin1String("until quit"))
            connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_self.clear(); });
        if (qApp->property("quit").toBool())
            QCoreApplication::exit(5);
        return m_dbus;
    }

    bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override { return true; }

private:
    ZLogger *m_logger = nullptr;
    ZContext *m_context = nullptr;
    ZEmitter *m_emitter = nullptr;
    ZDbus *m_dbus = nullptr;
    QSharedPointer<QObject> m_self;
};

#include "farewell.moc"
