// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>

class QTemporaryFile;

/**
 * Makes temporary files in the folder that the configuration names.
 *
 * Ownership: the caller owns the file, which is removed with its object.
 * Thread:    any.
 * Failure:   if the file cannot be made, opening it fails; null when there is no such service.
 */
class ZTempFile
{
public:
    /// A new temporary file. It is not open yet; opening it makes it.
    virtual QSharedPointer<QTemporaryFile> newFile0() = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZTempFile() {}
};
Q_DECLARE_INTERFACE(ZTempFile, "zdefault::ZTempFile")
Q_DECLARE_METATYPE(ZTempFile *)
