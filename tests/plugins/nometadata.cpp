// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

/// A library that Qt does not know for a plugin.
class NoMetaData : public ZObject
{
    Q_OBJECT
};

#include "nometadata.moc"
