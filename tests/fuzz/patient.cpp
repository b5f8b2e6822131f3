// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

/// Does nothing at all.
class Patient : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
};

#include "patient.moc"
