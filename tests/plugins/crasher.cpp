// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

#include <cstdlib>

/// Ends the process that makes it.
class Crasher : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Crasher()
    {
#ifdef QUIETLY
        std::_Exit(QUIETLY);
#else
        std::abort();
#endif
    }
};

#include "crasher.moc"
