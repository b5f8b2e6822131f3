// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zconfig.h"
#include "zdelegate.h"
#include "zemitter.h"
#include "zowned.h"
#include "ztempfile.h"

#include <QString>

/// "ZDefaultTempFile*", registered as a metatype.
ZDEFAULT_EXPORT const char *zDefaultTempFileTypeName();

/**
 * Makes temporary files in the folder, and with the stem of a name, that the section "filesystem" gives.
 *
 * Applying a configuration clears the folder of all that an earlier run left there under the stem, and so also of
 * what another process has there at the moment.
 *
 * Ownership: the emitter's, once announced.
 * Thread:    any; but no configuration may be applied meanwhile.
 * Failure:   a folder that cannot be made gives way to the system's temporary folder.
 */
class ZDEFAULT_EXPORT ZDefaultTempFile : public QObject, public ZTempFile, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZTempFile)
    Q_PROPERTY(ZConfig *config READ getSetZConfig WRITE getSetZConfig)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultTempFile();

    QSharedPointer<QTemporaryFile> newFile0() override;

    /// Applies `config`, each time anew. Answers its argument.
    ZConfig *getSetZConfig(ZConfig *config = nullptr);
    /// Announces the service, each time anew. Answers its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    QString m_template; // null until configured
};

/// Stands for a `ZTempFile`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZTempFileDelegate : public ZDelegate, public ZTempFile
{
public:
    explicit ZTempFileDelegate(QObject *object);
    explicit ZTempFileDelegate(QSharedPointer<QObject> object);

    QSharedPointer<QTemporaryFile> newFile0() override;
};
