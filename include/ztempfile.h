// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>

class QTemporaryFile;

/**
 * A factory of temporary files in the application's configured folder.
 *
 * Ownership: the caller owns the file, which is removed with its object.
 * Thread:    any.
 * Failure:   a file that cannot be made shows when it is opened; null when there is no such service.
 */
class ZTempFile
{
public:
    /// A new temporary file, not yet opened; it comes into being when it is.
    virtual QSharedPointer<QTemporaryFile> newFile0() = 0;
    // Slot order is our promise to plugins built elsewhere: a new ability is a new interface.
    virtual ~ZTempFile() {}
};
Q_DECLARE_INTERFACE(ZTempFile, "zdefault::ZTempFile")
Q_DECLARE_METATYPE(ZTempFile *)
