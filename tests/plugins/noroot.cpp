// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

/// The root is no `ZObject`.
class NoRoot : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
};

#include "noroot.moc"
