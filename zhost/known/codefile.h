// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// The plugin's file whose code or data lies at `address`; empty for the host's own, and for none. Waits for nobody:
/// not for a load either, under which everything else that could tell this may have to wait for ever.
QString codeFile(const void *address);

/// The file of the class of `object`, which has virtual functions and must be alive.
template <class Object>
QString classFile(const Object &object)
{
    return codeFile(*reinterpret_cast<const void *const *>(&object));
}
