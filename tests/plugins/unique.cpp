// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

/// One object in the whole process, whichever files have it: what the first of them has stays for the others.
inline int &number()
{
    static int instance = 0;
    return instance;
}

class Unique : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Unique() { ++number(); }
};

#include "unique.moc"
