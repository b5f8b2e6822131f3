// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/**
 * Finds out where the application's thread is, while it hangs. A thread that waits in the kernel is not woken up: a
 * wait of a plugin must not end early because somebody has asked. A thread that computes is interrupted for a moment.
 *
 * Thread: made on the application's; asked by any other.
 */
class Whereabouts
{
public:
    Whereabouts();

    /// Such as "/…/libsvc.2.so+0x2450, while loading svc.2"; empty if it is in no plugin, or does not say.
    static QString ask();
};
