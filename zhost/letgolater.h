// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCoreApplication>

#include <memory>
#include <utility>

/// Lets go of `held` on the application's thread. The last holder of a plugin's object destroys it. That may call the
/// bus, wait for threads, or unload the code that is running: so other threads must not do it.
template <class Held>
void letGoLater(Held held)
{
    // In a box that is emptied there, since a copy of the posted function may outlive the call.
    const auto box = std::make_shared<Held>(std::move(held));
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [box] { *box = Held(); }, Qt::QueuedConnection);
}
