// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// The plugin's file whose code or data lies at `address`; empty for the host's own file, and if there is none. It
/// never waits, not even for a load: other ways to find this out wait for the end of a load, which may hang.
QString codeFile(const void *address);

/// The file that has the class of `object`. The class has virtual functions, and `object` must be alive.
template <class Object>
QString classFile(const Object &object)
{
    return codeFile(*reinterpret_cast<const void *const *>(&object));
}
