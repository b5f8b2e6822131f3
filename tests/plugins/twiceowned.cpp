// SPDX-License-Identifier: Apache-2.0
#include "greeter.h"

#include <zdefaultfilesystem.h>
#include <zemitter.h>
#include <zobject.h>

#include <QCoreApplication>
#include <QTemporaryFile>

/// Serves `Greeter` and `ZTempFile`, and announces itself as the application's property "announced" says. Counts its
/// ends there.
class TwiceOwned : public ZObject, public Greeter, public ZTempFile
{
    Q_OBJECT
    Q_INTERFACES(Greeter ZTempFile)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ~TwiceOwned() override { qApp->setProperty("ends", qApp->property("ends").toInt() + 1); }

    QString greet(const QString &name) override { return QStringLiteral("hello, %1").arg(name); }
    QSharedPointer<QTemporaryFile> newFile0() override { return QSharedPointer<QTemporaryFile>::create(); }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter)
            announce(emitter, qApp->property("announced").toString());
        return emitter;
    }

private:
    void announce(ZEmitter *emitter, const QString &how)
    {
        if (how == QLatin1String("this"))
            m_self = QSharedPointer<QObject>(this);
        else if (how == QLatin1String("itself"))
            m_self = QSharedPointer<TwiceOwned>(this);
        else if (how == QLatin1String("to be deleted later"))
            m_self = QSharedPointer<QObject>(this, &QObject::deleteLater);
        else if (how == QLatin1String("this beside its own")) {
            const QSharedPointer<QObject> own = shared();
            m_self = QSharedPointer<QObject>(this);
        } else if (how == QLatin1String("anew")) {
            shared().clear(); // nobody's again, since it is being injected
            m_self = shared();
        }
        emitter->bind0(QSharedPointer<GreeterDelegate>::create(m_self));
        m_self.clear();
        if (how == QLatin1String("this")) // a third owner, for another interface
            emitter->bind0(QSharedPointer<ZTempFileDelegate>::create(QSharedPointer<QObject>(this)));
    }

    QSharedPointer<QObject> m_self;
};

#include "twiceowned.moc"
