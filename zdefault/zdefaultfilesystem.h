// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zconfig.h"
#include "zdelegate.h"
#include "zemitter.h"
#include "zowned.h"
#include "ztempfile.h"

#include <QString>

/// Returns "ZDefaultTempFile*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultTempFileTypeName();

/**
 * Makes temporary files. The section "filesystem" names their folder, and the beginning of their names.
 *
 * When a configuration is applied, all files of such names are removed from the folder, since an earlier run may have
 * left them. That includes files that another process has there at the moment.
 *
 * Ownership: the emitter owns it, once it is announced.
 * Thread:    any; but no configuration may be applied meanwhile.
 * Failure:   if the folder cannot be made, the system's temporary folder is used instead.
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

    /// Applies `config`, again at each call. Returns its argument.
    ZConfig *getSetZConfig(ZConfig *config = nullptr);
    /// Announces the service, again at each call. Returns its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    QString m_template; // null until configured
};

/// The delegate of a `ZTempFile`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZTempFileDelegate : public ZDelegate, public ZTempFile
{
public:
    explicit ZTempFileDelegate(QObject *object);
    explicit ZTempFileDelegate(QSharedPointer<QObject> object);

    QSharedPointer<QTemporaryFile> newFile0() override;
};
