// SPDX-License-Identifier: Apache-2.0
#include "zsingleshots.h"

#include <QAbstractEventDispatcher>
#include <QBasicTimer>
#include <QByteArray>
#include <QFile>
#include <QObject>
#include <QPointer>

#include <dlfcn.h>

namespace {

/// What Qt 5.15 has at the beginning of a function object for a slot, and where its own class for single shots has one.
/// Both are private, and have been as they are for as long as there is that version.
struct Slot
{
    int count;
    void *call;
};
struct SingleShot
{
    alignas(QObject) char object[sizeof(QObject)];
    QBasicTimer timer;
    bool hasReceiver;
    QPointer<const QObject> receiver;
    Slot *slot;
};

bool isIn(const QByteArray &path, const QObject *timer)
{
    const Slot *slot = reinterpret_cast<const SingleShot *>(timer)->slot;
    Dl_info file;
    return slot && dladdr(slot->call, &file) && path == file.dli_fname;
}

} // namespace

void zForgetTimers(const QString &path)
{
    const QAbstractEventDispatcher *dispatcher = QAbstractEventDispatcher::instance();
    if (!dispatcher || qstrncmp(qVersion(), "5.15.", 5) != 0)
        return;
    const QByteArray name = QFile::encodeName(path);
    const QObjectList children = dispatcher->children();
    for (QObject *child : children) {
        if (qstrcmp(child->metaObject()->className(), "QSingleShotTimer") == 0 && isIn(name, child))
            delete child;
    }
}
