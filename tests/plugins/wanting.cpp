// SPDX-License-Identifier: Apache-2.0
#include <zemitter.h>
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QTimer>

#include <cstdio>

class First
{
public:
    virtual ~First() {}
};
Q_DECLARE_METATYPE(First *)

class Second
{
public:
    virtual ~Second() {}
};
Q_DECLARE_METATYPE(Second *)

/// The plugin "founder" has filed a delegate for it, with nobody behind.
class Secret
{
public:
    virtual ~Secret() {}
};
Q_DECLARE_METATYPE(Secret *)

/// Asks for what nobody serves, twice. Removes the file that the environment's WANTING names.
class Wanting : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger MEMBER m_logger)
    Q_PROPERTY(Secret *secret MEMBER m_secret)
    Q_PROPERTY(QTimer *timer MEMBER m_timer)
    Q_PROPERTY(First *first MEMBER m_first)
#ifdef SEVERAL
    Q_PROPERTY(Second *second MEMBER m_second)
    Q_PROPERTY(First *again MEMBER m_first)
#endif
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (zKeepFirst(m_emitter, emitter)) {
            std::remove(qgetenv("WANTING").constData());
            emitter->inject0(this);
        }
        return m_emitter;
    }

    ZLogger *m_logger = nullptr;
    Secret *m_secret = nullptr;
    QTimer *m_timer = nullptr;
    First *m_first = nullptr;
    Second *m_second = nullptr;
    ZEmitter *m_emitter = nullptr;
};

#include "wanting.moc"
