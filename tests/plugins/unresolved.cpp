// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

extern int nowhere;

class Unresolved : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Unresolved() { ++nowhere; }
};

#include "unresolved.moc"
