// SPDX-License-Identifier: Apache-2.0
#include "teller.h"

#include <QFile>
#include <QFileInfo>

#include <dlfcn.h>

#include <zemitter.h>
#include <zobject.h>

namespace {

/// 7 in a file that is called "libteller.7.so", and 0 in "libteller.so": many versions need one build.
int ownVersion()
{
    Dl_info file;
    dladdr(reinterpret_cast<void *>(ownVersion), &file);
    return QFileInfo(QFile::decodeName(file.dli_fname)).completeBaseName().section(QLatin1Char('.'), 1).toInt();
}

} // namespace

/// Serves from when it is given an emitter until another version does.
class Root : public ZObject, public Teller
{
    Q_OBJECT
    Q_INTERFACES(Teller)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    int version() override { return m_version; }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter) {
            m_version = ownVersion();
            emitter->bind0(QSharedPointer<TellerDelegate>::create(shared()));
        }
        return emitter;
    }

private:
    int m_version = -1;
};

#include "teller.moc"
