// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCoreApplication>

#include <memory>
#include <utility>

/// The last to hold a component, or what else a plugin has made, destroys it, and that may call the bus, wait for
/// threads, or have the code unloaded in which it happens. So it is left to the application's thread.
template <class Held>
void letGoLater(Held held)
{
    // In a box that is emptied there: a copy of what is posted may outlive the call.
    const auto box = std::make_shared<Held>(std::move(held));
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [box] { *box = Held(); }, Qt::QueuedConnection);
}
