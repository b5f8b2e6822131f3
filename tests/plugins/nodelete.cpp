// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

class NoDelete : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
};

#include "nodelete.moc"
