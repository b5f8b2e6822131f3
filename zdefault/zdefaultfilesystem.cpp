// SPDX-License-Identifier: Apache-2.0
#include "zdefaultfilesystem.h"

#include <QTemporaryFile>

ZTempFileDelegate::ZTempFileDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZTempFile>(this); }

ZTempFileDelegate::ZTempFileDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZTempFile>(this);
}

QSharedPointer<QTemporaryFile> ZTempFileDelegate::newFile0() { return forward(&ZTempFile::newFile0, {}); }
