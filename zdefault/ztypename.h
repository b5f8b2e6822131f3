// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>

/// Registers the pointer type of a component's class, once, and returns `name`, which is that type's name.
template <class Component>
const char *zTypeName(const char *name)
{
    static const int id = qRegisterMetaType<Component *>(name);
    Q_UNUSED(id)
    return name;
}
