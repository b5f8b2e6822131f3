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

/// The beginning of Qt 5.15's function object for a slot, and its place in Qt's own class for single shots. Both are
/// private to Qt; they are the same in all releases of that version.
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
