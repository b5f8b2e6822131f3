// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

#include <string>

thread_local std::string text = "so long that it is on the heap, and must be deleted as the thread ends";

/// Uses an object whose destructor the C library calls when the thread ends: it keeps the file for that.
class ThreadLocal : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    ThreadLocal() { text += '!'; }
};

#include "threadlocal.moc"
