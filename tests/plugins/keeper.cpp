// SPDX-License-Identifier: Apache-2.0
#include <zemitter.h>
#include <zlibrary.h>
#include <zobject.h>

/// Holds its own library from the moment that it is injected, until it is told to let go.
class Keeper : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter)
            m_library = *this;
        return emitter;
    }

    Q_INVOKABLE void letGo() { m_library.clear(); }

private:
    QSharedPointer<ZLibrary> m_library;
};

#include "keeper.moc"
