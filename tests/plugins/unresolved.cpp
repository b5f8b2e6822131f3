// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

extern int nowhere; // data, which is looked for at once; a missing function would show only when it is called

class Unresolved : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Unresolved() { ++nowhere; }
};

#include "unresolved.moc"
