// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

/// A proper root, but the file says that it is a plugin of another kind.
class WrongIid : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "test::SomethingElse")
};

#include "wrongiid.moc"
