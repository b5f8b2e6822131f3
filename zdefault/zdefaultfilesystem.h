// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdelegate.h"
#include "ztempfile.h"

/// Stands for a `ZTempFile`.
class ZDEFAULT_EXPORT ZTempFileDelegate : public ZDelegate, public ZTempFile
{
public:
    explicit ZTempFileDelegate(QObject *object);
    explicit ZTempFileDelegate(QSharedPointer<QObject> object);

    QSharedPointer<QTemporaryFile> newFile0() override;
};
