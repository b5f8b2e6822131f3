// SPDX-License-Identifier: Apache-2.0
#include <zdefaultfilesystem.h>
#include <zobject.h>
#include <zwiring.h>

#include <QTemporaryFile>

/// Serves temporary files, of which the code that deletes them is the plugin's.
class Lender : public ZObject, public ZTempFile
{
    Q_OBJECT
    Q_INTERFACES(ZTempFile)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    QSharedPointer<QTemporaryFile> newFile0() override { return QSharedPointer<QTemporaryFile>::create(); }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr) { return zAnnounce<ZTempFileDelegate>(this, emitter); }
};

#include "lender.moc"
